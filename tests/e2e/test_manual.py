"""The manual pages: groff accepts them without warnings, and they agree with --help and the configuration."""

import re
import shutil
import subprocess

import pytest

from agent import PROGRAM, run_to_end, write_config

PAGES = {
    "orlim-agent": PROGRAM.parent.parent / "share/man/man8/orlim-agent.8",
    "orlim-agent.json": PROGRAM.parent.parent / "share/man/man5/orlim-agent.json.5",
}
COMMANDS = ["run", "scan", "check", "explain", "demo"]
# Terms of a list and lines of a synopsis have this indentation; their descriptions are indented further.
TERM = re.compile(r"^ {7}(\S.*)$", re.MULTILINE)
OPTION = re.compile(r"(?<![\w-])--?[a-z][a-z-]*")


def formatted(name):
    """The page as a reader sees it, with lines too long to be wrapped."""
    if shutil.which("groff") is None:
        pytest.skip("needs groff (package groff-base) to format the manual pages")
    if not PAGES[name].exists() and shutil.which("lowdown") is None:
        pytest.skip("the manual pages were not built, because lowdown is missing")
    done = subprocess.run(
        ["groff", "-man", "-ww", "-Tutf8", "-P-cbou", "-rLL=400n", "-rHY=0", PAGES[name]],
        capture_output=True,
        encoding="utf-8",
        timeout=60,
    )
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout


def section(page, heading):
    (text,) = re.findall(rf"^{heading}\n(.*?)(?=^\S|\Z)", page, re.MULTILINE | re.DOTALL)
    return text


def options_of(*arguments):
    """The options that --help lists."""
    text = run_to_end(*arguments, "--help").stdout.decode()
    (block,) = re.findall(r"^Options:\n((?:  .*\n)+)", text, re.MULTILINE)
    return {option for line in block.splitlines() for option in OPTION.findall(line.split("  ")[1])}


def commands_listed():
    text = run_to_end("--help").stdout.decode()
    (block,) = re.findall(r"^Subcommands:\n((?:  .*\n)+)", text, re.MULTILINE)
    return [line.split()[0] for line in block.splitlines()]


@pytest.mark.parametrize("name", PAGES)
def test_page_has_the_name_and_title_that_man_and_apropos_need(name):
    page = formatted(name)
    assert re.search(rf"^ +{re.escape(name)} - \S", section(page, "NAME"), re.MULTILINE)
    assert page.startswith(f"{name.upper()}({PAGES[name].suffix[1:]})")


def test_page_lists_all_commands():
    described = [term.split()[0] for term in TERM.findall(section(formatted("orlim-agent"), "COMMANDS"))]
    assert described == COMMANDS == commands_listed()


@pytest.mark.parametrize("command", COMMANDS)
def test_synopsis_lists_the_options_of_a_command(command):
    synopsis = section(formatted("orlim-agent"), "SYNOPSIS")
    (line,) = re.findall(rf"^ +orlim-agent {command} .*$", synopsis, re.MULTILINE)
    assert set(OPTION.findall(line)) == options_of(command) - {"-h", "--help"}


def test_page_lists_every_option_and_no_other():
    terms = TERM.findall(section(formatted("orlim-agent"), "OPTIONS"))
    assert {option for term in terms for option in OPTION.findall(term)} == {
        option for arguments in ((), *((command,) for command in COMMANDS)) for option in options_of(*arguments)
    }


def test_page_names_the_commands_that_accept_each_option():
    takers = {command: options_of(command) for command in COMMANDS}
    text = section(formatted("orlim-agent"), "OPTIONS")
    for options, meaning in re.findall(r"^ {7}(\S.*)\n((?:  {7,}.*\n)+)", text, re.MULTILINE):
        if "--help" in options or "--version" in options:
            continue
        (option,) = OPTION.findall(options)
        last = " ".join(meaning.split()).rsplit("Accepted by: ", 1)[1]
        assert re.findall(r"\w+", last.replace(" and ", ", ")) == [name for name in COMMANDS if option in takers[name]]


def known_keys(tmp_path, path, unknown):
    """The keys that the agent's message about an unknown key lists."""
    output = run_to_end("check", "--config", write_config(tmp_path, unknown)).stdout.decode()
    start = re.escape(f"{path}nonsense: expected ")
    (expected,) = re.findall(rf"{start}(?:one of |only )?([\w, ]+), found an unknown key", output)
    return re.split(r", | or ", expected)


# The path of each object, and a configuration with an unknown key in it.
PLACES = {
    "": {"nonsense": 1},
    "module.": {"module": {"nonsense": 1}},
    "module.reverseShell.": {"module": {"reverseShell": {"nonsense": 1}}},
    "events.": {"events": {"nonsense": 1}},
    "log.": {"log": {"nonsense": 1}},
}


def test_page_lists_every_key_of_the_configuration_and_no_other(tmp_path):
    known = {path + key for path, unknown in PLACES.items() for key in known_keys(tmp_path, path, unknown)}
    leaves = {key for key in known if not any(other.startswith(key + ".") for other in known)} - {"settings"}
    terms = TERM.findall(section(formatted("orlim-agent.json"), "DESCRIPTION"))
    described = {term for term in terms if re.fullmatch(r"[a-z]+(\.\w+)+", term)}
    assert described == leaves | {"module.reverseShell", "settings.TAVORIN_ETC"}


def test_page_lists_every_key_of_a_sink(tmp_path):
    keys = known_keys(tmp_path, "events.sinks[0].", {"events": {"sinks": [{"type": "file", "nonsense": 1}]}})
    page = formatted("orlim-agent.json")
    for key in keys:
        assert f'"{key}":' in page
