"""Prepares and boots kernels of the list, one command at a time per repository."""

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
# The preset for each architecture.
PRESETS = {"amd64": "release", "armhf": "armhf"}
# Errors that can occur while a kernel is prepared.
FAILURES = (FetchError, RuntimeError, OSError)


def check_names(parser, names):
    """Ends the program with a usage error if a kernel is not in the list."""
    unknown = [name for name in names if name not in sources.KERNELS]
    if unknown:
        parser.error(f"unknown kernel {', '.join(unknown)}, choose from {', '.join(sources.KERNELS)}")


def presets_of(names):
    """The presets for the architectures of the kernels, each once."""
    return list(dict.fromkeys(PRESETS[sources.KERNELS[name].architecture] for name in names))


def say(message):
    print(f"kernels: {message}", file=sys.stderr, flush=True)


def cache_folder():
    outer = os.environ.get(CACHE_VARIABLE)
    return pathlib.Path(outer).absolute() / "kernels" if outer else FOLDER / "cache"


@contextlib.contextmanager
def alone():
    """Waits until no other command boots a kernel in this repository, and keeps others waiting."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    cache_folder().mkdir(parents=True, exist_ok=True)
    with (FOLDER / "lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def fetch(names):
    """Downloads the packages for the kernels. Logs the reason and returns False if one is not available."""
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
    """The bootable kernel, and the root disk and tested disk from make_disks(), for the boot with this name."""
    began = time.monotonic()
    say(f"{name}: getting it ready")
    bootable = sources.prepare(sources.KERNELS[kernel_name], cache_folder(), FOLDER / kernel_name)
    disks = make_disks()
    say(f"{name}: ready after {time.monotonic() - began:.0f} s")
    return bootable, disks


def run(kernel_name, name, limit, make_disks):
    """Boots a kernel, runs the tests and returns the rows of the result."""
    bootable, (root, tested) = get_ready(kernel_name, name, make_disks)
    say(f"{name}: boots for at most {limit} s")
    log = FOLDER / f"{name}.log"

    def show_result(line):
        if line.startswith("RESULT\t"):
            say(f"{name}: " + " ".join(line.split("\t")[1:]).strip())

    board = machine.BOARDS[sources.KERNELS[kernel_name].architecture]
    try:
        booted = machine.boot(board, bootable, [root, tested], log, limit, show_result)
    finally:
        tested.unlink()
    rows = table.rows_of(name, booted)
    for row in rows:
        if not table.is_good([row]):
            say(f"{name}: {row.test}: {row.result} {row.reason}; see {log.relative_to(ROOT)}")
    return rows


def run_alone(kernel_name, name, *how):
    """As run(), but waits for other commands, and returns a failed row if the kernel cannot be prepared."""
    with alone():
        try:
            return run(kernel_name, name, *how)
        except FAILURES as error:
            say(f"{name}: {error}")
            return [table.Row(name, "gets ready", table.FAIL, 0, str(error))]


def run_up_to(attempts, name, run_once):
    """Boots up to attempts times. Returns the rows of the first good boot, or of the last one."""
    for attempt in range(1, attempts + 1):
        if attempt > 1:
            say(f"{name}: not as it should be, hence attempt {attempt} of {attempts}")
        rows = run_once()
        if table.is_good(rows):
            break
    return rows
