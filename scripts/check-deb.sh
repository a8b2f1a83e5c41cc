#!/usr/bin/env bash
# Checks that the Debian package installs on a bare Debian 12 system with
# "apt-get install ./tarnwell_*.deb" alone, and that tarnwell-cli runs there:
#
#   scripts/check-deb.sh [build folder]      (as root; default: build)
#
# Makes the package in the release build folder (cpack), a minimal Debian 12
# root with debootstrap in a temporary folder (its downloads are kept in
# .cache/debootstrap for the next run), installs the package there from the
# Debian mirror the machine uses, and runs "tarnwell-cli --version" and
# "tarnwell-cli init-ci --help" inside it. Needs network access to a Debian
# mirror.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$here/build}
cache="$here/.cache/debootstrap"
log() { printf 'check-deb: %s\n' "$*" >&2; }

[ "$(id -u)" -eq 0 ] || { log "needs root (debootstrap and chroot)"; exit 2; }
[ -x "$build/bin/tarnwell-cli" ] || { log "no release build in $build: run 'make build' first"; exit 2; }

log "making the package in $build"
(cd "$build" && cpack -G DEB >/dev/null)
deb=$(ls -t "$build"/tarnwell_*.deb | head -n1)
log "package: $deb"
dpkg-deb -f "$deb" Depends >&2

mirror=$(awk '/^URIs:/ { print $2; exit }' /etc/apt/sources.list.d/debian.sources 2>/dev/null || true)
[ -n "$mirror" ] || mirror=http://deb.debian.org/debian
root=$(mktemp -d "${TMPDIR:-/tmp}/tarnwell-debroot.XXXXXX")

# The mount points below the root, deepest first (as /proc/self/mountinfo
# writes them: a blank is "\040").
mounts_below_root() {
    awk -v root="$root" '$5 == root || index($5, root "/") == 1 { print $5 }' /proc/self/mountinfo | sort -r
}

# The root goes only when nothing is mounted below it any more: removing it
# with the host's /dev still bound inside would delete the host's device
# nodes. Whatever stays mounted is said, and the root is left in place.
cleanup() {
    local mount
    for mount in $(mounts_below_root); do
        umount "$mount" 2>/dev/null || umount -l "$mount" 2>/dev/null || true
    done
    if [ -n "$(mounts_below_root)" ]; then
        log "still mounted below $root, so it was not removed:"
        mounts_below_root >&2
        log "unmount them, then remove $root"
        return
    fi
    # --one-file-system: a mount that appeared after the check is never entered.
    rm -rf --one-file-system "$root" "$root.log"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

mkdir -p "$cache"
log "a bare Debian 12 root in $root (from $mirror)"
debootstrap --variant=minbase --cache-dir="$cache" bookworm "$root" "$mirror" >"$root.log" 2>&1 ||
    { tail -n 20 "$root.log" >&2; exit 1; }
rm -f "$root.log"
cp "$deb" "$root/tmp/"
mount -t proc proc "$root/proc"
mount --bind /dev "$root/dev"
chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive \
    sh -ec "apt-get update -qq && apt-get install -y -qq /tmp/$(basename "$deb") >/dev/null"
log "installed; running it"
chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root tarnwell-cli --version
chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root tarnwell-cli init-ci --help >/dev/null
log "the package installs and runs on a bare Debian 12"
