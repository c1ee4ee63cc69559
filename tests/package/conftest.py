"""What the tests of the package stand on: the fresh Debian, the package in it, the attacker's host."""

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
    folder_help = "the tests' own folder; for a tree, in a mount namespace made for it"
    parser.addoption("--folder", type=pathlib.Path, help=folder_help)
    parser.addoption("--here", action="store_true", help="test in the guest that this is, and not in a tree")


def pytest_configure():
    # A run that is told to end cleans up as one that is interrupted does.
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
    """A Debian made for this, of which nothing is kept."""
    if not pathlib.Path("/proc/1/cmdline").read_bytes().endswith(GUEST_MAIN):
        pytest.exit("--here is for a guest of tools/kernels: another machine would be changed", returncode=2)
    return contextlib.nullcontext(FreshDebian("/"))


@pytest.fixture(scope="session")
def package(request):
    """The package in a tree that has what it depends on, and not the package itself."""
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
    """For tests that leave it as it is."""
    with installation(package) as one:
        yield one


@pytest.fixture
def changeable(package):
    """For a test that has the package to itself."""
    with installation(package) as one:
        yield one


@pytest.fixture(scope="session")
def attacker():
    host = Attacker()
    yield host
    host.close()
