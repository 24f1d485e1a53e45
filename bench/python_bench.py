#!/usr/bin/env python3
"""read_dataframe against dbfread and against the C interface.

Writes a table of --records records with 10 mixed fields (N integer, N with
decimals, F-like N, D, L, four C of different widths, one N with blanks),
then times, each in its own process so peak memory is its own:
  qzdbf   qzdbf.read_dataframe(path)
  dbfread pandas.DataFrame(iter(dbfread.DBF(path)))
  c       the same cells read through the C interface's cell getters into
          C++ values (one call per cell)
  images  the same cells from record images (qz_dbf_get_record_images)
          parsed in C++: the floor under read_dataframe without Python objects
and prints seconds, peak RSS and the ratios. Run with PYTHONPATH at the
build's python folder:  PYTHONPATH=build/release/python bench/python_bench.py
"""

import argparse
import os
import resource
import subprocess
import sys
import tempfile
import time


def make_table(path, n):
    import numpy as np
    import pandas as pd

    import qzdbf

    rng = np.random.default_rng(42)
    words = np.array(["alpha", "beta", "gamma", "Дельта", "epsilon", "", "zeta eta theta"],
                     dtype=object)
    ints = pd.array(rng.integers(-10**6, 10**6, n), dtype="Int64")
    ints[rng.random(n) < 0.1] = pd.NA
    df = pd.DataFrame({
        "ID": np.arange(n, dtype=np.int64),
        "AMOUNT": np.round(rng.normal(1000, 300, n), 2),
        "RATE": np.round(rng.random(n), 6),
        "DAY": pd.Series(pd.to_datetime("2000-01-01") +
                         pd.to_timedelta(rng.integers(0, 9000, n), unit="D")),
        "ACTIVE": rng.random(n) < 0.5,
        "NAME": words[rng.integers(0, len(words), n)],
        "CODE": np.array([f"C{i % 9973:05d}" for i in range(n)], dtype=object),
        "CITY": words[rng.integers(0, len(words), n)],
        "NOTE": words[rng.integers(0, len(words), n)],
        "QTY": ints,
    })
    qzdbf.write_dataframe(df, path, float_decimals=6)


def run_one(kind, path):
    import pandas as pd

    start = time.perf_counter()
    if kind == "qzdbf":
        import qzdbf
        df = qzdbf.read_dataframe(path)
        cells = df.shape[0] * df.shape[1]
    elif kind == "dbfread":
        import dbfread
        df = pd.DataFrame(iter(dbfread.DBF(path, encoding="utf-8")))
        cells = df.shape[0] * df.shape[1]
    elif kind == "c":
        import qzdbf
        with qzdbf.open(path) as t:
            cells = t._read_cells_c()
    elif kind == "images":
        import qzdbf
        with qzdbf.open(path) as t:
            cells = t._read_cells_images()
    else:
        import geopandas
        df = geopandas.read_file(path)
        cells = df.shape[0] * (df.shape[1] - 1)
    seconds = time.perf_counter() - start
    peak_mib = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024
    print(f"{seconds:.6f} {peak_mib:.1f} {cells}")


def measure(kind, path):
    out = subprocess.run([sys.executable, __file__, "--one", kind, path], check=True,
                         capture_output=True, text=True).stdout.split()
    return float(out[0]), float(out[1]), int(out[2])


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--records", type=int, default=1_000_000)
    ap.add_argument("--one", nargs=2, metavar=("KIND", "PATH"))
    ap.add_argument("--table", help="reuse this table instead of writing one")
    args = ap.parse_args()
    if args.one:
        run_one(*args.one)
        return
    with tempfile.TemporaryDirectory() as tmp:
        path = args.table or os.path.join(tmp, "bench.dbf")
        if not args.table:
            start = time.perf_counter()
            make_table(path, args.records)
            print(f"wrote {args.records} records x 10 fields "
                  f"({os.path.getsize(path) / 2**20:.1f} MiB) in "
                  f"{time.perf_counter() - start:.1f} s with write_dataframe")
        kinds = ["c", "images", "qzdbf", "dbfread"]
        try:
            import geopandas  # noqa: F401
            kinds.append("geopandas")
        except ImportError:
            print("geopandas: not installed, left out")
        res = {}
        for kind in kinds:
            res[kind] = measure(kind, path)
            s, mib, cells = res[kind]
            print(f"{kind:10} {s:9.3f} s  peak RSS {mib:8.1f} MiB  {cells} cells")
        q = res["qzdbf"][0]
        print(f"dbfread / read_dataframe        = {res['dbfread'][0] / q:6.1f}x  (target >= 20)")
        if "geopandas" in res:
            print(f"geopandas / read_dataframe      = {res['geopandas'][0] / q:6.1f}x  (target >= 3)")
        print(f"read_dataframe / C cell getters = {q / res['c'][0]:6.2f}x  (target <= 1.5)")
        print(f"read_dataframe / C images       = {q / res['images'][0]:6.2f}x")


if __name__ == "__main__":
    main()
