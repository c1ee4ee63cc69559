"""Starts a shell on a Unix stream socket and holds a raw socket. Orders for the shell come on descriptor 0.

raw.py ADDRESS PORT PROGRAM NAME [ARGUMENT...]: the raw socket is connected to the address; with port 0, to no port.
"""

import socket
import sys

from shells import pass_on, start_shell

PROTOCOL = 253  # reserved for experiments: no host answers


def main():
    address, port, program, *arguments = sys.argv[1:]
    line = socket.socket(socket.AF_INET, socket.SOCK_RAW, PROTOCOL)
    line.connect((address, int(port)))
    own, shells = socket.socketpair()
    start_shell(program, arguments, dict.fromkeys((0, 1, 2), shells.fileno()))
    shells.close()
    pass_on({0: own.fileno(), own.fileno(): 1})


main()
