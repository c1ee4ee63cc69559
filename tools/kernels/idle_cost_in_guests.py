#!/usr/bin/python3
"""Measures on kernels in an emulator what the agent costs on an idle host. Called by ./dev bench idle."""

import argparse
import sys

import boots
import cost
import cost_boots

LIMIT_SECONDS = 400
KERNELS = ("armhf-6.1", "amd64-6.1")
MINUTES = 60


def arguments():
    parser = argparse.ArgumentParser(prog="./dev bench idle", description=__doc__)
    names_help = f"a kernel of ./dev kernels; without any, {' and '.join(KERNELS)}"
    parser.add_argument("names", nargs="*", metavar="NAME", help=names_help)
    minutes_help = "how long the agent watches an idle guest (%(default)s)"
    parser.add_argument("--minutes", type=int, default=MINUTES, metavar="N", help=minutes_help)
    limit_help = "until a kernel's emulator is killed, these minutes left out (%(default)s)"
    parser.add_argument("--limit", type=int, default=LIMIT_SECONDS, metavar="SECONDS", help=limit_help)
    parser.add_argument("--markdown", action="store_true", help="the table for a document")
    parser.add_argument("--presets", action="store_true", help="list the presets that the run needs, and run none")
    parsed = parser.parse_args()
    boots.check_names(parser, parsed.names)
    if parsed.minutes < 1:
        parser.error("--minutes takes a number from 1 on")
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
    print(cost.markdown(columns) if chosen.markdown else cost.text(columns))
    return 0 if all(columns.values()) else 1


if __name__ == "__main__":
    sys.exit(main())
