#!/usr/bin/python3
"""Runs the end-to-end tests that suit every kernel on other kernels, in an emulator, or measures there what the agent
costs. Called by ./dev kernels."""

import argparse
import concurrent.futures
import dataclasses
import fcntl
import os
import pathlib
import sys
import time

import cost
import guest
import machine
import sources
import table
from archive import HOST_SUITE, Archive, FetchError

ROOT = guest.REPOSITORY
FOLDER = ROOT / "build/kernels"
CACHE_VARIABLE = "ORLIM_CACHE"
LIMIT_SECONDS = 400
COST_KERNELS = ("armhf-6.1", "amd64-6.1")
COST_MINUTES = 60
# The preset that builds for an architecture.
PRESETS = {"amd64": "release", "armhf": "armhf"}


def say(message):
    print(f"kernels: {message}", file=sys.stderr, flush=True)


def cache_folder():
    outer = os.environ.get(CACHE_VARIABLE)
    return pathlib.Path(outer).absolute() / "kernels" if outer else FOLDER / "cache"


def get_ready(name):
    """The kernel, and the disks that it boots with."""
    kernel = sources.KERNELS[name]
    began = time.monotonic()
    say(f"{name}: getting it ready")
    bootable = sources.prepare(kernel, cache_folder(), FOLDER / name)
    root = guest.root_disk(Archive(cache_folder(), HOST_SUITE, kernel.architecture), FOLDER)
    tested = guest.tested_disk(ROOT / "build" / PRESETS[kernel.architecture], FOLDER, name)
    say(f"{name}: ready after {time.monotonic() - began:.0f} s")
    return bootable, [root, tested]


def run(name, limit):
    """The rows of one kernel."""
    bootable, disks = get_ready(name)
    say(f"{name}: boots for at most {limit} s")
    log = FOLDER / f"{name}.log"

    def tell(line):
        if line.startswith("RESULT\t"):
            say(f"{name}: " + " ".join(line.split("\t")[1:]).strip())

    board = machine.BOARDS[sources.KERNELS[name].architecture]
    booted = machine.boot(board, bootable, disks, log, limit, tell)
    disks[-1].unlink()
    rows = table.rows_of(name, booted)
    for row in rows:
        if not table.is_good([row]):
            say(f"{name}: {row.test}: {row.result} {row.reason}; see {log.relative_to(ROOT)}")
    return rows


def measure(name, ready, minutes, limit, counted):
    """The figures of one kernel."""
    board = machine.BOARDS[sources.KERNELS[name].architecture]
    if counted:
        # More processors than one hang while they boot.
        board = dataclasses.replace(board, counted=True, processors=1)
    what = f"cost-{name}-counted" if counted else f"cost-{name}"
    log = FOLDER / f"{what}.log"
    lines = []
    say(f"{what}: boots for at most {limit} s")
    booted = machine.boot(board, *ready, log, limit, lines.append, f"ORLIM_COST_MINUTES={minutes}")
    if booted.status != 0:
        say(f"{what}: {booted.failure or f'ended with {booted.status}'}; see {log.relative_to(ROOT)}")
        return {}
    return {"kernel": booted.release, **cost.figures_of(lines)}


def measure_all(names, minutes, limit):
    """The figures by guest: each kernel with a clock that counts instructions, then all at the same time without."""
    ready = {name: get_ready(name) for name in names}
    limit += minutes * 60
    columns = {f"{name} counted": measure(name, ready[name], minutes, limit, True) for name in names}
    with concurrent.futures.ThreadPoolExecutor(len(names)) as pool:
        running = {name: pool.submit(measure, name, ready[name], minutes, limit, False) for name in names}
        columns |= {name: future.result() for name, future in running.items()}
    for _, disks in ready.values():
        disks[-1].unlink()
    return columns


def arguments():
    parser = argparse.ArgumentParser(prog="./dev kernels", description=__doc__)
    names_help = f"a kernel; without any, all of them, or for --cost {' and '.join(COST_KERNELS)}"
    parser.add_argument("names", nargs="*", metavar="NAME", help=names_help)
    parser.add_argument("--list", action="store_true", help="list the kernels, and run none")
    limit_help = "until a kernel's emulator is killed, the minutes of --cost left out (%(default)s)"
    parser.add_argument("--limit", type=int, default=LIMIT_SECONDS, metavar="SECONDS", help=limit_help)
    parser.add_argument("--markdown", action="store_true", help="the table with a column a kernel")
    parser.add_argument("--cost", action="store_true", help="measure there what the agent costs, and run no tests")
    minutes_help = "of --cost: how long the agent watches an idle guest (%(default)s)"
    parser.add_argument("--minutes", type=int, default=COST_MINUTES, metavar="N", help=minutes_help)
    parser.add_argument("--presets", action="store_true", help="list the presets that the run needs, and run none")
    parsed = parser.parse_args()
    unknown = [name for name in parsed.names if name not in sources.KERNELS]
    if unknown:
        parser.error(f"no kernel is called {', '.join(unknown)}: {', '.join(sources.KERNELS)} are there")
    if parsed.minutes < 1:
        parser.error("--minutes takes a number from 1 on")
    return parsed


def show_tests(names, chosen):
    rows = []
    for name in names:
        try:
            rows += run(name, chosen.limit)
        except (FetchError, RuntimeError, OSError) as error:
            say(f"{name}: {error}")
            rows.append(table.Row(name, "gets ready", table.FAIL, 0, str(error)))
    print(table.markdown(rows) if chosen.markdown else table.text(rows))
    return 0 if table.is_good(rows) else 1


def show_cost(names, chosen):
    try:
        columns = measure_all(names, chosen.minutes, chosen.limit)
    except (FetchError, RuntimeError, OSError) as error:
        say(str(error))
        return 1
    print(cost.markdown(columns) if chosen.markdown else cost.text(columns))
    return 0 if all(columns.values()) else 1


def main():
    chosen = arguments()
    names = chosen.names or list(COST_KERNELS if chosen.cost else sources.KERNELS)
    if chosen.list:
        print("\n".join(names))
        return 0
    if chosen.presets:
        print("\n".join(dict.fromkeys(PRESETS[sources.KERNELS[name].architecture] for name in names)))
        return 0
    FOLDER.mkdir(parents=True, exist_ok=True)
    cache_folder().mkdir(parents=True, exist_ok=True)
    with (FOLDER / "lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        return show_cost(names, chosen) if chosen.cost else show_tests(names, chosen)


if __name__ == "__main__":
    sys.exit(main())
