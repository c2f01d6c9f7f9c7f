#!/bin/bash
# The benchmark command: installs what is missing, builds the agent optimised with Qt 6 (the bench
# preset, build-bench/) and with Qt 5 (bench-qt5, build-bench-qt5/), measures both on the stand-ins
# on a private bus, one after the other, and prints one table with the two side by side and the
# targets. Takes about five minutes; exits non-zero when a figure misses its target.
#   bench/run.sh
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/deps.sh" bench
cd "$top"
columns=()
for preset in bench bench-qt5; do
    cmake --preset "$preset" > /dev/null
    cmake --build --preset "$preset" -j 2 > /dev/null
    package=$([ "$preset" = bench ] && echo libqt6core6t64 || echo libqt5core5t64)
    # The run-time Qt as the release names it (Debian 13 renamed the libraries for 64-bit time).
    version=$(dpkg-query -W -f='${Version}' "$package" 2> /dev/null ||
        dpkg-query -W -f='${Version}' "${package%t64}$([ "$preset" = bench ] || echo a)")
    columns+=("Qt ${version%%[+~-]*}=$top/build-$preset")
done
echo "vorn-virus-agent benchmark on $(nproc) cores, $(uname -m), $(. /etc/os-release && echo "$PRETTY_NAME")," \
    "commit $(git -C "$top" rev-parse --short HEAD 2> /dev/null || echo unknown), $(date -u +%F)"
status=0
"$top/tests/run-with-bus.sh" python3 "$top/bench/benchmark.py" "${columns[@]}" || status=$?
# A starting agent reads its journal whole: the time and memory of restoring and queueing it grow
# with the undecided threats it holds, and nothing else.
for preset in bench bench-qt5; do
    echo "$preset:"
    "$top/build-$preset/bench/vorn-bench-journal-restore" 100000 100000@1 1000000 | grep -v '^threat journal:'
done
exit $status
