#!/bin/bash
# The built packages on a minimal install, as a vendor image makes one:
#   scripts/install-check.sh RELEASE [PACKAGES-DIR]         e.g. scripts/install-check.sh trixie
# RELEASE is a Debian codename (bookworm, trixie). PACKAGES-DIR holds that release's
# vorn-virus-agent and vorn-virus-agent-devtools packages; by default build/packages when RELEASE
# is this machine's own (scripts/package.sh), else build-on-RELEASE, which CI fills with
#   scripts/on-release.sh trixie './scripts/test.sh && ./scripts/package.sh && cp build/packages/*.deb /out/'
# Default folders must hold packages built after the last commit.
#
# In a pristine chroot of RELEASE (scripts/on-release.sh) it installs the agent's packages, with a
# stand-in libhalvo-log0 (scripts/halvo-log-stub.sh), by apt-get install --no-install-recommends,
# and checks that the agent and Qt's xcb platform plugin find every library they need before
# anything else is installed. Then it installs Xvfb and dbus-daemon the same way, starts a private
# system bus, an X display, the installed stand-in daemon and risk-box service and the installed
# agent, waits for the agent to connect, has the daemon announce a threat, answers its box and
# checks that the answer reaches the daemon.
# Exits 0 when all of it holds, 1 with the reason when something does not, and 77 when it cannot
# run here (not root, no mmdebstrap, no namespaces, no packages). Under a minute with a nearby
# Debian mirror, most of it making the chroot.
set -u
top=$(cd "$(dirname "$0")/.." && pwd)
# Beside this script, in the repository and in the copy the chroot runs.
. "$(dirname "$0")/common.sh"

# ---- Inside the chroot: scripts/install-check.sh --inside STAGE, STAGE being under /out. ----
if [ "${1:-}" = --inside ]; then
    stage=$2
    run=$(mktemp -d /tmp/vorn-install-check.XXXXXX)
    result=$stage/result
    pids=()
    on_exit rm -rf "$run"
    finish() {
        [ ${#pids[@]} -gt 0 ] && kill -TERM "${pids[@]}" 2> /dev/null
        wait
    }
    on_exit finish
    # The last lines of what the helpers said, then the one-line reason for the caller.
    fail() {
        local log
        for log in "$run"/*.log "$run"/*.out; do
            [ -s "$log" ] && { echo "== $(basename "$log")"; tail -n 15 "$log"; } >&2
        done
        echo "fail $*" > "$result"
        exit 1
    }
    skip() { echo "skip $*" > "$result"; exit 77; }
    say() { echo "install-check: $*"; }
    # The installed packages' size in KiB, as their control files state it.
    size() { dpkg-query -W -f='${db:Status-Abbrev} ${Installed-Size}\n' | awk '$1 == "ii" { kb += $2 } END { print kb }'; }
    mb() { awk -v kb="$1" 'BEGIN { printf "%.0f MB", kb / 1024 }'; }
    names() { dpkg-query -W -f='${db:Status-Abbrev} ${Package}\n' | awk '$1 == "ii" { print $2 }' | sort; }
    # Installs with no recommended package, as vendor images do. The reason is the first unmet
    # dependency apt names, else its first error.
    install() {
        apt-get install -y -q --no-install-recommends "$@" > "$run/apt.log" 2>&1 && return
        fail "apt-get install --no-install-recommends $(for a; do basename "$a"; done | paste -sd' ' -):" \
            "$( (grep -E ' : (Pre-)?Depends: ' "$run/apt.log" || grep '^E:' "$run/apt.log") | head -n 1 | sed 's/^ *//')"
    }
    # A line "package version" for the package that holds the file, or nothing.
    owner() {
        local p
        p=$(dpkg -S "$1" 2> /dev/null | head -n 1 | cut -d: -f1) || return 0
        [ -n "$p" ] && dpkg-query -W -f='${Package} ${Version}' "$p"
    }
    missing_libraries() { ldd "$1" 2>&1 | awk '/not found/ { print $1 }' | tr '\n' ' '; }
    echo started > "$result"

    . /etc/os-release
    names > "$run/before"
    base=$(size)
    say "Debian $VERSION_ID ($VERSION_CODENAME), minimal chroot (mmdebstrap --variant=apt): $(wc -l < "$run/before") packages, $(mb "$base")"
    apt-get update -q > "$run/apt.log" 2>&1 || skip "apt-get update failed: $(grep -m 1 '^E:' "$run/apt.log")"

    # ---- 1. The agent's packages, alone. ----
    install "$stage"/vorn-virus-agent_*.deb "$stage"/vorn-virus-agent-devtools_*.deb "$stage"/libhalvo-log0.deb
    names > "$run/agent"
    with_agent=$(size)
    say "the agent's two packages and the stand-in libhalvo-log0 (apt-get install --no-install-recommends):" \
        "$(comm -13 "$run/before" "$run/agent" | wc -l) packages, these three included, $(mb $((with_agent - base)))"
    agent=/usr/bin/vorn-virus-agent
    [ -x "$agent" ] || fail "$agent is not installed"
    gaps=$(missing_libraries "$agent")
    [ -z "$gaps" ] || fail "the agent does not find these libraries: $gaps"
    for tool in vorn-standin-daemon vorn-standin-riskbox vorn-standin-ctl; do
        gaps=$(missing_libraries "/usr/bin/$tool")
        [ -z "$gaps" ] || fail "$tool does not find these libraries: $gaps"
    done
    # The Qt the agent is built with decides where its platform plugins are.
    major=$(ldd "$agent" | sed -n 's/.*libQt\([56]\)Core\.so.*/\1/p' | head -n 1)
    [ -n "$major" ] || fail "the agent links no Qt core library"
    xcb=$(ls /usr/lib/*/qt"$major"/plugins/platforms/libqxcb.so 2> /dev/null | head -n 1)
    [ -n "$xcb" ] || fail "Qt $major's xcb platform plugin is not installed: the agent cannot reach an X display"
    gaps=$(missing_libraries "$xcb")
    [ -z "$gaps" ] || fail "Qt's xcb platform plugin does not find these libraries: $gaps"
    say "Qt $major xcb platform plugin: $xcb, from $(owner "$xcb"); every library found"
    wayland=$(ls /usr/lib/*/qt"$major"/plugins/platforms/libqwayland-generic.so 2> /dev/null | head -n 1)
    if [ -n "$wayland" ]; then
        say "Qt $major Wayland platform plugin: $wayland, from $(owner "$wayland")"
    else
        # Which installed packages only recommend it: that is why a minimal install has none.
        candidate=$(apt-cache policy qt"$major"-wayland 2> /dev/null | sed -n 's/^ *Candidate: //p')
        by=$(dpkg-query -W -f='${db:Status-Abbrev} ${Package} ${Recommends}\n' |
            awk -v want=qt"$major"-wayland '$1 == "ii" { for (i = 3; i <= NF; i++) { f = $i; sub(/,$/, "", f); if (f == want) { print $2; break } } }' |
            paste -sd, - | sed 's/,/, /g')
        say "Qt $major Wayland platform plugin: not installed; qt$major-wayland ${candidate:-(none)} is recommended by ${by:-no installed package}"
    fi

    # ---- 2. Only now the tools of the check: an X server and a bus daemon. ----
    install xvfb dbus-daemon
    names > "$run/tools"
    say "then, for the check only, xvfb and dbus-daemon: $(comm -13 "$run/agent" "$run/tools" | wc -l) more packages, $(mb $(($(size) - with_agent)))"
    locale -a 2> /dev/null | grep -qix 'c\.utf-\{0,1\}8' || fail "the locale C.UTF-8 is not available"

    # ---- 3. The private system bus, the display, the stand-ins and the installed agent. ----
    dbus-daemon --nofork --config-file="$stage/private-bus.conf" --address="unix:path=$run/bus" \
        --print-address=3 3> "$run/address" 2> "$run/bus.log" &
    pids+=("$!")
    wait_for 10 test -s "$run/address" || fail "the private bus did not start"
    Xvfb -displayfd 3 -nolisten tcp -screen 0 1280x800x24 3> "$run/display" > "$run/xvfb.log" 2>&1 &
    pids+=("$!")
    wait_for 10 test -s "$run/display" || fail "Xvfb did not start"
    mkdir -m 0700 "$run/runtime" "$run/home"
    session=(env -i PATH=/usr/bin:/bin HOME="$run/home" XDG_RUNTIME_DIR="$run/runtime" XDG_STATE_HOME="$run/state"
             DBUS_SYSTEM_BUS_ADDRESS="$(head -n 1 "$run/address")" DISPLAY=":$(head -n 1 "$run/display")"
             LC_ALL=C.UTF-8 LANG=C.UTF-8 HALVO_LOG_FILE="$run/events.jsonl")
    ctl() { "${session[@]}" vorn-standin-ctl "$@"; }
    "${session[@]}" vorn-standin-daemon > "$run/daemon.out" 2>&1 &
    pids+=("$!")
    "${session[@]}" vorn-standin-riskbox --headless > "$run/riskbox.out" 2>&1 &
    pids+=("$!")
    wait_for 10 ctl daemon state && wait_for 10 ctl riskbox boxes || fail "the stand-ins did not start"

    started=$(date +%s.%N)
    "${session[@]}" "$agent" > "$run/agent.out" 2>&1 &
    agent_pid=$!
    pids+=("$agent_pid")
    # It waits five seconds before it connects and says so in the event log; a start that fails
    # (no display, no platform plugin) ends it at once, and the wait with it.
    gone() { ! kill -0 "$agent_pid"; }
    connected() { grep -q 'all signal have been connected' "$run/events.jsonl"; }
    wait_for 20 eval 'connected || gone' || fail "the agent did not connect within 20 s"
    if ! connected; then
        wait "$agent_pid"
        fail "the agent ended (status $?) without connecting: $(tail -n 1 "$run/agent.out")"
    fi
    took=$(awk -v a="$started" -v b="$(date +%s.%N)" 'BEGIN { printf "%.1f", b - a }')
    grep -q '/libqxcb\.so' "/proc/$agent_pid/maps" || fail "the agent connected without Qt's xcb platform plugin"
    say "the installed agent reached the display (xcb) and connected after $took s"

    # ---- 4. A threat: its box on the risk-box service, the answer a daemon call. ----
    threat=/root/Downloads/eicar.com
    ctl daemon emit signal_showAuthDialog EICAR-Test-File "" "$threat" true > /dev/null ||
        fail "the stand-in daemon did not announce the threat"
    shown() { ctl riskbox boxes | grep -F "Virus Path:$threat\""; }
    wait_for 15 shown || fail "the agent showed no box for the threat within 15 s"
    box=$(shown | head -n 1 | sed -n 's/.*"id":\([0-9-]*\).*/\1/p')
    ctl riskbox press "$box" "Clear Now" > /dev/null || fail "the box offered no \"Clear Now\""
    quarantined() { ctl daemon calls | grep '"method":"add_quarantineFile"' | grep -qF "\"$threat\""; }
    wait_for 15 quarantined || fail "\"Clear Now\" did not reach the daemon as add_quarantineFile within 15 s"
    say "a threat announced by the daemon was shown in box $box; \"Clear Now\" reached the daemon as add_quarantineFile"
    echo ok > "$result"
    exit 0
fi

# ---- On the machine: choose the packages, stage them, run the above in a pristine chroot. ----
skip() { echo "install-check: cannot run here: $*" >&2; exit 77; }
[ $# -ge 1 ] && [ $# -le 2 ] && [[ $1 =~ ^[a-z]+$ ]] || { sed -n '2,3p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2; }
release=$1
[ "$(id -u)" -eq 0 ] || skip "it must run as root (a chroot, mounts, namespaces)"
for tool in mmdebstrap unshare setpriv git dpkg-deb; do
    command -v "$tool" > /dev/null || skip "$tool is not installed (scripts/deps.sh release package)"
done
unshare --mount --pid --fork true 2> /dev/null || skip "cannot create mount and PID namespaces"
here=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
if [ $# -eq 2 ]; then
    packages=$2
elif [ "$release" = "$here" ]; then
    packages=${VORN_BUILD_DIR:-$top/build}/packages
else
    packages=$top/build-on-$release
fi
# The newest agent package there, and the devtools package of the same version.
agent=$(ls -t "$packages"/vorn-virus-agent_*.deb 2> /dev/null | head -n 1)
[ -n "$agent" ] || skip "no vorn-virus-agent package in $packages (scripts/package.sh, or on-release.sh for another release)"
devtools=$packages/vorn-virus-agent-devtools_$(dpkg-deb -f "$agent" Version)_$(dpkg-deb -f "$agent" Architecture).deb
[ -f "$devtools" ] || skip "no $(basename "$devtools") beside $(basename "$agent") in $packages"
# Left from an earlier build, a default folder's packages would test an older tree.
if [ $# -eq 1 ] && [ "$(stat -c %Y "$agent")" -lt "$(git -C "$top" log -1 --format=%ct 2> /dev/null || echo 0)" ]; then
    skip "$agent is older than the last commit: build the packages again"
fi

# The chroot sees the host's build-on-RELEASE/ as /out: the packages, the stand-in event log, this
# script and the bus configuration go to a folder of this run there, removed when this script
# ends, by its EXIT trap or, should it be killed outright, by a watcher.
out=$top/build-on-$release
mkdir -p "$out"
stage=$(mktemp -d "$out/install-check.XXXXXX") || exit 1
chmod 0755 "$stage"
after_exit rm -rf "$stage"
on_exit rm -rf "$stage"
chroot_run=
stop_chroot() { [ -n "$chroot_run" ] && kill -TERM "$chroot_run" 2> /dev/null && wait "$chroot_run"; }
on_exit stop_chroot
cp "$agent" "$devtools" "$top/tests/private-bus.conf" "$stage/"
cp "$top/scripts/$(basename "$0")" "$stage/install-check.sh"
cp "$top/scripts/common.sh" "$stage/"
"$top/scripts/halvo-log-stub.sh" "$stage" "$stage/libhalvo-log0.deb" ||
    { echo "install-check: $release: FAILED: no stand-in libhalvo-log0 from $(basename "$devtools")"; exit 1; }
echo "install-check: $release: $(basename "$agent"), $(basename "$devtools") from $packages"

started=$SECONDS
# on-release.sh ends its chroot and every process in it when it is stopped; the death signal
# stops it should this script be killed outright.
setpriv --pdeathsig TERM -- "$top/scripts/on-release.sh" "$release" \
    "bash /out/$(basename "$stage")/install-check.sh --inside /out/$(basename "$stage")" &
chroot_run=$!
status=0
wait "$chroot_run" || status=$?
chroot_run=
took="$(((SECONDS - started) / 60)) min $(((SECONDS - started) % 60)) s"
read -r word reason < "$stage/result" 2> /dev/null || word=
case "$word" in
    ok) echo "install-check: $release: PASSED in $took" ;;
    fail) echo "install-check: $release: FAILED: $reason"; exit 1 ;;
    skip) echo "install-check: $release: cannot run here: $reason"; exit 77 ;;
    started) echo "install-check: $release: FAILED: the check in the chroot ended early (status $status)"; exit 1 ;;
    *) echo "install-check: $release: cannot run here: no chroot of $release was made (on-release.sh status $status)"; exit 77 ;;
esac
