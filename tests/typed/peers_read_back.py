#!/usr/bin/python3
# Tables written through qz_dbf_set_value, read back by dbfread and GDAL.
#
# Usage: peers_read_back.py EXPECTED.tsv
#
# Each line of EXPECTED.tsv is one cell: table path, field name, field type,
# record, then the typed value written (kind as in Tqz_dbf_value, integer,
# double, text in hexadecimal). Prints how many cells each reader compared by
# field type and the cells that differ; exits 1 when any cell differs.
import collections
import datetime
import decimal
import sys

import dbfread
try:
    from osgeo import gdal
    gdal.UseExceptions()
except ImportError:
    gdal = None


def expected(ftype, kind, i, d, text):
    if kind in (0, 1, 2):
        return None if kind == 0 else bool(i) if kind == 1 else i
    if kind == 4:
        return decimal.Decimal(text) if ftype == "Y" else float(text)
    if kind == 5:
        return datetime.date(i // 10000, i // 100 % 100, i % 100)
    if kind == 6:
        return datetime.datetime(1, 1, 1) + datetime.timedelta(milliseconds=i + 62135596800000)
    return d if kind == 3 else text


def same(a, b, ftype):
    if ftype in "CM" and a in (None, "") and b in (None, ""):
        return True  # an empty text reads as empty or unset
    if isinstance(a, float) or isinstance(b, float):
        return None not in (a, b) and abs(float(a) - float(b)) <= 1e-9 * max(1, abs(float(b)))
    return a == b


def gdal_value(feat, name, ftype):
    i = feat.GetFieldIndex(name)
    if i < 0 or ftype not in "CNFLD":  # GDAL's dBASE reader knows C, N, F, L and D only
        return "skip"
    if not feat.IsFieldSetAndNotNull(i):
        return None
    if ftype == "L":
        return feat.GetFieldAsString(i).upper() in ("T", "Y", "1", "TRUE")
    if ftype == "D":
        return datetime.date(*feat.GetFieldAsDateTime(i)[:3])
    return feat.GetFieldAsString(i) if ftype == "C" else feat.GetFieldAsDouble(i)


tables = collections.defaultdict(list)
for line in open(sys.argv[1]):
    path, name, ftype, r, kind, i, d, text = line.rstrip("\n").split("\t")
    text = bytes.fromhex(text).decode("ascii")
    tables[path].append((name, ftype, int(r), expected(ftype, int(kind), int(i), float(d), text)))
checked, bad = collections.Counter(), []
for path, cells in tables.items():
    version = open(path, "rb").read(1)[0]
    got = {"dbfread": list(dbfread.DBF(path, encoding="cp1252", char_decode_errors="strict"))}
    if gdal:
        ds = gdal.OpenEx(path, gdal.OF_VECTOR)  # kept: its layer dies with it
        got["gdal"] = [{n: gdal_value(f, n, t) for n, t, _, _ in cells} for f in ds.GetLayer(0)]
    for reader, rows in got.items():
        for name, ftype, r, want in cells:
            value = rows[r][name]
            if value == "skip" or (reader == "dbfread" and want is None and version == 0x30
                                   and ftype not in "NFDLT"):
                continue  # dbfread does not read null flags: only blanks read as null
            if reader == "gdal" and ftype == "C" and isinstance(want, str):
                want = want.strip()  # GDAL trims text fields at both ends
            if ftype == "M" and version == 0x8B and isinstance(value, str) and \
                    isinstance(want, str) and len(value) == len(want) + 8:
                # dbfread counts the 8-byte block header as memo text: it reads
                # 8 bytes past the memo (padding, or the next memo's mark)
                value = value[:-8]
            checked[reader + " " + ftype] += 1
            if not same(value, want, ftype):
                bad.append((reader, path, name, r, repr(value), repr(want)))
print("cells compared:", ", ".join("%s %d" % kv for kv in sorted(checked.items())))
for b in bad[:30]:
    print("DIFFERENT", *b)
sys.exit(1 if bad else 0)
