#!/usr/bin/python3
"""Typed cell values of every corpus table against python3-dbfread and GDAL.

Usage: typed_vs_peers.py LIBRARY CORPUS_DIR

LIBRARY is libqzk_file_dbf.so (a sanitizer build needs its runtimes in
LD_PRELOAD). Each table is opened read-only through the library, which
chooses its encoding; dbfread reads it with that encoding (load=True,
char_decode_errors='strict'; tables it refuses are left out), GDAL through
its own detection. Live records are paired in order.

Prints three tables: typed cells by field type against dbfread (compared,
equal, differences by whose they are), the encoding chosen against
dbfread's, and record counts and text cells against GDAL. Every difference
is put down to the peer, to the table or to us; exits 1 when a typed
difference is ours.
"""
import codecs
import collections
import ctypes
import datetime
import decimal
import os
import sys

try:
    import dbfread
except ImportError:
    print("python3-dbfread is not installed")
    sys.exit(77)
try:
    from osgeo import gdal, ogr
    gdal.UseExceptions()
except ImportError:
    ogr = None


class Value(ctypes.Structure):
    _fields_ = [("kind", ctypes.c_int), ("i", ctypes.c_longlong), ("d", ctypes.c_double),
                ("text", ctypes.c_void_p), ("length", ctypes.c_size_t)]


lib = ctypes.CDLL(sys.argv[1])
lib.qz_dbf_open_ex.restype = ctypes.c_void_p
lib.qz_dbf_open_ex.argtypes = [ctypes.c_char_p, ctypes.c_uint]
lib.qz_dbf_get_column_values.argtypes = [ctypes.c_void_p, ctypes.c_uint, ctypes.c_uint,
                                         ctypes.c_uint, ctypes.POINTER(Value)]
lib.qz_dbf_get_column_values.restype = ctypes.c_long
lib.qz_dbf_get_deleted.argtypes = [ctypes.c_void_p, ctypes.c_uint]
lib.qz_dbf_close.argtypes = [ctypes.c_void_p]
lib.qz_dbf_get_encoding.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_size_t]
lib.qz_dbf_get_nf.argtypes = [ctypes.c_void_p]
lib.qz_dbf_get_nf.restype = ctypes.c_uint
lib.qz_dbf_get_nr.argtypes = [ctypes.c_void_p]
lib.qz_dbf_get_nr.restype = ctypes.c_uint
corpus = sys.argv[2]


def ours_value(v):
    k = v.kind
    raw = ctypes.string_at(v.text, v.length) if v.length else b""
    if k == 0:
        return None
    if k == 1:
        return bool(v.i)
    if k == 2:
        return v.i
    if k == 3:
        return v.d
    if k == 4:
        return decimal.Decimal(raw.decode())
    if k == 5:
        return datetime.date(v.i // 10000, v.i // 100 % 100, v.i % 100)
    if k == 6:
        return datetime.datetime(1970, 1, 1) + datetime.timedelta(milliseconds=v.i)
    if k == 7:
        return raw.decode("utf-8", "replace")
    return raw


def equal(o, th):
    if o == th and type(o) is not bool or (type(o) is bool and th is o):
        return True
    if isinstance(th, float) and isinstance(o, (float, int)) and not isinstance(o, bool):
        return abs(o - th) <= 1e-9 * max(1.0, abs(th))
    if isinstance(th, int) and not isinstance(th, bool) and isinstance(o, float):
        return o == th
    if isinstance(th, datetime.datetime) and isinstance(o, datetime.datetime):
        return abs((o - th).total_seconds()) < 0.001
    return False


def header_of(path):
    with open(path, "rb") as fh:
        return fh.read(32)


def wide_character_fields(t, header):
    """C fields with a length high byte (in the decimals byte of their
    32-byte descriptor) that the header's record length confirms. Read from
    the descriptors themselves: dbfread has already folded the high byte
    into its field lengths."""
    record_length = header[10] | header[11] << 8
    if header[0] in (0x30, 0x31, 0x32) or header[0] in (0x04, 0x8C):
        return False
    wide, high = 0, False
    with open(t.filename, "rb") as f:
        area = f.read(header[8] | header[9] << 8)
    for at in range(32, len(area) - 31, 32):
        if area[at] == 0x0D:
            break
        length, decimals = area[at + 16], area[at + 17]
        wide += length
        if chr(area[at + 11]) == "C" and decimals:
            wide += 256 * decimals
            high = True
    return high and wide + 1 == record_length


def whose(fd, o, th, t, header):
    """Why a typed cell differs: ("peer"|"table"|"ours", reason)."""
    version = header[0]
    record_length = header[10] | header[11] << 8
    if 1 + sum(f.length for f in t.fields) != record_length:
        return "table", "header record length disagrees with the fields (we follow the header)"
    if fd.type == "V" and isinstance(o, str) and isinstance(th, str) and th.startswith(o):
        return "peer", "varchar length flag (_NullFlags) ignored: padding and length byte kept"
    if fd.type == "M" and version in (0x8B, 0xCB, 0x8E) and isinstance(o, str) \
            and isinstance(th, str) and th.startswith(o):
        return "peer", "dBASE IV memo read past the length its block header gives"
    if o is None and th in ("", b"") and has_null_flags(t, header):
        return "peer", "Visual FoxPro null flag (_NullFlags) ignored: null read as its blanks"
    if o is None and th in ("", b"") and fd.type in "MBGP":
        return "peer", "memo block past the end of the memo file read as empty (ours: no memo)"
    return "ours", "unexplained"


def has_null_flags(t, header):
    return any(f.type == "0" for f in t.fields) and header[0] in (0x30, 0x31, 0x32)


def canonical(name):
    try:
        return codecs.lookup(name).name
    except LookupError:
        return name.lower()


stats = collections.defaultdict(lambda: [0, 0])
reasons = collections.Counter()
examples = collections.defaultdict(list)
encodings = collections.Counter()
encoding_diffs = []
gdal_stats = collections.Counter()
gdal_diffs = collections.defaultdict(list)
tables = []
for root, _, files in os.walk(corpus):
    tables += [os.path.join(root, f) for f in files if f.lower().endswith(".dbf")]
for path in sorted(tables):
    rel = os.path.relpath(path, corpus)
    h = lib.qz_dbf_open_ex(path.encode(), 1)
    if not h:
        continue
    name = ctypes.create_string_buffer(64)
    source = lib.qz_dbf_get_encoding(h, name, 64)
    enc = name.value.decode()
    try:
        # Records as lists: a table may name two fields alike.
        t = dbfread.DBF(path, encoding=enc.lower(), load=True, char_decode_errors="strict",
                        ignore_missing_memofile=False,
                        recfactory=lambda items: [v for _, v in items])
        records = t.records
        their_encoding = dbfread.DBF(path, load=False).encoding
    except Exception:
        lib.qz_dbf_close(h)
        continue
    header = header_of(path)
    if canonical(enc) == canonical(their_encoding):
        encodings["agree"] += 1
    else:
        encodings["differ"] += 1
        why = {2: "from the .cpg (dbfread reads no .cpg)",
               3: "language driver byte 0x%02X" % header[29],
               4: "no driver byte: ours the classic default, dbfread ascii"}.get(source, "?")
        encoding_diffs.append((rel, enc, their_encoding, why))
    nr = lib.qz_dbf_get_nr(h)
    nf = lib.qz_dbf_get_nf(h)
    if nf != len(t.fields):
        lib.qz_dbf_close(h)
        continue
    live = [r for r in range(nr) if lib.qz_dbf_get_deleted(h, r) == 0]
    columns = []
    for f in range(nf):
        values = (Value * max(nr, 1))()
        got = lib.qz_dbf_get_column_values(h, f, 0, nr, values)
        columns.append([ours_value(values[r]) for r in range(got)] if got >= 0 else [])
    for row, rec in zip(live, records):
        for f, fd in enumerate(t.fields):
            o = columns[f][row] if row < len(columns[f]) else "<fail>"
            th = rec[f]
            same = equal(o, th)
            s = stats[fd.type]
            s[0] += 1
            s[1] += same
            if not same:
                who, why = whose(fd, o, th, t, header)
                reasons[(fd.type, who, why)] += 1
                if len(examples[(who, why)]) < (12 if who == "ours" else 3):
                    examples[(who, why)].append((rel, fd.name, row, repr(o)[:40], repr(th)[:40]))
    # GDAL: the record count and every text cell of the live records.
    if ogr is not None:
        try:
            # Text decoded as we decode it, so that the cells are compared,
            # not the encoding choice (compared with dbfread's above).
            ds = gdal.OpenEx(path, gdal.OF_VECTOR, open_options=["ENCODING=" + enc])
            layer = ds.GetLayer(0) if ds else None
        except Exception:
            layer = None
        if layer is not None:
            gdal_stats["tables"] += 1
            features = {feat.GetFID(): feat for feat in layer}
            if len(features) == len(live):
                gdal_stats["counts equal"] += 1
            else:
                gdal_diffs["record count"].append((rel, len(live), len(features)))
            defn = layer.GetLayerDefn()
            for f, fd in enumerate(t.fields):
                if fd.type != "C" or f >= defn.GetFieldCount():
                    continue
                for row in live:
                    feat = features.get(row)
                    if feat is None or row >= len(columns[f]):
                        continue
                    o = columns[f][row]
                    g = feat.GetFieldAsString(f) if feat.IsFieldSet(f) else ""
                    gdal_stats["text cells"] += 1
                    if o == g or (isinstance(o, str) and o.strip() == g.strip()):
                        gdal_stats["text equal"] += 1
                    elif o is None and g == "" and has_null_flags(t, header):
                        gdal_diffs["null flag ignored by GDAL (null read as blanks)"].append(
                            (rel, fd.name, row, repr(o)[:30], repr(g)[:30]))
                    elif wide_character_fields(t, header) and isinstance(o, str):
                        gdal_diffs["GDAL reads a C field over 255 by its length byte alone: the fields after it shift"].append(
                            (rel, fd.name, row, repr(o)[:30], repr(g)[:30]))
                    elif isinstance(o, str) and o.lstrip() == g.lstrip() + o[len(g.lstrip()) + len(o) - len(o.lstrip()):] and len(g.encode("utf-8", "surrogateescape")) < len(o.encode("utf-8")):
                        gdal_diffs["text cut by GDAL"].append((rel, fd.name, row, repr(o)[:30], repr(g)[:30]))
                    else:
                        gdal_diffs["text"].append((rel, fd.name, row, repr(o)[:30], repr(g)[:30]))
    lib.qz_dbf_close(h)

print("Typed cells against dbfread")
print("%-5s %9s %9s %7s %7s %7s" % ("type", "compared", "equal", "peer", "table", "ours"))
total = [0, 0]
by_who = collections.Counter()
for k, (n, e) in sorted(stats.items()):
    who = collections.Counter()
    for (ft, w, _), c in reasons.items():
        if ft == k:
            who[w] += c
    by_who.update(who)
    print("%-5s %9d %9d %7d %7d %7d" % (k, n, e, who["peer"], who["table"], who["ours"]))
    total[0] += n
    total[1] += e
print("%-5s %9d %9d %7d %7d %7d  (%.3f%% equal)" % ("all", total[0], total[1], by_who["peer"],
                                                     by_who["table"], by_who["ours"],
                                                     100.0 * total[1] / max(1, total[0])))
for (who, why), ex in sorted(examples.items()):
    count = sum(c for (_, w, y), c in reasons.items() if (w, y) == (who, why))
    print("  %s, %d cells: %s" % (who, count, why))
    for e in ex:
        print("     %s %s record %d: ours %s, dbfread %s" % e)
print()
print("Encoding against dbfread: %d tables agree, %d differ" %
      (encodings["agree"], encodings["differ"]))
why_count = collections.Counter(why if not why.startswith("language") else "language driver byte"
                                for _, _, _, why in encoding_diffs)
for why, count in why_count.most_common():
    print("  %3d tables: %s" % (count, why))
for rel, ours, theirs, why in encoding_diffs:
    if not why.startswith("no driver byte"):
        print("     %-50s ours %-12s dbfread %-8s %s" % (rel, ours, theirs, why))
if ogr is not None:
    print()
    print("GDAL: %d tables, record counts equal in %d; text cells %d, equal %d" %
          (gdal_stats["tables"], gdal_stats["counts equal"], gdal_stats["text cells"],
           gdal_stats["text equal"]))
    for kind, items in gdal_diffs.items():
        print("  %s differences: %d" % (kind, len(items)))
        for item in items[:3]:
            print("     " + " ".join(str(x) for x in item))
sys.exit(1 if by_who["ours"] else 0)
