"""The rooms of src/, in the order in which each may include those before it."""

import pathlib
import re


def rooms(root: pathlib.Path) -> list[str]:
    text = (root / "src" / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.findall(r"^orlim_room\((\w+)", text, re.MULTILINE)


def headers(root: pathlib.Path, room: str) -> list[pathlib.Path]:
    """The headers that are mutated with a room: its own, and those of others that no room before it includes, since
    nothing of theirs is compiled there."""
    found = []
    order = rooms(root)
    for owner in order:
        for header in sorted((root / "src" / owner).glob("*.h")):
            users = [user for user in order if _includes(root, user, header)]
            if users and (owner if owner in users else users[0]) == room:
                found.append(header)
    return found


def _includes(root: pathlib.Path, room: str, header: pathlib.Path) -> bool:
    line = f'#include "{header.relative_to(root / "src")}"'
    return any(line in file.read_text(encoding="utf-8") for file in (root / "src" / room).glob("*.*"))
