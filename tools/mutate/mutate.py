#!/usr/bin/python3
"""Puts single faults into the rooms of src/ and runs their unit tests against each. Lists the faults that survive.

All faults of a room are compiled into one copy of its sources, each behind a switch, so a room is built once. Exits
with 1 if a survivor is missing in tests/mutations.md, or if a row there is not needed any more.
"""

import argparse
import collections
import os
import pathlib
import sys
import time

import explained
import house
from trials import Fate
from judgement import CAUGHT, Judgement, Verdict
from preset import Preset
from programs import Programs
from room import Room

ROOT = pathlib.Path(__file__).resolve().parents[2]
TABLE = ROOT / "tests" / "mutations.md"


def arguments() -> argparse.Namespace:
    rooms = house.rooms(ROOT)
    parser = argparse.ArgumentParser(prog="./dev mutate", description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("rooms", nargs="*", metavar="ROOM", help=f"of {', '.join(rooms)}; all of them if none is given")
    parser.add_argument(
        "--build", type=pathlib.Path, required=True, help="where the preset release is built, with tests"
    )
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="compilers and tests at a time")
    parser.add_argument("--own", action="store_true", help="omit the tests of rooms above")
    parser.add_argument("--list", action="store_true", help="list the faults, and run nothing")
    given = parser.parse_args()
    unknown = set(given.rooms) - set(rooms)
    if unknown:
        parser.error(f"no room '{', '.join(sorted(unknown))}' in src/")
    given.rooms = given.rooms or rooms
    return given


def judge(room: Room, given: argparse.Namespace) -> list[Verdict]:
    began = time.monotonic()
    programs = Programs(room, given.jobs)
    programs.build_objects()
    verdicts = Judgement(programs, given.jobs).run(by_others=not given.own)
    counts = collections.Counter(verdict.fate for verdict in verdicts)
    others = sum(verdict.fate in CAUGHT and verdict.by != room.name for verdict in verdicts)
    print(
        f"{room.name}: {len(verdicts)} mutants, {sum(counts[fate] for fate in CAUGHT)} caught "
        f"({others} by tests of rooms above, {counts[Fate.HANGS]} by a time limit), "
        f"{counts[Fate.REFUSED]} do not compile, {len(survivors(verdicts))} survive, {time.monotonic() - began:.0f} s",
        flush=True,
    )
    return verdicts


def survivors(verdicts: list[Verdict]) -> list[Verdict]:
    return [verdict for verdict in verdicts if verdict.fate in (Fate.SURVIVED, Fate.NOT_REACHED)]


def report(room: Room, verdicts: list[Verdict], known: dict[explained.Key, str]) -> int:
    """The number of findings: survivors without an explanation, and explanations without a survivor."""
    alive = sorted(survivors(verdicts), key=lambda verdict: (verdict.mutant.file, verdict.mutant.line))
    new = [verdict for verdict in alive if verdict.mutant.key() not in known]
    for verdict in new:
        print(f"  {verdict.mutant}" + (" (no test reaches it)" if verdict.fate == Fate.NOT_REACHED else ""))
    rows = "".join(explained.row(verdict.mutant, known.get(verdict.mutant.key(), "")) + "\n" for verdict in alive)
    (room.folder / "survivors.md").write_text(rows, encoding="utf-8")
    mutants = [verdict.mutant for verdict in verdicts]
    stale = explained.stale(known, mutants, [verdict.mutant for verdict in alive])
    for line in stale:
        print(f"  {TABLE.name}: {line}")
    return len(new) + len(stale)


def main() -> int:
    given = arguments()
    preset = Preset(given.build.resolve())
    known = explained.read(TABLE)
    total = alive = findings = 0
    for name in given.rooms:
        room = Room(ROOT, name, preset, ROOT / "build" / "mutate" / name)
        if given.list:
            print("\n".join(map(str, sorted(room.mutants.mutants, key=lambda mutant: (mutant.file, mutant.line)))))
            continue
        verdicts = judge(room, given)
        findings += report(room, verdicts, known)
        total += len(verdicts)
        alive += len(survivors(verdicts))
    if given.list:
        return 0
    print(f"{alive} of {total} mutants survive ({100 * alive / max(total, 1):.1f} %), {findings} findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
