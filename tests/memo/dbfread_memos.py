#!/usr/bin/python3
"""Prints what dbfread reads from the memo fields of the sample tables that
MANIFEST.tsv lists with an .fpt or .dbt file, tab-separated (text decoded as
Latin-1, so that its bytes come back unchanged):
  T <path> ok <version> <memo file name> <field count>   or   T <path> unread <reason>
  C <record> <field> <offset> <length> <dbfread block> <kind> <memo hex, "-" or "!error"> <cell hex>
"""
import csv
import os
import sys

from dbfread import DBF
from dbfread.field_parser import FieldParser


def clean(text):
    return ' '.join(str(text).split())


def memo_of(parser, field, raw):
    """(kind, hex) of the cell's memo as dbfread reads it."""
    try:
        memo = parser.parseM(field, raw)
    except Exception as e:  # dbfread's own verdict on a broken cell
        return '-', '!' + clean(type(e).__name__)
    if memo is None:
        return '-', '-'
    if isinstance(memo, str):
        return 'text', memo.encode('latin-1').hex()
    return type(memo).__name__, bytes(memo).hex()


def block_of(parser, raw):
    try:
        return str(parser._parse_memo_index(raw))
    except Exception:
        return '?'


def dump_table(corpus, rel):
    path = os.path.join(corpus, rel)
    try:
        table = DBF(path, encoding='latin-1')
        list(table)  # dbfread reads every record, or the table counts as unread
    except Exception as e:
        print('T\t%s\tunread\t%s' % (rel, clean('%s: %s' % (type(e).__name__, e))))
        return
    memo_name = os.path.basename(table.memofilename) if table.memofilename else '-'
    print('T\t%s\tok\t%d\t%s\t%d' % (rel, table.header.dbversion, memo_name,
                                     len(table.fields)))
    offsets = []
    offset = 1
    for field in table.fields:
        offsets.append(offset)
        offset += field.length
    with open(path, 'rb') as f:
        data = f.read()
    header_length = table.header.headerlen
    record_length = table.header.recordlen
    with table._open_memofile() as memofile:
        parser = FieldParser(table, memofile)
        record = 0
        # dbfread's walk: records end at the byte 0x1A or at the end of file.
        while True:
            start = header_length + record * record_length
            if start >= len(data) or data[start] == 0x1A:
                break
            if start + record_length > len(data):
                break
            for index, field in enumerate(table.fields):
                if field.type != 'M':
                    continue
                at = start + offsets[index]
                raw = data[at:at + field.length]
                kind, memo = memo_of(parser, field, raw)
                print('C\t%d\t%d\t%d\t%d\t%s\t%s\t%s\t%s' % (
                    record, index, offsets[index], field.length, block_of(parser, raw), kind,
                    memo, raw.hex()))
            record += 1


def main():
    corpus = sys.argv[1]
    with open(os.path.join(corpus, 'MANIFEST.tsv'), newline='') as f:
        rows = list(csv.DictReader(f, delimiter='\t'))
    for row in rows:
        if row['memo'] in ('fpt', 'dbt'):
            dump_table(corpus, row['path'])


if __name__ == '__main__':
    main()
