"""Processes that run short commands for a remote peer: which are reported, by an agent on a host that never slept and
by one on a host that has. They are judged every ten seconds, so all wirings run at once, under both agents, and each
test looks at its own."""

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

import pytest

from agent import DETAIL, Agent, environment, write_config
from waiting import wait_until

WORKER = pathlib.Path(__file__).with_name("remote_worker.py")
BOOTTIME_AHEAD_SECONDS = 100000
SWEEP_LIMIT = 10 + 25
OLD_ENOUGH_SECONDS = 0.5
SEEN = "Filter the child process of root"
SEEN_LIMIT = 30
QUIET_CONFIG = {"module": {"reverseShell": {"detectInterval": 86400}}, "log": DETAIL}

# They write more than a pipe holds, and so end only when the worker is told to end them.
LIST = ["ls", "-R", "/usr/lib"]
PRINT = ["cat", "-n", "print.me"]
TYPED = {"commands": [LIST, PRINT], "gap": 0.5}
SCRIPT = "cat -n print.me; exit 0"


@dataclasses.dataclass(frozen=True)
class Wiring:
    request: dict  # by what is asked for, the attacker's side
    waits_on: str = "line"
    line: str = "tcp"
    program: str = ""  # runs the worker in place of Python: a copy of it by this name


FOUND = {
    "two commands half a second apart": Wiring(TYPED),
    "over IPv6, whose addresses are cut to four bytes": Wiring(TYPED, line="tcp6"),
    "process that was half a second old": Wiring({**TYPED, "new_process": 0.5}),
    "program of the intruder's own": Wiring(TYPED, program="own/updater"),
}

# Each differs in one thing from a wiring that is found.
SILENT = {
    "gaps of 50 milliseconds: a script does that": Wiring({"commands": [LIST, PRINT, LIST, PRINT], "gap": 0.05}),
    "one command": Wiring({"commands": [PRINT], "gap": 0}),
    "process that began at once": Wiring({**TYPED, "new_process": 0}),
    "waits on a pipe, with its connection beside": Wiring(TYPED, waits_on="pipe"),
    "ssh daemon": Wiring(TYPED, program="path/sshd"),
    "script as the last command": Wiring({"commands": [LIST, ["{directory}/script"]], "gap": 0.5}),
    "last command with a file as its first argument": Wiring(
        {"commands": [LIST, ["cat", "{directory}/print.me"]], "gap": 0.5}
    ),
    "last command by sh -c": Wiring({"commands": [LIST, ["sh", "-c", SCRIPT]], "gap": 0.5}),
    "commands that are none of the watched words": Wiring({"commands": [["du", "-a", "/usr/lib"]] * 2, "gap": 0.5}),
}


class Worker:
    def __init__(self, attacker, directory, wiring):
        self._attacker = attacker
        self._wiring = wiring
        self.directory = directory
        self.program = str(directory / wiring.program) if wiring.program else sys.executable
        address = attacker.tcp6 if wiring.line == "tcp6" else attacker.tcp
        self.arguments = [self.program, str(WORKER), wiring.waits_on, address[0], str(address[1])]
        self.pid = None  # of the process that has started the commands
        self.commands = []
        self.outputs = []
        self._child = subprocess.Popen(
            self.arguments,
            cwd=directory,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            start_new_session=True,
            # A copy of Python does not find its library by itself.
            env=environment(PYTHONHOME=sys.base_prefix),
        )
        self.connection = self._read()

    def _read(self):
        line = self._child.stdout.readline()
        assert line, "the worker has ended"
        return json.loads(line)

    def ask(self, request):
        """Has the attacker ask for it. The answer is not waited for."""
        text = json.dumps(request).replace("{directory}", str(self.directory)) + "\n"
        if self._wiring.waits_on == "pipe":
            self._child.stdin.write(text.encode())
            self._child.stdin.flush()
            text = ""
        answer = self._attacker.converse(self.connection["local"][1], text, "taken\n")
        assert answer == "taken\n"

    def age(self):
        """Seconds since the worker's own process came into being."""
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
        """What an event says that reports the process with PRINT as its last command."""
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
    """What the wirings find in their working directory."""
    (directory / "print.me").write_text("a line\n" * 5000)
    (directory / "script").write_text(f"#!/bin/sh\n{SCRIPT}\n")
    (directory / "script").chmod(0o755)
    for name in ("own/updater", "path/sshd"):
        (directory / name).parent.mkdir()
        shutil.copy(os.path.realpath(sys.executable), directory / name)


def has_time_namespaces():
    done = subprocess.run(["unshare", "--time", "--boottime", "1", "--fork", "true"], capture_output=True)
    return done.returncode == 0


def boottime_offset(pid):
    for line in pathlib.Path(f"/proc/{pid}/timens_offsets").read_text().splitlines():
        clock, seconds, _ = line.split()
        if clock == "boottime":
            return int(seconds)
    return 0


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
    """A command that is a child of process 1 when it is executed. That is the only kind of which the agent says that it
    has seen it; with it, the agent has seen all that was executed before."""
    done = subprocess.run([sys.executable, "-c", ORPHAN], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True)
    pid = int(done.stdout)
    try:
        yield pid
    finally:
        os.kill(pid, signal.SIGKILL)


class Story:
    """The agents, the workers by wiring, and what has been done until all of it was judged."""

    def __init__(self, attacker, directory, cleanup):
        self._attacker = attacker
        self._cleanup = cleanup
        self._directory = directory
        self.agents = {}
        self.workers = {}
        self.typed = {}  # what an event says of the commands that were typed by hand

    def add_worker(self, name, wiring):
        self.workers[name] = Worker(self._attacker, self._directory, wiring)
        self._cleanup.callback(self.workers[name].close)

    def start_agent(self, name, wrapper=()):
        config = write_config(self._directory, QUIET_CONFIG)
        path = f"{self._directory / 'path'}:{os.environ['PATH']}"
        agent = Agent("--config", config, wrapper=wrapper, env=environment(PATH=path))
        self.agents[name] = self._cleanup.enter_context(agent)

    def run_to_end(self, *names):
        """Ends the commands of these workers once the agents have come to see them all, however busy the host is."""
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


def tell(told):
    # What a process starts within its first moments is taken for a script's.
    youngest = list(told.workers.values())[-1]
    wait_until(lambda: youngest.age() > OLD_ENOUGH_SECONDS, "workers that are old enough")
    for name, wiring in {**SILENT, **FOUND}.items():
        told.workers[name].ask(wiring.request)
    by_hand = told.workers["by hand"]
    for command in (LIST, ["id"], PRINT):
        by_hand.ask({"commands": [command], "gap": 0})
        by_hand.wait_until_started()
        time.sleep(0.5)
    told.run_to_end(*SILENT, *FOUND)
    by_hand.end_commands()
    told.typed = by_hand.expected_content()
    told.wait_for_events(*FOUND, "by hand")
    # The sweep that finds the later one comes behind that which has judged all others.
    for name in ("by hand", "later"):
        told.workers[name].ask(TYPED)
    told.run_to_end("by hand", "later")
    told.wait_for_events("later")


@pytest.fixture(scope="module")
def story(attacker, tmp_path_factory):
    directory = tmp_path_factory.mktemp("short-commands")
    prepare(directory)
    with contextlib.ExitStack() as cleanup:
        told = Story(attacker, directory, cleanup)
        for name, wiring in {**SILENT, **FOUND, "by hand": Wiring({}), "later": Wiring(TYPED)}.items():
            told.add_worker(name, wiring)
        told.start_agent("never slept")
        if has_time_namespaces():
            offset = ["unshare", "--time", "--boottime", str(BOOTTIME_AHEAD_SECONDS), "--fork", "--kill-child"]
            told.start_agent("has slept", offset)
        for agent in told.agents.values():
            agent.wait_until_started()
        tell(told)
        yield told


@pytest.fixture(params=["never slept", "has slept"])
def agent(request, story):
    if request.param not in story.agents:
        pytest.skip("the test of a host that has slept lacks time namespaces")
    return story.agents[request.param]


def test_second_agent_runs_on_a_host_that_has_slept(story):
    if "has slept" not in story.agents:
        pytest.skip("the test of a host that has slept lacks time namespaces")
    unshare = story.agents["has slept"].pid
    child = pathlib.Path(f"/proc/{unshare}/task/{unshare}/children").read_text().split()[0]
    assert boottime_offset(child) == BOOTTIME_AHEAD_SECONDS


@pytest.mark.parametrize("name", FOUND)
def test_found(story, agent, name):
    worker = story.workers[name]
    assert contents_under(agent, worker.pid) == [worker.expected_content()]


@pytest.mark.parametrize("name", SILENT)
def test_silent(story, agent, name):
    assert contents_under(agent, story.workers[name].pid) == []


def test_commands_typed_by_hand_are_reported_once_with_the_last(story, agent):
    assert contents_under(agent, story.workers["by hand"].pid) == [story.typed]


def test_process_is_found_by_whichever_sweep_comes_behind_it(story, agent):
    worker = story.workers["later"]
    assert contents_under(agent, worker.pid) == [worker.expected_content()]
