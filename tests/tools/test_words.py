"""The counts of words in comments and documents."""

import subprocess

import count_words
import pytest


def count(name, text):
    total = count_words.Count()
    for comment in count_words.comments_in(text, name):
        total += count_words.count_comment(comment.text)
    return total.words, total.tell, total.what


@pytest.mark.parametrize(
    "text, counts",
    [
        ("// It tells what is due.\n", (5, 1, 1)),
        ("/* Told\n * once. */ int a;  // telling\n", (3, 2, 0)),
        ('log("tell // what");\n', (0, 0, 0)),
        ('auto a = R"(tell)" "what"; char c = \'"\'; // tell\n', (1, 1, 0)),
        ("auto tell = 1'000; // one word: thousand\n", (3, 0, 0)),
        ("// What is due?\n// It is what is due. A file.what? No.\n", (12, 0, 1)),
        ("// A sentence over\n// two lines: what\n// is due?\n", (8, 0, 0)),
        ('// Logs "what tells" and `told`.\n', (2, 0, 0)),
        ("// whatever foretells\n", (2, 0, 0)),
        ("// what() is the reason\n", (4, 0, 0)),
    ],
)
def test_counts_in_comments_of_cpp(text, counts):
    assert count("a.cpp", text) == counts


@pytest.mark.parametrize(
    "text, counts",
    [
        ('#!/usr/bin/python3\n"""What it tells."""\nx = "# tell"  # told\n', (4, 2, 1)),
        ('def what():\n    """One\n\n    two."""\n    return """tell"""\n', (2, 0, 0)),
    ],
)
def test_counts_in_comments_and_docstrings_of_python(text, counts):
    assert count("a.py", text) == counts


@pytest.mark.parametrize("name", ["a.sh", "a.cmake", "CMakeLists.txt"])
def test_counts_in_comments_after_a_hash(name):
    assert count(name, "#!/bin/what\n# Told once.\nset(a#tell) # what\n") == (3, 1, 1)


def test_other_files_have_no_comments():
    assert count("a.json", "// what tells\n") == (0, 0, 0)


def test_counts_the_reader_in_prose_alone():
    text = "# You\n\nyou see `you` [this](you.md)\n\n| you |\n|---|\n\n```sh\nyou\n```\n<!-- you\nyou -->\nyour day.\n"
    counted = count_words.count_document(text)
    assert (counted.words, counted.you) == (6, 2)


def tree(root, comment, document):
    for name, text in (("src/a.cpp", f"// {comment}\n"), ("README.md", f"{document}\n")):
        path = root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
    subprocess.run(["git", "init", "-q"], cwd=root, check=True)
    return root


def test_a_tree_within_the_limits_passes(tmp_path):
    _, broken = count_words.report(tree(tmp_path, "due tasks", "you run it"))
    assert broken == []


@pytest.mark.parametrize(
    "comment, document, word",
    [("tells tasks", "you run it", "tell"), ("what is due", "you run it", "what"), ("due", "it runs", "you")],
)
def test_a_tree_beyond_a_limit_is_reported(tmp_path, comment, document, word):
    _, broken = count_words.report(tree(tmp_path, comment, document))
    assert [line.partition(":")[0] for line in broken] == [word]


def test_every_place_is_listed_with_its_line(tmp_path):
    path = tmp_path / "a.cpp"
    path.write_text("int a;\n// One.\n// It is told\n// by what it does.\n", encoding="utf-8")
    assert list(count_words.places(path, path.relative_to(tmp_path))) == [
        "a.cpp:3: It is told",
        "a.cpp:4: by what it does.",
    ]
