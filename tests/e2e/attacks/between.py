"""Starts a shell with its own descriptors, stands between it and its own parent, and does nothing.

between.py PROGRAM NAME [ARGUMENT...]
"""

import signal
import sys

from shells import start_shell


def main():
    program, *arguments = sys.argv[1:]
    start_shell(program, arguments, {0: 0, 1: 1, 2: 2})
    while True:
        signal.pause()


main()
