#!/bin/bash
# Installs the build into a staging folder and checks what an integrator gets.
#   check-install.sh BUILD-DIR
set -eu
build=$1
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
cmake --install "$build" --prefix "$stage/usr" > /dev/null
status=0
expect() { [ -e "$stage/$1" ] && echo "installed: /$1" || { echo "missing: /$1"; status=1; }; }
refuse() { [ ! -e "$stage/$1" ] || { echo "installed but should not be: /$1"; status=1; }; }
expect usr/bin/vorn-virus-agent
# CMake maps the /usr prefix's etc to /etc; a staging prefix keeps it below itself.
expect "$([ -e "$stage/usr/etc" ] && echo usr/)etc/xdg/autostart/vorn-virus-agent.desktop"
expect usr/share/locale/zh_CN/LC_MESSAGES/vorn-defender.mo
expect usr/share/man/man1/vorn-virus-agent.1
expect usr/lib/systemd/user/vorn-virus-agent.service
# systemd accepts the unit without a word, started from the staged agent (the man page is checked
# above; the unit's Documentation= would need man-db to look it up).
unit=$stage/vorn-virus-agent.service
sed "s|^ExecStart=.*/|ExecStart=$stage/usr/bin/|" "$stage/usr/lib/systemd/user/vorn-virus-agent.service" > "$unit"
mkdir -m 0700 "$stage/runtime"
said=$(XDG_RUNTIME_DIR=$stage/runtime systemd-analyze --user --man=no verify "$unit" 2>&1) &&
    [ -z "$said" ] || { echo "systemd-analyze verify: $said"; status=1; }
refuse usr/bin/vorn-standin-daemon
refuse usr/bin/vorn-standin-riskbox
refuse usr/bin/vorn-dialog-preview
# The event log is the platform's: no copy of it, stand-in or not, lands anywhere.
[ -z "$(find "$stage" -name 'libhalvo_log*')" ] || { echo "an event-log library was installed"; status=1; }
! grep -rq 'X-GNOME-Autostart-Phase' "$stage" || { echo "an autostart phase key"; status=1; }
[ $status -eq 0 ] && echo "1 passed, 0 failed"
exit $status
