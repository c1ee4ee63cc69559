"""Fixtures of the package tests: a fresh Debian, the package installed in it, the attacker's host."""

import contextlib
import pathlib
import signal
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
GUEST_MAIN = b"/repository/guest/main\0"
sys.path += [str(ROOT / "tools"), str(ROOT / "tests/e2e")]

from attacker import Attacker
from fresh_debian import FreshDebian
from package import Package


def pytest_addoption(parser):
    parser.addoption("--package", type=pathlib.Path, help="the package for this machine's architecture")
    folder_help = "directory for the tests; in a separate mount namespace if they build a tree"
    parser.addoption("--folder", type=pathlib.Path, help=folder_help)
    parser.addoption("--here", action="store_true", help="test on this machine, a guest, instead of in a tree")


def pytest_configure():
    # Makes SIGTERM clean up like an interrupt.
    signal.signal(signal.SIGTERM, signal.default_int_handler)


@contextlib.contextmanager
def fresh_tree(folder):
    tree = FreshDebian(folder / "tree")
    tree.build()
    tree.mount()
    try:
        yield tree
    finally:
        tree.end_processes()


def guest_itself():
    """The guest that this process runs in; its disk is discarded afterwards."""
    if not pathlib.Path("/proc/1/cmdline").read_bytes().endswith(GUEST_MAIN):
        pytest.exit("--here changes this machine; it is only allowed in a guest of tools/kernels", returncode=2)
    return contextlib.nullcontext(FreshDebian("/"))


@pytest.fixture(scope="session")
def package(request):
    """The package, not yet installed, and a tree with its dependencies."""
    option = request.config.getoption
    with guest_itself() if option("here") else fresh_tree(option("folder")) as tree:
        package = Package(tree, option("package"), option("folder"))
        package.install_dependencies()
        yield package


@contextlib.contextmanager
def installation(package):
    package.install()
    yield package
    package.purge()


@pytest.fixture(scope="module")
def installed(package):
    """The installed package, for tests that do not change it."""
    with installation(package) as one:
        yield one


@pytest.fixture
def changeable(package):
    """The installed package, for one test that may change it."""
    with installation(package) as one:
        yield one


@pytest.fixture(scope="session")
def attacker():
    host = Attacker()
    yield host
    host.close()
