#!/usr/bin/env bash
# Starts the real application under Xvfb on a demo site and saves a picture
# of its window.  smoke-screenshot.sh <build bin folder> <picture.png>
# Runs inside run-isolated.sh --keyring (a throw-away home and keyring).
set -euo pipefail
bin=$1 picture=$2
repo=$(mktemp -d "${TMPDIR:-/tmp}/tarnwell-smoke.XXXXXX")
trap 'rm -rf "$repo"' EXIT

git -C "$repo" init -q -b main
mkdir -p "$repo/css" "$repo/img"
echo '<h1>Hello</h1>' >"$repo/index.html"
echo 'body { font-family: sans-serif }' >"$repo/css/site.css"
echo '<svg xmlns="http://www.w3.org/2000/svg"/>' >"$repo/img/logo.svg"
echo 'About us' >"$repo/about.html"
git -C "$repo" add -A
git -C "$repo" -c user.name=Ann -c user.email=ann@example.org commit -qm "First version"
echo '<h1>Hello again</h1>' >"$repo/index.html"
echo 'News' >"$repo/news.html"
git -C "$repo" rm -q about.html
git -C "$repo" add -A
git -C "$repo" -c user.name=Ann -c user.email=ann@example.org commit -qm "News page"

echo secret | "$bin/tarnwell-cli" add --name "Company blog" --folder "$repo" --host ftp.example.org \
    --user webmaster --remote-path www/ --password-stdin >/dev/null
echo secret | "$bin/tarnwell-cli" add --name "Shop" --folder "$repo" --protocol SFTP --host shop.example.com \
    --user deploy --remote-path '~/htdocs/' --password-stdin >/dev/null
"$bin/tarnwell-cli" use 0 >/dev/null

rm -f "$picture"
QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1280x800x24" "$bin/tarnwell" --screenshot "$picture"
# A PNG, and not an empty one.
[ "$(head -c 8 "$picture" | od -An -tx1 | tr -d ' \n')" = 89504e470d0a1a0a ]
[ "$(stat -c %s "$picture")" -gt 20000 ]
echo "saved $picture"
