#!/usr/bin/env bash
# Prepares a Debian 12 machine for building, testing and running the demo.
#
#   1. installs the packages of scripts/packages.txt that are missing (apt);
#   2. fetches, with a private apt state and without touching the system's
#      apt configuration or its installed packages, into .cache/:
#      - the application's own curl (8.14 from bookworm-backports) with its
#        libcurl, into .cache/curl/root;
#      - libssh2 1.11 (Debian trixie's libssh2-1t64), which signs with
#        rsa-sha2 so that RSA keys log in to current OpenSSH servers, into
#        .cache/libssh2/root (it goes beside libcurl in the tools folder);
#      - vsftpd, unpacked only, into .cache/vsftpd/root: the tests' server for
#        FTP with implicit TLS (it would conflict with pure-ftpd as an
#        installed package).
#
# Safe to run again: it does only what is missing.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
cache="$here/.cache"
curl_root="$cache/curl/root"
libssh2_root="$cache/libssh2/root"
vsftpd_root="$cache/vsftpd/root"
want_curl_version=8.14
want_libssh2_version=1.11

log() { printf 'setup: %s\n' "$*" >&2; }

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# 1. Packages
mapfile -t packages < <(sed -e 's/#.*//' -e 's/[[:space:]]//g' "$here/scripts/packages.txt" | grep -v '^$')
missing=()
for p in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    log "installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    as_root apt-get update -qq
    as_root apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# 2. Packages of other suites, unpacked into .cache.
curl_ok() {
    [ -x "$curl_root/usr/bin/curl" ] &&
        LD_LIBRARY_PATH="$libssh2_root/usr/lib/x86_64-linux-gnu:$curl_root/usr/lib/x86_64-linux-gnu" \
            "$curl_root/usr/bin/curl" --version 2>/dev/null | head -n1 |
        grep -q "^curl $want_curl_version.* libssh2/$want_libssh2_version"
}
vsftpd_ok() { [ -x "$vsftpd_root/usr/sbin/vsftpd" ]; }
if curl_ok && vsftpd_ok; then
    exit 0
fi

# The machine's own Debian entry, with the suite changed.
debian_uri=""
signed_by=/usr/share/keyrings/debian-archive-keyring.gpg
if [ -f /etc/apt/sources.list.d/debian.sources ]; then
    debian_uri=$(awk '
        /^URIs:/ { uri = $2 }
        /^Suites:/ { for (i = 2; i <= NF; i++) if ($i == "bookworm") found = uri }
        /^$/ { uri = "" }
        END { print found }' /etc/apt/sources.list.d/debian.sources)
fi
if [ -z "$debian_uri" ] && [ -f /etc/apt/sources.list ]; then
    debian_uri=$(awk '$1 == "deb" && $0 ~ / bookworm / {
        for (i = 2; i <= NF; i++) if ($i ~ /^[a-z]+:\/\//) { print $i; exit } }' /etc/apt/sources.list)
fi
[ -n "$debian_uri" ] || debian_uri=http://deb.debian.org/debian

# fetch SUITE DESTINATION PACKAGE... : downloads the packages of the suite with
# a private apt state and unpacks them into the destination.
fetch() {
    local suite=$1 destination=$2 state="$cache/apt-$1"
    shift 2
    log "fetching $* from $debian_uri $suite"
    rm -rf "$state" "$destination"
    mkdir -p "$state/lists/partial" "$state/archives/partial" "$state/etc" "$destination"
    echo "deb [signed-by=$signed_by] $debian_uri $suite main" >"$state/etc/sources.list"
    touch "$state/status"
    local apt_private=(
        -o "Dir::Etc::SourceList=$state/etc/sources.list"
        -o "Dir::Etc::SourceParts=/dev/null"
        -o "Dir::State=$state"
        -o "Dir::State::Lists=$state/lists"
        -o "Dir::State::status=$state/status"
        -o "Dir::Cache=$state"
        -o "Dir::Cache::archives=$state/archives"
        -o "APT::Get::List-Cleanup=0"
        -o "Debug::NoLocking=1"
        -o "APT::Sandbox::User=$(id -un)"
    )
    apt-get "${apt_private[@]}" update -qq
    (cd "$state/archives" && apt-get "${apt_private[@]}" download "$@" >/dev/null)
    local deb
    for deb in "$state"/archives/*.deb; do
        dpkg-deb -x "$deb" "$destination"
    done
}

if ! curl_ok; then
    fetch bookworm-backports "$curl_root" curl libcurl4
    fetch trixie "$libssh2_root" libssh2-1t64
    version=$(LD_LIBRARY_PATH="$libssh2_root/usr/lib/x86_64-linux-gnu:$curl_root/usr/lib/x86_64-linux-gnu" \
        "$curl_root/usr/bin/curl" --version | head -n1)
    if curl_ok; then
        log "own curl: $version"
    else
        log "unexpected curl: $version"
        exit 1
    fi
fi
if ! vsftpd_ok; then
    fetch bookworm "$vsftpd_root" vsftpd
    vsftpd_ok || { log "vsftpd did not unpack"; exit 1; }
fi
