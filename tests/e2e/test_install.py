"""cmake --install: the installed files, and that the installed agent works."""

import shutil
import stat
import subprocess

import pytest

from agent import PROGRAM, Scan, environment
from stage import ON_LINE, reverse_shell, shell

BUILD = PROGRAM.parent.parent


@pytest.fixture(scope="module")
def destination(tmp_path_factory):
    """The directory that is the root of the installation (DESTDIR)."""
    if not (BUILD / "cmake_install.cmake").exists() or shutil.which("cmake") is None:
        pytest.skip(f"the agent at {PROGRAM} is not in a build directory, or cmake is missing")
    directory = tmp_path_factory.mktemp("installed")
    install(directory)
    return directory


@pytest.fixture(scope="module")
def installed(destination):
    """The prefix of the installation."""
    (program,) = destination.rglob("sbin/orlim-agent")
    return program.parent.parent


def install(directory):
    subprocess.run(
        ["cmake", "--install", BUILD],
        env=environment(DESTDIR=str(directory)),
        stdin=subprocess.DEVNULL,
        capture_output=True,
        check=True,
        timeout=120,
    )


def test_files_are_in_the_usual_places(destination, installed):
    places = {
        "sbin/orlim-agent": 0o755,
        "sbin/orlim-demo": 0o755,
        "lib/liborlim_agent.so": None,
        "lib/orlim/liborlim_detect-shell.so": None,
        "share/man/man8/orlim-agent.8": 0o644,
        "share/man/man8/orlim-demo.8": 0o644,
        "share/man/man5/orlim-agent.json.5": 0o644,
        "share/bash-completion/completions/orlim-agent": 0o644,
        "lib/systemd/system/orlim-agent.service": 0o644,
        destination / "etc/orlim/orlim-agent.json": 0o644,
        destination / "etc/orlim/default_shells": 0o644,
    }
    for place, mode in places.items():
        status = (installed / place).stat()
        assert stat.S_ISREG(status.st_mode), place
        assert mode is None or stat.S_IMODE(status.st_mode) == mode, place
        assert not status.st_mode & (stat.S_IWGRP | stat.S_IWOTH), place


def test_nothing_else_is_installed(installed):
    files = {path.name for path in installed.rglob("*") if path.is_file()}
    expected = {
        "orlim-agent",
        "orlim-demo",
        "orlim-agent.json",
        "default_shells",
        "orlim-agent.8",
        "orlim-agent.json.5",
        "orlim-demo.8",
    }
    unexpected = files - expected - {"orlim-agent.service"}
    assert {name for name in unexpected if not name.startswith("liborlim_")} == set()


def test_systemd_accepts_the_unit(installed, tmp_path):
    if shutil.which("systemd-analyze") is None:
        pytest.skip("needs systemd-analyze (package systemd)")
    shipped = (installed / "lib/systemd/system/orlim-agent.service").read_text()
    unit = tmp_path / "orlim-agent.service"
    # systemd-analyze checks that the program exists.
    unit.write_text(shipped.replace("ExecStart=/usr/local/", f"ExecStart={installed}/"))
    assert str(installed) in unit.read_text()
    command = ["systemd-analyze", "verify", "--man=no", unit]
    judged = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
    assert [line for line in judged.stderr.splitlines() if unit.name in line] == []


def test_installed_agent_finds_its_module_and_shells(installed, attacker):
    program = installed / "sbin/orlim-agent"
    with reverse_shell(attacker, shell("installed", ON_LINE)) as stage:
        scan = Scan(program=program)
        assert scan.status == 0, scan.log
        assert scan.contents(stage.pid) == [stage.expected_content()]


def test_installation_keeps_a_changed_configuration(destination):
    configuration = destination / "etc/orlim/orlim-agent.json"
    shipped = configuration.read_text()
    configuration.write_text("{}")
    install(destination)
    assert configuration.read_text() == "{}"
    configuration.unlink()
    install(destination)
    assert configuration.read_text() == shipped


def test_installed_configuration_is_valid(destination, installed):
    scan = Scan("--config", destination / "etc/orlim/orlim-agent.json", program=installed / "sbin/orlim-agent")
    assert scan.status == 0, scan.log
    assert "warning" not in scan.log
