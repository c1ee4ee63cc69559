"""A small test of each detection for kernels in an emulator, through the waits and interfaces that differ between
kernels. Where a kernel shows stacks and also names waits in /proc/<pid>/wchan, a second agent that cannot read stacks
must report the same. If a kernel shows neither, the detections that need to see waits must report nothing."""

import contextlib
import shutil
import time

import pytest

import stacks
from agent import DETAIL, Agent, Scan, is_of_instant_scan, write_config
from campaign import Campaign, TooSlow
from instant_attacks import DEV_TCP, FOUND, IPV6, NETCAT, READING, RELAYED, SILENT, Site
from short_commands import SWEEP_LIMIT, TYPED, Wiring, contents_under, new_story

pytestmark = pytest.mark.kernel

PTY = "Python's terminal"
NEED_WAITS = (DEV_TCP, READING, IPV6, RELAYED)
ATTEMPTS = 4
PASS_LIMIT = 60
PASS_END = "scan all shell end"
# Enough for three quiet seconds and the next pass on any machine. PASSES counts that pass and one that came too early.
COME_OF_AGE_SECONDS = 10
PASSES = 3
HARMLESS = "proc has no shell character"


class Watch:
    """Agents, attacks while they run, and their events about them."""

    def __init__(self, attacker, directory, cleanup):
        config = {"module": {"reverseShell": {"detectInterval": 86400}}, "settings": {}, "log": DETAIL}
        site = Site(attacker, directory)
        path = write_config(directory, config)
        self.agents = [
            cleanup.enter_context(Agent("--config", path, wrapper=wrapper))
            for wrapper in stacks.ways_to_look().values()
        ]
        for agent in self.agents:
            agent.wait_until_started()
        attacks = {name: FOUND[name](site) for name in (*NEED_WAITS, PTY)}
        self.campaign = cleanup.enter_context(Campaign(attacker, attacks))
        self.campaign.order(attacks)
        self.expected = {name: self.campaign.expected(name) for name in attacks}
        visible = [PTY] if not stacks.waits_are_seen() else attacks
        self._await_passes(visible)
        for agent in self.agents:
            assert agent.end()[0] == 0
        self.complete = self._have_reported(visible)

    def _await_passes(self, names):
        """Waits until all attacks are reported, or the pass that should have reported them is over."""
        began, before = time.monotonic(), self._passes()

        def over():
            passes = min(after - earlier for after, earlier in zip(self._passes(), before))
            due = time.monotonic() - began > COME_OF_AGE_SECONDS and passes >= PASSES
            return due or self._have_reported(names)

        self.agents[-1].wait_until(over, "passes of the instant scan", PASS_LIMIT)

    def _passes(self):
        return [agent.log().count(PASS_END) for agent in self.agents]

    def _have_reported(self, names):
        return all(contents for name in names for contents in self.contents(name))

    def contents(self, name):
        """The contents of each agent's events about the attack."""
        pid = self.expected[name]["pid"]
        events = [filter(is_of_instant_scan, agent.events()) for agent in self.agents]
        return [[event["eventContent"] for event in own if event["eventContent"]["pid"] == pid] for own in events]


@pytest.fixture(scope="module")
def watch(attacker, tmp_path_factory):
    for attempt in range(ATTEMPTS):
        last = attempt + 1 == ATTEMPTS
        with contextlib.ExitStack() as cleanup:
            try:
                watch = Watch(attacker, tmp_path_factory.mktemp("instant"), cleanup)
            except TooSlow:
                if last:
                    raise
                continue
            # Retry if two passes shared the attacks: the second pass already knows all connections.
            if watch.complete or last:
                yield watch
                return


@pytest.mark.parametrize("name", NEED_WAITS)
def test_instant_scan_finds_the_wait(watch, name):
    if not stacks.waits_are_seen():
        assert watch.contents(name) == [[]]
        pytest.skip(stacks.BLIND)
    assert watch.contents(name) == [[watch.expected[name]]] * len(watch.agents)


def test_instant_scan_finds_the_terminal_without_a_stack(watch):
    assert watch.contents(PTY) == [[watch.expected[PTY]]] * len(watch.agents)


@pytest.mark.skipif(not shutil.which("nc"), reason="nc is not installed")
def test_period_scan_finds_the_shell_between_fifo_and_netcat(attacker, tmp_path):
    attack = SILENT[NETCAT](Site(attacker, tmp_path))
    with Campaign(attacker, {NETCAT: attack}) as campaign:
        (content,) = Scan().contents(campaign.staged[NETCAT].pid)
        assert content["cmdline"] == "bash -s netcat"
        assert (content["remoteIp"], content["remotePort"]) == attacker.tcp


@pytest.fixture(scope="module")
def story(attacker, tmp_path_factory):
    with new_story(attacker, tmp_path_factory) as made:
        made.add_worker("on its connection", Wiring(TYPED))
        made.add_worker("on a pipe", Wiring(TYPED, waits_on="pipe"))
        for name, wrapper in stacks.ways_to_look().items():
            made.start_agent(name, wrapper)
            made.agents[name].wait_until_started()
        made.wait_until_old_enough()
        for worker in made.workers.values():
            worker.ask(TYPED)
        made.run_to_end(*made.workers)
        for agent in made.agents.values():
            agent.wait_for_log(HARMLESS, SWEEP_LIMIT, 1 if stacks.waits_are_seen() else len(made.workers))
        yield made


def test_short_commands_of_a_process_that_waits_on_a_pipe_are_not_reported(story):
    for agent in story.agents.values():
        assert contents_under(agent, story.workers["on a pipe"].pid) == []


def test_short_commands_of_a_process_that_waits_on_its_connection_are_reported(story):
    worker = story.workers["on its connection"]
    if not stacks.waits_are_seen():
        assert contents_under(story.agents["agent"], worker.pid) == []
        pytest.skip(stacks.BLIND)
    story.wait_for_events("on its connection")
    for agent in story.agents.values():
        assert contents_under(agent, worker.pid) == [worker.expected_content()]
