"""On a host that lacks a right or a facility the agent names the blind detections with the reason, and all other
detections work."""

import contextlib
import dataclasses
import os
import pathlib
import re
import shutil
import subprocess

import pytest

import stacks
from agent import PROGRAM, Agent, environment, is_of_instant_scan, is_of_period_scan, run_to_end, write_config
from campaign import Campaign
from instant_attacks import FOUND, READING, Site
from published import PUBLISHED
from stage import BASH, ON_LINE, Process, Stage, tcp
from test_shell_files import IMMUTABLE, NOBODY, set_flags
from waiting import wait_until

PERIOD_SCAN = PUBLISHED.periodScan
WAITS = {
    *(PUBLISHED.instantScanOnSocket, PUBLISHED.instantScanByRelay, PUBLISHED.instantScanByDescendant),
    *(PUBLISHED.instantScanByRawSocket, PUBLISHED.shortCommandWatcher),
}
TERMINAL = PUBLISHED.instantScanOnTerminal
REVERSE_SHELLS = {PERIOD_SCAN, TERMINAL, *WAITS}
CHANGE, FLAGS, COPY = PUBLISHED.shellFileChange, PUBLISHED.shellFileFlags, PUBLISHED.shellFileCopy
OF_PROCESS_EVENTS = {TERMINAL, COPY, *WAITS}
PYTHONS_TERMINAL = "Python's terminal"
PASS_LIMIT = 60
SHELL_EVENT_LIMIT = 10


def without(*capabilities):
    return ("setpriv", "--bounding-set", ",".join(f"-{name}" for name in capabilities))


def after(script, *unshare):
    """A wrapper that runs the script in a new namespace and then the program."""
    return ("unshare", *unshare, "sh", "-ec", f'{script}; exec "$@"', "sh")


# Mounts a new instance of /proc: changing an option of the mounted one would affect the whole host.
HIDING = "mount -t proc -o hidepid=2 proc /proc"
OWN_PID_NAMESPACE = ("unshare", "--pid", "--fork", "--kill-child", "--mount-proc")


@dataclasses.dataclass(frozen=True)
class Lack:
    wrapper: tuple
    blind: set
    because: str = ""  # part of every reason
    status: int = 0
    environment: dict = dataclasses.field(default_factory=dict)
    needs_channels: bool = False  # waits are seen by wchan alone
    module: dict = dataclasses.field(default_factory=lambda: {"abnormalShell": {}, "reverseShell": {}})


LACKS = {
    "nothing": Lack((), set()),
    "CAP_SYS_ADMIN": Lack(without("sys_admin"), {FLAGS}, "CAP_SYS_ADMIN", needs_channels=True),
    "CAP_SYS_PTRACE": Lack(without("sys_ptrace"), {COPY, *REVERSE_SHELLS}, "CAP_SYS_PTRACE is missing", 1),
    "CAP_DAC_READ_SEARCH": Lack(
        without("dac_read_search", "dac_override"), REVERSE_SHELLS, "CAP_DAC_READ_SEARCH is missing"
    ),
    "CAP_DAC_READ_SEARCH, but not CAP_DAC_OVERRIDE": Lack(without("dac_read_search"), set()),
    "processes outside a PID namespace": Lack(OWN_PID_NAMESPACE, {COPY, *REVERSE_SHELLS}, "PID namespace"),
    "process events in a PID namespace": Lack(
        ("unshare", "--pid", "--fork", "--kill-child"), OF_PROCESS_EVENTS, "only to the initial PID namespace"
    ),
    "rights of a user namespace": Lack(("unshare", "-Ur"), {COPY, FLAGS, *REVERSE_SHELLS}),
    "connections outside a network namespace": Lack(("unshare", "--net"), {COPY, *REVERSE_SHELLS}, "network namespace"),
    "processes hidden": Lack(
        (*after(HIDING, "--mount"), *without("sys_ptrace")), {COPY, *REVERSE_SHELLS}, "mounted with hidepid=", 1
    ),
    "processes hidden from others": Lack(after(HIDING, "--mount"), set()),
    "connection tables": Lack(
        after("mount -t proc -o subset=pid proc /proc", "--mount"), REVERSE_SHELLS, "/proc/net/tcp cannot be read", 1
    ),
    "inotify": Lack(
        after("echo 0 > /proc/sys/user/max_inotify_instances", "-Ur"), {CHANGE, COPY, FLAGS, *REVERSE_SHELLS}, "", 1
    ),
    "AGENT_LOCATION unset": Lack(
        (), REVERSE_SHELLS, "AGENT_LOCATION is set", environment={PUBLISHED.locationVariable: "1"}
    ),
    "CAP_SYS_ADMIN, only shell files on": Lack(without("sys_admin"), {FLAGS}, module={"abnormalShell": {}}),
    "CAP_SYS_ADMIN, only reverse shells on": Lack(
        without("sys_admin"), set(), module={"reverseShell": {}}, needs_channels=True
    ),
}


@pytest.fixture(scope="module")
def always_blind():
    """The detections that are blind on this host even with all rights."""
    return set() if stacks.waits_are_seen() else WAITS


@pytest.fixture(params=list(LACKS.values()), ids=list(LACKS))
def lack(request, tmp_path):
    """The case, and the arguments and options for the agent."""
    case = request.param
    if case.needs_channels and not stacks.channels_are_shown():
        pytest.skip("this kernel does not name waits in /proc/<pid>/wchan")
    done = subprocess.run([*case.wrapper, "true"], capture_output=True, text=True)
    if done.returncode != 0:
        pytest.skip(f"this host does not allow it: {done.stderr.strip()}")
    config = write_config(tmp_path, {"module": case.module})
    return case, ("--config", str(config)), {"env": environment(**case.environment)}


def run_wrapped(wrapper, *arguments, **options):
    """Runs the agent with the wrapper; returns its exit status and standard output."""
    command = [*wrapper, PROGRAM, *arguments]
    done = run_to_end(*command[1:], program=command[0], **options)
    return done.returncode, done.stdout.decode()


def check(wrapper, *arguments, **options):
    return run_wrapped(wrapper, "check", *arguments, **options)


def blind_lines(text):
    return dict(re.findall(r"\bblind: (.+?): because (.+)", text))


def assert_blind(lines, case, always_blind):
    functions = (REVERSE_SHELLS if "reverseShell" in case.module else set()) | (
        {CHANGE, FLAGS, COPY} if "abnormalShell" in case.module else set()
    )
    assert set(lines) == (case.blind | always_blind) & functions
    for name in case.blind:
        assert case.because in lines[name]


def test_check_lists_blind_detections_with_reasons(lack, always_blind):
    case, arguments, options = lack
    status, text = check(case.wrapper, *arguments, **options)
    assert_blind(blind_lines(text), case, always_blind)
    last = text.splitlines()[-1]
    assert last.startswith("blind: ") if blind_lines(text) else last == "no detection is blind"
    assert status == case.status, text


def test_run_logs_each_blind_detection_once(lack, always_blind):
    case, arguments, options = lack
    with Agent(*arguments, wrapper=case.wrapper, **options) as agent:
        agent.wait_until_started()
        before_start = agent.log().partition("the module was started")[0]
        assert_blind(blind_lines(before_start), case, always_blind)
        warnings = [line for line in agent.log().splitlines() if "blind: " in line]
        assert len(warnings) == len(blind_lines(before_start))
        assert all(" warning " in line for line in warnings)


@pytest.fixture(scope="module")
def shell_of_nobody(attacker):
    """A reverse shell of another user than the agent's; yields the text that identifies it in events."""
    as_nobody = ("setpriv", "--reuid", str(NOBODY), "--clear-groups", "--inh-caps", "-all")
    arguments = ("bash", "-s", "blindness")
    process = Process(ON_LINE, run=(shutil.which("setpriv"), *as_nobody, *arguments), becomes=arguments)
    with Stage({"line": tcp(attacker.tcp)}, {"shell": process}) as stage:
        wait_until(lambda: os.readlink(f"/proc/{stage.pid}/exe") == BASH, "the shell runs")
        yield f'"pid":{stage.pid},'


def test_period_scan_finds_a_shell_unless_it_is_blind(lack, shell_of_nobody):
    case, arguments, options = lack
    if case.environment or "reverseShell" not in case.module:
        pytest.skip("orlim-agent refuses a scan in this case")
    status, events = run_wrapped(case.wrapper, "scan", *arguments, **options)
    assert status == 0
    assert (shell_of_nobody in events) == (PERIOD_SCAN not in case.blind)


def test_check_gives_a_remedy_in_every_line_that_is_not_ok():
    text = check(without("sys_admin", "sys_ptrace", "net_admin"))[1]
    lines = [line for line in text.splitlines() if line.startswith(("LIMITED", "MISSING"))]
    assert lines
    for line in lines:
        assert re.search(r"\. [A-Z][^.]+", line), line


def test_check_names_shell_and_detection_if_flags_are_unreadable(tmp_path, always_blind):
    shell = tmp_path / "volume" / "sh"
    shell.parent.mkdir()
    (tmp_path / "default_shells").write_text(f"{shell}\n")
    config = write_config(tmp_path, {"settings": {"TAVORIN_ETC": str(tmp_path)}})
    # ramfs has no flags. The mount disappears with the namespace.
    wrapper = after(f"mount -t ramfs none {shell.parent}; cp /bin/sh {shell}", "--mount")
    lines = blind_lines(check(wrapper, "--config", config)[1])
    assert set(lines) == {FLAGS, *always_blind}
    assert str(shell) in lines[FLAGS]


def test_check_reports_all_detections_blind_without_shells(tmp_path):
    config = write_config(tmp_path, {"settings": {"TAVORIN_ETC": str(tmp_path)}})
    wrapper = after("mount --bind /dev/null /etc/shells", "--mount")
    status, text = check(wrapper, "--config", config)
    assert status == 1
    assert set(blind_lines(text)) == {CHANGE, FLAGS, COPY, *REVERSE_SHELLS}


def watched_shell(directory):
    """A shell whose content no other file has, listed in the directory's default_shells."""
    shell = directory / "watched"
    shell.write_bytes(pathlib.Path(os.path.realpath("/bin/sh")).read_bytes() + b"\nblindness")
    shell.chmod(0o755)
    with (directory / "default_shells").open("a", encoding="utf-8") as file:
        file.write(f"{shell}\n")
    return shell


def kinds_of(agent, shell):
    """The kind of each event about the shell: the type of the attribute, or otherwise the operation."""
    contents = [event["eventContent"] for event in agent.events() if event["eventType"] == "abnormal-shell"]
    return [
        content["attribute"][0]["type"] if "attribute" in content else content["operationType"]
        for content in contents
        if content["path"] == str(shell)
    ]


def wait_for_kind(agent, shell, kind):
    agent.wait_until(lambda: kind in kinds_of(agent, shell), f"an event of {kind}", SHELL_EVENT_LIMIT)


@contextlib.contextmanager
def running_copy(shell):
    copy = shell.with_suffix(".copy")
    shutil.copy2(shell, copy)
    child = subprocess.Popen(["other", "-s"], executable=copy, stdin=subprocess.PIPE)
    try:
        yield
    finally:
        child.kill()
        child.wait()


@contextlib.contextmanager
def immutable(shell):
    try:
        set_flags(shell, IMMUTABLE)
    except OSError as error:
        pytest.skip(f"the file system of {shell.parent} has no such flags: {error}")
    try:
        yield
    finally:
        set_flags(shell, 0)


def test_without_stacks_and_fanotify_all_other_detections_work(attacker, open_directory):
    """The detection that is listed as blind reports nothing, and waits are seen by wchan."""
    if not stacks.channels_are_shown():
        pytest.skip("this kernel does not name waits in /proc/<pid>/wchan")
    site = Site(attacker, open_directory)
    shell = watched_shell(open_directory)
    config = {"settings": {"TAVORIN_ETC": str(open_directory)}, "events": {"perMinuteLimit": 0}}
    with Agent("--config", write_config(open_directory, config), wrapper=without("sys_admin")) as agent:
        agent.wait_until_started()
        attacks = {name: FOUND[name](site) for name in (PYTHONS_TERMINAL, READING)}
        with immutable(shell), Campaign(attacker, attacks) as campaign:
            campaign.order(attacks)
            on_terminal, reading = (campaign.staged[name].pid for name in attacks)
            agent.wait_for_event(on_terminal, PASS_LIMIT, is_of_instant_scan)
            with running_copy(shell):
                wait_for_kind(agent, shell, "copy")
            agent.wait_for_event(reading, PASS_LIMIT, is_of_period_scan)
            agent.wait_for_event(reading, PASS_LIMIT, is_of_instant_scan)
        shell.chmod(0o700)
        wait_for_kind(agent, shell, "permission")
        assert "ext2_flag" not in kinds_of(agent, shell)
        assert agent.end()[0] == 0


def test_without_net_admin_copies_are_reported_unless_listed_as_blind(open_directory):
    """Linux 6.6 and later send process events to unprivileged processes; earlier versions do not."""
    shell = watched_shell(open_directory)
    config = write_config(open_directory, {"settings": {"TAVORIN_ETC": str(open_directory)}})
    named = COPY in blind_lines(check(without("net_admin"), "--config", config)[1])
    with Agent("--config", config, wrapper=without("net_admin")) as agent:
        agent.wait_until_started()
        with running_copy(shell):
            if not named:
                wait_for_kind(agent, shell, "copy")
            shell.chmod(0o700)
            wait_for_kind(agent, shell, "permission")
        assert ("copy" in kinds_of(agent, shell)) != named


def test_shell_files_are_watched_in_a_pid_namespace(open_directory):
    shell = watched_shell(open_directory)
    config = {"settings": {"TAVORIN_ETC": str(open_directory)}, "events": {"perMinuteLimit": 0}}
    with Agent("--config", write_config(open_directory, config), wrapper=OWN_PID_NAMESPACE) as agent:
        agent.wait_until_started()
        shell.chmod(0o700)
        wait_for_kind(agent, shell, "permission")
        with immutable(shell):
            wait_for_kind(agent, shell, "ext2_flag")
