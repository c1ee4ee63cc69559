"""The tests of tools/kernels, and of what a guest measures, find it here."""

import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tools/kernels"), str(ROOT / "bench")]
