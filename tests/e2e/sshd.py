"""A login over SSH: a daemon with a separate configuration, keys and port, and a client on the attacker's host.

The daemon runs in a mount namespace with its own accounts, logs and run-time files, so it neither reads nor writes
those of the machine.
"""

import os
import shutil
import socket
import subprocess

from campaign import Staged, processes
from children import end_child
from connections import connection_of
from stage import BASH
from waiting import wait_until

PROGRAM = "/usr/sbin/sshd"
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C"}

SET_UP = """
set -e
mount --bind passwd /etc/passwd
mount --bind shadow /etc/shadow
mount -t tmpfs logs /var/log
mount -t tmpfs run /run
mkdir -m 755 /run/sshd
exec "$@"
"""


def missing():
    names = [name for name in ("ssh", "ssh-keygen") if shutil.which(name) is None]
    return ", ".join(names if os.access(PROGRAM, os.X_OK) else ["sshd", *names])


def free_port(address):
    with socket.create_server((address, 0)) as server:
        return server.getsockname()[1]


class Login:
    """A shell on a terminal of the daemon, which gets its orders from the client."""

    def __init__(self, attacker, directory):
        self._directory = directory
        self._attacker = attacker
        self._port = free_port(attacker.host_ipv4)
        self._daemon = self._client = None
        self._write_files()
        try:
            self._start()
        except BaseException:
            self.close()
            raise

    def _write_files(self):
        for name in ("host", "user"):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", self._directory / name], check=True)
        (self._directory / "authorized").write_bytes((self._directory / "user.pub").read_bytes())
        accounts = [f"root:x:0:0:root:{self._directory}:{BASH}"]
        with open("/etc/passwd", encoding="utf-8") as file:
            accounts += [line.rstrip("\n") for line in file if not line.startswith("root:")]
        (self._directory / "passwd").write_text("\n".join(accounts) + "\n")
        (self._directory / "shadow").write_text("root:*:20000:0:99999:7:::\n")
        (self._directory / "config").write_text(
            f"ListenAddress {self._attacker.host_ipv4}:{self._port}\n"
            f"HostKey {self._directory}/host\n"
            f"AuthorizedKeysFile {self._directory}/authorized\n"
            "PidFile none\nStrictModes no\nUsePAM no\nPermitRootLogin yes\nPrintMotd no\nSetEnv HISTFILE=/dev/null\n"
        )

    def _start(self):
        with open(self._directory / "daemon.log", "wb") as log:
            self._daemon = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "unshare", "--mount", "--propagation", "private"]
                + ["sh", "-c", SET_UP, "sh", PROGRAM, "-D", "-e", "-f", str(self._directory / "config")],
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=log,
                cwd=self._directory,
                env=ENVIRONMENT,
            )
        wait_until(lambda: "listening" in self._log(), f"the daemon listens: {self._log()}")
        self._client = subprocess.Popen(
            ["ip", "netns", "exec", self._attacker.namespace, "ssh", "-F", "/dev/null", "-tt", "-q"]
            + ["-o", "StrictHostKeyChecking=no", "-o", "UserKnownHostsFile=/dev/null", "-o", "IdentitiesOnly=yes"]
            + ["-i", str(self._directory / "user"), "-p", str(self._port), f"root@{self._attacker.host_ipv4}"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            env=ENVIRONMENT,
        )
        self.converse("echo $((6*7))-login\n", "42-login")
        self.staged = wait_until(self._find, "the login has started its shell")

    def _log(self):
        return (self._directory / "daemon.log").read_text()

    def _find(self):
        known = processes()
        sessions = [pid for pid, (_, ppid) in known.items() if ppid == self._daemon.pid]
        for pid, (arguments, ppid) in known.items():
            if arguments == (b"-bash",) and ppid in sessions:
                return Staged(pid, ppid, connection_of(ppid))
        return None

    def converse(self, order, answer):
        self._client.stdin.write(order.encode())
        self._client.stdin.flush()
        received = b""
        while answer.encode() not in received:
            block = os.read(self._client.stdout.fileno(), 4096)
            assert block, f"the login has ended: {received!r} {self._log()}"
            received += block

    def close(self):
        for child in (self._client, self._daemon):
            if child is not None:
                child.terminate()
                end_child(child)
