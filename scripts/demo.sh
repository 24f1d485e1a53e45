#!/usr/bin/env bash
# Installs what is missing, builds, creates a sample table in a temporary
# folder and shows it with qzdbf.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/build/release" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$root/build/release" --target qzdbf

qzdbf="$root/build/release/tools/qzdbf/qzdbf"
dir="$(mktemp -d)"
trap 'rm -rf "$dir"' EXIT
table="$dir/sample.dbf"
echo "\$ qzdbf create $table NAME:C:30 CITY:C:20 BORN:D:8 SALARY:N:12:2 ACTIVE:L:1 --records 3"
"$qzdbf" create "$table" NAME:C:30 CITY:C:20 BORN:D:8 SALARY:N:12:2 ACTIVE:L:1 --records 3
echo "\$ qzdbf info $table"
"$qzdbf" info "$table"
