#!/usr/bin/env bash
# Runs every libFuzzer target of a QUORVEL_FUZZ build for a bounded time,
# starting from the corpus kept under tests/fuzz/corpus/. Fails on the first
# crash and names the input; once the fault is fixed, copy that input into
# tests/fuzz/corpus/<target>/, where the ordinary tests replay it for good.
#   scripts/fuzz.sh [build-dir] [seconds-per-target] [target...]
set -euo pipefail
build=${1:-build-fuzz}
seconds=${2:-60}
shift $(($# < 2 ? $# : 2))
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(fuzz_keys fuzz_history fuzz_text fuzz_keymap fuzz_session)
cd "$(dirname "$0")/.."
for target in "${targets[@]}"; do
    work="$build/corpus/$target"
    mkdir -p "$work" "$build/crashes"
    echo "== $target: ${seconds}s"
    if ! "$build/tests/fuzz/$target" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
        -artifact_prefix="$build/crashes/$target-" "$work" "tests/fuzz/corpus/$target" \
        > "$build/$target.log" 2>&1; then
        tail -40 "$build/$target.log"
        echo "$target failed; the input is in $build/crashes/" >&2
        exit 1
    fi
    grep -E "stat::number_of_executed_units|cov:" "$build/$target.log" | tail -2
done
