#!/usr/bin/env bash
# Pictures of the window for a reviewer: the demo site at 1x, at 2x and with
# a dark palette, under Xvfb.  screenshots.sh <build bin folder> <output folder>
# Runs inside run-isolated.sh --keyring (a throw-away home and keyring).
set -euo pipefail
bin=$1 out=$2
mkdir -p "$out"
repo=$(mktemp -d "${TMPDIR:-/tmp}/tarnwell-shots.XXXXXX")
trap 'rm -rf "$repo"' EXIT

git -C "$repo" init -q -b main
mkdir -p "$repo/css" "$repo/img"
echo '<h1>Hello</h1>' >"$repo/index.html"
echo 'body { font-family: sans-serif }' >"$repo/css/site.css"
echo 'About us' >"$repo/about.html"
git -C "$repo" add -A
git -C "$repo" -c user.name=Ann -c user.email=ann@example.org commit -qm "First version"
echo '<h1>Hello again</h1>' >"$repo/index.html"
echo 'News' >"$repo/news.html"
echo '<svg xmlns="http://www.w3.org/2000/svg"/>' >"$repo/img/logo.svg"
git -C "$repo" rm -q about.html
git -C "$repo" add -A
git -C "$repo" -c user.name=Ann -c user.email=ann@example.org commit -qm "News page"

echo secret | "$bin/tarnwell-cli" add --name "Company blog with a name long enough to be cut in the header" \
    --folder "$repo" --host ftp.example.org --user webmaster --remote-path www/ --password-stdin >/dev/null
echo secret | "$bin/tarnwell-cli" add --name "Shop" --folder "$repo" --protocol SFTP --host shop.example.com \
    --user deploy --remote-path '~/htdocs/' --password-stdin >/dev/null
"$bin/tarnwell-cli" use 0 >/dev/null

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
