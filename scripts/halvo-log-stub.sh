#!/bin/bash
# Builds a stand-in for the platform package that provides libhalvo_log.so.0:
#   scripts/halvo-log-stub.sh PACKAGES-DIR OUT-DEB
# The agent's package depends on libhalvo-log0 by name, and no machine outside the platform has
# it. The stand-in package puts a link where the platform's library would be
# (/usr/lib/<triplet>/libhalvo_log.so.0) to the recording stand-in that the devtools package in
# PACKAGES-DIR keeps in its private folder, and depends on that package. Only for throw-away
# machines (the session and install checks): on a machine of the platform it would shadow the
# security centre's own event log.
set -eu
[ $# -eq 2 ] || { sed -n '2,3p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2; }
packages=$1 out=$2
devtools=$(ls "$packages"/vorn-virus-agent-devtools_*.deb 2> /dev/null | head -n 1)
[ -n "$devtools" ] || { echo "halvo-log-stub: no vorn-virus-agent-devtools package in $packages" >&2; exit 1; }
lib=$(dpkg-deb -c "$devtools" | awk '{print $6}' | grep '/libhalvo_log\.so\.0$' | sed 's|^\./||')
[ -n "$lib" ] || { echo "halvo-log-stub: $(basename "$devtools") has no stand-in event log" >&2; exit 1; }
# The stand-in's folder is a child of the loader's folder: the link goes one level up from it.
private=$(dirname "$lib") libdir=$(dirname "$(dirname "$lib")")

work=$(mktemp -d "${TMPDIR:-/tmp}/vorn-halvo-stub.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/DEBIAN" "$work/$libdir"
ln -s "$(basename "$private")/libhalvo_log.so.0" "$work/$libdir/libhalvo_log.so.0"
# The devtools package's own architecture, so the stand-in installs wherever that package does.
cat > "$work/DEBIAN/control" << EOF
Package: libhalvo-log0
Version: 0~standin
Architecture: $(dpkg-deb -f "$devtools" Architecture)
Maintainer: Vorn agent team <security@tarsel.com>
Depends: vorn-virus-agent-devtools
Description: stand-in for the platform's security event log
 The recording stand-in of the devtools package, where the platform's library would be.
EOF
dpkg-deb --root-owner-group --build "$work" "$out" > /dev/null
