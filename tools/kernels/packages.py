#!/usr/bin/python3
"""Tests the package for 32-bit ARM on a 32-bit ARM kernel in an emulator. Called by ./dev package --test.

In the guest dpkg and apt work. It has the packages for the tests and the declared dependencies of the package, and no
systemd.
"""

import argparse
import pathlib
import re
import sys

import guest
import boots
import table
from archive import HOST_SUITE, Archive

ARCHITECTURE = "armhf"
KERNEL = "armhf-6.1"
NAME = "package-armhf"
LIMIT_SECONDS = 900

# The smallest Debian in which packages can be installed and the tests run.
PACKAGES = (
    *("apt", "base-files", "base-passwd", "bash", "busybox-static", "coreutils", "dash", "debianutils", "diffutils"),
    *("dpkg", "findutils", "grep", "gzip", "init-system-helpers", "iproute2", "libc-bin", "mawk", "mount", "perl-base"),
    *("netcat-openbsd", "procps", "python3", "python3-pytest", "sed", "tar", "usr-is-merged", "util-linux"),
)


def dependencies(package):
    """The names of its dependencies. The apt of the guest checks their versions."""
    field = guest.run("dpkg-deb", "-f", str(package), "Depends")
    return re.findall(r"(?:^|, )([^ ,|(:]+)", field.strip())


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("packages", type=pathlib.Path, help=f"folder of orlim-agent_*_{ARCHITECTURE}.deb")
    limit_help = "seconds until the emulator is killed (%(default)s)"
    parser.add_argument("--limit", type=int, default=LIMIT_SECONDS, metavar="SECONDS", help=limit_help)
    options = parser.parse_args()
    packages = sorted(options.packages.absolute().glob(f"orlim-agent_*_{ARCHITECTURE}.deb"))
    if len(packages) != 1:
        raise SystemExit(f"expected one package for {ARCHITECTURE} in {options.packages}, found {len(packages)}")

    def disks():
        wanted = [*PACKAGES, *dependencies(packages[0])]
        archive = Archive(boots.cache_folder(), HOST_SUITE, ARCHITECTURE)
        root = guest.root_disk(archive, boots.FOLDER, wanted, "package-root", known_to_dpkg=True)
        return root, guest.packaged_disk(packages[0], boots.FOLDER, NAME)

    rows = boots.run_alone(KERNEL, NAME, options.limit, disks)
    print(table.text(rows))
    return 0 if table.is_good(rows) else 1


if __name__ == "__main__":
    sys.exit(main())
