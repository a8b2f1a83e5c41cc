#!/usr/bin/env bash
# run-fuzzer.sh <fuzzer> <seed corpus folder> <runs>
# Runs a libFuzzer target for a bounded number of inputs. New inputs go to a
# throw-away folder; a crashing input is kept next to the build for reproducing.
set -euo pipefail
fuzzer=$1 seeds=$2 runs=$3
scratch=$(mktemp -d "${TMPDIR:-/tmp}/tarnwell-fuzz.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
artifacts="$(dirname "$fuzzer")/fuzz-artifacts/"
mkdir -p "$artifacts"
export HOME="$scratch" XDG_CONFIG_HOME="$scratch/config" XDG_DATA_HOME="$scratch/data"
export DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent
exec "$fuzzer" -runs="$runs" -max_len=8192 -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$artifacts" -print_final_stats=1 "$scratch" "$seeds"
