"""By which files this kernel shows where other processes wait: /proc/<pid>/stack, or /proc/<pid>/wchan where that is
empty, as on multi-core 32-bit ARM."""

import functools
import pathlib
import subprocess
import time

from waiting import wait_until

LOAD_SECONDS = 5
BLIND = "blind: this kernel does not show where other processes wait"
# An agent without this right reads no stack, as on a kernel that shows none.
HIDE_STACKS = ("setpriv", "--bounding-set", "-sys_admin")


def _places(process):
    """The stack and wchan of a process; empty if it is on a processor."""
    stack = process / "stack"
    return stack.read_text() if stack.exists() else "", (process / "wchan").read_text()


@functools.cache
def _of_sleeping_reader():
    """The stack and wchan of a process that sleeps in the read of a pipe."""
    with subprocess.Popen(["cat"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL) as reader:
        process = pathlib.Path(f"/proc/{reader.pid}")
        try:
            wait_until(lambda: (process / "comm").read_text() == "cat\n", "another program runs")
            # While it loads, it sleeps elsewhere. A kernel that shows nothing of the read takes the whole limit.
            limit = time.monotonic() + LOAD_SECONDS
            while "pipe_read" not in "".join(_places(process)) and time.monotonic() < limit:
                time.sleep(0.05)
            return _places(process)
        finally:
            reader.kill()


def are_shown():
    return _of_sleeping_reader()[0] != ""


def channels_are_shown():
    return "pipe_read" in _of_sleeping_reader()[1]


def ways_to_look():
    """Wrappers for agents that see waits in different ways: by all files, and without stacks if that differs."""
    return {"agent": (), **({"without stacks": HIDE_STACKS} if are_shown() and channels_are_shown() else {})}


def waits_are_seen():
    """Whether the agent, with all rights, sees where a process waits."""
    return "pipe_read" in _of_sleeping_reader()[0] if are_shown() else channels_are_shown()
