#!/bin/bash
# Runs the whole suite over and over, in a matrix of builds and machine loads, and prints a table of
# passes and failures per cell with the names of the tests that failed. Not run in CI: the default
# matrix takes hours.
#   scripts/stress.sh [-n RUNS] [-b BUILDS] [-l LOADS]
#     -n RUNS     runs per cell (default 10)
#     -b BUILDS   some of: debug relwithdebinfo address (default: all three)
#     -l LOADS    some of: alone one-core busy (default: all three)
# Builds, as the CMake presets default, relwithdebinfo and address make them: debug is the build
# ./scripts/test.sh makes (build/), relwithdebinfo an optimised one (build-relwithdebinfo/),
# address the AddressSanitizer + UBSan one (build-address/); all with Qt 6. Loads: alone,
# on one core (taskset -c 0), and beside two CPU-bound processes that this script starts and stops.
# Each run's CTest output is kept in build-stress/BUILD-LOAD-N.log. Exits non-zero on any failure.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
runs=10 builds="debug relwithdebinfo address" loads="alone one-core busy"
while getopts n:b:l:h option; do
    case "$option" in
        n) runs=$OPTARG ;;
        b) builds=$OPTARG ;;
        l) loads=$OPTARG ;;
        *) sed -n '2,13p' "$0" | sed 's/^# \{0,1\}//'; exit 2 ;;
    esac
done
logs=$top/build-stress
mkdir -p "$logs"

. "$top/scripts/common.sh"

hogs=()
stop_hogs() {
    [ ${#hogs[@]} -eq 0 ] || { kill "${hogs[@]}" 2>/dev/null; wait "${hogs[@]}" 2>/dev/null || true; }
    hogs=()
}
on_exit stop_hogs

# The build of each name: the CMake preset that ./scripts/test.sh uses for it (VORN_QT=6, and
# VORN_BUILD_TYPE=RelWithDebInfo or VORN_SANITIZE=address).
preset() {
    case "$1" in
        debug) choose_preset 6 ;;
        relwithdebinfo) choose_preset 6 "" RelWithDebInfo ;;
        address) choose_preset 6 address ;;
        *) echo "stress.sh: unknown build '$1'" >&2; exit 2 ;;
    esac
    echo "$preset"
}

cd "$top"
"$top/scripts/deps.sh" build
for build in $builds; do
    preset=$(preset "$build")
    echo "== building $build (preset $preset)"
    { cmake --preset "$preset" && cmake --build --preset "$preset" -j "$(nproc)"; } > "$logs/$build-build.log" 2>&1 ||
        { tail -n 30 "$logs/$build-build.log"; exit 1; }
done

rows=()
status=0
for build in $builds; do
    for load in $loads; do
        prefix=()
        case "$load" in
            alone) ;;
            one-core) prefix=(taskset -c 0) ;;
            busy)
                for _ in 1 2; do
                    sh -c 'while :; do :; done' &
                    hogs+=($!)
                done
                ;;
            *) echo "stress.sh: unknown load '$load'" >&2; exit 2 ;;
        esac
        passed=0 failed=0
        declare -A failures=()
        for ((run = 1; run <= runs; run++)); do
            log=$logs/$build-$load-$run.log
            if "${prefix[@]}" ctest --preset "$(preset "$build")" > "$log" 2>&1; then
                passed=$((passed + 1))
                outcome=passed
            else
                outcome=failed
                failed=$((failed + 1))
                status=1
                for name in $(sed -nE 's/^\s+[0-9]+ - (\S+) \(.*\)$/\1/p' "$log"); do
                    failures[$name]=$((${failures[$name]:-0} + 1))
                done
            fi
            printf '%s %s run %d: %s\n' "$build" "$load" "$run" "$outcome"
        done
        stop_hogs
        names=
        for name in "${!failures[@]}"; do names+="$name x${failures[$name]} "; done
        rows+=("$(printf '%-15s %-9s %6d %6d   %s' "$build" "$load" "$passed" "$failed" "${names:--}")")
        unset failures
    done
done

echo
echo "Machine: $(nproc) cores, $(awk '/^MemTotal/ {printf "%.0f", $2 / 1048576}' /proc/meminfo) GiB, $(. /etc/os-release && echo "$PRETTY_NAME"), $(uname -m)"
printf '%-15s %-9s %6s %6s   %s\n' build load passed failed "failed tests"
printf '%s\n' "${rows[@]}"
exit $status
