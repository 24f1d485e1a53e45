"""Typed cell values: t[i, name] by field type, compared with dbfread on
the sample tables that hold datetime, currency and binary fields, and
Decimal on request."""

import datetime
import decimal

import pytest

import qzdbf
import corpus as cc


def typed_tables():
    import dbfread
    out = []
    for path in cc.corpus_tables():
        try:
            fields = dbfread.DBF(str(path), load=False).fields
        except Exception:
            continue
        picked = [f.name for f in fields if f.type in "TY"]
        if picked:
            out.append((path, picked))
    return out


def test_datetime_and_currency_as_dbfread_reads_them():
    import dbfread
    compared = {"T": 0, "Y": 0}
    tables = typed_tables()
    assert len(tables) >= 5
    for path, names in tables:
        try:
            ref = list(dbfread.DBF(str(path), ignore_missing_memofile=True))
        except Exception:
            continue
        with qzdbf.open(path) as plain, qzdbf.open(path, decimal=True) as exact:
            types = {f.name: f.type for f in dbfread.DBF(str(path), load=False).fields}
            # dbfread leaves out the records marked deleted.
            live = [r for r in range(len(plain)) if not plain.deleted(r)]
            assert len(live) == len(ref)
            for r, rec in zip(live, ref):
                for name in names:
                    want = rec[name]
                    if types[name] == "T":
                        assert plain[r, name] == want, (path, name, r)
                        assert want is None or type(plain[r, name]) is datetime.datetime
                    else:
                        assert exact[r, name] == want, (path, name, r)
                        assert isinstance(exact[r, name], decimal.Decimal)
                        assert plain[r, name] == pytest.approx(float(want))
                    compared[types[name]] += 1
    assert compared["T"] > 20 and compared["Y"] > 10, compared


def test_numbers_with_decimals_as_decimal_on_request(tmp_path):
    path = tmp_path / "n.dbf"
    with qzdbf.create(path, [("P", "N", 12, 3), ("Q", "N", 9, 0), ("F", "F", 10, 2)]) as t:
        t.append((1234.5, 7, 0.1))
        t.append((-0.001, None, None))
        t.append((99999999.999, -12345678, 12345.67))
    with qzdbf.open(path) as t:
        assert [type(v) for v in t.row(0)] == [float, int, float]
        assert t[2, "P"] == 99999999.999 and t[1, "Q"] is None
    with qzdbf.open(path, decimal=True) as t:
        assert t.row(0) == (decimal.Decimal("1234.500"), 7, decimal.Decimal("0.10"))
        assert t[1, "P"] == decimal.Decimal("-0.001") and str(t[1, "P"]) == "-0.001"
        assert t.row(2) == (decimal.Decimal("99999999.999"), -12345678, decimal.Decimal("12345.67"))
        assert t[1, "F"] is None


def test_typed_writes_of_decimals_dates_and_bytes(tmp_path):
    import dbfread

    path = tmp_path / "w.dbf"
    with qzdbf.create(path, [("P", "N", 10, 2), ("D", "D", 8, 0), ("C", "C", 6, 0),
                             ("M", "M", 10, 0)]) as t:
        t.append({"P": decimal.Decimal("-1234.565"), "D": datetime.date(1999, 12, 31),
                  "C": b"raw\xffb"})
        t.append({"P": decimal.Decimal("0.1")})
        for value in (decimal.Decimal("123456789.5"), decimal.Decimal("NaN")):
            with pytest.raises(qzdbf.InvalidValue):
                t[1, "P"] = value
        with pytest.raises(qzdbf.InvalidValue):
            t[1, "M"] = 5
        # A table made here has no memo file to take a memo.
        with pytest.raises(qzdbf.MemoError):
            t[1, "M"] = "text"
    with qzdbf.open(path, decimal=True) as t:
        # Rounded half away from zero to the field's decimals.
        assert t[0, "P"] == decimal.Decimal("-1234.57") and t[1, "P"] == decimal.Decimal("0.10")
        assert t[0, "D"] == datetime.date(1999, 12, 31) and t[1, "M"] is None
    ref = list(dbfread.DBF(str(path), raw=True, ignore_missing_memofile=True))
    assert ref[0]["C"] == b"raw\xffb " and ref[0]["P"].strip() == b"-1234.57"
