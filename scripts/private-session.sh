# shellcheck shell=bash
# A throw-away desktop session for scripts that run the application (the
# demo): its own HOME and XDG folders, a private D-Bus session bus, and an
# unlocked gnome-keyring on it as the Secret Service. Nothing of the person's
# own preferences, logs or keyring is read or written.
#
#   . scripts/private-session.sh
#   private_session_start FOLDER   # exports HOME, XDG_*, DBUS_SESSION_BUS_ADDRESS
#   ...
#   private_session_stop           # stops the keyring and the bus; call it from an EXIT trap
#
# The bus activates no service: what the session offers is started here.

private_session_bus_pid=""
private_session_keyring_pid=""

private_session_start() {
    local folder=$1
    mkdir -p "$folder/home/.config" "$folder/home/.local/share" "$folder/home/.cache" "$folder/run"
    chmod 700 "$folder/run"
    export HOME="$folder/home"
    export XDG_CONFIG_HOME="$HOME/.config" XDG_DATA_HOME="$HOME/.local/share" XDG_CACHE_HOME="$HOME/.cache"
    export XDG_RUNTIME_DIR="$folder/run"
    # Git must not read the machine's or the person's configuration.
    export GIT_CONFIG_NOSYSTEM=1
    unset DBUS_SESSION_BUS_ADDRESS GIT_DIR GIT_WORK_TREE

    cat >"$folder/bus.conf" <<BUS
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>unix:dir=$folder/run</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
BUS
    dbus-daemon --config-file="$folder/bus.conf" --fork --print-address=3 --print-pid=4 \
        3>"$folder/bus.address" 4>"$folder/bus.pid"
    private_session_bus_pid=$(cat "$folder/bus.pid")
    DBUS_SESSION_BUS_ADDRESS=$(head -n1 "$folder/bus.address")
    export DBUS_SESSION_BUS_ADDRESS

    printf 'tarnwell' | gnome-keyring-daemon --foreground --unlock --components=secrets \
        >"$folder/keyring.log" 2>&1 &
    private_session_keyring_pid=$!
    local _
    for _ in $(seq 1 200); do
        if dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
            org.freedesktop.DBus.NameHasOwner string:org.freedesktop.secrets 2>/dev/null |
            grep -q 'boolean true'; then
            return 0
        fi
        if ! kill -0 "$private_session_keyring_pid" 2>/dev/null; then
            break
        fi
        sleep 0.05
    done
    echo "The secret store (gnome-keyring) did not start; its log:" >&2
    cat "$folder/keyring.log" >&2
    return 1
}

# Stops a process by its id and waits until it is gone (killed after 3 s).
private_session_end_process() {
    local pid=$1 _
    [ -n "$pid" ] || return 0
    kill "$pid" 2>/dev/null || return 0
    for _ in $(seq 1 60); do
        if ! kill -0 "$pid" 2>/dev/null; then
            wait "$pid" 2>/dev/null || true
            return 0
        fi
        sleep 0.05
    done
    kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
}

private_session_stop() {
    private_session_end_process "$private_session_keyring_pid"
    private_session_keyring_pid=""
    private_session_end_process "$private_session_bus_pid"
    private_session_bus_pid=""
}
