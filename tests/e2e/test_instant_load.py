"""The instant scan reports within seconds, also on a busy host, and does not delay a shutdown."""

import contextlib
import pathlib
import re
import subprocess
import sys
import time

import pytest

from agent import DETAIL, Agent, is_of_instant_scan, seconds_of, write_config
from campaign import Campaign, processes
from children import end_child
from instant_attacks import reader
from stage import tcp

# Three seconds by a clock of whole seconds, then at most one second until the next pass. A pass inspects all processes
# that the host has started, and its duration depends on them, so the fastest of a few attempts counts.
DELAY = (2.0, 9.0)
ATTEMPTS = 4
LOAD_SECONDS = 3
LEAST_LOAD = 150  # processes per second
STOP_LIMIT = 1.0
READ_SECONDS_PER_BYTE = 0.0007  # a pause of half a millisecond, which the kernel extends
LOSSES = r"dropped process events|process events is too slow"


def processes_started():
    (line,) = [line for line in pathlib.Path("/proc/stat").read_text().splitlines() if line.startswith("processes ")]
    return int(line.split()[1])


def longest_command_line():
    return max(len(b" ".join(arguments)) for arguments, _ in processes().values())


class Busy:
    """An agent that meets attacks on a quiet host and one on a busy host, and is ended during a pass."""

    def __init__(self, attacker, directory, cleanup):
        self._attacker = attacker
        self._cleanup = cleanup
        config = {"module": {"reverseShell": {"detectInterval": 86400}}, "log": DETAIL}
        self.agent = cleanup.enter_context(Agent("--config", write_config(directory, config)))
        self.agent.wait_until_started()
        self.attacks = {}
        self._report_soon()
        self._start_load()
        self._report("under load")
        self._end_amid_a_pass()

    def _order(self, name):
        attack = reader(tcp(self._attacker.tcp), ("bash", "-s", name))
        campaign = self.attacks[name] = self._cleanup.enter_context(Campaign(self._attacker, {name: attack}))
        campaign.order([name])
        return campaign.staged[name].pid

    def _report(self, name):
        self.agent.wait_for_event(self._order(name), 60, is_of_instant_scan)

    def _report_soon(self):
        for attempt in range(ATTEMPTS):
            self.soonest = f"attempt {attempt}"
            self._report(self.soonest)
            if self.event(self.soonest)[2] < DELAY[1]:
                break

    def _start_load(self):
        churn = subprocess.Popen(
            [sys.executable, pathlib.Path(__file__).with_name("churn.py")],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
        )
        self._cleanup.callback(end_child, churn)
        assert churn.stdout.readline() == b"running\n"
        began, started = time.monotonic(), processes_started()
        time.sleep(LOAD_SECONDS)
        self.load = (processes_started() - started) / (time.monotonic() - began)

    def _end_amid_a_pass(self):
        found = r"found type 1 rshell\.\[pid={}\]"
        pid = self._order("interrupted")
        # Logged in the first stage of the pass, before the snapshots.
        self.agent.wait_for_log(found.format(pid), 60)
        self.stop_limit = STOP_LIMIT + READ_SECONDS_PER_BYTE * longest_command_line()
        self.status, self.stop_seconds = self.agent.end()

    def event(self, name):
        campaign = self.attacks[name]
        (event,) = [
            event
            for event in self.agent.events()
            if is_of_instant_scan(event) and event["eventContent"]["pid"] == campaign.staged[name].pid
        ]
        return event, campaign.expected(name), seconds_of(event) - campaign.ordered[name]


@pytest.fixture(scope="module")
def busy(attacker, tmp_path_factory):
    with contextlib.ExitStack() as cleanup:
        yield Busy(attacker, tmp_path_factory.mktemp("busy"), cleanup)


def test_attack_is_reported_within_seconds(busy):
    event, expected, delay = busy.event(busy.soonest)
    assert event["eventContent"] == expected
    assert DELAY[0] < delay < DELAY[1]


def test_attack_under_load_is_reported(busy):
    event, expected, delay = busy.event("under load")
    assert event["eventContent"] == expected
    assert delay > DELAY[0]
    assert busy.load >= LEAST_LOAD


def test_no_process_event_is_lost_under_load(busy):
    assert not re.search(LOSSES, busy.agent.log())


def test_shutdown_during_a_pass_waits_at_most_for_a_paced_read(busy):
    assert busy.status == 0
    assert busy.stop_seconds < busy.stop_limit
