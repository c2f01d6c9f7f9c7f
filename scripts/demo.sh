#!/bin/bash
# The agent's main job on the stand-ins, in one command:
#   scripts/demo.sh [--auto]           (VORN_QT=5: the agent and stand-ins built with Qt 5)
# Installs what is missing, builds, starts a private bus with the stand-in daemon, the stand-in
# risk-box service, the stand-in event log and vorn-virus-agent, and plays a short scene. With a
# display the boxes are windows that you answer by clicking (--auto answers them for you); without
# one the scene answers itself. Exits 0 when every step of the scene happened.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/scripts/common.sh"
qt=${VORN_QT:-6}
# The build ./scripts/test.sh makes with that Qt (the demo takes no sanitizer or build type): the
# CMake preset's, in its folder unless VORN_BUILD_DIR names another.
choose_preset "$qt" || { echo "demo.sh: VORN_QT is 5 or 6, not '$qt'" >&2; exit 2; }
build=${VORN_BUILD_DIR:-$top/$preset_dir}
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
# (the package not installed), the scene runs in a user and mount namespace of its own in which
# the build's catalogues stand there, so it plays in the session's language all the same, as any
# user and without root. The mount is seen by the scene alone and ends with it; --no-mtab keeps it
# out of the machine's record of mounts in /run/mount, which a /run that anyone may write (some
# containers' and chroots') would otherwise take from the namespace's root. Inside, the user is root
# of that namespace only, and the bus, the stand-ins and the agent all run as that one user, so the
# bus's EXTERNAL authentication goes as outside. Root takes the same way; where the kernel lends no
# user namespace, root still gets a mount namespace.
if ! ls /usr/share/locale/*/LC_MESSAGES/vorn-defender.mo > /dev/null 2>&1; then
    lend=(sh -c 'mount --no-mtab --bind "$0" /usr/share/locale && exec "$@"' "$build/locale")
    why=
    for namespace in "--user --map-root-user --mount" "--mount"; do
        read -ra options <<< "$namespace"
        # Tried first with a command that only mounts: the kernel, or a security module, may grant
        # the namespace and still refuse the mount in it.
        if refused=$(unshare "${options[@]}" "${lend[@]}" true 2>&1); then
            exec unshare "${options[@]}" "${lend[@]}" "${scene[@]}"
        fi
        why=${why:-${refused:-unshare failed}}
    done
    echo "== The boxes are in English: no namespace can be made here to lend the agent the" \
        "build's catalogues (${why//$'\n'/; })"
fi
exec "${scene[@]}"
