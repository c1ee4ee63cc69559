"""Reads the connections of a process from /proc."""

import dataclasses
import ipaddress
import os
import pathlib
import sys

TABLES = ("tcp", "tcp6", "raw", "udp")


@dataclasses.dataclass(frozen=True)
class Connection:
    inode: int
    local: tuple  # address, port
    remote: tuple


def address_of(digits):
    """The tables print addresses as words in the host's own byte order."""
    words = [int(digits[i : i + 8], 16).to_bytes(4, sys.byteorder) for i in range(0, len(digits), 8)]
    return ipaddress.ip_address(b"".join(words))


def end_of(field):
    digits, _, port = field.partition(":")
    return address_of(digits), int(port, 16)


def all_connections():
    """All connections in the kernel's tables, by inode."""
    found = {}
    for table in TABLES:
        for line in pathlib.Path("/proc/net", table).read_text().splitlines()[1:]:
            fields = line.split()
            inode = int(fields[9])
            found[inode] = Connection(inode, end_of(fields[1]), end_of(fields[2]))
    return found


def connection_of(pid):
    """The connection that the process holds; None if it holds none or more than one."""
    known = all_connections()
    held = set()
    for descriptor in os.listdir(f"/proc/{pid}/fd"):
        try:
            held.add(os.stat(f"/proc/{pid}/fd/{descriptor}").st_ino)
        except OSError:
            continue
    connections = [known[inode] for inode in held & known.keys()]
    return connections[0] if len(connections) == 1 else None
