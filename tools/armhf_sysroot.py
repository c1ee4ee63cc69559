#!/usr/bin/python3
"""Makes the folder that 32-bit ARM programs are linked against and run in: Debian's armhf libraries, unpacked.

They come through an apt with a state of its own, so that the machine's package lists and its dpkg stay as they are: a
foreign architecture there would tie the machine's own upgrades to that architecture's. Where to fetch from is read from
the machine's sources of Debian. Needs no root. Fetched packages are kept in the folder that ORLIM_CACHE names, or in
build/cache. Nothing is fetched while the folder holds what it should.
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
// What the machine does after its own updates and installations is not for this one.
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
    """What the build and the tests find by its -dev packages."""
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
    """The fields in order, by name in lower case; a value keeps the lines that continue it."""
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
    """Sources in the format of fields, those of the release, for any architecture."""
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
    """Sources in the format of lines, those of the release, for any architecture."""
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
    """The package files of packages and of all that they need."""
    state = cache / "armhf"
    archives = cache / "apt" / "archives"
    (state / "lists" / "partial").mkdir(parents=True, exist_ok=True)
    (archives / "partial").mkdir(parents=True, exist_ok=True)
    (state / "status").touch()
    write_sources(state / "sources")
    configuration = state / "apt.conf"
    user = "root" if os.geteuid() == 0 else ""
    configuration.write_text(APT_CONFIGURATION.format(cache=cache, state=state, user=user), encoding="utf-8")

    # A suite may be behind for one architecture for a while: what the others hold is enough, or fails below.
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
    """A link from the root would leave the folder."""
    for path in folder.rglob("*"):
        if path.is_symlink() and os.path.isabs(os.readlink(path)):
            inside = folder / os.readlink(path).lstrip("/")
            target = os.path.relpath(inside, path.parent)
            path.unlink()
            path.symlink_to(target)


def describe_libraries(file, folder):
    """Adds what the package tells of its libraries to that of all, where dpkg-shlibdeps -S looks for it."""
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
    parser = argparse.ArgumentParser(description="Makes a folder of Debian's armhf libraries.")
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
        print(f"armhf_sysroot: fetching {' '.join(packages)} and what they need", file=sys.stderr)
        files = fetch(packages, cache)
        making = folder.with_name(folder.name + ".new")
        unpack(files, making)
        (making / STAMP).write_text(recipe, encoding="utf-8")
        shutil.rmtree(folder, ignore_errors=True)
        making.rename(folder)


if __name__ == "__main__":
    main()
