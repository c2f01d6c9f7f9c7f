#!/bin/bash
# Every user-visible text of the sources is in the committed template, and every catalogue
# translates every text of the template.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

sources=$(find app bridge dbus dialog -name '*.cpp' | sort)
# shellcheck disable=SC2086
xgettext --from-code=UTF-8 --language=C++ --keyword= --keyword=vornText --flag=vornText:1:no-c-format \
    -o "$tmp/fresh.pot" $sources
ids() { msgcat --no-location --no-wrap --sort-output "$1" | grep '^msgid ' | sort; }
if ! diff <(ids "$tmp/fresh.pot") <(ids po/vorn-defender.pot); then
    echo "po/vorn-defender.pot is out of date (< sources, > template): cmake --build build --target vorn-pot"
    exit 1
fi
status=0
while read -r lang; do
    [ -n "$lang" ] || continue
    msgcmp "po/$lang.po" po/vorn-defender.pot || { echo "po/$lang.po lacks texts of the template"; status=1; }
    open=$({ msgattrib --untranslated --no-obsolete "po/$lang.po"; msgattrib --only-fuzzy --no-obsolete "po/$lang.po"; } |
        grep -c '^msgid ".' || true)
    [ "$open" -eq 0 ] || { echo "po/$lang.po: $open texts untranslated or fuzzy"; status=1; }
done < po/LINGUAS
[ $status -eq 0 ] && echo "1 passed, 0 failed: the template and every catalogue are complete"
exit $status
