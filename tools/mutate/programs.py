"""Test programs with mutants in them."""

import concurrent.futures
import pathlib
import subprocess

from mutant import Mutant
from room import Room

RUNTIME = pathlib.Path(__file__).resolve().parent / "runtime"


class Programs:
    """Of one room. jobs: compilers at a time."""

    def __init__(self, room: Room, jobs: int) -> None:
        self.room = room
        self.preset = room.preset
        self.jobs = jobs
        self.include = [str(room.folder / "src")]
        self.switches = ["-include", str(RUNTIME / "mutants.h")]
        self.runtime = room.folder / "mutants.o"
        self.tests: dict[str, pathlib.Path] = {}

    def build_objects(self) -> None:
        """Of the room, with all mutants. Those that the compiler refuses are taken out."""
        self.room.write_copies()
        todo = list(self.room.objects)
        while todo:
            with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
                said = dict(zip(todo, pool.map(self._compile_copy, todo)))
            todo = [source for source, errors in said.items() if errors]
            for errors in said.values():
                if errors:
                    self.room.refuse(errors)
            self.room.write_copies()
        words = ["c++", "-std=c++20", "-O2", "-c", str(RUNTIME / "mutants.cpp"), "-o", str(self.runtime)]
        subprocess.run(words, check=True)
        if self.room.has_header_mutants():
            self._build_tests()

    def _compile_copy(self, source: pathlib.Path) -> str:
        copy = self.room.copy_of(source)
        name = self.room.objects[source]
        return self.preset.compile(name, copy, self._object(source), include=self.include, extra=self.switches)

    def _object(self, source: pathlib.Path) -> pathlib.Path:
        return self.room.copy_of(source).with_suffix(".o")

    def _build_tests(self) -> None:
        """The room's tests with the mutants of its headers. A test that needs one of their constants at compile time
        keeps the headers as they are."""
        objects = self.preset.objects(f"{self.room.name}_test")
        targets = [self.room.folder / name for name in objects.values()]

        def compile_test(source: pathlib.Path, target: pathlib.Path) -> str:
            return self.preset.compile(objects[source], source, target, include=self.include, extra=self.switches)

        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            said = pool.map(compile_test, objects, targets)
            self.tests = {name: target for name, target, errors in zip(objects.values(), targets, said) if not errors}

    def switched(self, tests_of: str) -> pathlib.Path:
        """The tests of this or another room, with all mutants of this one."""
        output = self.room.folder / f"{tests_of}_test"
        objects = [self.runtime, *map(self._object, self.room.objects)]
        self.preset.link(output.name, output, objects, self.tests)
        return output

    def rebuilt(self, mutant: Mutant) -> pathlib.Path | None:
        """The room's tests with one mutant that cannot be switched; none if the compiler refuses it."""
        span, replacement = mutant.rebuilt
        file = self.room.root / mutant.file
        folder = self.room.folder / f"rebuilt{mutant.number}"
        copy = folder / file.relative_to(self.room.root)
        copy.parent.mkdir(parents=True, exist_ok=True)
        text = file.read_text(encoding="latin-1")
        copy.write_text(text[: span.start] + replacement + text[span.end :], encoding="latin-1")
        users = self.room.objects | self.preset.objects(f"{self.room.name}_test")
        sources = {file: users[file]} if file in users else users
        others = {}
        for source, name in sources.items():
            target = folder / name
            compiled = copy if source == file else source
            if self.preset.compile(name, compiled, target, include=[str(folder / "src")], extra=[]):
                return None
            others[name] = target
        output = folder / f"{self.room.name}_test"
        tests = self.preset.link_command(output.name)
        objects = [target for name, target in others.items() if name not in tests]
        self.preset.link(output.name, output, objects, others)
        return output
