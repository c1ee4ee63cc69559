"""Whether docs/operations.md tells what to do about every message that the log may hold."""

import re

from agent import REPOSITORY

CODE = "\n".join(
    source.read_text(encoding="utf-8")
    for folder in ("src", "host")
    for source in sorted(REPOSITORY.glob(f"{folder}/**/*.cpp"))
)
# A message's channel and level, in the agent's form and in the module's.
ADDRESS = r"(?:LoggerWriteLog\(\s*\"NormalLog\"|MODULE_LOG\(\s*normalLog),\s*LOG_LEVEL_(?:%s),"
STRING = r'"((?:[^"\\]|\\.)*)"'
CONVERSION = re.compile(r"%[-+ #0]*(?:\d+|\*)?(?:\.(?:\d+|\*))?(?:hh|h|ll|l|z)?[a-zA-Z]")


def messages(*levels):
    """The messages of these levels, one a call, with <> in the place of what differs from case to case."""
    call = ADDRESS % "|".join(levels) + rf'(?:\s*"\w+",\s*__LINE__,)?\s*((?:{STRING}\s*)+)[,)]'
    texts = ["".join(re.findall(STRING, match[1])) for match in re.finditer(call, CODE)]
    return [CONVERSION.sub("<>", text) for text in texts]


def told():
    """The messages that the document's tables begin with, as patterns for the beginning of one."""
    document = (REPOSITORY / "docs/operations.md").read_text(encoding="utf-8")
    chapter = document.split("\n## Log lines")[1].split("\n## ")[0]
    rows = [line for line in chapter.splitlines() if line.startswith("| `")]
    texts = [text for row in rows for text in re.findall(r"`([^`]+)`", row.split(" | ")[0])]
    return {text: re.compile(".*".join(map(re.escape, text.split("...")))) for text in texts}


def test_every_warning_and_error_is_told():
    patterns = told().values()
    assert [text for text in messages("WARNING", "ERROR") if not any(known.match(text) for known in patterns)] == []


def test_no_message_is_told_that_does_not_exist():
    existing = messages("LIFECYCLE", "WARNING", "ERROR")
    assert [text for text, pattern in told().items() if not any(map(pattern.match, existing))] == []


def test_every_call_has_its_message_and_level_written_out():
    """What these tests read of the code is all that there is."""
    assert len(messages("WARNING", "ERROR")) == len(re.findall(ADDRESS % "WARNING|ERROR", CODE))
    definitions = len(re.findall(r"^void LoggerWriteLog\(", CODE, re.MULTILINE))
    calls = len(re.findall(r"\b(?:LoggerWriteLog|MODULE_LOG)\(", CODE)) - definitions
    unnamed = len(re.findall(r"MODULE_LOG\(channel, LOG_LEVEL_DETAIL,", CODE))
    assert calls - unnamed == len(re.findall(ADDRESS % "DETAIL|LIFECYCLE|WARNING|ERROR", CODE))
