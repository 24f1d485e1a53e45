#!/usr/bin/env bash
# Installs what is missing, builds, and shows the sample table with qzdbf.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/build/release" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$root/build/release" --target qzdbf

qzdbf="$root/build/release/tools/qzdbf/qzdbf"
# The sample table of examples/ (made by examples/make_sample.sh): every
# field type, Cyrillic names in CP1251, shown in the terminal's encoding.
table="$root/examples/sample.dbf"
echo "\$ qzdbf info examples/sample.dbf"
"$qzdbf" info "$table"
echo
echo "\$ qzdbf dump examples/sample.dbf"
"$qzdbf" dump "$table"
echo
echo "\$ qzdbf dump examples/sample.dbf --csv --from 3"
"$qzdbf" dump "$table" --csv --from 3
echo
echo "\$ qzdbf get examples/sample.dbf city 1"
"$qzdbf" get "$table" city 1
