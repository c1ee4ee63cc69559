"""Processes that run short commands for a remote peer: which are reported, by an agent on a host that never slept and
by one on a host that has. They are judged every ten seconds, so all wirings run at once, under both agents, and each
test looks at its own."""

import pathlib
import subprocess
import time

import pytest

from short_commands import LIST, PRINT, SCRIPT, TYPED, Wiring, contents_under, new_story

BOOTTIME_AHEAD_SECONDS = 100000

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


def has_time_namespaces():
    done = subprocess.run(["unshare", "--time", "--boottime", "1", "--fork", "true"], capture_output=True)
    return done.returncode == 0


def boottime_offset(pid):
    for line in pathlib.Path(f"/proc/{pid}/timens_offsets").read_text().splitlines():
        clock, seconds, _ = line.split()
        if clock == "boottime":
            return int(seconds)
    return 0


def tell(told):
    told.wait_until_old_enough()
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
    with new_story(attacker, tmp_path_factory) as told:
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
