"""Compiles and links as a preset's build does, with other files in place of some."""

import json
import pathlib
import shlex
import subprocess


class Preset:
    def __init__(self, build: pathlib.Path) -> None:
        self.build = build
        self._commands: dict[str, list[str]] = {}  # by object, relative to build
        self._sources: dict[str, pathlib.Path] = {}
        for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
            words = shlex.split(entry["command"])
            target = words.index("-o")
            self._commands[words[target + 1]] = words[:target]
            self._sources[words[target + 1]] = pathlib.Path(entry["directory"], entry["file"])

    def objects(self, target: str) -> dict[pathlib.Path, str]:
        """Of a library or program, by source."""
        return {source: name for name, source in self._sources.items() if f"/{target}.dir/" in name}

    def options(self, name: str) -> list[str]:
        """Of the compiler, for an object, by which another one can read its source too."""
        return [word for word in self._commands[name] if word.startswith(("-I", "-D", "-U", "-std="))]

    def compile(
        self, name: str, file: pathlib.Path, output: pathlib.Path, *, include: list[str], extra: list[str]
    ) -> str:
        """Compiles file as the build compiles the object's source. The folders of include come first. Returns the
        compiler's messages if it refuses the file, else nothing."""
        output.parent.mkdir(parents=True, exist_ok=True)
        command = self._commands[name]
        options = next(index for index, word in enumerate(command) if word.startswith("-"))
        folders = [f"-I{folder}" for folder in include]
        words = [*command[:options], *folders, *command[options:], *extra, "-w", "-Wno-narrowing"]
        words += ["-c", str(file), "-o", str(output)]
        done = subprocess.run(words, cwd=self.build, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8")
        return done.stdout if done.returncode != 0 else ""

    def link_command(self, program: str) -> list[str]:
        command = ["ninja", "-t", "commands", "-s", f"bin/{program}"]
        lines = subprocess.run(command, cwd=self.build, stdout=subprocess.PIPE, encoding="utf-8", check=True).stdout
        (line,) = (line for line in lines.splitlines() if f"-o bin/{program}" in line)
        return shlex.split(line.removeprefix(": && ").removesuffix(" && :").split(" && ")[0])

    def link(
        self, program: str, output: pathlib.Path, objects: list[pathlib.Path], others: dict[str, pathlib.Path]
    ) -> None:
        """The program with more objects, which come before the libraries whose members they stand for, and with others
        in place of its own."""
        words = [str(others.get(word, word)) for word in self.link_command(program)]
        words[words.index("-o") + 1] = str(output)
        first = next(index for index, word in enumerate(words) if word.endswith(".o"))
        subprocess.run([*words[:first], *map(str, objects), *words[first:]], cwd=self.build, check=True)
