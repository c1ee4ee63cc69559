#!/usr/bin/python3
"""Converts a document into a manual page. The title becomes NAME, tables become lists; lowdown does the rest."""

import argparse
import re
import subprocess

# Text in the fixed-width font, inline and as a block, in the output of lowdown.
LITERAL = re.compile(r"\\fC.*?\\fR|^\.EX$.*?^\.EE$", re.DOTALL | re.MULTILINE)

# The names of the manual's sections at the top of a page.
VOLUMES = {"5": "File Formats Manual", "8": "System Manager's Manual"}


def cells(row):
    return [cell.strip() for cell in row.strip().strip("|").split("|")]


def entry(header, row):
    """A row of a table as a term and its description: the last column, then the others with their names."""
    term, *others, meaning = row
    meaning = meaning[0].upper() + meaning[1:]
    if others:
        rest = "; ".join(f"{name.lower()}: {cell}" for name, cell in zip(header[1:], others))
        meaning = f"{meaning}. {rest[0].upper()}{rest[1:]}."
    return f"{term}\n: {meaning}\n"


def tables_as_lists(text):
    """Replaces tables, whose cells hold sentences: a terminal is too narrow for them."""

    def as_list(match):
        header, _, *rows = [cells(line) for line in match[0].splitlines()]
        return "\n".join(entry(header, row) for row in rows)

    return re.sub(r"^\|.*\n(?:\|.*\n)+", as_list, text, flags=re.MULTILINE)


def as_page(text, name, summary, see_also):
    """The document with the sections of a manual page."""
    title, body = text.split("\n", 1)
    if not title.startswith("# "):
        raise SystemExit(f"a document begins with its title, found: {title}")
    body = body.lstrip("\n")
    body = re.sub(r"^#(#+) (.*)$", lambda match: f"{match[1]} {match[2].upper()}", body, flags=re.MULTILINE)
    if not body.startswith("# "):
        body = f"# DESCRIPTION\n\n{body}"
    return f"# NAME\n\n{name} - {summary}\n\n{tables_as_lists(body)}\n# SEE ALSO\n\n{see_also}\n"


def with_plain_hyphens(page):
    """Escapes hyphens in code: groff may print a bare one as a typographic hyphen, and you could not copy the text."""
    return LITERAL.sub(lambda match: re.sub(r"(?<!\\)-", r"\\-", match[0]), page)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("document")
    parser.add_argument("page")
    parser.add_argument("--lowdown", default="lowdown")
    for option in ("name", "summary", "see-also", "release"):
        parser.add_argument(f"--{option}", required=True)
    parser.add_argument("--section", required=True, choices=VOLUMES)
    options = parser.parse_args()
    with open(options.document, encoding="utf-8") as document:
        text = as_page(document.read(), options.name, options.summary, options.see_also)
    metadata = {
        "title": options.name.upper(),
        "section": options.section,
        "source": options.release,
        "volume": VOLUMES[options.section],
    }
    page = subprocess.run(
        [options.lowdown, "-s", "-tman", "--nroff-nolinks", *(f"-m{key}={value}" for key, value in metadata.items())],
        input=text,
        stdout=subprocess.PIPE,
        encoding="utf-8",
        check=True,
    )
    with open(options.page, "w", encoding="utf-8") as output:
        output.write(with_plain_hyphens(page.stdout))


if __name__ == "__main__":
    main()
