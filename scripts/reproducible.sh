#!/bin/bash
# Builds the Debian packages twice from the committed tree, in two folders of different depth and at
# two times, and compares them byte for byte. When they differ, diffoscope says where.
#   scripts/reproducible.sh        (about three minutes on two cores; not run in CI)
# The two builds and the reports are kept in build-reproducible/.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
out=$top/build-reproducible
"$top/scripts/deps.sh" package reproducible
rm -rf "$out"
mkdir -p "$out/first" "$out/second/a/much/deeper/folder"
echo "== first build"
TMPDIR=$out/first VORN_BUILD_DIR=$out/first "$top/scripts/package.sh" > "$out/first.log" 2>&1 ||
    { tail -n 20 "$out/first.log"; exit 1; }
echo "== second build, elsewhere and later"
TMPDIR=$out/second/a/much/deeper/folder VORN_BUILD_DIR=$out/second "$top/scripts/package.sh" > "$out/second.log" 2>&1 ||
    { tail -n 20 "$out/second.log"; exit 1; }
status=0
for deb in "$out"/first/packages/*.deb; do
    name=$(basename "$deb")
    if cmp -s "$deb" "$out/second/packages/$name"; then
        echo "identical: $name ($(sha256sum < "$deb" | cut -c1-16))"
    else
        echo "DIFFERENT: $name (diffoscope's report: $out/$name.diff)"
        diffoscope --text "$out/$name.diff" "$deb" "$out/second/packages/$name" > /dev/null 2>&1 || true
        head -n 60 "$out/$name.diff"
        status=1
    fi
done
[ $status -eq 0 ] && echo "reproducible: both builds gave the same packages"
exit $status
