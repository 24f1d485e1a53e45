# Typed values: t[i, name] and the frame's columns by field type, compared
# with dbfread on the sample tables that hold datetime and currency fields,
# Decimal on request, and the null flags of Visual FoxPro tables.

import datetime
import decimal
import struct

import dbfread
import pytest

import corpus as cc
import qzdbf


def test_datetime_and_currency_as_dbfread_reads_them():
    compared = {"T": 0, "Y": 0}
    for path in cc.corpus_tables():
        try:
            types = {f.name: f.type for f in dbfread.DBF(str(path), load=False).fields}
            ref = list(dbfread.DBF(str(path), ignore_missing_memofile=True))
        except Exception:
            continue
        names = [n for n, t in types.items() if t in "TY"]
        if not names:
            continue
        with qzdbf.open(path) as plain, qzdbf.open(path, decimal=True) as exact:
            # dbfread leaves out the records marked deleted.
            live = [r for r in range(len(plain)) if not plain.deleted(r)]
            assert len(live) == len(ref)
            for (r, rec), name in ((x, n) for x in zip(live, ref) for n in names):
                want, got, t = rec[name], plain[r, name], types[name]
                kind = datetime.datetime if t == "T" else float
                assert want is None or type(got) is kind, (path, name, r, got)
                assert got == (want if t == "T" else pytest.approx(float(want))), (path, name, r)
                assert t == "T" or exact[r, name] == want and type(exact[r, name]) is decimal.Decimal
                compared[t] += 1
    assert compared["T"] > 20 and compared["Y"] > 10, compared
    # The frame: datetime64 and float columns, Decimal objects on request,
    # datetime objects where a date lies past 2262.
    path = cc.CORPUS / "go-foxpro-dbf" / "dkeza.dbf"
    df = qzdbf.read_dataframe(path)
    assert str(df["DTIME"].dtype) == "datetime64[ns]" and str(df["CURR"].dtype) == "float64"
    exact = qzdbf.read_dataframe(path, decimal=True)["CURR"]
    assert all(isinstance(v, decimal.Decimal) for v in exact)
    assert [float(v) for v in exact] == df["CURR"].tolist()
    far = qzdbf.read_dataframe(cc.CORPUS / "DBFFile" / "dbase_currency.dbf")["DATEEND"]
    assert far.dtype == object and max(v for v in far if v is not None).year == 9999


def test_decimals_dates_bytes_and_null_flags_read_typed(tmp_path):
    D = decimal.Decimal
    path = tmp_path / "n.dbf"
    with qzdbf.create(path, [("P", "N", 12, 3), ("Q", "N", 9, 0), ("F", "F", 10, 2),
                             ("D", "D", 8, 0), ("C", "C", 6, 0), ("M", "M", 10, 0)]) as t:
        t.append((1234.5, 7, 0.1, datetime.date(1999, 12, 31), b"raw\xffb"))
        t.append((-0.001, None, None))
        t.append((99999999.999, -12345678, D("-1234.565")))  # rounded half away from 0
        for field, value in (("P", D("1234567890.5")), ("P", D("NaN")), ("M", 5)):
            pytest.raises(qzdbf.InvalidValue, t.__setitem__, (1, field), value)
        # A table made here has no memo file to take a memo.
        pytest.raises(qzdbf.MemoError, t.__setitem__, (1, "M"), "text")
    with qzdbf.open(path) as t:
        assert [type(v) for v in t.row(0)[:3]] == [float, int, float]
        assert t[2, "P"] == 99999999.999 and t[1, "Q"] is None and t[1, "M"] is None
    with qzdbf.open(path, decimal=True) as t:
        assert [t.row(r)[:4] for r in range(3)] == [
            (D("1234.500"), 7, D("0.10"), datetime.date(1999, 12, 31)),
            (D("-0.001"), None, None, None), (D("99999999.999"), -12345678, D("-1234.57"), None)]
        assert str(t[1, "P"]) == "-0.001"
    ref = list(dbfread.DBF(str(path), raw=True, ignore_missing_memofile=True))
    assert ref[0]["C"] == b"raw\xffb " and ref[2]["F"].strip() == b"-1234.57"

    # N, D, L, C and I may be null through _NullFlags (bit i: field i).
    path = tmp_path / "nulls.dbf"
    fields = [("N", "N", 6, 1, 2), ("D", "D", 8, 0, 2), ("L", "L", 1, 0, 2), ("C", "C", 5, 0, 2),
              ("I", "I", 4, 0, 2), ("_NullFlags", "0", 1, 0, 5)]
    full = [b"  12.5", b"20240131", b"T", b"abc  ", struct.pack("<i", 7)]
    cc.raw_table(path, fields, [full + [b"\x00"], full + [b"\x1f"],
                                full[:3] + [b"     ", full[4], b"\x08"]], vfp=True)
    df = qzdbf.read_dataframe(path)
    assert [str(t) for t in df.dtypes[:5]] == ["float64", "datetime64[ns]", "boolean", "object",
                                               "Int64"]
    assert df.iloc[0, :5].tolist() == [12.5, df.iloc[0, 1], True, "abc", 7]
    assert df.iloc[1, :5].isna().all()
    # Only C is null in the last record; its bytes alone would read "".
    assert df.iloc[2, 3] is None and not df.iloc[2, [0, 1, 2, 4]].isna().any()
    with qzdbf.open(path) as t:
        assert [t[r, "C"] for r in range(3)] == ["abc", None, None]
