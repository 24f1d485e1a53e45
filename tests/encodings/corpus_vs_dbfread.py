#!/usr/bin/python3
"""The encoding chosen for every table of the corpus, against python3-dbfread's.

Usage: corpus_vs_dbfread.py CORPUS_DIR OURS.tsv [--list]

OURS.tsv holds a line "path<TAB>encoding<TAB>source" per table (the path
relative to CORPUS_DIR, the source a number of Tqz_dbf_encoding_source),
as the corpus test writes it through the library.

Prints one line per table that dbfread opens (ours, dbfread's, why they
differ) and the totals. Fails when the library finds no encoding for a table
dbfread reads, or when a difference has no known reason.
"""
import codecs
import os
import sys

try:
    import dbfread
except ImportError:
    print("python3-dbfread is not installed")
    sys.exit(77)

SOURCES = {0: "none", 1: "caller", 2: "cpg", 3: "language driver", 4: "default"}


def canonical(name):
    try:
        return codecs.lookup(name).name
    except LookupError:
        return name.lower()


def main():
    corpus = sys.argv[1]
    ours_of = {}
    with open(sys.argv[2], encoding="utf-8") as fh:
        for line in fh:
            parts = line.rstrip("\n").split("\t")
            if len(parts) == 3:
                ours_of[parts[0]] = (parts[1], int(parts[2]))
    listing = "--list" in sys.argv
    tables = []
    for root, _, files in os.walk(corpus):
        for f in files:
            if f.lower().endswith(".dbf"):
                tables.append(os.path.join(root, f))
    tables.sort()
    totals = {"tables": 0, "agree": 0}
    reasons = {}
    failures = []
    for path in tables:
        try:
            with open(path, "rb") as fh:
                header = fh.read(32)
            theirs = dbfread.DBF(path, load=False).encoding
        except Exception:  # dbfread does not read this table: not compared
            continue
        totals["tables"] += 1
        rel = os.path.relpath(path, corpus)
        ours, source = ours_of.get(rel, ("", 0))
        driver = header[29] if len(header) > 29 else 0
        if source == 0:
            failures.append(rel)
            why = "no encoding found"
        elif canonical(ours) == canonical(theirs):
            totals["agree"] += 1
            why = ""
        elif source == 2:
            why = "cpg file (dbfread ignores .cpg)"
        elif source == 4 and theirs == "ascii":
            why = "no driver byte 0x%02X: dbfread ascii, ours the classic default" % driver
        elif source == 3 and canonical(ours) != canonical(theirs):
            why = "driver 0x%02X: tables differ" % driver
            failures.append(rel)
        else:
            why = "unexplained"
            failures.append(rel)
        if why:
            reasons[why.split(":")[0] if why.startswith("no driver") else why] = \
                reasons.get(why.split(":")[0] if why.startswith("no driver") else why, 0) + 1
        if listing or why:
            print("%-55s %-12s %-16s %-10s %s" % (rel, ours, SOURCES.get(source, source),
                                                 theirs, why))
    print("tables read by dbfread: %d, same encoding: %d, different: %d"
          % (totals["tables"], totals["agree"], totals["tables"] - totals["agree"]))
    for why, n in sorted(reasons.items()):
        print("  %4d  %s" % (n, why))
    if failures:
        print("FAILED:", ", ".join(failures))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
