#!/usr/bin/env bash
# Pictures of the window for a reviewer: the demo site at 1x, at 2x and with
# a dark palette, under Xvfb.  screenshots.sh <build bin folder> <output folder>
# Runs inside run-isolated.sh --keyring (a throw-away home and keyring).
set -euo pipefail
bin=$1 out=$2
mkdir -p "$out"
source "$(dirname "$0")/demo-site.sh"
demo_site "$bin" "Company blog with a name long enough to be cut in the header"

shoot() { # <picture> [environment...] -- [arguments...]
    local picture=$1
    shift
    rm -f "$picture"
    env "$@" QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 2560x1600x24" "$bin/tarnwell" --screenshot "$picture" \
        ${TARNWELL_SHOT_ARGS:-}
    [ "$(stat -c %s "$picture")" -gt 20000 ]
    echo "saved $picture"
}
shoot "$out/window-1x.png" QT_SCALE_FACTOR=1
shoot "$out/window-2x.png" QT_SCALE_FACTOR=2
TARNWELL_SHOT_ARGS=--dark shoot "$out/window-dark.png" QT_SCALE_FACTOR=1
