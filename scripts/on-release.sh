#!/bin/bash
# Runs a command in a fresh clone inside a pristine chroot of another Debian release:
#   scripts/on-release.sh RELEASE COMMAND...      e.g. scripts/on-release.sh trixie ./scripts/test.sh
# RELEASE is a codename (trixie, bookworm). COMMAND is a shell command line, run by bash as root in
# a clone of the committed tree (HEAD), so it may set variables and chain commands:
#   scripts/on-release.sh trixie 'VORN_QT=5 ./scripts/test.sh && ./scripts/package.sh'
# The chroot is made with mmdebstrap from the archive this machine already uses (its apt sources),
# minimal (--variant=apt): whatever the command needs, it installs itself (scripts/deps.sh), as a
# newcomer on a new machine would. Everything runs in a mount and process namespace of its own,
# so when the command ends, fails or is interrupted, no mount and no process of it is left; the
# chroot is then removed. The chroot is entered with pivot_root, not chroot: it is the root of that
# namespace, with the machine's own root detached, so the command may make namespaces of its own
# (the demo does, as a normal user), which the kernel refuses in a chroot. What the command writes
# to /out stays: that is the host's build-on-RELEASE/ folder, e.g. for packages:
#   scripts/on-release.sh trixie './scripts/package.sh && cp build/packages/*.deb /out/'
# Exits with the command's status. Needs root (or sudo).
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/scripts/common.sh"
[ $# -ge 2 ] || { sed -n '2,16p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2; }
release=$1
shift
command=$*
if [ "$(id -u)" -ne 0 ]; then
    exec sudo --preserve-env=TMPDIR "$0" "$release" "$@"
fi
"$top/scripts/deps.sh" release

# The machine's own Debian archive and its security archive, as apt knows them.
repo() {
    apt-get indextargets --format '$(LABEL) $(REPO_URI)' 'Created-By: Packages' |
        awk -v label="$1" '$1 == label { print $2; exit }'
}
archive=$(repo Debian)
security=$(repo Debian-Security)
[ -n "$archive" ] || { echo "on-release.sh: apt knows no Debian archive on this machine" >&2; exit 1; }
sources=("deb ${archive%/} $release main" "deb ${archive%/} $release-updates main")
[ -z "$security" ] || sources+=("deb ${security%/} $release-security main")

work=$(mktemp -d "${TMPDIR:-/var/tmp}/vorn-$release.XXXXXX")
root=$work/root
namespace=
cleanup() {
    # unshare holds TERM and INT back while it waits for the namespace's first process, and that
    # process, the PID namespace's init, takes from outside only KILL: ending it ends every process
    # in the namespace, and then unshare.
    if [ -n "$namespace" ]; then
        for init in $(ps -o pid= --ppid "$namespace"); do kill -KILL "$init" 2> /dev/null || true; done
        wait "$namespace" 2> /dev/null || true
    fi
    # The mounts lived in the namespace and ended with it; should one be seen here all the same,
    # the chroot is left alone rather than removed through it.
    if grep -qF " $work/" /proc/self/mountinfo; then
        echo "on-release.sh: something is still mounted under $work; not removed" >&2
        return
    fi
    rm -rf "$work"
}
on_exit cleanup

git clone --quiet --no-hardlinks "$top" "$work/vorn-virus-agent"
out=$top/build-on-$release
mkdir -p "$out"
echo "== $release: a minimal chroot from ${archive%/} (mmdebstrap), then in a fresh clone: $command"
started=$SECONDS
# Enters the chroot in the current directory and runs its arguments there. pivot_root(".", ".")
# stacks the old root on the new one, and detaching the top of that stack leaves the chroot the
# only root of the namespace. It is the machine's perl, loaded before the pivot; what it runs is
# the chroot's.
enter='
    require "syscall.ph";
    my ($here, $detach) = (".", 2);    # MNT_DETACH
    syscall(&SYS_pivot_root, $here, $here) == 0 or die "on-release.sh: pivot_root: $!\n";
    syscall(&SYS_umount2, $here, $detach) == 0 or die "on-release.sh: detaching the old root: $!\n";
    chdir "/" or die "on-release.sh: /: $!\n";
    exec { $ARGV[0] } @ARGV or die "on-release.sh: $ARGV[0]: $!\n";
'
# Inside: a private mount namespace (nothing mounted here is seen outside, and all of it goes with
# the namespace) and a PID namespace whose first process is this shell: when it ends, the kernel
# ends every process left in it. --kill-child ends that shell if unshare itself is stopped.
unshare --mount --pid --fork --kill-child --propagation private -- /bin/bash -euc '
    work=$1 release=$2 command=$3 out=$4 enter=$5
    shift 5
    root=$work/root
    mount -t proc proc /proc
    mmdebstrap --quiet --mode=root --variant=apt --format=directory "$release" "$root" "$@"
    mv "$work/vorn-virus-agent" "$root/root/vorn-virus-agent"
    cp /etc/resolv.conf "$root/etc/resolv.conf"
    # pivot_root takes a mount point: the chroot is bound onto itself, and the rest mounted on that.
    mount --bind "$root" "$root"
    mount --rbind /dev "$root/dev"
    mount -t proc proc "$root/proc"
    mount -t sysfs sysfs "$root/sys"
    mount -t tmpfs tmpfs "$root/tmp"
    # /run as a booted machine has it: only root writes there.
    mount -t tmpfs -o mode=0755 tmpfs "$root/run"
    mkdir "$root/out"
    mount --bind "$out" "$root/out"
    cd "$root"
    exec perl -e "$enter" /usr/bin/env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        TERM="${TERM:-dumb}" DEBIAN_FRONTEND=noninteractive \
        /bin/bash -c "cd /root/vorn-virus-agent && $command"
' on-release "$work" "$release" "$command" "$out" "$enter" "${sources[@]}" &
namespace=$!
status=0
wait "$namespace" || status=$?
namespace=
echo "== $release: exit status $status after $(((SECONDS - started) / 60)) min $(((SECONDS - started) % 60)) s"
exit $status
