"""Compares read_dataframe with dbfread over the sample tables.

Each difference is put in a category that says why the two readers differ;
test_corpus.py fails on any difference left uncategorised.
"""

import codecs
import datetime
import decimal
import math
import os
import pathlib

import numpy as np
import pandas as pd

import qzdbf

CORPUS = pathlib.Path(os.environ.get("QZ_CORPUS_DIR",
                                     pathlib.Path(__file__).resolve().parents[2] / ".." /
                                     "shared" / "corpus")).resolve()


def corpus_tables():
    return sorted(p for p in CORPUS.rglob("*") if p.is_file() and p.suffix.lower() == ".dbf")


def _norm(v):
    """One cell in a form both readers' values compare in: dates and
    datetimes as datetimes, numbers (Decimal included) as floats."""
    if v is None or v is pd.NA or v is pd.NaT:
        return None
    if isinstance(v, float) and math.isnan(v):
        return None
    if isinstance(v, (np.floating, np.integer)):
        v = v.item()
    if isinstance(v, (bool, np.bool_)):
        return bool(v)
    if isinstance(v, pd.Timestamp):
        return v.to_pydatetime()
    if isinstance(v, datetime.datetime):
        return v
    if isinstance(v, datetime.date):
        return datetime.datetime.combine(v, datetime.time())
    if isinstance(v, (int, float, decimal.Decimal)):
        return float(v)
    return v


def _same(a, b):
    if isinstance(a, float) and isinstance(b, float):
        return math.isclose(a, b, rel_tol=1e-9, abs_tol=1e-9)
    return a == b


def _reference(path):
    """dbfread's records and fields, decoded with this library's encoding for
    the table (dbfread guesses from the language driver byte, or takes
    ASCII, where this library reads the .cpg file or its default code page),
    undecodable bytes replaced as this library does; and whether dbfread's
    own guess differs."""
    import dbfread

    try:
        with qzdbf.open(path) as t:
            enc = t.encoding
    except qzdbf.Error:
        enc = None  # this library refuses the table: "error" when dbfread reads it
    table = dbfread.DBF(str(path), encoding=enc, char_decode_errors="replace")
    records = list(table)
    if enc is None:
        return records, table.fields, enc, False
    guess = dbfread.DBF(str(path), load=False).encoding
    return records, table.fields, enc, codecs.lookup(guess).name != codecs.lookup(enc).name


def compare(path):
    """(status, differences, encoding): status "skipped" when dbfread cannot
    read the table, "error" when qzdbf raised, else "compared"; differences
    are (field, type letter, record, dbfread value, qzdbf value). Both
    readers decode with the same encoding (see _reference): "encoding" in
    the status when dbfread's own guess is another one."""
    try:
        reference, ref_fields, enc, other_guess = _reference(path)
    except Exception as e:  # dbfread refuses the table: nothing to compare with
        return "skipped", [type(e).__name__ + ": " + str(e)[:80]], None
    try:
        ours = qzdbf.read_dataframe(path)
    except qzdbf.Error as e:
        return "error", [type(e).__name__ + ": " + str(e)], enc
    status = "compared, other encoding guessed by dbfread" if other_guess else "compared"
    diffs = []
    if len(ours) != len(reference):
        diffs.append(("*", "", -1, len(reference), len(ours)))
        return status, diffs, enc
    names = [f.name for f in ref_fields]
    for col, f in enumerate(ref_fields):
        name, ftype = f.name, f.type
        if col >= ours.shape[1]:
            diffs.append((name, ftype, -1, "field", "missing"))
            continue
        # Two fields of one name: dbfread's record (a dict) keeps the last
        # one's value, while the frame has both columns; each is compared
        # with the value dbfread kept only when it is that last field.
        if names.count(name) > 1 and col != len(names) - 1 - names[::-1].index(name):
            continue
        values = ours.iloc[:, col]
        for r, rec in enumerate(reference):
            a = _norm(rec.get(name))
            b = _norm(values.iloc[r])
            if not _same(a, b):
                diffs.append((name, ftype, r, a, b))
    return status, diffs, enc


# Tables whose layout the two readers take differently.
KNOWN = {
    "pr90.dbf": "layout: a C field longer than 255 keeps its high byte in the decimals byte; "
                "this library reads the low byte only, so later fields shift",
    "polygon.dbf": "no fields: the header ends where the field descriptors begin; dbfread "
                   "reads its one record as no values, this library refuses the table",
    "mazovia.dbf": "dbfread: takes records flagged 0x00 for deleted, this library deletes only "
                   "records flagged '*'",
    "stations_with_deleted.dbf": "dbfread: steps by the fields' total length where the header's "
                                 "record length is one less, drifting a byte per record and "
                                 "taking the deleted record for live",
}


def _has_null_flags(path):
    with qzdbf.open(path) as t:
        return any(f.name.lower() == "_nullflags" for f in t.fields)


# Why dbfread's value differs from ours, when it is dbfread's way of reading
# a cell: (category, test of (path, type letter, dbfread value, ours)).
QUIRKS = [
    ("dbfread: ignores _NullFlags, so a null cell reads as its bytes",
     lambda p, t, a, b: b is None and a is not None and _has_null_flags(p)),
    ("dbfread: reads up to 8 bytes past a dBASE IV memo's length (its block header's "
     "length counts those 8 bytes), to the next 0x1F",
     lambda p, t, a, b: t == "M" and isinstance(a, (str, bytes)) and isinstance(b, type(a))
     and 0 < len(a) - len(b) <= 8 and a.startswith(b)),
    ("dbfread: ends a dBASE IV memo at its first 0x1F byte, so binary memos come out short "
     "(U+FFFD for the code page's undefined bytes aside, as below)",
     lambda p, t, a, b: t == "M" and isinstance(a, str) and isinstance(b, str)
     and b.startswith(a.replace("\ufffd", "") + "\x1f")),
    ("dbfread: a memo block past the end of the memo file reads as an empty memo, here null",
     lambda p, t, a, b: t == "M" and a in ("", b"") and b is None),
    ("text: a byte the code page leaves undefined (0x98 in cp1251) is U+FFFD in dbfread's "
     "decoding, left out by this library's conversion",
     lambda p, t, a, b: isinstance(a, str) and isinstance(b, str) and "\ufffd" in a
     and a.replace("\ufffd", "") == b),
    ("text: this library ends a C cell at a NUL byte, dbfread keeps what follows it",
     lambda p, t, a, b: t == "C" and isinstance(a, str) and isinstance(b, str)
     and a.startswith(b) and a[len(b)] == "\0"),
]


def category(path, diff):
    """Why dbfread and qzdbf differ on this cell; None when unexplained (a
    difference of ours)."""
    name, ftype, record, a, b = diff
    if path.name in KNOWN:
        return KNOWN[path.name]
    for cat, test in QUIRKS:
        if test(path, ftype, a, b):
            return cat
    return None

