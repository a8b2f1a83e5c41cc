#!/usr/bin/env bash
# The demo: Tarnwell deploys a small sample website to a real FTP server on
# this machine, twice, and shows what it did. Everything lives in a throw-away
# folder with its own home, session bus and keyring; the FTP server, the
# keyring and the bus are stopped and the folder removed on every way out.
#
#   scripts/demo.sh [BUILD_DIR]      (make demo runs it after make build)
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
build=${1:-build}
if [ ! -d "$build" ]; then
    echo "No build folder '$build': build first (make build)." >&2
    exit 1
fi
build=$(cd "$build" && pwd)
cli="$build/bin/tarnwell-cli"

if [ -t 1 ]; then
    bold=$'\033[1m' dim=$'\033[2m' plain=$'\033[0m'
else
    bold="" dim="" plain=""
fi
step() { printf '\n%s== %s%s\n' "$bold" "$*" "$plain"; }
say() { printf '%s\n' "$*" | fold -s -w 100; }
run() {
    printf '%s$ %s%s\n' "$dim" "$*" "$plain"
    "$@"
}
# tarnwell-cli as a person would type it.
tarnwell() {
    printf '%s$ tarnwell-cli %s%s\n' "$dim" "$*" "$plain"
    "$cli" "$@"
}

if [ "$(id -u)" -ne 0 ]; then
    say "The demo starts a real FTP server (pure-ftpd) on this machine, and pure-ftpd refuses logins unless it runs as root. Run it as root: sudo make demo" >&2
    exit 1
fi
if [ ! -x "$cli" ]; then
    echo "No $cli: build first (make build)." >&2
    exit 1
fi
for tool in /usr/sbin/pure-ftpd pure-pw openssl git dbus-daemon dbus-send gnome-keyring-daemon python3; do
    if ! command -v "$tool" >/dev/null; then
        echo "The demo needs $tool: run scripts/setup.sh (make demo does)." >&2
        exit 1
    fi
done

scratch=$(mktemp -d "${TMPDIR:-/tmp}/tarnwell-demo.XXXXXX")
chmod 755 "$scratch"
ftp_pid=""
# shellcheck source=scripts/private-session.sh
. "$here/private-session.sh"

cleanup() {
    local status=$?
    trap - EXIT INT TERM
    if [ -n "$ftp_pid" ]; then
        # The server and the session processes it forked for clients.
        local children child
        children=$(cat "/proc/$ftp_pid/task/"*/children 2>/dev/null || true)
        private_session_end_process "$ftp_pid"
        for child in $children; do
            private_session_end_process "$child"
        done
    fi
    private_session_stop
    rm -rf "$scratch"
    if [ "$status" -eq 0 ]; then
        step "Cleaned up"
        say "The FTP server, the keyring and the session bus are stopped, and the demo folder is gone."
    else
        echo "The demo stopped (exit code $status); the FTP server, the keyring and the bus are stopped and $scratch is removed." >&2
    fi
    exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

free_port() {
    python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

step "Tarnwell demo"
say "Tarnwell publishes a website kept in git to a web server. This demo plays both sides on this machine: a sample website in a new git repository, and a real FTP server on 127.0.0.1 that only this demo knows about. The command line, tarnwell-cli, drives the same code as the desktop window."
"$cli" version | sed 's/^/  /'

# A private home, session bus and keyring: the demo's site and its password
# never meet the person's own.
private_session_start "$scratch/session"

step "Starting an FTP server"
ftp="$scratch/ftp"
www="$ftp/home/www"
mkdir -p "$ftp/home"
chown 2000:2000 "$ftp/home"
chmod 755 "$ftp" "$ftp/home"
ftp_user=webmaster
ftp_password=$(openssl rand -hex 12)
# A virtual user (uid 2000, no entry in /etc/passwd) locked into its home.
printf '%s:%s:2000:2000::%s/./::::::::::::\n' "$ftp_user" "$(openssl passwd -6 "$ftp_password")" "$ftp/home" \
    >"$ftp/passwd"
chmod 600 "$ftp/passwd"
pure-pw mkdb "$ftp/users.pdb" -f "$ftp/passwd" >/dev/null
# The web folder exists on the server, as on a real host.
mkdir "$www"
chown 2000:2000 "$www"

port=""
for _ in 1 2 3 4 5; do
    port=$(free_port)
    passive=$((20000 + RANDOM % 12000))
    /usr/sbin/pure-ftpd -S "127.0.0.1,$port" -l "puredb:$ftp/users.pdb" -E -H -A -u 1000 \
        -p "$passive:$((passive + 49))" -g "$ftp/pure-ftpd.pid" -O "clf:$ftp/transfer.log" \
        >"$ftp/server.log" 2>&1 &
    ftp_pid=$!
    for _ in $(seq 1 100); do
        if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
            break 2
        fi
        kill -0 "$ftp_pid" 2>/dev/null || break
        sleep 0.02
    done
    private_session_end_process "$ftp_pid"
    ftp_pid=""
done
if [ -z "$ftp_pid" ]; then
    echo "pure-ftpd did not start; its log:" >&2
    cat "$ftp/server.log" >&2
    exit 1
fi
say "pure-ftpd listens on 127.0.0.1:$port (process $ftp_pid). Its user \"$ftp_user\" sees the folder $ftp/home as \"/\", with an empty web folder \"www\" in it."

step "A sample website in git"
site="$scratch/website"
mkdir -p "$site/css" "$site/images" "$site/news"
cat >"$site/index.html" <<'HTML'
<!doctype html>
<title>Tarnwell Bakery</title>
<link rel="stylesheet" href="css/style.css">
<img src="images/logo.svg" alt=""><h1>Fresh bread every morning</h1>
<p><a href="about.html">About us</a> · <a href="news/spring-opening.html">News</a></p>
HTML
printf '<!doctype html>\n<title>About</title>\n<p>A small bakery since 1907.</p>\n' >"$site/about.html"
printf 'body { font-family: sans-serif; margin: 2em; }\nh1 { color: #8a4b08; }\n' >"$site/css/style.css"
printf '<svg xmlns="http://www.w3.org/2000/svg" width="48" height="48"><circle cx="24" cy="24" r="20" fill="#d9a05b"/></svg>\n' \
    >"$site/images/logo.svg"
printf '<!doctype html>\n<title>Spring opening</title>\n<p>Open on Sundays from March.</p>\n' \
    >"$site/news/spring-opening.html"
printf '# Tarnwell Bakery website\nNotes for the people who edit the site; not published.\n' >"$site/README.md"
git_in() { git -C "$site" -c user.name="Demo Baker" -c user.email=baker@example.org "$@"; }
git_in init -q -b main
git_in add -A
git_in commit -q -m "First version of the website"
run git -C "$site" log --oneline
run git -C "$site" ls-files

step "Adding the site to Tarnwell"
say "The site sends the repository's files to the server's \"www\" folder over FTP. README.md is on the site's ignore list. The password goes into the secret store (here the demo's own keyring), read from standard input rather than from the command line."
printf '%s$ %s%s\n' "$dim" "tarnwell-cli add --name \"Bakery\" --folder $site --host 127.0.0.1 --port $port --user $ftp_user --remote-path www/ --ignore README.md --password-stdin <<< \"(the password)\"" "$plain"
"$cli" add --name "Bakery" --folder "$site" --protocol FTP --host 127.0.0.1 --port "$port" --user "$ftp_user" \
    --remote-path www/ --ignore README.md --password-stdin <<<"$ftp_password"
tarnwell sites

step "What the first deployment will send"
say "The site was never deployed, so every committed file goes (except the ignored one). The letters are git's: A added, M modified, D deleted."
tarnwell status

step "First deployment"
say "Tarnwell first reads the server's deployment record (\"www/.tarnwell\"); there is none yet, so this is a first deployment. Then curl uploads the files and Tarnwell writes the new record."
tarnwell deploy

snapshot() {
    (cd "$www" && find . -type f ! -name .tarnwell -printf '%P\n' | LC_ALL=C sort | while read -r file; do
        printf '%s %s\n' "$(md5sum <"$file" | cut -c1-32)" "$file"
    done)
}
show_tree() {
    (cd "$ftp/home" && find www -type f -printf '  %-28p %6s bytes\n' | LC_ALL=C sort)
}
step "The server's web folder now"
show_tree
before=$(snapshot)

step "A change: one page modified, one added, one deleted"
sed -i 's|<h1>Fresh bread every morning</h1>|<h1>Fresh bread and cakes every morning</h1>|' "$site/index.html"
printf '<!doctype html>\n<title>Summer hours</title>\n<p>Open until 8 pm in July and August.</p>\n' \
    >"$site/news/summer-hours.html"
git_in rm -q news/spring-opening.html
sed -i 's|news/spring-opening.html|news/summer-hours.html|' "$site/index.html"
git_in add -A
git_in commit -q -m "Summer hours; cakes"
run git -C "$site" log --oneline
say "Tarnwell compares the commit it deployed last with the newest one, and lists only what changed:"
tarnwell status

step "Second deployment"
tarnwell deploy

step "What changed on the server"
after=$(snapshot)
join -j 2 -a 1 -a 2 -e MISSING -o 0,1.1,2.1 <(sort -k2 <<<"$before") <(sort -k2 <<<"$after") |
    while read -r file old new; do
        if [ "$old" = MISSING ]; then
            echo "  added     $file"
        elif [ "$new" = MISSING ]; then
            echo "  deleted   $file"
        elif [ "$old" != "$new" ]; then
            echo "  modified  $file"
        fi
    done
echo "  (every other file was left alone)"
show_tree

step "The deployment record on the server"
record=$(cat "$www/.tarnwell")
IFS=, read -r record_commit record_time record_branch <<<"$record"
echo "  www/.tarnwell: $record"
say "It holds the commit deployed last ($record_commit, the newest commit), when (${record_time%%.*} seconds since 1970: $(date -d "@${record_time%%.*}" '+%Y-%m-%d %H:%M:%S')) and from which branch ($record_branch). The next deployment, from this machine or another, starts from this commit; a record that disagrees with the local history makes Tarnwell ask before anything is sent."
tarnwell status
say "Scripts can tell the outcomes apart by the exit code: 0 deployed, 3 nothing to deploy, 4 a question needs an answer, and so on (tarnwell-cli --help)."
set +e
tarnwell deploy
code=$?
set -e
echo "  exit code $code"

if { [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; } && [ -t 0 ] && [ -x "$build/bin/tarnwell" ]; then
    step "The desktop window"
    read -r -p "Open the desktop window on the demo site (the server keeps running until you close it)? [y/N] " answer
    case "$answer" in
        y | Y | yes) "$build/bin/tarnwell" || true ;;
    esac
fi
