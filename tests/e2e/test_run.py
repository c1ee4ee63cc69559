"""The running agent: passes, signals, sinks. The first pass comes 20 seconds after the start and the next ones every 30
seconds, so all agents are started at once and each test inspects its own."""

import contextlib
import os
import pathlib
import re
import signal
import stat
import subprocess
import sys

import pytest

from agent import DETAIL, Agent, parse_event, run_to_end, write_config
from children import end_child
from stage import ON_LINE, Stage, reverse_shell, shell, tcp
from waiting import scaled, wait_until

FIRST_PASS_LIMIT = 20 + 10
NEXT_PASS_LIMIT = 30 + 10
END_LIMIT = 3.0
STARTED_SHELLS_UNDER_LOAD = 20

IN_ORDER = r"(?s)stopping on signal \d+.*Shell detection module stop success\..*Shell detection module deinit success\."
REVERSE_SHELL = {"reverseShell": {"detectInterval": 30}}


class Host:
    """Shared by the tests of this file: stages shells, starts agents and provides a directory."""

    def __init__(self, attacker, directory, cleanup):
        self._attacker = attacker
        self._cleanup = cleanup
        self.directory = directory

    def stage_shell(self, mark):
        return self._cleanup.enter_context(reverse_shell(self._attacker, shell(mark, ON_LINE)))

    def start_agent(self, name, config, **options):
        file = write_config(self.directory, config, f"{name}.json")
        agent = self._cleanup.enter_context(Agent("--config", file, **options))
        agent.wait_until_started()
        return agent


@pytest.fixture(scope="module")
def host(attacker, tmp_path_factory):
    with contextlib.ExitStack() as cleanup:
        yield Host(attacker, tmp_path_factory.mktemp("run"), cleanup)


@pytest.fixture(scope="module")
def early_shell(host):
    return host.stage_shell("early")


@pytest.fixture(scope="module")
def steady(host, early_shell):
    return host.start_agent("steady", {"module": REVERSE_SHELL, "log": DETAIL})


@pytest.fixture(scope="module")
def late_shell(host, steady):
    return host.stage_shell("late")


@pytest.fixture(scope="module")
def unread(host, early_shell):
    """An agent whose standard output nobody reads, as in orlim-agent run | head -0."""
    config = {
        "module": REVERSE_SHELL,
        "events": {"sinks": [{"type": "stdout"}, {"type": "file", "path": str(host.directory / "unread.events")}]},
    }
    return host.start_agent("unread", config, read_events=False)


@pytest.fixture(scope="module")
def listed_shell(host):
    return host.stage_shell("listed")


@pytest.fixture(scope="module")
def reconfigured(host, early_shell, listed_shell):
    """An agent that reloads another configuration before its first pass."""
    agent = host.start_agent("reconfigured", {"module": REVERSE_SHELL})
    assert " detail " not in agent.log()
    config = {
        "module": {"reverseShell": {"detectInterval": 30, "whitelist": ["* listed"]}},
        "events": {"sinks": [{"type": "stdout"}, {"type": "file", "path": str(host.directory / "events")}]},
        "log": DETAIL,
    }
    write_config(host.directory, config, "reconfigured.json")
    agent.send_signal(signal.SIGHUP)
    agent.wait_for_log("the new configuration is in force")
    return agent


@pytest.fixture(scope="module")
def loaded(host, early_shell):
    """An agent on a host that keeps starting processes, with many shells to report."""
    stages = [early_shell, *(host.stage_shell(f"loaded{i}") for i in range(STARTED_SHELLS_UNDER_LOAD))]
    churn = subprocess.Popen(
        [sys.executable, pathlib.Path(__file__).with_name("churn.py")],
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
    )
    try:
        assert churn.stdout.readline() == b"running\n"
        yield host.start_agent("loaded", {"module": REVERSE_SHELL, "log": DETAIL}), stages
    finally:
        end_child(churn)


@pytest.fixture(scope="module")
def between_shell(host, steady, reconfigured, early_shell):
    """A shell that starts after the first pass; its event marks the second pass."""
    for agent in (steady, reconfigured):
        agent.wait_for_event(early_shell.pid, FIRST_PASS_LIMIT)
    return host.stage_shell("between")


@pytest.fixture(scope="module", autouse=True)
def all_started(steady, late_shell, unread, reconfigured, loaded):
    """Starts all agents at once, so that their first passes come together."""


def events_in(file):
    text = file.read_bytes()
    assert text == b"" or text.endswith(b"\n"), text
    return [parse_event(line) for line in text.split(b"\n")[:-1]]


def pids_in(file):
    return [event["eventContent"]["pid"] for event in events_in(file)]


def test_agent_disables_huge_pages(steady):
    status = pathlib.Path(f"/proc/{steady.pid}/status").read_text(encoding="utf-8")
    assert re.search(r"^THP_enabled:\t0$", status, re.MULTILINE)


def test_sigterm_during_a_pass_under_load_shuts_down_in_order_and_loses_nothing(loaded):
    agent, stages = loaded
    # The first line that a pass logs, before it reads the processes.
    agent.wait_for_log(r"Details of netStat", FIRST_PASS_LIMIT)
    status, seconds = agent.end()
    assert status == 0
    assert seconds < scaled(END_LIMIT)
    assert re.search(IN_ORDER, agent.log())
    for stage in stages:
        assert agent.contents(stage.pid) == [stage.expected_content()]
    noticed = re.findall(r"Checkout reverse shell\.\[bashPid=(\d+)", agent.log())
    assert sorted(map(int, noticed)) == sorted(event["eventContent"]["pid"] for event in agent.events())


def test_shell_from_before_the_start_is_found_in_the_first_pass(steady, early_shell):
    assert steady.wait_for_event(early_shell.pid, FIRST_PASS_LIMIT) == early_shell.expected_content()


def test_shell_from_after_the_start_is_found_in_the_first_pass(steady, late_shell):
    assert steady.wait_for_event(late_shell.pid, FIRST_PASS_LIMIT) == late_shell.expected_content()


def test_closed_standard_output_is_logged_and_does_not_end_the_agent(host, unread, early_shell):
    file = host.directory / "unread.events"
    wait_until(lambda: early_shell.pid in pids_in(file), "the event is in the file", FIRST_PASS_LIMIT)
    unread.wait_for_log("cannot write events to standard output: Broken pipe")
    assert unread.runs()
    status, seconds = unread.end()
    assert (status, seconds < scaled(END_LIMIT)) == (0, True)


def test_sighup_reloads_the_configuration(host, reconfigured, early_shell, listed_shell):
    reconfigured.wait_for_event(early_shell.pid, FIRST_PASS_LIMIT)
    file = host.directory / "events"
    wait_until(lambda: early_shell.pid in pids_in(file), "the event is in the new sink")
    assert " detail " in reconfigured.log()
    assert reconfigured.contents(listed_shell.pid) == []


def test_file_of_a_sink_is_not_readable_for_others(host, reconfigured):
    assert stat.S_IMODE((host.directory / "events").stat().st_mode) == 0o640


def test_sighup_with_an_invalid_configuration_only_reopens_files(
    host, reconfigured, early_shell, listed_shell, between_shell
):
    file = host.directory / "events"
    rotated = host.directory / "events.1"
    file.rename(rotated)
    broken = write_config(host.directory, '{"module": {},\n "events": {"perMinuteLimit": -1}}', "reconfigured.json")
    reconfigured.send_signal(signal.SIGHUP)
    reconfigured.wait_for_log(
        r"keeping the current configuration, the new one is invalid: "
        rf"{re.escape(str(broken))}: events\.perMinuteLimit: expected .*, found -1\."
    )
    wait_until(file.exists, "the sink has created a new file")

    reconfigured.wait_for_event(between_shell.pid, NEXT_PASS_LIMIT)
    status, _ = reconfigured.end()
    assert status == 0
    assert early_shell.pid in pids_in(rotated) and between_shell.pid not in pids_in(rotated)
    assert between_shell.pid in pids_in(file) and early_shell.pid not in pids_in(file)
    assert reconfigured.contents(listed_shell.pid) == []


def test_shell_that_keeps_running_is_reported_once(steady, early_shell, late_shell, between_shell):
    steady.wait_for_event(between_shell.pid, NEXT_PASS_LIMIT)
    # The shutdown waits for the end of the pass, so all shells have been judged twice.
    assert steady.end()[0] == 0
    for stage in (early_shell, late_shell):
        seen = rf"Details of netStat\.\[localIp=[^]]*, localPort={stage.local_port()}, "
        assert len(re.findall(seen, steady.log())) >= 2
        assert len(steady.contents(stage.pid)) == 1


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT], ids=["SIGTERM", "SIGINT"])
def test_agent_shuts_down_quickly_and_in_order(host, number):
    agent = host.start_agent(f"ended{number}", {})
    status, seconds = agent.end(number)
    assert (status, seconds < scaled(END_LIMIT)) == (0, True)
    assert re.search(IN_ORDER, agent.log())


def test_unwritable_file_is_logged_and_does_not_end_the_agent(host):
    missing = host.directory / "missing/events"
    config = {"events": {"sinks": [{"type": "file", "path": str(missing)}, {"type": "stdout"}]}}
    agent = host.start_agent("unwritable", config)
    agent.wait_for_log(rf"cannot write events to {re.escape(str(missing))}: No such file or directory")
    missing.parent.mkdir()
    agent.send_signal(signal.SIGHUP)
    wait_until(missing.exists, "the sink opens the file once the directory exists")
    assert agent.end()[0] == 0


@pytest.mark.parametrize("make, reason", [(os.mkdir, "Is a directory"), (os.mkfifo, "it is not a regular file")])
def test_path_that_is_not_a_file_is_logged_and_does_not_end_the_agent(host, tmp_path, make, reason):
    make(tmp_path / "events")
    config = {"events": {"sinks": [{"type": "file", "path": str(tmp_path / "events")}, {"type": "stdout"}]}}
    agent = host.start_agent(make.__name__, config)
    agent.wait_for_log(rf"cannot write events to {re.escape(str(tmp_path / 'events'))}: {reason}")
    assert agent.end()[0] == 0


def test_reader_that_does_not_read_delays_the_exit_by_ten_seconds_at_most(attacker):
    """The pipe cannot hold the three long events."""
    names = [f"shell{i}" for i in range(3)]
    processes = {name: shell(name + "x" * 100_000, {0: "line", 1: "line"}) for name in names}
    read, write = os.pipe()
    try:
        with Stage({"line": tcp(attacker.tcp)}, processes):
            done = run_to_end("scan", stdout=write, limit=10 + END_LIMIT)
    finally:
        os.close(read)
        os.close(write)
    assert done.returncode == 1
    assert "did not accept the queued events within 10 seconds, the events are lost" in done.stderr.decode()
