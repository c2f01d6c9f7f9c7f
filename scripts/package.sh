#!/bin/bash
# Builds the Debian packages from the committed tree and lists what is in them:
#   scripts/package.sh        (packages land in build/packages/)
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
out=${VORN_BUILD_DIR:-$top/build}/packages
"$top/scripts/deps.sh" package

work=$(mktemp -d "${TMPDIR:-/tmp}/vorn-package.XXXXXX")
trap 'rm -rf "$work"' EXIT
# The committed tree only, so nothing built or left by hand slips into the package.
mkdir "$work/vorn-virus-agent"
git -C "$top" archive HEAD | tar -x -C "$work/vorn-virus-agent"
(cd "$work/vorn-virus-agent" && dpkg-buildpackage -us -uc -b > "$work/build.log" 2>&1) ||
    { tail -40 "$work/build.log"; echo "package.sh: dpkg-buildpackage failed" >&2; exit 1; }

mkdir -p "$out"
for deb in "$work"/*.deb; do
    cp "$deb" "$out/"
    echo "== $(basename "$deb")"
    dpkg-deb -c "$deb" | awk '{print "   " $6 ($7 ? " " $7 " " $8 : "")}'
done
echo "Packages are in $out"
