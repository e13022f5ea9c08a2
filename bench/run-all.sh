#!/usr/bin/env bash
# bench/run-all.sh BIN_DIR: runs every benchmark with the programs in BIN_DIR and prints each
# result as a ratio to a baseline measured in the same run. Exits non-zero only when a
# program fails (or a benchmark finds its own fixture broken), never because of a number.
#   1. the self-test of the ratio arithmetic
#   2. in process on the fake platform: registry merge, list JSON, loading, locks
#   3. on a private system-type bus: the real daemon on the host platform in a temporary
#      root, under sequential and concurrent calls, against the echo service on the same
#      bus: with 150 stored devices (status and new devices), with 10000 (status); then
#      start-up with 1000 stored devices against none, and a burst of 1000 new devices
set -uo pipefail

if [ $# -ne 1 ]; then
    echo "usage: $0 BIN_DIR" >&2
    exit 2
fi
bin=$(cd "$1" && pwd) || exit 2
QUILLON_SOURCE_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export QUILLON_SOURCE_DIR
# shellcheck source=../tools/devbus.sh
source "$QUILLON_SOURCE_DIR/tools/devbus.sh"

for program in quillon-bench-selftest quillon-bench-core quillon-bench-summary \
    quillon-bench-bus quillon-bench-echo quillon-bench-daemon quillon quillon-platform; do
    if [ ! -x "$bin/$program" ]; then
        echo "run-all: $bin/$program is not built" >&2
        exit 2
    fi
done

work=$(mktemp -d "${TMPDIR:-/tmp}/quillon-bench.XXXXXX") || exit 2
daemon_pid=
echo_pid=
cleanup() {
    for pid in $daemon_pid $echo_pid; do
        kill "$pid" 2>/dev/null
        wait "$pid" 2>/dev/null
    done
    devbus_stop
    rm -rf "$work"
}
trap cleanup EXIT

failed=0
fail() {
    echo "run-all: $*" >&2
    failed=1
}

# Without trustworthy arithmetic no ratio below means anything.
if ! "$bin/quillon-bench-selftest" >"$work/selftest.txt" 2>&1; then
    cat "$work/selftest.txt" >&2
    echo "run-all: the ratio arithmetic failed its self-test; nothing measured" >&2
    exit 1
fi

echo "== In process, fake platform: time per operation, ratio = quillon / baseline"
echo "   add_merge: INTERNAL_AddDevice merging into N records / case-insensitive scan of N"
echo "   add_merge_saved: the same add plus its save to storage / the same scan"
echo "   list_json: Util_GetJsonStringForDeviceList / JsonCpp writing the same document"
echo "   load: DB_OpenFile of a version-2 list / JsonCpp parsing the same text"
echo "   lock: PXMUtil::Mutex Lock+Unlock / std::mutex, one thread and two threads"
# Repetitions in random order spread the machine's noise over daemon and baseline alike;
# the fake's stderr is muted (the daemon's log lines are formatted, then dropped).
if timeout 150 "$bin/quillon-bench-core" --benchmark_min_time=0.05 --benchmark_repetitions=5 \
    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
    --benchmark_out="$work/core.json" --benchmark_out_format=json \
    >"$work/core.txt" 2>/dev/null; then
    "$bin/quillon-bench-summary" "$work/core.json" || fail "in-process benchmarks reported problems"
else
    cat "$work/core.txt"
    fail "quillon-bench-core failed"
fi

echo
echo "== Private system bus, real daemon on the host platform (level info, state in $work)"
echo "   against quillon-bench-echo: a GDBus handler on a main loop answering at once"
if ! devbus_start "$work/bus" "$QUILLON_SOURCE_DIR/bench/echo-policy.conf"; then
    fail "no private bus"
    exit "$failed"
fi
"$bin/quillon-bench-echo" 2>"$work/echo.log" &
echo_pid=$!
export QUILLON_LOG_LEVEL=info

# The daemon over a root holding N stored devices, its flushes counted by thread.
start_daemon() {
    local n=$1
    export QUILLON_PLATFORM_ROOT="$work/root-$n"
    mkdir -p "$QUILLON_PLATFORM_ROOT"
    : >"$work/syncs-$n"
    if ! "$bin/quillon-platform" init >"$work/init.txt" 2>&1 ||
        ! "$bin/quillon-bench-daemon" seed "$n" "$work/seed.txt" ||
        ! "$bin/quillon-platform" secure-write PXM_DEVICE_LIST "$work/seed.txt" >>"$work/init.txt" 2>&1; then
        cat "$work/init.txt" >&2
        fail "cannot store $n devices"
        return 1
    fi
    LD_PRELOAD="$bin/libquillon-bench-syncs.so" QUILLON_BENCH_SYNC_LOG="$work/syncs-$n" \
        "$bin/quillon" 2>"$work/quillon-$n.log" &
    daemon_pid=$!
}

stop_daemon() {
    kill "$daemon_pid" 2>/dev/null
    wait "$daemon_pid" 2>/dev/null
    daemon_pid=
}

echo
echo "-- 150 stored devices; each request a new device, stored without a prompt"
if start_daemon 150; then
    if ! timeout 300 "$bin/quillon-bench-bus" --stored 150 --calls 120 --rounds 4 --concurrency 8 \
        --deadline 240 --log "$work/quillon-150.log" --syncs "$work/syncs-150"; then
        fail "the bus load failed; the daemon's last lines:"
        tail -n 20 "$work/quillon-150.log" >&2
    fi
    kill -0 "$daemon_pid" 2>/dev/null || fail "the daemon was not running at the end of the bus load"
    stop_daemon
fi

echo
echo "-- 10000 stored devices; status lookups"
if start_daemon 10000; then
    if ! timeout 300 "$bin/quillon-bench-bus" --stored 10000 --calls 200 --rounds 4 \
        --concurrency 8 --deadline 240 --wait 60 --status-only; then
        fail "the bus load failed; the daemon's last lines:"
        tail -n 20 "$work/quillon-10000.log" >&2
    fi
    stop_daemon
fi

echo
echo "-- Start-up with 1000 stored devices against start-up with none"
"$bin/quillon-bench-daemon" startup "$bin" "$work/startup" 1000 5 || fail "the start-up runs failed"

echo
echo "-- A burst of new devices"
"$bin/quillon-bench-daemon" burst "$bin" "$work/burst" 1000 16 || fail "the burst failed"

exit "$failed"
