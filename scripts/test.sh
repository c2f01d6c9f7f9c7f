#!/bin/bash
# The project's test command: installs what is missing, configures, builds with warnings as
# errors, and runs every test. Exits non-zero on any failure.
#   VORN_SANITIZE=address ./scripts/test.sh    the same with AddressSanitizer + UBSan (build-address/)
#   VORN_SANITIZE=thread ./scripts/test.sh     the same with ThreadSanitizer (build-thread/)
#   VORN_QT=6 ./scripts/test.sh                the same with Qt 6 (build-qt6/; the default is Qt 5)
#   VORN_BUILD_TYPE=RelWithDebInfo             another CMake build type (the default is Debug)
#   ./scripts/test.sh --build-only             configures and builds, runs nothing
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
sanitize=${VORN_SANITIZE:-}
qt=${VORN_QT:-5}
qt_suffix=
[ "$qt" = 5 ] || qt_suffix=-qt$qt
build=${VORN_BUILD_DIR:-$top/build${sanitize:+-$sanitize}$qt_suffix}

"$top/scripts/deps.sh" build $([ "$qt" = 6 ] && echo qt6)
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE="${VORN_BUILD_TYPE:-Debug}" -DVORN_WARNINGS_AS_ERRORS=ON \
    -DVORN_SANITIZE="$sanitize" -DVORN_QT_MAJOR="$qt"
cmake --build "$build" -j "$(nproc)"
[ "${1:-}" = --build-only ] && exit 0
cd "$build"
ctest --output-on-failure -j 2
