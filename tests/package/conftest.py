"""What the tests of the package stand on: the fresh Debian, the package in it, the attacker's host."""

import pathlib
import signal
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path += [str(ROOT / "tools"), str(ROOT / "tests/e2e")]

from attacker import Attacker
from fresh_debian import FreshDebian
from package import Package


def pytest_addoption(parser):
    parser.addoption("--package", type=pathlib.Path, help="the package for amd64")
    parser.addoption("--folder", type=pathlib.Path, help="folder for the tree, in a mount namespace made for it")


def pytest_configure():
    # A run that is told to end cleans up as one that is interrupted does.
    signal.signal(signal.SIGTERM, signal.default_int_handler)


@pytest.fixture(scope="session")
def package(request):
    """The package in a tree that has what it depends on, and not the package itself."""
    tree = FreshDebian(request.config.getoption("folder") / "tree")
    tree.build()
    tree.mount()
    try:
        package = Package(tree, request.config.getoption("package"))
        package.install_dependencies()
        yield package
    finally:
        tree.end_processes()


@pytest.fixture
def installed(package):
    package.install()
    yield package
    package.purge()


@pytest.fixture(scope="session")
def attacker():
    host = Attacker()
    yield host
    host.close()
