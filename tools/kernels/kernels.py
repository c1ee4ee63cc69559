#!/usr/bin/python3
"""Runs the end-to-end tests that suit every kernel on other kernels, in an emulator. Called by ./dev kernels."""

import argparse
import fcntl
import functools
import os
import pathlib
import sys
import time

import guest
import machine
import sources
import table
from archive import HOST_SUITE, Archive, FetchError

ROOT = guest.REPOSITORY
FOLDER = ROOT / "build/kernels"
CACHE_VARIABLE = "ORLIM_CACHE"
LIMIT_SECONDS = 400
# The preset that builds for an architecture.
PRESETS = {"amd64": "release", "armhf": "armhf"}


def say(message):
    print(f"kernels: {message}", file=sys.stderr, flush=True)


def cache_folder():
    outer = os.environ.get(CACHE_VARIABLE)
    return pathlib.Path(outer).absolute() / "kernels" if outer else FOLDER / "cache"


def end_to_end_disks(name):
    architecture = sources.KERNELS[name].architecture
    root = guest.root_disk(Archive(cache_folder(), HOST_SUITE, architecture), FOLDER)
    return root, guest.tested_disk(ROOT / "build" / PRESETS[architecture], FOLDER, name)


def run(kernel_name, name, limit, make_disks):
    """The rows of one boot, which has a name, on one kernel. make_disks() gives the root disk and the tested disk."""
    kernel = sources.KERNELS[kernel_name]
    began = time.monotonic()
    say(f"{name}: getting it ready")
    bootable = sources.prepare(kernel, cache_folder(), FOLDER / kernel_name)
    root, tested = make_disks()
    say(f"{name}: ready after {time.monotonic() - began:.0f} s, boots for at most {limit} s")
    log = FOLDER / f"{name}.log"

    def tell(line):
        if line.startswith("RESULT\t"):
            say(f"{name}: " + " ".join(line.split("\t")[1:]).strip())

    board = machine.BOARDS[kernel.architecture]
    try:
        booted = machine.boot(board, bootable, [root, tested], log, limit, tell)
    finally:
        tested.unlink()
    rows = table.rows_of(name, booted)
    for row in rows:
        if not table.is_good([row]):
            say(f"{name}: {row.test}: {row.result} {row.reason}; see {log.relative_to(ROOT)}")
    return rows


def run_alone(kernel_name, name, *how):
    """As run, when no other runs in this repository; what cannot be got ready has a row that says so."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    cache_folder().mkdir(parents=True, exist_ok=True)
    with (FOLDER / "lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        try:
            return run(kernel_name, name, *how)
        except (FetchError, RuntimeError, OSError) as error:
            say(f"{name}: {error}")
            return [table.Row(name, "gets ready", table.FAIL, 0, str(error))]


def run_up_to(attempts, name, run_once):
    """The rows of the first boot in which everything is as it should be, or of the last one."""
    for attempt in range(1, attempts + 1):
        if attempt > 1:
            say(f"{name}: not as it should be, hence attempt {attempt} of {attempts}")
        rows = run_once()
        if table.is_good(rows):
            break
    return rows


def fetch(names):
    """Fetches what the kernels need. False, with a line that says why, if something of it cannot be had."""
    cache_folder().mkdir(parents=True, exist_ok=True)
    for name in names:
        kernel = sources.KERNELS[name]
        try:
            sources.fetch(kernel, cache_folder())
            Archive(cache_folder(), HOST_SUITE, kernel.architecture).fetch(*guest.PACKAGES)
        except FetchError as error:
            say(f"{name}: {error}")
            return False
    return True


def arguments():
    parser = argparse.ArgumentParser(prog="./dev kernels", description=__doc__)
    parser.add_argument("names", nargs="*", metavar="NAME", help="a kernel; without any, all of them")
    parser.add_argument("--list", action="store_true", help="list the kernels, and run none")
    parser.add_argument("--fetch", action="store_true", help="download what the kernels need, and run none")
    attempts_help = "how often a kernel is booted at most until all is as it should be (%(default)s)"
    parser.add_argument("--attempts", type=int, default=1, metavar="N", help=attempts_help)
    limit_help = "until a kernel's emulator is killed (%(default)s)"
    parser.add_argument("--limit", type=int, default=LIMIT_SECONDS, metavar="SECONDS", help=limit_help)
    parser.add_argument("--markdown", action="store_true", help="the table with a column a kernel")
    parser.add_argument("--presets", action="store_true", help="list the presets that the run needs, and run none")
    parsed = parser.parse_args()
    unknown = [name for name in parsed.names if name not in sources.KERNELS]
    if unknown:
        parser.error(f"no kernel is called {', '.join(unknown)}: {', '.join(sources.KERNELS)} are there")
    if parsed.attempts < 1:
        parser.error("--attempts takes a number from 1 on")
    return parsed


def main():
    chosen = arguments()
    names = chosen.names or list(sources.KERNELS)
    if chosen.list:
        print("\n".join(names))
        return 0
    if chosen.presets:
        print("\n".join(dict.fromkeys(PRESETS[sources.KERNELS[name].architecture] for name in names)))
        return 0
    if chosen.fetch:
        return 0 if fetch(names) else 1
    rows = []
    for name in names:
        run_once = functools.partial(run_alone, name, name, chosen.limit, functools.partial(end_to_end_disks, name))
        rows += run_up_to(chosen.attempts, name, run_once)
    print(table.markdown(rows) if chosen.markdown else table.text(rows))
    return 0 if table.is_good(rows) else 1


if __name__ == "__main__":
    sys.exit(main())
