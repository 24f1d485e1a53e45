"""read_dataframe / write_dataframe: round trips of every supported dtype
(read back here and by dbfread), what cannot be stored, and memory over
many cycles."""

import datetime
import os

import numpy as np
import pandas as pd
import pytest

import qzdbf


def random_frame(n, seed):
    rng = np.random.default_rng(seed)
    words = ["", "a", "Zürich", "Москва", "東京", "tab\tin", " lead", "x" * 30, "€uro"]
    ints = pd.array(rng.integers(-10**12, 10**12, n), dtype="Int64")
    ints[rng.random(n) < 0.2] = pd.NA
    floats = np.round(rng.normal(0, 1e5, n), 6)
    floats[rng.random(n) < 0.2] = np.nan
    bools = pd.array(rng.random(n) < 0.5, dtype="boolean")
    bools[rng.random(n) < 0.2] = pd.NA
    dates = pd.Series(pd.to_datetime("1900-01-01") +
                      pd.to_timedelta(rng.integers(0, 60000, n), unit="D"))
    dates[rng.random(n) < 0.2] = pd.NaT
    text = pd.Series([words[i] for i in rng.integers(0, len(words), n)], dtype=object)
    text[rng.random(n) < 0.1] = None
    return pd.DataFrame({"I": ints, "F": floats, "B": bools, "D": dates, "S": text,
                         "PLAIN": rng.integers(0, 100, n)})


def test_round_trip_of_every_dtype(tmp_path):
    import dbfread

    for seed, n in ((1, 500), (2, 1), (3, 0)):
        df = random_frame(n, seed)
        path = tmp_path / f"rt{seed}.dbf"
        qzdbf.write_dataframe(df, path)
        back = qzdbf.read_dataframe(path)
        expected = df.copy()
        # A C field keeps no difference between None and "".
        expected["S"] = expected["S"].fillna("")
        expected["PLAIN"] = expected["PLAIN"].astype("Int64")
        pd.testing.assert_frame_equal(back, expected, check_dtype=n > 0)
        if n:
            assert str(back["I"].dtype) == "Int64" and str(back["B"].dtype) == "boolean"
            assert str(back["D"].dtype).startswith("datetime64")
            # dbfread reads every cell alike (its blanks are None, NaN or "").
            ref = list(dbfread.DBF(str(path), encoding="utf-8"))
            for r, rec in enumerate(ref):
                for name, value in rec.items():
                    want = expected[name].iloc[r]
                    if want is None or want is pd.NA or want is pd.NaT or \
                            (isinstance(want, float) and np.isnan(want)):
                        assert value is None or value == "" or value != value, (name, r, value)
                    elif name == "D":
                        assert value == want.date(), (r, value, want)
                    elif name == "F":
                        assert value == pytest.approx(want, rel=1e-12), (r, value, want)
                    else:
                        assert value == want, (name, r, value, want)


def test_dates_outside_nanosecond_range_stay_dates(tmp_path):
    path = tmp_path / "d.dbf"
    days = [datetime.date(1099, 7, 10), None, datetime.date(9999, 12, 31)]
    with qzdbf.create(path, [("D", "D", 8, 0)]) as t:
        for d in days:
            t.append((d,))
    assert qzdbf.read_dataframe(path)["D"].tolist() == days


def test_columns_and_skip_deleted(tmp_path):
    path = tmp_path / "c.dbf"
    qzdbf.write_dataframe(pd.DataFrame({"A": [1, 2, 3], "B": ["x", "y", "z"]}), path)
    with qzdbf.open(path, "r+") as t:
        t.set_deleted(1)
    assert qzdbf.read_dataframe(path, columns=["b"]).to_dict("list") == {"B": ["x", "z"]}
    assert qzdbf.read_dataframe(path, skip_deleted=False)["A"].tolist() == [1, 2, 3]
    with pytest.raises(qzdbf.InvalidArgument):
        qzdbf.read_dataframe(path, columns=["NOPE"])


def test_what_cannot_be_stored_fails_before_writing(tmp_path):
    path = tmp_path / "bad.dbf"
    cases = [
        pd.DataFrame({"A": [1 + 2j]}),
        pd.DataFrame({"A": [b"bytes"]}),
        pd.DataFrame({"A": ["x" * 255]}),
        pd.DataFrame({"A": [float("inf")]}),
        pd.DataFrame({"lower": [1]}),
        pd.DataFrame({"TOO_LONG_NAME": [1]}),
        pd.DataFrame({"A": pd.to_datetime(["2020-01-01"]).tz_localize("UTC")}),
        pd.DataFrame({"A": [pd.Timedelta(1)]}),
    ]
    for df in cases:
        with pytest.raises(qzdbf.Error):
            qzdbf.write_dataframe(df, path)
        assert not path.exists()
    with pytest.raises(qzdbf.InvalidValue, match="cp866"):
        qzdbf.write_dataframe(pd.DataFrame({"A": ["東京"]}), path, encoding="cp866")


def _rss_kib():
    with open("/proc/self/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


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

    for i in range(500):
        cycle(i)
    before = _rss_kib()
    for i in range(10000):
        cycle(i)
    grown = _rss_kib() - before
    print(f"RSS {before} KiB after 500 cycles, grew {grown} KiB over 10,000 more")
    assert grown < 4096, f"RSS grew by {grown} KiB over 10,000 cycles"
