"""The mutants of a room, and copies of its files that hold all of them."""

import dataclasses
import pathlib
import re

import house
from constants import Constants
from edits import Edit, Span, render
from mutant import MutantList
from preset import Preset
from syntax import Tree, parse
from walker import Walker

# Its defaults are of use to a program that explains alone.
LEFT_ALONE = ("trace.h",)
NUMBER = re.compile(r"::Mutants::(?:IsOn|On)\((\d+)\)")


@dataclasses.dataclass
class Room:
    root: pathlib.Path
    name: str
    preset: Preset
    folder: pathlib.Path  # for copies of the sources and their builds

    def __post_init__(self) -> None:
        self.objects = self.preset.objects(f"orlim_{self.name}")
        self.mutants = MutantList(self.root)
        # Numbers of mutants that the compiler refuses.
        self.refused: set[int] = set()
        trees = self._parse()
        constants = Constants(trees)
        self.walkers = [Walker(tree, constants, self.mutants) for tree in trees]
        for walker in self.walkers:
            walker.make_constants()
        for walker in self.walkers:
            walker.walk()

    def _parse(self) -> list[Tree]:
        """Parses headers first, because sources use their definitions."""
        headers = [header for header in house.headers(self.root, self.name) if header.name not in LEFT_ALONE]
        trees: dict[pathlib.Path, Tree] = {}
        for source, name in sorted(self.objects.items()):
            found = parse(source, self.preset.options(name), self.root / "src")
            for file in (*headers, source):
                if file in found and file not in trees:
                    trees[file] = Tree(file, file.read_text(encoding="latin-1"), found[file])
        return sorted(trees.values(), key=lambda tree: (tree.file.suffix != ".h", tree.file))

    def has_header_mutants(self) -> bool:
        return any(walker.tree.file.suffix == ".h" and walker.edits for walker in self.walkers)

    def copy_of(self, file: pathlib.Path) -> pathlib.Path:
        return self.folder / file.relative_to(self.root)

    def write_copies(self) -> None:
        for walker in self.walkers:
            tree = walker.tree
            edits = [edit for edit in walker.edits if not self._is_refused(edit)]
            copy = self.copy_of(tree.file)
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_text(render(tree.text, edits, Span(0, len(tree.text))), encoding="latin-1")

    def _is_refused(self, edit: Edit) -> bool:
        text = "".join(piece for piece in edit.pieces if isinstance(piece, str))
        return bool({int(number) for number in NUMBER.findall(text)} & self.refused)

    def refuse(self, errors: str) -> None:
        """Takes the mutants out of the copies' lines that the compiler complains of."""
        found: set[int] = set()
        for name, line in re.findall(rf"^({re.escape(str(self.folder))}[^:]*):(\d+):\d+: error", errors, re.MULTILINE):
            text = pathlib.Path(name).read_text(encoding="latin-1").split("\n")[int(line) - 1]
            found |= {int(number) for number in NUMBER.findall(text)}
        if not found - self.refused:
            raise SystemExit(f"mutate: the copies of {self.name} do not compile\n{errors}")
        self.refused |= found
