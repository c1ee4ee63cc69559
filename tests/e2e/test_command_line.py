"""Wrong use, invalid configurations, missing rights and other unusual calls: messages and exit statuses."""

import os
import re
import signal

import pytest

from agent import LIBRARIES, PROGRAM, Agent, environment, run_to_end, write_config
from stage import ON_LINE, reverse_shell, shell

NOBODY = 65534
MODULE = "liborlim_detect-shell.so"


def assert_refused(done, status, *fragments):
    """The program exited with this status and a message on standard error, and printed nothing else."""
    complaint = done.stderr.decode("utf-8")
    assert done.returncode == status, complaint
    assert done.stdout == b""
    assert complaint.startswith("orlim-agent: ")
    for fragment in fragments:
        assert fragment in complaint


WRONG_USES = {
    "nothing": ([], "a command is missing"),
    "unknown option": (["run", "--bogus"], "--bogus"),
    "unknown option before the command": (["--bogus", "run"], "--bogus"),
    "unknown command": (["scann"], "scann"),
    "two commands": (["run", "scan"], "scan"),
    "surplus argument": (["scan", "surplus"], "surplus"),
    "option without its value": (["scan", "--config"], "--config"),
    "empty command": ([""], "run, scan, check, explain and demo"),
    "explain without a process": (["explain"], "PID"),
    "explain of a name": (["explain", "bash"], "PID"),
}


@pytest.mark.parametrize("arguments, fragment", WRONG_USES.values(), ids=WRONG_USES.keys())
def test_wrong_use_is_refused_with_its_name_and_a_hint(arguments, fragment):
    assert_refused(run_to_end(*arguments), 2, fragment, "orlim-agent --help")


def test_version():
    done = run_to_end("--version")
    assert (done.returncode, done.stderr) == (0, b"")
    assert re.fullmatch(rb"orlim-agent \d+\.\d+\.\d+\n", done.stdout)


@pytest.mark.parametrize(
    "arguments", [["--help"], ["-h"], ["run", "--help"], ["scan", "--help"], ["check", "-h"], ["explain", "-h"]]
)
def test_help_shows_the_usage(arguments):
    done = run_to_end(*arguments)
    assert (done.returncode, done.stderr) == (0, b"")
    assert "Usage: orlim-agent" in done.stdout.decode()


def test_help_names_all_commands_signals_and_exit_statuses():
    text = run_to_end("--help").stdout.decode()
    for word in ("run", "scan", "check", "explain", "SIGTERM", "SIGHUP", "Exit status", "root"):
        assert word in text


# The text of the file, and parts of the message besides the file name.
BAD_CONFIGURATIONS = {
    "empty": ("", [":1:1: not valid JSON"]),
    "cut off": ('{\n  "log": {"level": 1}', [":2:", "not valid JSON"]),
    "missing comma": ('// the log\n{"log":\n  {"level": 1 "target": 2}}', [":3:", "not valid JSON"]),
    "trailing comma": ('{"log": {"level": 1},}', [":1:", "not valid JSON"]),
    "not an object": ("[]", ["found []", "an object"]),
    "invalid UTF-8": ('{"log": {"\udcff": 1}}', ["not valid JSON"]),
    "zero byte": ('{"log":\0 {}}', ["zero byte"]),
    "key twice": ('{"log": {"level": 1, "level": 2}}', ["log.level", "second time"]),
    "unknown section": ('{"modul": {}}', ["modul", "unknown key"]),
    "unknown key": ('{"events": {"perHourLimit": 1}}', ["events.perHourLimit", "unknown key"]),
    "section of the wrong type": ('{"events": []}', ["events", "found []", "an object"]),
    "module of the wrong type": ('{"module": 3}', ["module", "found 3"]),
    "setting that is not a string": (
        '{"settings": {"TAVORIN_ETC": 1}}',
        ["settings.TAVORIN_ETC", "found 1", "a string"],
    ),
    "negative limit": ('{"events": {"perMinuteLimit": -1}}', ["events.perMinuteLimit", "found -1"]),
    "fraction": ('{"events": {"perMinuteLimit": 1.5}}', ["events.perMinuteLimit", "found 1.5"]),
    "huge number": ('{"events": {"perMinuteLimit": 1e400}}', ["not valid JSON"]),
    "no sinks": ('{"events": {"sinks": []}}', ["events.sinks", "found 0 sinks"]),
    "unknown sink": (
        '{"events": {"sinks": [{"type": "stdout"}, {"type": "x"}]}}',
        ["events.sinks[1].type", 'found "x"'],
    ),
    "relative path": ('{"events": {"sinks": [{"type": "file", "path": "e"}]}}', ["events.sinks[0].path", 'found "e"']),
    "file without a path": ('{"events": {"sinks": [{"type": "file"}]}}', ["events.sinks[0].path", "found nothing"]),
    "level out of range": ('{"log": {"level": 4}}', ["log.level", "found 4", "0 to 3"]),
    "unknown target": ('{"log": {"target": "syslog"}}', ["log.target", 'found "syslog"']),
    "deep nesting": ('{"module": ' + "[" * 5000 + "]" * 5000 + "}", ["nesting"]),
}


@pytest.mark.parametrize("command", ["run", "scan"])
@pytest.mark.parametrize("text, fragments", BAD_CONFIGURATIONS.values(), ids=BAD_CONFIGURATIONS.keys())
def test_bad_configuration_is_refused_with_its_place(tmp_path, command, text, fragments):
    config = write_config(tmp_path, text)
    done = run_to_end(command, "--config", config)
    assert_refused(done, 2, f"orlim-agent: {config}", *fragments)
    assert len(done.stderr.splitlines()) == 1


def test_check_reports_a_bad_configuration_and_continues(tmp_path):
    config = write_config(tmp_path, '{"log": {"level": 4}}')
    done = run_to_end("check", "--config", config)
    assert done.returncode == 2
    message = rf"MISSING configuration: {config}: log\.level: expected a whole number from 0 to 3, found 4"
    assert re.search(message, done.stdout.decode())
    assert "/etc/shells" in done.stdout.decode()


@pytest.mark.parametrize("command", ["run", "scan"])
def test_unreadable_configuration_is_refused_with_its_name(tmp_path, command):
    missing = tmp_path / "missing.json"
    assert_refused(run_to_end(command, "--config", missing), 2, str(missing), "No such file or directory")
    assert_refused(run_to_end(command, "--config", tmp_path), 2, str(tmp_path), "expected a regular file")


def test_configuration_that_is_a_fifo_does_not_block(tmp_path):
    fifo = tmp_path / "fifo"
    os.mkfifo(fifo)
    assert_refused(run_to_end("scan", "--config", fifo, limit=10), 2, str(fifo), "expected a regular file")


def test_keys_and_values_that_the_module_ignores_are_logged(tmp_path):
    config = write_config(tmp_path, {"module": {"reverseShell": {"detectInterval": 5, "whitelst": []}}})
    done = run_to_end("scan", "--config", config)
    assert done.returncode == 0
    log = done.stderr.decode()
    assert re.search(
        r"warning .*module\.reverseShell\.detectInterval: expected .*, found 5; the module ignores it", log
    )
    assert re.search(r"warning .*module\.reverseShell\.whitelst: expected .*, found an unknown key", log)


def test_configuration_may_have_comments(tmp_path):
    config = write_config(tmp_path, '/* all */ {\n// the log\n"log": {"level": 0}}')
    assert run_to_end("scan", "--config", config).returncode == 0


def test_scan_without_reverse_shell_section_is_refused(tmp_path):
    config = write_config(tmp_path, {"module": {"abnormalShell": {}}})
    assert_refused(run_to_end("scan", "--config", config), 2, str(config), "module.reverseShell")


def test_scan_fails_if_agent_location_is_set():
    done = run_to_end("scan", env=environment(AGENT_LOCATION=""))
    assert_refused(done, 1, "AGENT_LOCATION")


def test_check_reports_agent_location():
    done = run_to_end("check", env=environment(AGENT_LOCATION="1"))
    assert re.search("^LIMITED AGENT_LOCATION: ", done.stdout.decode(), re.MULTILINE)


@pytest.mark.parametrize("command", ["run", "scan"])
def test_missing_module_is_reported_with_the_places_tried(copied_program, command):
    (copied_program.parent.parent / "lib" / MODULE).unlink()
    done = run_to_end(command, program=copied_program)
    directory = copied_program.parent
    assert_refused(done, 1, f"{directory}/{MODULE}", f"{directory}/../lib/{MODULE}", f"/lib/orlim/{MODULE}", "--module")


@pytest.mark.parametrize("command", ["run", "scan"])
def test_file_that_is_not_a_module_is_refused(tmp_path, command):
    missing = tmp_path / MODULE
    assert_refused(run_to_end(command, "--module", missing), 1, str(missing), "No such file or directory")
    missing.write_text("no library")
    assert_refused(run_to_end(command, "--module", missing), 1, str(missing), "cannot load the module")
    other = LIBRARIES / "liborlim_agent.so"
    assert_refused(run_to_end(command, "--module", other), 1, str(other), "InitModule")


def test_named_module_is_loaded(copied_program, tmp_path):
    # Renamed within its directory, so that the agent's other libraries are still found.
    moved = copied_program.parent.parent / "lib" / "elsewhere.so"
    moved.with_name(MODULE).rename(moved)
    done = run_to_end("scan", "--module", moved, program=copied_program)
    assert done.returncode == 0, done.stderr


@pytest.mark.kernel
def test_check_prints_every_facility_and_its_exit_status_agrees():
    done = run_to_end("check")
    lines = done.stdout.decode().splitlines()
    assert all(re.match(r"((OK     |LIMITED|MISSING) |blind: )[^:]+: .|no detection is blind$", line) for line in lines)
    for subject in ("user: root", "CAP_SYS_PTRACE: in effect", "/proc/net/tcp: readable", "module: "):
        assert any(line.startswith(f"OK      {subject}") for line in lines), subject
    assert done.returncode == (1 if any(line.startswith("MISSING") for line in lines) else 0)


def test_check_as_another_user_names_the_missing_rights(copied_program):
    done = run_to_end("check", program=copied_program, user=NOBODY, group=NOBODY, extra_groups=[])
    lines = done.stdout.decode().splitlines()
    assert any(line.startswith("LIMITED user: user id 65534") for line in lines)
    assert any(line.startswith("MISSING CAP_SYS_PTRACE: ") for line in lines)
    assert done.returncode == 1


def test_run_as_another_user_warns_and_continues(copied_program):
    with Agent(program=copied_program, user=NOBODY, group=NOBODY, extra_groups=[]) as agent:
        agent.wait_until_started()
        assert re.search("warning .*CAP_SYS_PTRACE", agent.log())
        assert agent.end()[0] == 0


def test_scan_as_another_user_warns_about_missing_rights(copied_program):
    done = run_to_end("scan", program=copied_program, user=NOBODY, group=NOBODY, extra_groups=[])
    assert done.returncode == 0
    assert "CAP_SYS_PTRACE" in done.stderr.decode()


def test_scan_with_closed_standard_streams_writes_only_events_to_its_sink(attacker, tmp_path):
    """Otherwise the first file that the agent opens gets the descriptor of standard output, and events go there."""
    config = write_config(tmp_path, {"events": {"sinks": [{"type": "file", "path": str(tmp_path / "events")}]}})
    status_file = tmp_path / "status"
    command = f"'{PROGRAM}' scan --config '{config}' <&- >&- 2>&-; echo $? > '{status_file}'"
    with reverse_shell(attacker, shell("closed", ON_LINE)) as stage:
        run_to_end("-c", command, program="/bin/sh")
        assert status_file.read_text() == "0\n"
        lines = (tmp_path / "events").read_text().splitlines()
        assert sum(f'"pid":{stage.pid},' in line for line in lines) == 1
        assert all(line.startswith('{"eventType":') for line in lines)


def test_sigterm_during_startup_ends_the_agent():
    """SIGTERM is never lost: the agent shuts down in order, or the signal kills it."""
    for _ in range(5):
        with Agent() as agent:
            agent.send_signal(signal.SIGTERM)
            assert agent.wait_for_end() in (0, -signal.SIGTERM)
