#!/usr/bin/env bash
# The kill test of restructuring: `qzdbf alter` on a 100,000-record table,
# killed with SIGKILL at random moments KILLS times (200 unless given). After
# each kill the table at its path, or else its backup "<path>.bak.dbf", must
# be a whole table holding every record (checked byte by byte: the header's
# count, the file's length, the ID of every record). Each run adds or drops
# one field, so each does a whole rewrite; a last run, not killed, must
# succeed and leave no backup and no sibling of a killed rewrite behind.
#
#   scripts/restruct_kill_test.sh [QZDBF] [KILLS]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
qzdbf="${1:-$root/build/release/tools/qzdbf/qzdbf}"
kills="${2:-200}"
py=/usr/bin/python3
dir="$(mktemp -d)"
trap 'rm -rf "$dir"' EXIT
table="$dir/T.dbf"

cat > "$dir/check.py" <<'PY'
import struct, sys

RECORDS = 100000

def whole(path):
    """'ok [X]' when the file is a whole table with IDs 1..RECORDS in order."""
    try:
        data = open(path, 'rb').read()
    except OSError:
        return None
    if len(data) < 32:
        return None
    nr, hl, rl = struct.unpack('<IHH', data[4:12])
    if nr != RECORDS or len(data) < hl + nr * rl:
        return None
    names, offset, id_at = [], 1, None
    for k in range((hl - 33) // 32):
        d = data[32 + 32 * k: 64 + 32 * k]
        if d[0] == 0x0D:
            break
        name = d[:11].split(b'\0')[0].decode('ascii')
        if name == 'ID':
            id_at = offset
        names.append(name)
        offset += d[16]
    if id_at is None:
        return None
    for r in range(nr):
        start = hl + r * rl + id_at
        if int(data[start:start + 8]) != r + 1:
            return None
    return 'ok X' if 'X' in names else 'ok'

if sys.argv[1] == 'make':
    hl, rl = 32 + 32 * 2 + 1, 1 + 8 + 20
    head = bytearray(hl)
    head[0] = 3
    head[1:4] = bytes([124, 1, 1])
    head[4:12] = struct.pack('<IHH', RECORDS, hl, rl)
    for k, (name, t, n) in enumerate([(b'ID', b'N', 8), (b'NAME', b'C', 20)]):
        d = 32 + 32 * k
        head[d:d + len(name)] = name
        head[d + 11:d + 12] = t
        head[d + 16] = n
    head[hl - 1] = 0x0D
    body = b''.join(b' %8d%-20s' % (r + 1, b'name %d' % r) for r in range(RECORDS))
    open(sys.argv[2], 'wb').write(bytes(head) + body + b'\x1a')
    sys.exit(0)

table, backup = sys.argv[2], sys.argv[3]
got = whole(table)
if got:
    print('table', got)
else:
    got = whole(backup)
    print('backup ' + got if got else 'LOST')
PY

"$py" "$dir/check.py" make "$table"
# How long one rewrite takes, to spread the kills over it.
start=$(date +%s%N)
"$qzdbf" alter "$table" --add X:C:5 >/dev/null
"$qzdbf" alter "$table" --drop X >/dev/null
span=$(( ($(date +%s%N) - start) / 2000 ))  # microseconds per run
echo "one rewrite of 100,000 records: about $((span / 1000)) ms"

at_table=0 at_backup=0 finished=0
for ((i = 1; i <= kills; ++i)); do
    state="$("$py" "$dir/check.py" check "$table" "$table.bak.dbf")"
    if [[ "$state" == *" X" ]]; then op=(--drop X); else op=(--add X:C:5); fi
    if [[ "$state" == backup* ]]; then
        # The table itself is not whole: the backup is put back first, as a
        # person would do.
        cp "$table.bak.dbf" "$table"
    fi
    "$qzdbf" alter "$table" "${op[@]}" >/dev/null 2>&1 &
    pid=$!
    # A moment from 0 to 1.2 times a whole run (a run may also end first).
    delay=$(( RANDOM * 32768 + RANDOM ))
    delay=$(( delay % (span * 12 / 10 + 1) ))
    sleep "$(printf '0.%06d' "$delay")"
    kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null && finished=$((finished + 1)) || true
    state="$("$py" "$dir/check.py" check "$table" "$table.bak.dbf")"
    case "$state" in
        table*) at_table=$((at_table + 1)) ;;
        backup*) at_backup=$((at_backup + 1)) ;;
        *) echo "kill $i: table and backup both incomplete" >&2; exit 1 ;;
    esac
done

# A last run, not killed: it works, and leaves nothing behind.
state="$("$py" "$dir/check.py" check "$table" "$table.bak.dbf")"
if [[ "$state" == *" X" ]]; then op=(--drop X); else op=(--add X:C:5); fi
"$qzdbf" alter "$table" "${op[@]}" >/dev/null
state="$("$py" "$dir/check.py" check "$table" "$table.bak.dbf")"
[[ "$state" == table* ]] || { echo "the last run did not leave a whole table" >&2; exit 1; }
left="$(find "$dir" -name 'T.dbf.*' | wc -l)"
echo "$kills kills: whole table at its path after $at_table, only the backup whole after" \
     "$at_backup; $finished runs ended before their kill; after a last run $left files" \
     "besides the table"
[[ "$left" == 0 ]]
