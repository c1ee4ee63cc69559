#!/usr/bin/python3
"""Counts words that make comments and documents hard to read, per 1,000 words.

Comments of C++, Python, shell and CMake files in src, host, demo, tests, bench and tools, Python docstrings included:
  "tell"   and its forms "tells", "told", "telling"
  "what"   except in a sentence that ends with a question mark
Documents (README, CONTRIBUTING and docs, man pages included), without code and tables:
  "you"    how often the reader is addressed
Quoted text ("..." and `...`) is not counted: it is often the text of a message.

Without options it prints a table per folder. --list prints every place with one of the first two.
"""

import argparse
import ast
import dataclasses
import io
import pathlib
import re
import signal
import subprocess
import sys
import tokenize
from collections.abc import Iterable, Iterator

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("src", "host", "demo", "tests", "bench", "tools")
DOCUMENTS = ["README.md", "CONTRIBUTING.md", "docs/*.md"]

# Per 1,000 words: the highest "tell" and "what", and the lowest "you", of leveldb, oomd and ninja.
MOST_TELL = 0.14
MOST_WHAT = 0.35
LEAST_YOU = 5.9

WORD = re.compile(r"[A-Za-z]+(?:['-][A-Za-z]+)*")
TELL = re.compile(r"\b(?:tell|tells|told|telling)\b", re.IGNORECASE)
# A call of what() is not a word.
WHAT = re.compile(r"\bwhat\b(?!\(\))", re.IGNORECASE)
YOU = re.compile(r"\byou\b", re.IGNORECASE)
# A point within a file's name or a number ends no sentence.
SENTENCE_END = re.compile(r"[.?!](?=\s|$)")

# Literals come first, so that nothing within them is taken for a comment.
CPP_TOKEN = re.compile(
    r"""R"(?P<mark>[^()\\\s]*)\(.*?\)(?P=mark)"|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'"""
    r"|(?P<line>//[^\n]*)|(?P<block>/\*.*?\*/)",
    re.DOTALL,
)
QUOTED = re.compile(r"\"[^\"\n]*\"|`[^`\n]*`")
NOT_PROSE = (
    re.compile(r"^```.*?^```$", re.DOTALL | re.MULTILINE),
    re.compile(r"<!--.*?-->", re.DOTALL),
    re.compile(r"^\|.*$", re.MULTILINE),
    re.compile(r"`[^`]*`"),
    re.compile(r"\]\([^)]*\)"),
    re.compile(r"<[^>]+>"),
)
HASH_COMMENT = re.compile(r"(?:^|\s)#(?!!)(.*)")


@dataclasses.dataclass(frozen=True)
class Comment:
    line: int
    text: str


@dataclasses.dataclass
class Count:
    words: int = 0
    tell: int = 0
    what: int = 0
    you: int = 0

    def __iadd__(self, other: "Count") -> "Count":
        self.words += other.words
        self.tell += other.tell
        self.what += other.what
        self.you += other.you
        return self

    def per_thousand(self, count: int) -> float:
        return 1000 * count / self.words if self.words else 0.0


def cpp_comments(text: str) -> Iterator[Comment]:
    for token in CPP_TOKEN.finditer(text):
        comment = token["line"] or token["block"]
        if comment:
            yield Comment(text.count("\n", 0, token.start()) + 1, comment.strip("/*"))


def python_comments(text: str) -> Iterator[Comment]:
    for token in tokenize.generate_tokens(io.StringIO(text).readline):
        if token.type == tokenize.COMMENT and not token.string.startswith("#!"):
            yield Comment(token.start[0], token.string.lstrip("#"))
    for node in ast.walk(ast.parse(text)):
        if isinstance(node, (ast.Module, ast.ClassDef, ast.FunctionDef, ast.AsyncFunctionDef)):
            docstring = ast.get_docstring(node)
            if docstring:
                yield Comment(node.body[0].lineno, docstring)


def hash_comments(text: str) -> Iterator[Comment]:
    for number, line in enumerate(text.splitlines(), 1):
        found = HASH_COMMENT.search(line)
        if found:
            yield Comment(number, found[1])


def joined(comments: Iterable[Comment]) -> list[Comment]:
    """Merges comments in adjacent lines, so that a sentence over several lines stays whole."""
    blocks: list[Comment] = []
    last = -1
    for comment in sorted(comments, key=lambda comment: comment.line):
        if blocks and comment.line == last + 1:
            blocks[-1] = Comment(blocks[-1].line, f"{blocks[-1].text}\n{comment.text}")
        else:
            blocks.append(comment)
        last = comment.line + comment.text.count("\n")
    return blocks


def comments_in(text: str, name: str) -> list[Comment]:
    """The comments of a file of this name, without quoted text; none if its language is not known."""
    suffix = pathlib.PurePath(name).suffix
    if suffix in (".cpp", ".h"):
        found = cpp_comments(text)
    elif suffix == ".py":
        found = python_comments(text)
    elif suffix in (".cmake", ".sh") or name == "CMakeLists.txt":
        found = hash_comments(text)
    else:
        return []
    return [Comment(comment.line, QUOTED.sub('""', comment.text)) for comment in joined(found)]


def comments_of(path: pathlib.Path) -> list[Comment]:
    known = path.suffix in (".cpp", ".h", ".py", ".cmake", ".sh") or path.name == "CMakeLists.txt"
    return comments_in(path.read_text(encoding="utf-8"), path.name) if known else []


def asks(text: str, position: int) -> bool:
    """Whether the sentence around the position is a question."""
    end = SENTENCE_END.search(text, position)
    return end is not None and end[0] == "?"


def nouns(text: str) -> list[re.Match[str]]:
    """Every "what" of the text outside of questions."""
    return [found for found in WHAT.finditer(text) if not asks(text, found.start())]


def count_comment(text: str) -> Count:
    return Count(len(WORD.findall(text)), len(TELL.findall(text)), len(nouns(text)))


def prose(markdown: str) -> str:
    """The document without blocks of code, code within a line, tables, HTML and the addresses of links."""
    for removed in NOT_PROSE:
        markdown = removed.sub("", markdown)
    return markdown


def count_document(markdown: str) -> Count:
    text = prose(markdown)
    return Count(len(WORD.findall(text)), you=len(YOU.findall(text)))


def listed(root: pathlib.Path, patterns: Iterable[str]) -> list[pathlib.Path]:
    """The files of the tree that match, those not committed yet included."""
    command = ["git", "ls-files", "-co", "--exclude-standard", "--", *patterns]
    found = subprocess.run(command, cwd=root, stdout=subprocess.PIPE, text=True, check=True)
    return [root / name for name in found.stdout.splitlines() if (root / name).is_file()]


def places(path: pathlib.Path, shown: pathlib.Path) -> Iterator[str]:
    for comment in comments_of(path):
        found = [*TELL.finditer(comment.text), *nouns(comment.text)]
        for match in sorted(found, key=lambda match: match.start()):
            before = comment.text[: match.start()].count("\n")
            yield f"{shown}:{comment.line + before}: {comment.text.splitlines()[before].strip()}"


def count_folder(root: pathlib.Path, folder: str) -> Count:
    count = Count()
    for path in listed(root, [folder]):
        for comment in comments_of(path):
            count += count_comment(comment.text)
    return count


def report(root: pathlib.Path) -> tuple[list[str], list[str]]:
    """The lines of the table, and those of the limits that do not hold."""
    lines = [f"{'comments':24}{'words':>8}{'tell':>8}{'what':>8}"]
    total = Count()
    for folder in FOLDERS:
        count = count_folder(root, folder)
        total += count
        lines.append(comment_line(folder, count))
    lines += [comment_line("all", total), "", f"{'documents':24}{'words':>8}{'you':>8}"]
    documents = Count()
    for path in listed(root, DOCUMENTS):
        count = count_document(path.read_text(encoding="utf-8"))
        documents += count
        lines.append(document_line(str(path.relative_to(root)), count))
    lines.append(document_line("all", documents))

    limits = [
        ("tell", total.per_thousand(total.tell), "at most", MOST_TELL),
        ("what", total.per_thousand(total.what), "at most", MOST_WHAT),
        ("you", documents.per_thousand(documents.you), "at least", LEAST_YOU),
    ]
    broken = [
        f"{word}: {value:.2f} per 1,000 words, {bound} {limit}"
        for word, value, bound, limit in limits
        if (value > limit if bound == "at most" else value < limit)
    ]
    return lines, broken


def comment_line(name: str, count: Count) -> str:
    tell, what = count.per_thousand(count.tell), count.per_thousand(count.what)
    return f"{name:24}{count.words:>8}{tell:>8.2f}{what:>8.2f}"


def document_line(name: str, count: Count) -> str:
    return f"{name:24}{count.words:>8}{count.per_thousand(count.you):>8.2f}"


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("paths", nargs="*", help="with --list: only these files and folders")
    parser.add_argument("--list", action="store_true", help="print every place with one of the words")
    parser.add_argument("--check", action="store_true", help="exit with 1 beyond the limits")
    options = parser.parse_args()
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # a reader such as head may end first
    if options.list:
        for path in listed(ROOT, options.paths or FOLDERS):
            for place in places(path, path.relative_to(ROOT)):
                print(place)
        return 0
    lines, broken = report(ROOT)
    print("\n".join([*lines, "", *(broken or ["words are within their limits"])]))
    return 1 if options.check and broken else 0


if __name__ == "__main__":
    sys.exit(main())
