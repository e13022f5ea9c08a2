#!/usr/bin/env bash
# bench/run-all.sh BIN_DIR: runs every benchmark with the programs in BIN_DIR and prints each
# result as a ratio to a baseline measured in the same run. Exits non-zero only when a
# program fails (or a benchmark finds its own fixture broken), never because of a number.
#   1. the self-test of the ratio arithmetic
#   2. in process on the fake platform: registry merge, list JSON, loading, locks
#   3. on a private system-type bus: the real daemon on the host platform in a temporary
#      root, under sequential and concurrent calls, against Peer.Ping to the same daemon
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
    quillon-bench-bus quillon quillon-platform; do
    if [ ! -x "$bin/$program" ]; then
        echo "run-all: $bin/$program is not built" >&2
        exit 2
    fi
done

work=$(mktemp -d "${TMPDIR:-/tmp}/quillon-bench.XXXXXX") || exit 2
daemon_pid=
cleanup() {
    if [ -n "$daemon_pid" ]; then
        kill "$daemon_pid" 2>/dev/null
        wait "$daemon_pid" 2>/dev/null
    fi
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
echo "== Private system bus, real daemon on the host platform"
if devbus_start "$work/bus"; then
    export QUILLON_PLATFORM_ROOT="$work/root"
    mkdir -p "$QUILLON_PLATFORM_ROOT"
    if "$bin/quillon-platform" init >"$work/init.txt" 2>&1; then
        "$bin/quillon" 2>"$work/quillon.log" &
        daemon_pid=$!
        if ! timeout 120 "$bin/quillon-bench-bus" --calls 400 --concurrency 8 --rounds 4 \
            --deadline 60 --wait 20; then
            fail "the bus load failed; the daemon's last lines:"
            tail -n 20 "$work/quillon.log" >&2
        fi
        if ! kill -0 "$daemon_pid" 2>/dev/null; then
            fail "the daemon was not running at the end of the bus load"
        fi
    else
        cat "$work/init.txt" >&2
        fail "quillon-platform init failed"
    fi
else
    fail "no private bus"
fi

exit "$failed"
