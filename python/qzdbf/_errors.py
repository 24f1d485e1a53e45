"""Exceptions raised by qzdbf, one class per error code of the library."""


class Error(Exception):
    """Any failure reported by the library; ``str(e)`` is its message and
    ``e.code`` its error code."""

    code = 0


class InvalidArgument(Error, ValueError):
    """A bad argument: an unknown mode, field or type."""

    code = 1


class NotFound(Error, FileNotFoundError):
    """No file at the path."""

    code = 2


class NotATable(Error):
    """The file is not a dBASE table."""

    code = 3


class Locked(Error):
    """Another writer holds the table's lock."""

    code = 4


class PermissionDenied(Error, PermissionError):
    """Permission denied, or a read-only file opened for writing."""

    code = 5


class IOFailure(Error, OSError):
    """Reading or writing the file failed."""

    code = 6


class MemoError(Error):
    """The memo file is missing or unreadable."""

    code = 7


class InvalidValue(Error, ValueError):
    """A value the field cannot hold."""

    code = 8


class OutOfMemory(Error, MemoryError):
    """The library ran out of memory."""

    code = 9


class InternalError(Error):
    """Any other failure."""

    code = 10


_BY_CODE = {
    cls.code: cls
    for cls in (
        InvalidArgument,
        NotFound,
        NotATable,
        Locked,
        PermissionDenied,
        IOFailure,
        MemoError,
        InvalidValue,
        OutOfMemory,
        InternalError,
    )
}


def error_class(code):
    return _BY_CODE.get(code, Error)
