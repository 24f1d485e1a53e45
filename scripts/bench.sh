#!/usr/bin/env bash
# Builds the benchmarks in their own Release build folder and runs them:
# a million-record table read, written and searched through the library and
# through shapelib on the same files, and a table of about 200 MB loaded into
# memory (heap and time against reading the file with fread), and every cell
# of a million-record attribute table read through the OGR-backed table
# against a plain loop over OGR's C API. Extra
# arguments go to dbf_bench (FOLDER for the temporary tables, RECORDS); the
# memory, delete-by-mask and OGR benchmarks use FOLDER too.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/install-deps.sh"
build="$root/build/bench"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQZ_BUILD_BENCH=ON \
      -DQZ_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target dbf_bench memory_bench delete_mask_bench restruct_bench ogr_bench
"$build/bench/dbf_bench" "$@"
# A table of about 200 MB loaded into memory, in the same folder.
"$build/bench/memory_bench" ${1:+"$1"}
# Half of a million records deleted by mask, on disk and in memory.
"$build/bench/delete_mask_bench" ${1:+"$1"}
# A million-record table restructured on disk (against ogr2ogr) and in memory
# (against loading it).
"$build/bench/restruct_bench" ${1:+"$1"}
# Every cell of a million-record attribute table through the OGR table.
"$build/bench/ogr_bench" ${1:+"$1"}
