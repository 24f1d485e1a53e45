"""qzdbf: dBASE tables (.dbf with memo and code-page files) from Python.

Open a table with :func:`open`, read a whole table into a pandas DataFrame
with :func:`read_dataframe`, write one with :func:`write_dataframe`.
Failures raise subclasses of :class:`Error` carrying the library's message.
"""

import collections as _collections
import datetime as _datetime

import numpy as _np

from . import _qzdbf
from ._errors import (
    Error,
    InternalError,
    InvalidArgument,
    InvalidValue,
    IOFailure,
    Locked,
    MemoError,
    NotATable,
    NotFound,
    OutOfMemory,
    PermissionDenied,
)

__all__ = [
    "open", "load", "create", "check", "undo", "redo", "can_undo", "can_redo", "clear_history",
    "field_name_ok", "fix_field_name", "fix_field_names", "read_dataframe", "write_dataframe", "Table", "Field",
    "Finding", "Error", "InvalidArgument", "NotFound", "NotATable", "Locked",
    "PermissionDenied", "IOFailure", "MemoError", "InvalidValue", "OutOfMemory",
    "InternalError",
]

Field = _collections.namedtuple("Field", "name type length decimals")
Field.__doc__ = "A field of a table: name, type letter (C N F L D M I B), length, decimals."

Finding = _collections.namedtuple("Finding", "severity kind what where")
Finding.__doc__ = ("A finding of check(): severity (1 warning, 2 error, 3 fatal), kind "
                   "(a QZ_DBF_CHECK_* number), what is wrong, where.")


class Table(_qzdbf.Table):
    """An open table. Use it as a context manager, or call close().

    ``len(t)`` records; ``t.fields`` the fields; iterating gives each record
    as a tuple (deleted ones included: see :meth:`deleted`); ``t[i]`` record
    ``i`` as a dict; ``t[i, "NAME"]`` (or ``t[i, field_index]``) one cell, which
    can be assigned when the table is open for writing.

    Values by field type: N with decimals and F float (decimal.Decimal when
    opened with ``decimal=True``); N without decimals int (float when the
    cell holds a fraction); I and + int; B (double) and O float; Y (currency)
    float or Decimal; D datetime.date; T datetime.datetime; L bool; C str
    without trailing blanks; M the memo's text; G, P and binary memos bytes.
    A blank cell reads as None (an empty C cell as ""); assigning None
    blanks a cell.
    """

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False

    def __iter__(self):
        for i in range(len(self)):
            yield self.row(i)

    def __getitem__(self, key):
        if isinstance(key, tuple):
            record, field = key
            return self.cell(record, field)
        return self.row_dict(key)

    def __setitem__(self, key, value):
        if not isinstance(key, tuple):
            raise TypeError("assign cells as t[record, field] = value")
        record, field = key
        self.set_cell(record, field, value)

    def deleted(self, record):
        """True when ``record`` is marked deleted (it keeps its values until pack())."""
        return super().deleted(record)

    def set_deleted(self, record, value=True):
        """Mark ``record`` deleted (or live again with ``value=False``), in the file at once."""
        super().set_deleted(record, value)

    def pack(self):
        """Remove the records marked deleted; returns how many went. The file
        is replaced whole (a copy takes its place), and the table reopened."""
        return super().pack()

    def append(self, values):
        """Add a record from a dict (field names, any letter case) or a tuple
        (fields in order; missing ones stay blank); returns its index. A value
        the field refuses raises InvalidValue and leaves the new record marked
        deleted."""
        return super().append(values)

    def restructure(self, fields):
        """Give the table new fields, keeping its records.

        ``fields`` lists the fields in their new order, each either the name
        of a field kept as it is, or ``(name, type, length, decimals)`` (a
        field of that name takes its values from the old field of that name,
        converted; another name is a new, blank field), or ``(name, type,
        length, decimals, source)`` taking the values of the old field
        ``source`` (a rename). Old fields not listed go. A table file is
        rewritten whole (needs mode "r+"); a memory table changes in place
        as one step of the undo history."""
        super().restructure(list(fields))

    def save(self, path=None):
        """Write a memory table to its file (or to ``path``)."""
        if path is None:
            super().save()
        else:
            super().save_as(str(path))

    def __repr__(self):
        state = "closed" if self.closed else f"{len(self)} records"
        return f"<qzdbf.Table {self.path!r} {state}>"


def open(path, mode="r", encoding=None, decimal=False):
    """Open the table at ``path``.

    ``mode`` "r" reads only (no lock is taken); "r+" (or "w", "a") opens for
    writing and takes the table's writer lock, so a second writer gets
    :class:`Locked`. ``encoding`` ("utf-8", "cp1251", "cp866") overrides the
    one the table's .cpg file names. A file that is not a dBASE table raises
    :class:`NotATable`, a missing one :class:`NotFound`. With ``decimal``,
    cells of N and F fields with decimals (and currency fields) read as
    :class:`decimal.Decimal` with the stored digits instead of float.
    """
    return Table(str(path), mode, encoding, bool(decimal))


def load(path, encoding=None, decimal=False):
    """Load the table at ``path`` into memory and return it as a writable
    :class:`Table` (``t.in_memory`` is True). Its changes stay in memory,
    each a step of the process's undo history (:func:`undo`, :func:`redo`),
    until ``t.save()``; while it is loaded, other processes cannot write the
    file. ``close()`` lets it go."""
    return Table(str(path), "r+", encoding, bool(decimal), True)


def undo():
    """Undo the last change of a memory table (the history is the
    process's, shared by all loaded tables); False when there is none."""
    return _qzdbf.undo()


def redo():
    """Redo the last undone change; False when there is none."""
    return _qzdbf.redo()


def can_undo():
    """Whether :func:`undo` has a change to undo."""
    return _qzdbf.can_undo()


def can_redo():
    """Whether :func:`redo` has a change to redo."""
    return _qzdbf.can_redo()


def clear_history():
    """Forget every step of the undo history."""
    _qzdbf.clear_history()


def field_name_ok(name):
    """Whether ``name`` is a valid field name: 1 to 10 of A-Z, 0-9 and _,
    a letter first, no lower-case letter."""
    return _qzdbf.field_name_ok(str(name))


def fix_field_name(name):
    """The repaired field name: transliterated into Latin letters ("#"
    becomes "_"), leading non-letters dropped ("PROP" when nothing is left,
    "PROP1" for a lone "1"), cut to 10 characters, upper case."""
    return _qzdbf.fix_field_name(str(name))


def fix_field_names(names):
    """Every name repaired as :func:`fix_field_name` does, then names equal
    to an earlier one in any letter case numbered ("ID", "ID1", ...)."""
    return _qzdbf.fix_field_names([str(n) for n in names])


def create(path, fields, encoding="utf-8"):
    """Create a table with ``fields`` (a list of (name, type, length,
    decimals)) and no records, and return it open for writing."""
    core = _qzdbf.create(str(path), [tuple(f) for f in fields], encoding)
    core.close()
    return Table(str(path), "r+", encoding)


def check(path, values=False):
    """The findings of the file check for ``path`` (a list of Finding, empty
    for a clean file); ``values=True`` also checks every record's values."""
    return _qzdbf.check(str(path), bool(values))


# The instants datetime64[ns] holds.
_NS_FIRST = _datetime.datetime(1677, 9, 22)
_NS_LAST = _datetime.datetime(2262, 4, 11)


def read_dataframe(path, columns=None, encoding=None, skip_deleted=True, decimal=False):
    """Read a table into a pandas DataFrame, column by column.

    dtypes: N with decimals, F, B float64; N without decimals and I nullable
    Int64 (float64 when a cell holds a fraction); D datetime64 (NaT when
    blank; object datetime.date values when a date lies outside the years
    datetime64[ns] holds, 1677 to 2262); L nullable boolean; C object (str);
    M the memo's text (bytes for a binary memo), G, P and memo B bytes; T
    datetime64 (NaT when null); Y float64 (decimal.Decimal objects with
    ``decimal=True``, as N with decimals; T datetime.datetime objects when one
    lies outside 1677 to 2262); other types object values as
    ``t[i, name]`` gives them. Cells a _NullFlags field marks null are
    None/NaN/NaT/<NA>. ``columns`` picks fields by name; ``skip_deleted``
    leaves out records marked deleted.
    """
    import pandas as pd

    with open(path, "r", encoding, decimal) as t:
        parts = t.read_columns(None if columns is None else list(columns), bool(skip_deleted))
    arrays = []
    for name, kind, values, mask in parts:
        if kind == "int":
            arrays.append(pd.arrays.IntegerArray(values, mask))
        elif kind == "bool":
            arrays.append(pd.arrays.BooleanArray(values, mask))
        elif kind == "datetime64[ns]":
            arrays.append(values.view("datetime64[ns]"))
        elif kind == "datetime":
            # datetime.datetime objects (None for null) as datetime64[ns],
            # unless one lies outside the years that type holds: then the
            # objects stay, as for dates.
            if all(v is None or _NS_FIRST <= v <= _NS_LAST for v in values):
                arrays.append(_np.array(values, dtype="datetime64[ns]"))
            else:
                arrays.append(values)
        elif kind == "currency":
            arrays.append(_np.array([_np.nan if v is None else v for v in values],
                                    dtype="float64"))
        elif kind == "date":
            # A column with a date outside the years datetime64[ns] holds
            # stays datetime.date objects rather than wrap.
            dates = values.view("datetime64[D]").astype(object)
            dates[mask] = None
            arrays.append(dates)
        else:
            arrays.append(values)
    names = [p[0] for p in parts]
    # The arrays become the frame's columns as they are, without copies.
    if len(set(names)) == len(names):
        return pd.DataFrame(dict(zip(names, arrays)), copy=False)
    # A damaged header may name two fields alike: the frame keeps both.
    df = pd.DataFrame(dict(enumerate(arrays)), copy=False)
    df.columns = names
    return df


def _column_for(name, series, encoding, float_decimals):
    """The field and the prepared column that write a pandas Series."""
    import pandas as pd
    from pandas.api import types as pt

    dtype = series.dtype
    isna = series.isna().to_numpy()
    if pt.is_bool_dtype(dtype):
        values = series.to_numpy(dtype="float64", na_value=_np.nan) if isna.any() else \
            series.to_numpy(dtype=bool).astype("float64")
        col = _np.where(isna, -1, values).astype(_np.int8)
        return (name, "L", 1, 0), ("bool", col)
    if pt.is_integer_dtype(dtype):
        values = series.to_numpy(dtype="int64", na_value=0)
        live = values[~isna]
        width = max([1] + [len(str(int(v))) for v in (live.min(), live.max())] if live.size else [1])
        if width > 20:
            raise InvalidValue(f"{name}: integers wider than 20 digits cannot be stored")
        return (name, "N", max(width, 1), 0), ("int", values, isna)
    if pt.is_float_dtype(dtype):
        values = series.to_numpy(dtype="float64", na_value=_np.nan)
        if _np.isinf(values).any():
            raise InvalidValue(f"{name}: infinity cannot be stored")
        live = values[~_np.isnan(values)]
        whole = 1
        if live.size:
            big = max(abs(live.min()), abs(live.max()))
            whole = len(f"{big:.0f}") + (1 if live.min() < 0 else 0)
        length = whole + 1 + float_decimals
        if length > 254:
            raise InvalidValue(f"{name}: numbers too large for an N field")
        return (name, "N", length, float_decimals), ("float", values)
    if pt.is_datetime64_any_dtype(dtype):
        if getattr(dtype, "tz", None) is not None:
            raise InvalidValue(f"{name}: time-zone aware dates cannot be stored")
        days = series.to_numpy(dtype="datetime64[ns]").astype("datetime64[D]").astype(_np.int64)
        return (name, "D", 8, 0), ("date", days, isna)
    if pt.is_object_dtype(dtype) or pt.is_string_dtype(dtype):
        values = series.to_numpy(dtype=object)
        width = 1
        for v in values:
            if v is None or v is pd.NA or (isinstance(v, float) and v != v):
                continue
            if not isinstance(v, str):
                raise InvalidValue(f"{name}: only str values can be stored in a text "
                                   f"column, not {type(v).__name__}")
            try:
                width = max(width, len(v.encode(encoding)))
            except UnicodeEncodeError:
                raise InvalidValue(f"{name}: {v!r} cannot be written in {encoding}") from None
        if width > 254:
            raise InvalidValue(f"{name}: text of {width} bytes is longer than a C field (254)")
        values = _np.array([None if (v is None or v is pd.NA or
                                     (isinstance(v, float) and v != v)) else v for v in values],
                           dtype=object)
        return (name, "C", width, 0), ("str", values)
    raise InvalidValue(f"{name}: a column of dtype {dtype} cannot be stored")


def write_dataframe(df, path, encoding="utf-8", float_decimals=6):
    """Write a DataFrame as a new table at ``path`` (replacing any).

    Field types from dtypes: integers N (as wide as the widest value), floats
    N with ``float_decimals`` decimals (values are rounded to them), bool L,
    datetime64 D, str object C (as wide as the longest text in ``encoding``,
    at most 254 bytes). Column names must be field names (1 to 10 of A-Z, 0-9
    and _, a letter first). NaN, None, NA and NaT become blank cells. What
    cannot be stored raises :class:`InvalidValue` before anything is written.
    """
    fields, columns = [], []
    for name in df.columns:
        if not isinstance(name, str):
            raise InvalidValue(f"column {name!r}: a field name must be a str")
        field, column = _column_for(name, df[name], encoding, int(float_decimals))
        fields.append(field)
        columns.append(column)
    with create(path, fields, encoding) as t:
        t.write_columns(columns)
    return len(df)
