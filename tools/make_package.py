#!/usr/bin/python3
"""Makes a Debian package from the build of a CMake package preset and checks it with lintian.

debhelper does the work in a separate directory, controlled by packaging/debian. This script writes the changelog that
debhelper needs, from the version and the date of the last commit. Debug symbols stay in the build directory.
"""

import argparse
import email.utils
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
REVISION = "0orlim1"  # lower than any revision by Debian
CHANGELOG = """orlim ({version}) unstable; urgency=medium

  * Release {release}; changelog.gz lists the changes.

 -- {maintainer}  {date}
"""


def cached_by_cmake(build, name):
    text = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    found = re.search(rf"^{name}(?::\w+)?=(.*)$", text, re.MULTILINE)
    if not found:
        sys.exit(f"make_package: {build} was not configured by CMake: {name} is missing")
    return found[1]


def date_of_sources():
    """Seconds since the epoch, so that the same sources make the same package."""
    if "SOURCE_DATE_EPOCH" in os.environ:
        return int(os.environ["SOURCE_DATE_EPOCH"])
    command = ["git", "-C", str(ROOT), "log", "-1", "--format=%ct"]
    shown = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    return int(shown.stdout) if shown.returncode == 0 else int(time.time())


def stage(folder, release, date):
    """Creates the directory that debhelper expects."""
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(ROOT / "packaging/debian", folder / "debian")
    control = (folder / "debian/control").read_text(encoding="utf-8")
    changelog = CHANGELOG.format(
        version=f"{release}-{REVISION}",
        release=release,
        maintainer=re.search(r"^Maintainer: (.*)$", control, re.MULTILINE)[1],
        date=email.utils.formatdate(date),
    )
    (folder / "debian/changelog").write_text(changelog, encoding="utf-8")


def make(folder, architecture, build, date):
    libraries = ROOT / "build/sysroot-armhf" if architecture == "armhf" else ""
    environment = {
        **os.environ,
        "DEB_BUILD_OPTIONS": "noautodbgsym",
        "DEB_RULES_REQUIRES_ROOT": "no",
        "ORLIM_BUILD": str(build),
        "ORLIM_LIBRARIES": str(libraries),
        "ORLIM_SOURCE": str(ROOT),
        "SOURCE_DATE_EPOCH": str(date),
    }
    command = ["dpkg-architecture", f"-a{architecture}", "-f", "-c", "debian/rules", "binary"]
    done = subprocess.run(
        command, cwd=folder, env=environment, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False
    )
    if done.returncode != 0:
        sys.exit(f"make_package: the package for {architecture} cannot be made:\n{done.stdout}{done.stderr}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("architecture", choices=("amd64", "armhf"))
    parser.add_argument("build", type=pathlib.Path, help="build directory of the preset")
    parser.add_argument("packages", type=pathlib.Path, help="directory for the packages")
    options = parser.parse_args()
    build, packages = options.build.absolute(), options.packages.absolute()

    date = date_of_sources()
    # debhelper leaves packages next to its working directory.
    work = packages / f"work-{options.architecture}"
    stage(work / "orlim", cached_by_cmake(build, "CMAKE_PROJECT_VERSION"), date)
    make(work / "orlim", options.architecture, build, date)
    made = sorted(work.glob("*.deb"))
    for old in packages.glob(f"*_{options.architecture}.deb"):
        old.unlink()
    files = [shutil.move(file, packages / file.name) for file in made]
    shutil.rmtree(work)
    for file in files:
        print(file)
    judge = ["lintian", "--allow-root", "--fail-on", "error,warning"]
    judged = subprocess.run([*judge, *files], stdin=subprocess.DEVNULL, check=False)
    if judged.returncode != 0:
        sys.exit(f"make_package: lintian refuses the package for {options.architecture}")


if __name__ == "__main__":
    main()
