#!/usr/bin/env bash
# Starts the real application under Xvfb on a demo site and saves a picture
# of its window.  smoke-screenshot.sh <build bin folder> <picture.png>
# Runs inside run-isolated.sh --keyring (a throw-away home and keyring).
set -euo pipefail
bin=$1 picture=$2
source "$(dirname "$0")/demo-site.sh"
demo_site "$bin" "Company blog"

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
