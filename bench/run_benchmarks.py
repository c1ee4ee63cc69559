#!/usr/bin/python3
"""Runs the benchmarks and prints their tables.

Each pass is measured in a pid and a network namespace of its own, so that the host that it sees is the staged one.
"""

import argparse
import json
import os
import pathlib
import subprocess
import sys

import exec_storm

ADDRESS = "192.0.2.1"
PASSES = 5
PROCESSES = (100, 1000, 5000)
CONNECTIONS = (100, 1000, 10000)
DESCRIPTORS = (10, 200)
RUNS = 9

PASS_COLUMNS = (
    ("processes", "processes", "{:d}"),
    ("connections", "connections", "{:d}"),
    ("shells", "shells", "{:d}"),
    ("wallMs", "wall ms", "{:.1f}"),
    ("pausedMs", "pauses ms", "{:.1f}"),
    ("ownMs", "ours ms", "{:.1f}"),
    ("share", "ours of pass", "{:.1%}"),
    ("cpuMs", "CPU ms", "{:.1f}"),
    ("peakMiB", "peak MiB", "{:.1f}"),
)
REFRESH_COLUMNS = (
    ("sockets", "sockets", "{:d}"),
    ("pausedMs", "pauses ms", "{:.1f}"),
    ("cpuMs", "CPU ms", "{:.2f}"),
    ("sleptCpuMs", "CPU ms with sleeps", "{:.1f}"),
    ("share", "CPU of refresh", "{:.1%}"),
    ("peakMiB", "peak MiB", "{:.1f}"),
)
SNAPSHOT_COLUMNS = (
    ("descriptors", "descriptors", "{:d}"),
    ("pausedMs", "pauses ms", "{:.1f}"),
    ("cpuMs", "CPU ms", "{:.2f}"),
    ("sleptCpuMs", "CPU ms with sleeps", "{:.1f}"),
    ("share", "CPU of snapshot", "{:.1%}"),
)


def run_in_own_host(build, program, *arguments):
    inside = f'ip link set lo up && ip address add {ADDRESS}/32 dev lo && exec "$0" "$@"'
    command = [
        "unshare",
        "--pid",
        "--fork",
        "--kill-child",
        "--mount-proc",
        "--net",
        "sh",
        "-c",
        inside,
        str(build / "bin" / program),
        *map(str, arguments),
    ]
    return json.loads(subprocess.run(command, check=True, capture_output=True, text=True, timeout=600).stdout)


def measure_pass(build, processes, connections, shells):
    result = run_in_own_host(build, "pass_cost", processes, connections, shells, PASSES, ADDRESS)
    result["share"] = result["ownMs"] / result["wallMs"]
    return result


def measure_inspection(build, *arguments):
    result = run_in_own_host(build, "inspect_cost", *arguments)
    result["share"] = result["sleptCpuMs"] / (result["sleptCpuMs"] + result["pausedMs"])
    return result


def print_table(columns, rows):
    cells = [[title for _, title, _ in columns]]
    cells += [[form.format(row[key]) for key, _, form in columns] for row in rows]
    widths = [max(len(line[i]) for line in cells) for i in range(len(columns))]
    for number, line in enumerate(cells):
        print("| " + " | ".join(cell.rjust(width) for cell, width in zip(line, widths)) + " |")
        if number == 0:
            print("|" + "|".join("-" * (width + 1) + ":" for width in widths) + "|")


def measure_passes(build):
    rows = [
        measure_pass(build, processes, connections, shells)
        for shells in (0, 1)
        for processes in PROCESSES
        for connections in CONNECTIONS
    ]
    print("One pass of the period scan. With a shell, every process is a sibling of it and joins the graph.\n")
    print_table(PASS_COLUMNS, rows)


def measure_inspections(build):
    print("\nOne refresh of the socket table\n")
    print_table(
        REFRESH_COLUMNS, [measure_inspection(build, "sockets", sockets, RUNS, ADDRESS) for sockets in CONNECTIONS]
    )
    print("\nOne snapshot of a process\n")
    print_table(
        SNAPSHOT_COLUMNS, [measure_inspection(build, "snapshot", descriptors, RUNS) for descriptors in DESCRIPTORS]
    )
    shell = run_in_own_host(build, "inspect_cost", "shell", RUNS)
    print(
        f"\nIs a file a shell: {shell['missMs'] * 1000:.2f} µs where its size tells, {shell['hitMs']:.2f} ms where "
        "1 MiB is read"
    )


def measure_storms(build):
    rows = exec_storm.measure_all(build)
    print(f"\nA storm of short commands; queue, ages and CPU time of its first {exec_storm.STORM_SECONDS} seconds.\n")
    print_table(exec_storm.COLUMNS, rows)


def measure_services(build):
    print("\nServices\n", flush=True)
    subprocess.run([str(build / "bin" / "services_bench")], check=True, timeout=600)


PARTS = {
    "passes": measure_passes,
    "inspection": measure_inspections,
    "storms": measure_storms,
    "services": measure_services,
}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="folder of the release build")
    parser.add_argument("--only", choices=PARTS, help="this part alone")
    arguments = parser.parse_args()
    if os.geteuid() != 0:
        sys.exit("run_benchmarks: needs root, for namespaces of its own")
    build = arguments.build.resolve()
    for name, measure in PARTS.items():
        if arguments.only in (None, name):
            measure(build)


if __name__ == "__main__":
    main()
