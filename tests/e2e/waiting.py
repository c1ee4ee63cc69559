"""Waiting for conditions that have nothing to be woken by, such as what /proc shows."""

import time


def wait_until(condition, what, limit=10.0):
    """The first true value of condition(). Fails by name after limit seconds."""
    deadline = time.monotonic() + limit
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() >= deadline:
            raise AssertionError(f"not within {limit} seconds: {what}")
        time.sleep(0.005)
