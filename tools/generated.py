"""Parts of the repository that a command of ./dev writes: tables in documents, and pictures.

A table stands between two markers. The first one names the command that wrote it, the version that was measured and a
digest of the text, so that tools/check_generated.py sees an edit by hand.
"""

import dataclasses
import hashlib
import os
import pathlib
import platform
import re

ROOT = pathlib.Path(__file__).resolve().parent.parent
PERFORMANCE = ROOT / "docs/performance.md"
KERNELS = ROOT / "docs/kernels.md"
README = ROOT / "README.md"
PICTURES = ROOT / "docs/pictures"

BLOCK = re.compile(
    r"^<!-- begin: (?P<name>[a-z-]+), written by (?P<command>[^,]+), version (?P<version>\S+), digest (?P<digest>\S+) "
    r"-->\n(?P<text>.*?)^<!-- end: (?P=name) -->$",
    re.DOTALL | re.MULTILINE,
)
STAMP = re.compile(r"<!-- written by (?P<command>[^,]+), version (?P<version>\S+), digest (?P<digest>\S+) -->\n")


@dataclasses.dataclass(frozen=True)
class Generated:
    command: str
    version: str
    text: str
    edited: bool  # by hand: the text does not have the digest that is written beside it


def digest(text: str) -> str:
    return hashlib.sha256(text.encode()).hexdigest()[:16]


def project_version(root: pathlib.Path = ROOT) -> str:
    found = re.search(r"^project\(orlim VERSION (\S+)", (root / "CMakeLists.txt").read_text("utf-8"), re.MULTILINE)
    assert found is not None
    return found[1]


def generated(found: re.Match[str], text: str) -> Generated:
    return Generated(found["command"], found["version"], text, found["digest"] != digest(text))


def tables(document: str) -> dict[str, Generated]:
    """The tables of a document by name."""
    return {found["name"]: generated(found, found["text"]) for found in BLOCK.finditer(document)}


def with_table(document: str, name: str, command: str, version: str, text: str) -> str:
    """The document with another text in the table. Raises LookupError if the document has no such table."""
    text = text.strip("\n") + "\n"
    marked = f"<!-- begin: {name}, written by {command}, version {version}, digest {digest(text)} -->\n{text}"
    marked += f"<!-- end: {name} -->"
    places = [found for found in BLOCK.finditer(document) if found["name"] == name]
    if len(places) != 1:
        raise LookupError(f"found {len(places)} tables with the name {name}, expected one")
    return document[: places[0].start()] + marked + document[places[0].end() :]


def write_table(path: pathlib.Path, name: str, command: str, text: str) -> None:
    document = path.read_text("utf-8")
    path.write_text(with_table(document, name, command, project_version(), text), encoding="utf-8")


def picture(text: str) -> Generated | None:
    """An SVG's stamp and the rest of it; None without a stamp."""
    found = STAMP.search(text)
    return generated(found, STAMP.sub("", text, count=1)) if found else None


def write_picture(path: pathlib.Path, command: str, text: str) -> None:
    """The stamp follows the first line, where XML wants its declaration."""
    first, _, rest = text.partition("\n")
    stamp = f"<!-- written by {command}, version {project_version()}, digest {digest(text)} -->\n"
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(f"{first}\n{stamp}{rest}", encoding="utf-8")


def markdown(cells: list[list[str]], left: int = 1) -> str:
    """A table whose first line is the heading. All columns but the first ones, as many as left, hold numbers."""
    widths = [max(len(line[column]) for line in cells) for column in range(len(cells[0]))]

    def line(values: list[str]) -> str:
        aligned = (
            value.ljust(width) if column < left else value.rjust(width)
            for column, (value, width) in enumerate(zip(values, widths))
        )
        return f"| {' | '.join(aligned)} |"

    rule = ("-" * (width + 2) if column < left else "-" * (width + 1) + ":" for column, width in enumerate(widths))
    return "\n".join([line(cells[0]), f"|{'|'.join(rule)}|", *map(line, cells[1:])])


def cells_of(text: str) -> list[list[str]]:
    """The cells of the table in a text, without the line below the heading; [] if there is none."""
    lines = [line for line in text.splitlines() if line.startswith("|")]
    return [[cell.strip() for cell in line.strip("|").split("|")] for line in lines[:1] + lines[2:]]


def this_machine() -> str:
    """The machine that figures are from, in a sentence."""
    processor = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    name = processor[1] if processor else platform.machine()
    count = os.cpu_count()
    return f"Measured on {name}, {count} processors, Linux {platform.release().split('-')[0]}."
