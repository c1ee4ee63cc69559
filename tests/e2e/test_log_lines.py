"""Checks that docs/operations.md explains every warning and error that the log can contain."""

import re

from agent import REPOSITORY

CODE = "\n".join(
    source.read_text(encoding="utf-8")
    for folder in ("src", "host")
    for source in sorted(REPOSITORY.glob(f"{folder}/**/*.cpp"))
)
# A call with this level, in the module's form and in the agent's form (host/base/log.h).
MODULE_CALL = r"MODULE_LOG\(\s*normalLog,\s*LOG_LEVEL_(?:%s),"
AGENT_CALLS = {"LIFECYCLE": "LogInfo", "WARNING": "LogWarning", "ERROR": "LogError"}
STRING = r'"((?:[^"\\]|\\.)*)"'
CONVERSION = re.compile(r"%[-+ #0]*(?:\d+|\*)?(?:\.(?:\d+|\*))?(?:hh|h|ll|l|z)?[a-zA-Z]")


def call_of(*levels):
    agents = "|".join(AGENT_CALLS[level] for level in levels if level in AGENT_CALLS)
    return rf"(?:{MODULE_CALL % '|'.join(levels)}|\b(?:{agents or '(?!)'})\()"


def messages(*levels):
    """The messages of these levels, one per call, with <> in place of each conversion."""
    call = call_of(*levels) + rf"\s*((?:{STRING}\s*)+)[,)]"
    texts = ["".join(re.findall(STRING, match[1])) for match in re.finditer(call, CODE)]
    return [CONVERSION.sub("<>", text) for text in texts]


def documented():
    """The messages in the first column of the document's tables, as patterns that match the start of a message."""
    document = (REPOSITORY / "docs/operations.md").read_text(encoding="utf-8")
    chapter = document.split("\n## Log lines")[1].split("\n## ")[0]
    rows = [line for line in chapter.splitlines() if line.startswith("| `")]
    texts = [text for row in rows for text in re.findall(r"`([^`]+)`", row.split(" | ")[0])]
    return {text: re.compile(".*".join(map(re.escape, text.split("...")))) for text in texts}


def test_every_warning_and_error_is_documented():
    patterns = documented().values()
    assert [text for text in messages("WARNING", "ERROR") if not any(known.match(text) for known in patterns)] == []


def test_every_documented_message_exists():
    existing = messages("LIFECYCLE", "WARNING", "ERROR")
    assert [text for text, pattern in documented().items() if not any(map(pattern.match, existing))] == []


def test_every_call_has_its_message_and_level_written_out():
    """The other tests read messages from the source with patterns, which only works for literal arguments."""
    assert len(messages("WARNING", "ERROR")) == len(re.findall(call_of("WARNING", "ERROR"), CODE))
    unnamed = len(re.findall(r"MODULE_LOG\(channel, LOG_LEVEL_DETAIL,", CODE))
    calls = len(re.findall(r"\b(?:LogInfo|LogWarning|LogError|MODULE_LOG)\(", CODE))
    assert calls - unnamed == len(re.findall(call_of("DETAIL", "LIFECYCLE", "WARNING", "ERROR"), CODE))
    # The agent does not log in any other way: LoggerWriteLog is defined for the module and not called.
    assert len(re.findall(r"\bLoggerWriteLog\(", CODE)) == 1
