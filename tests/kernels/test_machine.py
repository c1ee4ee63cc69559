"""Reading a guest's console. A shell plays the emulator."""

import os
import pathlib

import pytest

import machine
import sources

BOOTABLE = sources.Bootable(pathlib.Path("kernel"), pathlib.Path("initial"))
COMPLETE = r"""
printf 'GUEST runs 6.1.0-test after 5.25 seconds\r\n'
printf '[    1.0] a line of the kernel\r\n\033[0;1mRESULT\ttest_a.py::test_one[a case]\tpassed\t1.5\t\r\n'
printf 'RESULT\ttest_a.py::test_two\tskipped\t0.1\tblind: nothing to see\r\nGUEST ends with 0\r\n'
"""
# Prints the pid of the emulator.
ENDLESS = "echo $$; exec sleep 600"


def boot(tmp_path, script, limit=60):
    board = machine.Board(("sh", "-c", script), "console", "disk")
    lines: list[str] = []
    return machine.boot(board, BOOTABLE, [], tmp_path / "log", limit, lines.append), lines


def test_results_and_times_are_read_from_the_console(tmp_path):
    guest, lines = boot(tmp_path, COMPLETE)
    assert guest.results == [
        machine.Result("test_a.py::test_one[a case]", "passed", 1.5, ""),
        machine.Result("test_a.py::test_two", "skipped", 0.1, "blind: nothing to see"),
    ]
    assert (guest.release, guest.boot_seconds, guest.status, guest.failure) == ("6.1.0-test", 5.25, 0, "")
    assert lines[-2] == "GUEST ends with 0"


def test_whole_console_is_saved(tmp_path):
    boot(tmp_path, COMPLETE)
    assert "a line of the kernel" in (tmp_path / "log").read_text()


def test_guest_that_ends_before_its_tests_has_failed(tmp_path):
    guest, _ = boot(tmp_path, "echo Kernel panic")
    assert (guest.status, guest.failure) == (None, "ended before its tests")


def test_emulator_is_killed_at_the_limit(tmp_path):
    guest, lines = boot(tmp_path, ENDLESS, limit=1)
    assert guest.failure == "ended after 1 seconds, before its tests"
    assert not os.path.exists(f"/proc/{lines[0]}")


def test_invalid_utf8_on_the_console_is_accepted(tmp_path):
    guest, _ = boot(tmp_path, rf"printf '\377\n'; {COMPLETE}")
    assert len(guest.results) == 2


def test_incomplete_result_line_is_ignored(tmp_path):
    guest, _ = boot(tmp_path, r"printf 'RESULT\ttest_a.py::test_one\tpas\n'")
    assert guest.results == []


def test_variables_are_passed_as_kernel_options(tmp_path):
    board = machine.Board(("sh", "-c", 'for word; do echo "$word"; done', "emulator"), "ttyX", "disk")
    lines: list[str] = []
    machine.boot(board, BOOTABLE, [], tmp_path / "log", 60, lines.append, "ONE=1 TWO=2")
    options = lines[lines.index("-append") + 1].split()
    assert options[0] == "console=ttyX"
    assert options[-2:] == ["ONE=1", "TWO=2"]


@pytest.mark.parametrize("counted", [False, True])
def test_only_a_counted_board_uses_icount(counted):
    board = machine.Board(("emulator",), "ttyX", "disk", counted=counted)
    assert ("-icount" in machine.command(board, BOOTABLE, [])) is counted
