"""The sample tables of other software (read in place, never written)."""

import os
import pathlib

CORPUS = pathlib.Path(os.environ.get("QZ_CORPUS_DIR",
                                     pathlib.Path(__file__).resolve().parents[2] / ".." /
                                     "shared" / "corpus")).resolve()


def corpus_tables():
    return sorted(p for p in CORPUS.rglob("*") if p.is_file() and p.suffix.lower() == ".dbf")
