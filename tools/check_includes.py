#!/usr/bin/python3
"""Holds the code to the direction of its includes: each room includes only rooms below it."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# Room -> rooms that its files may include, besides its own.
LIBRARY = ["host/base", "host/text", "host/system"]
SERVICES = [*LIBRARY, "host/tasks", "host/processes", "host/watch", "host/sinks", "host/events"]

ALLOWED = {
    "src/agent": [],
    "src/frame": ["src/agent"],
    "src/inspect": ["src/agent", "src/frame"],
    "src/wiring": ["src/agent", "src/frame", "src/inspect"],
    "src/alarm": ["src/agent", "src/frame", "src/inspect", "src/wiring"],
    "src/shellfile": ["src/agent", "src/frame", "src/inspect", "src/alarm"],
    "src/classifier": ["src/agent", "src/frame", "src/inspect", "src/alarm", "src/shellfile"],
    "src/graph": ["src/agent", "src/frame"],
    "src/module": [
        "src/agent",
        "src/frame",
        "src/inspect",
        "src/alarm",
        "src/shellfile",
        "src/classifier",
        "src/graph",
    ],
    "host/base": ["src/agent"],
    "host/text": ["src/agent", "host/base"],
    "host/system": ["src/agent", "host/base", "host/text"],
    "host/tasks": ["src/agent", *LIBRARY],
    "host/processes": ["src/agent", *LIBRARY],
    "host/watch": ["src/agent", *LIBRARY, "host/tasks"],
    "host/sinks": ["src/agent", *LIBRARY],
    "host/events": ["src/agent", *LIBRARY, "host/sinks", "host/tasks", "host/processes"],
    "host/config": ["src/agent", *SERVICES],
    "host/detector": ["src/agent", *SERVICES, "host/config"],
    "host/check": ["src/agent", *SERVICES, "host/config", "host/detector"],
    # explain runs the module's own code and records its decisions.
    "host/explain": [
        *("src/agent", "src/frame", "src/inspect", "src/wiring", "src/shellfile", "src/classifier", "src/graph"),
        *("src/module", *SERVICES, "host/config"),
    ],
    "host/program": ["src/agent", *SERVICES, "host/config", "host/detector", "host/check", "host/explain"],
    "demo": ["src/agent", "src/wiring", *SERVICES, "host/config", "host/detector", "host/check", "host/explain"],
}

# The baseline of the shell files is all that the classifier may ask of its room.
ONLY_HEADERS = {("src/classifier", "src/shellfile"): {"shell_baseline.h"}}

# Names and limits alone, without includes of its own.
FOR_ALL_ROOMS = {"module/published.h"}

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def room_of_include(name):
    """The room that an include names: by path from the root for host/ and demo/, from src/ for the rest."""
    folder = pathlib.PurePosixPath(name).parent
    return str(folder) if name.startswith(("host/", "demo/")) else f"src/{folder}"


def violations(room, path):
    for name in INCLUDE.findall(path.read_text(encoding="utf-8")):
        target = room_of_include(name)
        if target == room or name in FOR_ALL_ROOMS:
            continue
        if target not in ALLOWED:
            yield f'{path.relative_to(ROOT)}: "{name}" is in no room'
        elif target not in ALLOWED[room]:
            yield f'{path.relative_to(ROOT)}: {room} must not include {target} ("{name}")'
        elif pathlib.PurePosixPath(name).name not in ONLY_HEADERS.get(
            (room, target), {pathlib.PurePosixPath(name).name}
        ):
            yield f'{path.relative_to(ROOT)}: {room} may not include "{name}"'


def main():
    found = []
    for room in ALLOWED:
        for path in sorted((ROOT / room).glob("*")):
            if path.suffix in (".h", ".cpp"):
                found.extend(violations(room, path))
    print("\n".join(found) or "includes run one way")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
