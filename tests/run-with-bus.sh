#!/bin/bash
# Runs one command on a private D-Bus bus that stands in for the system bus:
#   run-with-bus.sh COMMAND [ARG...]
# The bus listens in a fresh directory and is exported as DBUS_SYSTEM_BUS_ADDRESS. When the
# command ends (passing, failing, crashing or interrupted), the bus and every process the command
# left behind are stopped and the directory is removed. The exit status is the command's.
set -u
here=$(cd "$(dirname "$0")" && pwd)
config=${VORN_BUS_CONFIG:-$here/private-bus.conf}
# shellcheck source=scripts/common.sh
. "$here/../scripts/common.sh"
dir=$(mktemp -d "${TMPDIR:-/tmp}/vorn-bus.XXXXXX")
bus_pid= job_pid=

# Stops a process group: asked first, then, after a second, forced.
stop_group() {
    kill -TERM -- "-$1" 2>/dev/null
    for _ in 1 2 3 4 5 6 7 8 9 10; do kill -0 -- "-$1" 2>/dev/null && sleep 0.1; done
    kill -KILL -- "-$1" 2>/dev/null
}
cleanup() {
    [ -n "$job_pid" ] && stop_group "$job_pid"
    [ -n "$bus_pid" ] && kill -TERM "$bus_pid" 2>/dev/null && wait "$bus_pid" 2>/dev/null
    rm -rf "$dir"
    echo done >&"$watcher"
}
on_exit cleanup

# Killed outright, this script runs no trap: CTest's timeout sends SIGKILL to it and everything
# below it. A watcher outside that tree (it is reparented at once) reads a pipe that only this
# script holds open. It learns the command's process group from it, and "done" when the script
# has cleaned up itself; an end of the pipe without "done" means the script was killed, and the
# watcher then stops that group and removes the directory. The bus stops by itself (pdeathsig).
exec {watcher}> >(exec setsid -f bash -c "$(declare -f stop_group)"'
    job=
    while read -r word value; do
        [ "$word" = job ] && job=$value
        [ "$word" = done ] && exit 0
    done
    [ -n "$job" ] && stop_group "$job"
    rm -rf "$1"' watcher "$dir" > /dev/null 2>&1)

# The bus dies with this script even if the script is killed outright (pdeathsig).
setpriv --pdeathsig TERM -- dbus-daemon --nofork --config-file="$config" --address="unix:dir=$dir" \
    --print-address=3 3>"$dir/address" 2>"$dir/bus.log" {watcher}>&- &
bus_pid=$!
for _ in $(seq 1 600); do [ -s "$dir/address" ] && break; sleep 0.05; done
[ -s "$dir/address" ] || { echo "run-with-bus: dbus-daemon did not start:" >&2; cat "$dir/bus.log" >&2; exit 1; }
export DBUS_SYSTEM_BUS_ADDRESS=$(head -n 1 "$dir/address")
# In sanitizer builds: the known, deliberate leaks are suppressed, and undefined behaviour stops
# the program with a stack trace.
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$here/lsan.supp:print_suppressions=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-suppressions=$here/tsan.supp}
# Qt wants a private runtime directory; the bus directory is one.
if [ -z "${XDG_RUNTIME_DIR:-}" ]; then
    chmod 0700 "$dir"
    export XDG_RUNTIME_DIR=$dir
fi

# Threats the agent keeps for later go to a folder of this run, never to the user's own.
export XDG_STATE_HOME=$dir/state
# Temporary files of the command go there too, so they are removed with it even when it is killed.
mkdir "$dir/tmp"
export TMPDIR=$dir/tmp

# The command runs in a process group of its own, so whatever it starts can be stopped with it.
set -m
"$@" {watcher}>&- &
job_pid=$!
echo "job $job_pid" >&"$watcher"
# Run from a terminal, the command gets it, so that an interactive shell (run-with-bus.sh bash) can
# read. CTest passes its terminal as standard input too, but reads standard output through a pipe.
if [ -t 0 ] && [ -t 1 ]; then
    fg %% > /dev/null
else
    wait "$job_pid"
fi
