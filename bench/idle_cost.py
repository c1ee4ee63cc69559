#!/usr/bin/python3
"""Measures the cost of the agent on an idle host: memory, CPU time per minute, and passes of the period scan.

Starts an agent on this host. ./dev bench idle runs this program on other kernels.
"""

import argparse
import contextlib
import dataclasses
import os
import pathlib
import socket
import subprocess
import sys
import tempfile
import time

import run_benchmarks

PROCESSES = 100
CONNECTIONS = 100
# An address of this host that is foreign to the period scan.
PEER = "127.0.0.2"
MEMORY = ("VmRSS", "RssAnon", "RssFile", "VmHWM")
MAPPED = ("Pss", "AnonHugePages")
# The kernel accounts ticks by sampling. A share of fewer ticks means nothing.
FEWEST_TICKS = 100
START_LIMIT_SECONDS = 60
END_LIMIT_SECONDS = 60
MINUTE = 60
COUNT_TITLE = "processes and kernel threads"


def fields_of(text):
    """The values by name in a file such as /proc/<pid>/status."""
    return {name: value.strip() for name, _, value in (line.partition(":") for line in text.splitlines())}


def number_of(fields, name):
    return int(fields[name].split()[0])


def times_of(stat):
    """Clock ticks in user and in kernel mode. The program's name, in parentheses, may hold anything."""
    values = stat.rpartition(")")[2].split()
    return int(values[11]), int(values[12])


def switches_of(fields):
    return number_of(fields, "voluntary_ctxt_switches") + number_of(fields, "nonvoluntary_ctxt_switches")


@dataclasses.dataclass(frozen=True)
class Sample:
    memory: dict  # KiB by name
    cpu_ns: int  # of all threads, ended ones included
    user_ticks: int
    system_ticks: int
    switches: dict  # context switches by thread


def cpu_clock(pid):
    """The clock of a process, computed like clock_getcpuclockid(3); CPUCLOCK_SCHED in the kernel's posix-timers.h."""
    return ~pid << 3 | 2


def sample(pid):
    process = pathlib.Path(f"/proc/{pid}")
    status = fields_of((process / "status").read_text())
    memory = {name: number_of(status, name) for name in MEMORY}
    mapped = fields_of((process / "smaps_rollup").read_text())
    memory |= {name: number_of(mapped, name) for name in MAPPED}
    threads = (process / "task").iterdir()
    switches = {int(thread.name): switches_of(fields_of((thread / "status").read_text())) for thread in threads}
    user, system = times_of((process / "stat").read_text())
    return Sample(memory, time.clock_gettime_ns(cpu_clock(pid)), user, system, switches)


def milliseconds_between(before, after):
    return (after.cpu_ns - before.cpu_ns) / 1e6


def switches_between(before, after):
    return sum(count - before.switches.get(thread, 0) for thread, count in after.switches.items())


def figures_of(samples):
    """Title and value of each figure. samples has one sample from the start and one from the end of each minute."""
    minutes = len(samples) - 1
    first, last = samples[0], samples[-1]
    figures = {}
    for name in (*MEMORY, *MAPPED):
        for when, taken in (("at the start", first), ("after 1 min", samples[1]), (f"after {minutes} min", last)):
            figures[f"{name} {when}, KiB"] = str(taken.memory[name])
    each = [milliseconds_between(*pair) for pair in zip(samples, samples[1:])]
    figures["CPU of an idle minute, ms"] = f"{sum(each) / minutes:.1f}"
    figures["the least minute, ms"] = f"{min(each):.1f}"
    figures["the greatest minute, ms"] = f"{max(each):.1f}"
    user, system = last.user_ticks - first.user_ticks, last.system_ticks - first.system_ticks
    figures["of it in the kernel"] = f"{system / (user + system):.0%}" if user + system >= FEWEST_TICKS else "-"
    figures["context switches of an idle minute"] = f"{switches_between(first, last) / minutes:.0f}"
    return figures


def figures_of_pass(measured):
    name = f"pass, {measured['processes']} processes{', siblings of a shell' if measured['shells'] else ''}"
    keys = {"wallMs": "wall", "pausedMs": "pauses", "cpuMs": "CPU"}
    return {f"{name}: {title}, ms": f"{measured[key]:.1f}" for key, title in keys.items()}


def titles(minutes):
    """The titles of all figures of a run, in their order."""
    nothing = Sample({name: 0 for name in (*MEMORY, *MAPPED)}, 0, 0, 0, {})
    passes = [{"processes": PROCESSES, "shells": shells, "wallMs": 0, "pausedMs": 0, "cpuMs": 0} for shells in (0, 1)]
    return [
        COUNT_TITLE,
        *figures_of([nothing] * (minutes + 1)),
        *(title for one in passes for title in figures_of_pass(one)),
    ]


def count_of_processes():
    return sum(name.isdigit() for name in os.listdir("/proc"))


@contextlib.contextmanager
def staged_host():
    """Starts sleeping processes up to PROCESSES, and a connection, without which a pass would end at once."""
    with contextlib.ExitStack() as stack:
        listener = stack.enter_context(socket.create_server((PEER, 0)))
        stack.enter_context(socket.create_connection(listener.getsockname()))
        stack.enter_context(listener.accept()[0])
        while count_of_processes() < PROCESSES:
            sleeper = stack.enter_context(subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "sleep", "infinity"]))
            stack.callback(sleeper.kill)
        yield


@contextlib.contextmanager
def running_agent(build, config, folder):
    """The PID of an agent that watches this host."""
    log = folder / "log"
    with open(log, "wb") as errors, open(folder / "events", "wb") as events:
        agent = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", build / "bin/orlim-agent", "run", "--config", config],
            stdin=subprocess.DEVNULL,
            stdout=events,
            stderr=errors,
        )
    try:
        deadline = time.monotonic() + START_LIMIT_SECONDS
        while b"the module was started" not in log.read_bytes():
            if agent.poll() is not None or time.monotonic() > deadline:
                sys.exit(f"idle_cost: the agent does not start:\n{log.read_text(errors='replace')}")
            time.sleep(0.1)
        yield agent.pid
        if agent.poll() is not None:
            sys.exit(f"idle_cost: the agent has ended:\n{log.read_text(errors='replace')}")
        agent.terminate()
        agent.wait(END_LIMIT_SECONDS)
    finally:
        if agent.poll() is None:
            agent.kill()
            agent.wait()
    print(log.read_text(errors="replace") + (folder / "events").read_text(errors="replace"), flush=True)


def watch(pid, minutes):
    began = time.monotonic()
    samples = [sample(pid)]
    for minute in range(1, minutes + 1):
        time.sleep(max(0.0, began + minute * MINUTE - time.monotonic()))
        samples.append(sample(pid))
        memory = " ".join(f"{name} {value}" for name, value in samples[-1].memory.items())
        cost = f"{milliseconds_between(*samples[-2:]):.1f} ms, {switches_between(*samples[-2:])} switches"
        print(f"minute {minute}: {memory} KiB, {cost}, {len(samples[-1].switches)} threads", flush=True)
    return samples


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="folder of the release build")
    parser.add_argument("--config", type=pathlib.Path, required=True, help="configuration of the agent")
    parser.add_argument("--minutes", type=int, default=60, help="how long the agent watches (%(default)s)")
    arguments = parser.parse_args()
    if os.geteuid() != 0:
        sys.exit("idle_cost: needs root, as the agent does")
    build = arguments.build.resolve()
    passes = [run_benchmarks.measure_pass(build, PROCESSES, CONNECTIONS, shells) for shells in (0, 1)]
    with tempfile.TemporaryDirectory(prefix="orlim-idle-cost-") as folder, staged_host():
        with running_agent(build, arguments.config, pathlib.Path(folder)) as pid:
            samples = watch(pid, arguments.minutes)
            processes = count_of_processes()
    figures = {COUNT_TITLE: str(processes), **figures_of(samples)}
    for measured in passes:
        figures |= figures_of_pass(measured)
    for title, value in figures.items():
        print(f"COST\t{title}\t{value}")


if __name__ == "__main__":
    main()
