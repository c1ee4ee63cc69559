#!/usr/bin/python3
"""Runs the benchmarks and prints their tables. Called by ./dev bench.

Each pass is measured in a PID and a network namespace, so that the host that it sees is the staged one.
"""

import argparse
import json
import os
import pathlib
import subprocess
import sys

import exec_storm
import generated
import tables
from tables import COMPARED_CONNECTIONS, COMPARED_PROCESSES, CONNECTIONS, DESCRIPTORS, TABLES

ADDRESS = "192.0.2.1"
PASSES = 5
RUNS = 9


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


def passes(build):
    return {"passes": [measure_pass(build, *size) for size in TABLES["passes"].keys]}


def alternatives(build):
    size = (COMPARED_PROCESSES, COMPARED_CONNECTIONS, 1)
    rows = [measure_pass(build, *size) | {"program": tables.PASS, "shows": "reverse shells"}]
    for name, (shows, command) in tables.ALTERNATIVES.items():
        result = run_in_own_host(build, "command_cost", *size, PASSES, ADDRESS, *command)
        rows.append(result | {"program": name, "shows": shows})
    return {"alternatives": rows}


def inspection(build):
    question = run_in_own_host(build, "inspect_cost", "shell", RUNS)
    return {
        "refreshes": [measure_inspection(build, "sockets", sockets, RUNS, ADDRESS) for sockets in CONNECTIONS],
        "snapshots": [measure_inspection(build, "snapshot", descriptors, RUNS) for descriptors in DESCRIPTORS],
        "shell-question": [
            {"file": tables.OTHER_SIZE, "cpuMs": question["missMs"]},
            {"file": tables.SAME_SIZE, "cpuMs": question["hitMs"]},
        ],
    }


def storms(build):
    return {"storms": exec_storm.measure_all(build)}


def services(build):
    command = [build / "bin/services_bench", "--benchmark_format=json"]
    done = subprocess.run(command, check=True, capture_output=True, text=True, timeout=600)
    return {"services": service_rows(json.loads(done.stdout)["benchmarks"])}


def service_rows(measured):
    """Three significant digits, in the unit that the benchmark chose."""
    times = {each["name"]: f"{each['real_time']:.3g} {each['time_unit'].replace('us', 'µs')}" for each in measured}
    return [{"service": title, "time": times[name]} for name, title in tables.SERVICES.items()]


PARTS = {
    "passes": passes,
    "alternatives": alternatives,
    "inspection": inspection,
    "storms": storms,
    "services": services,
}
# Tables that stand in the README too.
IN_README = {"alternatives"}


def main():
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--only", choices=PARTS, help="measure only this part")
    parser.add_argument("--write", action="store_true", help="also write the tables of docs/performance.md and README")
    arguments = parser.parse_args()
    if os.geteuid() != 0:
        sys.exit("./dev bench: needs root, because it creates namespaces")
    build = arguments.build.resolve()
    for part in [arguments.only] if arguments.only else PARTS:
        for name, rows in PARTS[part](build).items():
            print(f"{name}\n\n{TABLES[name].markdown(rows)}\n", flush=True)
            if arguments.write:
                documents = [generated.PERFORMANCE] + ([generated.README] if name in IN_README else [])
                tables.write(name, rows, documents)


if __name__ == "__main__":
    main()
