#!/usr/bin/env bash
# Runs one test program in a throw-away home with a private D-Bus session, so
# that no test reads or writes the preferences, logs or keyring of the person
# running it.
#
#   run-isolated.sh [--keyring] -- program [arguments...]
#
# --keyring starts an unlocked gnome-keyring (the Secret Service) on the
# private bus for the test and stops it afterwards. Without it the bus has no
# Secret Service at all.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
keyring=0
while [ $# -gt 0 ]; do
    case "$1" in
        --keyring) keyring=1 ;;
        --inner) shift; break ;;
        --) shift; break ;;
        *) echo "run-isolated: unknown option $1" >&2; exit 2 ;;
    esac
    shift
done

if [ "${TARNWELL_ISOLATED_INNER:-}" = 1 ]; then
    # Inside the private D-Bus session.
    keyring_pid=""
    cleanup() {
        if [ -n "$keyring_pid" ]; then
            kill "$keyring_pid" 2>/dev/null || true
            wait "$keyring_pid" 2>/dev/null || true
        fi
    }
    trap cleanup EXIT
    if [ "$TARNWELL_ISOLATED_KEYRING" = 1 ]; then
        printf 'test' | gnome-keyring-daemon --foreground --unlock --components=secrets >"$TARNWELL_TEST_HOME/keyring.log" 2>&1 &
        keyring_pid=$!
        for _ in $(seq 1 200); do
            if dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
                org.freedesktop.DBus.NameHasOwner string:org.freedesktop.secrets 2>/dev/null | grep -q 'boolean true'; then
                break
            fi
            sleep 0.05
        done
    fi
    # QtTest says "SKIP   :" for a skipped function and still exits 0. Such a
    # run ends with 77, which CTest reports as skipped (SKIP_RETURN_CODE); a
    # run that failed keeps its own status, skipped functions or not, and is
    # reported as failed.
    set +e
    "$@" | tee "$TARNWELL_TEST_HOME/test-output.log"
    status=${PIPESTATUS[0]}
    if [ "$status" = 0 ] && grep -q '^SKIP   : ' "$TARNWELL_TEST_HOME/test-output.log"; then
        status=77
    fi
    exit $status
fi

scratch=$(mktemp -d "${TMPDIR:-/tmp}/tarnwell-test.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch/home/.config" "$scratch/home/.local/share" "$scratch/home/.cache" "$scratch/run"
chmod 700 "$scratch/run"

export HOME="$scratch/home"
export XDG_CONFIG_HOME="$HOME/.config" XDG_DATA_HOME="$HOME/.local/share" XDG_CACHE_HOME="$HOME/.cache"
export XDG_RUNTIME_DIR="$scratch/run"
export TARNWELL_TEST_HOME="$HOME"
export TARNWELL_ISOLATED_KEYRING=$keyring
export TARNWELL_ISOLATED_INNER=1
export QT_QPA_PLATFORM="${QT_QPA_PLATFORM:-offscreen}"
# Git must not read the runner's own configuration. It reads this one: the
# settings a person may well have that change what git prints (colours,
# columns, quoted names, longer ids, relative paths); the program must not
# care.
export GIT_CONFIG_NOSYSTEM=1
cat >"$HOME/.gitconfig" <<'GITCONFIG'
[color]
	ui = always
[column]
	ui = always
[core]
	quotePath = true
	abbrev = 12
[status]
	showUntrackedFiles = no
	relativePaths = true
[diff]
	relative = true
[log]
	decorate = full
GITCONFIG
unset DISPLAY WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS GIT_DIR GIT_WORK_TREE

set +e
dbus-run-session --config-file="$here/session-bus.conf" -- "$0" --inner "$@"
status=$?
exit $status
