"""Tests whether this kernel shows where other processes wait. On multi-core 32-bit ARM /proc/<pid>/stack is empty."""

import functools
import pathlib
import subprocess

from waiting import wait_until

BLIND = "blind: this kernel does not show where other processes wait"


@functools.cache
def are_shown():
    with subprocess.Popen(["sleep", "600"], stdin=subprocess.DEVNULL) as child:
        try:
            folder = pathlib.Path(f"/proc/{child.pid}")
            wait_until(lambda: (folder / "comm").read_text() == "sleep\n", "sleep is running")
            wait_until(lambda: (folder / "stat").read_text().rpartition(")")[2].split()[0] == "S", "it is asleep")
            return (folder / "stack").read_bytes() != b""
        finally:
            child.kill()
