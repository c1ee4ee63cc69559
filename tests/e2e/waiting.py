"""Polls for conditions that cannot wake a waiter, such as the content of /proc, with limits for this machine.

Limits are given for a machine of ordinary speed. The slowness of this machine, emulated or busy, is measured once and
passed to the programs that the tests start in their environment.
"""

import functools
import os
import time

NO_ENVIRONMENT: dict[str, str] = {}
SLOWNESS_VARIABLE = "ORLIM_E2E_SLOWNESS"
MEASURED_PROGRAMS = 20
ORDINARY_SECONDS = 0.04  # for MEASURED_PROGRAMS, on a busy machine of ordinary speed


def measure_slowness():
    """How many times longer than on an ordinary machine it takes to start programs; at least 1."""
    began = time.perf_counter()
    for _ in range(MEASURED_PROGRAMS):
        os.waitpid(os.posix_spawn("/bin/true", ["true"], NO_ENVIRONMENT), 0)
    return max(1.0, (time.perf_counter() - began) / ORDINARY_SECONDS)


@functools.cache
def slowness():
    if SLOWNESS_VARIABLE not in os.environ:
        os.environ[SLOWNESS_VARIABLE] = str(measure_slowness())
    return float(os.environ[SLOWNESS_VARIABLE])


def scaled(seconds):
    """The limit on this machine that corresponds to these seconds on an ordinary machine."""
    return seconds * slowness()


def wait_until(condition, what, limit=10.0):
    """Returns the first true value of condition(). Fails with what after limit seconds of an ordinary machine."""
    limit = scaled(limit)
    deadline = time.monotonic() + limit
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() >= deadline:
            raise AssertionError(f"not within {limit:.1f} seconds: {what}")
        time.sleep(0.005)
