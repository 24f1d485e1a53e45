# The library seen from Python (ctypes) beside its peers, python3-dbfread
# and GDAL: shared by the peer comparisons of this folder. Importing it
# exits 77 (skip) when dbfread is missing; `gdal` is None without GDAL.
# A sanitizer build of the library needs its runtimes in LD_PRELOAD.
import ctypes
import datetime
import decimal
import os
import shutil
import sys

try:
    import dbfread
    from dbfread.field_parser import FieldParser
except ImportError:
    print("python3-dbfread is not installed")
    sys.exit(77)
try:
    from osgeo import gdal
    gdal.UseExceptions()
except ImportError:
    gdal = None


class Value(ctypes.Structure):
    _fields_ = [("kind", ctypes.c_int), ("i", ctypes.c_longlong), ("d", ctypes.c_double),
                ("text", ctypes.c_void_p), ("length", ctypes.c_size_t)]


class Field(ctypes.Structure):
    _pack_ = 1
    _fields_ = [("name", ctypes.c_char * 11), ("type", ctypes.c_char), ("flen", ctypes.c_ubyte),
                ("dlen", ctypes.c_byte)]


H, U, S, B, D = ctypes.c_void_p, ctypes.c_uint, ctypes.c_char_p, ctypes.c_bool, ctypes.c_double
PB = ctypes.POINTER(ctypes.c_bool)
# name: (result, arguments)
SIGNATURES = {
    "qz_dbf_open": (H, [S, B, B]), "qz_dbf_open_ex": (H, [S, U]), "qz_dbf_close": (None, [H]),
    "qz_dbf_get_nf": (U, [H]), "qz_dbf_get_nr": (U, [H]), "qz_dbf_get_deleted": (ctypes.c_int, [H, U]),
    "qz_dbf_get_field_type": (ctypes.c_int, [H, U]), "qz_dbf_get_field_flen": (U, [H, U]),
    "qz_dbf_get_field_width": (U, [H, U]), "qz_dbf_get_utf8_flag": (B, [H]),
    "qz_dbf_get_encoding": (ctypes.c_int, [H, S, ctypes.c_size_t]),
    "qz_dbf_detect_encoding": (ctypes.c_int, [S, S, U, S, ctypes.c_size_t]),
    "qz_dbf_get_value": (B, [H, U, U, ctypes.POINTER(Value)]),
    "qz_dbf_get_column_values": (ctypes.c_long, [H, U, U, U, ctypes.POINTER(Value)]),
    "qz_dbf_get_str": (S, [H, U, U, PB]), "qz_dbf_get_int": (ctypes.c_int, [H, U, U, PB]),
    "qz_dbf_get_dbl": (D, [H, U, U, PB]), "qz_dbf_get_bool": (B, [H, U, U, PB]),
    "qz_dbf_get_dos_flag": (B, [H]), "qz_dbftype2char": (ctypes.c_int, [ctypes.c_int]),
    "qz_dbf_restruct_create": (H, [S]), "qz_dbf_restruct_count": (ctypes.c_int, [H]),
    "qz_dbf_restruct_get_field": (ctypes.POINTER(Field), [H, ctypes.c_int]),
    "qz_dbf_restruct_apply": (B, [H]), "qz_dbf_restruct_destroy": (None, [H]),
    "qz_dbf_last_error_message": (S, []), "qz_options_set_ansi_code_page": (None, [U]),
}


def load(path):
    lib = ctypes.CDLL(path)
    for name, (result, args) in SIGNATURES.items():
        fn = getattr(lib, name)
        fn.restype, fn.argtypes = result, args
    lib.qz_options_set_ansi_code_page(65001)  # the classic getters' text in UTF-8
    return lib


def value(v):
    """A Tqz_dbf_value as the Python value dbfread gives for the cell."""
    raw = ctypes.string_at(v.text, v.length) if v.length else b""
    return {0: lambda: None, 1: lambda: bool(v.i), 2: lambda: v.i, 3: lambda: v.d,
            4: lambda: decimal.Decimal(raw.decode()),
            5: lambda: datetime.date(v.i // 10000, v.i // 100 % 100, v.i % 100),
            6: lambda: datetime.datetime(1970, 1, 1) + datetime.timedelta(milliseconds=v.i),
            7: lambda: raw.decode("utf-8", "replace")}.get(v.kind, lambda: raw)()


def tables(corpus):
    """Every .dbf file of the corpus (any letter case), sorted."""
    return sorted(os.path.join(root, f) for root, _, files in os.walk(corpus)
                  for f in files if f.lower().endswith(".dbf"))


def read(path, encoding, **options):
    """dbfread's table, records loaded as lists (a table may name two fields alike)."""
    return dbfread.DBF(path, encoding=encoding, load=True,
                       recfactory=lambda items: [v for _, v in items], **options)


def copy_with_companions(path, folder):
    """The table and its files of the same stem copied into `folder`, writable."""
    root, stem = os.path.split(os.path.splitext(path)[0])
    for name in os.listdir(root):
        if os.path.splitext(name)[0] == stem:
            shutil.copy(os.path.join(root, name), folder)
            os.chmod(os.path.join(folder, name), 0o644)
    return os.path.join(folder, os.path.basename(path))
