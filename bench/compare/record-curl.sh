#!/usr/bin/env bash
# Stands in for the application's own curl in a tools folder: writes this
# run's arguments to a file of their own (NUL-separated, named so that the
# runs sort in the order they started) and its standard input (the login,
# which reaches curl there) to the same name with ".in", and then runs the
# real curl with them.
# compare.sh uses it once per workload to learn the exact command lines of a
# deployment, which the curl floor then replays.
#
#   TARNWELL_COMPARE_CURL    the real curl
#   TARNWELL_COMPARE_RECORD  the folder that receives one file per run
set -u
record=${TARNWELL_COMPARE_RECORD:?}
file=$record/${EPOCHREALTIME/./}-$$
printf '%s\0' "$@" >"$file"
cat >"$file.in"
exec "${TARNWELL_COMPARE_CURL:?}" "$@" <"$file.in"
