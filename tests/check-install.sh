#!/bin/bash
# Installs the build into a staging folder (DESTDIR) and checks what an integrator gets: every file
# where a session and the agent find it, and nothing else.
#   check-install.sh BUILD-DIR
set -eu
build=$1
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
DESTDIR=$stage cmake --install "$build" > /dev/null
status=0
# The /usr prefix's configuration goes to /etc, where sessions read autostart entries, and an
# /opt/NAME prefix's to /etc/opt/NAME, as GNUInstallDirs maps them; any other prefix keeps it below
# itself, where a session reads it only through XDG_CONFIG_DIRS.
case "$prefix" in
    /usr) etc=/etc ;;
    /opt/*) etc=/etc$prefix ;;
    *) etc=$prefix/etc ;;
esac
expected=("$etc/xdg/autostart/vorn-virus-agent.desktop" "$prefix/bin/vorn-virus-agent"
    "$prefix/share/locale/zh_CN/LC_MESSAGES/vorn-defender.mo" "$prefix/share/man/man1/vorn-virus-agent.1"
    "$prefix/lib/systemd/user/vorn-virus-agent.service")
installed=$(cd "$stage" && find . ! -type d | sed 's|^\.||' | sort)
missing=$(comm -23 <(printf '%s\n' "${expected[@]}" | sort) <(printf '%s\n' "$installed"))
stray=$(comm -13 <(printf '%s\n' "${expected[@]}" | sort) <(printf '%s\n' "$installed"))
[ -z "$missing" ] || { printf 'missing: %s\n' $missing; status=1; }
[ -z "$stray" ] || { printf 'installed but should not be: %s\n' $stray; status=1; }
echo "prefix $prefix: ${#expected[@]} files expected, $(printf '%s\n' "$installed" | grep -c .) installed"
# systemd accepts the unit without a word, started from the staged agent (the man page is checked
# above; the unit's Documentation= would need man-db to look it up).
unit=$stage/vorn-virus-agent.service
sed "s|^ExecStart=.*/|ExecStart=$stage$prefix/bin/|" "$stage$prefix/lib/systemd/user/vorn-virus-agent.service" > "$unit"
mkdir -m 0700 "$stage/runtime"
said=$(XDG_RUNTIME_DIR=$stage/runtime systemd-analyze --user --man=no verify "$unit" 2>&1) &&
    [ -z "$said" ] || { echo "systemd-analyze verify: $said"; status=1; }
# Where the unit starts the agent, the entry steps aside for systemd's generator and for GNOME alike;
# with a phase key, Debian 12's generator would skip it everywhere.
entry=$(find "$stage" -name vorn-virus-agent.desktop)
[ "$(grep -cxE 'X-systemd-skip=true|X-GNOME-HiddenUnderSystemd=true' "$entry")" = 2 ] && ! grep -q X-GNOME-Autostart-Phase "$entry" ||
    { echo "the autostart entry: not hidden from both autostarts, or a phase key"; status=1; }
[ $status -eq 0 ] && echo "1 passed, 0 failed"
exit $status
