#!/usr/bin/python3
"""Checks the direction of includes: each room includes only rooms below it."""

import pathlib
import re
import sys
from collections.abc import Iterator

ROOT = pathlib.Path(__file__).resolve().parent.parent

# Room -> other rooms that its files may include.
LIBRARY = ["host/base", "host/text", "host/system"]
SERVICES = [*LIBRARY, "host/tasks", "host/processes", "host/watch", "host/sinks", "host/metrics", "host/events"]

ALLOWED: dict[str, list[str]] = {
    "src/agent": [],
    "src/frame": ["src/agent"],
    "src/inspect": ["src/agent", "src/frame"],
    "src/wiring": ["src/agent", "src/frame", "src/inspect"],
    "src/alarm": ["src/agent", "src/frame", "src/inspect", "src/wiring"],
    "src/shellfile": ["src/agent", "src/frame", "src/inspect", "src/alarm"],
    "src/classifier": ["src/agent", "src/frame", "src/inspect", "src/alarm", "src/shellfile"],
    "src/graph": ["src/agent", "src/frame"],
    "src/wiringscan": ["src/agent", "src/frame", "src/inspect", "src/wiring", "src/alarm", "src/shellfile"],
    "src/module": [
        *("src/agent", "src/frame", "src/inspect", "src/alarm", "src/shellfile", "src/classifier", "src/graph"),
        "src/wiringscan",
    ],
    "host/base": ["src/agent"],
    "host/text": ["src/agent", "host/base"],
    "host/system": ["src/agent", "host/base", "host/text"],
    "host/tasks": ["src/agent", *LIBRARY],
    "host/processes": ["src/agent", *LIBRARY],
    "host/watch": ["src/agent", *LIBRARY],
    "host/sinks": ["src/agent", *LIBRARY],
    "host/metrics": ["src/agent", *LIBRARY],
    "host/events": [
        *("src/agent", "src/wiring", *LIBRARY, "host/tasks", "host/processes", "host/watch", "host/sinks"),
        "host/metrics",
    ],
    "host/config": ["src/agent", *SERVICES],
    "host/detector": ["src/agent", *SERVICES, "host/config"],
    "host/check": ["src/agent", *SERVICES, "host/config", "host/detector"],
    # explain runs the code of the module and records its decisions.
    "host/explain": [
        *("src/agent", "src/frame", "src/inspect", "src/wiring", "src/shellfile", "src/classifier", "src/graph"),
        *("src/wiringscan", "src/module", *SERVICES, "host/config"),
    ],
    "host/program": ["src/agent", *SERVICES, "host/config", "host/detector", "host/check", "host/explain"],
    "demo": ["src/agent", "src/wiring", *SERVICES, "host/config", "host/detector", "host/check", "host/explain"],
}

# The classifier may use only the baseline of the room shellfile.
ONLY_HEADERS = {("src/classifier", "src/shellfile"): {"shell_baseline.h"}}

# Only names and limits; it has no includes.
FOR_ALL_ROOMS = {"module/published.h"}

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def room_of_include(name: str) -> str:
    """The room of an include. Paths of host/ and demo/ start at the root, the others at src/."""
    folder = pathlib.PurePosixPath(name).parent
    return str(folder) if name.startswith(("host/", "demo/")) else f"src/{folder}"


def violations(room: str, path: pathlib.Path, shown: pathlib.Path) -> Iterator[str]:
    for name in INCLUDE.findall(path.read_text(encoding="utf-8")):
        target = room_of_include(name)
        header = pathlib.PurePosixPath(name).name
        if target == room or name in FOR_ALL_ROOMS:
            continue
        if target not in ALLOWED:
            yield f'{shown}: "{name}" is in no room'
        elif target not in ALLOWED[room]:
            yield f'{shown}: {room} must not include {target} ("{name}")'
        elif header not in ONLY_HEADERS.get((room, target), {header}):
            yield f'{shown}: {room} may not include "{name}"'


def check(root: pathlib.Path) -> list[str]:
    """One line per include against the direction, and per source in a directory that is not a room."""
    found: list[str] = []
    for top in ("src", "host", "demo"):
        for path in sorted((root / top).rglob("*")):
            if path.suffix not in (".h", ".cpp"):
                continue
            shown = path.relative_to(root)
            room = str(shown.parent)
            if room in ALLOWED:
                found.extend(violations(room, path, shown))
            else:
                found.append(f"{shown}: {room} is no room: tools/check_includes.py does not list it")
    return found


def main() -> int:
    found = check(ROOT)
    print("\n".join(found) or "includes run one way")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
