"""Attacks that are staged together and set off together, so that one pass of the instant scan judges all of them.

The instant scan looks at a process when it has started another one and then been quiet for three seconds, and takes
only a connection that it has not known for longer than that. So all shells of a campaign get their order, which has
them start a program, within one second: they come of age in the same pass then, before which no pass has seen their
connections.
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
    """The arguments and the parent of every process, by id."""
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
    """One wiring, with what tells its shell and its connection from all others."""

    channels: dict
    processes: dict
    shell: tuple  # the shell's arguments
    program: str = BASH  # the shell's
    parent: str = ""  # which of the processes is the shell's parent; none: the stagehand
    holder: object = ""  # what holds the connection: one of the processes, or the arguments of one; none: the shell
    connected: bool = True  # whether there is a connection at all
    orders: str = ""  # the end on which the shell gets its orders; none: the connection, at the attacker's host
    order: str = ORDER  # what the shell is told to do
    directory: str = ""  # the shell's, if it is not the tests'
    source: object = None  # the event's sourcePath; none: the script that the parent runs
    hash: object = None  # the event's hash; none: that of the shell's program

    def within(self, name):
        """The channels and processes under names that are this attack's alone."""

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
        """As an event gives them: of an IPv6 address, its last 32 bits."""
        result = {}
        for name, (address, port) in (("local", self.connection.local), ("remote", self.connection.remote)):
            result[f"{name}Ip"] = ".".join(str(byte) for byte in address.packed[-4:])
            result[f"{name}Port"] = port
        return result


class TooSlow(AssertionError):
    """The host was too busy for its orders to come within one second."""


class Campaign:
    """Staged attacks by name."""

    def __init__(self, attacker, attacks):
        self._attacker = attacker
        self._attacks = attacks
        self.ordered = {}  # when the shell got its order
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
        """Has each shell do what its attack says, and calls also: all within one second."""
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
            # A shell on a terminal leads a session of its own, and one under init has left its parents.
            try:
                os.kill(staged.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.close()


def printable(text):
    """As an event gives text that may hold any byte."""
    return os.fsencode(text).decode("utf-8", "replace")
