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
#  - the classic getters' text (qz_dbf_get_str, _int, _dbl, _bool of a
#    table opened with qz_dbf_open, its flags' encoding) of every live and
#    deleted record against dbfread's values; tables or cells left out are
#    listed with the reason;
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
REFUSED = object()


class Lenient(peers.FieldParser):
    """dbfread's parser, a cell it refuses read as REFUSED."""

    def parse(self, field, data):
        try:
            return super().parse(field, data)
        except Exception:
            return REFUSED


def canonical(name):
    try:
        return codecs.lookup(name).name
    except LookupError:
        return name.lower()


def encoding_difference(path, ours, source, header):
    """Why our encoding differs from dbfread's: (reason, whether it is ours)."""
    try:
        theirs = peers.dbfread.DBF(path, load=False).encoding
    except Exception:
        return None
    if source == 0:
        return "no encoding found", True
    if canonical(ours) == canonical(theirs):
        return "", False
    if source == 2:
        return "from the .cpg (dbfread reads no .cpg)", False
    if source == 4 and theirs == "ascii":
        return "no driver byte: ours the classic default, dbfread ascii", False
    return "driver 0x%02X: ours %s, dbfread %s" % (header[29], ours, theirs), True


def has_null_flags(t, header):
    return any(f.type == "0" for f in t.fields) and header[0] in (0x30, 0x31, 0x32)


def wide_character_fields(path, header):
    """C fields with a length high byte (in the decimals byte of their 32-byte
    descriptor) that the header's record length confirms."""
    if header[0] in (0x30, 0x31, 0x32, 0x04, 0x8C):
        return False
    with open(path, "rb") as f:
        area = f.read(header[8] | header[9] << 8)
    wide, high = 0, False
    for at in range(32, len(area) - 31, 32):
        if area[at] == 0x0D:
            break
        wide += area[at + 16] + (256 * area[at + 17] if chr(area[at + 11]) == "C" else 0)
        high = high or (chr(area[at + 11]) == "C" and area[at + 17] != 0)
    return high and wide + 1 == (header[10] | header[11] << 8)


def typed_equal(o, th):
    if type(o) is bool:
        return th is o
    if o == th:
        return True
    if isinstance(th, float) and isinstance(o, (float, int)):
        return abs(o - th) <= 1e-9 * max(1.0, abs(th))
    both = isinstance(th, datetime.datetime) and isinstance(o, datetime.datetime)
    return both and abs((o - th).total_seconds()) < 0.001


def whose(fd, o, th, t, header):
    """Why a typed cell differs: ("peer"|"table"|"ours", reason)."""
    prefix = isinstance(o, str) and isinstance(th, str) and th.startswith(o)
    if 1 + sum(f.length for f in t.fields) != (header[10] | header[11] << 8):
        return "table", "header record length disagrees with the fields (we follow the header)"
    if fd.type == "V" and prefix:
        return "peer", "varchar length flag (_NullFlags) ignored: padding and length byte kept"
    if fd.type == "M" and header[0] in (0x8B, 0xCB, 0x8E) and prefix:
        return "peer", "dBASE IV memo read past the length its block header gives"
    if o is None and th in ("", b"") and has_null_flags(t, header):
        return "peer", "Visual FoxPro null flag (_NullFlags) ignored: null read as its blanks"
    if o is None and th in ("", b"") and fd.type in "MBGP":
        return "peer", "memo block past the end of the memo file read as empty (ours: no memo)"
    return "ours", "unexplained"


def text_difference(h, f, r, fd, theirs, version):
    """None when the classic getters read the cell as dbfread does."""
    ok = ctypes.c_bool()
    text = lib.qz_dbf_get_str(h, f, r, ctypes.byref(ok)).decode("utf-8", "replace").strip(WS)
    if fd.type == "C":
        return None if text == theirs.strip(WS) else "text"
    if fd.type in "NF" and theirs is None:
        return None if text.strip("*").strip(WS) == "" else "blank"
    if fd.type == "N":
        try:
            same = float(text.strip("*").strip(WS).replace(",", ".", 1)) == float(theirs)
        except ValueError:
            same = False
        return None if same else "number"
    if fd.type == "F":  # shown as printf's %19.11g shows the number
        return None if text == "%.11g" % theirs else "number"
    if fd.type == "L":
        v = lib.qz_dbf_get_bool(h, f, r, ctypes.byref(ok))
        return None if (v if ok.value else None) == theirs else "logical"
    if fd.type == "D":
        want = theirs.strftime("%Y%m%d") if theirs else ""
        return None if text == want or (not want and text.strip("0") == "") else "date"
    if fd.type == "I":
        v = lib.qz_dbf_get_int(h, f, r, ctypes.byref(ok))
        return None if ok.value and v == theirs and text == str(theirs) else "integer"
    if fd.type == "B":
        v = lib.qz_dbf_get_dbl(h, f, r, ctypes.byref(ok))
        same = ok.value and (v == theirs or (math.isnan(v) and math.isnan(theirs)))
        return None if same and text == "%.11g" % theirs else "double"
    return None


def compare_text(path, rel, counts, listed, diffs):
    """The classic getters against dbfread: every comparable cell."""
    h = lib.qz_dbf_open(path.encode(), True, False)
    enc = "utf-8" if h and lib.qz_dbf_get_utf8_flag(h) else \
        "cp866" if h and lib.qz_dbf_get_dos_flag(h) else "cp1251"
    try:
        t = peers.read(path, enc, ignore_missing_memofile=True, char_decode_errors="ignore",
                       parserclass=Lenient)
    except Exception:
        return lib.qz_dbf_close(h) if h else None
    if not h:
        diffs.append((rel, "dbfread reads it, the library does not open it"))
        return
    counts["tables"] += 1
    nr = lib.qz_dbf_get_nr(h)
    letter = [chr(lib.qz_dbftype2char(k)) if k else "?" for k in
              (lib.qz_dbf_get_field_type(h, f) for f in range(lib.qz_dbf_get_nf(h)))]
    version, recordlen = t.header.dbversion, t.header.recordlen
    why = []
    if [(f.type if f.type in "CNLMDFIBP" else "?", f.length) for f in t.fields] != \
            [(letter[f], lib.qz_dbf_get_field_flen(h, f)) for f in range(len(letter))]:
        why.append("fields differ (a C field over 255 bytes or descriptors past the header)")
    elif 1 + sum(f.length for f in t.fields) != recordlen:
        why.append("dbfread steps by the field lengths, not the header's record length")
    if not why:
        # dbfread yields the records flagged ' ' (live), then those flagged '*'.
        with open(path, "rb") as fh:
            data = fh.read()
        flags = data[t.header.headerlen::recordlen][:nr]
        rows = [r for r, c in enumerate(flags) if c == 0x20]
        rows += [r for r, c in enumerate(flags) if c == 0x2A]
        pairs = list(zip(rows, list(t.records) + list(t.deleted)))
        if len(t.records) + len(t.deleted) > nr:
            why.append("records past the header's record count")
        skipped, left = collections.Counter(), []
        for f, fd in enumerate(t.fields):
            if fd.type not in "CNFLDIB" or (fd.type == "B" and version not in (0x30, 0x31, 0x32)):
                left += [] if fd.type in left else [fd.type]  # B: a memo reference here
                continue
            for r, rec in pairs:
                theirs = rec[f]
                if theirs is REFUSED:
                    skipped["cells dbfread cannot read"] += 1
                elif fd.type == "C" and "\0" in theirs.rstrip("\0 "):
                    skipped["C cells with text after a zero byte (read up to it)"] += 1
                else:
                    counts["cells"] += 1
                    what = text_difference(h, f, r, fd, theirs, version)
                    if what:
                        diffs.append((rel, r, fd.name, repr(theirs)[:30], what))
        why += ["%d %s" % (n, k) for k, n in skipped.items()]
        why += ["types not compared: " + ", ".join(left)] if left else []
    lib.qz_dbf_close(h)
    if why:
        listed.append((rel, "; ".join(why)))


encodings, encoding_reasons, failures = collections.Counter(), collections.Counter(), []
stats = collections.defaultdict(lambda: [0, 0])
reasons = collections.Counter()
examples = collections.defaultdict(list)
text_counts, text_listed, text_diffs = collections.Counter(), [], []
gdal_stats, gdal_diffs = collections.Counter(), collections.defaultdict(list)
for path in peers.tables(corpus):
    rel = os.path.relpath(path, corpus)
    with open(path, "rb") as fh:
        header = fh.read(32).ljust(32, b"\0")
    name = ctypes.create_string_buffer(64)
    source = lib.qz_dbf_detect_encoding(path.encode(), None, 0, name, 64)
    if source == 0 and os.path.getsize(path) >= 32:
        failures.append((rel, "no encoding for a table with a header"))
    difference = encoding_difference(path, name.value.decode(), source, header)
    if difference is not None:
        encodings["differ" if difference[0] else "agree"] += 1
        if difference[0]:
            encoding_reasons[difference[0].split(":")[0]] += 1
        if difference[1]:
            failures.append((rel, difference[0]))
    compare_text(path, rel, text_counts, text_listed, text_diffs)

    h = lib.qz_dbf_open_ex(path.encode(), 1)
    if not h:
        continue
    lib.qz_dbf_get_encoding(h, name, 64)
    enc = name.value.decode()
    try:
        t = peers.read(path, enc.lower(), char_decode_errors="strict",
                       ignore_missing_memofile=False)
    except Exception:
        lib.qz_dbf_close(h)
        continue
    nr, nf = lib.qz_dbf_get_nr(h), lib.qz_dbf_get_nf(h)
    if nf != len(t.fields):
        lib.qz_dbf_close(h)
        continue
    live = [r for r in range(nr) if lib.qz_dbf_get_deleted(h, r) == 0]
    columns = []
    for f in range(nf):
        values = (peers.Value * max(nr, 1))()
        got = lib.qz_dbf_get_column_values(h, f, 0, nr, values)
        columns.append([peers.value(values[r]) for r in range(max(got, 0))])
    for row, rec in zip(live, t.records):
        for f, fd in enumerate(t.fields):
            o = columns[f][row] if row < len(columns[f]) else "<fail>"
            same = typed_equal(o, rec[f])
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
    layer = None
    if peers.gdal is not None:
        try:
            ds = peers.gdal.OpenEx(path, peers.gdal.OF_VECTOR, open_options=["ENCODING=" + enc])
            layer = ds.GetLayer(0) if ds else None
        except Exception:
            pass
    if layer is not None:
        gdal_stats["tables"] += 1
        features = {feat.GetFID(): feat for feat in layer}
        if len(features) == len(live):
            gdal_stats["counts equal"] += 1
        else:
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
                if o is None and g == "" and has_null_flags(t, header):
                    kind = "null flag ignored by GDAL (null read as blanks)"
                elif wide_character_fields(path, header) and isinstance(o, str):
                    kind = "GDAL reads a C field over 255 by its length byte alone: " \
                           "the fields after it shift"
                elif isinstance(o, str) and o.strip().startswith(g.strip()) and \
                        len(g.encode("utf-8", "surrogateescape")) < len(o.encode("utf-8")):
                    kind = "text cut by GDAL"
                else:
                    kind = "text"
                gdal_diffs[kind].append((rel, fd.name, row, repr(o)[:30], repr(g)[:30]))
    lib.qz_dbf_close(h)

print("Encoding against dbfread: %d tables agree, %d differ" %
      (encodings["agree"], encodings["differ"]))
for why, count in encoding_reasons.most_common():
    print("  %3d tables: %s" % (count, why))
print()
print("Typed cells against dbfread")
print("%-5s %9s %9s %7s %7s %7s" % ("type", "compared", "equal", "peer", "table", "ours"))
total, by_who = [0, 0], collections.Counter()
for k, (n, e) in sorted(stats.items()):
    who = collections.Counter()
    for (ft, w, _), c in reasons.items():
        who[w] += c if ft == k else 0
    by_who.update(who)
    print("%-5s %9d %9d %7d %7d %7d" % (k, n, e, who["peer"], who["table"], who["ours"]))
    total = [total[0] + n, total[1] + e]
print("%-5s %9d %9d %7d %7d %7d  (%.3f%% equal)" % (
    "all", total[0], total[1], by_who["peer"], by_who["table"], by_who["ours"],
    100.0 * total[1] / max(1, total[0])))
for (who, why), ex in sorted(examples.items()):
    print("  %s, %d cells: %s" % (who, sum(c for (_, w, y), c in reasons.items()
                                           if (w, y) == (who, why)), why))
    for e in ex:
        print("     %s %s record %d: ours %s, dbfread %s" % e)
print()
print("Classic getters against dbfread: %d tables, %d listed (what was not compared and why), "
      "%d cells compared, %d differences" % (text_counts["tables"], len(text_listed),
                                              text_counts["cells"], len(text_diffs)))
for rel, why in text_listed:
    print("  %-50s %s" % (rel, why))
if peers.gdal is not None:
    print()
    print("GDAL: %d tables, record counts equal in %d; text cells %d, equal %d" % (
        gdal_stats["tables"], gdal_stats["counts equal"], gdal_stats["text cells"],
        gdal_stats["text equal"]))
    for kind, items in gdal_diffs.items():
        print("  %s differences: %d" % (kind, len(items)))
        for item in items[:3]:
            print("     " + " ".join(str(x) for x in item))
for item in failures + text_diffs[:30]:
    print("DIFFERENT", *item)
sys.exit(1 if by_who["ours"] or failures or text_diffs else 0)
