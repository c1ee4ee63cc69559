#!/usr/bin/python3
"""Tests the Debian package for amd64 in a directory, in a fresh Debian 12 that is created and removed.

Needs root and debootstrap. The tree sees the processes and the network of this machine; systemd does not run in it.
"""

import argparse
import os
import pathlib
import shutil
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.append(str(HERE.parent.parent / "tools"))
sys.dont_write_bytecode = True

from fresh_debian import heed_signals, in_mount_namespace


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("packages", type=pathlib.Path, help="directory with orlim-agent_*_amd64.deb")
    options = parser.parse_args()
    heed_signals()
    packages = sorted(options.packages.absolute().glob("orlim-agent_*_amd64.deb"))
    if len(packages) != 1:
        raise SystemExit(f"expected one package for amd64 in {options.packages}, found {len(packages)}")
    for program in ("debootstrap", "dpkg-deb", "ip", "unshare"):
        if shutil.which(program) is None:
            raise SystemExit(f"needs {program}")
    if os.geteuid() != 0:
        raise SystemExit("needs root, to mount and enter the tree")
    pytest = [sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "-q", str(HERE), f"--package={packages[0]}"]
    return in_mount_namespace([*pytest, "--folder"], "orlim-package-")


if __name__ == "__main__":
    sys.exit(main())
