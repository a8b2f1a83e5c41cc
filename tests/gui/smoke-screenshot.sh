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
said=$(QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1280x800x24" "$bin/tarnwell" --screenshot "$picture")
echo "$said"
fail() { echo "smoke test: $*" >&2; exit 1; }
# The window names the current site and lists the commit's four files
# (index.html, news.html, css/site.css, img/logo.svg: never deployed, so all).
grep -qx 'title: Company blog — Tarnwell' <<<"$said" || fail "the title does not name the site"
grep -qx 'files listed: 4' <<<"$said" || fail "the window does not list the four files"
# The picture is the window, drawn: its size, many colours, not one colour all over.
size=$(sed -n 's/^picture: //p' <<<"$said")
python3 "$(dirname "$0")/check-picture.py" "$picture" "${size%x*}" "${size#*x}" || fail "the picture is not a drawn window"
echo "saved $picture"
