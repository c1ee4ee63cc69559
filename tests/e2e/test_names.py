"""The documents use the names and limits of src/module/published.h, and the code the fixed texts of docs/names.md."""

import re

import pytest

from agent import REPOSITORY
from published import PUBLISHED

DETECTIONS = [PUBLISHED.periodScan, PUBLISHED.instantScan, PUBLISHED.shortCommandWatcher, PUBLISHED.shellFileProtection]
FORMS = [
    *(PUBLISHED.periodScan, PUBLISHED.instantScanOnSocket, PUBLISHED.instantScanByRelay),
    *(PUBLISHED.instantScanByDescendant, PUBLISHED.instantScanByRawSocket, PUBLISHED.instantScanOnTerminal),
    *(PUBLISHED.shortCommandWatcher, PUBLISHED.shellFileChange, PUBLISHED.shellFileFlags, PUBLISHED.shellFileCopy),
]
FIXED = {
    "entries of the module": [*(PUBLISHED.initEntry, PUBLISHED.startEntry, PUBLISHED.stopEntry, PUBLISHED.deinitEntry)],
    "tasks": [PUBLISHED.periodScanTask, PUBLISHED.instantScanTask, PUBLISHED.shortCommandTask],
    "status reports": [PUBLISHED.reverseShellFunction, PUBLISHED.shellFileFunction, PUBLISHED.inOrderCode],
    "event types": [PUBLISHED.reverseShellEvent, PUBLISHED.shellFileEvent],
    "configuration keys": [
        *(PUBLISHED.shellFileKey, PUBLISHED.reverseShellKey, PUBLISHED.detectIntervalKey, PUBLISHED.whitelistKey)
    ],
    "setting, file": [PUBLISHED.folderSetting, PUBLISHED.shellListName],
    "environment variables": [PUBLISHED.locationVariable, PUBLISHED.pathVariable],
}


def text_of(name):
    document = REPOSITORY / name
    if not document.exists():
        pytest.skip(f"{name} is not on this machine")
    return document.read_text(encoding="utf-8")


def rows(name, heading):
    """The rows of the table with this heading, as lists of cells."""
    (table,) = re.findall(rf"^\| {re.escape(heading)} \|.*\n\|[-|]+\|\n((?:\|.*\n?)+)", text_of(name), re.MULTILINE)
    return [[cell.strip() for cell in line.strip("|").split("|")] for line in table.splitlines()]


def quoted(cell):
    return re.findall(r"`([^`]+)`", cell)


def test_readme_names_the_detections():
    assert [row[0] for row in rows("README.md", "Detection")] == DETECTIONS


def test_operations_lists_each_form_that_may_be_blind():
    named = [name for row in rows("docs/operations.md", "Name in `blind:` lines") for name in quoted(row[0])]
    assert named == FORMS


def test_configuration_has_the_keys_with_their_limits():
    section = {quoted(row[0])[0]: row[1:3] for row in rows("docs/configuration.md", "Key")}
    reverse_shell = f"module.{PUBLISHED.reverseShellKey}"
    assert f"module.{PUBLISHED.shellFileKey}" in section and reverse_shell in section
    assert section[f"{reverse_shell}.{PUBLISHED.detectIntervalKey}"] == [
        f"{PUBLISHED.minDetectInterval} to {PUBLISHED.maxDetectInterval}",
        str(PUBLISHED.defaultDetectInterval),
    ]
    assert section[f"{reverse_shell}.{PUBLISHED.whitelistKey}"][0] == f"up to {PUBLISHED.maxWhitelistSize} strings"
    assert f"settings.{PUBLISHED.folderSetting}" in section


def test_configuration_has_the_environment_variables():
    named = {quoted(row[0])[0] for row in rows("docs/configuration.md", "Variable")}
    assert named == {PUBLISHED.pathVariable, PUBLISHED.locationVariable}


def test_names_lists_all_fixed_names():
    fixed = {row[0]: quoted(row[1]) for row in rows("docs/names.md", "Kind")}
    for kind, names in FIXED.items():
        assert fixed[kind] == names, kind
    for detection in DETECTIONS:
        assert f"**{detection}**" in text_of("docs/names.md").replace("\n", " ")


def test_odd_spellings_occur_in_the_module():
    sources = [*REPOSITORY.glob("src/*/*.cpp"), *REPOSITORY.glob("src/*/*.h")]
    code = "\n".join(source.read_text(encoding="utf-8") for source in sources)
    if "Published" not in code.replace("namespace Published", ""):
        pytest.skip("the module's sources are not on this machine")
    spellings = [spelling for row in rows("docs/names.md", "Odd spelling") for spelling in quoted(row[0])]
    assert len(spellings) >= 8
    for spelling in spellings:
        assert spelling in code, spelling


def test_each_published_text_occurs_only_in_the_header():
    sources = [file for room in ("src", "host", "demo") for file in REPOSITORY.glob(f"{room}/**/*.[ch]*")]
    if not any(source.is_relative_to(REPOSITORY / "host") for source in sources):
        pytest.skip("the sources are not on this machine")
    texts = {f'"{value}"' for value in vars(PUBLISHED).values() if isinstance(value, str)} - {'"0000"'}
    for source in sources:
        if source.name != "published.h":
            code = re.sub(r"(^|\s)// .*", "", source.read_text(encoding="utf-8"))
            literals = set(re.findall(r'"(?:[^"\\\n]|\\.)*"', code))
            assert not literals & texts, source
