"""Runs the agent and waits for its events and log lines."""

import datetime
import json
import os
import pathlib
import re
import signal
import subprocess
import threading
import time

import jsonschema

from published import PUBLISHED
from waiting import scaled

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = pathlib.Path(os.environ.get("ORLIM_AGENT", REPOSITORY / "build/release/bin/orlim-agent")).absolute()
LIBRARIES = PROGRAM.parent.parent / "lib"

# The keys of "eventContent" in order: for a reverse shell by detection, for a change of a shell by operation.
PERIOD_SCAN_KEYS = [
    *("pid", "path", "ppid", "parentPath", "cmdline", "parentCmdline"),
    *("localIp", "localPort", "remoteIp", "remotePort"),
]
INSTANT_SCAN_KEYS = [*PERIOD_SCAN_KEYS[:6], "inode", "sourcePath", "hash", *PERIOD_SCAN_KEYS[6:]]
OPERATION_KEYS = {
    "attribute": ["path", "operationType", "attribute"],
    "modify": ["path", "operationType"],
    "delete": ["path", "operationType"],
    "move": ["path", "operationType", "relatedPath"],
    "copy": ["path", "operationType", "command", "relatedPath"],
}
SCHEMAS = {
    name: jsonschema.Draft202012Validator(
        json.loads((REPOSITORY / "docs/schema" / f"{name}.schema.json").read_text(encoding="utf-8")),
        format_checker=jsonschema.FormatChecker(),
    )
    for name in ("reverse-shell", "abnormal-shell")
}
DETAIL = {"level": 0}
END_LIMIT_SECONDS = 15


def environment(**changes):
    kept = {name: value for name, value in os.environ.items() if name != PUBLISHED.locationVariable}
    return {**kept, **changes}


def write_config(directory, config, name="agent.json"):
    """Writes config, an object or the text of an invalid configuration, to a file and returns the path."""
    path = directory / name
    text = config if isinstance(config, str) else json.dumps(config)
    path.write_bytes(text.encode("utf-8", "surrogateescape"))
    return path


def parse_event(line):
    """The event of one line of output. Fails unless the line is a valid event."""
    event = json.loads(line.decode("utf-8"))
    assert list(event) == ["eventType", "eventTime", "eventContent"], line
    assert event["eventType"] in SCHEMAS, line
    SCHEMAS[event["eventType"]].validate(event)
    content = event["eventContent"]
    if event["eventType"] == "reverse-shell":
        assert list(content) in (PERIOD_SCAN_KEYS, INSTANT_SCAN_KEYS), line
    else:
        assert list(content) == OPERATION_KEYS[content["operationType"]], line
    return event


def is_of_instant_scan(event):
    return list(event["eventContent"]) == INSTANT_SCAN_KEYS


def is_of_period_scan(event):
    return list(event["eventContent"]) == PERIOD_SCAN_KEYS


def seconds_of(event):
    """The event's time in seconds since the epoch."""
    return datetime.datetime.fromisoformat(event["eventTime"].replace("Z", "+00:00")).timestamp()


def contents_of(events, pid):
    return [event["eventContent"] for event in events if event["eventContent"].get("pid") == pid]


def run_to_end(*arguments, program=PROGRAM, limit=60, **options):
    """Runs the program until it ends by itself, for at most limit seconds of an ordinary machine."""
    settings = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
    return subprocess.run([program, *arguments], timeout=scaled(limit), **{"env": environment(), **settings, **options})


class Scan:
    """A complete scan: its exit status, log and events."""

    def __init__(self, *arguments, program=PROGRAM, **options):
        done = run_to_end("scan", *arguments, program=program, **options)
        self.status = done.returncode
        self.log = done.stderr.decode("utf-8")
        assert done.stdout == b"" or done.stdout.endswith(b"\n"), done.stdout
        self.events = [parse_event(line) for line in done.stdout.split(b"\n")[:-1]]

    def contents(self, pid):
        return contents_of(self.events, pid)


class Agent:
    """A running agent. Its output is collected in the background, so a wait also finds earlier output."""

    def __init__(self, *arguments, program=PROGRAM, wrapper=(), read_events=True, **options):
        """wrapper is a program, with arguments, that runs the agent, for example unshare(1)."""
        options.setdefault("env", environment())
        self._child = subprocess.Popen(
            # setpriv ends the agent even if the test run is killed.
            ["setpriv", "--pdeathsig", "KILL", *wrapper, program, "run", *arguments],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            **options,
        )
        self._changed = threading.Condition()
        self._event_lines: list[bytes] = []
        self._log_lines: list[bytes] = []
        self._readers = [self._start_reader(self._child.stderr, self._log_lines)]
        if read_events:
            self._readers.append(self._start_reader(self._child.stdout, self._event_lines))
        else:
            self._child.stdout.close()

    def _start_reader(self, stream, lines):
        def read():
            for line in stream:
                with self._changed:
                    lines.append(line)
                    self._changed.notify_all()

        reader = threading.Thread(target=read)
        reader.start()
        return reader

    @property
    def pid(self):
        return self._child.pid

    def events(self):
        with self._changed:
            lines = list(self._event_lines)
        return [parse_event(line) for line in lines]

    def log(self):
        with self._changed:
            return b"".join(self._log_lines).decode("utf-8")

    def contents(self, pid):
        return contents_of(self.events(), pid)

    def runs(self):
        return self._child.poll() is None

    def _wait(self, found, what, limit):
        limit = scaled(limit)
        deadline = time.monotonic() + limit
        with self._changed:
            while not found():
                left = deadline - time.monotonic()
                assert left > 0, f"not within {limit:.1f} seconds: {what}; the log is:\n{self.log()}"
                self._changed.wait(min(left, 1))
                assert self.runs() or found(), f"the agent ended before {what}; the log is:\n{self.log()}"

    def wait_until(self, found, what, limit):
        """Waits until found(), a condition on the events or the log, is true."""
        self._wait(found, what, limit)

    def wait_for_event(self, pid, limit, wanted=lambda event: True):
        """Waits for an event about the process for which wanted(event) is true, and returns its content."""

        def contents():
            return contents_of(filter(wanted, self.events()), pid)

        self._wait(contents, f"an event about process {pid}", limit)
        return contents()[0]

    def wait_for_log(self, pattern, limit=10, count=1):
        self._wait(lambda: len(re.findall(pattern, self.log())) >= count, f"log line {pattern}, {count} times", limit)

    def wait_until_started(self):
        self.wait_for_log("the module was started")

    def send_signal(self, number):
        self._child.send_signal(number)

    def wait_for_end(self):
        """Waits for the end of the agent and of its output; returns the exit status."""
        try:
            status = self._child.wait(scaled(END_LIMIT_SECONDS))
        except subprocess.TimeoutExpired:
            raise AssertionError(f"the agent does not end; the log is:\n{self.log()}") from None
        for reader in self._readers:
            reader.join()
        return status

    def end(self, number=signal.SIGTERM):
        """Sends the signal; returns the exit status and the seconds until the end."""
        began = time.monotonic()
        self.send_signal(number)
        return self.wait_for_end(), time.monotonic() - began

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        if self.runs():
            self._child.kill()
        self._child.wait()
        for reader in self._readers:
            reader.join()
        self._child.stderr.close()
        self._child.stdout.close()
