"""Files written by write_dataframe read back by the other readers: dbfread
and GDAL's OGR give the same cells, for random frames of every supported
dtype with blanks, empty and non-ASCII text."""

import datetime
import math

import numpy as np
import pandas as pd
import pytest

import qzdbf
from test_frame import random_frame


def cells_of(df):
    """Rows of the frame as plain Python values, blanks as None."""
    rows = []
    for rec in df.itertuples(index=False):
        row = []
        for v in rec:
            if v is None or v is pd.NA or v is pd.NaT or (isinstance(v, float) and math.isnan(v)):
                row.append(None)
            elif isinstance(v, pd.Timestamp):
                row.append(v.date())
            elif isinstance(v, (np.integer, np.bool_, np.floating)):
                row.append(v.item())
            else:
                row.append(v)
        rows.append(row)
    return rows


def ogr_rows(path):
    ogr = pytest.importorskip("osgeo.ogr")
    ogr.UseExceptions()
    ds = ogr.Open(str(path))
    layer = ds.GetLayer(0)
    defn = layer.GetLayerDefn()
    kinds = [defn.GetFieldDefn(i).GetType() for i in range(defn.GetFieldCount())]
    rows = []
    for feature in layer:
        row = []
        for i, kind in enumerate(kinds):
            if not feature.IsFieldSetAndNotNull(i):
                row.append(None)
            elif kind == ogr.OFTDate:
                y, m, d = feature.GetFieldAsDateTime(i)[:3]
                row.append(datetime.date(y, m, d))
            elif kind in (ogr.OFTInteger, ogr.OFTInteger64):
                row.append(feature.GetFieldAsInteger64(i))
            elif kind == ogr.OFTReal:
                row.append(feature.GetFieldAsDouble(i))
            else:
                row.append(feature.GetFieldAsString(i))
        rows.append(row)
    return rows


@pytest.mark.parametrize("seed", [11, 12])
def test_written_frames_read_alike_by_dbfread_and_ogr(tmp_path, seed):
    import dbfread

    df = random_frame(300, seed)
    path = tmp_path / f"w{seed}.dbf"
    qzdbf.write_dataframe(df, path)
    ours = cells_of(qzdbf.read_dataframe(path))
    # dbfread: L blanks are None, C blanks "" as here.
    ref = [list(r.values()) for r in dbfread.DBF(str(path), encoding="utf-8")]
    assert len(ref) == len(ours)
    for a, b in zip(ref, ours):
        for x, y in zip(a, b):
            if isinstance(y, float):
                assert x == pytest.approx(y, rel=1e-12)
            else:
                assert x == y
    # OGR: the logical field is read as text ("T", "F", blank as unset or "?").
    rows = ogr_rows(path)
    assert len(rows) == len(ours)
    names = list(df.columns)
    b_col = names.index("B")
    for got, want in zip(rows, ours):
        for i, (x, y) in enumerate(zip(got, want)):
            if i == b_col:
                assert (x or None) in ({True: "T", False: "F"}.get(y), "?" if y is None else "x"), \
                    (x, y)
            elif isinstance(y, float):
                assert x == pytest.approx(y, rel=1e-12), (names[i], x, y)
            elif isinstance(y, str):
                # OGR trims leading blanks too, and takes an all-blank C
                # cell as unset.
                assert (x or "") == y.lstrip(), (names[i], x, y)
            else:
                assert x == y, (names[i], x, y)
