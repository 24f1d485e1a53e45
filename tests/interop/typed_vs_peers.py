#!/usr/bin/python3
# Every corpus table read by this library (through ctypes) against its
# peers, python3-dbfread and GDAL.
#
# Usage: typed_vs_peers.py LIBRARY CORPUS_DIR
#
# Prints five comparisons and exits 1 when a difference is ours (77, skipped,
# without dbfread; a sanitizer build needs its runtimes in LD_PRELOAD):
#  - the encoding chosen (qz_dbf_detect_encoding) against dbfread's, every
#    difference put down to a source dbfread does not read;
#  - typed cells (qz_dbf_get_column_values of a table opened with
#    qz_dbf_open_ex, which chooses the encoding) against dbfread's values
#    read in that encoding, live records paired in order; every difference
#    put down to the peer, the table or us;
#  - the classic getters (qz_dbf_get_str, _int, _dbl, _bool of the table
#    opened with qz_dbf_open, its flags' encoding) on the cells equal to
#    dbfread's: they must read the same value (C text where both decode alike);
#  - GDAL's count of the live records against ours;
#  - dBASE 7 tables restructured: neither peer reads dBASE 7 (48-byte field
#    descriptors); a restructure gives them 32-byte descriptors (version 0x8B
#    with a memo file, 0x03 without), decoding the big-endian I, + and O
#    cells and the @ timestamps (@ fields are retyped to C 23 here: the new
#    layout has no @). Each cell's typed value read from the dBASE 7 table is
#    compared with dbfread's and GDAL's value read from the restructured copy.
import codecs
import collections
import ctypes
import datetime
import decimal
import math
import os
import shutil
import sys
import tempfile

try:
    import dbfread
except ImportError:
    print("python3-dbfread is not installed")
    sys.exit(77)
try:
    from osgeo import gdal
    gdal.UseExceptions()
    gdal.PushErrorHandler("CPLQuietErrorHandler")  # its warnings on odd cells
except ImportError:
    gdal = None


class Value(ctypes.Structure):
    _fields_ = [("kind", ctypes.c_int), ("i", ctypes.c_longlong), ("d", ctypes.c_double),
                ("text", ctypes.c_void_p), ("length", ctypes.c_size_t)]


class Field(ctypes.Structure):
    _pack_ = 1
    _fields_ = [("name", ctypes.c_char * 11), ("type", ctypes.c_char), ("flen", ctypes.c_ubyte),
                ("dlen", ctypes.c_byte)]


H, U, S, B, D = ctypes.c_void_p, ctypes.c_uint, ctypes.c_char_p, ctypes.c_bool, ctypes.c_double
PB = ctypes.POINTER(ctypes.c_bool)
# name: (result, arguments)
SIGNATURES = {
    "qz_dbf_open": (H, [S, B, B]), "qz_dbf_open_ex": (H, [S, U]), "qz_dbf_close": (None, [H]),
    "qz_dbf_get_nf": (U, [H]), "qz_dbf_get_nr": (U, [H]), "qz_dbf_get_utf8_flag": (B, [H]),
    "qz_dbf_get_deleted": (ctypes.c_int, [H, U]), "qz_dbf_get_field_width": (U, [H, U]),
    "qz_dbf_get_encoding": (ctypes.c_int, [H, S, ctypes.c_size_t]), "qz_dbf_get_dos_flag": (B, [H]),
    "qz_dbf_detect_encoding": (ctypes.c_int, [S, S, U, S, ctypes.c_size_t]),
    "qz_dbf_get_value": (B, [H, U, U, ctypes.POINTER(Value)]),
    "qz_dbf_get_column_values": (ctypes.c_long, [H, U, U, U, ctypes.POINTER(Value)]),
    "qz_dbf_get_str": (S, [H, U, U, PB]), "qz_dbf_get_int": (ctypes.c_int, [H, U, U, PB]),
    "qz_dbf_get_dbl": (D, [H, U, U, PB]), "qz_dbf_get_bool": (B, [H, U, U, PB]),
    "qz_dbf_get_field_letter": (ctypes.c_char, [H, U]),
    "qz_dbf_restruct_create": (H, [S]), "qz_dbf_restruct_count": (ctypes.c_int, [H]),
    "qz_dbf_restruct_get_field": (ctypes.POINTER(Field), [H, ctypes.c_int]),
    "qz_dbf_restruct_apply": (B, [H]), "qz_dbf_restruct_destroy": (None, [H]),
    "qz_dbf_last_error_message": (S, []), "qz_options_set_ansi_code_page": (None, [U])}


lib = ctypes.CDLL(sys.argv[1])
for name, (result, args) in SIGNATURES.items():
    getattr(lib, name).restype, getattr(lib, name).argtypes = result, args
lib.qz_options_set_ansi_code_page(65001)  # the classic getters' text in UTF-8
corpus = sys.argv[2]
WS = " \t\n\r\v\f"


def value(v):
    # A Tqz_dbf_value as the Python value dbfread gives for the cell.
    raw = ctypes.string_at(v.text, v.length) if v.length else b""
    return {0: lambda: None, 1: lambda: bool(v.i), 2: lambda: v.i, 3: lambda: v.d,
            4: lambda: decimal.Decimal(raw.decode()),
            5: lambda: datetime.date(v.i // 10000, v.i // 100 % 100, v.i % 100),
            6: lambda: datetime.datetime(1970, 1, 1) + datetime.timedelta(milliseconds=v.i),
            7: lambda: raw.decode("utf-8", "replace")}.get(v.kind, lambda: raw)()


def read(path, encoding, **options):
    # dbfread's table, records loaded as lists (a table may name two fields alike).
    return dbfread.DBF(path, encoding=encoding, load=True,
                       recfactory=lambda items: [v for _, v in items], **options)


def canonical(name):
    try:
        return codecs.lookup(name).name
    except LookupError:
        return name.lower()


def typed_equal(o, th):
    if type(o) is bool or o == th:
        return o is th if type(o) is bool else True
    if isinstance(th, float) and isinstance(o, (float, int)):
        return abs(o - th) <= 1e-9 * max(1.0, abs(th))
    both = isinstance(th, datetime.datetime) and isinstance(o, datetime.datetime)
    return both and abs((o - th).total_seconds()) < 0.001


def whose(fd, o, th, t, header):
    # Why a typed cell differs: ("peer"|"table"|"ours", reason).
    prefix = isinstance(o, str) and isinstance(th, str) and th.startswith(o)
    blank = o is None and th in ("", b"")
    if 1 + sum(f.length for f in t.fields) != (header[10] | header[11] << 8):
        return "table", "header record length disagrees with the fields (we follow the header)"
    if fd.type == "V" and prefix:
        return "peer", "varchar length flag (_NullFlags) ignored: padding and length byte kept"
    if fd.type == "M" and header[0] in (0x8B, 0xCB, 0x8E) and prefix:
        return "peer", "dBASE IV memo read past the length its block header gives"
    if blank and any(f.type == "0" for f in t.fields) and header[0] in (0x30, 0x31, 0x32):
        return "peer", "Visual FoxPro null flag (_NullFlags) ignored: null read as its blanks"
    if blank and fd.type in "MBGP":
        return "peer", "memo block past the end of the memo file read as empty (ours: no memo)"
    return "ours", "unexplained"


def classic_differs(h, f, r, kind, o):
    # Whether the classic getters read the cell otherwise than its typed value `o`.
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
    if kind == "L":
        return (v if ok.value else None) is not o
    if kind == "D":
        return text != (o.strftime("%Y%m%d") if hasattr(o, "year") else o or "") and \
            (o is not None or text.strip("0") != "")
    if kind == "I":
        return not ok.value or v != o or text != str(o)
    if kind == "B" and not (ok.value and (v == o or (math.isnan(v) and math.isnan(o)))):
        return True
    return text != "%.11g" % o  # F and B shown as printf's %19.11g shows the number


COLUMNS = ("compared", "equal", "peer", "table", "ours")
encodings, failures, classic_diffs = collections.Counter(), [], []
stats, examples = collections.defaultdict(collections.Counter), collections.defaultdict(list)
classic_cells, gdal_counts = 0, []  # gdal_counts: per table, whether GDAL counts as we do


def check_encoding(path, rel):
    # A difference from dbfread's choice must come from a source dbfread does not read.
    name = ctypes.create_string_buffer(64)
    source = lib.qz_dbf_detect_encoding(path.encode(), None, 0, name, 64)
    if source == 0 and os.path.getsize(path) >= 32:
        failures.append((rel, "no encoding for a table with a header"))
    try:
        ours, theirs = canonical(name.value.decode()), canonical(dbfread.DBF(path).encoding)
    except Exception:  # dbfread does not read the table
        return None
    why = "agree" if ours == theirs else "from the .cpg (dbfread reads no .cpg)" if source == 2 \
        else "no driver byte: ours the classic default, dbfread ascii" \
        if source == 4 and theirs == "ascii" else "ours %s (source %d), dbfread %s" % (
            ours, source, theirs)
    encodings[why] += 1
    failures.extend([(rel, "encoding " + why)] if why.startswith("ours") else [])
    return theirs


def compare(path, rel, header, c, h):
    global classic_cells
    name = ctypes.create_string_buffer(64)
    lib.qz_dbf_get_encoding(h, name, 64)
    enc = name.value.decode()
    try:
        t = read(path, enc.lower(), char_decode_errors="strict", ignore_missing_memofile=False)
    except Exception:
        return
    nr, nf = lib.qz_dbf_get_nr(h), lib.qz_dbf_get_nf(h)
    if nf != len(t.fields):
        return
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
        values = (Value * max(nr, 1))()
        got = lib.qz_dbf_get_column_values(h, f, 0, nr, values)
        columns.append([value(values[r]) for r in range(max(got, 0))])
    for row, rec in zip(live, t.records):
        for f, fd in enumerate(t.fields):
            o = columns[f][row] if row < len(columns[f]) else "<fail>"
            same = typed_equal(o, rec[f])
            if f in classic and same and not (fd.type == "C" and "\0" in (o or "").rstrip("\0 ")):
                classic_cells += 1
                if classic_differs(c, f, row, fd.type, o):
                    classic_diffs.append((rel, row, fd.name, repr(o)[:30]))
            stats[fd.type].update(compared=1, equal=same)
            if not same:
                who, why = whose(fd, o, rec[f], t, header)
                stats[fd.type][who] += 1
                examples[(who, why)].append((rel, fd.name, row, repr(o)[:40], repr(rec[f])[:40]))
    # GDAL counts the live records as we do (it reads back what we write:
    # tests/typed/peers_read_back.py).
    try:  # the layer lives as long as its data set
        ds = gdal.OpenEx(path, gdal.OF_VECTOR)
        count = sum(1 for _ in ds.GetLayer(0))
    except Exception:  # no GDAL, or a table GDAL does not open
        return
    gdal_counts.append(count == len(live))
    if count != len(live):
        failures.append((rel, "live records: ours %d, GDAL %d" % (len(live), count)))


def restructured_value(v):
    # Our value as the restructured cell reads: timestamps as their C text.
    if v.kind != 6:
        return value(v)
    t = datetime.datetime(1, 1, 1) + datetime.timedelta(milliseconds=v.i + 62135596800000)
    return t.strftime("%Y-%m-%dT%H:%M:%S.") + "%03d" % (t.microsecond // 1000)


def dbfread_quirk(letter, want, got, memo):
    # What dbfread reads otherwise than the restructured cell holds, or None.
    if letter not in "MBG" or want is None:
        return None
    if got is None and not memo:
        return "no memo file beside the table (both read no memo)"
    if not want or not isinstance(got, type(want)):
        return None
    if got.startswith(want) and len(got) - len(want) <= 8:
        # A dBASE IV memo's length counts its 8-byte block header.
        return "a memo read 8 bytes past its length (its block header counted)"
    if want.startswith(got) and want[len(got):len(got) + 1] in ("\x1f", b"\x1f"):
        return "a memo cut at its first byte 0x1F"
    return None


stats7, quirks = collections.defaultdict(lambda: [0, 0, 0, 0]), collections.Counter()


def check_restructured(path, rel, h, folder):
    # The old table's values (every record: a restructure keeps them all, not
    # their deletion marks), then its copy restructured and read by the peers;
    # dbfread cells, equal; GDAL cells, equal: by type letter in stats7.
    buf, v = ctypes.create_string_buffer(64), Value()  # v: null when the read fails
    lib.qz_dbf_get_encoding(h, buf, 64)
    enc = buf.value.decode().lower()
    old = [[(lib.qz_dbf_get_value(h, f, r, ctypes.byref(v)), restructured_value(v))[1]
            for f in range(lib.qz_dbf_get_nf(h))] for r in range(lib.qz_dbf_get_nr(h))]
    # The table and its files of the same stem copied, writable.
    root, stem = os.path.split(os.path.splitext(path)[0])
    for name in (n for n in os.listdir(root) if os.path.splitext(n)[0] == stem):
        shutil.copy(os.path.join(root, name), folder)
        os.chmod(os.path.join(folder, name), 0o644)
    copy = os.path.join(folder, os.path.basename(path))
    d = lib.qz_dbf_restruct_create(copy.encode())
    for k in range(lib.qz_dbf_restruct_count(d)):
        fd = lib.qz_dbf_restruct_get_field(d, k).contents
        if fd.type == b"@":
            fd.type, fd.flen, fd.dlen = b"C", 23, 0
    applied = lib.qz_dbf_restruct_apply(d)
    lib.qz_dbf_restruct_destroy(d)
    if not applied:
        return failures.append((rel, "restructure refused", lib.qz_dbf_last_error_message()))
    kinds = [lib.qz_dbf_get_field_letter(h, f).decode() for f in range(lib.qz_dbf_get_nf(h))]
    memo = [os.path.join(folder, p) for p in os.listdir(folder)
            if os.path.splitext(p)[1].lower() in (".dbt", ".fpt")]
    try:
        theirs = read(copy, enc, char_decode_errors="strict", ignore_missing_memofile=True).records
    except Exception as e:
        # Cells naming memo blocks that a header-only memo file lacks:
        # dbfread stops at the short block header, we read no memo there.
        quirks["dbfread fails on %s (blocks past a header-only memo file): %r" % (rel, e)] += 1
        return failures.extend([] if memo and os.path.getsize(memo[0]) <= 512 else [(rel, repr(e))])
    layer = None
    if gdal is not None:
        ds = gdal.OpenEx(copy, gdal.OF_VECTOR, open_options=["ENCODING=" + enc])
        layer = list(ds.GetLayer(0)) if ds else None
    if len(theirs) != len(old):
        return failures.append((rel, "record count", len(theirs), len(old)))
    for r, row in enumerate(old):
        for f, o in enumerate(row):
            letter = kinds[f]
            # The new layout has no empty binary number; C drops its padding.
            want = 0 if o is None and letter in "I+O" else \
                o.rstrip() if letter == "C" and isinstance(o, str) else o
            got = theirs[r][f]
            got = got.rstrip() if isinstance(got, str) and letter in "C@" else got
            quirk = dbfread_quirk(letter, want, got, memo)
            quirks[quirk] += quirk is not None
            got = want if quirk else got
            same = got == want or (isinstance(got, float) and isinstance(want, float)
                                   and abs(got - want) <= 1e-12 * max(1, abs(want)))
            s = stats7[letter]
            s[0], s[1] = s[0] + 1, s[1] + same
            if not same:
                failures.append((rel, "dbfread", letter, r, f, repr(got)[:40], repr(want)[:40]))
            # GDAL reads the text fields (C, and @ now C) and N.
            if layer is not None and letter in "C@N":
                g = layer[r].GetFieldAsString(f) if layer[r].IsFieldSetAndNotNull(f) else None
                w = None if want in (None, "") else want
                if letter == "N" and g is not None:
                    g, w = float(g), None if w is None else float(w)
                equal = g == w or (isinstance(g, str) and g.rstrip() == w)
                s[2], s[3] = s[2] + 1, s[3] + equal
                if not equal:
                    failures.append((rel, "gdal", letter, r, f, repr(g)[:40], repr(w)[:40]))


with tempfile.TemporaryDirectory() as work:
    for path in sorted(os.path.join(root, f) for root, _, files in os.walk(corpus)
                       for f in files if f.lower().endswith(".dbf")):  # any letter case
        rel = os.path.relpath(path, corpus)
        with open(path, "rb") as fh:
            header = fh.read(32).ljust(32, b"\0")
        theirs = check_encoding(path, rel)
        c, h = lib.qz_dbf_open(path.encode(), True, False), lib.qz_dbf_open_ex(path.encode(), 1)
        failures += [(rel, "dbfread reads it, we do not open it")] if theirs and not c else []
        if h:
            compare(path, rel, header, c, h)
        if h and header[0] in (0x04, 0x8C):
            check_restructured(path, rel, h, tempfile.mkdtemp(dir=work))
        lib.qz_dbf_close(h)
        lib.qz_dbf_close(c)

print("Encoding against dbfread (tables):")
for why, count in encodings.most_common():
    print("  %4d %s" % (count, why))
line = "%-5s" + " %9s" * len(COLUMNS)
print("\nTyped cells against dbfread\n" + line % (("type",) + COLUMNS))
for k, s in sorted(stats.items()) + [("all", sum(stats.values(), collections.Counter()))]:
    print(line % ((k,) + tuple(s[col] for col in COLUMNS)))
for (who, why), ex in sorted(examples.items()):
    print("  %s, %d cells: %s" % (who, len(ex), why))
    for e in ex[:12 if who == "ours" else 3]:
        print("     %s %s record %d: ours %s, dbfread %s" % e)
print(f"\nClassic getters on the cells equal above: {classic_cells}, differ {len(classic_diffs)}")
print(f"GDAL counts the live records as we do in {sum(gdal_counts)} tables of {len(gdal_counts)}")
print("\ndBASE 7 values (this library, old table) against the restructured copy")
for k, s in [("type", ("dbfread", "equal", "gdal", "equal"))] + sorted(stats7.items()):
    print("%-5s %8s %8s %8s %8s" % (k, *s))
for why in filter(None, quirks):
    print("dbfread quirk: %s: %d cells" % (why, quirks[why]))
for item in failures[:30] + classic_diffs[:30]:
    print("DIFFERENT", *item)
sys.exit(1 if failures or classic_diffs or sum(s["ours"] for s in stats.values()) else 0)

