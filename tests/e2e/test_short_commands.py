"""Processes that run short commands for a remote peer: those that are reported and those that are not. One agent runs
on a host that was never suspended, another on one that was, and a third cannot read the stacks of processes. The agents
judge every ten seconds, so all workers run at once under all agents, and each test inspects its own."""

import pathlib
import subprocess
import time

import pytest

import stacks
from short_commands import LIST, PRINT, SCRIPT, TYPED, Wiring, contents_under, new_story

BOOTTIME_AHEAD_SECONDS = 100000

FOUND = {
    "two commands half a second apart": Wiring(TYPED),
    "over IPv6, whose addresses are cut to four bytes": Wiring(TYPED, line="tcp6"),
    "process that was half a second old": Wiring({**TYPED, "new_process": 0.5}),
    "program that is not part of the system": Wiring(TYPED, program="own/updater"),
}

# Each differs in one point from a wiring that is found.
SILENT = {
    "gaps of 50 milliseconds, as in a script": Wiring({"commands": [LIST, PRINT, LIST, PRINT], "gap": 0.05}),
    "one command": Wiring({"commands": [PRINT], "gap": 0}),
    "process that starts its first command at once": Wiring({**TYPED, "new_process": 0}),
    "process that waits on a pipe and holds a connection": Wiring(TYPED, waits_on="pipe"),
    "ssh daemon": Wiring(TYPED, program="path/sshd"),
    "script as the last command": Wiring({"commands": [LIST, ["{directory}/script"]], "gap": 0.5}),
    "last command with a file as its first argument": Wiring(
        {"commands": [LIST, ["cat", "{directory}/print.me"]], "gap": 0.5}
    ),
    "last command by sh -c": Wiring({"commands": [LIST, ["sh", "-c", SCRIPT]], "gap": 0.5}),
    "commands that are not watched": Wiring({"commands": [["du", "-a", "/usr/lib"]] * 2, "gap": 0.5}),
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


def run(story):
    story.wait_until_old_enough()
    for name, wiring in {**SILENT, **FOUND}.items():
        story.workers[name].ask(wiring.request)
    by_hand = story.workers["by hand"]
    for command in (LIST, ["id"], PRINT):
        by_hand.ask({"commands": [command], "gap": 0})
        by_hand.wait_until_started()
        time.sleep(0.5)
    story.run_to_end(*SILENT, *FOUND)
    by_hand.end_commands()
    story.typed = by_hand.expected_content()
    story.wait_for_events(*FOUND, "by hand")
    # The sweep that finds "later" comes after the sweep that has judged all others.
    for name in ("by hand", "later"):
        story.workers[name].ask(TYPED)
    story.run_to_end("by hand", "later")
    story.wait_for_events("later")


@pytest.fixture(scope="module")
def story(attacker, tmp_path_factory):
    with new_story(attacker, tmp_path_factory) as made:
        for name, wiring in {**SILENT, **FOUND, "by hand": Wiring({}), "later": Wiring(TYPED)}.items():
            made.add_worker(name, wiring)
        made.start_agent("never suspended")
        if has_time_namespaces():
            offset = ["unshare", "--time", "--boottime", str(BOOTTIME_AHEAD_SECONDS), "--fork", "--kill-child"]
            made.start_agent("suspended before", offset)
        if stacks.channels_are_shown():
            made.start_agent("without stacks", stacks.HIDE_STACKS)
        for agent in made.agents.values():
            agent.wait_until_started()
        run(made)
        yield made


NEEDED = {
    "suspended before": "time namespaces, to simulate a host that was suspended",
    "without stacks": "a kernel that names waits in /proc/<pid>/wchan",
}


@pytest.fixture(params=["never suspended", *NEEDED])
def agent(request, story):
    if request.param not in story.agents:
        pytest.skip(f"needs {NEEDED[request.param]}")
    return story.agents[request.param]


def test_second_agent_runs_on_a_host_that_was_suspended(story):
    if "suspended before" not in story.agents:
        pytest.skip("needs time namespaces, to simulate a host that was suspended")
    unshare = story.agents["suspended before"].pid
    child = pathlib.Path(f"/proc/{unshare}/task/{unshare}/children").read_text().split()[0]
    assert boottime_offset(child) == BOOTTIME_AHEAD_SECONDS


@pytest.mark.parametrize("name", FOUND)
def test_found(story, agent, name):
    worker = story.workers[name]
    assert contents_under(agent, worker.pid) == [worker.expected_content()]


@pytest.mark.parametrize("name", SILENT)
def test_silent(story, agent, name):
    assert contents_under(agent, story.workers[name].pid) == []


def test_commands_typed_by_hand_are_reported_once_with_the_last_command(story, agent):
    assert contents_under(agent, story.workers["by hand"].pid) == [story.typed]


def test_process_is_found_by_the_next_sweep(story, agent):
    worker = story.workers["later"]
    assert contents_under(agent, worker.pid) == [worker.expected_content()]
