#!/usr/bin/python3
"""Checks sizes in src/, host/ and demo/: of files, of functions, and of each room's share of all lines.

Prints the shares. Universal Ctags finds the functions.
"""

import collections
import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
MOST_LINES_OF_FILE = 300
MOST_LINES_OF_FUNCTION = 40
MOST_PERCENT_OF_ROOM = 15


def sources(root: pathlib.Path) -> list[pathlib.Path]:
    found = (path for top in ("src", "host", "demo") for path in (root / top).rglob("*"))
    return sorted(path for path in found if path.suffix in (".h", ".cpp"))


def lines_of(path: pathlib.Path) -> int:
    return len(path.read_text(encoding="utf-8").splitlines())


def long_files(root: pathlib.Path) -> list[str]:
    sizes = ((path.relative_to(root), lines_of(path)) for path in sources(root))
    return [
        f"{path}: {lines} lines, at most {MOST_LINES_OF_FILE}" for path, lines in sizes if lines > MOST_LINES_OF_FILE
    ]


def long_functions(root: pathlib.Path) -> list[str]:
    command = ["ctags", "--output-format=json", "--fields=+ne", "--kinds-C++=f", "--languages=C++", "--langmap=C++:+.h"]
    done = subprocess.run(
        [*command, "-f", "-", "-L", "-"],
        input="\n".join(str(path.relative_to(root)) for path in sources(root)),
        cwd=root,
        stdout=subprocess.PIPE,
        encoding="utf-8",
        check=True,
    )
    found = []
    for tag in map(json.loads, done.stdout.splitlines()):
        lines = tag["end"] - tag["line"] + 1 if "end" in tag else 0
        if lines > MOST_LINES_OF_FUNCTION:
            place = f"{tag['path']}:{tag['line']}"
            found.append(f"{place}: {tag['name']} has {lines} lines, at most {MOST_LINES_OF_FUNCTION}")
    return found


def shares(root: pathlib.Path) -> dict[str, float]:
    """Percentage of all lines per room, largest first."""
    lines: collections.Counter[str] = collections.Counter()
    for path in sources(root):
        lines[str(path.relative_to(root).parent)] += lines_of(path)
    return {room: 100 * count / lines.total() for room, count in lines.most_common()}


def check(root: pathlib.Path) -> list[str]:
    """One line per file, function and room that is too large."""
    rooms = [
        f"{room}: {share:.1f} % of all lines, at most {MOST_PERCENT_OF_ROOM} %"
        for room, share in shares(root).items()
        if share > MOST_PERCENT_OF_ROOM
    ]
    return [*long_files(root), *long_functions(root), *rooms]


def main() -> int:
    found = check(ROOT)
    print("shares of the code: " + ", ".join(f"{room} {share:.1f} %" for room, share in shares(ROOT).items()))
    print("\n".join(found) or "files, functions and rooms keep to their sizes")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
