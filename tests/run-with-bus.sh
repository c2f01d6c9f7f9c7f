#!/bin/bash
# Runs one command on a private D-Bus bus that stands in for the system bus:
#   run-with-bus.sh COMMAND [ARG...]
# The bus listens in a fresh directory and is exported as DBUS_SYSTEM_BUS_ADDRESS. When the
# command ends (passing, failing, crashing or interrupted), the bus and every process the command
# left behind are stopped and the directory is removed. The exit status is the command's.
set -u
here=$(cd "$(dirname "$0")" && pwd)
config=${VORN_BUS_CONFIG:-$here/private-bus.conf}
dir=$(mktemp -d "${TMPDIR:-/tmp}/vorn-bus.XXXXXX")
bus_pid= job_pid=

cleanup() {
    trap - EXIT INT TERM HUP
    if [ -n "$job_pid" ]; then
        kill -TERM -- "-$job_pid" 2>/dev/null
        for _ in 1 2 3 4 5 6 7 8 9 10; do kill -0 -- "-$job_pid" 2>/dev/null && sleep 0.1; done
        kill -KILL -- "-$job_pid" 2>/dev/null
    fi
    [ -n "$bus_pid" ] && kill -TERM "$bus_pid" 2>/dev/null && wait "$bus_pid" 2>/dev/null
    rm -rf "$dir"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

# The bus dies with this script even if the script is killed outright (pdeathsig).
setpriv --pdeathsig TERM -- dbus-daemon --nofork --config-file="$config" --address="unix:dir=$dir" \
    --print-address=3 3>"$dir/address" 2>"$dir/bus.log" &
bus_pid=$!
for _ in $(seq 1 100); do [ -s "$dir/address" ] || sleep 0.05; done
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

# The command runs in a process group of its own, so whatever it starts can be stopped with it.
set -m
"$@" &
job_pid=$!
wait "$job_pid"
