"""A program that runs commands for a remote peer, as an intruder leaves it behind: one request a line.

A request is JSON. {"commands": [[name, argument, ...], ...], "gap": seconds} starts the commands gap seconds apart.
With "new_process": seconds, it is a process forked for the purpose that does so, so long after it has come into being,
and that reads on in its parent's place. {"end": true} ends all commands that have been started since the last such
request: what they write is not read before, and so each lives on that writes more than its pipe holds.

Arguments: where the requests come from, which is then also what the program waits for, "line" for the connection or
"pipe" for its standard input; then the connection's address and port. Tells on standard output, a line each, what its
connection is and what each request has done. Ends when its requests do.
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
        """The commands' ids, as they are started."""
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
    """The commands' ids, in the process that started them; with no pause, in the first that was quick enough."""
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
