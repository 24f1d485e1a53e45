#!/usr/bin/python3
# Random rows written through the setters of a new table in each of three
# encodings (CP1251, CP866 and UTF-8 flags) read back as written, here and by
# dbfread; written through the memory table of the blank table instead, the
# records are the same bytes.
#
# Usage: roundtrip_vs_dbfread.py LIBRARY     (exits 1 on a difference)
import ctypes
import datetime
import math
import os
import random
import string
import struct
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import peers  # noqa: E402

lib = peers.load(sys.argv[1])
rng = random.Random(20240229)
# Characters every one of the three encodings holds.
CHARS = list("ЁёАЯаяЖщЪэЮп ,\"'-" + string.digits + string.ascii_letters)
FIELDS = [(b"NAME", b"C", 60, 0), (b"AMOUNT", b"N", 12, 2), (b"RATE", b"F", 14, 6),
          (b"ACTIVE", b"L", 1, 0), (b"BORN", b"D", 8, 0), (b"COUNT", b"I", 4, 0),
          (b"VALUE", b"B", 8, 0)]
RECORDS = 61  # the last record stays blank


def random_row(i):
    """Text that fits, numbers that fit their fields at their decimal counts,
    any valid date, any 32-bit integer and any double bit pattern."""
    bits = [0, 1 << 63, 0x7FF0000000000000, 1][i] if i < 4 else rng.getrandbits(64)
    return ["".join(rng.choice(CHARS) for _ in range(rng.randrange(31))).strip(" "),
            rng.randrange(-9999999999, 9999999999) / 100,
            rng.randrange(-999999999999, 999999999999) / 1e6,
            rng.random() < 0.5,
            (datetime.date(1900, 1, 1) + datetime.timedelta(days=rng.randrange(73049)))
            .strftime("%Y%m%d"),
            rng.randrange(-2 ** 31, 2 ** 31),
            struct.unpack("<d", struct.pack("<Q", bits))[0]]


ROWS = [random_row(i) for i in range(RECORDS - 1)]
SETTERS = "str dbl dbl bool str int dbl".split()


class DoubleB(peers.FieldParser):
    """B cells as the 8-byte doubles the library writes in a version 3 table
    (dbfread takes B for a memo reference outside the 0x30..0x32 versions)."""

    def parseB(self, field, data):
        return struct.unpack("<d", data)[0]


def write(path, dos, utf8, memory):
    fields = (peers.Field * len(FIELDS))(*[peers.Field(*f) for f in FIELDS])
    h = lib.qz_dbf_create(path.encode(), len(FIELDS), RECORDS, fields, dos)
    if utf8:
        lib.qz_dbf_set_utf8_flag(h, True)
    target, prefix = h, "qz_dbf_set_"
    if memory:
        lib.qz_dbf_close(h)
        target, prefix = lib.qz_dbf_mem_load(path.encode()), "qz_dbf_mem_set_"
    for r, row in enumerate(ROWS):
        for f, (kind, v) in enumerate(zip(SETTERS, row)):
            if not getattr(lib, prefix + kind)(target, f, r, v.encode() if kind == "str" else v):
                failures.append("%s: %s%s of record %d field %d refused" % (path, prefix, kind, r, f))
    if memory:
        failures.extend([] if lib.qz_dbf_mem_save(target) else ["%s: mem_save failed" % path])
        lib.qz_dbf_mem_free(target)
    else:
        lib.qz_dbf_close(h)


def same(a, b):
    if isinstance(a, float) and isinstance(b, float):
        return a == b or (math.isnan(a) and math.isnan(b))
    return a == b


def read_ours(path):
    """Each record as the library reads it: typed, None where a cell has no value."""
    h = lib.qz_dbf_open(path.encode(), True, False)
    ok = ctypes.c_bool()
    out = []
    for r in range(lib.qz_dbf_get_nr(h)):
        row = []
        for f, kind in enumerate(SETTERS):
            text = lib.qz_dbf_get_str(h, f, r, ctypes.byref(ok)).decode().strip()
            if kind == "str":
                row.append(text)
                continue
            getter = {"dbl": lib.qz_dbf_get_dbl, "bool": lib.qz_dbf_get_bool,
                      "int": lib.qz_dbf_get_int}[kind]
            v = getter(h, f, r, ctypes.byref(ok))
            row.append(v if ok.value and (text or kind == "bool") else None)
        out.append(row)
    lib.qz_dbf_close(h)
    return out


failures = []
cells = 0
with tempfile.TemporaryDirectory() as folder:
    for label, dos, utf8, cpg in (("cp1251", False, False, "CP1251"),
                                  ("cp866", True, False, "CP866"),
                                  ("utf-8", False, True, "UTF-8")):
        path, mem_path = os.path.join(folder, label + ".dbf"), os.path.join(folder, "m.dbf")
        write(path, dos, utf8, False)
        write(mem_path, dos, utf8, True)
        with open(os.path.join(folder, label + ".cpg")) as f:
            if f.read().strip() != cpg:
                failures.append("%s: the .cpg does not say %s" % (label, cpg))
        # The memory table writes the same records, byte for byte.
        with open(path, "rb") as a, open(mem_path, "rb") as b:
            disk, memory = a.read(), b.read()
        header = disk[8] | disk[9] << 8
        if len(disk) != len(memory) or disk[header:] != memory[header:]:
            failures.append("%s: the memory table's records differ from the disk table's" % label)
        ours = read_ours(path)
        theirs = peers.dbfread.DBF(path, encoding=label, char_decode_errors="strict",
                                   parserclass=DoubleB, load=True,
                                   ignore_missing_memofile=True).records
        if len(ours) != RECORDS or len(theirs) != RECORDS:
            failures.append("%s: %d records here, %d in dbfread" % (label, len(ours), len(theirs)))
            continue
        for r in range(RECORDS):
            for f, name in enumerate(n.decode() for n, _, _, _ in FIELDS):
                o, th = ours[r][f], theirs[r][name]
                # dbfread's dates are dates, its empty text "".
                th = th.strftime("%Y%m%d") if isinstance(th, datetime.date) else th
                cells += 1
                if r < len(ROWS) and not same(o, ROWS[r][f]):
                    failures.append("%s record %d %s: wrote %r, read %r" % (label, r, name,
                                                                          ROWS[r][f], o))
                if not same(th, o) and not (o == "" and th is None):
                    failures.append("%s record %d %s: ours %r, dbfread %r" % (label, r, name, o, th))

print("3 encodings, %d records, %d cells written, read back and read by dbfread: %d differences"
      % (RECORDS, cells, len(failures)))
for line in failures[:30]:
    print("DIFFERENT", line)
sys.exit(1 if failures else 0)
