"""Requirements of all end-to-end tests: rights, the program, the attacker's host."""

import os
import pathlib
import shutil
import signal
import tempfile

import pytest
from _pytest.main import pytest_cmdline_main as ordinary_main

import agent
from apart import run_apart
from attacker import Attacker
from waiting import slowness

# From linux/capability.h: the agent's capabilities, and those for network namespaces.
NEEDED_CAPABILITIES = {"CAP_NET_ADMIN": 12, "CAP_SYS_PTRACE": 19, "CAP_SYS_ADMIN": 21}


@pytest.hookimpl(tryfirst=True)
def pytest_cmdline_main(config):
    if hasattr(config, "workerinput"):
        return None  # a worker of pytest-xdist; its parent already runs apart
    return run_apart(lambda: int(ordinary_main(config)))


def pytest_configure(config):
    # Makes SIGTERM, for example from timeout(1), clean up like an interrupt.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    config.addinivalue_line("markers", "kernel: depends on the kernel; ./dev kernels runs it on several kernels")
    # Measured here, before the tests keep this machine busy.
    slowness()


def missing_rights():
    if os.geteuid() != 0:
        return "root (network namespaces, other processes' descriptors)"
    for line in pathlib.Path("/proc/self/status").read_text().splitlines():
        if line.startswith("CapEff:"):
            effective = int(line.split()[1], 16)
            return ", ".join(name for name, number in NEEDED_CAPABILITIES.items() if not effective >> number & 1)
    return ""


@pytest.fixture(scope="session", autouse=True)
def rights():
    missing = missing_rights()
    if missing:
        pytest.skip(f"the end-to-end tests lack {missing}")


@pytest.fixture(scope="session", autouse=True)
def program(rights):
    if not os.access(agent.PROGRAM, os.X_OK):
        pytest.exit(f"no agent at {agent.PROGRAM}: build it, or name it in ORLIM_AGENT", returncode=2)


@pytest.fixture(scope="session")
def attacker(rights):
    if shutil.which("ip") is None:
        pytest.skip("the end-to-end tests lack ip, of the package iproute2")
    host = Attacker()
    yield host
    host.close()


@pytest.fixture
def open_directory():
    """A directory that every user may enter. pytest's temporary directories are closed to other users."""
    directory = pathlib.Path(tempfile.mkdtemp(prefix="orlim-e2e-"))
    try:
        directory.chmod(0o755)
        yield directory
    finally:
        shutil.rmtree(directory)


@pytest.fixture
def copied_program(open_directory):
    """A copy of the agent with its demonstration and libraries, in a directory that every user may enter."""
    (open_directory / "bin").mkdir()
    for program in (agent.PROGRAM, agent.PROGRAM.parent / "orlim-demo"):
        shutil.copy(program, open_directory / "bin")
    (open_directory / "lib").mkdir()
    for library in agent.LIBRARIES.rglob("liborlim_*.so"):
        shutil.copy(library, open_directory / "lib")
    return open_directory / "bin" / agent.PROGRAM.name
