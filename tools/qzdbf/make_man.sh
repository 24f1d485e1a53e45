#!/usr/bin/env bash
# Writes the man page of qzdbf from its help: the tool's --help and --version
# through help2man, with each command's --help as a section of its own.
# usage: make_man.sh HELP2MAN QZDBF OUTPUT
set -euo pipefail
help2man=$1 qzdbf=$2 output=$3
extra=$(mktemp)
trap 'rm -f "$extra"' EXIT
{
  echo "[COMMANDS]"
  for command in $("$qzdbf" --help | sed -n '/^Subcommands:/,/^$/p' | awk 'NR > 1 && NF {print $1}'); do
    echo ".SS $command"
    echo ".nf"
    "$qzdbf" "$command" --help | sed -n '1,/^Exit status/p' | sed '$d' | sed 's/\\/\\\\/g; s/^\./\\\&./'
    echo ".fi"
  done
} >"$extra"
ASAN_OPTIONS=detect_leaks=0 "$help2man" --no-info --section 1 \
  --name "dBASE tables (.dbf with .dbt/.fpt memo files) at the terminal" \
  --include "$extra" --output "$output" "$qzdbf"
