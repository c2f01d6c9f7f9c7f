#!/bin/bash
# Checks that every C and C++ source of the tree (tracked or new; build folders and other ignored
# files aside) is formatted as the committed .clang-format says. Tables kept by hand sit between
# "// clang-format off" and "// clang-format on", which clang-format leaves alone.
#   scripts/check-format.sh            lists the files that differ, with clang-format's complaints;
#                                      exits 1 if there is any
#   scripts/check-format.sh --fix      formats those files in place instead
#   scripts/check-format.sh FILE...    only these files (with or without --fix)
# Releases of clang-format break lines differently, so the check uses one: version 14, Debian 12's
# (the clang-format-14 command, or clang-format if that is version 14). Another version would
# report differences that are only its own, so the script stops instead of guessing.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
fix=0
[ "${1:-}" = --fix ] && { fix=1; shift; }
want=14
"$top/scripts/deps.sh" format
format=
for candidate in clang-format-$want clang-format; do
    if command -v "$candidate" > /dev/null &&
        [ "$("$candidate" --version | grep -o 'version [0-9]*' | cut -d' ' -f2)" = "$want" ]; then
        format=$candidate
        break
    fi
done
if [ -z "$format" ]; then
    echo "check-format.sh: needs clang-format $want (Debian 12's clang-format package);" \
        "found: $(clang-format --version 2> /dev/null || echo none)" >&2
    exit 2
fi

if [ $# -gt 0 ]; then
    files=("$@")
else
    mapfile -t files < <(git ls-files -co --exclude-standard -- '*.c' '*.cpp' '*.h' | sort)
fi
if [ "$fix" = 1 ]; then
    "$format" -i --style=file "${files[@]}"
    exit 0
fi
bad=()
for file in "${files[@]}"; do
    "$format" --dry-run --Werror --style=file "$file" > /dev/null 2>&1 || bad+=("$file")
done
if [ ${#bad[@]} -ne 0 ]; then
    for file in "${bad[@]}"; do "$format" --dry-run --style=file "$file" 2>&1 | head -n 6; done
    echo "${#bad[@]} of ${#files[@]} files are not formatted as .clang-format says (clang-format $want):"
    printf '  %s\n' "${bad[@]}"
    echo "scripts/check-format.sh --fix formats them (whitespace, and the order of includes)."
    exit 1
fi
echo "${#files[@]} files formatted as .clang-format says (clang-format $want)"
