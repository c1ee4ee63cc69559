"""Measures how a storm of short commands delays process events to the module, and the detection of an attack."""

import contextlib
import json
import pathlib
import queue
import subprocess
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "e2e"))

import tables  # noqa: E402
from attacker import Attacker  # noqa: E402
from children import end_child  # noqa: E402
from stage import BASH, ON_LINE, Process, reverse_shell  # noqa: E402

FIRST_PASS_SECONDS = 22  # after the first pass of the period scan; the next one is a day later
STORM_SECONDS = 10  # before the attack; the storm goes on until the attack is reported
PATIENCE_SECONDS = 45  # from the attack on


class Watch:
    """The module on the agent's services, in a separate process."""

    def __init__(self, build):
        module = build / "lib" / "liborlim_detect-shell.so"
        self._child = subprocess.Popen(
            [build / "bin" / "storm_watch", module],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
            env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"},
        )
        self._counters: queue.Queue = queue.Queue()
        self._changed = threading.Condition()
        self._reported = {}  # time of the report by PID
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        for line in self._child.stdout:
            said = json.loads(line)
            if "received" in said:
                self._counters.put(said)
            else:
                with self._changed:
                    self._reported.setdefault(said["eventContent"]["pid"], time.monotonic())
                    self._changed.notify_all()

    def counters(self):
        self._child.stdin.write("\n")
        self._child.stdin.flush()
        return self._counters.get(timeout=60)

    def wait_for_report(self, pid, deadline):
        """The time of the report; None if there is none before the deadline."""
        with self._changed:
            self._changed.wait_for(lambda: pid in self._reported, deadline - time.monotonic())
            return self._reported.get(pid)

    def close(self):
        end_child(self._child, limit=60)


class Storm:
    def __init__(self, build, rate, length, alive):
        programs = build / "bin"
        self._child = subprocess.Popen(
            [programs / "exec_storm", programs / "short_command", str(rate), str(length), str(alive)],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
        )

    def end(self):
        """Ends the storm and returns the commands per second that it reached."""
        said = json.loads(self._child.communicate(timeout=60)[0])
        return said["started"] / said["seconds"]

    def close(self):
        end_child(self._child)


def greatest_age(callbacks, kind):
    """The greatest age in the callback for events of this kind, which is the one that spends its time on them."""
    other = {"fork": "exec", "exec": "fork"}[kind]
    return max(
        (each["greatestAge"] for each in callbacks if each[f"{kind}Seconds"] > each[f"{other}Seconds"]), default=0.0
    )


def measure(build, attacker, rate, length, alive):
    with contextlib.ExitStack() as cleanup:
        watch = Watch(build)
        cleanup.callback(watch.close)
        time.sleep(FIRST_PASS_SECONDS)
        before = watch.counters()
        storm = Storm(build, rate, length, alive)
        cleanup.callback(storm.close)
        time.sleep(STORM_SECONDS)
        at_attack = watch.counters()
        began = time.monotonic()
        attack = cleanup.enter_context(reverse_shell(attacker, Process(ON_LINE, run=(BASH, "bash", "-i"))))
        attacker.converse(attack.local_port(), "id; echo done\n", "done")
        reported = watch.wait_for_report(attack.pid, began + PATIENCE_SECONDS)
        achieved = storm.end()
        after = watch.counters()
    return {
        "rate": rate,
        "length": length,
        "alive": alive,
        "achieved": achieved,
        "queued": at_attack["queued"],
        "forkAge": greatest_age(at_attack["callbacks"], "fork"),
        "execAge": greatest_age(at_attack["callbacks"], "exec"),
        "cpu": (at_attack["cpuSeconds"] - before["cpuSeconds"]) / STORM_SECONDS,
        "delay": f"{reported - began:.1f}" if reported else f"not in {PATIENCE_SECONDS}",
        "overflowed": after["overflowed"],
        "kernelLosses": after["kernelLosses"],
    }


def measure_all(build):
    attacker = Attacker()
    try:
        return [measure(build, attacker, *storm) for storm in tables.STORMS]
    finally:
        attacker.close()
