"""The verdict on the results of a guest, and the table of results."""

import pytest

import machine
import table


def guest(*outcomes, status=0, failure=""):
    made = machine.Guest()
    made.release, made.status, made.failure = "6.1.0-test", status, failure
    made.results = [machine.Result("test_a.py::test_one", outcome, 1.0, reason) for outcome, reason in outcomes]
    return made


@pytest.mark.parametrize(
    "results, good",
    [
        ([("passed", "")], True),
        ([("passed", ""), ("skipped", "blind: no stacks")], True),
        ([("passed", ""), ("skipped", "nc is not installed")], False),
        ([("passed", ""), ("failed", "")], False),
        ([], False),
    ],
)
def test_only_passed_and_blind_are_good(results, good):
    assert table.is_good(table.rows_of("amd64-6.1", guest(*results))) is good


@pytest.mark.parametrize("status, failure", [(1, ""), (None, "ended before its tests")])
def test_run_that_fails_is_not_good(status, failure):
    assert not table.is_good(table.rows_of("amd64-6.1", guest(("passed", ""), status=status, failure=failure)))


def test_kernel_that_does_not_boot_is_not_good():
    assert not table.is_good(table.rows_of("amd64-6.1", machine.Guest()))


@pytest.mark.parametrize(
    "test, words",
    [
        ("test_a.py::test_some_thing", "some thing"),
        ("test_a.py::test_some_thing[a case_here]", "some thing: a case_here"),
        ("test_a.py::test_some_thing[case[1]]", "some thing: case[1]"),
    ],
)
def test_test_ids_are_shown_as_words(test, words):
    assert table.wording(test) == words


def test_text_has_one_line_per_result_and_markdown_one_column_per_kernel():
    rows = [table.Row("one", "works", table.PASS, 1.0), table.Row("two", "works", table.BLIND, 22.0)]
    assert table.text(rows).splitlines() == [
        "kernel  test   result  seconds",
        "one     works  pass        1.0",
        "two     works  blind      22.0",
    ]
    assert table.markdown(rows).splitlines() == [
        "| test | one | two |",
        "|---|---|---|",
        "| works | pass 1.0 | blind 22.0 |",
    ]
