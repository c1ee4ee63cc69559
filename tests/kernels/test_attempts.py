"""The number of attempts to boot a kernel."""

import pytest

import boots
import table

GOOD, BAD = table.PASS, table.FAIL


@pytest.mark.parametrize(
    "attempts, outcomes, count, last",
    [
        (1, [GOOD], 1, GOOD),
        (1, [BAD], 1, BAD),
        (2, [GOOD, BAD], 1, GOOD),
        (2, [BAD, GOOD], 2, GOOD),
        (2, [BAD, BAD], 2, BAD),
    ],
)
def test_a_kernel_is_booted_until_a_run_is_good_or_no_attempt_is_left(attempts, outcomes, count, last):
    done: list[str] = []

    def run_once():
        done.append(outcomes[len(done)])
        return [table.Row("amd64-6.1", "boots", done[-1], 1.0)]

    rows = boots.run_up_to(attempts, "amd64-6.1", run_once)
    assert (len(done), rows[0].result) == (count, last)


def test_another_attempt_is_reported(capsys):
    boots.run_up_to(2, "amd64-6.1", lambda: [table.Row("amd64-6.1", "boots", BAD, 1.0)])
    assert "amd64-6.1: not as it should be, hence attempt 2 of 2" in capsys.readouterr().err
