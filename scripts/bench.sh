#!/usr/bin/env bash
# Builds the benchmarks in their own Release build folder and runs them:
# a million-record table read, written and searched through the library and
# through shapelib on the same files. Extra arguments go to dbf_bench
# (FOLDER for the temporary tables, RECORDS).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/install-deps.sh"
build="$root/build/bench"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQZ_BUILD_BENCH=ON \
      -DQZ_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target dbf_bench
"$build/bench/dbf_bench" "$@"
