#!/usr/bin/python3
# dBASE 7 tables restructured, read back by dbfread and GDAL.
#
# Usage: dbase7_restructured.py LIBRARY CORPUS_DIR
#
# Neither peer reads dBASE 7 tables (48-byte field descriptors). A
# restructure gives them 32-byte descriptors (version 0x8B with a memo file,
# 0x03 without), decoding the big-endian I, + and O cells and the @
# timestamps (@ fields are retyped to C 23 here: the new layout has no @).
# Each cell's typed value read by this library from the dBASE 7 table is
# compared with dbfread's and GDAL's value read from the restructured copy.
# Prints a table by field type; exits 1 when a cell differs, 77 without
# dbfread.
import collections
import ctypes
import datetime
import os
import shutil
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import peers  # noqa: E402

lib = peers.load(sys.argv[1])


def ours(v):
    """Our value as the restructured cell reads: timestamps as their C text."""
    if v.kind != 6:
        return peers.value(v)
    t = datetime.datetime(1, 1, 1) + datetime.timedelta(milliseconds=v.i + 62135596800000)
    return t.strftime("%Y-%m-%dT%H:%M:%S.") + "%03d" % (t.microsecond // 1000)


def letters(path):
    """The type letters of the 48-byte field descriptors."""
    with open(path, "rb") as f:
        head = f.read(4096)
    ends = [at for at in range(68, len(head), 48) if head[at] == 0x0D] + [len(head) - 47]
    return [chr(head[at + 32]) for at in range(68, ends[0], 48)]


def restructured(path, folder):
    """The old table's values by record and field, and the restructured copy."""
    h = lib.qz_dbf_open_ex(path.encode(), 1)
    if not h:
        return None, None, None
    buf = ctypes.create_string_buffer(64)
    lib.qz_dbf_get_encoding(h, buf, 64)
    v = peers.Value()  # null when the read fails
    # Every record: a restructure keeps them all (not their deletion marks).
    old = [[(lib.qz_dbf_get_value(h, f, r, ctypes.byref(v)), ours(v))[1]
            for f in range(lib.qz_dbf_get_nf(h))] for r in range(lib.qz_dbf_get_nr(h))]
    lib.qz_dbf_close(h)
    copy = peers.copy_with_companions(path, folder)
    d = lib.qz_dbf_restruct_create(copy.encode())
    for k in range(lib.qz_dbf_restruct_count(d)):
        fd = lib.qz_dbf_restruct_get_field(d, k).contents
        if fd.type == b"@":
            fd.type, fd.flen, fd.dlen = b"C", 23, 0
    applied = lib.qz_dbf_restruct_apply(d)
    lib.qz_dbf_restruct_destroy(d)
    if not applied:
        raise RuntimeError("restructure refused: " + lib.qz_dbf_last_error_message().decode())
    return old, copy, buf.value.decode().lower()


stats = collections.defaultdict(lambda: [0, 0, 0, 0])  # dbfread cells, equal; GDAL cells, equal
quirks = collections.Counter()
bad, peer_failed = [], []
work = tempfile.mkdtemp()
try:
    for path in peers.tables(sys.argv[2]):
        with open(path, "rb") as f:
            if f.read(1) not in (b"\x04", b"\x8c"):
                continue
        rel = os.path.relpath(path, sys.argv[2])
        folder = tempfile.mkdtemp(dir=work)
        try:
            old, copy, enc = restructured(path, folder)
        except RuntimeError as e:
            bad.append((rel, str(e)))
            continue
        if old is None:
            continue
        kinds = letters(path)
        memo = [os.path.join(folder, p) for p in os.listdir(folder)
                if os.path.splitext(p)[1].lower() in (".dbt", ".fpt")]
        try:
            theirs = peers.read(copy, enc, char_decode_errors="strict",
                                ignore_missing_memofile=True).records
        except Exception as e:
            # Cells naming memo blocks that a header-only memo file lacks:
            # dbfread stops at the short block header, we read no memo there.
            if memo and os.path.getsize(memo[0]) <= 512:
                peer_failed.append((rel, repr(e)))
            else:
                bad.append((rel, "dbfread", repr(e)))
            continue
        layer = None
        if peers.gdal is not None:
            ds = peers.gdal.OpenEx(copy, peers.gdal.OF_VECTOR, open_options=["ENCODING=" + enc])
            layer = list(ds.GetLayer(0)) if ds else None
        if len(theirs) != len(old):
            bad.append((rel, "record count", len(theirs), len(old)))
            continue
        for r, row in enumerate(old):
            for f, o in enumerate(row):
                letter = kinds[f] if f < len(kinds) else "?"
                # The new layout has no empty binary number; C drops its padding.
                want = 0 if o is None and letter in "I+O" else \
                    o.rstrip() if letter == "C" and isinstance(o, str) else o
                got = theirs[r][f]
                got = got.rstrip() if isinstance(got, str) and letter in "C@" else got
                if letter in "MBG" and want and isinstance(got, type(want)):
                    if got.startswith(want) and len(got) - len(want) <= 8:
                        # dbfread takes a dBASE IV memo's length (which counts its
                        # 8-byte block header) as the length after it.
                        quirks["a memo read 8 bytes past its length (its block header counted)"] += 1
                        got = want
                    elif want.startswith(got) and want[len(got):len(got) + 1] in ("\x1f", b"\x1f"):
                        quirks["a memo cut at its first byte 0x1F"] += 1
                        got = want
                if letter in "MBG" and want is not None and got is None and not memo:
                    quirks["no memo file beside the table (both read no memo)"] += 1
                    got = want
                same = got == want or (isinstance(got, float) and isinstance(want, float)
                                       and abs(got - want) <= 1e-12 * max(1, abs(want)))
                s = stats[letter]
                s[0], s[1] = s[0] + 1, s[1] + same
                if not same:
                    bad.append((rel, "dbfread", letter, r, f, repr(got)[:40], repr(want)[:40]))
                # GDAL reads the text fields (C, and @ now C) and N.
                if layer is not None and letter in "C@N":
                    feat = layer[r]
                    g = feat.GetFieldAsString(f) if feat.IsFieldSetAndNotNull(f) else None
                    w = None if want in (None, "") else want
                    if letter == "N" and g is not None:
                        g, w = float(g), None if w is None else float(w)
                    equal = g == w or (isinstance(g, str) and g.rstrip() == w)
                    s[2], s[3] = s[2] + 1, s[3] + equal
                    if not equal:
                        bad.append((rel, "gdal", letter, r, f, repr(g)[:40], repr(w)[:40]))
finally:
    shutil.rmtree(work)

print("dBASE 7 values (this library, old table) against the restructured copy")
print("%-5s %8s %8s %8s %8s" % ("type", "dbfread", "equal", "gdal", "equal"))
for k in sorted(stats):
    print("%-5s %8d %8d %8d %8d" % (k, *stats[k]))
for why in ("a memo read 8 bytes past its length (its block header counted)",
            "a memo cut at its first byte 0x1F"):
    print("dbfread quirk: %s: %d cells" % (why, quirks[why]))
print("no memo file beside the table (both read no memo): %d cells"
      % quirks["no memo file beside the table (both read no memo)"])
for rel, why in peer_failed:
    print("dbfread fails on %s (memo blocks past the end of its header-only memo file): %s"
          % (rel, why))
for b in bad[:30]:
    print("DIFFERENT", *b)
sys.exit(1 if bad else 0)
