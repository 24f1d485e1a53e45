#!/usr/bin/env bash
# Writes examples/sample.dbf (and its sample.cpg) with the qzdbf tool: five
# records of people, a field of every type the tool writes (C, N, F, L, D,
# I, B), Cyrillic text kept in CP1251.
#
#   examples/make_sample.sh [PATH-TO-QZDBF]
#
# Without an argument the tool of the release build (build/release) is used.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
qzdbf="${1:-$here/../build/release/tools/qzdbf/qzdbf}"
table="$here/sample.dbf"
export LC_ALL=C.UTF-8  # the values below are UTF-8 text

rm -f "$table" "$here/sample.cpg"
"$qzdbf" create "$table" NAME:C:30 CITY:C:20 BORN:D:8 SALARY:N:12:2 RATE:F:10:4 \
    ACTIVE:L:1 KIDS:I:4 SCORE:B:8
"$qzdbf" append "$table" 5 >/dev/null

record=0
while IFS='|' read -r name city born salary rate active kids score; do
    for pair in "NAME=$name" "CITY=$city" "BORN=$born" "SALARY=$salary" "RATE=$rate" \
                "ACTIVE=$active" "KIDS=$kids" "SCORE=$score"; do
        "$qzdbf" set "$table" "${pair%%=*}" "$record" "${pair#*=}" 2>/dev/null
    done
    record=$((record + 1))
done <<'DATA'
Иванов Иван Иванович|Москва|1980-05-17|123456.78|0.125|T|2|4.75
Петрова Анна Сергеевна|Санкт-Петербург|1992-11-03|98000.5|1.5|F|0|3.9
Сидоров Пётр|Новосибирск|1975-01-30|150000|0.0833|T|3|4.2
Кузнецова Ольга|Екатеринбург|2001-07-09|45500.25|2.25|T|1|5
Smith, John "Jack"|London|1969-12-31|77777.77|0.5|F|4|-1.25
DATA
echo "wrote $table"
