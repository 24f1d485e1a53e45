import sys
import pathlib

# corpus_compare.py lives next to the tests.
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
