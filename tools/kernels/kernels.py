#!/usr/bin/python3
"""Runs the end-to-end tests that suit every kernel on other kernels, in an emulator. Called by ./dev kernels."""

import argparse
import functools
import sys

import boots
import sources
import table

LIMIT_SECONDS = 400


def arguments():
    parser = argparse.ArgumentParser(prog="./dev kernels", description=__doc__)
    parser.add_argument("names", nargs="*", metavar="NAME", help="a kernel; without any, all of them")
    parser.add_argument("--list", action="store_true", help="list the kernels, and run none")
    parser.add_argument("--fetch", action="store_true", help="download what the kernels need, and run none")
    attempts_help = "how often a kernel is booted at most until all is as it should be (%(default)s)"
    parser.add_argument("--attempts", type=int, default=1, metavar="N", help=attempts_help)
    limit_help = "until a kernel's emulator is killed (%(default)s)"
    parser.add_argument("--limit", type=int, default=LIMIT_SECONDS, metavar="SECONDS", help=limit_help)
    parser.add_argument("--markdown", action="store_true", help="the table with a column a kernel")
    parser.add_argument("--presets", action="store_true", help="list the presets that the run needs, and run none")
    parsed = parser.parse_args()
    boots.check_names(parser, parsed.names)
    if parsed.attempts < 1:
        parser.error("--attempts takes a number from 1 on")
    return parsed


def show_tests(names, chosen):
    rows = []
    for name in names:
        disks = functools.partial(boots.end_to_end_disks, name)
        rows += boots.run_up_to(chosen.attempts, name, lambda: boots.run_alone(name, name, chosen.limit, disks))
    print(table.markdown(rows) if chosen.markdown else table.text(rows))
    return 0 if table.is_good(rows) else 1


def main():
    chosen = arguments()
    names = chosen.names or list(sources.KERNELS)
    if chosen.list:
        print("\n".join(names))
        return 0
    if chosen.presets:
        print("\n".join(boots.presets_of(names)))
        return 0
    if chosen.fetch:
        return 0 if boots.fetch(names) else 1
    return show_tests(names, chosen)


if __name__ == "__main__":
    sys.exit(main())
