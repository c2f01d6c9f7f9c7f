#!/bin/bash
# The agent in a real desktop session, as an integrator gets it from the packages:
#   scripts/session-check.sh [PACKAGES-DIR]        (default: build/packages, from scripts/package.sh)
#
# As root, it starts systemd's user manager for a throw-away user in a private mount namespace and
# a cgroup of its own, installs the packages there (with a stand-in package for the platform's event
# log), runs the stand-in daemon and risk-box service on a private system bus and an X server
# (Xvfb) for the session's display, starts the session and measures what the user unit and the
# autostart entry do. It prints a table and exits 0 when every row holds, 1 when one does not, and
# 77 when it cannot run here (not root, no writable cgroups, a tool or the packages missing).
#
# Nothing it does is seen outside: /etc, /usr, /var, /home and /tmp are overlays and /run a fresh
# tmpfs in the private namespace, so the packages, the user and every file vanish with it. The
# processes all live in the cgroup, which is emptied, by pid, and removed, by path, at the end; a
# watcher outside it does the same if this script is killed outright.
#   VORN_SESSION_UNIT=FILE   try FILE as the user unit instead of the packaged one
set -u
top=$(cd "$(dirname "$0")/.." && pwd)
self=$top/scripts/$(basename "$0")
name=vorn-session-check
. "$top/scripts/common.sh"

skip() { echo "session-check: cannot run here: $*" >&2; exit 77; }

# The cgroup hierarchies a user manager needs: the unified one, or on a hybrid system the named
# systemd one plus the unified one beside it.
hierarchies() {
    if [ "$(stat -f -c %T /sys/fs/cgroup 2>/dev/null)" = cgroup2fs ]; then
        echo /sys/fs/cgroup
    elif [ -d /sys/fs/cgroup/systemd ]; then
        echo /sys/fs/cgroup/systemd
        [ "$(stat -f -c %T /sys/fs/cgroup/unified 2>/dev/null)" = cgroup2fs ] && echo /sys/fs/cgroup/unified
    fi
}

# Empties the cgroups below $1 in every hierarchy (every process in them, by pid, until none is
# left) and removes them, deepest first.
sweep() {
    local group=$1 h pids _
    for _ in $(seq 1 100); do
        pids=$(for h in $(hierarchies); do [ -d "$h/$group" ] && find "$h/$group" -name cgroup.procs -exec cat {} +; done)
        [ -z "$pids" ] && break
        kill -KILL $pids 2>/dev/null
        sleep 0.1
    done
    for h in $(hierarchies); do
        [ -d "$h/$group" ] && find "$h/$group" -depth -type d -exec rmdir {} + 2>/dev/null
    done
}

if [ "${1:-}" != --inside ]; then
    packages=$(cd "${1:-${VORN_BUILD_DIR:-$top/build}/packages}" 2>/dev/null && pwd) ||
        skip "no ${1:-build/packages} folder: build the packages with scripts/package.sh"
    [ "$(id -u)" -eq 0 ] || skip "it must run as root (a user manager for a throw-away user, mounts, cgroups)"
    for tool in unshare setpriv useradd dbus-daemon Xvfb dpkg dpkg-deb systemctl systemd-analyze perl; do
        command -v "$tool" > /dev/null || skip "$tool is not installed"
    done
    [ -x /lib/systemd/systemd ] || skip "systemd is not installed"
    for deb in vorn-virus-agent vorn-virus-agent-devtools; do
        ls "$packages/${deb}_"*.deb > /dev/null 2>&1 || skip "no $deb package in $packages (scripts/package.sh)"
    done
    # Left from an earlier build, the default folder's packages would test an older tree.
    if [ -z "${1:-}" ] && [ -n "$(git -C "$top" log -1 --format=%ct 2> /dev/null)" ] &&
        [ "$(stat -c %Y "$(ls "$packages"/vorn-virus-agent_*.deb | head -n 1)")" -lt "$(git -C "$top" log -1 --format=%ct)" ]; then
        skip "the packages in $packages are older than the last commit: rebuild them with scripts/package.sh"
    fi
    [ -n "$(hierarchies)" ] || skip "no cgroup hierarchy systemd could use under /sys/fs/cgroup"
    group=$name.$$
    for h in $(hierarchies); do
        mkdir -p "$h/$group/harness" "$h/$group/manager" 2> /dev/null ||
            { sweep "$group"; skip "cannot create a cgroup in $h (read-only, or not delegated to this container)"; }
    done
    unshare --mount true 2> /dev/null || { sweep "$group"; skip "cannot create a mount namespace"; }

    # Killed outright, this script runs no trap; the watcher, outside the cgroup, waits for it to
    # end and then empties and removes the cgroup. With it all processes go, and with the last of
    # them the mount namespace and everything in it.
    after_exit sweep "$group"
    on_exit sweep "$group"
    # The namespace's first process dies with this script too.
    setpriv --pdeathsig KILL -- unshare --mount --propagation private -- \
        "$self" --inside "$packages" "$group" "$(hierarchies | tr '\n' ' ')"
    exit $?
fi

# ---- Inside the private mount namespace, in the harness cgroup. ----
packages=$2 group=$3
read -r -a hier <<< "$4"
for h in "${hier[@]}"; do echo $$ > "$h/$group/harness/cgroup.procs" || exit 1; done
exit_on_signals
status=0
rows=()
fail() { echo "session-check: $*" >&2; status=1; }
# Ends the check early, with what the helpers said.
show_logs() {
    local log
    for log in "$ns"/*.log "$ns"/out/*.log "$ns"/out/*.out; do
        [ -s "$log" ] && { echo "== $log"; tail -n "$1" "$log"; } >&2
    done
}
die() {
    show_logs 20
    echo "session-check: $*" >&2
    exit 1
}
row() { rows+=("$(printf '%-52s %-26s %s' "$1" "$2" "$3")"); printf '%-52s %-26s %s\n' "$1" "$2" "$3"; }

# A fresh /run (the private bus at the system bus's own address, the user's runtime folder, the
# mark that systemd is running); overlays over the rest, their changes kept in it.
mount -t tmpfs -o mode=0755 "$name" /run || exit 1
ns=/run/$name
mkdir -p /run/systemd/system /run/dbus /run/user "$ns"
for d in etc usr var home tmp; do
    [ -d "/$d" ] || continue
    mkdir "$ns/$d.upper" "$ns/$d.work"
    # The overlay's top takes the upper folder's mode: /tmp stays sticky and writable for all.
    chmod --reference="/$d" "$ns/$d.upper" && chown --reference="/$d" "$ns/$d.upper"
    mount -t overlay -o "lowerdir=/$d,upperdir=$ns/$d.upper,workdir=$ns/$d.work" "$name-$d" "/$d" || exit 1
done

now() { perl -MTime::HiRes=clock_gettime,CLOCK_MONOTONIC -e 'printf "%.3f\n", clock_gettime(CLOCK_MONOTONIC)'; }
secs() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f s", b - a }'; }
below() { awk -v a="$1" -v b="$2" -v max="$3" 'BEGIN { exit !(b - a < max) }'; }

# ---- The packages, with a stand-in for the platform's event log. ----
"$top/scripts/halvo-log-stub.sh" "$packages" "$ns/libhalvo-log0.deb" 2> "$ns/stub.log" ||
    die "no stand-in event-log package: $(cat "$ns/stub.log")"
dpkg -i "$ns/libhalvo-log0.deb" "$packages"/vorn-virus-agent_*.deb "$packages"/vorn-virus-agent-devtools_*.deb \
    > "$ns/dpkg.log" 2>&1 || die "the packages did not install"
unit=/usr/lib/systemd/user/vorn-virus-agent.service
[ -n "${VORN_SESSION_UNIT:-}" ] && cp "$VORN_SESSION_UNIT" "$unit"
entry=/etc/xdg/autostart/vorn-virus-agent.desktop

# ---- The throw-away user, the display, the private system bus and the stand-ins. ----
user=vorn-session
useradd --create-home --user-group --shell /bin/bash "$user" || exit 1
uid=$(id -u "$user") gid=$(id -g "$user") home=$(getent passwd "$user" | cut -d: -f6)
runtime=/run/user/$uid
out=$ns/out
install -d -m 0700 -o "$uid" -g "$gid" "$runtime"
install -d -m 0755 -o "$uid" -g "$gid" "$out"
as_user() {
    setpriv --reuid="$uid" --regid="$gid" --init-groups -- env -i HOME="$home" USER="$user" LOGNAME="$user" \
        PATH=/usr/local/bin:/usr/bin:/bin XDG_RUNTIME_DIR="$runtime" LANG=C.UTF-8 "$@"
}
sc() { as_user systemctl --user "$@"; }
ctl() { as_user vorn-standin-ctl "$@"; }
# No core files from the crashes this check causes.
ulimit -c 0

dbus-daemon --nofork --config-file="$top/tests/private-bus.conf" --address=unix:path=/run/dbus/system_bus_socket \
    > "$out/bus.log" 2>&1 &
wait_for 10 test -S /run/dbus/system_bus_socket || die "the private bus did not start"
as_user Xvfb -displayfd 3 -nolisten tcp -screen 0 1280x800x24 3> "$out/display" > "$out/xvfb.log" 2>&1 &
wait_for 10 test -s "$out/display" || die "Xvfb did not start"
display=:$(head -n 1 "$out/display")
as_user vorn-standin-daemon --timestamps > "$out/daemon.out" 2>&1 &
as_user vorn-standin-riskbox --timestamps --headless > "$out/riskbox.out" 2>&1 &
wait_for 10 ctl daemon state && wait_for 10 ctl riskbox boxes || die "the stand-ins did not start"

# The desktop's own session target: what GNOME's and Plasma's are to graphical-session.target.
mkdir -p "$home/.config/systemd/user"
cat > "$home/.config/systemd/user/$name.target" << EOF
[Unit]
Description=Stand-in desktop session
BindsTo=graphical-session.target
Before=graphical-session.target
EOF
chown -R "$uid:$gid" "$home/.config"

# ---- The user manager, in its own cgroup, delegated to the user, without a display yet. ----
# No journal runs here: the manager's log and what its services print go to manager.log.
for h in "${hier[@]}"; do chown -R "$uid:$gid" "$h/$group/manager"; done
HIER="${hier[*]}" bash -c 'g=$1; shift; for h in $HIER; do echo $$ > "$h/$g/manager/cgroup.procs" || exit 1; done; exec "$@"' \
    manager "$group" setpriv --reuid="$uid" --regid="$gid" --init-groups -- env -i HOME="$home" USER="$user" \
    LOGNAME="$user" PATH=/usr/local/bin:/usr/bin:/bin XDG_RUNTIME_DIR="$runtime" LANG=C.UTF-8 \
    /lib/systemd/systemd --user --log-target=console --default-standard-output=inherit --default-standard-error=inherit \
    > "$out/manager.log" 2>&1 &
manager=$!
running() { [[ $(sc is-system-running) =~ ^(running|degraded)$ ]]; }
wait_for 30 running || die "the user manager did not start"
sc set-environment HALVO_LOG_FILE="$out/events.jsonl"

# Ends the session, the manager and the helpers, in that order; whatever is left, the cgroup sweep ends.
cleanup() {
    sc stop "$name.target" > /dev/null 2>&1
    kill -TERM "$manager" 2> /dev/null && wait "$manager" 2> /dev/null
    kill -TERM $(jobs -p) 2> /dev/null
    wait
}
on_exit cleanup

prop() { sc show --value -p "$1" vorn-virus-agent.service; }
started_at() { awk -v t="$(prop ExecMainStartTimestampMonotonic)" 'BEGIN { printf "%.3f", t / 1000000 }'; }
connects() { grep -c 'all signal have been connected' "$out/events.jsonl" 2> /dev/null || true; }
connected_at() { grep 'all signal have been connected' "$out/events.jsonl" | sed -n "$1s/.*\"monotonic\":\([0-9.]*\).*/\1/p"; }
more_connects() { [ "$(connects)" -gt "$1" ]; }
# Boxes that show the threat in $threat, on screen (the risk-box service prints each box's lines).
boxes() { grep -c "riskbox:   | Virus Path:$threat\$" "$out/riskbox.out" || true; }
box_at() { grep "riskbox:   | Virus Path:$threat\$" "$out/riskbox.out" | sed -n "$1s/^\[\([0-9.]*\)\].*/\1/p"; }
more_boxes() { [ "$(boxes)" -gt "$1" ]; }
pid_other_than() { local p; p=$(prop MainPID); [ "$p" != 0 ] && [ "$p" != "$1" ]; }
session_up() { [ "$(sc is-active graphical-session.target)" = active ]; }
session_down() { [ "$(sc is-active graphical-session.target)" = inactive ]; }
agent_is() { [ "$(prop ActiveState)" = "$1" ]; }
# Nothing starts the agent during $1 seconds: the window of a restart (RestartSec) and then some.
stays_down() {
    local i
    for ((i = 0; i < $1 * 20; i++)); do
        [ "$(prop MainPID)" = 0 ] || return 1
        sleep 0.05
    done
}

printf '%-52s %-26s %s\n' "What" "Measured" "Holds"
# ---- 1. No display in the manager's environment: the unit does not start, nothing loops. ----
sc start "$name.target"
wait_for 10 session_up || fail "the session target did not start"
if stays_down 5 && [ "$(prop ConditionResult)" = no ] && [ "$(prop NRestarts)" = 0 ]; then
    row "no display: session started, agent not started" "condition failed, 0 starts" yes
else
    row "no display: session started, agent not started" "$(prop ActiveState), $(prop NRestarts) restarts" NO
    fail "without a display the unit started the agent"
fi
sc stop "$name.target"
wait_for 10 session_down || fail "the session target did not stop"
# A Wayland session without Xwayland has only WAYLAND_DISPLAY: the unit's conditions, as systemd
# tests them, must pass there too.
conditions=$(grep '^Condition' "$unit")
if as_user env WAYLAND_DISPLAY=wayland-0 systemd-analyze --user condition $conditions > /dev/null 2>&1 &&
    ! as_user systemd-analyze --user condition $conditions > /dev/null 2>&1; then
    row "WAYLAND_DISPLAY alone meets the conditions" "yes; neither: no" yes
else
    row "WAYLAND_DISPLAY alone meets the conditions" "no" NO
    fail "the unit's conditions do not accept a Wayland display"
fi

# ---- 2. The session imports its display and starts: the unit starts the agent, which connects. ----
as_user env DISPLAY="$display" systemctl --user import-environment DISPLAY
t0=$(now)
sc start "$name.target"
if wait_for 10 pid_other_than 0 && wait_for 15 more_connects 0; then
    t1=$(started_at) t2=$(connected_at 1)
    row "session start -> agent started by the unit" "$(secs "$t0" "$t1")" yes
    row "agent start -> connected" "$(secs "$t1" "$t2")" yes
else
    row "session start -> agent connected" "not within 15 s" NO
    fail "the session did not start a connected agent"
fi

# ---- 3. The agent crashes (SEGV, then KILL) while a threat is on screen: restarted, connected, and
# the threat, undecided, on screen again. ----
for signal in SEGV KILL; do
    threat=$home/Downloads/eicar-$signal.com
    shown=$(boxes)
    ctl daemon emit signal_showAuthDialog EICAR-Test-File "" "$threat" true > /dev/null
    wait_for 15 more_boxes "$shown" || fail "the threat's box did not appear"
    pid=$(prop MainPID) seen=$(connects) shown=$(boxes)
    tk=$(now)
    kill -"$signal" "$pid"
    if wait_for 10 pid_other_than "$pid"; then
        t3=$(started_at)
        below "$tk" "$t3" 4 && ok=yes || { ok=NO; fail "kill -$signal: restarted after more than 4 s"; }
        row "threat on screen, kill -$signal -> new agent" "$(secs "$tk" "$t3")" $ok
        if wait_for 15 more_connects "$seen"; then
            t4=$(connected_at $((seen + 1)))
            below "$t3" "$t4" 6 && ok=yes || { ok=NO; fail "kill -$signal: connected after more than 6 s"; }
            row "  new agent -> connected" "$(secs "$t3" "$t4")" $ok
        else
            row "  new agent -> connected" "not within 15 s" NO
            fail "kill -$signal: the new agent did not connect"
        fi
        if wait_for 15 more_boxes "$shown"; then
            row "  crash -> the threat on screen again" "$(secs "$tk" "$(box_at $((shown + 1)))")" yes
        else
            row "  crash -> the threat on screen again" "not within 15 s" NO
            fail "kill -$signal: the threat did not come back"
        fi
    else
        row "threat on screen, kill -$signal -> new agent" "none within 10 s" NO
        fail "kill -$signal: the agent was not restarted"
    fi
done

# ---- 4. TERM ends the agent for good; a manual start brings it back; the session's end stops it. ----
pid=$(prop MainPID)
kill -TERM "$pid"
wait_for 10 agent_is inactive || fail "kill -TERM: the agent did not stop"
if stays_down 5; then
    row "kill -TERM -> not restarted" "none in 5 s (RestartSec=3)" yes
else
    row "kill -TERM -> not restarted" "restarted" NO
    fail "kill -TERM: the agent was restarted"
fi
sc start vorn-virus-agent.service
wait_for 10 agent_is active || fail "a manual start did not start the agent"
ts=$(now)
sc stop "$name.target"
if wait_for 10 agent_is inactive; then
    row "session stopped -> agent stopped" "$(secs "$ts" "$(now)")" yes
else
    row "session stopped -> agent stopped" "still $(prop ActiveState)" NO
    fail "stopping the session did not stop the agent"
fi

# ---- 5. A crash loop gives up: five starts in five minutes, the session's own included. ----
sc reset-failed vorn-virus-agent.service 2> /dev/null
sc start "$name.target"
starts=0 pid=0 said=
next_start() { pid_other_than "$1" || agent_is failed; }
while wait_for 10 next_start "$pid" && ! agent_is failed; do
    pid=$(prop MainPID)
    starts=$((starts + 1))
    kill -KILL "$pid"
done
# Given up: failed, no restart after RestartSec, and a manual start is refused until reset-failed.
# systemd 252 keeps the result of the last crash (signal), not start-limit-hit.
result=$(prop Result)
if [ "$starts" = 5 ] && agent_is failed && stays_down 5 && ! said=$(sc start vorn-virus-agent.service 2>&1); then
    row "crash loop -> gives up, a start is refused" "after $starts starts (Result=$result)" yes
else
    row "crash loop -> gives up, a start is refused" "after $starts starts: $(prop ActiveState)" NO
    fail "the crash loop did not give up after five starts"
fi
echo "   a start then says: $(echo "$said" | head -n 1)"
sc reset-failed vorn-virus-agent.service
sc start vorn-virus-agent.service
if wait_for 10 agent_is active; then
    row "reset-failed, start -> agent runs again" "$(prop ActiveState)" yes
else
    row "reset-failed, start -> agent runs again" "$(prop ActiveState)" NO
    fail "after reset-failed the agent did not start"
fi

# ---- 6. One agent per login: the autostart entry is hidden from systemd's generator and GNOME. ----
# The generator, run as the manager runs it, on the installed entry and on a copy without the key
# (which it must turn into a unit, or the first run proves nothing).
generate() {
    rm -rf "$out/gen" && mkdir -p "$out/gen/xdg/autostart" && chmod -R a+rwX "$out/gen"
    cp "$entry" "$out/gen/xdg/autostart/"
    [ "$1" = without-key ] && sed -i '/^X-systemd-skip=/d' "$out/gen/xdg/autostart/vorn-virus-agent.desktop"
    as_user env XDG_CONFIG_DIRS="$out/gen/xdg" XDG_CONFIG_HOME="$out/gen/none" \
        /usr/lib/systemd/user-generators/systemd-xdg-autostart-generator "$out/gen" "$out/gen" "$out/gen"
    find "$out/gen" -name 'app-vorn*' -type f | wc -l
}
with_key=$(generate with-key) without_key=$(generate without-key)
agents=$(pgrep -u "$uid" -c -f '^/usr/bin/vorn-virus-agent( |$)')
if [ "$with_key" = 0 ] && [ "$without_key" = 1 ] && [ "$agents" = 1 ]; then
    row "systemd's autostart generator skips the entry" "no unit ($without_key without the key)" yes
else
    row "systemd's autostart generator skips the entry" "$with_key unit(s), $without_key without the key" NO
    fail "systemd's autostart generator would start a second agent"
fi
if grep -qx 'X-GNOME-HiddenUnderSystemd=true' "$entry"; then
    row "GNOME's session manager skips the entry" "X-GNOME-HiddenUnderSystemd" yes
else
    row "GNOME's session manager skips the entry" "no X-GNOME-HiddenUnderSystemd" NO
    fail "GNOME's session manager would start a second agent"
fi
row "agents running in the session" "$agents" "$([ "$agents" = 1 ] && echo yes || echo NO)"
slice=$(prop Slice)
row "the unit's slice" "$slice" "$([ "$slice" = background.slice ] && echo yes || echo NO)"
[ "$slice" = background.slice ] || fail "the agent runs in $slice"

# ---- 7. The hardening in force, and what systemd-analyze makes of it. ----
pid=$(prop MainPID)
nnp=$(awk '/^NoNewPrivs:/ { print $2 }' "/proc/$pid/status") seccomp=$(awk '/^Seccomp:/ { print $2 }' "/proc/$pid/status")
row "agent: no new privileges, seccomp filter" "NoNewPrivs $nnp, Seccomp $seccomp" "$([ "$nnp" = 1 ] && [ "$seccomp" = 2 ] && echo yes || echo NO)"
[ "$nnp" = 1 ] && [ "$seccomp" = 2 ] || fail "the agent runs without its sandbox"
as_user systemd-analyze security --user --no-pager vorn-virus-agent.service > "$out/security.txt" 2>&1
exposure=$(sed -n 's/.*Overall exposure level for [^:]*: \([0-9.]*\) \(.*\)/\1 \2/p' "$out/security.txt")
row "exposure (systemd-analyze security --user)" "${exposure:-none}" "$([ -n "$exposure" ] && echo yes || echo NO)"
[ -n "$exposure" ] || { cat "$out/security.txt" >&2; fail "systemd-analyze security said nothing"; }
[ "${VORN_SESSION_VERBOSE:-0}" = 1 ] && cat "$out/security.txt"

echo
if [ $status -eq 0 ]; then echo "session-check: every row holds"; else show_logs 60; echo "session-check: FAILED"; fi
exit $status
