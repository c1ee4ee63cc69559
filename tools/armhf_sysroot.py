#!/usr/bin/python3
"""Unpacks Debian's armhf libraries into the directory that 32-bit ARM programs are linked against and run in.

Uses apt with a separate state directory, so that the machine's package lists and its dpkg do not change: a foreign
architecture there would tie the machine's own upgrades to it. Downloads from the machine's Debian sources into the
directory that ORLIM_CACHE names, or build/cache. Needs no root. Does nothing while the directory is up to date.
"""

import argparse
import fcntl
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
LISTS = ("build.txt", "test.txt")
SOURCES = pathlib.Path("/etc/apt")
STAMP = ".made-from"

APT_CONFIGURATION = """
APT::Architecture "armhf";
#clear APT::Architectures;
APT::Architectures {{ "armhf"; }};
APT::Install-Recommends "false";
APT::Sandbox::User "{user}";
Acquire::Languages "none";
Acquire::Retries "3";
Dir::Cache "{cache}/apt";
Dir::State "{state}";
Dir::State::status "{state}/status";
Dir::Etc::sourcelist "/dev/null";
Dir::Etc::sourceparts "{state}/sources";
// The hooks of the machine are for its own updates and installations.
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
#clear DPkg::Pre-Install-Pkgs;
#clear DPkg::Pre-Invoke;
#clear DPkg::Post-Invoke;
"""


def fail(message):
    sys.exit(f"armhf_sysroot: {message}")


def wanted_packages():
    """The libraries that the build and the tests need, by their -dev packages."""
    lines = [line for name in LISTS for line in (ROOT / "tools/apt" / name).read_text(encoding="utf-8").splitlines()]
    listed = (line.split("#")[0].strip() for line in lines)
    return sorted(name for name in listed if name.endswith("-dev"))


def debian_release():
    text = pathlib.Path("/etc/os-release").read_text(encoding="utf-8")
    fields = dict(line.split("=", 1) for line in text.splitlines() if "=" in line)
    if fields.get("ID") != "debian" or "VERSION_CODENAME" not in fields:
        fail("needs Debian, whose sources it fetches from")
    return fields["VERSION_CODENAME"].strip('"')


def is_suite_of(release, suite):
    return re.fullmatch(re.escape(release) + r"(-updates|-security|/updates)?", suite) is not None


def fields_of(stanza):
    """The fields in order, by their names in lower case. A value includes its continuation lines."""
    fields: dict[str, str] = {}
    name = ""
    for line in stanza.splitlines():
        if line.startswith("#"):
            continue
        if line[:1] in (" ", "\t"):
            fields[name] = fields.get(name, "") + "\n" + line
        elif ":" in line:
            name, value = line.split(":", 1)
            name = name.lower()
            fields[name] = value.strip()
    return fields


def stanzas(text, release):
    """The sources of the release in deb822 format, for any architecture."""
    for stanza in re.split(r"\n\s*\n", text):
        fields = fields_of(stanza)
        suites = [suite for suite in fields.get("suites", "").split() if is_suite_of(release, suite)]
        listed = "deb" in fields.get("types", "").split() and "main" in fields.get("components", "").split()
        if not suites or not listed or fields.get("enabled", "yes") == "no":
            continue
        fields.pop("architectures", None)
        fields.update(types="deb", suites=" ".join(suites), components="main")
        yield "\n".join(f"{name}: {value}" for name, value in fields.items())


def lines(text, release):
    """The sources of the release in one-line format, for any architecture."""
    for line in text.splitlines():
        parts = re.fullmatch(r"\s*deb\s+(\[[^]]*\])?\s*(\S+)\s+(\S+)\s+([^#]*)(#.*)?", line)
        if parts and is_suite_of(release, parts[3]) and "main" in parts[4].split():
            options = re.sub(r"\barch[+-]?=\S*?(?=[\s\]])", "", parts[1] or "")
            yield f"deb {options} {parts[2]} {parts[3]} main"


def write_sources(folder):
    release = debian_release()
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    files = [SOURCES / "sources.list", *sorted((SOURCES / "sources.list.d").glob("*"))]
    texts = [(path, path.read_text(encoding="utf-8")) for path in files if path.is_file()]
    of_lines = [line for path, text in texts if path.suffix == ".list" for line in lines(text, release)]
    of_stanzas = [stanza for path, text in texts if path.suffix == ".sources" for stanza in stanzas(text, release)]
    if not of_lines and not of_stanzas:
        fail(f"the machine's apt has no source of Debian's {release}")
    (folder / "debian.list").write_text("\n".join(of_lines) + "\n", encoding="utf-8")
    (folder / "debian.sources").write_text("\n\n".join(of_stanzas) + "\n", encoding="utf-8")


def apt(configuration, *arguments):
    command = ["apt-get", "-c", str(configuration), "-qq", *arguments]
    return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)


def fetch(packages, cache):
    """The files of the packages and of their dependencies."""
    state = cache / "armhf"
    archives = cache / "apt" / "archives"
    (state / "lists" / "partial").mkdir(parents=True, exist_ok=True)
    (archives / "partial").mkdir(parents=True, exist_ok=True)
    (state / "status").touch()
    write_sources(state / "sources")
    configuration = state / "apt.conf"
    user = "root" if os.geteuid() == 0 else ""
    configuration.write_text(APT_CONFIGURATION.format(cache=cache, state=state, user=user), encoding="utf-8")

    # One suite may be out of date for a while. The others suffice, or the installation below fails.
    update = apt(configuration, "update")
    fetched = apt(configuration, "install", "-y", "--download-only", *packages)
    if fetched.returncode != 0:
        fail("the packages cannot be fetched:\n" + update.stderr + fetched.stderr)
    named = apt(configuration, "install", "-s", "-o", "Debug::NoLocking=true", *packages)
    chosen = re.findall(r"^Inst (\S+?)(?::\S+)? \((\S+) .*\[(\S+)\]\)", named.stdout, re.MULTILINE)
    if not chosen:
        fail("apt names no packages:\n" + named.stdout + named.stderr)
    return [archives / f"{name}_{version.replace(':', '%3a')}_{machine}.deb" for name, version, machine in chosen]


def point_links_inside(folder):
    """Makes absolute links relative, because they would lead out of the directory."""
    for path in folder.rglob("*"):
        if path.is_symlink() and os.path.isabs(os.readlink(path)):
            inside = folder / os.readlink(path).lstrip("/")
            target = os.path.relpath(inside, path.parent)
            path.unlink()
            path.symlink_to(target)


def describe_libraries(file, folder):
    """Adds the library metadata of the package to the files in which dpkg-shlibdeps -S looks."""
    with tempfile.TemporaryDirectory() as control:
        subprocess.run(["dpkg-deb", "-e", str(file), control], check=True)
        for name in ("shlibs", "symbols"):
            described = pathlib.Path(control, name)
            if described.exists():
                (folder / "DEBIAN").mkdir(exist_ok=True)
                with open(folder / "DEBIAN" / name, "a", encoding="utf-8") as all_described:
                    all_described.write(described.read_text(encoding="utf-8"))


def unpack(files, folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for file in files:
        done = subprocess.run(["dpkg-deb", "-x", str(file), str(folder)], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            fail(f"{file.name} cannot be unpacked: {done.stderr.strip()}")
        describe_libraries(file, folder)
    point_links_inside(folder)
    shutil.rmtree(folder / "usr" / "share" / "doc", ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description="Unpacks Debian's armhf libraries.")
    parser.add_argument("folder", nargs="?", type=pathlib.Path, default=ROOT / "build" / "sysroot-armhf")
    folder = parser.parse_args().folder.absolute()
    cache = pathlib.Path(os.environ.get("ORLIM_CACHE") or ROOT / "build" / "cache").absolute()

    packages = wanted_packages()
    recipe = hashlib.sha256(pathlib.Path(__file__).read_bytes()).hexdigest() + " " + " ".join(packages) + "\n"
    stamp = folder / STAMP
    if stamp.is_file() and stamp.read_text(encoding="utf-8") == recipe:
        return
    missing = [tool for tool in ("apt-get", "dpkg-deb") if shutil.which(tool) is None]
    if missing:
        fail(f"needs Debian's {' and '.join(missing)}")
    if folder.exists() and any(folder.iterdir()) and not stamp.is_file():
        fail(f"{folder} holds something else")

    cache.mkdir(parents=True, exist_ok=True)
    with open(cache / "armhf.lock", "w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        print(f"armhf_sysroot: fetching {' '.join(packages)} and their dependencies", file=sys.stderr)
        files = fetch(packages, cache)
        making = folder.with_name(folder.name + ".new")
        unpack(files, making)
        (making / STAMP).write_text(recipe, encoding="utf-8")
        shutil.rmtree(folder, ignore_errors=True)
        making.rename(folder)


if __name__ == "__main__":
    main()
