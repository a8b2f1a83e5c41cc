#!/usr/bin/env bash
# Tarnwell against the tools people would use instead, side by side, in one
# run, against the same servers on this machine.
#
# Servers: pure-ftpd (plain FTP, in passive and in active mode) and sshd
# (SFTP) on 127.0.0.1, started here with throw-away folders, a virtual FTP
# user and a root login by key, as the test fixtures do.
#
# Workloads:
#   first        a first deployment of a repository of 2,000 files of 1 KiB
#                in 20 folders, into an empty remote folder;
#   incremental  the next deployment after a commit that changes 10 of those
#                files (4 modified, 3 added, 3 deleted), starting from the
#                state that the contestant's own first deployment left on the
#                server (its files and its own record: .tarnwell, .git-ftp.log);
#   deletions    the deployment after that of a commit that deletes 1,000 of
#                the files, from the state the contestant's own incremental
#                deployment left;
#   memory       a first deployment of 20,000 files by tarnwell-cli alone, for
#                its peak memory.
#
# Contestants, each a cold start of its own process(es):
#   tarnwell-cli   tarnwell-cli deploy --yes (its preference maxConnections: 3)
#   tarnwell-cli, 1 connection   the same with maxConnections 1
#   curl floor     the application's own curl run directly on the same batch
#                  command lines that tarnwell-cli ran with one connection
#                  (recorded from one real deployment per workload and mode),
#                  one after another; without the record's read and write
#   git-ftp        git ftp init / git ftp push (Debian's git-ftp, which runs
#                  the system's curl)
#   lftp           lftp -e 'mirror -R --parallel=1 --delete ...' and the same
#                  with --parallel=4
#   rclone         rclone sync --exclude '.git/**' to an :ftp: or :sftp: remote
#                  given on its command line (4 transfers; passive FTP and SFTP
#                  only: it has no active FTP)
#
# Before every run the remote folder is emptied (first) or put back into the
# contestant's deployed state (incremental) on the server's disk, and the
# script waits until few TCP connections are left in TIME_WAIT. After every run
# the remote files are compared with the repository; a run that leaves other
# files counts as failed. Prints every run, then a Markdown table (median and
# range of the runs, tarnwell-cli's median divided by the contestant's, peak
# resident memory from GNU time), the target checks, and last
# "ratio=<tarnwell-cli first deployment / the fastest other tool's, passive FTP>".
#
# Needs root (pure-ftpd and sshd), a release build, git-ftp, lftp, rclone, GNU time:
#   sudo bench/compare/compare.sh [--build DIR] [--runs N] [--modes passive,active,sftp]
#       [--files N] [--memory-files N] [--memory-runs N] [--timeout SECONDS]
#       [--time-wait N] [--results FILE] [--keep]
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
source_root=$(cd "$here/../.." && pwd)

build=$source_root/build
runs=5
modes=passive,active,sftp
files=2000
folders=20
memory_files=20000
memory_runs=1
memory_mode=passive
run_timeout=300
time_wait_limit=8000
results_copy=""
keep=0

usage() {
    sed -n '/^#   sudo/,/^set -euo/p' "$0" | sed '$d; s/^# \{0,1\}//' >&2
    exit 2
}
while [ $# -gt 0 ]; do
    case $1 in
        --build) build=$2; shift ;;
        --runs) runs=$2; shift ;;
        --modes) modes=$2; shift ;;
        --files) files=$2; shift ;;
        --memory-files) memory_files=$2; shift ;;
        --memory-runs) memory_runs=$2; shift ;;
        --timeout) run_timeout=$2; shift ;;
        --time-wait) time_wait_limit=$2; shift ;;
        --results) results_copy=$2; shift ;;
        --keep) keep=1 ;;
        -h | --help) usage ;;
        *) echo "unknown option: $1" >&2; usage ;;
    esac
    shift
done
IFS=, read -r -a mode_list <<<"$modes"
for mode in "${mode_list[@]}"; do
    case $mode in
        passive | active | sftp) ;;
        *) echo "unknown mode '$mode' (passive, active, sftp)" >&2; exit 2 ;;
    esac
done

if [ "$(id -u)" -ne 0 ]; then
    echo "The comparison starts pure-ftpd and sshd, which let this user log in only when run as root: run it as root." >&2
    exit 1
fi
build=$(cd "$build" 2>/dev/null && pwd) || { echo "No build folder: build first (make build)." >&2; exit 1; }
cli=$build/bin/tarnwell-cli
own_curl=$build/libexec/tarnwell/curl
own_curl_lib=$build/libexec/tarnwell/lib
if [ ! -x "$cli" ] || [ ! -x "$own_curl" ]; then
    echo "No $cli or $own_curl: build first (make build)." >&2
    exit 1
fi
for tool in /usr/sbin/pure-ftpd /usr/sbin/sshd pure-pw openssl ssh-keygen git git-ftp lftp rclone curl /usr/bin/time \
    timeout python3 dbus-daemon dbus-send gnome-keyring-daemon md5sum; do
    if ! command -v "$tool" >/dev/null; then
        echo "The comparison needs $tool: run scripts/setup.sh (make build does)." >&2
        exit 1
    fi
done

scratch=$(mktemp -d "${TMPDIR:-/tmp}/tarnwell-compare.XXXXXX")
chmod 755 "$scratch"
ftp_pid=""
ssh_pid=""
# shellcheck source=scripts/private-session.sh
. "$source_root/scripts/private-session.sh"

# A server and the session processes it forked for clients.
stop_server() {
    local pid=$1 children child
    [ -n "$pid" ] || return 0
    children=$(cat "/proc/$pid/task/"*/children 2>/dev/null || true)
    private_session_end_process "$pid"
    for child in $children; do
        private_session_end_process "$child"
    done
}
cleanup() {
    local status=$?
    trap - EXIT INT TERM
    stop_server "$ftp_pid"
    stop_server "$ssh_pid"
    private_session_stop
    if [ "$keep" -eq 1 ]; then
        echo "Kept $scratch" >&2
    else
        rm -rf "$scratch"
    fi
    exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

say() { printf '%s\n' "$*"; }
# rclone runs with remotes given on its command line and no configuration.
export RCLONE_CONFIG=/dev/null
die() {
    printf '%s\n' "$*" >&2
    exit 1
}

free_port() {
    python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}
# The first of 1,000 consecutive free ports below the kernel's ephemeral
# range, for pure-ftpd's passive data connections: every file takes one, and
# each stays taken for a while after its transfer (with 50, runs on several
# connections were refused one: "425" from the server).
free_port_range() {
    python3 - <<'PY'
import random, socket
for _ in range(50):
    first = random.randrange(20000, 32000 - 1000)
    sockets = []
    try:
        for port in range(first, first + 1000):
            s = socket.socket()
            sockets.append(s)
            s.bind(("127.0.0.1", port))
    except OSError:
        continue
    finally:
        for s in sockets:
            s.close()
    print(first)
    break
PY
}
wait_for_port() {
    local port=$1 pid=$2 _
    for _ in $(seq 1 250); do
        if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
            return 0
        fi
        kill -0 "$pid" 2>/dev/null || return 1
        sleep 0.02
    done
    return 1
}

# TCP connections of this machine in TIME_WAIT. Every FTP data connection
# leaves one behind for a minute; with tens of thousands loopback ports run
# short and curl slows down, whoever's they are.
time_wait_count() {
    local line
    line=$(grep '^TCP:' /proc/net/sockstat)
    line=${line#* tw }
    echo "${line%% *}"
}
wait_for_ports() {
    local waited=0
    while [ "$(time_wait_count)" -gt "$time_wait_limit" ] && [ "$waited" -lt 240 ]; do
        sleep 0.5
        waited=$((waited + 1))
    done
}

# --- servers ---------------------------------------------------------------

say "Setting up in $scratch"
private_session_start "$scratch/session"
conf=$XDG_CONFIG_HOME/tarnwell/tarnwell.conf

ftp=$scratch/ftp
ftp_home=$ftp/home
ftp_user=webmaster
ftp_password=$(openssl rand -hex 12)
mkdir -p "$ftp_home"
chown 2000:2000 "$ftp_home"
chmod 755 "$ftp" "$ftp_home"
# A virtual user (uid 2000, not in /etc/passwd) locked into its home; a
# SHA-512 crypt hash keeps logins fast.
printf '%s:%s:2000:2000::%s/./::::::::::::\n' "$ftp_user" "$(openssl passwd -6 "$ftp_password")" "$ftp_home" \
    >"$ftp/passwd"
chmod 600 "$ftp/passwd"
pure-pw mkdb "$ftp/users.pdb" -f "$ftp/passwd" >/dev/null
ftp_port=""
for _ in 1 2 3 4 5; do
    ftp_port=$(free_port)
    passive=$(free_port_range)
    /usr/sbin/pure-ftpd -S "127.0.0.1,$ftp_port" -l "puredb:$ftp/users.pdb" -E -H -A -u 1000 \
        -p "$passive:$((passive + 999))" -g "$ftp/pure-ftpd.pid" >"$ftp/server.log" 2>&1 &
    ftp_pid=$!
    wait_for_port "$ftp_port" "$ftp_pid" && break
    stop_server "$ftp_pid"
    ftp_pid=""
done
[ -n "$ftp_pid" ] || die "pure-ftpd did not start: $(cat "$ftp/server.log")"

# An SFTP-only login, as web hosts give: no shell commands. (With a shell,
# rclone checks every upload with a remote md5sum, one ssh command per file:
# about 170 s for 2,000 files here instead of under 2 s.)
ssh=$scratch/ssh
sftp_home=$ssh/remote
mkdir -p "$sftp_home" /run/sshd
ssh-keygen -q -t ed25519 -N '' -C tarnwell-compare -f "$ssh/host_ed25519"
ssh-keygen -q -t ed25519 -N '' -C tarnwell-compare -f "$ssh/client_ed25519"
ssh_key=$ssh/client_ed25519
cp "$ssh_key.pub" "$ssh/authorized_keys"
ssh_port=""
for _ in 1 2 3 4 5; do
    ssh_port=$(free_port)
    cat >"$ssh/sshd_config" <<SSHD
Port $ssh_port
ListenAddress 127.0.0.1
HostKey $ssh/host_ed25519
PidFile $ssh/sshd.pid
AuthorizedKeysFile $ssh/authorized_keys
PermitRootLogin prohibit-password
PubkeyAuthentication yes
PasswordAuthentication no
KbdInteractiveAuthentication no
UsePAM no
StrictModes no
UseDNS no
PrintMotd no
Subsystem sftp internal-sftp -d $sftp_home
ForceCommand internal-sftp -d $sftp_home
SSHD
    /usr/sbin/sshd -D -e -f "$ssh/sshd_config" >"$ssh/server.log" 2>&1 &
    ssh_pid=$!
    wait_for_port "$ssh_port" "$ssh_pid" && break
    stop_server "$ssh_pid"
    ssh_pid=""
done
[ -n "$ssh_pid" ] || die "sshd did not start: $(cat "$ssh/server.log")"
ssh_options="-o UserKnownHostsFile=/dev/null -o StrictHostKeyChecking=no -o BatchMode=yes -o LogLevel=ERROR"

# The remote folder of a mode, as the server's disk has it.
remote_folder() {
    if [ "$1" = sftp ]; then echo "$sftp_home/www"; else echo "$ftp_home/www"; fi
}
empty_remote() {
    local folder
    folder=$(remote_folder "$1")
    rm -rf "$folder"
    mkdir "$folder"
    [ "$1" = sftp ] || chown 2000:2000 "$folder"
}
restore_remote() {
    local folder
    folder=$(remote_folder "$1")
    rm -rf "$folder"
    cp -a "$2" "$folder"
}

# --- repositories ----------------------------------------------------------

site=$scratch/site
big_site=$scratch/site-big
git_in() { git -C "$1" -c user.name="Compare" -c user.email=compare@example.org "${@:2}"; }
# FILES pages of 1 KiB, each its own text, in FOLDERS folders.
make_repository() {
    local folder=$1 count=$2 groups=$3
    mkdir -p "$folder"
    python3 - "$folder" "$count" "$groups" <<'PY'
import os, sys
root, count, groups = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
per = (count + groups - 1) // groups
for n in range(count):
    folder = os.path.join(root, "folder-%02d" % (n // per))
    os.makedirs(folder, exist_ok=True)
    head = ("<!doctype html>\n<title>Page %d</title>\n<p>" % n).encode()
    line = b"Lorem ipsum dolor sit amet, consectetur adipiscing elit. "
    body = (head + line * 20)[:1023] + b"\n"
    with open(os.path.join(folder, "page-%05d.html" % n), "wb") as page:
        page.write(body)
PY
    git_in "$folder" init -q -b main
    git_in "$folder" add -A
    git_in "$folder" commit -q -m "$count pages"
}
# What the remote folder must hold: "md5  path" of every tracked file.
expected_manifest() {
    (cd "$1" && git ls-files -z | LC_ALL=C sort -z | xargs -0 -r md5sum)
}
remote_manifest() {
    (cd "$1" && find . -type f ! -name .tarnwell ! -name .git-ftp.log -printf '%P\0' | LC_ALL=C sort -z |
        xargs -0 -r md5sum)
}

say "Making a repository of $files files in $folders folders"
make_repository "$site" "$files" "$folders"
expected_manifest "$site" >"$scratch/manifest-first"
per_folder=$(((files + folders - 1) / folders))
page() { printf 'folder-%02d/page-%05d.html' $(($1 / per_folder)) "$1"; }

# --- contestants -----------------------------------------------------------

# Sites: one per mode, and one for the memory workload.
add_site() {
    local name=$1 folder=$2 mode=$3
    case $mode in
        passive | active)
            printf '%s\n' "$ftp_password" | "$cli" --no-input add --name "$name" --folder "$folder" --protocol FTP \
                --host 127.0.0.1 --port "$ftp_port" --user "$ftp_user" "--$mode" --remote-path www/ \
                --password-stdin >/dev/null
            ;;
        sftp)
            "$cli" --no-input add --name "$name" --folder "$folder" --protocol SFTP --host 127.0.0.1 \
                --port "$ssh_port" --user root --key "$ssh_key" --remote-path "~/www/" --no-password \
                --no-passphrase >/dev/null
            ;;
    esac
}
states=$scratch/states
mkdir -p "$states"
for mode in "${mode_list[@]}"; do
    add_site "$mode" "$site" "$mode"
done
# The preferences of tarnwell-cli with one connection: the same, with the
# preference maxConnections set to 1.
one_connection() {
    python3 - "$1" <<'PY'
import re, sys
path = sys.argv[1]
text = open(path, encoding="utf-8").read()
text = re.sub(r"(?m)^maxConnections=.*\n", "", text)
text = text.replace("[General]\n", "[General]\nmaxConnections=1\n", 1)
open(path, "w", encoding="utf-8").write(text)
PY
}
for mode in "${mode_list[@]}"; do
    "$cli" --no-input use "$mode" >/dev/null
    cp "$conf" "$states/conf-new-$mode"
    cp "$conf" "$states/conf-new-$mode-1"
    one_connection "$states/conf-new-$mode-1"
done

contestant_name() {
    case $1 in
        tarnwell) echo "tarnwell-cli" ;;
        tarnwell1) echo "tarnwell-cli, 1 connection" ;;
        floor) echo "curl floor" ;;
        gitftp) echo "git-ftp" ;;
        lftp) echo "lftp --parallel=1" ;;
        lftp4) echo "lftp --parallel=4" ;;
        rclone) echo "rclone sync" ;;
    esac
}
# The preferences file a tarnwell-cli contestant starts a workload with.
conf_state() {
    local contestant=$1 workload=$2 mode=$3 suffix=""
    [ "$contestant" = tarnwell1 ] && suffix=-1
    case $workload in
        first) echo "$states/conf-new-$mode$suffix" ;;
        incremental) echo "$states/conf-first-$mode$suffix" ;;
        deletions) echo "$states/conf-incremental-$mode$suffix" ;;
        memory) echo "$states/conf-new-memory" ;;
    esac
}

git_ftp_arguments() {
    case $1 in
        passive) git_ftp_args=(--user "$ftp_user" --passwd "$ftp_password" "ftp://127.0.0.1:$ftp_port/www/") ;;
        active) git_ftp_args=(--active --user "$ftp_user" --passwd "$ftp_password" "ftp://127.0.0.1:$ftp_port/www/") ;;
        sftp) git_ftp_args=(--user root --key "$ssh_key" --insecure "sftp://127.0.0.1:$ssh_port$sftp_home/www/") ;;
    esac
}
lftp_command() {
    local mode=$1 folder=$2 parallel=$3
    case $mode in
        passive | active)
            local passive_mode=on
            [ "$mode" = active ] && passive_mode=off
            lftp_args=(-u "$ftp_user,$ftp_password"
                -e "set ftp:passive-mode $passive_mode; set ftp:ssl-allow no; mirror -R --parallel=$parallel --delete --exclude-glob .git/ $folder www; quit"
                "ftp://127.0.0.1:$ftp_port")
            ;;
        sftp)
            lftp_args=(-u root,
                -e "set sftp:connect-program 'ssh -a -x -i $ssh_key $ssh_options'; mirror -R --parallel=$parallel --delete --exclude-glob .git/ $folder www; quit"
                "sftp://127.0.0.1:$ssh_port")
            ;;
    esac
}
# rclone's remote given on its command line; none for active FTP, which it
# does not speak.
rclone_remote() {
    case $1 in
        passive) echo ":ftp,host=127.0.0.1,port=$ftp_port,user=$ftp_user,pass=$(rclone obscure "$ftp_password"):www" ;;
        sftp) echo ":sftp,host=127.0.0.1,port=$ssh_port,user=root,key_file=$ssh_key:www" ;;
        *) echo "" ;;
    esac
}

# Runs a command in a folder under GNU time and a time-out; sets run_us,
# run_peak and run_status.
timed() {
    local folder=$1 output=$2 start end
    shift 2
    start=${EPOCHREALTIME/./}
    set +e
    (cd "$folder" && exec /usr/bin/time -f '%M' -o "$scratch/time.txt" timeout -k 5 "$run_timeout" "$@" \
        </dev/null >"$output" 2>&1)
    run_status=$?
    set -e
    end=${EPOCHREALTIME/./}
    run_us=$((end - start))
    run_peak=$(tail -n 1 "$scratch/time.txt")
}

# The batches of a recorded deployment: the runs with a user agent (the
# record's read and write run without one). tarnwell-cli uploads the
# committed files from a private export that is gone when it ends; the floor
# reads the same bytes from the repository's clean working folder.
load_floor() {
    local key=$1 record=$2 folder=$3 index=0 file i
    for file in "$record"/*; do
        case $file in *.in) continue ;; esac
        if tr '\0' '\n' <"$file" | grep -qx -- --user-agent; then
            mapfile -d '' -t "floor_${key}_$index" <"$file"
            local -n lines="floor_${key}_$index"
            for i in "${!lines[@]}"; do
                if [[ ${lines[i]} =~ ^(.*/tarnwell-export-[^/]+)/(.*)$ ]]; then
                    lines[i]=$folder/${BASH_REMATCH[2]}
                fi
            done
            unset -n lines
            eval "floor_${key}_${index}_input=\$file.in"
            index=$((index + 1))
        fi
    done
    eval "floor_${key}_count=$index"
}
run_floor() {
    local key=$1 output=$2 index count start end status=0
    eval "count=\${floor_${key}_count}"
    start=${EPOCHREALTIME/./}
    for ((index = 0; index < count; index++)); do
        local -n batch="floor_${key}_$index" input="floor_${key}_${index}_input"
        LD_LIBRARY_PATH=$own_curl_lib "$own_curl" "${batch[@]}" <"$input" >/dev/null 2>>"$output" || status=$?
        unset -n batch input
    done
    end=${EPOCHREALTIME/./}
    run_us=$((end - start))
    run_peak=-
    run_status=$status
}

# One deployment by tarnwell-cli with the recording curl, untimed: the
# command lines for the curl floor (and a warm-up of the caches).
record_deployment() {
    local key=$1 folder=$2 mode=$3 tools=$scratch/record-tools
    rm -rf "$tools" "$scratch/record-$key"
    mkdir -p "$tools" "$scratch/record-$key"
    cp "$here/record-curl.sh" "$tools/curl"
    chmod 755 "$tools/curl"
    ln -s "$build/libexec/tarnwell/git" "$tools/git"
    ln -s "$own_curl_lib" "$tools/lib"
    wait_for_ports
    (cd "$folder" && TARNWELL_TOOLS_DIR=$tools TARNWELL_COMPARE_CURL=$own_curl \
        TARNWELL_COMPARE_RECORD=$scratch/record-$key "$cli" --no-input deploy --yes) \
        >"$scratch/logs/record-$key.log" 2>&1 ||
        { [ -z "${TARNWELL_COMPARE_PAUSE:-}" ] || sleep "$TARNWELL_COMPARE_PAUSE"; die "The recording deployment ($key) failed: $(tail -n 5 "$scratch/logs/record-$key.log")"; }
    load_floor "$key" "$scratch/record-$key" "$folder"
}

results=$scratch/results.tsv
: >"$results"
mkdir -p "$scratch/logs"
# Skipped contestants: a failed or timed-out run ends a contestant's runs of
# that workload and mode.
declare -A given_up=()

# One timed run: prepare the server's folder and the contestant's state, run,
# check the remote files, note the outcome.
run_once() {
    local workload=$1 mode=$2 contestant=$3 round=$4 folder=$5 manifest=$6 name outcome seconds
    local key=$workload-$mode-$contestant
    local log=$scratch/logs/$key-$round.log
    name=$(contestant_name "$contestant")
    if [ -n "${given_up[$key]:-}" ]; then
        return 0
    fi
    if [ "$contestant" = rclone ] && [ -z "$(rclone_remote "$mode")" ]; then
        return 0
    fi
    local from=$contestant
    [ "$contestant" = floor ] && from=tarnwell1
    case $workload in
        first | memory) empty_remote "$mode" ;;
        incremental) restore_remote "$mode" "$states/remote-first-$mode-$from" ;;
        deletions) restore_remote "$mode" "$states/remote-incremental-$mode-$from" ;;
    esac
    case $contestant in
        tarnwell | tarnwell1) cp "$(conf_state "$contestant" "$workload" "$mode")" "$conf" ;;
    esac
    wait_for_ports
    case $contestant in
        tarnwell | tarnwell1) timed "$folder" "$log" "$cli" --no-input deploy --yes ;;
        floor) run_floor "$workload$mode" "$log" ;;
        gitftp)
            git_ftp_arguments "$mode"
            local action=init
            [ "$workload" = first ] || action=push
            timed "$folder" "$log" git ftp "$action" "${git_ftp_args[@]}"
            ;;
        lftp | lftp4)
            local parallel=1
            [ "$contestant" = lftp4 ] && parallel=4
            lftp_command "$mode" "$folder" "$parallel"
            timed "$scratch" "$log" lftp "${lftp_args[@]}"
            ;;
        rclone) timed "$folder" "$log" rclone sync --exclude '.git/**' "$folder" "$(rclone_remote "$mode")" ;;
    esac
    seconds=$(printf '%d.%06d' $((run_us / 1000000)) $((run_us % 1000000)))
    if [ "$run_status" -eq 124 ] || [ "$run_status" -eq 137 ]; then
        outcome="timed out after $run_timeout s"
    elif ! remote_manifest "$(remote_folder "$mode")" | cmp -s - "$manifest"; then
        outcome="wrong files on the server (exit code $run_status)"
    elif [ "$run_status" -ne 0 ]; then
        outcome="exit code $run_status"
    else
        outcome=ok
    fi
    printf '%s\t%s\t%s\t%s\t%s\t%s\n' "$workload" "$mode" "$name" "$outcome" "$seconds" "$run_peak" >>"$results"
    if [ "$outcome" = ok ] && { [ "$workload" = first ] || [ "$workload" = incremental ]; } &&
        [ "$contestant" != floor ]; then
        # The contestant's deployed state, where its next workload starts.
        rm -rf "$states/remote-$workload-$mode-$contestant"
        cp -a "$(remote_folder "$mode")" "$states/remote-$workload-$mode-$contestant"
        case $contestant in
            tarnwell) cp "$conf" "$states/conf-$workload-$mode" ;;
            tarnwell1) cp "$conf" "$states/conf-$workload-$mode-1" ;;
        esac
    fi
    if [ "$outcome" = ok ]; then
        printf '  %-12s %-8s %-18s run %d: %7.2f s  %s\n' "$workload" "$mode" "$name" "$round" "$seconds" \
            "$([ "$run_peak" = - ] || echo "peak $((run_peak / 1024)) MB")"
    else
        printf '  %-12s %-8s %-18s run %d: %s; its output ends with:\n' "$workload" "$mode" "$name" "$round" "$outcome"
        tail -n 5 "$log" | sed 's/^/      /'
        given_up[$key]=1
    fi
}
# Rotated each round, so that no contestant always goes first.
contestants=(tarnwell tarnwell1 floor gitftp lftp lftp4 rclone)
rotation() {
    local round=$1 i n=${#contestants[@]}
    for ((i = 0; i < n; i++)); do
        echo "${contestants[$(((round + i) % n))]}"
    done
}

say "Servers: pure-ftpd on 127.0.0.1:$ftp_port (passive ports $passive-$((passive + 999))), sshd on 127.0.0.1:$ssh_port"
say "tarnwell-cli: $cli"
say "own curl: $("$own_curl" --version 2>/dev/null | head -n 1 || LD_LIBRARY_PATH=$own_curl_lib "$own_curl" --version | head -n 1)"
say "system curl (git-ftp): $(curl --version | head -n 1)"
say "$(git ftp --version), $(lftp --version | head -n 1), $(rclone version | head -n 1)"
say "$runs runs of each contestant per workload and mode; modes: ${mode_list[*]}"

# --- first deployment ------------------------------------------------------

for mode in "${mode_list[@]}"; do
    say ""
    say "First deployment of $files files, $mode"
    empty_remote "$mode"
    cp "$states/conf-new-$mode-1" "$conf"
    record_deployment "first$mode" "$site" "$mode"
    for ((round = 1; round <= runs; round++)); do
        for contestant in $(rotation "$round"); do
            run_once first "$mode" "$contestant" "$round" "$site" "$scratch/manifest-first"
        done
    done
done

# A workload that starts where each contestant's last one left the server:
# the recording deployment of the floor (with one connection), then the
# rounds.
run_workload() {
    local workload=$1 mode=$2 manifest=$3 previous=first contestant from
    [ "$workload" = deletions ] && previous=incremental
    for contestant in "${contestants[@]}"; do
        from=$contestant
        [ "$contestant" = floor ] && from=tarnwell1
        if [ "$contestant" = rclone ] && [ -z "$(rclone_remote "$mode")" ]; then
            continue
        fi
        if [ ! -d "$states/remote-$previous-$mode-$from" ]; then
            printf '%s\t%s\t%s\t%s\t0\t-\n' "$workload" "$mode" "$(contestant_name "$contestant")" \
                "no deployed state to start from" >>"$results"
            given_up[$workload-$mode-$contestant]=1
        fi
    done
    if [ -z "${given_up[$workload-$mode-tarnwell1]:-}" ]; then
        restore_remote "$mode" "$states/remote-$previous-$mode-tarnwell1"
        cp "$(conf_state tarnwell1 "$workload" "$mode")" "$conf"
        record_deployment "$workload$mode" "$site" "$mode"
    fi
    for ((round = 1; round <= runs; round++)); do
        for contestant in $(rotation "$round"); do
            run_once "$workload" "$mode" "$contestant" "$round" "$site" "$manifest"
        done
    done
}

# --- incremental deployment ------------------------------------------------

# 10 changed files: 4 modified, 3 added, 3 deleted.
for index in 5 $((per_folder * 5 + 7)) $((per_folder * 10 + 9)) $((per_folder * 15 + 11)); do
    printf '<p>Changed for the next deployment.</p>\n' >>"$site/$(page "$index")"
done
for index in $((per_folder * 2 + 3)) $((per_folder * 12 + 4)) $((per_folder * 18 + 6)); do
    git_in "$site" rm -q "$(page "$index")"
done
for folder in 0 $((folders / 2)) $((folders - 1)); do
    printf '<!doctype html>\n<title>News</title>\n<p>New page.</p>\n' \
        >"$site/$(printf 'folder-%02d/news-%02d.html' "$folder" "$folder")"
done
git_in "$site" add -A
git_in "$site" commit -q -m "10 changed pages"
expected_manifest "$site" >"$scratch/manifest-incremental"

for mode in "${mode_list[@]}"; do
    say ""
    say "Incremental deployment of 10 changed files, $mode"
    run_workload incremental "$mode" "$scratch/manifest-incremental"
done

# --- deletions -------------------------------------------------------------

# 1,000 files deleted (every other page, as far as there are).
doomed=()
for ((index = 0; index < files && ${#doomed[@]} < 1000; index += 2)); do
    if [ -f "$site/$(page "$index")" ]; then
        doomed+=("$(page "$index")")
    fi
done
git -C "$site" rm -q -- "${doomed[@]}"
git_in "$site" commit -q -m "${#doomed[@]} pages deleted"
expected_manifest "$site" >"$scratch/manifest-deletions"

for mode in "${mode_list[@]}"; do
    say ""
    say "Deployment of 1,000 deleted files, $mode"
    run_workload deletions "$mode" "$scratch/manifest-deletions"
done

# --- peak memory -----------------------------------------------------------

if [ "$memory_runs" -gt 0 ]; then
    say ""
    say "First deployment of $memory_files files by tarnwell-cli, $memory_mode, for its peak memory"
    make_repository "$big_site" "$memory_files" "$folders"
    expected_manifest "$big_site" >"$scratch/manifest-memory"
    add_site memory "$big_site" "$memory_mode"
    "$cli" --no-input use memory >/dev/null
    cp "$conf" "$states/conf-new-memory"
    for ((round = 1; round <= memory_runs; round++)); do
        run_once memory "$memory_mode" tarnwell "$round" "$big_site" "$scratch/manifest-memory"
    done
fi

[ -z "$results_copy" ] || cp "$results" "$results_copy"
say ""
python3 "$here/table.py" "$results"
