#!/bin/bash
# The project's test command: installs what is missing, configures, builds with warnings as
# errors, and runs every test. Exits non-zero on any failure.
#   VORN_SANITIZE=address ./scripts/test.sh    the same with AddressSanitizer + UBSan (build-address/)
#   VORN_SANITIZE=thread ./scripts/test.sh     the same with ThreadSanitizer (build-thread/)
#   VORN_BUILD_TYPE=RelWithDebInfo             another CMake build type (the default is Debug)
#   ./scripts/test.sh --build-only             configures and builds, runs nothing
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
sanitize=${VORN_SANITIZE:-}
build=${VORN_BUILD_DIR:-$top/build${sanitize:+-$sanitize}}

"$top/scripts/deps.sh" build
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE="${VORN_BUILD_TYPE:-Debug}" -DVORN_WARNINGS_AS_ERRORS=ON \
    -DVORN_SANITIZE="$sanitize"
cmake --build "$build" -j "$(nproc)"
[ "${1:-}" = --build-only ] && exit 0
cd "$build"
ctest --output-on-failure -j 2
