#!/usr/bin/python3
"""Tables written through qz_dbf_set_value, read back by dbfread and GDAL.

Usage: peers_read_back.py EXPECTED.json

EXPECTED.json lists tables: {"path", "dbt4", "null_flags", "fields":
[[name, type]], "records": [[[kind, i, d, text], ...]]}, each cell the typed
value written (kinds as in Tqz_dbf_value). Prints per reader, table and
field type the cells read back equal; exits 1 when any cell differs.
"""
import collections
import datetime
import decimal
import json
import sys

import dbfread
try:
    from osgeo import gdal
    gdal.UseExceptions()
except ImportError:
    gdal = None


def expected(ftype, kind, i, d, text):
    if kind == 0:
        return None
    if kind in (1, 2):
        return bool(i) if kind == 1 else i
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


def gdal_value(feat, i, ftype):
    if not feat.IsFieldSetAndNotNull(i):
        return None
    if ftype == "L":
        return feat.GetFieldAsString(i).upper() in ("T", "Y", "1", "TRUE")
    if ftype == "D":
        return datetime.date(*feat.GetFieldAsDateTime(i)[:3])
    return feat.GetFieldAsString(i) if ftype == "C" else feat.GetFieldAsDouble(i)


stats = collections.defaultdict(lambda: [0, 0])
bad = []
for t in json.load(open(sys.argv[1])):
    got = {"dbfread": list(dbfread.DBF(t["path"], encoding="cp1252", char_decode_errors="strict",
                                       recfactory=lambda items: [v for _, v in items]))}
    if gdal:  # GDAL's dBASE reader knows the types C, N, F, L and D only
        ds = gdal.OpenEx(t["path"], gdal.OF_VECTOR)  # kept: its layer dies with it
        layer = ds.GetLayer(0)
        names = [layer.GetLayerDefn().GetFieldDefn(i).GetName() for i in range(layer.GetLayerDefn().GetFieldCount())]
        got["gdal"] = [[gdal_value(feat, names.index(n), ty) if ty in "CNFLD" and n in names else "skip"
                        for n, ty in t["fields"]] for feat in layer]
    for reader, rows in got.items():
        for r, cells in enumerate(t["records"]):
            for f, ((name, ftype), cell) in enumerate(zip(t["fields"], cells)):
                want, value = expected(ftype, *cell), rows[r][f]
                if value == "skip" or (reader == "dbfread" and want is None and t["null_flags"] and ftype not in "NFDLT"):
                    continue  # dbfread does not read null flags: only blanks read as null
                if reader == "gdal" and ftype == "C" and isinstance(want, str):
                    want = want.strip()  # GDAL trims text fields at both ends
                if ftype == "M" and t["dbt4"] and isinstance(value, str) and isinstance(want, str) \
                        and len(value) == len(want) + 8:
                    # dbfread counts the 8-byte block header as memo text: it reads
                    # 8 bytes past the memo (padding, or the next memo's mark)
                    value = value[:-8]
                s = stats[(reader, t["path"].rsplit("/", 1)[-1], ftype)]
                s[0] += 1
                if same(value, want, ftype):
                    s[1] += 1
                else:
                    bad.append((reader, t["path"], name, r, repr(value), repr(want)))
print("%-8s %-10s %-4s %6s %6s" % ("reader", "table", "type", "cells", "equal"))
for (reader, table, ftype), (n, e) in sorted(stats.items()):
    print("%-8s %-10s %-4s %6d %6d" % (reader, table, ftype, n, e))
for b in bad[:30]:
    print("DIFFERENT", *b)
sys.exit(1 if bad else 0)
