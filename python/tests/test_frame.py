# read_dataframe / write_dataframe: round trips of every supported dtype
# (read back here and by dbfread), what cannot be stored, and memory over
# many cycles.

import datetime

import dbfread
import numpy as np
import pandas as pd
import pytest

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
        pd.testing.assert_frame_equal(back, expected, check_dtype=n > 0)
        if n:
            assert [str(t) for t in back.dtypes[[0, 2]]] == ["Int64", "boolean"]
            assert str(back["D"].dtype).startswith("datetime64")
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


def test_dates_columns_and_skip_deleted(tmp_path):
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
    with pytest.raises(qzdbf.InvalidArgument):
        qzdbf.read_dataframe(path, columns=["NOPE"])


def test_what_cannot_be_stored_fails_before_writing(tmp_path):
    path = tmp_path / "bad.dbf"
    for column in ({"A": [1 + 2j]}, {"A": [b"bytes"]}, {"A": ["x" * 255]}, {"A": [float("inf")]},
                   {"lower": [1]}, {"TOO_LONG_NAME": [1]}, {"A": [pd.Timedelta(1)]},
                   {"A": pd.to_datetime(["2020-01-01"]).tz_localize("UTC")}):
        with pytest.raises(qzdbf.Error):
            qzdbf.write_dataframe(pd.DataFrame(column), path)
        assert not path.exists()
    with pytest.raises(qzdbf.InvalidValue, match="cp866"):
        qzdbf.write_dataframe(pd.DataFrame({"A": ["東京"]}), path, encoding="cp866")


def _rss_kib():
    with open("/proc/self/status") as f:
        return next(int(line.split()[1]) for line in f if line.startswith("VmRSS:"))


def test_open_read_close_cycles_keep_memory_flat(tmp_path):
    path = tmp_path / "leak.dbf"
    qzdbf.write_dataframe(random_frame(50, 7), path)

    def cycle(i):
        with qzdbf.open(path, decimal=True) as t:
            t[0]
            t.read_columns()
        # The pandas frame itself (much slower to build) every 20th cycle.
        if i % 20 == 0:
            qzdbf.read_dataframe(path)

    for i in range(10500):  # 500 to settle, then 10,000 measured
        if i == 500:
            before = _rss_kib()
        cycle(i)
    assert (grown := _rss_kib() - before) < 4096, f"RSS grew by {grown} KiB over 10,000 cycles"
