"""The table of survivors that are known and explained."""

import collections
import pathlib
import re
from collections.abc import Iterable

from mutant import Mutant

Key = tuple[str, str, str]
CELL = re.compile(r"(?<!\\)\|")
COLUMNS = 4


def read(table: pathlib.Path) -> dict[Key, str]:
    """The reasons by file, line and change. Rows whose first cell is no file of src/ are heads."""
    found = {}
    for number, line in enumerate(table.read_text(encoding="utf-8").splitlines(), 1):
        if not line.startswith("| `src/"):
            continue
        cells = [cell.strip().replace("\\|", "|") for cell in CELL.split(line)[1:-1]]
        if len(cells) != COLUMNS or not cells[3]:
            raise SystemExit(f"{table.name}:{number}: a row has a file, a line, a change and a reason")
        file, source, change, reason = cells
        found[(file.strip("`"), source.strip("`"), change)] = reason
    return found


def row(mutant: Mutant, reason: str = "") -> str:
    """As it stands in the table."""
    cells = (f"`{mutant.file}`", f"`{mutant.source}`", mutant.change)
    return "| " + " | ".join(cell.replace("|", "\\|") for cell in (*cells, reason)) + " |"


def stale(known: Iterable[Key], mutants: list[Mutant], survivors: list[Mutant]) -> list[str]:
    """Rows of these mutants' files that no survivor needs."""
    files = {mutant.file for mutant in mutants}
    alive = collections.Counter(mutant.key() for mutant in survivors)
    made = {mutant.key() for mutant in mutants}
    found = []
    for key in known:
        if key[0] in files and key not in alive:
            why = "a test catches it" if key in made else "there is no such mutant"
            found.append(f"{key[0]}: `{key[1]}`: {key[2]}: {why}")
    return found
