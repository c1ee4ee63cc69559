"""Builds one wiring: opens its channels, starts its processes on them, and holds all of it until its input ends.

Reads the wiring as one line of JSON (see stage.py) and prints one line: the pids of the processes and the addresses of
the sockets, or an error. Each further line is a request to send a text to an end of a channel and print the answer. It
is the parent of the processes, so events name it as the parent.
"""

import ctypes
import errno
import fcntl
import json
import os
import pty
import select
import signal
import socket
import struct
import sys
import time

from waiting import scaled, wait_until

PR_SET_PDEATHSIG = 1
FIRST_SPARE_DESCRIPTOR = 100
REPLY_LIMIT_SECONDS = scaled(10)
C_LIBRARY = ctypes.CDLL(None, use_errno=True)

# With the user's environment an interactive shell would read and write the user's files.
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/nonexistent", "HISTFILE": "/dev/null", "LC_ALL": "C"}


def connected(kind, address, from_address=None):
    family = socket.AF_INET6 if ":" in address[0] else socket.AF_INET
    opened = socket.socket(family, kind)
    opened.settimeout(10)
    if from_address is not None:
        opened.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        opened.bind(tuple(from_address))
    opened.connect(tuple(address))
    opened.setblocking(True)
    if kind == socket.SOCK_STREAM:
        # Close without TIME_WAIT: closed connections would pile up in the kernel's table, which the agent reads.
        opened.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    return opened


def looped(address):
    """Both ends of a connection from this host to itself."""
    family = socket.AF_INET6 if ":" in address else socket.AF_INET
    with socket.create_server((address, 0), family=family) as server:
        client = connected(socket.SOCK_STREAM, server.getsockname())
        accepted, _ = server.accept()
    return client, accepted


def fifo(path):
    os.mkfifo(path)
    holder = os.open(path, os.O_RDWR)
    ends = os.open(path, os.O_RDONLY), os.open(path, os.O_WRONLY)
    os.close(holder)
    return ends


def open_channel(name, kind, arguments):
    """The channel's ends by name: sockets if they have addresses, otherwise descriptors."""
    if kind == "tcp":
        return {name: connected(socket.SOCK_STREAM, *arguments)}
    if kind == "udp":
        return {name: connected(socket.SOCK_DGRAM, arguments[0])}
    if kind == "loopback":
        client, accepted = looped(arguments[0])
        return {name: client, f"{name}.accepted": accepted}
    if kind == "pipe":
        read, write = os.pipe()
        return {f"{name}.read": read, f"{name}.write": write}
    if kind == "fifo":
        read, write = fifo(arguments[0])
        return {f"{name}.read": read, f"{name}.write": write}
    if kind == "socketpair":
        first, second = socket.socketpair()
        return {f"{name}.first": first.detach(), f"{name}.second": second.detach()}
    if kind == "terminal":
        control, terminal = pty.openpty()
        return {f"{name}.control": control, name: terminal}
    raise ValueError(f"no channel is called {kind}")


def number_of(end):
    return end if isinstance(end, int) else end.fileno()


def place_descriptors(wanted, kept):
    """Moves each descriptor of wanted to its number, opens /dev/null at 0, 1 and 2 if unlisted, closes all but kept."""
    null = os.open("/dev/null", os.O_RDWR)
    sources = {**dict.fromkeys((0, 1, 2), null), **wanted}
    spare = {
        target: fcntl.fcntl(source, fcntl.F_DUPFD, FIRST_SPARE_DESCRIPTOR + 1) for target, source in sources.items()
    }
    os.closerange(0, kept)
    for target, source in spare.items():
        os.dup2(source, target, inheritable=True)
    os.closerange(kept + 1, os.sysconf("SC_OPEN_MAX"))


def become(process, ends, parent, report):
    """Becomes the process. report is the pipe for an error message; it closes when the process is ready."""
    os.setsid()
    C_LIBRARY.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)
    if os.getppid() != parent:
        os._exit(1)
    place_descriptors({int(target): number_of(ends[name]) for target, name in process["descriptors"].items()}, report)
    if process["run"]:
        program, *arguments = map(os.fsencode, process["run"])
        os.execve(program, arguments, ENVIRONMENT)
    os.close(report)
    while True:
        signal.pause()


def start(process, ends):
    read, write = os.pipe()
    parent = os.getpid()
    pid = os.fork()
    if pid == 0:
        try:
            report = fcntl.fcntl(write, fcntl.F_DUPFD_CLOEXEC, FIRST_SPARE_DESCRIPTOR)
            become(process, ends, parent, report)
        except BaseException as error:
            os.write(report, f"{type(error).__name__}: {error}".encode())
        finally:
            os._exit(1)
    os.close(write)
    with os.fdopen(read, "rb") as reported:
        failure = reported.read()
    if failure:
        raise RuntimeError(f"{process['run'] or 'a companion'}: {os.fsdecode(failure)}")
    return pid


def runs(pid, arguments):
    """True once the process shows this command line, which is a moment after its exec."""
    expected = b"".join(os.fsencode(argument) + b"\0" for argument in arguments)
    try:
        with open(f"/proc/{pid}/cmdline", "rb") as file:
            return file.read() == expected
    except OSError:
        return False


def build(wiring, processes):
    """Adds each started process to processes (name -> pid) at once, so that the caller can end them after a failure."""
    ends = {}
    for name, (kind, *arguments) in wiring["channels"].items():
        ends.update(open_channel(name, kind, arguments))
    for name, process in wiring["processes"].items():
        pid = processes[name] = start(process, ends)
        shown = process["becomes"] or process["run"][1:]
        if shown:
            wait_until(lambda: runs(pid, shown), f"{name} runs as {shown}")
    addresses = {
        name: {"local": end.getsockname()[:2], "remote": end.getpeername()[:2]}
        for name, end in ends.items()
        if isinstance(end, socket.socket)
    }
    return ends, {"processes": processes, "addresses": addresses}


def converse(ends, request):
    """Sends text to an end and reads the answer, up to and including a given text."""
    end = number_of(ends[request["end"]])
    os.write(end, request["send"].encode())
    deadline = time.monotonic() + REPLY_LIMIT_SECONDS
    received = b""
    while request["until"].encode() not in received:
        if not select.select([end], [], [], max(0, deadline - time.monotonic()))[0]:
            return {"error": f"{request['end']} answered only {received!r}"}
        block = os.read(end, 65536)
        if not block:
            return {"error": f"{request['end']} has ended"}
        received += block
    return {"received": received.decode(errors="replace")}


def end_sessions(pids):
    """Kills the sessions that the processes lead, and so also the processes that they have started."""
    for pid in pids:
        try:
            os.killpg(pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
    for pid in pids:
        try:
            os.waitpid(pid, 0)
        except OSError as error:
            if error.errno != errno.ECHILD:
                raise


def main():
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # the tests handle Ctrl-C and then close the input
    processes: dict[str, int] = {}
    try:
        ends, answer = build(json.loads(sys.stdin.readline()), processes)
        print(json.dumps(answer), flush=True)
        for line in sys.stdin:
            print(json.dumps(converse(ends, json.loads(line))), flush=True)
        del ends
    except Exception as error:
        print(json.dumps({"error": f"{type(error).__name__}: {error}"}), flush=True)
    finally:
        end_sessions(list(processes.values()))


main()
