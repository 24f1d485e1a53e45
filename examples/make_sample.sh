#!/usr/bin/env bash
# Writes examples/sample.dbf (and its sample.cpg) with the qzdbf tool: five
# records of people, a field of every type the tool writes (C, N, F, L, D,
# I), Cyrillic text kept in CP1251, and a memo field whose texts live in
# examples/sample.dbt (the library reads memo files but does not write them,
# so that file is written here, by python3).
#
#   examples/make_sample.sh [PATH-TO-QZDBF]
#
# Without an argument the tool of the release build (build/release) is used.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
qzdbf="${1:-$here/../build/release/tools/qzdbf/qzdbf}"
table="$here/sample.dbf"
export LC_ALL=C.UTF-8  # the values below are UTF-8 text

rm -f "$table" "$here/sample.cpg" "$here/sample.dbt"
"$qzdbf" create "$table" NAME:C:30 CITY:C:20 BORN:D:8 SALARY:N:12:2 RATE:F:10:4 \
    ACTIVE:L:1 KIDS:I:4 NOTES:M:10
"$qzdbf" append "$table" 5 >/dev/null

record=0
while IFS='|' read -r name city born salary rate active kids; do
    for pair in "NAME=$name" "CITY=$city" "BORN=$born" "SALARY=$salary" "RATE=$rate" \
                "ACTIVE=$active" "KIDS=$kids"; do
        "$qzdbf" set "$table" "${pair%%=*}" "$record" "${pair#*=}" 2>/dev/null
    done
    record=$((record + 1))
done <<'DATA'
Иванов Иван Иванович|Москва|1980-05-17|123456.78|0.125|T|2
Петрова Анна Сергеевна|Санкт-Петербург|1992-11-03|98000.5|1.5|F|0
Сидоров Пётр|Новосибирск|1975-01-30|150000|0.0833|T|3
Кузнецова Ольга|Екатеринбург|2001-07-09|45500.25|2.25|T|1
Smith, John "Jack"|London|1969-12-31|77777.77|0.5|F|4
DATA
# The memo file: a 512-byte header whose first four bytes give the next free
# block, then each memo from the start of its own 512-byte block, ended by
# two 0x1A bytes. Records 0, 1, 2 and 4 have memos; record 3 has none.
/usr/bin/python3 - "$here/sample.dbt" <<'PY'
import struct, sys
memos = {
    1: "Руководитель отдела продаж.\nЛюбит шахматы и длинные прогулки.",
    2: "Переведена из Казани в 2019 году.",
    3: "Ведущий инженер; отвечает за склад, логистику, закупки и отчётность.",
    4: "Visiting from London, see \"Jack\" in the records.",
}
blocks = {}
data = bytearray(512)
for n in sorted(memos):
    while len(data) % 512:
        data.append(0)
    blocks[n] = len(data) // 512
    data += memos[n].encode("cp1251") + b"\x1a\x1a"
while len(data) % 512:
    data.append(0)
struct.pack_into("<I", data, 0, len(data) // 512)
open(sys.argv[1], "wb").write(bytes(data))
PY
for pair in 0=1 1=2 2=3 4=4; do
    "$qzdbf" set --raw "$table" NOTES "${pair%%=*}" "${pair#*=}"
done
echo "wrote $table and $here/sample.dbt"
