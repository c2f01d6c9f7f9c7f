#!/bin/bash
# The benchmark command: installs what is missing, builds (optimised, in build-bench/), and
# measures the agent on the stand-ins on a private bus. Prints a table; takes about three minutes.
# VORN_QT=6 measures the agent built with Qt 6 (in build-bench-qt6/).
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
qt=${VORN_QT:-5}
build=${VORN_BENCH_BUILD_DIR:-$top/build-bench$([ "$qt" = 5 ] || echo "-qt$qt")}
"$top/scripts/deps.sh" build $([ "$qt" = 6 ] && echo qt6)
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=Release -DVORN_BUILD_TESTS=OFF -DVORN_QT_MAJOR="$qt" > /dev/null
cmake --build "$build" -j "$(nproc)" > /dev/null
qt_version=$(dpkg-query -W -f='${Version}' "$([ "$qt" = 6 ] && echo libqt6core6 || echo libqt5core5a)" | sed 's/[+~-].*//')
echo "vorn-virus-agent benchmark on $(nproc) cores, $(uname -m), $(. /etc/os-release && echo "$PRETTY_NAME"), Qt $qt_version"
exec "$top/tests/run-with-bus.sh" python3 "$top/bench/benchmark.py" "$build"
