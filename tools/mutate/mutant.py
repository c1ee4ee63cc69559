"""A single fault, and the list of all of a room."""

import dataclasses
import pathlib

from edits import Span


@dataclasses.dataclass(frozen=True)
class Mutant:
    number: int  # from 1; switches the fault on at run time
    file: str  # relative to the root
    line: int
    source: str  # the line's text
    change: str
    # Of a fault that no switch can make, because the compiler needs the value: the text in place of a span of the file.
    rebuilt: tuple[Span, str] | None = None

    def key(self) -> tuple[str, str, str]:
        """Identifies the fault as long as its line stays as it is, wherever the line goes."""
        return self.file, self.source, self.change

    def __str__(self) -> str:
        return f"{self.file}:{self.line}: {self.change}"


class MutantList:
    def __init__(self, root: pathlib.Path) -> None:
        self.root = root
        self.mutants: list[Mutant] = []

    def add(
        self, file: pathlib.Path, text: str, offset: int, change: str, rebuilt: tuple[Span, str] | None = None
    ) -> int:
        """The number of a new mutant at an offset of the file's text."""
        line = text.count("\n", 0, offset) + 1
        source = text.split("\n")[line - 1].strip()
        number = len(self.mutants) + 1
        name = str(file.relative_to(self.root))
        self.mutants.append(Mutant(number, name, line, source, change, rebuilt))
        return number
