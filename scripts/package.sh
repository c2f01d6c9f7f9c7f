#!/bin/bash
# Builds the Debian packages from the committed tree, checks them with lintian and lists what is in
# them:
#   scripts/package.sh
# The packages land in build/packages/ with the .changes and .buildinfo files, the build log
# (build.log) and lintian's report (lintian.log). HALVO_LOG_PACKAGE names the platform package that
# provides libhalvo_log.so.0 when it is not libhalvo-log0.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
out=${VORN_BUILD_DIR:-$top/build}/packages
"$top/scripts/deps.sh" package

work=$(mktemp -d "${TMPDIR:-/tmp}/vorn-package.XXXXXX")
trap 'rm -rf "$work"' EXIT
# The committed tree only, so nothing built or left by hand slips into the package.
mkdir "$work/vorn-virus-agent"
git -C "$top" archive HEAD | tar -x -C "$work/vorn-virus-agent"
rm -rf "$out"
mkdir -p "$out"
status=0
(cd "$work/vorn-virus-agent" && dpkg-buildpackage -us -uc -b) > "$out/build.log" 2>&1 || status=$?
cp "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo "$out/" 2>/dev/null || true
if [ $status -ne 0 ]; then
    tail -40 "$out/build.log"
    echo "package.sh: dpkg-buildpackage failed; the whole log is $out/build.log" >&2
    exit 1
fi

for deb in "$out"/*.deb; do
    echo "== $(basename "$deb")"
    dpkg-deb -c "$deb" | awk '{print "   " $6 ($7 ? " " $7 " " $8 : "")}'
done
# Every tag lintian gives, pedantic ones included; README.md says which remain and why.
lintian --pedantic --info "$out"/*.changes > "$out/lintian.log" 2>&1 || true
echo "== lintian --pedantic: $(grep -c '^[EWIP]:' "$out/lintian.log") tags (see $out/lintian.log)"
grep '^[EWIP]:' "$out/lintian.log" | sed 's/^/   /' || true
echo "Packages are in $out"
