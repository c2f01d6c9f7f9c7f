#!/bin/bash
# The benchmark command: installs what is missing, builds (optimised, in build-bench/), and
# measures the agent on the stand-ins on a private bus. Prints a table; takes about two minutes.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VORN_BENCH_BUILD_DIR:-$top/build-bench}
"$top/scripts/deps.sh" build
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=Release -DVORN_BUILD_TESTS=OFF > /dev/null
cmake --build "$build" -j "$(nproc)" > /dev/null
echo "vorn-virus-agent benchmark on $(nproc) cores, $(uname -m), $(. /etc/os-release && echo "$PRETTY_NAME")"
exec "$top/tests/run-with-bus.sh" python3 "$top/bench/benchmark.py" "$build"
