"""Compares read_dataframe with dbfread over the sample tables.

Each difference is put in a category that says why the two readers differ;
the pytest test in test_corpus.py fails on any difference left uncategorised.
Run directly to print the whole report.
"""

import datetime
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
    """One cell in a form both readers' values compare in."""
    if v is None or v is pd.NA or v is pd.NaT:
        return None
    if isinstance(v, float) and math.isnan(v):
        return None
    if isinstance(v, (np.floating, np.integer)):
        v = v.item()
    if isinstance(v, bool) or isinstance(v, np.bool_):
        return bool(v)
    if isinstance(v, pd.Timestamp):
        return v.date()
    if isinstance(v, datetime.datetime):
        return v
    if isinstance(v, (int, float)):
        return float(v)
    if isinstance(v, bytes):
        return v
    return v


def _same(a, b):
    if isinstance(a, float) and isinstance(b, float):
        return math.isclose(a, b, rel_tol=1e-9, abs_tol=1e-9)
    return a == b


def compare(path):
    """(status, differences): status "skipped" when dbfread cannot read the
    table, "error" when qzdbf raised, else "compared"; differences are
    (field, type letter, record, dbfread value, qzdbf value)."""
    import dbfread

    try:
        reference = list(dbfread.DBF(str(path)))
        ref_fields = [(f.name, f.type) for f in dbfread.DBF(str(path), load=False).fields]
    except Exception as e:  # dbfread refuses the table: nothing to compare with
        return "skipped", [type(e).__name__ + ": " + str(e)[:80]]
    try:
        ours = qzdbf.read_dataframe(path)
    except qzdbf.Error as e:
        return "error", [type(e).__name__ + ": " + str(e)]
    diffs = []
    if len(ours) != len(reference):
        diffs.append(("*", "", -1, len(reference), len(ours)))
        return "compared", diffs
    names = [n for n, _ in ref_fields]
    for col, (name, ftype) in enumerate(ref_fields):
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
    return "compared", diffs


# Tables whose layout the two readers take differently.
KNOWN = {
    "pr90.dbf": "layout: a C field longer than 255 keeps its high byte in the decimals byte; "
                "this library reads the low byte only, so later fields shift",
    "mazovia.dbf": "deletion flags of 0x00: dbfread skips such records as deleted, this "
                   "library deletes only records flagged '*'",
    "stations_with_deleted.dbf": "layout: the header's record length is one less than the "
                                 "fields add up to; this library steps by the header's length "
                                 "(5 live records), dbfread by the fields' and drifts a byte "
                                 "per record, taking the deleted one for live",
}


def category(path, diff, encoding):
    """Why dbfread and qzdbf differ on this cell; None when unexplained."""
    name, ftype, record, a, b = diff
    if path.name in KNOWN:
        return KNOWN[path.name]
    if ftype in ("T", "@", "Y", "0", "G", "P", "V", "+", "O"):
        return f"type {ftype}: no such field type in this library, read as the stored text"
    if ftype == "M" and b is None and a is not None:
        return "memo: block number not found by this library (binary block numbers, or no memo file)"
    if ftype == "M":
        return ("memo: the library's memo reader gives other bytes (an empty text, or a "
                "binary memo decoded with the table's code page)")
    if isinstance(a, str) and isinstance(b, str):
        if a.strip() == b.strip():
            return "text: leading blanks kept by one reader"
        try:
            if a.encode("cp1251", errors="strict") != b.encode("cp1251", errors="ignore"):
                return f"text: decoded with a different code page ({encoding} here, LDID there)"
        except UnicodeEncodeError:
            return f"text: decoded with a different code page ({encoding} here, LDID there)"
        return f"text: decoded with a different code page ({encoding} here, LDID there)"
    if ftype in ("N", "F") and a is None and b is not None:
        return "number: text dbfread calls blank (asterisks, NUL padding) read as a number here"
    if ftype in ("N", "F") and a is not None and b is None:
        return "number: text dbfread parses that the library calls no number"
    if ftype == "D":
        return "date: a date one reader refuses"
    if ftype == "L":
        return "logical: a letter read differently ('?', blank or unusual)"
    if ftype in ("I", "B"):
        return f"type {ftype}: binary value read differently"
    return None


if __name__ == "__main__":
    for path in corpus_tables():
        status, diffs = compare(path)
        rel = path.relative_to(CORPUS)
        if status != "compared":
            print(f"{status:8} {rel}: {diffs[0]}")
            continue
        try:
            enc = qzdbf.open(path).encoding
        except qzdbf.Error:
            enc = "?"
        print(f"compared {rel}: {len(diffs)} differences")
        seen = {}
        for d in diffs:
            seen.setdefault(category(path, d, enc), d)
        for cat, d in seen.items():
            print(f"    {cat}: e.g. {d}")
