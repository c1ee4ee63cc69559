#!/usr/bin/python3
"""Runs the end-to-end tests that depend on the kernel on other kernels, in an emulator. Called by ./dev kernels."""

import argparse
import functools
import pathlib
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1]))

import boots
import generated
import sources
import table

LIMIT_SECONDS = 400
TABLE, COMMAND = "kernels", "./dev kernels --write"


def arguments():
    parser = argparse.ArgumentParser(prog="./dev kernels", description=__doc__)
    parser.add_argument("names", nargs="*", metavar="NAME", help="a kernel; if omitted, all of them")
    parser.add_argument("--list", action="store_true", help="list the kernels, and run none")
    parser.add_argument("--fetch", action="store_true", help="download what the kernels need, and run none")
    attempts_help = "boot a kernel up to N times until all results are as expected (%(default)s)"
    parser.add_argument("--attempts", type=int, default=1, metavar="N", help=attempts_help)
    limit_help = "seconds until the emulator is killed (%(default)s)"
    parser.add_argument("--limit", type=int, default=LIMIT_SECONDS, metavar="SECONDS", help=limit_help)
    write_help = "also write the table of docs/kernels.md; needs all kernels, and every result as expected"
    parser.add_argument("--write", action="store_true", help=write_help)
    parser.add_argument("--presets", action="store_true", help="list the presets that the run needs, and run none")
    parsed = parser.parse_args()
    boots.check_names(parser, parsed.names)
    if parsed.attempts < 1:
        parser.error("--attempts takes a number from 1 on")
    if parsed.write and parsed.names:
        parser.error("--write takes no names: the table has all kernels")
    return parsed


def show_tests(names, chosen):
    rows = []
    for name in names:
        disks = functools.partial(boots.end_to_end_disks, name)
        rows += boots.run_up_to(chosen.attempts, name, lambda: boots.run_alone(name, name, chosen.limit, disks))
    print(table.text(rows))
    if not table.is_good(rows):
        return 1
    if chosen.write:
        text = f"{generated.this_machine()} {table.releases(rows)}\n\n{table.markdown(rows)}"
        generated.write_table(generated.KERNELS, TABLE, COMMAND, text)
    return 0


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
