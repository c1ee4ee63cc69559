#!/usr/bin/python3
"""Reports lines of more than 120 columns in C++, Python, CMake and shell files. Formatters do not wrap comments."""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
MOST_COLUMNS = 120
PATTERNS = [
    "*.cpp",
    "*.h",
    "*.py",
    "*.cmake",
    "*CMakeLists.txt",
    "dev",
    ".ci/run",
    "tools/*.sh",
    "tools/kernels/guest/*",
]
# Raw strings are compared verbatim by tests, so they may be longer.
RAW_TEXT = 'R"'


def check(text: str) -> list[int]:
    """The numbers of lines that are too long."""
    lines = enumerate(text.splitlines(), 1)
    return [number for number, line in lines if len(line) > MOST_COLUMNS and RAW_TEXT not in line]


def main() -> int:
    listed = subprocess.run(
        ["git", "ls-files", "-co", "--exclude-standard", *PATTERNS],
        cwd=ROOT,
        stdout=subprocess.PIPE,
        text=True,
        check=True,
    )
    found = []
    for name in listed.stdout.splitlines():
        if (ROOT / name).is_file():
            text = (ROOT / name).read_text(encoding="utf-8")
            found += [f"{name}:{number}: more than {MOST_COLUMNS} columns" for number in check(text)]
    print("\n".join(found) or f"no line has more than {MOST_COLUMNS} columns")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
