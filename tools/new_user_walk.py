#!/usr/bin/python3
"""Runs every command of README and docs/ on a fresh Debian 12 and reports those that do not work as described.

Needs root, debootstrap and git. The fresh Debian is a tree in a temporary directory with the processes and the network
of this machine. It clones the last commit of this repository. Takes as long as packages and build take; removes
everything at the end.
"""

import argparse
import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.append(str(ROOT / "tests/e2e"))
sys.dont_write_bytecode = True

import documented_commands
from attacker import Attacker
from fresh_debian import INTERRUPTED, FreshDebian, heed_signals, in_mount_namespace
from stage import ON_LINE, reverse_shell, shell

REPOSITORY = "/srv/orlim.git"  # in the tree
BUILD_LIMIT = 3600
FIND_LIMIT = 60
END_LIMIT = 30

# Placeholders in commands, and their values.
PLACEHOLDERS = {
    r"<this repository>": lambda walk: REPOSITORY,
    r"\b(?:PID|4711)\b": lambda walk: str(walk.victim.pid),
    r"\bFILE\b": lambda walk: "/etc/orlim/orlim-agent.json",
}
# The expected output of a command, besides exit status 0.
SAYS = {
    "./dev agent scan": '"pid":{pid},',
    "./dev agent demo": r"(\d+) of \1 \w+ as expected",
    "./dev agent explain PID": r"^bash \({pid}\)(?s:.*)FOREIGN(?s:.*)^It would be reported by: period scan",
    "./dev agent check": "^OK +module",
    "./dev install": "orlim-agent.8$",
    "orlim-agent check": "^OK +module",
    "orlim-agent check --config FILE": "^OK +configuration: /etc/orlim/orlim-agent.json",
}
# The file that a command without output has to write, and a text in it.
WRITES = {
    "./dev agent explain PID --dot | dot -Tsvg > wiring.svg": ("wiring.svg", "</svg>"),
    "orlim-agent explain 4711 --dot | dot -Tsvg > 4711.svg": ("{pid}.svg", "</svg>"),
    "orlim-agent scan > findings.jsonl": ("findings.jsonl", '"pid":{pid},'),
}
WATCHES = re.compile(r"(?:\./dev|orlim-agent) run\b")
NOT_RUN = {
    "./dev test": "for those who change the code; continuous integration runs it",
    "./dev package": "needs the cross compiler for 32-bit ARM too; the package for amd64 is built",
    "apt-get remove orlim-agent": "would remove what the other pages need; tests/package does it",
    "apt-get purge orlim-agent": "as above",
    "./dev package armhf --test": "needs an emulator and a kernel of 32-bit ARM",
    "./dev kernels": "needs emulators and kernels of other releases, and a quarter of an hour",
    "./dev kernels amd64-6.1 armhf-6.1": "as above",
    "./dev kernels --write": "as above",
    "./dev bench idle": "as above, and an hour",
    "./dev bench idle --write": "as above",
    "./dev bench idle armhf-6.1 --minutes 2": "as above, without the hour",
    "./dev bench --write": "measures for many minutes, and needs the machine for itself",
    "./dev bench --only PART": "as above",
    "./dev bench --help": "as above",
    "./dev bench sizes --write": "needs the cross compiler for 32-bit ARM too",
    "./dev lint": "for those who change the code: static analysis takes longer than all else here",
    "./dev fuzz": "for those who change the code: builds with another compiler, then takes a minute per parser",
}


class Failure(Exception):
    pass


def child_named(pid, name):
    """The process itself or its descendant with this name, or None."""
    try:
        if pathlib.Path(f"/proc/{pid}/comm").read_text().strip() == name:
            return pid
        children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    except OSError:
        return None
    return next(filter(None, (child_named(int(child), name) for child in children)), None)


class Walk:
    def __init__(self, tree, folder):
        self._tree = tree
        self._output = folder / "output"
        self._log = folder / "log"
        self._directory = "/root"
        self.victim = None  # a shell of the tree that takes commands from another host

    def stage_attack(self, attacker):
        bash = self._tree.root / "usr/bin/bash"
        self.victim = reverse_shell(attacker, shell("new-user-walk", ON_LINE, program=bash))

    def _fill(self, text):
        return text.replace("{pid}", str(self.victim.pid))

    def _start(self, command):
        for pattern, value in PLACEHOLDERS.items():
            command = re.sub(pattern, value(self), command)
        if re.search(r"<[a-z ]+>|\b[A-Z]{3,}\b", command):
            raise Failure("holds a placeholder that this script does not know")
        # The next command starts in the directory in which this one ends, as in a terminal.
        script = f"trap 'pwd > /tmp/walk-directory' EXIT; set -o pipefail\n{command}"
        with open(self._output, "wb") as output, open(self._log, "wb") as log:
            return self._tree.start(script, self._directory, stdout=output, stderr=log)

    def _end(self, child, limit):
        try:
            status = child.wait(limit)
        except subprocess.TimeoutExpired:
            os.killpg(child.pid, signal.SIGKILL)
            child.wait()
            raise Failure(f"does not end within {limit} seconds\n{self._said()}") from None
        self._directory = (self._tree.root / "tmp/walk-directory").read_text().strip()
        if status != 0:
            raise Failure(f"ends with status {status}\n{self._said()}")

    def _said(self):
        texts = (path.read_text(encoding="utf-8", errors="replace") for path in (self._output, self._log))
        return "\n".join(texts)

    def _await(self, child, condition, what, limit):
        deadline = time.monotonic() + limit
        while not condition():
            if child.poll() is not None or time.monotonic() > deadline:
                raise Failure(f"{what}: not within {limit} seconds, or it has ended before\n{self._said()}")
            time.sleep(0.1)

    def _watch(self, child):
        """Waits until the shell is found, then interrupts the agent as Ctrl-C does."""
        started = "the module was started"
        self._await(child, lambda: started in self._said(), started, BUILD_LIMIT)
        self._await(child, lambda: f'"pid":{self.victim.pid},' in self._said(), "a finding", FIND_LIMIT)
        os.kill(child_named(child.pid, "orlim-agent"), signal.SIGINT)
        self._end(child, END_LIMIT)

    def run(self, command):
        """Runs the command and checks its result. Raises Failure."""
        child = self._start(command)
        try:
            if WATCHES.search(command):
                self._watch(child)
            else:
                self._end(child, BUILD_LIMIT)
        finally:
            if child.poll() is None:
                os.killpg(child.pid, signal.SIGKILL)
                child.wait()
        if command in SAYS and not re.search(self._fill(SAYS[command]), self._said(), re.MULTILINE):
            raise Failure(f"does not say {SAYS[command]}\n{self._said()}")
        if command in WRITES:
            file, text = map(self._fill, WRITES[command])
            written = self._tree.root / self._directory.lstrip("/") / file
            if not written.exists() or text not in written.read_text(encoding="utf-8"):
                raise Failure(f"does not write {text} into {file}")

    def check_configuration(self, text):
        """Checks that the agent accepts a configuration from a document."""
        (self._tree.root / "root/shown.json").write_text(text, encoding="utf-8")
        self.run("orlim-agent check --config /root/shown.json")


def steps(walk):
    """All steps in the order of the documents, as (document, title, function)."""
    for document, command in documented_commands.commands():
        if command not in NOT_RUN:
            yield document, command, lambda command=command: walk.run(command)
    for document, text in documented_commands.blocks("jsonc"):
        yield document, "the configuration that it shows", lambda text=text: walk.check_configuration(text)


def check_tables():
    """Ends the program if a table above has a command that no document shows."""
    shown = {command for _, command in documented_commands.commands()}
    stale = sorted({*SAYS, *WRITES, *NOT_RUN} - shown)
    hidden = documented_commands.hidden_commands()
    if stale or hidden:
        raise SystemExit(f"shown by no document: {stale}; in a block that is not marked sh: {hidden}")


def fresh_tree(tree):
    tree.build()
    repository = tree.root / REPOSITORY.lstrip("/")
    subprocess.run(["git", "clone", "-q", "--bare", "--no-hardlinks", ROOT, repository], check=True)
    tree.mount()


def timed(what, function):
    """Runs the function and prints its result and time. Returns whether it succeeded."""
    began = time.monotonic()
    result = "ok"
    try:
        function()
    except Failure as failure:
        result = f"FAILED: {failure}"
    print(f"{time.monotonic() - began:7.1f} s  {what}: {result}", flush=True)
    return result == "ok"


def walk_inside(folder):
    """Runs inside the mount namespace. Returns the exit status."""
    tree = FreshDebian(folder / "tree")
    with contextlib.ExitStack() as stack:
        stack.callback(tree.end_processes)
        timed("a fresh Debian 12", lambda: fresh_tree(tree))
        attacker = stack.enter_context(contextlib.closing(Attacker()))
        walk = Walk(tree, folder)
        walk.stage_attack(attacker)
        stack.callback(walk.victim.close)
        results = [timed(f"{document}: {what}", function) for document, what, function in steps(walk)]
    for command, reason in NOT_RUN.items():
        print(f"  not run  {command}: {reason}")
    return 0 if all(results) else 1


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--inside", type=pathlib.Path, help=argparse.SUPPRESS)
    options = parser.parse_args()
    heed_signals()
    if options.inside:
        try:
            return walk_inside(options.inside)
        except KeyboardInterrupt:
            return INTERRUPTED
    check_tables()
    for program in ("debootstrap", "git", "unshare", "ip"):
        if shutil.which(program) is None:
            raise SystemExit(f"needs {program}")
    if os.geteuid() != 0:
        raise SystemExit("needs root: it mounts, and enters the tree")
    return in_mount_namespace([sys.executable, __file__, "--inside"], "orlim-walk-")


if __name__ == "__main__":
    sys.exit(main())
