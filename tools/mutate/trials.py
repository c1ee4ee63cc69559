"""Runs a room's tests against its mutants."""

import concurrent.futures
import dataclasses
import enum
import math
import os
import pathlib
import resource
import signal
import subprocess
import tempfile
import time

from mutant import Mutant

# Of a test's own time, for a machine that is busy besides. The processor's time is not longer on a busy machine: a
# mutant that spins is ended sooner than one that waits.
LIMIT_FACTOR = 10
LIMIT_SECONDS = 5.0
LIMIT_CPU_SECONDS = 2.0
MOST_SECONDS_OF_A_TEST = 60.0
# A mutant that allocates without end must not take the machine with it.
MOST_MEMORY = 4 << 30


class Fate(enum.Enum):
    CAUGHT = "caught"
    HANGS = "caught, it hangs"
    SURVIVED = "survived"
    NOT_REACHED = "no test reaches it"
    REFUSED = "does not compile"


@dataclasses.dataclass
class Test:
    name: str
    seconds: float
    reached: bytes  # one byte per mutant number


def _run(program: pathlib.Path, tests: list[str], seconds: float, variables: dict[str, str]) -> int | None:
    """The exit status; none if it takes much longer than these seconds."""
    cpu = math.ceil(LIMIT_CPU_SECONDS + LIMIT_FACTOR * seconds)

    def set_limits() -> None:
        resource.setrlimit(resource.RLIMIT_CPU, (cpu, cpu + 1))
        resource.setrlimit(resource.RLIMIT_AS, (MOST_MEMORY, MOST_MEMORY))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    with tempfile.TemporaryDirectory(dir=program.parent) as folder:
        environment = os.environ | variables | {"TMPDIR": folder, "GTEST_FILTER": ":".join(tests)}
        process = subprocess.Popen(
            [str(program), "--gtest_fail_fast"],
            env=environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            start_new_session=True,
            preexec_fn=set_limits,
        )
        try:
            status = process.wait(LIMIT_SECONDS + LIMIT_FACTOR * seconds)
            return None if status == -signal.SIGXCPU else status
        except subprocess.TimeoutExpired:
            return None
        finally:
            _end_session(process)


def _end_session(process: subprocess.Popen) -> None:
    """With the children that a test has left."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


class Campaign:
    """program: the tests with all mutants switched off."""

    def __init__(self, program: pathlib.Path, most: int, jobs: int) -> None:
        self.program = program
        self.most = most
        self.jobs = jobs
        self.tests: list[Test] = []

    def names(self) -> list[str]:
        listed = subprocess.run(
            [str(self.program), "--gtest_list_tests"], stdout=subprocess.PIPE, encoding="utf-8", check=True
        ).stdout
        found, suite = [], ""
        for line in listed.splitlines()[1:]:
            name = line.split("#")[0].strip()
            if not line.startswith(" "):
                suite = name
            elif "DISABLED_" not in suite + name:
                found.append(suite + name)
        return found

    def measure(self) -> None:
        """Runs each test by itself: which mutants it reaches, and how long it takes."""
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            self.tests = sorted(pool.map(self._measure, self.names()), key=lambda test: test.seconds)

    def _measure(self, name: str) -> Test:
        with tempfile.NamedTemporaryFile(dir=self.program.parent) as reached:
            reached.write(bytes(self.most + 1))
            reached.flush()
            began = time.monotonic()
            if _run(self.program, [name], MOST_SECONDS_OF_A_TEST, {"ORLIM_MUTANTS_REACHED": reached.name}) != 0:
                raise SystemExit(f"mutate: {name} fails without a mutant")
            return Test(name, time.monotonic() - began, pathlib.Path(reached.name).read_bytes())

    def tests_of(self, mutant: Mutant) -> list[Test]:
        """That reach it, the quickest first."""
        return [test for test in self.tests if test.reached[mutant.number]]

    def judge(self, mutant: Mutant) -> Fate:
        tests = self.tests_of(mutant)
        if not tests:
            return Fate.NOT_REACHED
        return self.judge_program(self.program, tests, {"ORLIM_MUTANT": str(mutant.number)})

    def judge_program(self, program: pathlib.Path, tests: list[Test], variables: dict[str, str]) -> Fate:
        """The quickest tests by themselves first: most mutants fall to them."""
        quick = tests[: max(1, len(tests) // 4)]
        for part in (quick, tests[len(quick) :]):
            if not part:
                continue
            seconds = sum(test.seconds for test in part)
            status = _run(program, [test.name for test in part], seconds, variables)
            if status is None:
                return Fate.HANGS
            if status != 0:
                return Fate.CAUGHT
        return Fate.SURVIVED

    def holds(self) -> bool:
        """True if all tests still pass without a mutant."""
        seconds = sum(test.seconds for test in self.tests)
        return _run(self.program, [test.name for test in self.tests], seconds, {}) == 0
