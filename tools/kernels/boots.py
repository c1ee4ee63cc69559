"""Boots: kernels of the list, got ready and run in this repository's folder, one command at a time."""

import contextlib
import fcntl
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
# The preset that builds for an architecture.
PRESETS = {"amd64": "release", "armhf": "armhf"}
# What keeps a kernel from being got ready.
FAILURES = (FetchError, RuntimeError, OSError)


def check_names(parser, names):
    """Ends the program with the parser's message where a kernel is not in the list."""
    unknown = [name for name in names if name not in sources.KERNELS]
    if unknown:
        parser.error(f"no kernel is called {', '.join(unknown)}: {', '.join(sources.KERNELS)} are there")


def presets_of(names):
    """The presets that build what the kernels run, each once."""
    return list(dict.fromkeys(PRESETS[sources.KERNELS[name].architecture] for name in names))


def say(message):
    print(f"kernels: {message}", file=sys.stderr, flush=True)


def cache_folder():
    outer = os.environ.get(CACHE_VARIABLE)
    return pathlib.Path(outer).absolute() / "kernels" if outer else FOLDER / "cache"


@contextlib.contextmanager
def alone():
    """While no other command boots anything in this repository."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    cache_folder().mkdir(parents=True, exist_ok=True)
    with (FOLDER / "lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


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


def end_to_end_disks(name):
    architecture = sources.KERNELS[name].architecture
    root = guest.root_disk(Archive(cache_folder(), HOST_SUITE, architecture), FOLDER)
    return root, guest.tested_disk(ROOT / "build" / PRESETS[architecture], FOLDER, name)


def get_ready(kernel_name, name, make_disks):
    """The kernel and its root disk and tested disk, which make_disks() gives, for a boot that has a name."""
    began = time.monotonic()
    say(f"{name}: getting it ready")
    bootable = sources.prepare(sources.KERNELS[kernel_name], cache_folder(), FOLDER / kernel_name)
    disks = make_disks()
    say(f"{name}: ready after {time.monotonic() - began:.0f} s")
    return bootable, disks


def run(kernel_name, name, limit, make_disks):
    """The rows of one boot with tests."""
    bootable, (root, tested) = get_ready(kernel_name, name, make_disks)
    say(f"{name}: boots for at most {limit} s")
    log = FOLDER / f"{name}.log"

    def tell(line):
        if line.startswith("RESULT\t"):
            say(f"{name}: " + " ".join(line.split("\t")[1:]).strip())

    board = machine.BOARDS[sources.KERNELS[kernel_name].architecture]
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
    """As run, when no other command boots; what cannot be got ready has a row that says so."""
    with alone():
        try:
            return run(kernel_name, name, *how)
        except FAILURES as error:
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
