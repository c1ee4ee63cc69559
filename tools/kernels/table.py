"""The results of all kernels as one table."""

import dataclasses
import re

PASS, FAIL, BLIND, SKIP = "pass", "FAIL", "blind", "SKIP"
BOOTS = "boots: "
WHOLE_BOOT = "all, from power on to power off"
HEADINGS = ("kernel", "test", "result", "seconds")


@dataclasses.dataclass(frozen=True)
class Row:
    kernel: str
    test: str
    result: str
    seconds: float
    reason: str = ""


def wording(test):
    """test_file.py::test_some_thing[case] as words."""
    function, _, case = test.rpartition("::")[2].removeprefix("test_").partition("[")
    return function.replace("_", " ") + (f": {case.removesuffix(']')}" if case else "")


def result_of(outcome, reason):
    if outcome == "skipped":
        return BLIND if reason.startswith("blind:") else SKIP
    return PASS if outcome == "passed" else FAIL


def rows_of(name, guest):
    """The rows of a guest. A failed row says if it ended too early or ran no test."""
    booted = bool(guest.release)
    rows = [Row(name, f"{BOOTS}{guest.release}" if booted else "boots", PASS if booted else FAIL, guest.boot_seconds)]
    for result in guest.results:
        row = Row(name, wording(result.test), result_of(result.outcome, result.reason), result.seconds, result.reason)
        rows.append(row)
    ended = guest.status == 0 and bool(guest.results)
    why = guest.failure or ("" if ended else f"the tests ended with {guest.status}")
    rows.append(Row(name, WHOLE_BOOT, PASS if ended else FAIL, guest.seconds, why))
    return rows


def is_good(rows):
    """Whether all tests passed or are blind. A guest has everything that a test needs, so a skip is a failure."""
    return all(row.result in (PASS, BLIND) for row in rows)


def text(rows):
    cells = [HEADINGS, *((row.kernel, row.test, row.result, f"{row.seconds:.1f}") for row in rows)]
    widths = [max(len(line[column]) for line in cells) for column in range(len(HEADINGS))]
    lines = []
    for kernel, test, result, seconds in cells:
        line = f"{kernel:{widths[0]}}  {test:{widths[1]}}  {result:{widths[2]}}  {seconds:>{widths[3]}}"
        lines.append(line.rstrip())
    return "\n".join(lines)


def releases(rows):
    """The release of each kernel that booted, as a sentence."""
    booted = (f"{row.kernel} {row.test.removeprefix(BOOTS)}" for row in rows if row.test.startswith(BOOTS))
    return f"The kernels: {', '.join(booted)}."


def markdown(rows):
    """One line per test and one column per kernel."""
    kernels = list(dict.fromkeys(row.kernel for row in rows))
    cells: dict[str, dict[str, str]] = {}
    for row in rows:
        test = re.sub(r"^boots: .*", "boots", row.test)
        cells.setdefault(test, {})[row.kernel] = f"{row.result} {row.seconds:.1f}"
    lines = [f"| {' | '.join(['test', *kernels])} |", f"|---|{'---|' * len(kernels)}"]
    for test, of_kernel in cells.items():
        lines.append(f"| {' | '.join([test, *(of_kernel.get(kernel, '') for kernel in kernels)])} |")
    return "\n".join(lines)
