"""Reads a table with dbfread and prints what it saw as JSON.

usage: read_with_dbfread.py PATH ENCODING
"""
import json
import sys

import dbfread

table = dbfread.DBF(sys.argv[1], encoding=sys.argv[2], char_decode_errors="strict")
records = list(table)
print(json.dumps({
    "fields": [[f.name, f.type, f.length, f.decimal_count] for f in table.fields],
    "records": len(records),
    "header_records": table.header.numrecords,
    "values": [[("" if v is None else str(v)) for v in r.values()] for r in records],
}, ensure_ascii=False))
