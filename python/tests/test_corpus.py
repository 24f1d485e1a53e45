"""read_dataframe over every sample table: no crash on any file, and equal
to dbfread cell by cell except for the explained differences."""

import pytest

import qzdbf
import corpus_compare as cc

TABLES = cc.corpus_tables()


def test_every_file_opens_or_raises_a_library_error():
    assert TABLES, f"no sample tables under {cc.CORPUS}"
    for path in TABLES:
        try:
            with qzdbf.open(path) as t:
                list(t)
            qzdbf.read_dataframe(path, skip_deleted=False)
        except qzdbf.Error:
            pass
        qzdbf.check(path, values=True)


def test_equal_to_dbfread_but_for_explained_differences():
    compared = 0
    unexplained = []
    for path in TABLES:
        status, diffs = cc.compare(path)
        if status != "compared":
            continue
        compared += 1
        enc = qzdbf.open(path).encoding
        for d in diffs:
            if cc.category(path, d, enc) is None:
                unexplained.append((str(path.relative_to(cc.CORPUS)),) + d)
    assert compared >= 50
    assert not unexplained, "\n".join(map(str, unexplained[:20]))
