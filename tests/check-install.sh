#!/bin/bash
# Installs the build into a staging folder and checks what an integrator gets.
#   check-install.sh BUILD-DIR
set -eu
build=$1
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
cmake --install "$build" --prefix "$stage/usr" > /dev/null
status=0
expect() { for f; do [ -e "$stage/$f" ] && echo "installed: /$f" || { echo "missing: /$f"; status=1; }; done; }
refuse() { for f; do [ ! -e "$stage/$f" ] || { echo "installed but should not be: /$f"; status=1; }; done; }
# CMake maps the /usr prefix's etc to /etc; a staging prefix keeps it below itself.
expect "$([ -e "$stage/usr/etc" ] && echo usr/)etc/xdg/autostart/vorn-virus-agent.desktop"
expect usr/bin/vorn-virus-agent usr/share/locale/zh_CN/LC_MESSAGES/vorn-defender.mo usr/share/man/man1/vorn-virus-agent.1 \
    usr/lib/systemd/user/vorn-virus-agent.service
# systemd accepts the unit without a word, started from the staged agent (the man page is checked
# above; the unit's Documentation= would need man-db to look it up).
unit=$stage/vorn-virus-agent.service
sed "s|^ExecStart=.*/|ExecStart=$stage/usr/bin/|" "$stage/usr/lib/systemd/user/vorn-virus-agent.service" > "$unit"
mkdir -m 0700 "$stage/runtime"
said=$(XDG_RUNTIME_DIR=$stage/runtime systemd-analyze --user --man=no verify "$unit" 2>&1) &&
    [ -z "$said" ] || { echo "systemd-analyze verify: $said"; status=1; }
refuse usr/bin/vorn-standin-daemon usr/bin/vorn-standin-riskbox usr/bin/vorn-dialog-preview
# The event log is the platform's: no copy of it, stand-in or not, lands anywhere.
[ -z "$(find "$stage" -name 'libhalvo_log*')" ] || { echo "an event-log library was installed"; status=1; }
# Where the unit starts the agent, the entry steps aside for systemd's generator and for GNOME alike;
# with a phase key, Debian 12's generator would skip it everywhere.
entry=$(find "$stage" -name vorn-virus-agent.desktop)
[ "$(grep -cxE 'X-systemd-skip=true|X-GNOME-HiddenUnderSystemd=true' "$entry")" = 2 ] && ! grep -q X-GNOME-Autostart-Phase "$entry" ||
    { echo "the autostart entry: not hidden from both autostarts, or a phase key"; status=1; }
[ $status -eq 0 ] && echo "1 passed, 0 failed"
exit $status
