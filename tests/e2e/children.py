"""Ends the programs that the tests start."""

import subprocess

from waiting import scaled


def end_child(child, limit=10.0):
    """Closes the program's input, at which the tests' programs exit, and kills it if it does not exit within limit."""
    if child.stdin is not None:
        try:
            child.stdin.close()
        except BrokenPipeError:
            pass
    try:
        child.wait(scaled(limit))
    except subprocess.TimeoutExpired:
        child.kill()
        child.wait()
    for stream in (child.stdout, child.stderr):
        if stream is not None:
            stream.close()
