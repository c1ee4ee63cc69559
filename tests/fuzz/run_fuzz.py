#!/usr/bin/python3
"""Runs the fuzz targets one after the other, each with its seed corpus and the inputs that earlier runs have added.

A finding is an input with which a target breaks a rule, triggers a sanitizer or exceeds its time limit. It is saved in
the build directory. When you fix a defect, add its input to tests/fuzz/corpus.
"""

import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
SEEDS = ROOT / "tests" / "fuzz" / "corpus"
MOST_SECONDS_AN_INPUT = 10
SUFFIX = "_fuzz"

REASON = re.compile(r"^(broken: .*|.*runtime error: .*|SUMMARY: .*)$", re.MULTILINE)
ARTIFACT = re.compile(r"Test unit written to (\S+)")
EXECUTIONS = re.compile(r"stat::number_of_executed_units:\s*(\d+)")
COVERAGE = re.compile(r"cov: (\d+)")


def chosen_targets(build, names):
    there = sorted(path.name[: -len(SUFFIX)] for path in (build / "bin").glob(f"*{SUFFIX}"))
    unknown = sorted(set(names) - set(there))
    if unknown:
        sys.exit(f"run_fuzz: expected targets among {', '.join(there)}, found {', '.join(unknown)}")
    return names or there


def command_of(build, target, seconds):
    learned = build / "corpus" / target
    learned.mkdir(parents=True, exist_ok=True)
    return [
        str(build / "bin" / (target + SUFFIX)),
        f"-max_total_time={seconds}",
        f"-timeout={MOST_SECONDS_AN_INPUT}",
        "-print_final_stats=1",
        f"-artifact_prefix={build / 'findings'}/{target}-",
        str(learned),
        str(SEEDS / target),
    ]


def last(pattern, text, default):
    found = pattern.findall(text)
    return found[-1] if found else default


def report_finding(target, build, log, text):
    reasons = REASON.findall(text)
    print(f"{target}: {reasons[0] if reasons else 'ended without a reason'}")
    artifact = last(ARTIFACT, text, "")
    if artifact:
        print(f"  input:  {artifact}\n  repeat: {build / 'bin' / (target + SUFFIX)} {artifact}")
    print(f"  log:    {log}", flush=True)


def fuzz(build, target, seconds):
    """Runs one target. True if it has no finding."""
    log = build / "findings" / f"{target}.log"
    # A target that is killed leaves its temporary files behind; this directory collects them.
    with tempfile.TemporaryDirectory() as scratch, open(log, "wb") as output:
        environment = dict(os.environ, TMPDIR=scratch)
        done = subprocess.run(
            command_of(build, target, seconds), env=environment, stdout=output, stderr=subprocess.STDOUT, check=False
        )
    text = log.read_text(encoding="utf-8", errors="replace")
    executions = int(last(EXECUTIONS, text, "0"))
    print(f"{target:20} {executions:12,} executions, {last(COVERAGE, text, '0'):>5} edges", flush=True)
    # Without an execution nothing was tested, whatever the exit status.
    if done.returncode == 0 and executions > 0:
        return True
    report_finding(target, build, log, text)
    return False


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="directory of the fuzz build")
    parser.add_argument("--seconds", type=int, default=60, help="time per target")
    parser.add_argument("targets", nargs="*", help="default: all targets")
    arguments = parser.parse_intermixed_args()
    if arguments.seconds < 1:
        parser.error(f"--seconds: expected a whole number from 1, found {arguments.seconds}")
    build = arguments.build.resolve()
    (build / "findings").mkdir(parents=True, exist_ok=True)
    clean = [fuzz(build, target, arguments.seconds) for target in chosen_targets(build, arguments.targets)]
    return 0 if all(clean) else 1


if __name__ == "__main__":
    sys.exit(main())
