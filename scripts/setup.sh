#!/usr/bin/env bash
# Prepares a Debian 12 machine for building, testing and running the demo.
#
#   1. installs the packages of scripts/packages.txt that are missing (apt);
#   2. fetches the application's own curl (8.14 from bookworm-backports) into
#      .cache/curl/root without touching the system's apt configuration or
#      its installed curl.
#
# Safe to run again: it does only what is missing.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
cache="$here/.cache/curl"
curl_root="$cache/root"
want_curl_version=8.14

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

# 2. The application's own curl.
if [ -x "$curl_root/usr/bin/curl" ] &&
    LD_LIBRARY_PATH="$curl_root/usr/lib/x86_64-linux-gnu" "$curl_root/usr/bin/curl" --version 2>/dev/null |
    head -n1 | grep -q "^curl $want_curl_version"; then
    exit 0
fi

# The backports entry is the machine's own Debian entry with the suite changed.
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
log "fetching curl $want_curl_version from $debian_uri bookworm-backports"

state="$cache/apt"
rm -rf "$state" "$curl_root"
mkdir -p "$state/lists/partial" "$state/archives/partial" "$state/etc" "$curl_root"
echo "deb [signed-by=$signed_by] $debian_uri bookworm-backports main" >"$state/etc/sources.list"
touch "$state/status"
apt_private=(
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
(cd "$state/archives" && apt-get "${apt_private[@]}" download curl libcurl4 >/dev/null)
for deb in "$state"/archives/*.deb; do
    dpkg-deb -x "$deb" "$curl_root"
done
version=$(LD_LIBRARY_PATH="$curl_root/usr/lib/x86_64-linux-gnu" "$curl_root/usr/bin/curl" --version | head -n1)
case "$version" in
    "curl $want_curl_version"*) log "own curl: $version" ;;
    *) log "unexpected curl: $version"; exit 1 ;;
esac
