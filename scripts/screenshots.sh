#!/bin/bash
# Makes the pictures in docs/ of what a user sees, in English and in Chinese, on a private X server
# and bus: the threat-found risk box, the "moved to trust zone" notice, the trust-zone failure box
# and the authorization dialog.
#   scripts/screenshots.sh
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VORN_BUILD_DIR:-$top/build}
. "$top/scripts/common.sh"

if [ "${1:-}" != --inside ]; then
    "$top/scripts/deps.sh" screenshots
    cmake -S "$top" -B "$build" > /dev/null
    cmake --build "$build" -j "$(nproc)" --target vorn-screenshots vorn-standin-daemon vorn-standin-riskbox \
        vorn-standin-ctl translations > /dev/null
    # A screen of a common laptop size, so the boxes sit where they would.
    exec xvfb-run -a -s "-screen 0 1366x768x24 -nolisten tcp" "$top/tests/run-with-bus.sh" "$0" --inside
fi

ctl=$build/standins/vorn-standin-ctl
work=$(mktemp -d "${TMPDIR:-/tmp}/vorn-screenshots.XXXXXX")
trap 'rm -rf "$work"' EXIT
export LC_ALL=C.UTF-8 HALVO_LOG_FILE=$work/events.jsonl
# Waits for a picture; without it, nothing that follows can be made.
picture() { wait_for 10 test -e "$1" || { echo "screenshots: no $1" >&2; exit 1; }; }

for language in en zh_CN; do
    mkdir "$work/$language"
    "$build/standins/vorn-standin-daemon" --quiet &
    daemon=$!
    "$build/standins/vorn-standin-riskbox" --quiet --snapshots "$work/$language" &
    riskbox=$!
    until "$ctl" riskbox boxes > /dev/null 2>&1 && "$ctl" daemon state > /dev/null 2>&1; do sleep 0.1; done
    # The daemon cannot add the file, so that the answer brings the failure box before the notice.
    "$ctl" daemon force add_trustFile 1 > /dev/null
    LANGUAGE=$([ $language = en ] || echo $language) "$build/docs/vorn-screenshots" "$build/locale" "$work/$language" &
    shots=$!
    picture "$work/$language/box-1.png"
    "$ctl" riskbox result 1 3 > /dev/null
    picture "$work/$language/box-2.png"
    wait $shots
    kill $daemon $riskbox
    wait $daemon $riskbox 2> /dev/null || true
    for picture in box-1:threat-box box-2:notice trust-failure:trust-failure auth-dialog:auth-dialog; do
        cp "$work/$language/${picture%%:*}.png" "$top/docs/${picture#*:}-$language.png"
    done
done
ls "$top"/docs/*.png
