#!/usr/bin/python3
"""Measures the cost of the agent on an idle host, on kernels in an emulator. Called by ./dev bench idle."""

import argparse
import pathlib
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1]))

import boots
import cost
import cost_boots
import generated

LIMIT_SECONDS = 400
KERNELS = ("armhf-6.1", "amd64-6.1")
MINUTES = 15
TABLE, COMMAND = "idle", "./dev bench idle --write"


def arguments():
    parser = argparse.ArgumentParser(prog="./dev bench idle", description=__doc__)
    names_help = f"a kernel of ./dev kernels; without any, {' and '.join(KERNELS)}"
    parser.add_argument("names", nargs="*", metavar="NAME", help=names_help)
    minutes_help = "how long the agent watches an idle guest (%(default)s)"
    parser.add_argument("--minutes", type=int, default=MINUTES, metavar="N", help=minutes_help)
    limit_help = "seconds until the emulator is killed, in addition to these minutes (%(default)s)"
    parser.add_argument("--limit", type=int, default=LIMIT_SECONDS, metavar="SECONDS", help=limit_help)
    write_help = "also write the table of docs/performance.md; needs all kernels and minutes"
    parser.add_argument("--write", action="store_true", help=write_help)
    parser.add_argument("--presets", action="store_true", help="list the presets that the run needs, and run none")
    parsed = parser.parse_args()
    boots.check_names(parser, parsed.names)
    if parsed.minutes < 1:
        parser.error("--minutes takes a number from 1 on")
    if parsed.write and (parsed.names or parsed.minutes != MINUTES):
        parser.error("--write takes neither names nor --minutes: the table has all of them")
    return parsed


def main():
    chosen = arguments()
    names = chosen.names or list(KERNELS)
    if chosen.presets:
        print("\n".join(boots.presets_of(names)))
        return 0
    try:
        with boots.alone():
            columns = cost_boots.measure_all(names, chosen.minutes, chosen.limit)
    except boots.FAILURES as error:
        boots.say(str(error))
        return 1
    print(cost.text(columns))
    complete = all(columns.values())
    if chosen.write and complete:
        text = f"{generated.this_machine()}\n\n{cost.markdown(columns)}"
        generated.write_table(generated.PERFORMANCE, TABLE, COMMAND, text)
    return 0 if complete else 1


if __name__ == "__main__":
    sys.exit(main())
