"""./dev mutate makes the faults it promises, and finds those that a sample's tests do not notice."""

import argparse
import pathlib
import shutil
import subprocess
import sys

import pytest

TOOLS = pathlib.Path(__file__).resolve().parents[2] / "tools" / "mutate"
sys.path.insert(0, str(TOOLS))

pytest.importorskip("clang.cindex", reason="needs python3-clang-14 (tools/apt/mutate.txt)")

import explained
import house
import mutate
from trials import Fate
from constants import Constants
from edits import Edit, Span, render
from mutant import MutantList
from preset import Preset
from room import Room
from syntax import Tree, parse
from walker import Walker

SAMPLE = pathlib.Path(__file__).resolve().parent / "mutate_sample"


def walked(folder, text):
    """The walker of a file with this text."""
    file = folder / "src" / "sample" / "sample.cpp"
    file.parent.mkdir(parents=True)
    file.write_text(text, encoding="utf-8")
    tree = Tree(file, text, parse(file, ["-std=c++20"], folder)[file])
    walker = Walker(tree, Constants([tree]), MutantList(folder))
    walker.make_constants()
    walker.walk()
    return walker


def changes(walker):
    return [mutant.change for mutant in walker.mutants.mutants]


def copy_of(walker):
    return render(walker.tree.text, walker.edits, Span(0, len(walker.tree.text)))


def within(body):
    return f"int Get(int); void Put(int); bool Ask(int);\nint F(int a, int b) {{ {body} }}\n"


@pytest.mark.parametrize(
    "body, expected",
    [
        ("return a < b;", ["`return a < b;` returns an empty value", "`<` to `<=` in `a < b`"]),
        ("return a < 3;", ["`return a < 3;` returns an empty value", "`3` to `4` in `a < 3`", "`3` to `2` in `a < 3`"]),
        ("return a + b;", ["`return a + b;` returns an empty value", "`+` to `-` in `a + b`"]),
        ("return 0;", ["`0` to `1` in `return 0`"]),
        ("Put(7);", ["`Put(7);` left out", "`7` to `8` in `Put(7)`", "`7` to `6` in `Put(7)`"]),
        ("a += b;", ["`a += b;` left out", "`+=` to `-=` in `a += b`"]),
        ("++a;", ["`++a;` left out", "`++` to `--` in `++a`"]),
        ("a = Get(b);", ["`a = Get(b);` left out"]),
        ("F(a, b);", ["`F(a, b);` left out", "`a` and `b` exchanged"]),
        ("enum E { one, two }; E e = one;", ["`one` to `two` in `E e = one`"]),
        ("bool x = a == 3;", ["`a == 3` always true", "`a == 3` always false"]),
        ('const char* text = "x";', ['`"x"` empty in `const char* text = "x"`']),
        ("static_assert(sizeof(int) == 4);", []),
    ],
)
def test_expressions_get_their_faults(tmp_path, body, expected):
    assert sorted(changes(walked(tmp_path, within(body)))) == sorted(expected)


CALLS = ["`Put(a);` left out", "`Put(b);` left out"]
JUMP = "`break;` left out behind `Put(a);`"
EITHER = ["`Ask(a)` always true", "`Ask(a)` always false"]


@pytest.mark.parametrize(
    "body, expected",
    [
        ("if (Ask(a)) { Put(a); }", EITHER),
        ("if (Ask(a)) { Put(a); } else { Put(b); }", EITHER + CALLS),
        (
            "if (Ask(a) && Ask(b)) { }",
            ["`Ask(a) && Ask(b)` always false", "`Ask(a)` always true", "`Ask(b)` always true"],
        ),
        (
            "if (Ask(a) || Ask(b)) { }",
            ["`Ask(a) || Ask(b)` always true", "`Ask(a)` always false", "`Ask(b)` always false"],
        ),
        ("while (Ask(a)) { Put(a); }", ["`Ask(a)` always false", "`Put(a);` left out"]),
        ("for (; Ask(a); ++a) { Put(a); }", ["`Ask(a)` always false", "`Put(a);` left out"]),
        ("do { Put(a); } while (Ask(a));", ["`Ask(a)` always false", "`Put(a);` left out"]),
        ("int t[2]; for (int x : t) { Put(x); }", ["the loop does not run"]),
        ("switch (a) { case 1:\nPut(a);\nbreak; default: Put(b); }", ["`case 1:` left out", JUMP, *CALLS]),
        ("Put(a); Put(b);", [*CALLS, "`Put(a);` exchanged with `Put(b);`"]),
        (
            "a = b; b = Get(a);",
            ["`a = b;` left out", "`b = Get(a);` left out", "`a = b;` exchanged with `b = Get(a);`"],
        ),
        ("if (Ask(a)) { Put(a); return 0; }", [*EITHER, "`Put(a);` left out", "`0` to `1` in `return 0`"]),
    ],
)
def test_statements_get_their_faults(tmp_path, body, expected):
    assert sorted(changes(walked(tmp_path, within(body)))) == sorted(expected)


def test_steps_in_memory_are_exchanged_only_where_one_uses_the_other(tmp_path):
    walker = walked(tmp_path, within("int c = 0; a = b; c = b; b = c;"))
    assert [change for change in changes(walker) if "exchanged" in change] == ["`c = b;` exchanged with `b = c;`"]


def test_a_constant_is_switched_where_the_compiler_need_not_know_it(tmp_path):
    walker = walked(tmp_path, "constexpr int most = 4;\nint F() { return most; }\n")
    assert changes(walker)[:2] == ["`4` to `5`", "`4` to `3`"]
    assert not any(mutant.rebuilt for mutant in walker.mutants.mutants)
    assert "::Mutants::Reach(1, 2)" in copy_of(walker)


def test_a_constant_that_the_compiler_needs_is_rebuilt(tmp_path):
    walker = walked(tmp_path, "constexpr int most = 4;\nint F() { char text[most]; return text[most - 1]; }\n")
    assert [mutant.rebuilt[1] for mutant in walker.mutants.mutants if mutant.rebuilt] == ["5", "3"]
    assert "constexpr int most = 4;" in copy_of(walker)


def test_edits_hold_each_other():
    text = "f(a, b)"
    edits = [Edit(Span(0, 7), ("g(", Span(2, 6), ", ", Span(2, 3), ")")), Edit(Span(2, 3), ("[", Span(2, 3), "]"))]
    assert render(text, edits, Span(0, 7)) == "g([a], b, [a])"


@pytest.fixture(scope="module")
def sample(tmp_path_factory):
    """The room of a copy of the sample, built with its tests."""
    root = tmp_path_factory.mktemp("mutate") / "tree"
    shutil.copytree(SAMPLE, root)
    build = root / "build" / "release"
    subprocess.run(["cmake", "-G", "Ninja", "-S", str(root), "-B", str(build)], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", str(build)], check=True, stdout=subprocess.DEVNULL)
    return Room(root, "sample", Preset(build), root / "build" / "mutate")


@pytest.fixture(scope="module")
def verdicts(sample):
    return mutate.judge(sample, argparse.Namespace(jobs=2, own=False))


def test_the_faults_that_the_samples_tests_miss_survive(verdicts):
    alive = {(*verdict.mutant.key(), verdict.fate) for verdict in mutate.survivors(verdicts)}
    source = "src/sample/steps.cpp"
    both = "return walk.steps > 0 && walk.steps <= mostSteps;"
    assert alive == {
        ("src/sample/steps.h", "int steps = 0;", "`0` to `1` in `int steps = 0`", Fate.SURVIVED),
        (source, both, "`walk.steps > 0` always true", Fate.SURVIVED),
        (source, both, "`0` to `1` in `walk.steps > 0`", Fate.SURVIVED),
        (source, "walk.steps = 0;", "`walk.steps = 0;` left out", Fate.NOT_REACHED),
        (source, "walk.steps = 0;", "`0` to `1` in `walk.steps = 0`", Fate.NOT_REACHED),
    }


def test_a_fault_that_hangs_is_caught(verdicts):
    (hanging,) = (verdict for verdict in verdicts if verdict.mutant.change == "`--from;` left out")
    assert hanging.fate == Fate.HANGS


def test_a_fault_in_a_header_reaches_the_tests(verdicts):
    (fault,) = (
        verdict for verdict in verdicts if verdict.mutant.change == "`slow` to `fast` in `Pace pace = Pace::slow`"
    )
    assert fault.mutant.file == "src/sample/steps.h" and fault.fate == Fate.CAUGHT


def test_a_fault_that_needs_a_build_of_its_own_is_judged(verdicts):
    (fault,) = (verdict for verdict in verdicts if verdict.mutant.change == "`case Pace::slow:` left out")
    assert fault.mutant.rebuilt and fault.fate == Fate.CAUGHT


def test_what_is_explained_is_no_finding(sample, verdicts, capsys):
    known = {verdict.mutant.key(): "a reason" for verdict in mutate.survivors(verdicts)}
    assert mutate.report(sample, verdicts, known) == 0
    known.popitem()
    assert mutate.report(sample, verdicts, known) == 1
    assert "src/sample/steps.cpp" in capsys.readouterr().out


def test_an_explanation_that_nothing_needs_is_a_finding(sample, verdicts):
    known = {verdict.mutant.key(): "a reason" for verdict in verdicts}
    caught = {verdict.mutant.key() for verdict in verdicts} - {
        verdict.mutant.key() for verdict in mutate.survivors(verdicts)
    }
    assert mutate.report(sample, verdicts, known) == len(caught)


def test_rows_are_read_as_they_are_written(tmp_path, verdicts):
    table = tmp_path / "mutations.md"
    mutants = [verdict.mutant for verdict in verdicts]
    rows = [explained.row(mutant, "a | reason") for mutant in mutants]
    table.write_text("# Head\n\n| File | Line |\n|---|---|\n" + "\n".join(rows) + "\n", encoding="utf-8")
    assert explained.read(table) == {mutant.key(): "a | reason" for mutant in mutants}


def test_a_row_without_a_reason_is_refused(tmp_path, verdicts):
    table = tmp_path / "mutations.md"
    table.write_text(explained.row(verdicts[0].mutant) + "\n", encoding="utf-8")
    with pytest.raises(SystemExit, match="mutations.md:1"):
        explained.read(table)


def test_a_header_is_mutated_with_the_room_that_compiles_it(tmp_path):
    for name, text in {
        "CMakeLists.txt": "orlim_room(low\n)\norlim_room(high\n)\n",
        "low/own.h": "",
        "low/own.cpp": '#include "low/own.h"\n',
        "low/lent.h": "",
        "high/user.cpp": '#include "low/own.h"\n#include "low/lent.h"\n',
    }.items():
        file = tmp_path / "src" / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text, encoding="utf-8")
    assert [header.name for header in house.headers(tmp_path, "low")] == ["own.h"]
    assert [header.name for header in house.headers(tmp_path, "high")] == ["lent.h"]
