"""Waiting for conditions that have nothing to be woken by, such as what /proc shows; and for how long on this machine.

Limits are stated for a machine of ordinary speed. How much slower this one is, emulated or busy, is measured once, and
the programs that the tests start are told it by their environment.
"""

import functools
import os
import time

NO_ENVIRONMENT: dict[str, str] = {}
SLOWNESS_VARIABLE = "ORLIM_E2E_SLOWNESS"
MEASURED_PROGRAMS = 20
ORDINARY_SECONDS = 0.04  # to run so many, as a busy machine of ordinary speed does


def measure_slowness():
    """How many times longer than ordinary it takes to run programs; at least 1."""
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
    """As long on this machine as these seconds are on an ordinary one."""
    return seconds * slowness()


def wait_until(condition, what, limit=10.0):
    """The first true value of condition(). Fails by name after limit seconds of an ordinary machine."""
    limit = scaled(limit)
    deadline = time.monotonic() + limit
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() >= deadline:
            raise AssertionError(f"not within {limit:.1f} seconds: {what}")
        time.sleep(0.005)
