#!/bin/bash
# The project's test command: installs what is missing, configures, builds with warnings as
# errors, and runs every test. Exits non-zero on any failure.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VORN_BUILD_DIR:-$top/build}

"$top/scripts/deps.sh" build
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DVORN_WARNINGS_AS_ERRORS=ON
cmake --build "$build" -j "$(nproc)"
cd "$build"
ctest --output-on-failure -j 2
