"""Runs commands for a remote peer, like a program that an intruder leaves behind. One request per line.

A request is JSON. {"commands": [[name, argument, ...], ...], "gap": seconds} starts the commands gap seconds apart.
With "new_process": seconds, the program forks, and the child waits that long, starts the commands and reads the next
requests. {"end": true} reads the output of all commands started since the last such request. Until then a command that
writes more than its pipe holds keeps running.

Arguments: the source of the requests, which the program also waits for ("line" is the connection, "pipe" is standard
input), then address and port of the connection. Prints one line for the connection and one line with the result of each
request. Exits at the end of the requests.
"""

import json
import os
import socket
import subprocess
import sys
import time

AT_ONCE_SECONDS = 0.15
EXIT_TOO_LATE = 75


class Commands:
    def __init__(self):
        self._running = []

    def start(self, commands, gap):
        """Starts the commands gap seconds apart and yields their pids."""
        began = time.monotonic()
        for number, command in enumerate(commands):
            time.sleep(max(0, began + number * gap - time.monotonic()))
            child = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, pipesize=4096
            )
            self._running.append(child)
            yield child.pid

    def end(self):
        outputs = [child.communicate()[0].decode(errors="replace")[:80] for child in self._running]
        self._running.clear()
        return outputs


def start_in_new_process(commands, request):
    """Returns the pids of the commands, in the new process. Without a pause, retries until a process is fast enough."""
    while True:
        born = time.monotonic()
        child = os.fork()
        if child == 0:
            pause = request["new_process"]
            time.sleep(pause)
            pids: list[int] = []
            for pid in commands.start(request["commands"], request["gap"]):
                if not pids and pause == 0 and time.monotonic() - born > AT_ONCE_SECONDS:
                    os._exit(EXIT_TOO_LATE)
                pids.append(pid)
            return pids
        status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
        if status != EXIT_TOO_LATE:
            sys.exit(status)


def serve(commands, request):
    if "end" in request:
        return {"outputs": commands.end()}
    if "new_process" in request:
        return {"commands": start_in_new_process(commands, request)}
    return {"commands": list(commands.start(request["commands"], request["gap"]))}


def main():
    source, address, port = sys.argv[1:]
    line = socket.socket(socket.AF_INET6 if ":" in address else socket.AF_INET)
    line.connect((address, int(port)))
    ends = {"local": line.getsockname()[:2], "remote": line.getpeername()[:2], "inode": os.fstat(line.fileno()).st_ino}
    print(json.dumps(ends), flush=True)
    commands = Commands()
    received = b""
    while block := line.recv(65536) if source == "line" else os.read(0, 65536):
        received += block
        *requests, received = received.split(b"\n")
        for request in map(json.loads, requests):
            line.sendall(b"taken\n")
            answer = serve(commands, request)
            print(json.dumps({"pid": os.getpid(), **answer}), flush=True)


main()
