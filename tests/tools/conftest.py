"""Where the checks, and the tables that they compare, are."""

import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / folder) for folder in ("tools", "tools/kernels", "bench")]
