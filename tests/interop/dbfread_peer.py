"""dbfread as the peer reader of the interoperability tests.

  dbfread_peer.py compare DUMP ROOT
      DUMP holds every cell of some tables as the library read them; each
      table is read again with dbfread (same encoding) and compared cell by
      cell. Prints one line per table:
        OK <path> <cells>                 every cell compared and equal
        LISTED <path> <cells> <reasons>   some fields or records not compared,
                                          for the reasons given
        DIFF <path> <record> <field> <ours> <theirs>
      and exits with 1 when any cell differs.

  dbfread_peer.py records PATH ENCODING
      prints the records dbfread reads from one table, a line each, the cells
      separated by tabs: z (no value), b:0 or b:1, i:<int>, f:<float>,
      d:<yyyymmdd> or s:<text> (backslash, tab and line breaks escaped).

Run with the system's python3 (/usr/bin/python3), which has dbfread.
"""
import datetime
import math
import os
import struct
import sys

from dbfread import DBF
from dbfread.field_parser import FieldParser

WS = " \t\n\r\v\f"

# Types whose cells the library reads as the text stored in the record.
TEXT_TYPES = "C"
# Types it reads by their meaning. B is a double only in the formats that
# store it so (the 0x30..0x32 versions); elsewhere it is a memo reference.
COMPARED = set("CNFLDIB")


def unescape(text):
    out, i = [], 0
    while i < len(text):
        c = text[i]
        if c == "\\" and i + 1 < len(text):
            n = text[i + 1]
            out.append({"t": "\t", "n": "\n", "r": "\r", "\\": "\\"}.get(n, n))
            i += 2
        else:
            out.append(c)
            i += 1
    return "".join(out)


def read_dump(path):
    """Tables of the dump: path, encoding, fields and cells by record."""
    tables = []
    with open(path, encoding="utf-8") as f:
        for line in f:
            parts = line.rstrip("\n").split("\t")
            kind = parts[0]
            if kind == "T":
                tables.append({"path": parts[1], "encoding": parts[2], "count": int(parts[3]),
                               "fields": [], "records": {}})
            elif kind == "F":
                tables[-1]["fields"].append((parts[1], parts[2], int(parts[3]), int(parts[4])))
            elif kind == "V":
                rec, fld = int(parts[1]), int(parts[2])
                cell = {"ok": parts[3] == "1", "text": unescape(parts[4])}
                if len(parts) > 5:
                    cell["typed_ok"] = parts[5] == "1"
                    cell["typed"] = parts[6]
                tables[-1]["records"].setdefault(rec, {})[fld] = cell
    return tables


def walk(table, infile, kind):
    """(record index, raw field bytes) of the records dbfread yields for one
    record kind (b' ' live, b'*' deleted), reading exactly as it does: the
    fields of a yielded record one after another, other records skipped by
    the header's record length. None as index when the position is not at a
    record boundary."""
    hdr = table.header
    infile.seek(hdr.headerlen, 0)
    while True:
        pos = infile.tell()
        sep = infile.read(1)
        if sep == kind:
            raw = [infile.read(f.length) for f in table.fields]
            off = pos - hdr.headerlen
            index = off // hdr.recordlen if hdr.recordlen and off % hdr.recordlen == 0 else None
            yield index, raw
        elif sep in (b"\x1a", b""):
            return
        else:
            infile.seek(hdr.recordlen - 1, 1)


def parse_cell(parser, field, raw):
    try:
        return True, parser.parse(field, raw)
    except Exception as e:  # dbfread refuses the cell
        return False, str(e)


def number(text):
    """Our text of a number cell as a float, the way the library's sscanf
    reads it (leading blanks, a decimal comma for N taken as a point)."""
    t = text.strip(WS)
    try:
        return float(t)
    except ValueError:
        return None


def same_float(a, b, rel):
    if a is None or b is None:
        return False
    if math.isnan(a) or math.isnan(b):
        return math.isnan(a) and math.isnan(b)
    return a == b or abs(a - b) <= rel * max(abs(a), abs(b))


def compare_cell(ftype, cell, theirs, raw, dbversion):
    """None when equal, else a short description of the difference."""
    text = cell["text"]
    if ftype == "C":
        # The library gives the text up to its first zero byte.
        ours = text.strip(WS)
        want = theirs.strip(WS)
        return None if ours == want else "text"
    if ftype in "N":
        digits = text.strip(WS).strip("*").strip(WS)
        if theirs is None:
            return None if digits == "" else "blank"
        v = number(digits.replace(",", ".", 1))
        return None if same_float(v, float(theirs), 0) else "number"
    if ftype == "F":
        if theirs is None:
            return None if text.strip(WS).strip("*").strip(WS) == "" else "blank"
        # Shown as printf's %19.11g shows the number.
        return None if text.strip(WS) == "%.11g" % theirs else "number"
    if ftype == "L":
        if not cell.get("typed_ok"):
            return None if theirs is None else "logical"
        return None if (cell["typed"] == "1") == theirs else "logical"
    if ftype == "D":
        if theirs is None:
            return None if text.strip(WS + "0") == "" else "date"
        return None if text.strip(WS) == theirs.strftime("%Y%m%d") else "date"
    if ftype == "I":
        if not (cell.get("typed_ok") and int(cell["typed"]) == theirs):
            return "integer"
        return None if text.strip(WS) == str(theirs) else "integer text"
    if ftype == "B":
        ours = float.fromhex(cell["typed"]) if cell.get("typed_ok") else None
        if ours is None or not (ours == theirs or (math.isnan(ours) and math.isnan(theirs))):
            return "double"
        return None if text.strip(WS) == "%.11g" % theirs else "double text"
    return None


def cpg_mismatch(dbf_path, encoding):
    base = os.path.splitext(dbf_path)[0]
    folder = os.path.dirname(dbf_path) or "."
    want = os.path.basename(base).lower() + ".cpg"
    for name in os.listdir(folder):
        if name.lower() == want:
            with open(os.path.join(folder, name), "rb") as f:
                text = f.read(19).split(b"\n")[0].strip().decode("latin-1")
            marks = text.upper()
            names = {"utf-8": "UTF-8" in marks, "cp866": "866" in marks,
                     "cp1251": "1251" in marks}
            if not names[encoding]:
                return "the .cpg names %r, which the library does not read: compared as %s text" % (
                    text, encoding)
    return None


def compare_table(t, root, out):
    path = os.path.join(root, t["path"])
    enc = t["encoding"]
    reasons = []
    mismatch = cpg_mismatch(path, enc)
    if mismatch:
        # The text is still compared, both sides reading it in that encoding.
        reasons.append(mismatch)
    table = DBF(path, encoding=enc, ignore_missing_memofile=True, char_decode_errors="ignore")
    theirs_fields = [(f.name, f.type, f.length, f.decimal_count) for f in table.fields]
    ours_fields = t["fields"]
    def same_field(theirs, ours):
        # The library names the types it knows; any other letter is unknown
        # to it ('?').
        kind = theirs[1] if theirs[1] in "CNLMDFIBP" else "?"
        return kind == ours[1] and theirs[2] == ours[2]

    if len(theirs_fields) != len(ours_fields) or not all(
            same_field(a, b) for a, b in zip(theirs_fields, ours_fields)):
        long_c = [f for f in table.fields if f.type == "C" and f.length > 255]
        if long_c:
            why = "C field %s is %d bytes long: its length byte alone is read" % (
                long_c[0].name, long_c[0].length)
        else:
            why = "dbfread reads %d field descriptors, the header length leaves %d" % (
                len(theirs_fields), len(ours_fields))
        out.append("LISTED\t%s\t0\t%s" % (t["path"], why))
        return True

    parser = FieldParser(table, None)
    compare = []
    for i, f in enumerate(table.fields):
        if f.type == "B" and table.header.dbversion not in (0x30, 0x31, 0x32):
            reasons.append("field %s: B is a memo reference in this format" % f.name)
        elif f.type in "MGP":
            reasons.append("field %s: %s cells hold the memo block reference" % (f.name, f.type))
        elif f.type not in COMPARED:
            reasons.append("field %s: type %s is not interpreted" % (f.name, f.type))
        else:
            compare.append(i)

    cells = 0
    diffs = 0
    nr = t["count"]
    beyond = misaligned = nul_text = refused = 0
    with open(table.filename, "rb") as infile:
        for kind in (b" ", b"*"):
            for index, raw in walk(table, infile, kind):
                if index is None:
                    misaligned += 1
                    continue
                if index >= nr:
                    beyond += 1
                    continue
                row = t["records"].get(index, {})
                for i in compare:
                    f = table.fields[i]
                    if f.type == "C" and b"\0" in raw[i].rstrip(b"\0 "):
                        nul_text += 1
                        continue
                    ok, value = parse_cell(parser, f, raw[i])
                    if not ok:
                        refused += 1
                        continue
                    cells += 1
                    what = compare_cell(f.type, row[i], value, raw[i], table.header.dbversion)
                    if what:
                        diffs += 1
                        if diffs <= 5:
                            out.append("DIFF\t%s\t%d\t%s\t%r\t%r (%s)" % (
                                t["path"], index, f.name, row[i]["text"], value, what))
    if misaligned:
        reasons.append("%d records read by dbfread at field-length steps that do not match "
                       "the header's record length" % misaligned)
    if beyond:
        reasons.append("%d records past the header's record count" % beyond)
    if nul_text:
        reasons.append("%d C cells with text after a zero byte (read up to it)" % nul_text)
    if refused:
        reasons.append("%d cells dbfread cannot read" % refused)
    if diffs:
        return False
    if reasons:
        out.append("LISTED\t%s\t%d\t%s" % (t["path"], cells, "; ".join(reasons)))
    else:
        out.append("OK\t%s\t%d" % (t["path"], cells))
    return True


def cmd_compare(dump, root):
    tables = read_dump(dump)
    out = []
    ok = True
    for t in tables:
        try:
            ok = compare_table(t, root, out) and ok
        except Exception as e:
            out.append("DIFF\t%s\t-\t-\tdbfread failed: %s" % (t["path"], e))
            ok = False
    print("\n".join(out))
    return 0 if ok else 1


class DoubleB(FieldParser):
    """Reads B cells as the 8-byte doubles the library writes. dbfread takes
    B for a memo reference in every format but 0x30..0x32, and the library
    writes version 3."""

    def parseB(self, field, data):
        return struct.unpack("<d", data)[0]


def cell_text(value):
    if value is None:
        return "z"
    if isinstance(value, bool):
        return "b:%d" % value
    if isinstance(value, int):
        return "i:%d" % value
    if isinstance(value, float):
        return "f:%r" % value
    if isinstance(value, (datetime.date, datetime.datetime)):
        return "d:" + value.strftime("%Y%m%d")
    text = str(value)
    for a, b in (("\\", "\\\\"), ("\t", "\\t"), ("\n", "\\n"), ("\r", "\\r")):
        text = text.replace(a, b)
    return "s:" + text


def cmd_records(path, encoding):
    table = DBF(path, encoding=encoding, char_decode_errors="strict", parserclass=DoubleB,
                ignore_missing_memofile=True)
    for rec in table:
        print("\t".join(cell_text(v) for v in rec.values()))
    return 0


def main(argv):
    if len(argv) == 4 and argv[1] == "compare":
        return cmd_compare(argv[2], argv[3])
    if len(argv) == 4 and argv[1] == "records":
        return cmd_records(argv[2], argv[3])
    sys.stderr.write(__doc__)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
