#!/bin/bash
# Installs the build into a staging folder and checks what an integrator gets.
#   check-install.sh BUILD-DIR
set -eu
build=$1
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
cmake --install "$build" --prefix "$stage/usr" > /dev/null
status=0
expect() {
    if [ -e "$stage/$1" ]; then echo "installed: /$1"; else echo "missing: /$1"; status=1; fi
}
refuse() {
    if [ -e "$stage/$1" ]; then echo "installed but should not be: /$1"; status=1; fi
}
expect usr/bin/vorn-virus-agent
# CMake maps the /usr prefix's etc to /etc; a staging prefix keeps it below itself.
if [ -e "$stage/usr/etc/xdg/autostart/vorn-virus-agent.desktop" ]; then
    expect usr/etc/xdg/autostart/vorn-virus-agent.desktop
else
    expect etc/xdg/autostart/vorn-virus-agent.desktop
fi
expect usr/share/locale/zh_CN/LC_MESSAGES/vorn-defender.mo
refuse usr/bin/vorn-standin-daemon
refuse usr/bin/vorn-standin-riskbox
refuse usr/bin/vorn-dialog-preview
if grep -rq 'X-GNOME-Autostart-Phase' "$stage"; then echo "an autostart phase key"; status=1; fi
[ $status -eq 0 ] && echo "1 passed, 0 failed"
exit $status
