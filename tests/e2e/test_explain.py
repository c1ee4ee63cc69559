"""orlim-agent explain: the wiring of a process, and the tests for which each detection does or does not report it."""

import os
import re

import pytest

from agent import Scan, run_to_end, write_config
from published import PUBLISHED
from stage import ON_LINE, Process, Stage, companion, pipe, reverse_shell, shell, tcp, terminal
from test_command_line import NOBODY, assert_refused

PERIOD_SCAN = PUBLISHED.periodScan
SOCKET_WAIT = PUBLISHED.instantScanOnSocket
RELAY_PIPE = PUBLISHED.instantScanByRelay
HELD_TERMINAL = PUBLISHED.instantScanOnTerminal
DETECTIONS = [
    PERIOD_SCAN,
    SOCKET_WAIT,
    RELAY_PIPE,
    PUBLISHED.instantScanByDescendant,
    PUBLISHED.instantScanByRawSocket,
    HELD_TERMINAL,
    PUBLISHED.shortCommandWatcher,
    PUBLISHED.shellFileCopy,
]
ON_TERMINAL = {0: "terminal", 1: "terminal", 2: "terminal"}


class Explanation:
    """The wiring, and for each detection its verdict and its tests."""

    def __init__(self, pid, *arguments):
        done = run_to_end("explain", str(pid), *arguments)
        assert done.returncode == 0, done.stderr
        assert done.stderr == b""
        self.wiring, summary, *blocks = done.stdout.decode("utf-8").split("\n\n")
        self.reporters = re.sub(r"^It would be reported by: |^No detection would report it\.", "", summary)
        self.verdicts, self.tests = {}, {}
        for block in blocks:
            verdict, *tests = block.strip("\n").split("\n")
            name, _, self.verdicts[name] = verdict.partition(": ")
            self.tests[name] = [re.fullmatch(r"  (ok|no|note) +(.+)", line).groups() for line in tests]
        assert list(self.verdicts) == DETECTIONS

    def reports(self, detection):
        verdict = self.verdicts[detection]
        assert verdict.startswith(("would report it", "would not report it")), verdict
        return verdict.startswith("would report it")

    def refusals(self, detection):
        return [text for mark, text in self.tests[detection] if mark == "no"]


def line_text(stage):
    return " - ".join(f"{ip}:{port}" for ip, port in (stage.addresses["line"][end] for end in ("local", "remote")))


def test_shell_on_a_connection_is_explained_as_reported(attacker):
    with reverse_shell(attacker, shell("explained", ON_LINE)) as stage:
        explained = Explanation(stage.pid)
        assert re.search(rf"0,1,2  socket:\[\d+\]  tcp {line_text(stage)}  FOREIGN", explained.wiring)
        for detection in (PERIOD_SCAN, SOCKET_WAIT):
            assert explained.verdicts[detection] == f"would report it, with the connection {line_text(stage)}"
            assert explained.refusals(detection) == []
        assert explained.reporters == f"{PERIOD_SCAN}; {SOCKET_WAIT}"
        assert explained.refusals(PUBLISHED.shellFileCopy)
        assert Scan().contents(stage.pid) == [stage.expected_content()]


def test_shell_on_a_terminal_is_explained_as_silent_with_reasons(attacker):
    # A foreign connection elsewhere on the host; without one the period scan stops early.
    witness = reverse_shell(attacker, shell("witness", ON_LINE))
    with witness, Stage({"terminal": terminal()}, {"shell": shell("typed", ON_TERMINAL)}) as stage:
        explained = Explanation(stage.pid)
        assert explained.reporters == ""
        assert not any(explained.reports(detection) for detection in DETECTIONS)
        assert all(explained.refusals(detection) for detection in DETECTIONS[:-1])
        assert explained.refusals(PERIOD_SCAN) == ["neither descriptor 0 nor descriptor 1 holds a pipe or a socket"]
        assert re.search(r"0,1,2  /dev/pts/\d+\n.*other end: ", explained.wiring)
        assert Scan().contents(stage.pid) == []


def test_terminal_of_a_connected_parent_is_explained_as_reported(attacker):
    """The stagehand is the parent. It holds the other side of the terminal and the connection."""
    channels = {"terminal": terminal(), "line": tcp(attacker.tcp)}
    with Stage(channels, {"shell": shell("held", ON_TERMINAL)}) as stage:
        explained = Explanation(stage.pid)
        assert explained.reporters == HELD_TERMINAL
        assert explained.refusals(HELD_TERMINAL) == []
        assert f"{line_text(stage)}  FOREIGN" in explained.wiring


def test_pipe_of_a_reading_relay_is_explained_as_reported(attacker):
    channels = {"in": pipe(), "line": tcp(attacker.tcp)}
    relay = Process({0: "line", 1: "in.write"}, run=("/bin/cat", "cat"))
    with Stage(channels, {"shell": shell("fed", {0: "in.read"}), "relay": relay}) as stage:
        explained = Explanation(stage.pid)
        assert explained.reporters == f"{PERIOD_SCAN}; {RELAY_PIPE}"
        assert explained.refusals(RELAY_PIPE) == []


def test_idle_relay_is_shown_with_its_connection(attacker):
    """The relay does not wait for input, so the instant scan does not recognise it."""
    channels = {"in": pipe(), "line": tcp(attacker.tcp)}
    processes = {"shell": shell("relayed", {0: "in.read"}), "relay": companion({0: "line", 1: "in.write"})}
    with Stage(channels, processes) as stage:
        explained = Explanation(stage.pid)
        assert re.search(rf"also 1 of \S+ \({stage.pids['relay']}\)", explained.wiring)
        assert f"{line_text(stage)}  FOREIGN" in explained.wiring
        assert explained.reporters == PERIOD_SCAN
        (reason,) = explained.refusals(RELAY_PIPE)
        assert f"({stage.pids['relay']}) writes pipe" in reason
        assert "does not wait for input from an internet socket" in reason


def test_explanation_agrees_with_a_whitelist(attacker, tmp_path):
    config = write_config(tmp_path, {"module": {"reverseShell": {"whitelist": ["bash -s listed"]}}})
    with reverse_shell(attacker, shell("listed", ON_LINE)) as stage:
        explained = Explanation(stage.pid, "--config", config)
        assert explained.reporters == ""
        assert "a whitelist pattern matches its command line" in explained.refusals(PERIOD_SCAN)
        assert any("whitelist" in reason for reason in explained.refusals(SOCKET_WAIT))
        assert "the configuration does not have module.abnormalShell" in explained.refusals(DETECTIONS[-1])


def parse_dot(text):
    """The labels of the nodes by name, and the edges. Fails unless every line is part of a graph."""
    quoted = r'"((?:[^"\\]|\\.)*)"'
    lines = text.split("\n")
    assert lines[:2] == ["graph wiring {", "  rankdir=LR;"]
    assert lines[-2:] == ["}", ""]
    nodes, edges = {}, []
    for line in lines[2:-2]:
        node = re.fullmatch(rf"  (\w+) \[(?:shape=\w+,)?label={quoted}(?:,color=red)?\];", line)
        edge = re.fullmatch(rf"  (\w+) -- (\w+)(?: \[label={quoted}\])?;", line)
        assert node or edge, line
        if node:
            assert node[1] not in nodes
            nodes[node[1]] = node[2]
        else:
            edges.append((edge[1], edge[2]))
    assert all(end in nodes for edge in edges for end in edge)
    return nodes, edges


def test_dot_joins_shell_and_relay_by_their_pipe(attacker):
    channels = {"in": pipe(), "line": tcp(attacker.tcp)}
    processes = {"shell": shell('"]; x', {0: "in.read"}), "relay": companion({0: "line", 1: "in.write"})}
    with Stage(channels, processes) as stage:
        done = run_to_end("explain", "--dot", str(stage.pid))
        assert (done.returncode, done.stderr) == (0, b"")
        nodes, edges = parse_dot(done.stdout.decode("utf-8"))
        own, relay = f"p{stage.pid}", f"p{stage.pids['relay']}"
        ((foreign, _),) = [item for item in nodes.items() if f"{line_text(stage)}  FOREIGN" in item[1]]
        assert (relay, foreign) in edges
        assert {end for process, end in edges if process == own} & {end for process, end in edges if process == relay}


def kernel_thread():
    with open("/proc/2/comm", encoding="utf-8") as name:
        return name.read() == "kthreadd\n"


def test_explain_refuses_a_missing_process_and_a_kernel_thread(tmp_path):
    assert_refused(run_to_end("explain", "2147483647"), 1, "there is no process 2147483647")
    config = write_config(tmp_path, '{"log": 7}')
    assert_refused(
        run_to_end("explain", str(os.getpid()), "--config", config), 2, str(config), "log: expected an object, found 7"
    )
    if kernel_thread():
        assert_refused(run_to_end("explain", "2"), 1, "is a kernel thread")


@pytest.mark.parametrize("arguments", [[], ["--dot"]], ids=["text", "dot"])
def test_explain_refuses_a_process_of_another_user_without_rights(copied_program, arguments):  # noqa: F811
    done = run_to_end(
        *("explain", str(os.getpid()), *arguments), program=copied_program, user=NOBODY, group=NOBODY, extra_groups=[]
    )
    assert_refused(done, 1, f"process {os.getpid()}", "belongs to root", "CAP_SYS_PTRACE")
