"""Links and lists of the documents, which no program reads."""

import re

import documented_commands
import pytest
from documented_commands import FENCE, ROOT

DOCUMENTS = [*documented_commands.documents(), ROOT / "CONTRIBUTING.md", ROOT / "CHANGELOG.md"]
LINK = re.compile(r"\]\(([^)\s]+)\)")


def prose(document):
    return FENCE.sub("", document.read_text(encoding="utf-8"))


def anchors(document):
    """The anchors of the headings, as Git hosts derive them."""
    headings = re.findall(r"^#+ (.*)$", prose(document), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda document: document.name)
def test_every_link_leads_somewhere(document):
    for link in LINK.findall(prose(document)):
        if link.startswith("https://"):
            continue
        path, _, anchor = link.partition("#")
        target = (document.parent / path).resolve() if path else document
        assert target.exists(), link
        assert not anchor or anchor in anchors(target), link


@pytest.mark.parametrize("document", sorted(ROOT.glob("docs/man/*.md")), ids=lambda document: document.name)
def test_the_term_of_a_list_has_a_line_for_itself(document):
    """A term in one line with its description becomes a paragraph of the manual page."""
    assert re.findall(r"^\S.* : \S.*$", prose(document), re.MULTILINE) == []
