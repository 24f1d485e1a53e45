"""read_dataframe on sample tables of rare field types and on null flags.
(Every cell of the sample tables is compared with dbfread through the
library's getters by the C++ interop suite; test_read_paths checks that the
frames read what the getters read.)"""

import decimal
import struct

import corpus as cc
import qzdbf


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


def vfp_table(path, records):
    """A Visual FoxPro table, written byte by byte, whose N, D, L, C and I
    fields may be null through its _NullFlags field (bit i: field i)."""
    fields = [("N", "N", 6, 1), ("D", "D", 8, 0), ("L", "L", 1, 0), ("C", "C", 5, 0),
              ("I", "I", 4, 0), ("_NullFlags", "0", 1, 0)]
    head = struct.pack("<BBBBIHH20x", 0x30, 124, 1, 1, len(records),
                       32 + 32 * len(fields) + 1 + 263, 1 + sum(f[2] for f in fields))
    desc, offset = b"", 1
    for name, ftype, length, decimals in fields:
        flags = 0x05 if ftype == "0" else 0x02  # system field / nullable
        desc += struct.pack("<11scIBBB13x", name.encode(), ftype.encode(), offset, length,
                            decimals, flags)
        offset += length
    body = b"".join(b" " + b"".join(r) for r in records)
    path.write_bytes(head + desc + b"\r" + b"\0" * 263 + body + b"\x1a")


def test_null_flags_blank_cells_of_every_column_kind(tmp_path):
    path = tmp_path / "nulls.dbf"
    full = [b"  12.5", b"20240131", b"T", b"abc  ", struct.pack("<i", 7)]
    vfp_table(path, [full + [b"\x00"], full + [b"\x1f"], full[:3] + [b"     ", full[4], b"\x08"]])
    df = qzdbf.read_dataframe(path)
    assert [str(t) for t in df.dtypes[:5]] == ["float64", "datetime64[ns]", "boolean", "object",
                                               "Int64"]
    assert df.iloc[0, :5].tolist() == [12.5, df.iloc[0, 1], True, "abc", 7]
    assert df.iloc[1, :5].isna().all()
    # Only C is null in the last record; its bytes alone would read "".
    assert df.iloc[2, 3] is None and not df.iloc[2, [0, 1, 2, 4]].isna().any()
    with qzdbf.open(path) as t:
        assert [t[r, "C"] for r in range(3)] == ["abc", None, None]
