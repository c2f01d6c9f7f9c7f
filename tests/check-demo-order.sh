#!/bin/bash
# Plays the demo's scene without a display and checks that its transcript is in the order things
# happened: each daemon call comes right after the event the agent writes before making it.
#   check-demo-order.sh BUILD-DIR     (on a private bus)
set -u
here=$(cd "$(dirname "$0")" && pwd)
transcript=$(env -u DISPLAY VORN_BUILD_DIR="$1" "$here/../scripts/demo-scene.sh" 2>&1) ||
    { printf '%s\n' "$transcript"; exit 1; }
printf '%s\n' "$transcript" | awk '
    BEGIN {
        n = split("all signal have been connected|Click deal right now|slot_ResultSignal start! id:4 state:2|" \
                  "iVirusType:1 state:2 ret:0|CAuthDialog: Click trust", before, "|")
    }
    /^event / { last = $0 }
    /^daemon: call / {
        if (++calls > n || !index(last, before[calls])) {
            printf "out of order: \"%s\" after \"%s\"\n", $0, last; bad = 1
        }
    }
    END {
        if (calls != n) { printf "%d daemon calls, not %d\n", calls, n; bad = 1 }
        if (!bad) print "daemon calls in order: " calls
        exit bad
    }'
