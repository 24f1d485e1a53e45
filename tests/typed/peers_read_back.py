#!/usr/bin/python3
"""Tables written through qz_dbf_set_value, read back by dbfread and GDAL.

Usage: peers_read_back.py EXPECTED.json

EXPECTED.json lists tables: {"path", "encoding", "fields": [[name, type]],
"records": [[value, ...]]}, values as JSON (dates "YYYY-MM-DD", datetimes
"YYYY-MM-DDTHH:MM:SS.fff", currency as a text, bytes as a list of ints,
null as null). Prints, per dialect and field type, the cells each reader
gave back equal; exits 1 when any cell differs.
"""
import collections
import datetime
import decimal
import json
import sys

import dbfread
try:
    from osgeo import gdal, ogr
    gdal.UseExceptions()
except ImportError:
    ogr = None


def expected_value(ftype, v):
    if v is None:
        return None
    if ftype == "D":
        return datetime.date.fromisoformat(v)
    if ftype == "T":
        return datetime.datetime.fromisoformat(v)
    if ftype == "Y":
        return decimal.Decimal(v)
    if isinstance(v, list):
        return bytes(v)
    return v


def same(a, b):
    if isinstance(a, float) or isinstance(b, float):
        return a is not None and b is not None and abs(float(a) - float(b)) <= 1e-9 * max(1, abs(float(b)))
    if isinstance(a, datetime.datetime) and isinstance(b, datetime.datetime):
        return abs((a - b).total_seconds()) < 0.001
    return a == b


def gdal_value(feat, i, ftype):
    if not feat.IsFieldSetAndNotNull(i):
        return None
    if ftype in "CM":
        return feat.GetFieldAsString(i)
    if ftype == "L":
        return feat.GetFieldAsString(i).upper() in ("T", "Y", "1", "TRUE")
    if ftype == "D":
        y, m, d = feat.GetFieldAsDateTime(i)[:3]
        return datetime.date(y, m, d)
    if ftype in "NFBI":
        return feat.GetFieldAsDouble(i)
    return None


tables = json.load(open(sys.argv[1]))
stats = collections.defaultdict(lambda: [0, 0])
bad = []
for t in tables:
    dialect = t["dialect"]
    rows = list(dbfread.DBF(t["path"], encoding=t["encoding"], char_decode_errors="strict",
                            recfactory=lambda items: [v for _, v in items]))
    names = [f[0] for f in t["fields"]]
    for r, expected in enumerate(t["records"]):
        for f, (name, ftype) in enumerate(t["fields"]):
            want = expected_value(ftype, expected[f])
            got = rows[r][f]
            if ftype == "M" and t["dbt4"] and isinstance(got, str):
                # dbfread reads a dBASE IV memo's length (which counts the
                # 8-byte block header) as the length after that header:
                # the 8 bytes after the memo (zeros) come along.
                got = got[:-8] if got.endswith("\0" * 8) else got
            if want is None and t.get("null_flags") and ftype not in "NFDLT":
                continue  # dbfread does not read null flags: only blanks read as null
            s = stats[("dbfread", dialect, ftype)]
            s[0] += 1
            if same(got, want):
                s[1] += 1
            else:
                bad.append(("dbfread", t["path"], name, r, repr(got), repr(want)))
    if ogr is None:
        continue
    ds = gdal.OpenEx(t["path"], gdal.OF_VECTOR, open_options=["ENCODING=" + t["encoding"]])
    layer = ds.GetLayer(0)
    defn = layer.GetLayerDefn()
    gdal_names = [defn.GetFieldDefn(i).GetName() for i in range(defn.GetFieldCount())]
    feats = [feat for feat in layer]
    if len(feats) != len(t["records"]):
        bad.append(("gdal", t["path"], "record count", len(feats), len(t["records"]), ""))
        continue
    for r, expected in enumerate(t["records"]):
        for f, (name, ftype) in enumerate(t["fields"]):
            if ftype not in "CNFLD" or name not in gdal_names:
                continue  # GDAL's dBASE reader knows only these types
            want = expected_value(ftype, expected[f])
            got = gdal_value(feats[r], gdal_names.index(name), ftype)
            if ftype == "C" and want in (None, "") and got in (None, ""):
                want = got  # GDAL gives an empty text field as unset
            s = stats[("gdal", dialect, ftype)]
            s[0] += 1
            if same(got, want) or (isinstance(want, str) and got == want.rstrip()):
                s[1] += 1
            else:
                bad.append(("gdal", t["path"], name, r, repr(got), repr(want)))
print("%-8s %-22s %-4s %6s %6s" % ("reader", "dialect", "type", "cells", "equal"))
for (reader, dialect, ftype), (n, e) in sorted(stats.items()):
    print("%-8s %-22s %-4s %6d %6d" % (reader, dialect, ftype, n, e))
for b in bad[:30]:
    print("DIFFERENT", *b)
sys.exit(1 if bad else 0)
