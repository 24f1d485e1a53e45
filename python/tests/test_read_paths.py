# The two ways read_dataframe reads a table file: record images parsed in
# the extension, and the library's cell getters (what memory and OGR tables
# use). Both must give the same columns for every file, odd cells included.

import struct

import numpy as np
import pytest

import qzdbf
import corpus as cc


def same_values(a, b):
    if a.dtype == object:
        return len(a) == len(b) and all(x == y or (x is None and y is None) for x, y in zip(a, b))
    if a.dtype.kind == "f":
        return np.array_equal(a, b, equal_nan=True) and \
            np.array_equal(np.signbit(a), np.signbit(b))
    return np.array_equal(a, b)


def assert_paths_agree(path, encoding=None):
    with qzdbf.open(path, "r", encoding) as t:
        for skip in (True, False):
            fast, slow = t.read_columns(None, skip, False), t.read_columns(None, skip, True)
            assert [c[:2] for c in fast] == [c[:2] for c in slow], path
            for f, s in zip(fast, slow):
                vf, mf, vs, ms = f[2], f[3], s[2], s[3]
                if mf is not None:
                    assert np.array_equal(mf, ms), (path, f[0])
                    vf, vs = vf[~ms], vs[~ms]
                assert same_values(vf, vs), (path, f[0])


def test_corpus_images_read_as_the_getters_do():
    checked = 0
    for path in cc.corpus_tables():
        try:
            qzdbf.open(path).close()
        except qzdbf.Error:
            continue
        assert_paths_agree(path)
        checked += 1
    assert checked >= 50


ODD_NUMBERS = [b"    12", b"  -3.5", b"  1,25", b"1e3   ", b"******", b"      ", b"\0\0\0\0\0\0",
               b"  +7  ", b"   12.", b"  -0  ", b"   .5 ", b"  - 1 ", b"12 34 ", b"  nan ",
               b"0x1F  ", b"\t  12 ", b"1\x0012  "]
ODD_DATES = [b"20240229", b"20230229", b"        ", b"00000000", b"2024 1 1", b"19991231",
             b"\0\0\0\0\0\0\0\0", b"99991231", b"00010101", b"2024021 "]
ODD_LOGICALS = [b"T", b"f", b"Y", b"n", b"?", b" ", b"\0", b"1", b"x"]
ODD_TEXTS = [b"plain", b"   lead", b"nul\0after", b"\xff\xfe bad", b"\xd0\x96\xd0", b"",
             b"\xc3\xa9t\xc3\xa9", b"\x80\x98\xa0\xff", b"\x98\x98\x98", b"tail \x98\xff "]


@pytest.mark.parametrize("encoding", [None, "utf-8", "cp1251", "cp866"])
def test_odd_cells_read_as_the_getters_do(tmp_path, encoding):
    n = 40
    fields = [("NI", "N", 6, 0), ("ND", "N", 6, 2), ("FF", "F", 6, 2), ("D", "D", 8, 0),
              ("L", "L", 1, 0), ("C", "C", 10, 0), ("I", "I", 4, 0)]
    records = [[ODD_NUMBERS[i % len(ODD_NUMBERS)], ODD_NUMBERS[(i * 7) % len(ODD_NUMBERS)],
                ODD_NUMBERS[(i * 3) % len(ODD_NUMBERS)], ODD_DATES[i % len(ODD_DATES)],
                ODD_LOGICALS[i % len(ODD_LOGICALS)], ODD_TEXTS[i % len(ODD_TEXTS)],
                struct.pack("<i", (i - 20) * 100_000_007 % 2**31 - 2**30)] for i in range(n)]
    path = tmp_path / "odd.dbf"
    cc.raw_table(path, fields, records, deleted={3, 17, 39})
    assert_paths_agree(path, encoding)
    with qzdbf.open(path, "r", encoding) as t:
        assert len(t.read_columns(None, True, False)[0][2]) == n - 3


def test_truncated_file_and_header_past_the_records(tmp_path):
    fields = [("A", "N", 5, 0), ("B", "C", 4, 0)]
    records = [[b"%5d" % i, b"r%03d" % i] for i in range(50)]
    path = tmp_path / "cut.dbf"
    cc.raw_table(path, fields, records)
    # The last record cut in half: the file holds 49 whole records.
    path.write_bytes(path.read_bytes()[:-1 - 5])
    assert_paths_agree(path)
    with qzdbf.open(path) as t:
        a = t.read_columns(["A"], False, False)[0]
        assert list(a[2][:49]) == list(range(49))
