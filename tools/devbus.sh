# Sourced by run.sh and demo.sh: a private system-type D-Bus for development.
# devbus_start DIR [POLICY]: starts dbus-daemon with the project's policy (and the policy
# file POLICY, when given), its socket in DIR, and exports DBUS_SYSTEM_BUS_ADDRESS;
# devbus_stop ends it.
QUILLON_SOURCE_DIR=${QUILLON_SOURCE_DIR:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)}

devbus_start() {
    local dir=$1 extra=
    [ -n "${2:-}" ] && extra="<include>$2</include>"
    mkdir -p "$dir"
    sed -e "s|@LISTEN@|unix:path=$dir/system_bus_socket|" \
        -e "s|</busconfig>|$extra</busconfig>|" \
        -e "s|@POLICY_FILE@|$QUILLON_SOURCE_DIR/data/org.nuvak.quillon.conf|" \
        -e "s|@USER@|$(id -un)|" \
        "$QUILLON_SOURCE_DIR/data/dbus-dev-system.conf.in" >"$dir/bus.conf"
    : >"$dir/bus.address"
    dbus-daemon --config-file="$dir/bus.conf" --nofork --print-address=3 3>"$dir/bus.address" \
        2>"$dir/bus.log" &
    DEVBUS_PID=$!
    local tries=0
    until [ -s "$dir/bus.address" ]; do
        tries=$((tries + 1))
        if [ $tries -gt 100 ] || ! kill -0 "$DEVBUS_PID" 2>/dev/null; then
            echo "devbus: dbus-daemon did not start" >&2
            return 1
        fi
        sleep 0.05
    done
    DBUS_SYSTEM_BUS_ADDRESS=$(head -n 1 "$dir/bus.address")
    export DBUS_SYSTEM_BUS_ADDRESS
}

devbus_stop() {
    [ -n "${DEVBUS_PID:-}" ] && kill "$DEVBUS_PID" 2>/dev/null && wait "$DEVBUS_PID" 2>/dev/null
    DEVBUS_PID=
}
