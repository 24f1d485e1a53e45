"""Typed cell values: t[i, name] by field type, compared with dbfread on
the sample tables that hold datetime, currency and binary fields, and
Decimal on request."""

import datetime
import decimal

import pytest

import qzdbf
import corpus_compare as cc


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


def test_binary_memos_are_bytes_and_every_cell_reads():
    import dbfread
    binary = 0
    for path in cc.corpus_tables():
        try:
            t = qzdbf.open(path)
        except qzdbf.Error:
            continue
        with t:
            for r in range(len(t)):
                for f, v in zip(t.fields, t.row(r)):
                    assert v is None or isinstance(
                        v, (bool, int, float, str, bytes, datetime.date, decimal.Decimal)), \
                        (path, f, v)
                    if isinstance(v, bytes):
                        binary += 1
    assert binary > 0
