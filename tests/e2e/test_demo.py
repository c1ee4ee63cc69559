"""orlim-agent demo: its output as text and JSON, wrong use, and that it leaves nothing behind."""

import contextlib
import glob
import json
import os
import pty
import re
import signal
import subprocess
import sys
import tempfile
import time

import pytest

from agent import PROGRAM, environment, run_to_end
from attacker import INTERFACE_PREFIX
from waiting import scaled, wait_until

WHOLE_RUN_LIMIT = 60
END_LIMIT = 15
NOBODY = 65534
NAMES = {
    *("bash-on-socket", "fifo-waiting-relay", "fifo-polling-relay", "two-relays", "terminal-relay", "short-commands"),
    *("renamed-bash", "shell-chmod", "shell-chattr", "shell-rename"),
    *("harmless-terminal", "harmless-pipeline", "harmless-build"),
}
HARMLESS = {name for name in NAMES if name.startswith("harmless-")}


def folders():
    return set(glob.glob(os.path.join(tempfile.gettempdir(), "orlim-demo-*")))


def interfaces():
    """The host's interfaces, without those of tests that run at the same time."""
    return {name for name in os.listdir("/sys/class/net") if not name.startswith(INTERFACE_PREFIX)}


def processes_in(folder):
    """Processes whose command line or program is in the folder."""
    found = []
    for process in glob.glob("/proc/[0-9]*"):
        with contextlib.suppress(OSError):
            with open(f"{process}/cmdline", "rb") as file:
                places = [os.fsdecode(file.read())]
            places.append(os.readlink(f"{process}/exe"))
            if any(folder in place for place in places):
                found.append(process)
    return found


def processes_of(demo):
    """The processes of the demonstration: its worker, in its process group but a child of init, and all descendants."""
    parents, found = {}, set()
    for status in glob.glob("/proc/[0-9]*/stat"):
        with contextlib.suppress(OSError):
            with open(status, encoding="utf-8", errors="replace") as file:
                number, rest = file.read().split(" (", 1)
                parent, group = map(int, rest.rpartition(")")[2].split()[1:3])
                parents[int(number)] = parent
                if group == demo:
                    found.add(int(number))
    while more := {child for child, parent in parents.items() if parent in found} - found:
        found |= more
    return found - {demo}


def has_ended(pid):
    """True also for a zombie that init has not reaped yet."""
    try:
        with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as file:
            return file.read().rpartition(") ")[2][0] in "ZX"
    except OSError:
        return True


def run_demo(*arguments, **options):
    return run_to_end("demo", *arguments, limit=WHOLE_RUN_LIMIT, **options)


@pytest.fixture
def nothing_left():
    """Fails if folders or interfaces differ after the test."""
    before = folders(), interfaces()
    yield
    assert (folders(), interfaces()) == before


class RunningDemo:
    """A demonstration that is running."""

    def __init__(self, **options):
        before = folders()
        self.child = subprocess.Popen(
            [PROGRAM, "demo"], stdin=subprocess.DEVNULL, env=environment(), start_new_session=True, **options
        )
        wait_until(lambda: folders() - before, "the folder of the demonstration exists")
        (self.folder,) = folders() - before

    def wait_until_staged(self):
        wait_until(
            lambda: any("harmless-build" in self._words(pid) for pid in processes_of(self.child.pid)),
            "the last scenario is staged",
        )

    @staticmethod
    def _words(pid):
        try:
            with open(f"/proc/{pid}/cmdline", "rb") as file:
                return os.fsdecode(file.read())
        except OSError:
            return ""

    def end(self):
        if self.child.poll() is None:
            self.child.kill()
        self.child.wait()
        if self.child.stdout is not None:
            self.child.stdout.close()


@pytest.fixture
def running():
    demo = RunningDemo(stdout=subprocess.PIPE)
    yield demo
    demo.end()


def test_all_scenarios_have_the_expected_result_within_a_minute(nothing_left):
    done = run_demo("--json")
    report = json.loads(done.stdout)
    failed = [scenario for scenario in report["scenarios"] if not scenario["passed"]]
    assert not failed, json.dumps(failed, indent=1)
    assert done.returncode == 0
    assert report["passed"] and report["complete"] and report["seconds"] < WHOLE_RUN_LIMIT
    assert {scenario["name"] for scenario in report["scenarios"]} == NAMES
    for scenario in report["scenarios"]:
        if scenario["name"] in HARMLESS:
            assert (scenario["verdict"], scenario["findings"]) == ("silent", [])
        elif scenario["verdict"] != "skipped":
            assert scenario["verdict"] == "found"
            assert all(expected["seconds"] >= 0 for expected in scenario["expected"])
        for finding in scenario["findings"]:
            if finding["event"]["eventType"] == "reverse-shell":
                assert "FOREIGN" in finding["wiring"], finding


def test_one_scenario_as_text_in_a_pipe(nothing_left):
    done = run_demo("--only", "bash-on-socket")
    text = done.stdout.decode()
    assert done.returncode == 0, text + done.stderr.decode()
    assert "\033" not in text and "\r" not in text
    assert re.search(r"^ +[\d.]+ s  staged  bash-on-socket: ", text, re.MULTILINE)
    assert re.search(r"^ +[\d.]+ s  FOUND   bash-on-socket by instant scan, ", text, re.MULTILINE)
    assert re.search(r"└─ 0,1,2  socket:\[\d+\]  tcp 198\.18\.0\.1:\d+ - 198\.18\.0\.2:\d+  FOREIGN", text)
    assert re.search(r"^ok +bash-on-socket +instant scan +instant scan +[\d.]+$", text, re.MULTILINE)
    assert "1 of 1 scenarios as expected" in text
    assert "two-relays" not in text


def test_several_scenarios_are_staged_together(nothing_left):
    done = run_demo("--json", "--only", "shell-rename", "--only", "shell-chmod")
    report = json.loads(done.stdout)
    assert done.returncode == 0
    assert [scenario["name"] for scenario in report["scenarios"]] == ["shell-chmod", "shell-rename"]


def test_terminal_gets_colours_and_a_status_line(nothing_left):
    control, terminal = pty.openpty()
    child = subprocess.Popen(
        [PROGRAM, "demo", "--only", "bash-on-socket"], stdin=terminal, stdout=terminal, env=environment(TERM="xterm")
    )
    os.close(terminal)
    text = b""
    with contextlib.suppress(OSError):  # raised once the other side of the terminal is closed
        while block := os.read(control, 4096):
            text += block
    os.close(control)
    assert child.wait(END_LIMIT) == 0, text
    assert b"\r\033[K" in text and b"period scan in " in text
    assert b"\033[32mok" in text


def test_list_shows_every_scenario_without_rights():
    done = run_to_end("demo", "--list")
    assert done.returncode == 0
    assert {line.split()[0] for line in done.stdout.decode().splitlines()} == NAMES


def test_unknown_scenario_is_refused_with_its_name():
    done = run_to_end("demo", "--only", "bash-on-sockets")
    assert (done.returncode, done.stdout) == (2, b"")
    assert "bash-on-sockets" in done.stderr.decode() and "--list" in done.stderr.decode()


def test_missing_demonstration_program_is_reported_with_its_path(copied_program):
    missing = copied_program.parent / "orlim-demo"
    missing.unlink()
    done = run_to_end("demo", program=copied_program)
    assert done.returncode == 1
    assert f"orlim-agent: cannot start the demonstration {missing}: No such file" in done.stderr.decode()


def test_demonstration_requires_root(copied_program):
    done = run_to_end("demo", program=copied_program, user=NOBODY, group=NOBODY, extra_groups=[])
    assert (done.returncode, done.stdout) == (1, b"")
    assert re.fullmatch(r"orlim-agent: the demonstration needs root.*\n", done.stderr.decode())


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_interrupted_demonstration_leaves_nothing(running, number):
    interfaces_before = interfaces()
    running.wait_until_staged()
    children = processes_of(running.child.pid)
    assert len(children) > len(NAMES)
    began = time.monotonic()
    running.child.send_signal(number)
    assert running.child.wait(END_LIMIT) == 1
    assert time.monotonic() - began < END_LIMIT
    assert b"nothing is left behind" in running.child.stdout.read()
    assert not os.path.exists(running.folder)
    assert not processes_in(running.folder)
    assert all(has_ended(pid) for pid in children)
    assert interfaces() == interfaces_before


def test_killed_demonstration_leaves_nothing(running):
    interfaces_before = interfaces()
    running.wait_until_staged()
    processes = processes_of(running.child.pid)
    assert len(processes) > len(NAMES)
    running.child.kill()
    running.child.wait()
    wait_until(lambda: all(has_ended(pid) for pid in processes), "all its processes have ended")
    assert not os.path.exists(running.folder)
    assert interfaces() == interfaces_before


def test_long_command_line_of_the_caller_does_not_delay_it(nothing_left):
    """The module reads the command lines of a suspect's ancestors at half a millisecond per byte."""
    call = "import subprocess, sys; sys.exit(subprocess.run(sys.argv[2:]).returncode)"
    words = [sys.executable, "-c", call, "x" * 100_000, str(PROGRAM), "demo", "--only", "bash-on-socket"]
    done = subprocess.run(words, env=environment(), capture_output=True, timeout=scaled(WHOLE_RUN_LIMIT))
    assert done.returncode == 0, done.stdout.decode()


def test_stagehand_is_not_a_command():
    done = run_to_end("demo", "stagehand")
    assert (done.returncode, done.stdout) == (2, b"")
    assert "orlim-agent demo" in done.stderr.decode()
