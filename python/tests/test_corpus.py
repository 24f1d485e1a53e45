"""read_dataframe against dbfread over the sample tables: every cell equal,
or different for a reason corpus_compare names (a dbfread quirk or a layout
the two readers take differently); none left unexplained."""

import decimal

import corpus_compare as cc
import qzdbf


def test_corpus_frames_equal_dbfread_but_for_named_quirks():
    compared = identical = 0
    unexplained = []
    for path in cc.corpus_tables():
        status, diffs, _ = cc.compare(path)
        if not status.startswith("compared"):
            continue
        compared += 1
        identical += not diffs
        unexplained += [(path.name, d) for d in diffs if cc.category(path, d) is None]
    assert unexplained == []
    assert compared >= 150 and identical >= 150, (compared, identical)


def test_typed_columns_of_rare_types():
    path = cc.CORPUS / "go-foxpro-dbf" / "dkeza.dbf"
    df = qzdbf.read_dataframe(path)
    assert str(df["DTIME"].dtype) == "datetime64[ns]"
    assert str(df["CURR"].dtype) == "float64"
    exact = qzdbf.read_dataframe(path, decimal=True)["CURR"]
    assert exact.dtype == object and all(isinstance(v, decimal.Decimal) for v in exact)
    assert [float(v) for v in exact] == df["CURR"].tolist()
    # A datetime past 2262 keeps the column as datetime objects.
    far = qzdbf.read_dataframe(cc.CORPUS / "DBFFile" / "dbase_currency.dbf")["DATEEND"]
    assert far.dtype == object and max(v for v in far if v is not None).year == 9999
