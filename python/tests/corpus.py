# The sample tables of other software (read in place, never written), and
# tables written byte by byte.

import os
import pathlib
import struct

CORPUS = pathlib.Path(os.environ.get("QZ_CORPUS_DIR",
                                     pathlib.Path(__file__).resolve().parents[2] / ".." /
                                     "shared" / "corpus")).resolve()


def corpus_tables():
    return sorted(p for p in CORPUS.rglob("*") if p.is_file() and p.suffix.lower() == ".dbf")


def raw_table(path, fields, records, deleted=(), vfp=False):
    # fields (name, type, length, decimals[, flags]); records as lists of the
    # cells' exact bytes. vfp: a Visual FoxPro table (field offsets and flags,
    # the 263-byte backlink).
    fields = [tuple(f) + (0,) * (5 - len(f)) for f in fields]
    extra = 263 if vfp else 0
    head = struct.pack("<BBBBIHH20x", 0x30 if vfp else 3, 124, 1, 1, len(records),
                       32 + 32 * len(fields) + 1 + extra, 1 + sum(f[2] for f in fields))
    desc, offset = b"", 1
    for name, ftype, length, decimals, flags in fields:
        desc += struct.pack("<11scIBBB13x", name.encode(), ftype.encode(), offset if vfp else 0,
                            length, decimals, flags)
        offset += length
    body = b"".join((b"*" if i in deleted else b" ") +
                    b"".join(cell[:f[2]].ljust(f[2]) for cell, f in zip(r, fields))
                    for i, r in enumerate(records))
    path.write_bytes(head + desc + b"\r" + b"\0" * extra + body + b"\x1a")
