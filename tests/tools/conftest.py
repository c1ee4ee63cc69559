"""Makes the checks in tools/ and the kernels' table importable."""

import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / folder) for folder in ("tools", "tools/kernels", "bench")]
