#!/usr/bin/python3
"""Prints the sizes of the stripped files that ship, for amd64 and 32-bit ARM.

Called by ./dev bench sizes.
"""

import argparse
import pathlib
import subprocess
import tempfile

import tables

STRIP = {"release": "strip", "armhf": "arm-linux-gnueabihf-strip"}


def stripped_bytes(preset, file):
    (built,) = (
        path for path in (tables.ROOT / "build" / preset).glob(f"*/{file}") if path.parent.name in ("bin", "lib")
    )
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder) / file
        subprocess.run([STRIP[preset], "-o", copy, built], check=True)
        return copy.stat().st_size


def main():
    parser = argparse.ArgumentParser(prog="./dev bench sizes", description=__doc__)
    parser.add_argument("--write", action="store_true", help="also write the table of docs/performance.md")
    arguments = parser.parse_args()
    rows = [
        {"file": f"`{file}`"} | {name: stripped_bytes(preset, file) for name, preset in tables.SIZE_PRESETS.items()}
        for file in tables.FILES
    ]
    print(tables.TABLES["sizes"].markdown(rows))
    if arguments.write:
        tables.write("sizes", rows)


if __name__ == "__main__":
    main()
