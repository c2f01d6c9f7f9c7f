#!/bin/bash
# Installs the Debian 12 packages the project needs, only those that are missing.
#   deps.sh [build|package|screenshots|reproducible|fuzz|qt6]...   (build is always included)
set -eu
packages=(cmake g++ make pkg-config git qtbase5-dev qtbase5-dev-tools dbus gettext util-linux desktop-file-utils systemd
          xvfb xauth xdotool)
for extra in "$@"; do
    case "$extra" in
        build) ;;
        package) packages+=(debhelper dpkg-dev lintian) ;;
        screenshots) packages+=(fonts-noto-cjk) ;;
        reproducible) packages+=(debhelper dpkg-dev lintian diffoscope-minimal) ;;
        fuzz) packages+=(clang libfuzzer-14-dev) ;;
        qt6) packages+=(qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins) ;;
        *) echo "deps.sh: unknown group '$extra'" >&2; exit 2 ;;
    esac
done

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=
[ "$(id -u)" -eq 0 ] || sudo=sudo
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
