"""Starts a shell with the same descriptors and waits, as an intermediate process between the shell and its own parent.

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
