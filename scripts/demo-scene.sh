#!/bin/bash
# The demo's scene, run on a private bus by demo.sh. Prints a transcript: what the daemon announced,
# each box as the user sees it, the answers, the daemon's calls and replies, and the security events.
set -u
build=${VORN_BUILD_DIR:?}
ctl="$build/standins/vorn-standin-ctl"
. "$(dirname "$0")/common.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/vorn-demo.XXXXXX")
on_exit rm -rf "$work"
export HALVO_LOG_FILE=$work/events.jsonl
# A language the machine has generated no locale for (a fresh install has only C.UTF-8) is taken
# from the locales compiled into the build tree, so LC_ALL=zh_CN.UTF-8 plays the scene in Chinese
# on any machine; a locale the machine has is used as it is.
if [ -z "${LOCPATH:-}" ] && [ -n "$(locale 2>&1 > /dev/null)" ] && [ -d "$build/locale" ]; then
    export LOCPATH=$build/locale
fi
# In a locale that is not UTF-8 (the bare C of a container or chroot) Qt 6 warns on standard error
# and switches to C.UTF-8, where Qt 5 switches silently: the scene starts in C.UTF-8, so that both
# print the same transcript.
if [ "$(locale charmap 2> /dev/null)" != UTF-8 ]; then
    export LC_ALL=C.UTF-8
fi

say() { printf '\n== %s\n' "$*"; }
fail() { transcript; printf '\nDEMO FAILED: %s\n' "$*"; exit 1; }
# A text as the agent shows it: the same domain, looked up where the agent looks.
t() { TEXTDOMAINDIR=/usr/share/locale gettext -d vorn-defender -- "$1"; }
state_has() { "$ctl" daemon state | grep -q "$1"; }
# A box with this line has been printed whole: its buttons come last.
box_shown() { awk -v text="$1" 'index($0, text) { seen = 1 } seen && /riskbox:   [[(]/ { found = 1; exit } END { exit !found }' "$work/riskbox.out"; }
# At least N lines of the event log have this text.
events_have() { [ "$(grep -cF "$2" "$HALVO_LOG_FILE")" -ge "$1" ]; }

# The transcript. Every source stamps its lines with the system-wide monotonic clock: the stand-ins
# themselves, the event log in a field of its own, the agent's lines as they are read. After each
# step the new lines of all sources are printed in the order of their stamps, so they read in the
# order things happened, whichever source was read first. Each step waits for the last line it
# makes, so that the next step's lines are all its own.
touch "$work/daemon.out" "$work/riskbox.out" "$work/agent.out" "$HALVO_LOG_FILE"
declare -A printed=()
transcript() {
    local source lines
    : > "$work/step"
    for source in "$work/daemon.out" "$work/riskbox.out" "$work/agent.out" "$HALVO_LOG_FILE"; do
        lines=$(wc -l < "$source")
        tail -n +$((${printed[$source]:-0} + 1)) "$source" | head -n $((lines - ${printed[$source]:-0})) >> "$work/step"
        printed[$source]=$lines
    done
    sed -E 's/^\{"entry":"[a-z_0-9]+",("level":(-?[0-9]+),)?"type":[0-9]+,"module":"([^"]*)","operation":"(.*)","result":"(.*)","monotonic":([0-9.]+)\}$/[\6] event  [\3, level \2] \4 -- \5/' "$work/step" |
        sort -s -n -k1.2 | sed -E 's/^\[[0-9.]+\] //'
}

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
"$build/standins/vorn-standin-daemon" --timestamps > "$work/daemon.out" 2>&1 &
"$build/standins/vorn-standin-riskbox" --timestamps "${riskbox_args[@]}" > "$work/riskbox.out" 2>&1 &
wait_for 10 "$ctl" daemon state || fail "the stand-in daemon did not start"
wait_for 10 "$ctl" riskbox boxes || fail "the stand-in risk-box service did not start"

say "Starting vorn-virus-agent (it waits five seconds before it connects)"
"$build/app/vorn-virus-agent" 2>&1 |
    perl -MTime::HiRes=clock_gettime,CLOCK_MONOTONIC -ne '$| = 1; printf "[%.6f] agent: %s", clock_gettime(CLOCK_MONOTONIC), $_' \
        > "$work/agent.out" 2>&1 &
for s in 5 4 3 2 1; do printf '   %s...\n' "$s"; sleep 1; done
wait_for 30 grep -q "all signal have been connected" "$HALVO_LOG_FILE" || fail "the agent did not connect"
wait_for 10 grep -q "threat journal: " "$work/agent.out" || fail "the agent did not say where it keeps threats"
wait_for 10 grep -q "reply get_scanMode" "$work/daemon.out" || fail "the agent did not wake the daemon"
transcript

say "1. The daemon reports a threat; the user presses \"Clear Now\""
"$ctl" daemon emit signal_showAuthDialog EICAR-Test-File "" /home/demo/Downloads/eicar.com true
wait_for 60 state_has '"path":"/home/demo/Downloads/eicar.com"' || fail "the threat was not quarantined"
wait_for 10 box_shown "$(t "The virus has been cleared and backed up to the quarantine area")" || fail "the cleared notice did not appear"
transcript

say "2. The daemon reports a file it cleared; the user presses Trust, then Confirm"
"$ctl" daemon emit signal_sysPop /home/demo/setup-old.exe
wait_for 60 state_has '"trustFiles":\[[^]]*"/home/demo/setup-old.exe"' || fail "the file did not reach the trust zone"
wait_for 10 sh -c "! '$ctl' daemon state | grep -q '\"path\":\"/home/demo/setup-old.exe\"'" ||
    fail "the file was not restored from quarantine"
transcript

say "3. The daemon reports another threat; the user presses Trust"
"$ctl" daemon emit signal_showAuthDialog Tool.KeyGen "" /home/demo/tools/keygen.exe false
wait_for 60 state_has '"/home/demo/tools/keygen.exe"' || fail "the file did not reach the trust zone"
wait_for 10 box_shown "$(t "Moved to trust zone")" || fail "the trusted notice did not appear"
# After the notice, the trust zone's record is written a second time.
wait_for 10 events_have 2 "Add file /home/demo/tools/keygen.exe to trust zone" || fail "the second trust record is missing"
transcript

say "Final state of the stand-in daemon"
"$ctl" daemon state
transcript
say "The scene played through: every step happened."
exit 0
