"""A scan whose events cannot be written logs the error and fails."""

import resource

import pytest

from agent import run_to_end, write_config
from stage import ON_LINE, reverse_shell, shell


@pytest.fixture(scope="module")
def found(attacker):
    with reverse_shell(attacker, shell("lost-output", ON_LINE)) as stage:
        yield stage


def test_full_standard_output_fails_the_scan(found):
    with open("/dev/full", "wb") as full:
        done = run_to_end("scan", stdout=full)
    assert done.returncode == 1
    assert "cannot write events to standard output" in done.stderr.decode()
    assert "No space left on device" in done.stderr.decode()


def test_file_size_limit_fails_the_scan_without_killing_the_agent(found, tmp_path):
    config = write_config(tmp_path, {"events": {"sinks": [{"type": "file", "path": str(tmp_path / "events")}]}})
    done = run_to_end("scan", "--config", config, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (0, 0)))
    assert done.returncode == 1, done.stderr
    assert "File too large" in done.stderr.decode()
