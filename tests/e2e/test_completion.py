"""The bash completion of orlim-agent."""

import os
import subprocess

import pytest

from agent import PROGRAM, REPOSITORY, environment, run_to_end
from test_manual import COMMANDS, options_of

SCRIPT = REPOSITORY / "packaging/orlim-agent.bash-completion"
# Completes like readline: sets the words and calls the function that is registered for the program.
ASK = """
source "$1" && shift
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
registered=$(complete -p orlim-agent)
registered=${registered#*-F }
${registered% orlim-agent}
printf '%s\\n' "${COMPREPLY[@]}"
"""


def offered(*words, directory="/"):
    """The completions of the last word."""
    done = subprocess.run(
        ["bash", "--norc", "--noprofile", "-c", ASK, "bash", SCRIPT, PROGRAM, *words],
        cwd=directory,
        env=environment(),
        stdin=subprocess.DEVNULL,
        capture_output=True,
        encoding="utf-8",
        timeout=60,
    )
    assert (done.returncode, done.stderr) == (0, "")
    return {word for word in done.stdout.splitlines() if word}


def scenarios():
    return {line.split()[0] for line in run_to_end("demo", "--list").stdout.decode().splitlines()}


def test_first_word_is_a_command_or_an_option_without_one():
    assert offered("") == {*COMMANDS, *options_of()}


@pytest.mark.parametrize("command", COMMANDS)
def test_options_are_those_in_the_help(command):
    assert offered(command, "-") == options_of(command)


BEGINNINGS = {
    "a command": (["s"], {"scan"}),
    "the first letter of a command": (["e"], {"explain"}),
    "an unknown word": (["x"], set()),
    "an option": (["scan", "--c"], {"--config"}),
    "an option of another command": (["demo", "--co"], set()),
    "a second option": (["demo", "--only", "two-relays", "--j"], {"--json"}),
    "a scenario": (["demo", "--only", "two"], {"two-relays"}),
    "a scenario after an equals sign": (["demo", "--only", "=", "two"], {"two-relays"}),
    "a second scenario": (["demo", "--only", "two-relays", "--only", "pty"], set()),
    "an option of a command that does not exist": (["scann", "--c"], set()),
}


@pytest.mark.parametrize("words, expected", BEGINNINGS.values(), ids=BEGINNINGS.keys())
def test_beginning_is_completed(words, expected):
    assert offered(*words) == expected


@pytest.mark.parametrize("words", [["demo", "--only", ""], ["demo", "--only", "="]])
def test_names_of_scenarios_are_those_in_the_list(words):
    assert offered(*words) == scenarios()


@pytest.mark.parametrize(
    "command, option",
    [
        *((command, "--config") for command in ("run", "scan", "check", "explain")),
        *((command, "--module") for command in ("run", "scan", "check", "demo")),
    ],
)
def test_options_for_a_file_are_completed_with_files(tmp_path, command, option):
    (tmp_path / "a file").touch()
    (tmp_path / "folder").mkdir()
    assert offered(command, option, "", directory=tmp_path) == {"a file", "folder"}
    assert offered(command, option, "=", "fo", directory=tmp_path) == {"folder"}


def test_explain_is_completed_with_pids():
    assert {"1", str(os.getpid())} <= offered("explain", "")
    assert offered("explain", "--dot", str(os.getpid())) >= {str(os.getpid())}
