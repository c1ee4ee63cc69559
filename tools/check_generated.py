#!/usr/bin/python3
"""Reports tables of documents, and pictures, that a command of ./dev has to write again.

They are stale if somebody has edited them, if another version was measured, or if their rows and columns are not those
of the benchmarks, kernels, tests and scenarios in the tree. A table that says that it is not measured yet is listed and
is not a fault: some need an idle machine.
"""

import pathlib
import re
import subprocess
import sys
from collections.abc import Iterator

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ROOT / "bench"), str(ROOT / "tools/kernels")]

import generated
import idle_cost
import idle_cost_in_guests
import kernels
import pictures
import sources
import table as kernel_table
import tables

DOCUMENTS = (generated.README, generated.PERFORMANCE, generated.KERNELS)
UNMEASURED = "none"

# The first cells of each row, which identify the measurement.
Keys = list[list[str]]


def kernel_tests() -> list[str]:
    """The tests that run on every kernel, as the table names them."""
    command = [sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "--collect-only", "-q", "-m", "kernel"]
    done = subprocess.run([*command, "tests/e2e"], cwd=ROOT, stdout=subprocess.PIPE, text=True, check=True)
    return [kernel_table.wording(line) for line in done.stdout.splitlines() if "::" in line]


def expected_kernels() -> tuple[list[str], Keys]:
    rows = ["boots", *kernel_tests(), kernel_table.WHOLE_BOOT]
    return ["test", *sources.KERNELS], [[row] for row in rows]


def expected_idle() -> tuple[list[str], Keys]:
    names = idle_cost_in_guests.KERNELS
    titles = ["kernel", *idle_cost.titles(idle_cost_in_guests.MINUTES)]
    return ["figure", *(f"{name} counted" for name in names), *names], [[title] for title in titles]


def expected_tables(document: pathlib.Path) -> dict[str, tuple[list[str], Keys]]:
    """Heading and keys of each table that the document has to have."""
    if document == generated.KERNELS:
        return {kernels.TABLE: expected_kernels()}
    if document == generated.README:
        names = ["alternatives"]
    else:
        names = list(tables.TABLES)
    expected = {name: (tables.TABLES[name].heading(), tables.TABLES[name].key_cells()) for name in names}
    if document == generated.PERFORMANCE:
        expected[idle_cost_in_guests.TABLE] = expected_idle()
    return expected


def staleness(part: generated.Generated, version: str) -> Iterator[str]:
    if part.edited:
        yield "edited by hand"
    if part.version != version:
        yield f"made from version {part.version}, this is {version}"


def table_faults(part: generated.Generated, version: str, heading: list[str], keys: Keys) -> Iterator[str]:
    yield from staleness(part, version)
    cells = generated.cells_of(part.text)
    if not cells or cells[0] != heading:
        yield f"its columns are not {', '.join(heading)}"
        return
    found = [row[: len(key)] for row, key in zip(cells[1:], keys)]
    if found != keys or len(cells) != len(keys) + 1:
        missing = [", ".join(key) for key in keys if key not in found]
        surplus = [", ".join(row[: len(keys[0])]) for row in cells[1:] if row[: len(keys[0])] not in keys]
        yield f"its rows are not those of the tree; missing: {missing}; surplus: {surplus}"


def is_unmeasured(part: generated.Generated) -> bool:
    return part.version == UNMEASURED and not part.edited and part.text.startswith("Not measured yet")


def unmeasured() -> Iterator[str]:
    for document in DOCUMENTS:
        for name, part in generated.tables(document.read_text("utf-8")).items():
            if is_unmeasured(part):
                yield f"{document.relative_to(ROOT)}: the table {name} is not measured yet, {part.command} writes it"


def check_document(document: pathlib.Path, version: str) -> Iterator[str]:
    shown = document.relative_to(ROOT)
    found = generated.tables(document.read_text("utf-8"))
    expected = expected_tables(document)
    for name in sorted(set(found) - set(expected)):
        yield f"{shown}: no command writes the table {name}"
    for name, (heading, keys) in expected.items():
        if name not in found:
            yield f"{shown}: the table {name} is missing"
            continue
        if is_unmeasured(found[name]):
            continue
        for fault in table_faults(found[name], version, heading, keys):
            yield f"{shown}: the table {name} is stale, {found[name].command} writes it: {fault}"


def picture_faults(text: str, version: str, words: list[str]) -> Iterator[str]:
    """The words are those that the picture has to show."""
    part = generated.picture(text)
    if part is None:
        yield "no command has written it"
        return
    yield from staleness(part, version)
    shown = re.sub(r"<[^>]+>", " ", part.text)
    missing = [word for word in words if word not in shown]
    if missing:
        yield f"does not show {', '.join(missing)}"


def check_pictures(version: str) -> Iterator[str]:
    for name, words in pictures.expected_words().items():
        path = generated.PICTURES / name
        shown = path.relative_to(ROOT)
        if not path.exists():
            yield f"{shown}: is missing, {pictures.COMMAND} makes it"
            continue
        for fault in picture_faults(path.read_text("utf-8"), version, words):
            yield f"{shown}: is stale, {pictures.COMMAND} makes it: {fault}"


def check_services() -> Iterator[str]:
    untitled = tables.services_in_source() ^ set(tables.SERVICES)
    if untitled:
        yield f"bench/tables.py and bench/services_bench.cpp do not have the same services: {sorted(untitled)}"


def check() -> list[str]:
    version = generated.project_version()
    found = [*check_services(), *check_pictures(version)]
    for document in DOCUMENTS:
        found += check_document(document, version)
    return found


def main() -> int:
    found = check()
    print("\n".join([*unmeasured(), *found]))
    if not found:
        print("tables and pictures are up to date")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
