#!/bin/bash
# Makes the figures of docs/results.md: runs the command behind each named section on this machine
# and writes what it printed into the section, with the commit, the Qt, the release, the cores and
# the day it was made on. Every figure the documents quote comes from here.
#   scripts/results.sh SECTION...      e.g. scripts/results.sh test-suite packages
#   scripts/results.sh --list          the sections and their commands
# A section whose command fails, or cannot run here (status 77), is left as it was; the script then
# exits non-zero. The other sections are written all the same.
set -u
top=$(cd "$(dirname "$0")/.." && pwd)
results=$top/docs/results.md

# section | the command, run in the top folder | the lines of its output that are figures: those an
# extended regular expression matches, with a leading '>' every line from the first it matches, with
# a leading '!' every line it does not match
sections=(
    "test-suite|./scripts/test.sh|tests passed|Total Test time|Not Run|Skipped"
    "ci|.ci/run|^== CI: .*passed in|^== CI: session check SKIPPED|^== [a-z]+: exit status"
    "benchmark|bench/run.sh|!^Qt [0-9.]+: "
    "session-check|./scripts/package.sh > /dev/null && ./scripts/session-check.sh|>^What +Measured"
    "power-cut|./scripts/power-cut-check.sh build|restored|not tested"
    "packages|./scripts/package.sh && ./scripts/reproducible.sh|^== lintian|^   [EWIP]: |^identical|^DIFFERENT|^reproducible"
    "mutation-check|python3 scripts/mutate.py --ratio && python3 scripts/mutate.py|^test lines|^SURVIVED|^NOBUILD|^score"
    "stress|./scripts/stress.sh -n 1|^Machine|^build +load|^(debug|relwithdebinfo|address) +[a-z-]+ +[0-9]"
    "fuzzing|./scripts/fuzz.sh 30|^fuzzed for|^findings"
    "minimal-install|./scripts/install-check.sh bookworm && ./scripts/install-check.sh trixie|^install-check"
)

# The section's line without its name: the command, a bar, the pattern.
section() { local s; for s in "${sections[@]}"; do [ "${s%%|*}" = "$1" ] && { echo "${s#*|}"; return; }; done; return 1; }
command_of() { local s; s=$(section "$1") && echo "${s%%|*}"; }
pattern_of() { local s; s=$(section "$1") && echo "${s#*|}"; }

if [ $# -eq 0 ] || [ "$1" = --list ] || [ "$1" = -h ]; then
    [ $# -eq 0 ] && sed -n '2,9p' "$0" | sed 's/^# \{0,1\}//'
    for s in "${sections[@]}"; do printf '  %-16s %s\n' "${s%%|*}" "$(command_of "${s%%|*}")"; done
    exit $(($# == 0 ? 2 : 0))
fi
for name; do
    command_of "$name" > /dev/null || { echo "results.sh: no section '$name' (see --list)" >&2; exit 2; }
    grep -qx "<!-- results:$name -->" "$results" || { echo "results.sh: $results has no section $name" >&2; exit 2; }
done

# The Qt libraries the release installs, as it names them (Debian 13 added t64 to the names).
qt_of() {
    local v
    v=$(dpkg-query -W -f='${Version}' "$1t64" 2> /dev/null || dpkg-query -W -f='${Version}' "$1" 2> /dev/null) &&
        echo "${v%%[+~-]*}"
}
machine() {
    local qt6 qt5
    qt6=$(qt_of libqt6core6) qt5=$(qt_of libqt5core5a)
    printf '%s, %s cores (%s), Qt %s%s, on %s' "$(. /etc/os-release && echo "$PRETTY_NAME")" "$(nproc)" \
        "$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)" "${qt6:-none}" \
        "${qt5:+ and Qt $qt5}" "$(date -u +%F)"
}
commit() {
    local dirty
    dirty=$(git -C "$top" status --porcelain --untracked-files=no -- . ':!docs/results.md')
    echo "$(git -C "$top" rev-parse --short HEAD)${dirty:+ with uncommitted changes}"
}

status=0
for name in "$@"; do
    command=$(command_of "$name")
    echo "== results: $name: $command"
    log=$(mktemp)
    started=$SECONDS
    (cd "$top" && bash -c "$command") 2>&1 | tee "$log"
    ran=${PIPESTATUS[0]}
    minutes=$(((SECONDS - started + 30) / 60))
    if [ "$ran" -ne 0 ]; then
        echo "== results: $name: the command ended with status $ran; the section is left as it was" >&2
        rm -f "$log"
        status=1
        continue
    fi
    block=$(mktemp)
    {
        echo "<!-- results:$name -->"
        echo "\`$command\`, commit $(commit), $(machine); the run took $minutes min:"
        echo
        echo '```'
        pattern=$(pattern_of "$name")
        if [ "${pattern:0:1}" = ">" ]; then
            awk -v p="${pattern:1}" '$0 ~ p { on = 1 } on' "$log"
        elif [ "${pattern:0:1}" = "!" ]; then
            grep -vE "${pattern:1}" "$log"
        else
            grep -E "$pattern" "$log"
        fi | sed 's/[[:space:]]*$//'
        echo '```'
        echo "<!-- /results:$name -->"
    } > "$block"
    # The section's block between its two markers is replaced; the rest of the file stays as it is.
    awk -v name="$name" -v block="$block" '
        $0 == "<!-- results:" name " -->" { while ((getline line < block) > 0) print line; skip = 1; next }
        skip && $0 == "<!-- /results:" name " -->" { skip = 0; next }
        !skip' "$results" > "$results.new" && mv "$results.new" "$results"
    rm -f "$log" "$block"
    echo "== results: $name written to docs/results.md"
done
exit $status
