#!/bin/bash
# The project's test command: installs what is missing, configures, builds with warnings as
# errors, and runs every test. Exits non-zero on any failure. It builds what the CMake presets of
# the same names build (CMakePresets.json), so an IDE using them and this script share a build tree.
#   ./scripts/test.sh                          Qt 6, Debug (preset default, build/)
#   VORN_QT=5 ./scripts/test.sh                the same with Qt 5 (preset qt5, build-qt5/)
#   VORN_SANITIZE=address ./scripts/test.sh    AddressSanitizer + UBSan (preset address; with
#                                              VORN_QT=5 address-qt5)
#   VORN_SANITIZE=thread ./scripts/test.sh     ThreadSanitizer (preset thread, thread-qt5)
#   VORN_BUILD_TYPE=RelWithDebInfo             preset relwithdebinfo; another build type, or one
#                                              with Qt 5 or a sanitizer, is set on top of the preset
#   VORN_BUILD_DIR=DIR                         the preset's build in DIR instead of its own folder
#   ./scripts/test.sh --build-only             configures and builds, runs nothing
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
dir=${VORN_BUILD_DIR:+$(realpath -m "$VORN_BUILD_DIR")}
cd "$top"
. "$top/scripts/common.sh"
qt=${VORN_QT:-6}
choose_preset "$qt" "${VORN_SANITIZE:-}" "${VORN_BUILD_TYPE:-}" ||
    { echo "test.sh: VORN_QT is 5 or 6 and VORN_SANITIZE address, thread or empty" >&2; exit 2; }

"$top/scripts/deps.sh" build $([ "$qt" = 5 ] && echo qt5)
if [ -n "$dir" ]; then
    cmake --preset "$preset" -B "$dir" "${preset_args[@]}"
    cmake --build "$dir" -j "$(nproc)"
else
    cmake --preset "$preset" "${preset_args[@]}"
    cmake --build --preset "$preset" -j "$(nproc)"
fi
[ "${1:-}" = --build-only ] && exit 0
ctest --preset "$preset" ${dir:+--test-dir "$dir"}
