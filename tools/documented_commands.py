"""The commands in README and docs/."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parent.parent
FENCE = re.compile(r"^```(\w*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
# The beginning of a command in the text, outside of a block for the shell.
COMMAND = re.compile(r"(?:\./dev|orlim-agent|cmake|git|apt-get|sudo) [a-z-]")


def documents():
    return [ROOT / "README.md", *sorted(ROOT.glob("docs/**/*.md"))]


def blocks(language):
    """The lines of all blocks of the language, as (document, text)."""
    for document in documents():
        for found, text in FENCE.findall(document.read_text(encoding="utf-8")):
            if found == language:
                yield document.relative_to(ROOT), text


def commands():
    """Each command once, as (document, command): first the commands of the blocks, in order, then those of the text."""
    found: dict[str, pathlib.Path] = {}
    for document, text in blocks("sh"):
        for line in text.splitlines():
            found.setdefault(line.strip(), document)
    for document in documents():
        for text in re.findall(r"`([^`\n]+)`", FENCE.sub("", document.read_text(encoding="utf-8"))):
            if COMMAND.match(text):
                found.setdefault(text, document.relative_to(ROOT))
    return [(document, command) for command, document in found.items() if command]


def hidden_commands():
    """The commands in blocks that are not marked as shell."""
    return [line for _, text in blocks("") for line in text.splitlines() if COMMAND.match(line.strip())]
