"""Stages attacks together and triggers them together, so that one pass of the instant scan judges all of them.

The instant scan judges a process that has started another one and then been quiet for three seconds, and ignores a
connection that it has known for longer than that. So all shells of a campaign get an order to start a program within
the same second. The same pass then judges them all, and no earlier pass has seen their connections.
"""

import dataclasses
import hashlib
import os
import pathlib
import signal
import sys
import time

from connections import Connection, connection_of
from stage import BASH, STAGEHAND, Process, Stage
from waiting import wait_until

ATTACKS = pathlib.Path(__file__).with_name("attacks")
PYTHON = (sys.executable, "python3")
ORDER = "/bin/true; echo $((6*7))-e2e"
ANSWER = "42-e2e"


def sha256(data):
    return hashlib.sha256(data).hexdigest()


def processes():
    """The arguments and the parent of every process, by pid."""
    found = {}
    for directory in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            arguments = tuple((directory / "cmdline").read_bytes().split(b"\0")[:-1])
            fields = (directory / "stat").read_bytes().rpartition(b")")[2].split()
            found[int(directory.name)] = (arguments, int(fields[1]))
        except OSError:
            continue
    return found


@dataclasses.dataclass(frozen=True)
class Attack:
    """One wiring, and how to identify its shell and its connection."""

    channels: dict
    processes: dict
    shell: tuple  # the shell's arguments
    program: str = BASH  # the shell's program
    parent: str = ""  # the process that is the shell's parent; empty: the stagehand
    holder: object = ""  # holds the connection: the name of a process, or the arguments of one; empty: the shell
    connected: bool = True  # False for an attack without a connection
    orders: str = ""  # the end on which the shell gets its orders; empty: the connection, from the attacker's host
    order: str = ORDER  # the command that the shell is sent
    directory: str = ""  # the shell's working directory; empty: that of the tests
    source: object = None  # the event's sourcePath; None: the script that the parent runs
    hash: object = None  # the event's hash; None: that of the shell's program

    def within(self, name):
        """The channels and processes, with names that are unique in a campaign."""

        def own(end):
            return f"{name}/{end}"

        return (
            {own(channel): how for channel, how in self.channels.items()},
            {
                own(process): dataclasses.replace(
                    how, descriptors={fd: own(end) for fd, end in how.descriptors.items()}
                )
                for process, how in self.processes.items()
            },
        )


@dataclasses.dataclass(frozen=True)
class Staged:
    pid: int
    ppid: int
    connection: Connection

    def addresses(self):
        """The addresses as an event gives them: only the last 32 bits of an IPv6 address."""
        result = {}
        for name, (address, port) in (("local", self.connection.local), ("remote", self.connection.remote)):
            result[f"{name}Ip"] = ".".join(str(byte) for byte in address.packed[-4:])
            result[f"{name}Port"] = port
        return result


class TooSlow(AssertionError):
    """The host was too busy to deliver all orders within one second."""


class Campaign:
    """Staged attacks by name."""

    def __init__(self, attacker, attacks):
        self._attacker = attacker
        self._attacks = attacks
        self.ordered = {}  # time of each shell's order
        channels: dict[str, tuple] = {}
        processes: dict[str, Process] = {}
        for name, attack in attacks.items():
            more_channels, more_processes = attack.within(name)
            channels |= more_channels
            processes |= more_processes
        self.stage = Stage(channels, processes)
        self.staged = {}
        try:
            for name, attack in attacks.items():
                self.staged[name] = wait_until(lambda: self._find(name, attack), f"{name} is staged")
        except BaseException:
            self.close()
            raise

    def _find(self, name, attack):
        known = processes()

        def ids_of(arguments):
            wanted = tuple(map(os.fsencode, arguments))
            return [pid for pid, (shown, _) in known.items() if shown == wanted]

        shells = ids_of(attack.shell)
        if len(shells) != 1:
            return None
        holder = shells[0]
        if isinstance(attack.holder, tuple):
            (holder,) = ids_of(attack.holder) or [0]
        elif attack.holder:
            holder = self.stage.pids[f"{name}/{attack.holder}"]
        if not holder:
            return None
        connection = connection_of(holder)
        if attack.connected and connection is None:
            return None
        return Staged(shells[0], known[shells[0]][1], connection)

    def order(self, names, also=()):
        """Sends each shell its order and calls the functions in also, all within one second."""
        wait_until(lambda: time.time() % 1 < 0.1, "a second begins")
        began = time.time()
        for name in names:
            self.converse(name, f"{self._attacks[name].order}\n", "")
            self.ordered[name] = time.time()
        for name in names:
            self.converse(name, "", ANSWER)
        for call in also:
            call()
        if int(time.time()) != int(began):
            raise TooSlow(f"the orders took {time.time() - began} seconds: too long for one pass")

    def converse(self, name, order, answer):
        orders = self._attacks[name].orders
        if orders:
            return self.stage.converse(f"{name}/{orders}", order, answer)
        return self._attacker.converse(self.staged[name].connection.local[1], order, answer)

    def look_again(self, name):
        """For an attack that has changed its connection."""
        old = self.staged[name].connection

        def changed():
            new = self._find(name, self._attacks[name])
            return new if new is not None and new.connection != old else None

        self.staged[name] = wait_until(changed, f"{name} has another connection")

    def expected(self, name):
        """The content of the event that reports the attack."""
        attack, staged = self._attacks[name], self.staged[name]
        if attack.parent:
            parent = self._attacks[name].processes[attack.parent]
            parent_program, *parent_arguments = parent.run
            parent_pid = self.stage.pids[f"{name}/{attack.parent}"]
        else:
            parent_program, parent_arguments = sys.executable, [sys.executable, str(STAGEHAND)]
            parent_pid = self.stage.parent_pid
        parent_cmdline = " ".join(parent_arguments)
        source = attack.source or parent_arguments[1]
        return {
            "pid": staged.pid,
            "path": attack.program,
            "ppid": parent_pid,
            "parentPath": os.path.realpath(parent_program),
            "cmdline": f"({attack.directory or os.getcwd()}) {printable(' '.join(attack.shell))}",
            "parentCmdline": f"({os.getcwd()}) {parent_cmdline}",
            "inode": str(staged.connection.inode),
            "sourcePath": source,
            "hash": attack.hash or sha256(pathlib.Path(attack.program).read_bytes()),
            **staged.addresses(),
        }

    def close(self):
        self.stage.close()
        for staged in self.staged.values():
            # Ending the stagehand's sessions misses shells on a terminal, which lead their own, and shells under init.
            try:
                os.kill(staged.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.close()


def printable(text):
    """Text with any bytes, as an event gives it."""
    return os.fsencode(text).decode("utf-8", "replace")
