#!/bin/bash
# The threat journal after a power cut, tested from outside the agent:
#   scripts/power-cut-check.sh [BUILD-DIR]        (default: build, or VORN_BUILD_DIR)
#
# As root, it puts the agent's state folder on a small ext4 file system in a loop device, runs the
# agent against the stand-in daemon and risk-box service on a private system bus, has the daemon
# announce threats and then copies the loop device's backing file without syncing anything: the
# copy holds what the file system had sent to the device, which is what a power cut would leave.
# After e2fsck on the copy, a second agent starts on it and says how many undecided threats it
# restored. Two cases: three threats and a cut one second later, and a burst of 2000 threats and a
# cut three seconds later. It prints one line per case and exits 0 when every threat came back, 1
# when one did not, and 77 when it cannot run here (not root, no loop device, a tool missing).
#
# A third case starts the agent on a file system mounted read-only, announces a threat, remounts it
# read-write and expects the threat written without another announcement, then restored.
#
# Nothing it does is seen outside: it runs in a private mount namespace, in a folder that is a
# tmpfs there, the loop devices go with their mounts and what it starts dies with it (pdeathsig),
# so even killed outright (a CTest timeout) it leaves nothing behind but that folder, empty.
#   VORN_POWERCUT_AGENT=FILE   the agent to test, instead of BUILD-DIR/app/vorn-virus-agent
# shellcheck disable=SC2317  # the functions that only wait_capped and on_exit call are reachable
set -u
self=$(cd "$(dirname "$0")" && pwd)/$(basename "$0")
top=$(dirname "$(dirname "$self")")
. "$top/scripts/common.sh"

skip() { echo "power-cut-check: cannot run here: $*" >&2; exit 77; }

if [ "${1:-}" != --inside ]; then
    build=$(cd "${1:-${VORN_BUILD_DIR:-$top/build}}" 2> /dev/null && pwd) ||
        skip "no build folder ${1:-${VORN_BUILD_DIR:-$top/build}}"
    agent=${VORN_POWERCUT_AGENT:-$build/app/vorn-virus-agent}
    for program in "$agent" "$build"/standins/vorn-standin-{daemon,riskbox,ctl}; do
        [ -x "$program" ] || skip "$program is not built"
    done
    [ "$(id -u)" -eq 0 ] || skip "it must run as root (loop devices, mounts)"
    # Root's tools, which a PATH made for users may leave out.
    PATH=$PATH:/usr/sbin:/sbin
    for tool in losetup mkfs.ext4 e2fsck dbus-daemon mount umount unshare setpriv; do
        command -v "$tool" > /dev/null || skip "$tool is not installed"
    done
    losetup -f > /dev/null 2>&1 || skip "no free loop device (losetup -f)"
    unshare --mount true 2> /dev/null || skip "cannot create a mount namespace"
    work=$(mktemp -d "${TMPDIR:-/tmp}/vorn-power-cut.XXXXXX") || exit 1
    # exec: the namespace's first process is this script's own, so that a kill reaches it.
    exec unshare --mount --propagation private -- "$self" --inside "$build" "$(realpath "$agent")" "$work"
fi

# ---- Inside the private mount namespace. ----
build=$2 agent=$3 work=$4
ctl=$build/standins/vorn-standin-ctl
# Every wait ends by this time, so that the whole check stays well within CTest's 120 s.
deadline=$((SECONDS + 100))
pids=() mounts=()

# Ends what this script started: the processes first, so that their files close, then the loop
# devices' mounts (each device detaches with its mount), then the tmpfs and its folder.
cleanup() {
    local at
    [ ${#pids[@]} -gt 0 ] && kill -KILL "${pids[@]}" 2> /dev/null
    wait 2> /dev/null
    for at in "${mounts[@]}"; do umount "$at" 2> /dev/null; done
    cd / && umount "$work" 2> /dev/null
    rmdir "$work"
}
on_exit cleanup

# A tmpfs in the namespace only: the images, the outputs and the bus's socket vanish with it.
mount -t tmpfs -o mode=0700 vorn-power-cut "$work" || exit 1
cd "$work" || exit 1

# Starts a command in the background that dies with this script, with its output in a file.
start() {
    local out=$1
    shift
    setpriv --pdeathsig KILL -- "$@" > "$out" 2>&1 &
    pids+=($!)
}
# Polls until the command succeeds, for at most $1 seconds and never past the deadline. Not
# common.sh's wait_for: that one counts polls, which a slow command stretches, and this check must
# keep to the clock.
wait_capped() {
    local until=$((SECONDS + $1))
    shift
    ((until > deadline)) && until=$deadline
    until "$@" > /dev/null 2>&1; do
        ((SECONDS < until)) || return 1
        sleep 0.05
    done
}
# Attaches an image to a free loop device and mounts it on a new folder. The device is detached
# at once: the kernel keeps it while it is mounted and frees it with the mount.
attach() {
    local image=$1 at=$2 device
    device=$(losetup -f --show "$image") || return 1
    mkdir -p "$at"
    if ! mount "$device" "$at"; then
        losetup -d "$device"
        return 1
    fi
    mounts+=("$at")
    losetup -d "$device"
}
detach() {
    local at kept=()
    umount "$1" || return 1
    for at in "${mounts[@]}"; do [ "$at" = "$1" ] || kept+=("$at"); done
    mounts=("${kept[@]}")
}

# ---- The private system bus and the stand-ins, shared by the cases. ----
export XDG_RUNTIME_DIR=$work/runtime HALVO_LOG_FILE=$work/events.jsonl QT_QPA_PLATFORM=offscreen LC_ALL=C.UTF-8
mkdir -m 0700 "$XDG_RUNTIME_DIR"
start bus.log dbus-daemon --nofork --config-file="$top/tests/private-bus.conf" --address="unix:dir=$work" \
    --print-address=3 3> "$work/address"
if ! wait_capped 10 test -s "$work/address"; then
    cat bus.log >&2
    echo "power-cut-check: the private bus did not start" >&2
    exit 1
fi
DBUS_SYSTEM_BUS_ADDRESS=$(head -n 1 "$work/address")
export DBUS_SYSTEM_BUS_ADDRESS
start daemon.out "$build/standins/vorn-standin-daemon" --quiet
start riskbox.out "$build/standins/vorn-standin-riskbox" --headless --quiet
if ! wait_capped 10 "$ctl" daemon state || ! wait_capped 10 "$ctl" riskbox boxes; then
    echo "power-cut-check: the stand-ins did not start" >&2
    exit 1
fi

# Boxes the risk-box service has put on screen.
boxes() { "$ctl" riskbox boxes | grep -c '"shown":true'; }
more_boxes() { [ "$(boxes)" -gt "$1" ]; }
connected() { "$ctl" daemon calls | grep -q get_scanMode; }
# The number in the agent's "restored N undecided threats" line, once it has printed it.
restored() { sed -n 's/^threat journal: restored \([0-9]*\) undecided threats from .*/\1/p' "$1" | head -n 1; }
said_restored() { [ -n "$(restored "$1")" ]; }
# Runs an agent on the file system mounted at $2, its output in $1; its pid is left in $agent_pid.
run_agent() {
    mkdir -p "$work/home-$1"
    start "$work/$1.out" env HOME="$work/home-$1" XDG_STATE_HOME="$2/state" "$agent"
    agent_pid=${pids[-1]}
}

# restores NAME MOUNT COUNT TITLE: starts an agent on the file system mounted at MOUNT, prints how
# many of COUNT threats it restored, then unmounts it. Returns 1 unless all.
restores() {
    local name=$1 at=$2 count=$3 title=$4 got
    run_agent "$name" "$at"
    wait_capped 20 said_restored "$work/$name.out"
    got=$(restored "$work/$name.out")
    kill -KILL "$agent_pid" 2> /dev/null
    wait "$agent_pid" 2> /dev/null
    detach "$at"
    echo "$title: ${got:-none} of $count restored"
    if [ "$got" != "$count" ]; then
        grep '^threat journal:' "$work/$name.out" >&2
        return 1
    fi
}

# power_cut NAME COUNT FROM SECONDS TITLE: announces COUNT threats at once, cuts the power SECONDS
# after FROM (box: the first threat's box is on screen; sent: the daemon has sent them all) and
# prints how many of them an agent started on what the disk kept restores. Returns 1 unless all.
power_cut() {
    local name=$1 count=$2 from=$3 delay=$4 title=$5 dir=$work/$1 why="" fsck=0 before shown got
    mkdir "$dir"
    truncate -s 32M "$dir/disk.img"
    if ! mkfs.ext4 -q "$dir/disk.img" || ! attach "$dir/disk.img" "$dir/disk"; then
        echo "$title: not tested: no file system"
        return 1
    fi
    # The state folder is on the device before the agent starts, as on a machine up for longer
    # than the file system's commit interval: all a cut can lose is what the agent wrote.
    mkdir -m 0700 "$dir/disk/state" && sync -f "$dir/disk"

    "$ctl" daemon clear-calls > /dev/null
    run_agent "$name-before" "$dir/disk"
    before=$agent_pid
    # The agent sleeps five seconds before it reads its journal and connects.
    if ! wait_capped 20 said_restored "$work/$name-before.out"; then
        why="the agent did not say what it restored"
    elif [ "$(restored "$work/$name-before.out")" != 0 ]; then
        why="the agent restored $(restored "$work/$name-before.out") threats from a fresh file system"
    elif ! wait_capped 15 connected; then
        why="the agent did not connect to the daemon"
    else
        shown=$(boxes)
        "$ctl" daemon emit-many "$count" signal_showAuthDialog EICAR-Test-File "" \
            "/home/user/Downloads/$name-{n}.com" false > /dev/null || why="the daemon did not announce the threats"
        if [ -z "$why" ] && [ "$from" = box ] && ! wait_capped 15 more_boxes "$shown"; then
            why="no threat box was shown"
        fi
    fi
    if [ -n "$why" ]; then
        echo "$title: not tested: $why"
        tail -n 20 "$work/$name-before.out" >&2
        kill -KILL "$before"
        wait "$before" 2> /dev/null
        return 1
    fi
    # This wait is the promise under test, not a stand-in for a condition: a threat announced this
    # long before a power cut is on the disk after it.
    sleep "$delay"
    # No sync: the backing file holds exactly what the file system has submitted to the device, so
    # the copy is the disk a power cut would leave. The agent is killed before it can write more.
    cp --sparse=always "$dir/disk.img" "$dir/cut.img"
    kill -KILL "$before"
    wait "$before" 2> /dev/null
    detach "$dir/disk"

    # As at the next boot, the file system is checked (and its journal replayed) before it is
    # mounted: 0 is clean, 1 is repaired.
    e2fsck -fy "$dir/cut.img" > "$dir/e2fsck.log" 2>&1 || fsck=$?
    if [ "$fsck" -gt 1 ]; then
        echo "$title: e2fsck could not repair the file system (exit $fsck)"
        tail -n 20 "$dir/e2fsck.log" >&2
        return 1
    fi
    if ! attach "$dir/cut.img" "$dir/cut"; then
        echo "$title: the file system after the cut does not mount"
        return 1
    fi
    restores "$name-after" "$dir/cut" "$count" "$title"
}

# read_only: the state folder's file system is read-only when the agent starts (a home mounted
# read-only first, then read-write). A threat announced meanwhile waits in memory; once the file
# system takes writes, it is written without another announcement, and the next agent restores it.
read_only() {
    local dir=$work/read-only title="a home read-only at start, then writable: the threat" got
    said() { grep -q "$2" "$work/$1.out"; }
    tried_box() { "$ctl" riskbox calls | grep -q create; }
    mkdir "$dir"
    truncate -s 32M "$dir/disk.img"
    if ! mkfs.ext4 -q "$dir/disk.img" || ! attach "$dir/disk.img" "$dir/disk" ||
        ! mkdir -m 0700 "$dir/disk/state" || ! mount -o remount,ro "$dir/disk"; then
        echo "$title: not tested: no file system"
        return 1
    fi
    # The box cannot be made, so that no answer or timeout decides the threat.
    "$ctl" riskbox fail create > /dev/null
    "$ctl" daemon clear-calls > /dev/null
    run_agent read-only-before "$dir/disk"
    if ! wait_capped 20 said read-only-before "cannot write to .*Read-only file system" || ! wait_capped 15 connected; then
        echo "$title: not tested: the agent did not start as expected"
        tail -n 20 "$work/read-only-before.out" >&2
        return 1
    fi
    "$ctl" daemon emit signal_showAuthDialog EICAR-Test-File "" /home/user/Downloads/read-only.com false > /dev/null
    # Its box was tried: the agent has it, and so has its journal thread.
    wait_capped 15 tried_box
    mount -o remount,rw "$dir/disk"
    wait_capped 20 said read-only-before "works again"
    kill -TERM "$agent_pid"
    wait "$agent_pid" 2> /dev/null
    "$ctl" riskbox reset > /dev/null
    restores read-only-after "$dir/disk" 1 "$title"
}

status=0
power_cut three 3 box 1 "power cut 1 s after 3 threats" || status=1
power_cut burst 2000 sent 3 "power cut 3 s after a burst of 2000 threats" || status=1
read_only || status=1
[ $status -eq 0 ] || echo "power-cut-check: FAILED" >&2
exit $status
