"""Character fields over 255 bytes (the length's high byte in the decimals
byte): the field reports its whole width, and the frame reads that field
and the fields after it as dbfread does."""

import dbfread
import pandas as pd

import corpus as cc
import qzdbf


def _plain(v):
    if v is None or v is pd.NA or v is pd.NaT or (isinstance(v, float) and v != v):
        return None
    if isinstance(v, pd.Timestamp):
        return v.date()
    if hasattr(v, "item"):
        v = v.item()
    if isinstance(v, str):
        return v.rstrip() or None
    return v


def test_wide_character_field_and_the_fields_after_it():
    path = cc.CORPUS / "php-xbase" / "foxpro" / "pr90.dbf"
    with qzdbf.open(path) as t:
        note = [f for f in t.fields if f.name == "NOTE"][0]
    assert (note.length, note.decimals) == (300, 0)
    df = qzdbf.read_dataframe(path)
    reference = list(dbfread.DBF(str(path), load=True))
    assert max(len(r["NOTE"].rstrip()) for r in reference) > 44  # past what the length byte says
    for r, rec in enumerate(reference):
        for name, want in rec.items():
            assert _plain(df[name].iloc[r]) == _plain(want), (name, r)
