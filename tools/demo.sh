#!/usr/bin/env bash
# The main flow on a private bus, with the platform state in .demo/: a phone asks for
# access, the prompt answers "allow", the verdict is stored and signalled, the list and
# the wake-up tables show it, a restarted daemon still has it, and after a factory reset the
# backup service gives it back.
set -euo pipefail
bin=$(cd "${1:-build/bin}" && pwd)
source "$(dirname "$0")/devbus.sh"
state="$QUILLON_SOURCE_DIR/.demo"
rm -rf "$state"
mkdir -p "$state/root"
export QUILLON_PLATFORM_ROOT="$state/root"
export QUILLON_LOG_LEVEL=warn
daemon_pid=
monitor_pid=

cleanup() {
    [ -n "$monitor_pid" ] && kill "$monitor_pid" 2>/dev/null
    [ -n "$daemon_pid" ] && kill "$daemon_pid" 2>/dev/null && wait "$daemon_pid" 2>/dev/null
    devbus_stop
}
trap cleanup EXIT

# Bold headings on a terminal only; commands echoed quoted, so they can be pasted.
if [ -t 1 ]; then bold=$'\033[1m' plain=$'\033[0m'; else bold= plain=; fi
step() { printf '\n%s== %s%s\n' "$bold" "$*" "$plain"; }
show() { printf '$'; printf ' %q' "$@"; printf '\n'; "$@"; }

start_daemon() {
    # The prompt application inherits the daemon's environment: it answers "allow" after
    # a second, as a person pressing the button would.
    QUILLON_UX_ANSWER=allow QUILLON_UX_DELAY_MS=1000 "$bin/quillon" 2>>"$state/quillon.log" &
    daemon_pid=$!
    for _ in $(seq 100); do
        "$bin/quillonctl" --timeout 1 list >/dev/null 2>&1 && return 0
        sleep 0.1
    done
    echo "the daemon did not come up; see $state/quillon.log" >&2
    return 1
}

step "A private system bus and a fresh platform root in $state"
devbus_start "$state"
show "$bin/quillon-platform" init
show "$bin/quillon-platform" register-app org.nuvak.quillon-ux "$bin/quillon-ux"
show "$bin/quillon-platform" get db/menu/network/devicemanager/accessnoti

step "Start quillon and watch its signals"
start_daemon
"$bin/quillonctl" monitor --count 1 --timeout 20 >"$state/signals.txt" 2>"$state/monitor.err" &
monitor_pid=$!
for _ in $(seq 200); do
    grep -q "watching the signals" "$state/monitor.err" 2>/dev/null && break
    sleep 0.05
done

step "A new phone asks for access: the prompt is launched (2 = waiting for the user)"
show "$bin/quillonctl" request --name "Pixel 8" --bt AA:BB:CC:DD:EE:01 \
    --wifi AA:BB:CC:DD:EE:02 --type 1 --icon 2 || true

step "The prompt answers allow; the verdict is announced"
wait "$monitor_pid" || true
monitor_pid=
cat "$state/signals.txt"

step "The list and the wake-up tables"
show "$bin/quillonctl" list
show "$bin/quillon-platform" wake-tables

step "Restart the daemon: the list was saved to secure storage"
kill "$daemon_pid"
wait "$daemon_pid" || true
daemon_pid=
show "$bin/quillon-platform" secure-read PXM_DEVICE_LIST | head -n 5
start_daemon
echo "restarted; the phone is still known:"
show "$bin/quillonctl" status AA:BB:CC:DD:EE:01 bt

restart_daemon() {
    kill "$daemon_pid"
    wait "$daemon_pid" || true
    daemon_pid=
    start_daemon
}

step "Every change was handed to the backup service"
show "$bin/quillon-platform" backup-history

step "A factory reset: the TV forgets every device"
show "$bin/quillon-platform" set-int db/registertv/factoryreset 1
restart_daemon
show "$bin/quillonctl" list

step "Restore from the backup service: the phone is back, allowed, in the wake-up tables"
show "$bin/quillonctl" restore
show "$bin/quillonctl" list
show "$bin/quillon-platform" wake-tables

step "Done. The daemon's log is in $state/quillon.log"
