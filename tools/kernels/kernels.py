#!/usr/bin/python3
"""Runs the end-to-end tests that suit every kernel on other kernels, in an emulator, or measures there what the agent
costs. Called by ./dev kernels."""

import argparse
import functools
import sys

import boots
import cost
import cost_boots
import sources
import table

LIMIT_SECONDS = 400
COST_KERNELS = ("armhf-6.1", "amd64-6.1")
COST_MINUTES = 60


def arguments():
    parser = argparse.ArgumentParser(prog="./dev kernels", description=__doc__)
    names_help = f"a kernel; without any, all of them, or for --cost {' and '.join(COST_KERNELS)}"
    parser.add_argument("names", nargs="*", metavar="NAME", help=names_help)
    parser.add_argument("--list", action="store_true", help="list the kernels, and run none")
    parser.add_argument("--fetch", action="store_true", help="download what the kernels need, and run none")
    attempts_help = "how often a kernel is booted at most until all is as it should be (%(default)s)"
    parser.add_argument("--attempts", type=int, default=1, metavar="N", help=attempts_help)
    limit_help = "until a kernel's emulator is killed, the minutes of --cost left out (%(default)s)"
    parser.add_argument("--limit", type=int, default=LIMIT_SECONDS, metavar="SECONDS", help=limit_help)
    parser.add_argument("--markdown", action="store_true", help="the table with a column a kernel")
    parser.add_argument("--cost", action="store_true", help="measure there what the agent costs, and run no tests")
    minutes_help = "of --cost: how long the agent watches an idle guest (%(default)s)"
    parser.add_argument("--minutes", type=int, default=COST_MINUTES, metavar="N", help=minutes_help)
    parser.add_argument("--presets", action="store_true", help="list the presets that the run needs, and run none")
    parsed = parser.parse_args()
    unknown = [name for name in parsed.names if name not in sources.KERNELS]
    if unknown:
        parser.error(f"no kernel is called {', '.join(unknown)}: {', '.join(sources.KERNELS)} are there")
    for option in ("attempts", "minutes"):
        if getattr(parsed, option) < 1:
            parser.error(f"--{option} takes a number from 1 on")
    return parsed


def show_tests(names, chosen):
    rows = []
    for name in names:
        disks = functools.partial(boots.end_to_end_disks, name)
        rows += boots.run_up_to(chosen.attempts, name, lambda: boots.run_alone(name, name, chosen.limit, disks))
    print(table.markdown(rows) if chosen.markdown else table.text(rows))
    return 0 if table.is_good(rows) else 1


def show_cost(names, chosen):
    try:
        with boots.alone():
            columns = cost_boots.measure_all(names, chosen.minutes, chosen.limit)
    except boots.FAILURES as error:
        boots.say(str(error))
        return 1
    print(cost.markdown(columns) if chosen.markdown else cost.text(columns))
    return 0 if all(columns.values()) else 1


def main():
    chosen = arguments()
    names = chosen.names or list(COST_KERNELS if chosen.cost else sources.KERNELS)
    if chosen.list:
        print("\n".join(names))
        return 0
    if chosen.presets:
        print("\n".join(dict.fromkeys(boots.PRESETS[sources.KERNELS[name].architecture] for name in names)))
        return 0
    if chosen.fetch:
        return 0 if boots.fetch(names) else 1
    return show_cost(names, chosen) if chosen.cost else show_tests(names, chosen)


if __name__ == "__main__":
    sys.exit(main())
