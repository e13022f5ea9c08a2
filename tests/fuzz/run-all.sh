#!/usr/bin/env bash
# Runs every fuzz target (BIN_DIR/fuzz_*) for SECONDS each, starting from its committed seed
# corpus in corpus/<target>/. Fails when a target reports a finding: a crash, a sanitizer
# report, a leak or an input that runs too long. New inputs go to a scratch directory, so
# the committed corpus stays small; the input behind a finding is kept for replay.
set -uo pipefail

usage="usage: $0 BIN_DIR SECONDS"
bin_dir=${1:?$usage}
seconds=${2:?$usage}
here=$(cd "$(dirname "$0")" && pwd)
artifacts=${QUILLON_FUZZ_ARTIFACTS:-$(cd "$bin_dir/.." && pwd)/fuzz-artifacts}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

shopt -s nullglob
targets=("$bin_dir"/fuzz_*)
if [ ${#targets[@]} -eq 0 ]; then
    echo "no fuzz targets in $bin_dir" >&2
    exit 1
fi
mkdir -p "$artifacts"

failed=0
for target in "${targets[@]}"; do
    name=$(basename "$target")
    corpus="$scratch/$name"
    mkdir -p "$corpus"
    seeds=()
    if [ -d "$here/corpus/$name" ]; then
        seeds=("$here/corpus/$name")
    fi
    log="$scratch/$name.log"
    echo "== $name: ${seconds}s"
    # The daemon logs every step on stderr; -close_fd_mask=2 keeps that out of the way while
    # libFuzzer and the sanitizers still report on the original stderr.
    if "$target" -max_total_time="$seconds" -max_len=8192 -timeout=10 -rss_limit_mb=2048 \
        -close_fd_mask=2 -print_final_stats=1 -artifact_prefix="$artifacts/$name-" \
        "$corpus" "${seeds[@]}" >"$log" 2>&1; then
        grep -E '^stat::number_of_executed_units|^Done' "$log" || true
    else
        echo "FINDING in $name (inputs kept in $artifacts):"
        tail -n 80 "$log"
        failed=1
    fi
done
exit $failed
