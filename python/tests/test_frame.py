# read_dataframe / write_dataframe: round trips of every supported dtype
# (read back here and by dbfread), what cannot be stored, memory over many
# cycles, and the two ways a table file is read.

import datetime
import struct

import dbfread
import numpy as np
import pandas as pd
import pytest

import corpus as cc
import qzdbf


def random_frame(n, seed):
    rng = np.random.default_rng(seed)

    def blanks(values, share=0.2):
        values[rng.random(n) < share] = None
        return values

    words = ["", "a", "Zürich", "Москва", "東京", "tab\tin", " lead", "x" * 30, "€uro"]
    return pd.DataFrame({
        "I": blanks(pd.array(rng.integers(-10**12, 10**12, n), dtype="Int64")),
        "F": blanks(np.round(rng.normal(0, 1e5, n), 6)),
        "B": blanks(pd.array(rng.random(n) < 0.5, dtype="boolean")),
        "D": blanks(pd.Series(pd.to_datetime("1900-01-01") +
                              pd.to_timedelta(rng.integers(0, 60000, n), unit="D"))),
        "S": blanks(pd.Series([words[i] for i in rng.integers(0, len(words), n)], dtype=object),
                    0.1),
        "PLAIN": rng.integers(0, 100, n)})


def test_round_trip_of_every_dtype(tmp_path):
    for seed, n in ((1, 500), (2, 1), (3, 0)):
        df = random_frame(n, seed)
        path = tmp_path / f"rt{seed}.dbf"
        qzdbf.write_dataframe(df, path)
        back = qzdbf.read_dataframe(path)
        # A C field keeps no difference between None and "".
        expected = df.assign(S=df["S"].fillna(""), PLAIN=df["PLAIN"].astype("Int64"))
        # Int64, float, boolean, datetime64 and object columns as written.
        pd.testing.assert_frame_equal(back, expected, check_dtype=n > 0)
        # dbfread reads every cell alike (its blanks are None, NaN or "").
        for r, rec in enumerate(dbfread.DBF(str(path), encoding="utf-8")):
            for name, value in rec.items():
                want = expected[name].iloc[r]
                if pd.isna(want):
                    assert value is None or value == "" or value != value, (name, r, value)
                elif name == "D":
                    assert value == want.date(), (r, value, want)
                else:
                    assert value == pytest.approx(want, rel=1e-12), (name, r, value, want)


def test_dates_columns_skip_deleted_and_what_cannot_be_stored(tmp_path):
    # Dates outside the nanosecond range stay dates.
    path = tmp_path / "d.dbf"
    days = [datetime.date(1099, 7, 10), None, datetime.date(9999, 12, 31)]
    with qzdbf.create(path, [("D", "D", 8, 0)]) as t:
        for d in days:
            t.append((d,))
    assert qzdbf.read_dataframe(path)["D"].tolist() == days
    qzdbf.write_dataframe(pd.DataFrame({"A": [1, 2, 3], "B": ["x", "y", "z"]}), path)
    with qzdbf.open(path, "r+") as t:
        t.set_deleted(1)
    assert qzdbf.read_dataframe(path, columns=["b"]).to_dict("list") == {"B": ["x", "z"]}
    assert qzdbf.read_dataframe(path, skip_deleted=False)["A"].tolist() == [1, 2, 3]
    pytest.raises(qzdbf.InvalidArgument, qzdbf.read_dataframe, path, columns=["NOPE"])
    # What cannot be stored fails before writing.
    path = tmp_path / "bad.dbf"
    for column in ({"A": [1 + 2j]}, {"A": [b"bytes"]}, {"A": ["x" * 255]}, {"A": [float("inf")]},
                   {"lower": [1]}, {"TOO_LONG_NAME": [1]}, {"A": [pd.Timedelta(1)]},
                   {"A": pd.to_datetime(["2020-01-01"]).tz_localize("UTC")}):
        pytest.raises(qzdbf.Error, qzdbf.write_dataframe, pd.DataFrame(column), path)
        assert not path.exists()
    pytest.raises(qzdbf.InvalidValue, qzdbf.write_dataframe, pd.DataFrame({"A": ["東京"]}), path,
                  encoding="cp866").match("cp866")


def test_open_read_close_cycles_keep_memory_flat(tmp_path):
    path = tmp_path / "leak.dbf"
    qzdbf.write_dataframe(random_frame(50, 7), path)
    rss = []
    for i in range(10501):  # 500 to settle, then 10,000 measured
        if i in (500, 10500):
            with open("/proc/self/status") as f:
                rss += [int(line.split()[1]) for line in f if line.startswith("VmRSS:")]
        with qzdbf.open(path, decimal=True) as t:
            t[0]
            t.read_columns()
        if i % 20 == 0:  # the pandas frame itself is much slower to build
            qzdbf.read_dataframe(path)
    assert rss[1] - rss[0] < 4096, f"RSS grew by {rss[1] - rss[0]} KiB over 10,000 cycles"


# The two ways read_dataframe reads a table file: record images parsed in
# the extension, and the library's cell getters (what memory and OGR tables
# use). Both must give the same columns for every file, odd cells included.
def same_values(a, b):
    if a.dtype == object:
        return len(a) == len(b) and all(x == y or (x is None and y is None) for x, y in zip(a, b))
    if a.dtype.kind == "f":
        return np.array_equal(a, b, equal_nan=True) and np.array_equal(np.signbit(a), np.signbit(b))
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


def test_corpus_and_cut_images_read_as_the_getters_do(tmp_path):
    checked = 0
    for path in cc.corpus_tables():
        try:
            qzdbf.open(path).close()
        except qzdbf.Error:
            continue
        assert_paths_agree(path)
        checked += 1
    assert checked >= 50
    # A C field over 255 bytes (the length's high byte in the decimals byte)
    # reports its whole width; the library reads it (and the fields after it)
    # as other readers do, and the images above agree with it.
    with qzdbf.open(cc.CORPUS / "php-xbase" / "foxpro" / "pr90.dbf") as t:
        assert [(f.length, f.decimals) for f in t.fields if f.name == "NOTE"] == [(300, 0)]
    # A file whose last record is cut in half holds 49 whole records.
    path = tmp_path / "cut.dbf"
    cc.raw_table(path, [("A", "N", 5, 0), ("B", "C", 4, 0)],
                 [[b"%5d" % i, b"r%03d" % i] for i in range(50)])
    path.write_bytes(path.read_bytes()[:-1 - 5])
    assert_paths_agree(path)
    with qzdbf.open(path) as t:
        a = t.read_columns(["A"], False, False)[0]
        assert list(a[2][:49]) == list(range(49))


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
