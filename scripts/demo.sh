#!/bin/bash
# The agent's main job on the stand-ins, in one command:
#   scripts/demo.sh [--auto]           (VORN_QT=5: the agent and stand-ins built with Qt 5)
# Installs what is missing, builds, starts a private bus with the stand-in daemon, the stand-in
# risk-box service, the stand-in event log and vorn-virus-agent, and plays a short scene. With a
# display the boxes are windows that you answer by clicking (--auto answers them for you); without
# one the scene answers itself. Exits 0 when every step of the scene happened.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
qt=${VORN_QT:-6}
# The build of ./scripts/test.sh and of the CMake preset of the same name.
case "$qt" in
    6) preset=default build=${VORN_BUILD_DIR:-$top/build} ;;
    5) preset=qt5 build=${VORN_BUILD_DIR:-$top/build-qt5} ;;
    *) echo "demo.sh: VORN_QT is 5 or 6, not '$qt'" >&2; exit 2 ;;
esac
auto=0
for arg in "$@"; do
    case "$arg" in
        --auto) auto=1 ;;
        -h|--help) sed -n '2,8p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
        *) echo "demo.sh: unknown option '$arg' (see --help)" >&2; exit 2 ;;
    esac
done

"$top/scripts/deps.sh" build $([ "$qt" = 5 ] && echo qt5)
echo "== Building (quietly) in $build"
build=$(realpath -m "$build")
cd "$top"
cmake --preset "$preset" -B "$build" > "$build.configure.log" 2>&1 || { cat "$build.configure.log"; exit 1; }
rm -f "$build.configure.log"
cmake --build "$build" -j "$(nproc)" --target vorn-virus-agent vorn-standin-daemon vorn-standin-riskbox \
    vorn-standin-ctl translations > /dev/null
scene=(env VORN_DEMO_AUTO=$auto VORN_BUILD_DIR="$build" "$top/tests/run-with-bus.sh" "$top/scripts/demo-scene.sh")
# The agent reads its catalogues from /usr/share/locale, nowhere else. On a machine without them
# (the package not installed), the scene runs as root in a mount namespace of its own in which the
# build's catalogues stand there, so it plays in the session's language all the same; nothing on
# the machine changes, and the namespace ends with the scene.
if ! ls /usr/share/locale/*/LC_MESSAGES/vorn-defender.mo > /dev/null 2>&1; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "== The agent's catalogues are not installed: the boxes are in English (install the" \
            "package, or run the demo as root)"
    elif unshare --mount true 2> /dev/null; then
        exec unshare --mount sh -c 'mount --bind "$0" /usr/share/locale && exec "$@"' "$build/locale" "${scene[@]}"
    else
        # No mount namespace to be had (in a chroot, whose root is no mount point): the catalogues
        # are installed for the scene's length and removed after it.
        installed=()
        trap 'rm -f "${installed[@]}"' EXIT
        for mo in "$build"/locale/*/LC_MESSAGES/vorn-defender.mo; do
            installed+=("/usr/share/locale/${mo#"$build/locale/"}")
            install -D -m 644 "$mo" "${installed[-1]}"
        done
        "${scene[@]}"
        exit
    fi
fi
exec "${scene[@]}"
