#!/bin/bash
# The demo's scene, run on a private bus by demo.sh. Prints a transcript: what the daemon announced,
# each box as the user sees it, the answers, the daemon's calls and replies, and the security events.
set -u
build=${VORN_BUILD_DIR:?}
ctl="$build/standins/vorn-standin-ctl"
work=$(mktemp -d "${TMPDIR:-/tmp}/vorn-demo.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
export HALVO_LOG_FILE=$work/events.jsonl

say() { printf '\n== %s\n' "$*"; }
fail() { printf '\nDEMO FAILED: %s\n' "$*"; exit 1; }
# Waits up to $1 seconds until the command that follows succeeds.
wait_for() {
    local limit=$1 i
    shift
    for ((i = 0; i < limit * 10; i++)); do
        "$@" > /dev/null 2>&1 && return 0
        sleep 0.1
    done
    return 1
}
# A text as the agent shows it: the same domain, looked up where the agent looks.
t() { TEXTDOMAINDIR=/usr/share/locale gettext -d vorn-defender -- "$1"; }
state_has() { "$ctl" daemon state | grep -q "$1"; }
box_shown() { grep -qF "$1" "$work/riskbox.out"; }

# The event log, one readable line per event.
touch "$HALVO_LOG_FILE"
tail -n +1 -F "$HALVO_LOG_FILE" 2> /dev/null |
    sed -u -E 's/^\{"entry":"[a-z_0-9]+",("level":(-?[0-9]+),)?"type":[0-9]+,"module":"([^"]*)","operation":"(.*)","result":"(.*)"\}$/event  [\3, level \2] \4 -- \5/' &

answers=("$(t "Clear Now")" "$(t Trust)" "$(t Confirm)" "$(t Trust)")
riskbox_args=()
if [ -n "${DISPLAY:-}" ]; then
    if [ "${VORN_DEMO_AUTO:-0}" = 1 ]; then
        for a in "${answers[@]}"; do riskbox_args+=(--answer "$a"); done
        riskbox_args+=(--answer-delay 1500)
        mode="windows, answered automatically"
    else
        mode="windows: answer them by clicking"
    fi
else
    riskbox_args=(--headless --answer-delay 700)
    for a in "${answers[@]}"; do riskbox_args+=(--answer "$a"); done
    mode="no display: boxes printed as text and answered automatically"
    export QT_QPA_PLATFORM=offscreen
fi

say "Starting the stand-in daemon and risk-box service on a private bus ($mode)"
"$build/standins/vorn-standin-daemon" &
"$build/standins/vorn-standin-riskbox" "${riskbox_args[@]}" > >(tee "$work/riskbox.out") 2>&1 &
wait_for 10 "$ctl" daemon state || fail "the stand-in daemon did not start"
wait_for 10 "$ctl" riskbox boxes || fail "the stand-in risk-box service did not start"

say "Starting vorn-virus-agent (it waits five seconds before it connects)"
"$build/app/vorn-virus-agent" 2>&1 | sed -u 's/^/agent: /' &
for s in 5 4 3 2 1; do printf '   %s...\n' "$s"; sleep 1; done
wait_for 10 grep -q "all signal have been connected" "$HALVO_LOG_FILE" || fail "the agent did not connect"

say "1. The daemon reports a threat; the user presses \"Clear Now\""
"$ctl" daemon emit signal_showAuthDialog EICAR-Test-File "" /home/demo/Downloads/eicar.com true
wait_for 60 state_has '"path":"/home/demo/Downloads/eicar.com"' || fail "the threat was not quarantined"
wait_for 10 box_shown "$(t "The virus has been cleared and backed up to the quarantine area")" || fail "the cleared notice did not appear"

say "2. The daemon reports a file it cleared; the user presses Trust, then Confirm"
"$ctl" daemon emit signal_sysPop /home/demo/setup-old.exe
wait_for 60 state_has '"trustFiles":\[[^]]*"/home/demo/setup-old.exe"' || fail "the file did not reach the trust zone"
wait_for 10 sh -c "! '$ctl' daemon state | grep -q '\"path\":\"/home/demo/setup-old.exe\"'" ||
    fail "the file was not restored from quarantine"

say "3. The daemon reports another threat; the user presses Trust"
"$ctl" daemon emit signal_showAuthDialog Tool.KeyGen "" /home/demo/tools/keygen.exe false
wait_for 60 state_has '"/home/demo/tools/keygen.exe"' || fail "the file did not reach the trust zone"
wait_for 10 box_shown "$(t "Moved to trust zone")" || fail "the trusted notice did not appear"

sleep 0.5
say "Final state of the stand-in daemon"
"$ctl" daemon state
say "The scene played through: every step happened."
exit 0
