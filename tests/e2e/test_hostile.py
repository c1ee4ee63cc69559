"""Hostile command lines, hostile program names and large numbers of shells do not break events or the log."""

import os
import shutil

import pytest

from agent import DETAIL, Scan, write_config
from stage import BASH, ON_LINE, Stage, reverse_shell, shell, tcp

HOSTILE_ARGUMENTS = {
    "line ends": "one\ntwo\r\nthree\n",
    "quotes and backslashes": '"\'\\\\"}],\\u0000',
    "terminal control": "\x1b]0;owned\x07\x1b[2J\x7f\x01",
    "format directives": "%s%n%d%1$n",
    "multi-byte characters": "żółw 🐢 \u2028",
    "invalid UTF-8": "a\udcffb\udcfec\udc80d",
    "cut characters": "a\udce2\udc82 b\udcf0 c",
    "very long": "x" * 100_000,
}


@pytest.mark.parametrize("argument", HOSTILE_ARGUMENTS.values(), ids=HOSTILE_ARGUMENTS.keys())
def test_hostile_command_line_stays_one_line_of_valid_json(attacker, argument):
    with reverse_shell(attacker, shell(argument, ON_LINE)) as stage:
        (content,) = Scan().contents(stage.pid)
        readable = os.fsencode(argument).decode("utf-8", "replace")
        assert content == {**stage.expected_content(), "cmdline": f"bash -s {readable}"}


def test_hostile_program_path_stays_one_line_of_valid_json(attacker, tmp_path):
    directory = tmp_path / 'new\nline "quote" \udcff'
    directory.mkdir()
    program = directory / "bash"
    shutil.copy(BASH, program)
    with reverse_shell(attacker, shell("nested", ON_LINE, program=program)) as stage:
        (content,) = Scan().contents(stage.pid)
        assert content["path"] == os.fsencode(program).decode("utf-8", "replace")


def test_hostile_command_line_stays_one_log_line(attacker, tmp_path):
    config = write_config(tmp_path, {"log": DETAIL})
    with reverse_shell(attacker, shell("forged\n2000-01-01T00:00:00.000Z error forged:1 line", ON_LINE)) as stage:
        scan = Scan("--config", config)
        assert len(scan.contents(stage.pid)) == 1
        assert not any(line.startswith("2000-") for line in scan.log.splitlines())


MANY = 60


@pytest.fixture(scope="module")
def many_shells(attacker):
    names = [f"shell{i}" for i in range(MANY)]
    with Stage(
        {f"line{i}": tcp(attacker.tcp) for i in range(MANY)},
        {name: shell(name, {0: f"line{i}", 1: f"line{i}"}) for i, name in enumerate(names)},
    ) as stage:
        yield stage


def test_all_of_many_shells_are_found(many_shells, tmp_path):
    config = write_config(tmp_path, {"events": {"perMinuteLimit": 0}})
    scan = Scan("--config", config)
    for i in range(MANY):
        expected = many_shells.expected_content(f"line{i}", f"shell{i}")
        assert scan.contents(expected["pid"]) == [expected]


def test_events_beyond_the_limit_per_minute_are_dropped_and_counted(many_shells, tmp_path):
    config = write_config(tmp_path, {"events": {"perMinuteLimit": 5}})
    scan = Scan("--config", config)
    assert len(scan.events) == 5
    # The scan may also find other shells of this host, so the exact number is unknown.
    (dropped,) = [line for line in scan.log.splitlines() if "events were dropped" in line]
    assert int(dropped.partition(" events were dropped")[0].split()[-1]) >= MANY - 5
    assert "beyond the limit of 5 per minute" in dropped
    assert "scan finished: 5 events" in scan.log
