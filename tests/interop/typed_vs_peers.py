#!/usr/bin/python3
# Every corpus table read by this library against python3-dbfread and GDAL.
#
# Usage: typed_vs_peers.py LIBRARY CORPUS_DIR
#
# Prints four tables and exits 1 when a difference is ours:
#  - the encoding chosen (qz_dbf_detect_encoding) against dbfread's, every
#    difference put down to a source dbfread does not read;
#  - typed cells (qz_dbf_get_column_values of a table opened with
#    qz_dbf_open_ex, which chooses the encoding) against dbfread's values
#    read in that encoding, live records paired in order; every difference
#    put down to the peer, the table or us;
#  - the classic getters (qz_dbf_get_str, _int, _dbl, _bool of the table
#    opened with qz_dbf_open, its flags' encoding) on the cells equal to
#    dbfread's: they must read the same value (C text where both decode alike);
#  - GDAL's record counts and text cells against ours.
import codecs
import collections
import ctypes
import datetime
import math
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import peers  # noqa: E402

lib = peers.load(sys.argv[1])
corpus = sys.argv[2]
WS = " \t\n\r\v\f"


def canonical(name):
    try:
        return codecs.lookup(name).name
    except LookupError:
        return name.lower()


def typed_equal(o, th):
    if type(o) is bool:
        return o is th
    if o == th:
        return True
    if isinstance(th, float) and isinstance(o, (float, int)):
        return abs(o - th) <= 1e-9 * max(1.0, abs(th))
    both = isinstance(th, datetime.datetime) and isinstance(o, datetime.datetime)
    return both and abs((o - th).total_seconds()) < 0.001


def null_flags(t, header):
    return any(f.type == "0" for f in t.fields) and header[0] in (0x30, 0x31, 0x32)


def whose(fd, o, th, t, header):
    """Why a typed cell differs: ("peer"|"table"|"ours", reason)."""
    prefix = isinstance(o, str) and isinstance(th, str) and th.startswith(o)
    blank = o is None and th in ("", b"")
    if 1 + sum(f.length for f in t.fields) != (header[10] | header[11] << 8):
        return "table", "header record length disagrees with the fields (we follow the header)"
    if fd.type == "V" and prefix:
        return "peer", "varchar length flag (_NullFlags) ignored: padding and length byte kept"
    if fd.type == "M" and header[0] in (0x8B, 0xCB, 0x8E) and prefix:
        return "peer", "dBASE IV memo read past the length its block header gives"
    if blank and null_flags(t, header):
        return "peer", "Visual FoxPro null flag (_NullFlags) ignored: null read as its blanks"
    if blank and fd.type in "MBGP":
        return "peer", "memo block past the end of the memo file read as empty (ours: no memo)"
    return "ours", "unexplained"


def classic_differs(h, f, r, kind, o):
    """Whether the classic getters read the cell otherwise than its typed value `o`."""
    ok = ctypes.c_bool()
    text = lib.qz_dbf_get_str(h, f, r, ctypes.byref(ok)).decode("utf-8", "replace").strip(WS)
    digits = text.strip("*").strip(WS)
    typed = {"L": lib.qz_dbf_get_bool, "I": lib.qz_dbf_get_int, "B": lib.qz_dbf_get_dbl}
    v = typed[kind](h, f, r, ctypes.byref(ok)) if kind in typed else None
    if kind == "C":
        return text != (o or "").strip(WS)
    if kind in "NF" and o is None:
        return digits != ""
    if kind == "N":
        try:
            return not typed_equal(float(digits.replace(",", ".", 1)), float(o))
        except ValueError:
            return True
    if kind == "F":  # shown as printf's %19.11g shows the number
        return text != "%.11g" % o
    if kind == "L":
        return (v if ok.value else None) is not o
    if kind == "D":
        return text != (o.strftime("%Y%m%d") if hasattr(o, "year") else o or "") and \
            (o is not None or text.strip("0") != "")
    if kind == "I":
        return not ok.value or v != o or text != str(o)
    same = ok.value and (v == o or (math.isnan(v) and math.isnan(o)))
    return not same or text != "%.11g" % o  # B: a double


encodings, failures = collections.Counter(), []
stats, reasons = collections.defaultdict(lambda: [0, 0]), collections.Counter()
examples = collections.defaultdict(list)
classic_cells, classic_diffs = 0, []
gdal_stats, gdal_diffs = collections.Counter(), collections.defaultdict(list)
for path in peers.tables(corpus):
    rel = os.path.relpath(path, corpus)
    with open(path, "rb") as fh:
        header = fh.read(32).ljust(32, b"\0")
    name = ctypes.create_string_buffer(64)
    source = lib.qz_dbf_detect_encoding(path.encode(), None, 0, name, 64)
    if source == 0 and os.path.getsize(path) >= 32:
        failures.append((rel, "no encoding for a table with a header"))
    try:
        ours, theirs = canonical(name.value.decode()), canonical(peers.dbfread.DBF(path).encoding)
    except Exception:  # dbfread does not read the table
        ours = theirs = None
    # A difference must come from a source dbfread does not read.
    why = "agree" if ours == theirs else "from the .cpg (dbfread reads no .cpg)" if source == 2 \
        else "no driver byte: ours the classic default, dbfread ascii" \
        if source == 4 and theirs == "ascii" else "ours %s (source %d), dbfread %s" % (
            ours, source, theirs)
    encodings[why] += ours is not None
    if ours is not None and why.startswith("ours"):
        failures.append((rel, "encoding " + why))
    c = lib.qz_dbf_open(path.encode(), True, False)
    failures += [(rel, "dbfread reads it, the library does not open it")] if theirs and not c else []
    h = lib.qz_dbf_open_ex(path.encode(), 1)
    if not h:
        lib.qz_dbf_close(c)
        continue
    lib.qz_dbf_get_encoding(h, name, 64)
    enc = name.value.decode()
    try:
        t = peers.read(path, enc.lower(), char_decode_errors="strict",
                       ignore_missing_memofile=False)
    except Exception:
        t = None
    nr, nf = lib.qz_dbf_get_nr(h), lib.qz_dbf_get_nf(h)
    if t is None or nf != len(t.fields):
        lib.qz_dbf_close(h)
        lib.qz_dbf_close(c)
        continue
    live = [r for r in range(nr) if lib.qz_dbf_get_deleted(h, r) == 0]
    # The classic getters of the table opened as before typed values (its
    # flags' encoding) read as the typed ones: text where both decode alike,
    # up to a zero byte; not where a C field's length takes a high byte (the
    # classic length is its low byte alone).
    wide = any(lib.qz_dbf_get_field_width(h, f) > 255 for f in range(nf))
    flags = "utf-8" if lib.qz_dbf_get_utf8_flag(c) else \
        "cp866" if lib.qz_dbf_get_dos_flag(c) else "cp1251"
    classic = set() if wide else {
        f for f, fd in enumerate(t.fields) if fd.type in "NFLDI" or
        (fd.type == "B" and header[0] in (0x30, 0x31, 0x32)) or
        (fd.type == "C" and canonical(flags) == canonical(enc))}
    columns = []
    for f in range(nf):
        values = (peers.Value * max(nr, 1))()
        got = lib.qz_dbf_get_column_values(h, f, 0, nr, values)
        columns.append([peers.value(values[r]) for r in range(max(got, 0))])
    for row, rec in zip(live, t.records):
        for f, fd in enumerate(t.fields):
            o = columns[f][row] if row < len(columns[f]) else "<fail>"
            same = typed_equal(o, rec[f])
            if f in classic and same and not (fd.type == "C" and "\0" in (o or "").rstrip("\0 ")):
                classic_cells += 1
                if classic_differs(c, f, row, fd.type, o):
                    classic_diffs.append((rel, row, fd.name, repr(o)[:30]))
            stats[fd.type][0] += 1
            stats[fd.type][1] += same
            if not same:
                who, why = whose(fd, o, rec[f], t, header)
                reasons[(fd.type, who, why)] += 1
                if len(examples[(who, why)]) < (12 if who == "ours" else 3):
                    examples[(who, why)].append((rel, fd.name, row, repr(o)[:40],
                                                 repr(rec[f])[:40]))
    # GDAL: the record count and every text cell of the live records, decoded
    # as we decode them (the encoding choice is compared with dbfread's above).
    try:  # the layer lives as long as its data set
        ds = peers.gdal.OpenEx(path, peers.gdal.OF_VECTOR, open_options=["ENCODING=" + enc])
        layer = ds.GetLayer(0)
    except Exception:  # no GDAL, or a table GDAL does not open
        layer = None
    if layer is not None:
        gdal_stats["tables"] += 1
        features = {feat.GetFID(): feat for feat in layer}
        gdal_stats["counts equal"] += len(features) == len(live)
        if len(features) != len(live):
            gdal_diffs["record count"].append((rel, len(live), len(features)))
        for f, fd in enumerate(t.fields):
            if fd.type != "C" or f >= layer.GetLayerDefn().GetFieldCount():
                continue
            for row in (r for r in live if r in features and r < len(columns[f])):
                o, feat = columns[f][row], features[row]
                g = feat.GetFieldAsString(f) if feat.IsFieldSet(f) else ""
                gdal_stats["text cells"] += 1
                if o == g or (isinstance(o, str) and o.strip() == g.strip()):
                    gdal_stats["text equal"] += 1
                    continue
                kind = "null flag ignored by GDAL (null read as blanks)" if o is None and \
                    g == "" and null_flags(t, header) else \
                    "GDAL reads a C field over 255 by its length byte alone: the fields " \
                    "after it shift" if wide and isinstance(o, str) else \
                    "text cut by GDAL" if isinstance(o, str) and o.strip().startswith(g.strip()) \
                    and len(g.encode("utf-8", "surrogateescape")) < len(o.encode("utf-8")) \
                    else "text"
                gdal_diffs[kind].append((rel, fd.name, row, repr(o)[:30], repr(g)[:30]))
    lib.qz_dbf_close(h)
    lib.qz_dbf_close(c)

print("Encoding against dbfread: %d tables agree, %d differ" % (
    encodings["agree"], sum(encodings.values()) - encodings["agree"]))
for why, count in encodings.most_common():
    if why != "agree":
        print("  %3d tables: %s" % (count, why))
print("\nTyped cells against dbfread")
line = "%-5s %9d %9d %7d %7d %7d"
print(line.replace("d", "s") % ("type", "compared", "equal", "peer", "table", "ours"))
by_who = collections.Counter()
for k, (n, e) in sorted(stats.items()):
    who = collections.Counter()
    for (ft, w, _), c in reasons.items():
        who[w] += c if ft == k else 0
    by_who.update(who)
    print(line % (k, n, e, who["peer"], who["table"], who["ours"]))
n, e = (sum(s[i] for s in stats.values()) for i in (0, 1))
print(line % ("all", n, e, by_who["peer"], by_who["table"], by_who["ours"]) +
      "  (%.3f%% equal)" % (100.0 * e / max(1, n)))
for (who, why), ex in sorted(examples.items()):
    print("  %s, %d cells: %s" % (who, sum(c for (_, w, y), c in reasons.items()
                                           if (w, y) == (who, why)), why))
    for e in ex:
        print("     %s %s record %d: ours %s, dbfread %s" % e)
print("\nClassic getters (qz_dbf_get_str, _int, _dbl, _bool) on the cells equal above: "
      "%d compared, %d differ" % (classic_cells, len(classic_diffs)))
print("\nGDAL: %d tables, record counts equal in %d; text cells %d, equal %d" % (
    gdal_stats["tables"], gdal_stats["counts equal"], gdal_stats["text cells"],
    gdal_stats["text equal"]))
for kind, items in gdal_diffs.items():
    print("  %s differences: %d" % (kind, len(items)))
    for item in items[:3]:
        print("     " + " ".join(str(x) for x in item))
for item in failures + classic_diffs[:30]:
    print("DIFFERENT", *item)
sys.exit(1 if by_who["ours"] or failures or classic_diffs else 0)
