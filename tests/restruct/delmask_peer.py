"""dbfread as the peer reader of record deletion by mask.

  delmask_peer.py compare LIST
      LIST has one line per table: MODE, the table before, the table after,
      tab-separated. MODE "thirds": every physical record of the table
      before whose index leaves 2 when divided by 3 is gone, the deletion
      flags of the others are dropped. MODE "pack": the records dbfread reads
      from the table before (the live ones) are exactly those of the table
      after. Fields of the types C, N, F, L, D, I are compared as dbfread
      parses them, by name (F is written with the field's decimals, so
      it is not compared); other types are not compared. Prints
        OK <path> <records> <cells>
        SKIP <path> <reason>            dbfread cannot read the table before
        AFTER <path> <reason> <types>   dbfread cannot read the table after
        DIFF <path> <record> <field> <before> <after>
      and exits with 1 when any table differs.

Run with the system's python3 (/usr/bin/python3), which has dbfread.
"""
import os
import shutil
import sys
import tempfile

from dbfread import DBF

COMPARED = set("CNLDI")


def open_table(path, encoding):
    return DBF(path, encoding=encoding, ignore_missing_memofile=True, char_decode_errors="replace",
               recfactory=lambda items: [v for _, v in items])


def all_records(path, encoding):
    """Every physical record, live or deleted, in file order: the flags of a
    copy are cleared and dbfread reads that."""
    t = open_table(path, encoding)
    hdr = t.header
    with open(path, "rb") as f:
        data = bytearray(f.read())
    held = (len(data) - hdr.headerlen) // hdr.recordlen if hdr.recordlen else 0
    for r in range(min(hdr.numrecords, max(held, 0))):
        at = hdr.headerlen + r * hdr.recordlen
        if at < len(data) and data[at:at + 1] == b"*":
            data[at] = 0x20
    fd, tmp = tempfile.mkstemp(suffix=".dbf")
    os.close(fd)
    try:
        with open(tmp, "wb") as f:
            f.write(data)
        return [f.name for f in t.fields], [f.type for f in t.fields], list(open_table(tmp, encoding))
    finally:
        os.remove(tmp)


def norm(ftype, value):
    if ftype == "C" and isinstance(value, str):
        return value.strip(" \x00")
    if ftype in "NF" and value is not None:
        return float(value)
    return value


def same(ftype, a, b):
    if ftype in "NF" and a is not None and b is not None:
        return a == b or abs(a - b) <= 1e-15 * max(abs(a), abs(b))
    return a == b


def compare(mode, before, after):
    try:
        encoding = open_table(before, None).encoding
        if mode == "thirds":
            names, types, recs = all_records(before, encoding)
            want = [r for i, r in enumerate(recs) if i % 3 != 2]
        else:
            t = open_table(before, encoding)
            names, types = [f.name for f in t.fields], [f.type for f in t.fields]
            want = list(t)
    except Exception as e:  # dbfread cannot read the table before
        print("SKIP %s %s" % (before, type(e).__name__))
        return True
    try:
        got_t = open_table(after, encoding)
        got_names = [f.name for f in got_t.fields]
        got = list(got_t)
    except Exception as e:
        # The copy is a dBASE III table: a B field there is a memo reference
        # to dbfread, so a table with doubles in B fields no longer reads.
        types_after = "".join(sorted(set(f.type for f in DBF(after, load=False, ignore_missing_memofile=True).fields)))
        print("AFTER %s %s %s" % (before, type(e).__name__, types_after))
        return True
    if len(got) != len(want):
        print("DIFF %s count - %d %d" % (before, len(want), len(got)))
        return False
    cells = 0
    # The copy keeps the fields in their order (names may repeat).
    if len(got_names) != len(names):
        print("DIFF %s fields - %d %d" % (before, len(names), len(got_names)))
        return False
    for i, (w, g) in enumerate(zip(want, got)):
        for k, (name, ftype) in enumerate(zip(names, types)):
            if ftype not in COMPARED:
                continue
            a, b = norm(ftype, w[k]), norm(ftype, g[k])
            if not same(ftype, a, b):
                print("DIFF %s %d %s %r %r" % (before, i, name, a, b))
                return False
            cells += 1
    print("OK %s %d %d" % (before, len(got), cells))
    return True


def main():
    if len(sys.argv) != 3 or sys.argv[1] != "compare":
        print(__doc__)
        return 2
    ok = True
    with open(sys.argv[2], encoding="utf-8") as f:
        for line in f:
            mode, before, after = line.rstrip("\n").split("\t")
            ok = compare(mode, before, after) and ok
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
