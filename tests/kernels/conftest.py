"""Makes tools/kernels, and bench/ with the measurements in a guest, importable for the tests."""

import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tools/kernels"), str(ROOT / "bench")]
