#!/usr/bin/env bash
# Runs the table benchmark of an earlier revision and of the working tree
# in one run, taking turns, so that both see the same machine:
#
#   scripts/bench_compare.sh REVISION [FOLDER] [RECORDS] [ROUNDS]
#
# REVISION is built from `git archive` in a temporary folder (Release, with
# the benchmarks); the working tree in build/bench. Each round runs the
# earlier benchmark, then the current one; the rows of every round are
# printed under "before" and "after".
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
rev="${1:?usage: bench_compare.sh REVISION [FOLDER] [RECORDS] [ROUNDS]}"
folder="${2:-${TMPDIR:-/tmp}}"
records="${3:-1000000}"
rounds="${4:-2}"
base="$(mktemp -d "${TMPDIR:-/tmp}/qzdbf-bench-base.XXXXXX")"
trap 'rm -rf "$base"' EXIT
git -C "$root" archive "$rev" | tar -x -C "$base"
build_bench() {  # SOURCE BUILD
    cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQZ_BUILD_BENCH=ON \
          -DQZ_BUILD_TESTS=OFF >/dev/null
    cmake --build "$2" --target dbf_bench >/dev/null
}
build_bench "$base" "$base/build"
build_bench "$root" "$root/build/bench"
for round in $(seq 1 "$rounds"); do
    for side in before after; do
        if [ "$side" = before ]; then exe="$base/build/bench/dbf_bench"; else exe="$root/build/bench/dbf_bench"; fi
        echo "== round $round, $side ($([ "$side" = before ] && echo "$rev" || echo "working tree"))"
        "$exe" "$folder" "$records" | grep -E '^(write|read|search|find)' || true
    done
done
