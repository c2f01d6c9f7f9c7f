#!/bin/bash
# End to end, on a private bus and a private X server: the agent's trust-failure box is closed
# from outside, as a person would close it, and the agent then still handles the next threat.
#   check-window-close.sh BUILD-DIR     (run through run-with-bus.sh)
set -u
build=$1
ctl="$build/standins/vorn-standin-ctl"
# shellcheck source=scripts/common.sh
. "$(dirname "$0")/../scripts/common.sh"
work=$(mktemp -d)
on_exit rm -rf "$work"
Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3> "$work/display" 2> /dev/null &
xvfb=$!
stop_xvfb() { kill "$xvfb" 2> /dev/null; wait "$xvfb" 2> /dev/null; }
on_exit stop_xvfb
fail() { echo "FAILED: $*"; echo "0 passed, 1 failed"; exit 1; }
shown() { [ "$("$ctl" riskbox boxes | grep -c '"shown":true')" -ge "$1" ]; }
window() { xdotool search --onlyvisible --pid "$agent" 2> /dev/null | head -n 1 | grep .; }

wait_for 10 test -s "$work/display" || fail "Xvfb did not start"
export DISPLAY=":$(head -n 1 "$work/display")" HALVO_LOG_FILE=$work/events.jsonl
unset QT_QPA_PLATFORM
"$build/standins/vorn-standin-daemon" --quiet &
"$build/standins/vorn-standin-riskbox" --headless --quiet &
wait_for 10 "$ctl" daemon state && wait_for 10 "$ctl" riskbox boxes || fail "no stand-ins"
"$build/app/vorn-virus-agent" > "$work/agent.out" 2>&1 &
agent=$!
wait_for 30 grep -q "all signal have been connected" "$HALVO_LOG_FILE" || fail "the agent did not connect"

"$ctl" daemon force add_trustFile 1
"$ctl" daemon emit signal_showAuthDialog EICAR "" /home/u/first.exe false
wait_for 30 shown 1 || fail "no threat box"
"$ctl" riskbox press 1 Trust
wait_for 10 window || fail "the trust-failure box did not appear"
xdotool key --window "$(window)" Escape 2> /dev/null # the key-up may reach a window already closed
wait_for 10 sh -c "! xdotool search --onlyvisible --pid $agent" || fail "the box did not close"
kill -0 "$agent" 2> /dev/null || fail "closing the box ended the agent"

"$ctl" daemon reset
"$ctl" daemon emit signal_showAuthDialog EICAR "" /home/u/second.exe false
wait_for 30 shown 3 || fail "the next threat was not handled after the box was closed"
echo "1 passed, 0 failed: the agent outlived its closed window and handled the next threat"
