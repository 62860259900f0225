#!/usr/bin/env bash
# A history of a million lines of about 50 bytes (a 51 MB file), loaded,
# searched and saved by Quorvel and by GNU readline, three times each from
# the same file.
#   bench/history_scale.sh [build-dir] [lines]
set -euo pipefail
build=${1:-build-bench}
lines=${2:-1000000}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
awk -v n="$lines" 'BEGIN { srand(1); s = "abcdefghij klmnop";
    for (i = 0; i < n; i++) { t = ""; for (k = 0; k < 36; k++) t = t substr(s, int(rand() * 17) + 1, 1);
        printf "entry %07d %s\n", i, t } }' > "$dir/orig"
for round in 1 2 3; do
    for program in quorvel readline; do
        cp "$dir/orig" "$dir/term.history"
        printf '%-8s ' "$program"
        "$build/bench/history-scale-$program" "$dir" 2>&1
    done
done
