#!/bin/bash
# Installs the Debian packages the project needs, only those that are missing, on Debian 12
# (bookworm) and Debian 13 (trixie) alike.
#   deps.sh [build|qt5|package|screenshots|reproducible|fuzz|bench|release|format]...   (build is always included)
#     build         compilers, CMake, Qt 6, D-Bus, gettext, the locale sources, the tests' X tools
#     qt5           Qt 5.15, for the Qt 5 builds (VORN_QT=5)
#     package       what dpkg-buildpackage and lintian need
#     reproducible  the same, and diffoscope
#     fuzz          clang with libFuzzer and the sanitizer runtimes of the release's default clang
#     bench         Python and both Qts, for bench/run.sh
#     screenshots   a CJK font
#     release       mmdebstrap, for scripts/on-release.sh
#     format        clang-format, for scripts/check-format.sh
# Packages are named as every release names them. Where a name carries a version (libFuzzer, the
# sanitizer runtimes), the version is read from the release's own clang package, not from a list
# here that would age with the next release.
set -eu
# The CJK locale sources (locales) are what localedef compiles the build tree's zh_CN.UTF-8 from;
# installing them compiles nothing into the machine's own locales.
packages=(build-essential cmake pkg-config git perl qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins dbus gettext
          locales util-linux desktop-file-utils systemd xvfb xauth xdotool)
fuzz=0
for extra in "$@"; do
    case "$extra" in
        build | qt6) ;;
        qt5) packages+=(qtbase5-dev qtbase5-dev-tools) ;;
        package) packages+=(debhelper dpkg-dev lintian) ;;
        reproducible) packages+=(debhelper dpkg-dev lintian diffoscope-minimal) ;;
        fuzz) packages+=(clang) fuzz=1 ;;
        bench) packages+=(python3 qtbase5-dev qtbase5-dev-tools) ;;
        screenshots) packages+=(fonts-noto-cjk) ;;
        release) packages+=(mmdebstrap) ;;
        format) packages+=(clang-format) ;;
        *) echo "deps.sh: unknown group '$extra'" >&2; exit 2 ;;
    esac
done

sudo=
[ "$(id -u)" -eq 0 ] || sudo=sudo
updated=0
update() {
    [ $updated = 1 ] && return
    $sudo apt-get update -qq
    updated=1
}
installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }

# libFuzzer and the sanitizer runtimes come in packages named after clang's major version; the
# version is the one the release's "clang" depends on (14 in Debian 12, 19 in Debian 13).
if [ $fuzz = 1 ]; then
    apt-cache show clang > /dev/null 2>&1 || update
    clang_major=$(apt-cache depends clang | sed -n 's/^ *Depends: clang-\([0-9][0-9]*\)$/\1/p' | head -n 1)
    [ -n "$clang_major" ] || { echo "deps.sh: the release's clang names no clang-N package" >&2; exit 1; }
    packages+=("libfuzzer-$clang_major-dev" "libclang-rt-$clang_major-dev")
fi

missing=()
for package in "${packages[@]}"; do
    installed "$package" || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
update
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
