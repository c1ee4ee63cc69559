#!/usr/bin/python3
"""Runs clang-tidy on every source that a clang preset compiles, on all processors, and prints its diagnostics.

The sources of one room of the agent are checked as one source, because clang-tidy visits all declarations of the
headers for each source, which takes most of its time. The sources of the module are checked one by one, because each
defines the same constant for its log lines. The static analyser and the performance checks see only src, host and
demo: tests are compiled often and run once.
"""

import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("src", "host", "demo", "tests", "bench")
ANALYSED = ("src", "host", "demo")
TOGETHER = ("host", "demo")
STEP = 20

Entry = dict[str, str]


def folder_of(build: pathlib.Path, file: pathlib.Path) -> str:
    """The top directory of the source in this tree. A merged source has the same place below the build directory."""
    for base in (build, ROOT):
        if file.is_relative_to(base):
            return file.relative_to(base).parts[0]
    return ""


def entries_of(build: pathlib.Path) -> list[Entry]:
    """Each source of this tree once, even if several programs contain it; without generated sources."""
    found: dict[str, Entry] = {}
    for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        file = pathlib.Path(entry["directory"], entry["file"]).resolve()
        merged = file.parent.name == "Unity"
        if folder_of(build, file) in FOLDERS and (merged or not file.is_relative_to(build)):
            found.setdefault(str(file), entry | {"file": str(file)})
    return [found[file] for file in sorted(found)]


def merged_entries(build: pathlib.Path, entries: list[Entry]) -> list[Entry]:
    """The entries, but with one merged entry for all sources that a target compiles with the same flags."""
    folder = build / "tidy"
    folder.mkdir(exist_ok=True)
    rest: list[Entry] = []
    groups: dict[str, list[Entry]] = {}
    for entry in entries:
        if folder_of(build, pathlib.Path(entry["file"])) not in TOGETHER:
            rest.append(entry)
            continue
        flags = re.sub(r"\s-(o|c)\s+\S+", "", entry["command"])
        groups.setdefault(f"{pathlib.Path(entry['file']).parent} {flags}", []).append(entry)
    for number, members in enumerate(groups.values()):
        first = members[0]
        name = pathlib.Path(first["file"]).parent.relative_to(ROOT)
        file = folder / name / f"{number}.cpp"
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text("".join(f'#include "{member["file"]}"\n' for member in members), encoding="utf-8")
        command = re.sub(r"\s-c\s+\S+", f" -c {file}", first["command"])
        rest.append({"directory": first["directory"], "command": command, "file": str(file)})
    (folder / "compile_commands.json").write_text(json.dumps(rest, indent=1), encoding="utf-8")
    return rest


def is_analysed(build: pathlib.Path, file: pathlib.Path) -> bool:
    return file.is_relative_to(build / "tidy") or folder_of(build, file) in ANALYSED


def tidy(build: pathlib.Path, file: pathlib.Path) -> str:
    """The diagnostics of clang-tidy for the file; empty if there are none."""
    checks = "-bugprone-suspicious-include" if file.is_relative_to(build) else ""
    if not is_analysed(build, file):
        checks += ",-clang-analyzer-*,-performance-*"
    done = subprocess.run(
        ["clang-tidy", "-p", str(build / "tidy"), "--quiet", f"--checks={checks}", str(file)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        encoding="utf-8",
        check=False,
    )
    return done.stdout + done.stderr if done.returncode != 0 else ""


def main() -> int:
    build = pathlib.Path(sys.argv[1]).resolve()
    entries = entries_of(build)
    if not entries:
        raise SystemExit(f"run_tidy: {build} compiles nothing")
    files = [pathlib.Path(entry["file"]) for entry in merged_entries(build, entries)]
    # The largest first, so that no processor waits for the other at the end.
    files.sort(key=lambda file: not file.is_relative_to(build))
    began = time.monotonic()
    bad = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for count, said in enumerate(pool.map(lambda file: tidy(build, file), files), 1):
            if said:
                bad += 1
                print(said, flush=True)
            if count % STEP == 0 or count == len(files):
                print(f"clang-tidy: {count} of {len(files)} runs, {time.monotonic() - began:.0f} s", flush=True)
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
