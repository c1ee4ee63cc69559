"""The figures of the agent's cost: how a guest computes them, and how they are shown in a table."""

import os
import subprocess
import time

import pytest

import cost
import idle_cost

COLUMNS = {"one": {"kernel": "6.1.0-test", "pass, ms": "1.5"}, "two": {"pass, ms": "22.0", "only here": "3"}}


def sample(cpu_ms, switches, rss=100, ticks=(0, 0)):
    memory = {name: rss for name in (*idle_cost.MEMORY, *idle_cost.MAPPED)}
    return idle_cost.Sample(memory, int(cpu_ms * 1e6), ticks[0], ticks[1], switches)


@pytest.mark.parametrize("name", ["bash", "a) 1 2 3 (b", ") \n 7"])
def test_times_are_read_after_a_name_with_any_characters(name):
    stat = f"12 ({name}) S 1 12 12 0 -1 4194560 300 0 5 0 17 4 0 0 20 0 1 0 100 2000 50"
    assert idle_cost.times_of(stat) == (17, 4)


def test_value_of_a_field_is_read_without_its_unit():
    fields = idle_cost.fields_of("Name:\ta:b\nVmRSS:\t    6344 kB\nThreads:\t11\n")
    assert fields["Name"] == "a:b"
    assert (idle_cost.number_of(fields, "VmRSS"), idle_cost.number_of(fields, "Threads")) == (6344, 11)


def test_switches_of_both_kinds_are_added():
    fields = idle_cost.fields_of("voluntary_ctxt_switches:\t40\nnonvoluntary_ctxt_switches:\t2\n")
    assert idle_cost.switches_of(fields) == 42


def test_figures_have_the_mean_minute_and_the_memory_at_three_moments():
    samples = [sample(5, {1: 10}, 100, (5, 5)), sample(15, {1: 30}, 110, (20, 40)), sample(45, {1: 70}, 90, (55, 155))]
    figures = idle_cost.figures_of(samples)
    assert [figures[f"VmRSS {when}, KiB"] for when in ("at the start", "after 1 min", "after 2 min")] == [
        *("100", "110", "90")
    ]
    assert figures["CPU of an idle minute, ms"] == "20.0"
    assert (figures["the least minute, ms"], figures["the greatest minute, ms"]) == ("10.0", "30.0")
    assert figures["of it in the kernel"] == "75%"
    assert figures["context switches of an idle minute"] == "30"


@pytest.mark.parametrize("ticks, share", [((0, 0), "-"), ((60, 39), "-"), ((60, 40), "40%")])
def test_share_of_the_kernel_is_omitted_with_few_samples(ticks, share):
    assert idle_cost.figures_of([sample(0, {}), sample(4, {}, ticks=ticks)])["of it in the kernel"] == share


def test_figures_of_a_pass_are_labelled_with_the_shell():
    measured = {"processes": 100, "wallMs": 156.94, "pausedMs": 150.0, "cpuMs": 6.8}
    assert idle_cost.figures_of_pass({**measured, "shells": 0}) == {
        "pass, 100 processes: wall, ms": "156.9",
        "pass, 100 processes: pauses, ms": "150.0",
        "pass, 100 processes: CPU, ms": "6.8",
    }
    with_shell = idle_cost.figures_of_pass({**measured, "shells": 1})
    assert list(with_shell)[0] == "pass, 100 processes, siblings of a shell: wall, ms"


def test_switches_of_a_new_thread_count_from_zero_and_those_of_an_ended_thread_do_not_count():
    assert idle_cost.switches_between(sample(0, {1: 10, 2: 50}), sample(0, {1: 15, 3: 7})) == 12


def test_sample_has_the_figures_of_its_process():
    child = subprocess.Popen(["sh", "-c", "while :; do :; done"])
    try:
        before = idle_cost.sample(child.pid)
        deadline = time.monotonic() + 60
        while (after := idle_cost.sample(child.pid)).cpu_ns < before.cpu_ns + 30_000_000:
            assert time.monotonic() < deadline
            time.sleep(0.01)
    finally:
        child.kill()
        child.wait()
    assert list(after.switches) == [child.pid]
    assert after.memory["VmHWM"] >= after.memory["VmRSS"] > after.memory["Pss"] > 0


def children():
    return subprocess.run(["pgrep", "-P", str(os.getpid())], capture_output=True, text=True).stdout.split()


def test_staged_host_starts_the_missing_processes_and_ends_them(monkeypatch):
    before = len(children())
    counts = iter(range(idle_cost.PROCESSES - 2, idle_cost.PROCESSES + 1))
    monkeypatch.setattr(idle_cost, "count_of_processes", lambda: next(counts))
    with idle_cost.staged_host():
        assert len(children()) == before + 2
    assert len(children()) == before


def test_figures_are_found_among_other_lines_of_the_console():
    lines = ["GUEST runs 6.1", "COST\tpass, ms\t1.5", "COST\tcut off", "RESULT\ta\tb", "minute 1: COST\tx\ty"]
    assert cost.figures_of(lines) == {"pass, ms": "1.5"}


def test_table_has_one_column_per_guest():
    assert cost.text(COLUMNS).splitlines() == [
        "figure            one   two",
        "kernel     6.1.0-test",
        "pass, ms          1.5  22.0",
        "only here                 3",
    ]
    assert cost.markdown(COLUMNS).splitlines() == [
        "| figure | one | two |",
        "|---|---:|---:|",
        "| kernel | 6.1.0-test |  |",
        "| pass, ms | 1.5 | 22.0 |",
        "| only here |  | 3 |",
    ]
