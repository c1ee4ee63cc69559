"""Workers that run short commands for a remote peer, and agents that watch them, for the tests of the short-command
watcher."""

import contextlib
import dataclasses
import hashlib
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import time

from agent import DETAIL, Agent, environment, write_config
from waiting import wait_until

WORKER = pathlib.Path(__file__).with_name("remote_worker.py")
SWEEP_LIMIT = 10 + 25
OLD_ENOUGH_SECONDS = 0.5
SEEN = "Filter the child process of root"
SEEN_LIMIT = 30
QUIET_CONFIG = {"module": {"reverseShell": {"detectInterval": 86400}}, "log": DETAIL}

# These commands write more than a pipe holds, so they end only when the worker reads their output.
LIST = ["ls", "-R", "/usr/lib"]
PRINT = ["cat", "-n", "print.me"]
TYPED = {"commands": [LIST, PRINT], "gap": 0.5}
SCRIPT = "cat -n print.me; exit 0"


@dataclasses.dataclass(frozen=True)
class Wiring:
    request: dict  # the attacker's request
    waits_on: str = "line"
    line: str = "tcp"
    program: str = ""  # the path of a copy of Python that runs the worker; empty for Python itself


class Worker:
    def __init__(self, attacker, directory, wiring):
        self._attacker = attacker
        self._wiring = wiring
        self.directory = directory
        self.program = str(directory / wiring.program) if wiring.program else sys.executable
        address = attacker.tcp6 if wiring.line == "tcp6" else attacker.tcp
        self.arguments = [self.program, str(WORKER), wiring.waits_on, address[0], str(address[1])]
        self.pid = None  # the process that started the commands
        self.commands = []
        self.outputs = []
        self._child = subprocess.Popen(
            self.arguments,
            cwd=directory,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            start_new_session=True,
            # A copy of Python does not find its library without this.
            env=environment(PYTHONHOME=sys.base_prefix),
        )
        self.connection = self._read()

    def _read(self):
        line = self._child.stdout.readline()
        assert line, "the worker has ended"
        return json.loads(line)

    def ask(self, request):
        """Makes the attacker send the request, without waiting for the result."""
        text = json.dumps(request).replace("{directory}", str(self.directory)) + "\n"
        if self._wiring.waits_on == "pipe":
            self._child.stdin.write(text.encode())
            self._child.stdin.flush()
            text = ""
        answer = self._attacker.converse(self.connection["local"][1], text, "taken\n")
        assert answer == "taken\n"

    def age(self):
        """Seconds since the start of the worker's process."""
        started = int(pathlib.Path(f"/proc/{self._child.pid}/stat").read_text().rpartition(")")[2].split()[19])
        return time.clock_gettime(time.CLOCK_BOOTTIME) - started / os.sysconf("SC_CLK_TCK")

    def wait_until_started(self):
        answer = self._read()
        self.pid = answer["pid"]
        self.commands += answer["commands"]

    def end_commands(self):
        self.ask({"end": True})
        self.outputs = self._read()["outputs"]

    def expected_content(self):
        """The content of the event that reports the process, with PRINT as its last command."""
        program = os.path.realpath(shutil.which(PRINT[0]))
        own = self._wiring.program != ""
        connection = self.connection
        return {
            "pid": self.commands[-1],
            "path": program,
            "ppid": self.pid,
            "parentPath": os.path.realpath(self.program),
            "cmdline": "() " + " ".join(PRINT),
            "parentCmdline": f"({self.directory}) " + " ".join(self.arguments),
            "inode": str(connection["inode"]),
            "sourcePath": self.program if own else str(WORKER),
            "hash": hashlib.sha256(pathlib.Path(program).read_bytes()).hexdigest(),
            "localIp": event_address(connection["local"][0]),
            "localPort": connection["local"][1],
            "remoteIp": event_address(connection["remote"][0]),
            "remotePort": connection["remote"][1],
        }

    def close(self):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self._child.pid, signal.SIGKILL)
        self._child.wait()
        self._child.stdin.close()
        self._child.stdout.close()


def event_address(address):
    if ":" not in address:
        return address
    return socket.inet_ntoa(socket.inet_pton(socket.AF_INET6, address)[-4:])


def contents_under(agent, ppid):
    return [event["eventContent"] for event in agent.events() if event["eventContent"]["ppid"] == ppid]


def prepare(directory):
    """Creates the files that the workers need in their working directory."""
    (directory / "print.me").write_text("a line\n" * 5000)
    (directory / "script").write_text(f"#!/bin/sh\n{SCRIPT}\n")
    (directory / "script").chmod(0o755)
    for name in ("own/updater", "path/sshd"):
        (directory / name).parent.mkdir()
        shutil.copy(os.path.realpath(sys.executable), directory / name)


ORPHAN = """
import os, sys, time

parent = os.getpid()
child = os.fork()
if child != 0:
    print(child, flush=True)
    os._exit(0)
os.dup2(0, 1)
while os.getppid() == parent:
    time.sleep(0.001)
os.execvp("sleep", ["sleep", "600"])
"""


@contextlib.contextmanager
def orphaned_command():
    """A command that is a child of process 1 when it is executed. The agent logs only such commands when it receives
    their events; once it has logged this one, it has received all earlier events."""
    done = subprocess.run([sys.executable, "-c", ORPHAN], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True)
    pid = int(done.stdout)
    try:
        yield pid
    finally:
        os.kill(pid, signal.SIGKILL)


class Story:
    """The agents and the workers, and the steps until the agents have judged them."""

    def __init__(self, attacker, directory, cleanup):
        self._attacker = attacker
        self._cleanup = cleanup
        self._directory = directory
        self.agents = {}
        self.workers = {}
        self.typed = {}  # the expected event about the commands typed by hand

    def add_worker(self, name, wiring):
        self.workers[name] = Worker(self._attacker, self._directory, wiring)
        self._cleanup.callback(self.workers[name].close)

    def start_agent(self, name, wrapper=()):
        config = write_config(self._directory, QUIET_CONFIG)
        path = f"{self._directory / 'path'}:{os.environ['PATH']}"
        agent = Agent("--config", config, wrapper=wrapper, env=environment(PATH=path))
        self.agents[name] = self._cleanup.enter_context(agent)

    def wait_until_old_enough(self):
        """The agent ignores commands that a process starts right after its own start, as scripts do."""
        youngest = list(self.workers.values())[-1]
        wait_until(lambda: youngest.age() > OLD_ENOUGH_SECONDS, "workers that are old enough")

    def run_to_end(self, *names):
        """Ends the commands of these workers after the agents have received all their events."""
        for name in names:
            self.workers[name].wait_until_started()
        with orphaned_command() as pid:
            for agent in self.agents.values():
                agent.wait_for_log(rf"detect_reverse_shell:\d+ {SEEN}\.\[pid={pid} ppid=1\]", SEEN_LIMIT)
        for name in names:
            self.workers[name].end_commands()

    def wait_for_events(self, *names):
        for name in names:
            for agent in self.agents.values():
                agent.wait_for_event(self.workers[name].commands[-1], SWEEP_LIMIT)


@contextlib.contextmanager
def new_story(attacker, tmp_path_factory):
    """A story without workers and agents. Leaving the context ends all of them."""
    directory = tmp_path_factory.mktemp("short-commands")
    prepare(directory)
    with contextlib.ExitStack() as cleanup:
        yield Story(attacker, directory, cleanup)
