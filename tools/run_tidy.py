#!/usr/bin/python3
"""Runs clang-tidy over every source that a preset of clang compiles, one a processor, and shows what it reports.

The analyser looks at src, host and demo alone: it takes most of the time and has little to find in tests. Nor do the
checks of performance look at tests: they are compiled often and run once.
"""

import concurrent.futures
import json
import os
import pathlib
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("src", "host", "demo", "tests", "bench")
ANALYSED = ("src", "host", "demo")
STEP = 25


def sources(build: pathlib.Path) -> list[pathlib.Path]:
    """Each source of this tree once, however many programs it is part of; generated ones are left out."""
    entries = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    files = {pathlib.Path(entry["directory"], entry["file"]).resolve() for entry in entries}
    return sorted(file for file in files if any(file.is_relative_to(ROOT / folder) for folder in FOLDERS))


def tidy(build: pathlib.Path, file: pathlib.Path) -> str:
    """What clang-tidy says of the file; nothing if it has no objection."""
    analysed = file.relative_to(ROOT).parts[0] in ANALYSED
    checks = [] if analysed else ["--checks=-clang-analyzer-*,-performance-*"]
    done = subprocess.run(
        ["clang-tidy", "-p", str(build), "--quiet", *checks, str(file)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        encoding="utf-8",
        check=False,
    )
    return done.stdout + done.stderr if done.returncode != 0 else ""


def main() -> int:
    build = pathlib.Path(sys.argv[1])
    files = sources(build)
    if not files:
        raise SystemExit(f"run_tidy: {build} compiles nothing")
    began = time.monotonic()
    bad = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for count, said in enumerate(pool.map(lambda file: tidy(build, file), files), 1):
            if said:
                bad += 1
                print(said, flush=True)
            if count % STEP == 0 or count == len(files):
                print(f"clang-tidy: {count} of {len(files)} files, {time.monotonic() - began:.0f} s", flush=True)
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
