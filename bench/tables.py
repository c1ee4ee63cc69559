"""The tables of docs/performance.md: the sizes to measure, and the columns for the results."""

import dataclasses
import pathlib
import re
import sys
from collections.abc import Mapping, Sequence

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.append(str(ROOT / "tools"))

import generated

COMMAND = "./dev bench --write"
SIZES_COMMAND = "./dev bench sizes --write"
IDLE_COMMAND = "./dev bench idle --write"

PROCESSES = (100, 1000, 5000)
CONNECTIONS = (100, 1000, 10000)
SHELLS = (0, 1)
DESCRIPTORS = (10, 200)
# Commands per second, bytes of a command's line, milliseconds that a command lives beyond its start.
STORMS = tuple((rate, length, 0) for length in (20, 2000) for rate in (100, 500, 2000)) + (
    (100, 20, 100),
    (100, 2000, 100),
)
# The host on which other programs are compared with a pass.
COMPARED_PROCESSES = 1000
COMPARED_CONNECTIONS = 1000
PASS = "a pass of the period scan"
ALTERNATIVES = {
    "`ss -tnp`": ("TCP connections and their processes", ("ss", "-tnp")),
    "`lsof -nP -iTCP`": ("the same, by descriptor", ("lsof", "-nP", "-iTCP")),
    "`lsof -nP`": ("every open file, pipes and FIFOs too; you join them", ("lsof", "-nP")),
}
OTHER_SIZE, SAME_SIZE = "a file of another size than every shell", "a file of 1 MiB with the size of a shell"
SERVICES = {
    "ParseConnectionTable/100": "parse a connection table of 100 lines",
    "ParseConnectionTable/1000": "parse a connection table of 1,000 lines",
    "ParseConnectionTable/50000": "parse a connection table of 50,000 lines",
    "ReadProcessStatus": "read a process's status",
    "WriteEvent/20": "write an event",
    "WriteEvent/100000": "write an event with a command line of 100,000 bytes",
}
FILES = ("liborlim_detect-shell.so", "liborlim_agent.so", "orlim-agent")
SIZE_PRESETS = {"amd64": "release", "32-bit ARM": "armhf"}


@dataclasses.dataclass(frozen=True)
class Column:
    key: str
    title: str
    form: str = "{:.1f}"


@dataclasses.dataclass(frozen=True)
class Table:
    """A table of a document. The first columns, as many as keys has per row, identify the measurement."""

    columns: tuple[Column, ...]
    keys: tuple[tuple, ...]
    command: str = COMMAND
    left: int = 0  # columns of words

    def heading(self) -> list[str]:
        return [column.title for column in self.columns]

    def key_cells(self) -> list[list[str]]:
        """The first cells of each row."""
        return [[column.form.format(key) for column, key in zip(self.columns, keys)] for keys in self.keys]

    def markdown(self, rows: Sequence[Mapping]) -> str:
        cells = [[column.form.format(row[column.key]) for column in self.columns] for row in rows]
        return generated.markdown([self.heading(), *cells], self.left)


TABLES = {
    "passes": Table(
        (
            Column("processes", "processes", "{:d}"),
            Column("connections", "connections", "{:d}"),
            Column("shells", "shells", "{:d}"),
            Column("wallMs", "wall ms"),
            Column("pausedMs", "pauses ms"),
            Column("ownMs", "ours ms"),
            Column("share", "ours of pass", "{:.1%}"),
            Column("cpuMs", "CPU ms"),
            Column("peakMiB", "peak MiB"),
        ),
        tuple(
            (processes, connections, shells)
            for shells in SHELLS
            for processes in PROCESSES
            for connections in CONNECTIONS
        ),
    ),
    "alternatives": Table(
        (
            Column("program", "", "{}"),
            Column("shows", "shows", "{}"),
            Column("wallMs", "wall ms"),
            Column("cpuMs", "CPU ms"),
            Column("peakMiB", "peak MiB"),
        ),
        ((PASS, "reverse shells"), *((name, shows) for name, (shows, _) in ALTERNATIVES.items())),
        left=2,
    ),
    "refreshes": Table(
        (
            Column("sockets", "sockets", "{:d}"),
            Column("pausedMs", "pauses ms"),
            Column("cpuMs", "CPU ms", "{:.2f}"),
            Column("sleptCpuMs", "CPU ms with sleeps"),
            Column("share", "CPU of refresh", "{:.1%}"),
            Column("peakMiB", "peak MiB"),
        ),
        tuple((sockets,) for sockets in CONNECTIONS),
    ),
    "snapshots": Table(
        (
            Column("descriptors", "descriptors", "{:d}"),
            Column("pausedMs", "pauses ms"),
            Column("cpuMs", "CPU ms", "{:.2f}"),
            Column("sleptCpuMs", "CPU ms with sleeps"),
            Column("share", "CPU of snapshot", "{:.1%}"),
        ),
        tuple((descriptors,) for descriptors in DESCRIPTORS),
    ),
    "shell-question": Table(
        (Column("file", "file", "{}"), Column("cpuMs", "CPU ms", "{:.4f}")), ((OTHER_SIZE,), (SAME_SIZE,)), left=1
    ),
    # Each age is the greatest that an event had when the callback was called that works on forks, or on execs.
    "storms": Table(
        (
            Column("rate", "exec/s", "{:d}"),
            Column("length", "bytes", "{:d}"),
            Column("alive", "alive ms", "{:d}"),
            Column("achieved", "achieved", "{:.0f}"),
            Column("queued", "queued", "{:d}"),
            Column("forkAge", "fork age s", "{:.2f}"),
            Column("execAge", "exec age s", "{:.2f}"),
            Column("cpu", "CPU", "{:.0%}"),
            Column("delay", "found after s", "{}"),
            Column("overflowed", "lost", "{:d}"),
            Column("kernelLosses", "lost by the kernel", "{:d}"),
        ),
        STORMS,
    ),
    "services": Table(
        (Column("service", "service", "{}"), Column("time", "time", "{}")),
        tuple((title,) for title in SERVICES.values()),
        left=1,
    ),
    "sizes": Table(
        (Column("file", "bytes", "{}"), *(Column(name, name, "{:,d}") for name in SIZE_PRESETS)),
        tuple((f"`{file}`",) for file in FILES),
        SIZES_COMMAND,
        left=1,
    ),
}


def write(name: str, rows: Sequence[Mapping], documents: Sequence[pathlib.Path] = (generated.PERFORMANCE,)) -> None:
    """Puts the rows into the table of the documents, below a sentence on this machine."""
    table = TABLES[name]
    for document in documents:
        generated.write_table(document, name, table.command, f"{generated.this_machine()}\n\n{table.markdown(rows)}")


def services_in_source() -> set[str]:
    """The benchmarks of services_bench.cpp, named as it names them when it runs."""
    source = (ROOT / "bench/services_bench.cpp").read_text("utf-8")
    names = set()
    for name, calls in re.findall(r"^BENCHMARK\((\w+)\)(.*);$", source, re.MULTILINE):
        sizes = re.findall(r"->Arg\((\d+)\)", calls)
        names |= {f"{name}/{size}" for size in sizes} or {name}
    return names
