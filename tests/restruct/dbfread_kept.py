"""Kept cells of restructured tables, read with dbfread before and after.

  dbfread_kept.py LIST

LIST has one line per table: the table before, the table after, the names
of the kept fields, and the name of the C field made longer (or nothing),
separated by tabs. Both tables are read with
dbfread in the encoding it picks for the table before, every record
included (deleted ones too, since a rewrite keeps every record), and the
kept fields are compared cell by cell (C text without its trailing blanks,
since a longer C field pads more; the longer C field went through its text,
which ends at a zero byte). Prints one line per table:
    OK <before> <cells>
    SKIP <before> <reason>        dbfread cannot read the table before
    DIFF <before> <record> <field> <before value> <after value>
and exits with 1 when any cell differs.

Run with the system's python3 (/usr/bin/python3), which has dbfread.
"""
import sys

from dbfread import DBF


class AllRecords(DBF):
    """A table whose records include the deleted ones, in file order."""

    def records_in_order(self):
        out = []
        with open(self.filename, 'rb') as infile, self._open_memofile() as memofile:
            infile.seek(self.header.headerlen, 0)
            parse = self.parserclass(self, memofile).parse
            while True:
                sep = infile.read(1)
                if sep in (b'\x1a', b''):
                    break
                out.append({f.name: parse(f, infile.read(f.length)) for f in self.fields})
        return out


def value(v):
    return v.rstrip(' \x00') if isinstance(v, str) else v


def main():
    failed = False
    for line in open(sys.argv[1], encoding='utf-8'):
        before_path, after_path, kept, longer = line.rstrip('\n').split('\t')
        kept = [k for k in kept.split(',') if k]
        try:
            before = AllRecords(before_path, ignore_missing_memofile=True)
            rows_before = before.records_in_order()
        except Exception as e:  # noqa: BLE001 - any failure is reported
            print('SKIP %s %s: %s' % (before_path, type(e).__name__, str(e)[:80]))
            continue
        try:
            after = AllRecords(after_path, encoding=before.encoding,
                               ignore_missing_memofile=True)
            rows_after = after.records_in_order()
        except Exception as e:  # noqa: BLE001
            print('DIFF %s - - readable %s: %s' % (before_path, type(e).__name__, e))
            failed = True
            continue
        if len(rows_before) != len(rows_after):
            print('DIFF %s - - %d records %d records' % (before_path, len(rows_before),
                                                         len(rows_after)))
            failed = True
            continue
        # Fields by position: the kept ones come first in both tables.
        cells = 0
        bad = False
        for r, (a, b) in enumerate(zip(rows_before, rows_after)):
            xs, ys = list(a.values()), list(b.values())
            for i, k in enumerate(kept):
                x, y = value(xs[i]), value(ys[i])
                if k == longer and isinstance(x, str):
                    x = x.split('\x00')[0].rstrip(' ')
                cells += 1
                if x != y and not (x != x and y != y):  # NaN equals NaN here
                    if not bad:
                        print('DIFF %s %d %s %r %r' % (before_path, r, k, x, y))
                    bad = True
        failed = failed or bad
        if not bad:
            print('OK %s %d' % (before_path, cells))
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
