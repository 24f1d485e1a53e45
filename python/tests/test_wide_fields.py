# Character fields over 255 bytes (the length's high byte in the decimals
# byte): the field reports its whole width, and every read path (the frame
# from record images, the rows and cells of a table file or of a loaded
# copy, the frame through the cell getters) reads that field and the fields
# after it as dbfread does.

import shutil

import dbfread
import pandas as pd

import corpus as cc
import qzdbf

PR90 = cc.CORPUS / "php-xbase" / "foxpro" / "pr90.dbf"


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


def _same_as_dbfread(reference, cell):
    # cell(record, name) of every cell equals dbfread's value.
    for r, rec in enumerate(reference):
        for name, want in rec.items():
            assert _plain(cell(r, name)) == _plain(want), (name, r)


def test_wide_character_field_and_the_fields_after_it(tmp_path):
    reference = list(dbfread.DBF(str(PR90), load=True))
    assert max(len(r["NOTE"].rstrip()) for r in reference) > 44  # past what the length byte says
    # A writable copy of the table and its memo file (the corpus is never
    # opened for writing).
    for suffix in (".dbf", ".fpt"):
        shutil.copy(PR90.with_suffix(suffix), tmp_path / ("pr90" + suffix))
        (tmp_path / ("pr90" + suffix)).chmod(0o644)
    copy = tmp_path / "pr90.dbf"
    # A loaded copy: its handles, and the frame read while it is loaded,
    # read through the cell getters.
    with qzdbf.open(PR90) as t, qzdbf.load(copy) as m:
        assert [(f.length, f.decimals) for f in t.fields if f.name == "NOTE"] == [(300, 0)]
        names = [f.name for f in t.fields]
        for table in (t, m):
            _same_as_dbfread(reference, lambda r, name: table[r][name])
            _same_as_dbfread(reference, lambda r, name: table[r, name])
            _same_as_dbfread(reference, lambda r, name: table.row(r)[names.index(name)])
        for df in (qzdbf.read_dataframe(PR90), qzdbf.read_dataframe(copy)):
            _same_as_dbfread(reference, lambda r, name: df[name].iloc[r])
    # The setters write the wide field and the fields after it.
    with qzdbf.open(copy, "r+") as t:
        t[1, "UNAME"] = "alice"
        t[2, "NOTE"] = "n" * 300
    reference[1]["UNAME"], reference[2]["NOTE"] = "alice", "n" * 300
    written = list(dbfread.DBF(str(copy), load=True))
    _same_as_dbfread(reference, lambda r, name: written[r][name])
