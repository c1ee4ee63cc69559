"""The guest for package installations: its dpkg database, and the dependencies of a package."""

import subprocess

import pytest

import dpkg_database
import packages

CONTROL = """Package: {name}
Version: 1:2.5-1
Architecture: {architecture}
Maintainer: Nobody <nobody@packages.example>
{fields}Description: one for a test
 With a second line.
"""


@pytest.fixture
def make_package(tmp_path):
    def make(name, fields="", architecture="all"):
        content = tmp_path / f"content-{name}"
        (content / "DEBIAN").mkdir(parents=True)
        control = CONTROL.format(name=name, architecture=architecture, fields=fields)
        (content / "DEBIAN/control").write_text(control)
        (content / "usr/bin").mkdir(parents=True)
        (content / "usr/bin" / name).touch()
        file = tmp_path / f"{name}.deb"
        subprocess.run(["dpkg-deb", "--root-owner-group", "-b", content, file], stdout=subprocess.DEVNULL, check=True)
        return file

    return make


def ask(root, *question):
    command = ["dpkg-query", f"--admindir={root}/var/lib/dpkg", *question]
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def test_dpkg_lists_unpacked_packages_as_installed(tmp_path, make_package):
    dpkg_database.write(tmp_path, [make_package("first"), make_package("second", "Depends: first\n")])
    listed = ask(tmp_path, "-W", "-f=${Package} ${Version} ${db:Status-Status} ${Depends}\n")
    assert listed.splitlines() == ["first 1:2.5-1 installed ", "second 1:2.5-1 installed first"]


@pytest.mark.parametrize("fields, architecture", [("", "all"), ("Multi-Arch: same\n", "armhf")])
def test_dpkg_lists_the_files(tmp_path, make_package, fields, architecture):
    dpkg_database.write(tmp_path, [make_package("first", fields, architecture)])
    assert ask(tmp_path, "-L", f"first:{architecture}").splitlines() == ["/.", "/usr", "/usr/bin", "/usr/bin/first"]


@pytest.mark.parametrize(
    "depends, names",
    [
        ("libc6", ["libc6"]),
        ("libc6 (>= 2.34), libfmt9(>= 9), init-system-helpers:any", ["libc6", "libfmt9", "init-system-helpers"]),
        ("libmnl0 (>= 1.0.4-1~) | libmnl1, libssl3", ["libmnl0", "libssl3"]),
    ],
)
def test_first_of_alternative_dependencies_is_used(make_package, depends, names):
    assert packages.dependencies(make_package("first", f"Depends: {depends}\n")) == names
