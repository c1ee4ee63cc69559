"""Starts a shell on a pipe and copies the connection at descriptor 0 to that pipe, which it has at descriptor 1.

relay.py read|poll PROGRAM NAME [ARGUMENT...]: "read" blocks in a read of the connection, "poll" waits in poll(2).
"""

import os
import select
import sys

from shells import start_shell


def main():
    how, program, *arguments = sys.argv[1:]
    read, write = os.pipe()
    start_shell(program, arguments, {0: read, 1: 0, 2: 0})
    os.close(read)
    os.dup2(write, 1)
    os.close(write)
    waiting = select.poll()
    waiting.register(0, select.POLLIN)
    while True:
        if how == "poll":
            waiting.poll()
        block = os.read(0, 4096)
        if not block:
            return
        os.write(1, block)


main()
