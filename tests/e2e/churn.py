"""Starts a few hundred short processes per second until its input ends, like a busy host."""

import os
import select
import sys

SECONDS_BETWEEN = 0.003


def main():
    null = os.open("/dev/null", os.O_RDWR)
    streams = [(os.POSIX_SPAWN_DUP2, null, fd) for fd in (0, 1, 2)]
    environment: dict[str, str] = {}
    print("running", flush=True)
    while not select.select([sys.stdin], [], [], SECONDS_BETWEEN)[0]:
        pid = os.posix_spawn("/bin/true", ["true"], environment, file_actions=streams)
        os.waitpid(pid, 0)


main()
