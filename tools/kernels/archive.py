"""Downloads Debian packages of other suites and architectures.

Uses apt with a separate state directory, so that the machine's package lists, dpkg and architectures do not change.
"""

import os
import re
import subprocess

MIRROR_VARIABLE = "ORLIM_KERNELS_MIRROR"
HOST_SUITE = "bookworm"
APT_LIMIT_SECONDS = 900
# The hooks of the machine are for its own updates and downloads.
HOOKS = ("APT::Update::Pre-Invoke", "APT::Update::Post-Invoke", "APT::Update::Post-Invoke-Success", "DPkg::Post-Invoke")


class FetchError(Exception):
    """Says for the user which packages could not be fetched, and why."""


def mirror():
    """The address of the archive that the user names, or of the one that this machine uses."""
    if named := os.environ.get(MIRROR_VARIABLE):
        return named
    listing = subprocess.run(
        ["apt-get", "indextargets", "--format", "$(CODENAME) $(REPO_URI)", "Created-By: Packages"],
        capture_output=True,
        text=True,
        check=True,
    ).stdout
    for line in listing.splitlines():
        codename, _, address = line.partition(" ")
        if codename == HOST_SUITE:
            return address
    raise FetchError(f"no package source of this machine offers {HOST_SUITE}: name an archive in {MIRROR_VARIABLE}")


class Archive:
    """One suite for one architecture. Fetched packages stay in the cache."""

    def __init__(self, cache, suite, architecture):
        self.suite = suite
        self.architecture = architecture
        self._folder = cache / f"{suite}-{architecture}"
        self._archives = self._folder / "archives"
        self._listed = self._folder / "listed"

    def _apt(self, program, *arguments):
        settings = {
            "APT::Architecture": self.architecture,
            "APT::Architectures": self.architecture,
            "APT::Install-Recommends": "false",
            "APT::Sandbox::User": "root",
            "Acquire::Languages": "none",
            "Acquire::Retries": "3",
            "Debug::NoLocking": "true",
            "Dir::Cache": self._folder,
            "Dir::Cache::archives": self._archives,
            "Dir::Etc::preferences": "/dev/null",
            "Dir::Etc::preferencesparts": "/dev/null",
            "Dir::Etc::sourcelist": self._folder / "sources.list",
            "Dir::Etc::sourceparts": "/dev/null",
            "Dir::State": self._folder / "state",
            "Dir::State::status": self._folder / "status",
        }
        (self._folder / "apt.conf").write_text("".join(f"#clear {hook};\n" for hook in HOOKS))
        options = ["-c", self._folder / "apt.conf"]
        options += [word for name, value in settings.items() for word in ("-o", f"{name}={value}")]
        done = subprocess.run(
            [program, "-q", *options, *arguments],
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            cwd=self._archives,
            timeout=APT_LIMIT_SECONDS,
        )
        if done.returncode != 0:
            complaints = [line for line in done.stderr.splitlines() if line.startswith(("E:", "W:"))]
            what = f"{program} {' '.join(map(str, arguments))}"
            raise FetchError(f"{self.suite} for {self.architecture}: {what} failed: {' '.join(complaints)[:600]}")
        return done.stdout

    def _ensure_lists(self):
        if self._listed.exists():
            return
        for folder in (self._archives / "partial", self._folder / "state/lists/partial"):
            folder.mkdir(parents=True, exist_ok=True)
        (self._folder / "status").touch()
        (self._folder / "sources.list").write_text(f"deb {mirror()} {self.suite} main\n")
        try:
            # By default apt only warns if the archive does not have the suite.
            self._apt("apt-get", "-o", "APT::Update::Error-Mode=any", "update")
        except FetchError as error:
            raise FetchError(f"{error} (an archive that has it can be named in {MIRROR_VARIABLE})") from None
        self._listed.touch()

    def fetch(self, *packages, dependencies=True):
        """The files of the packages and of all their dependencies."""
        self._ensure_lists()
        try:
            return self._fetch(packages, dependencies)
        except FetchError:
            # The lists are from the first run. The archive may have replaced their packages with newer ones.
            self._listed.unlink()
            self._ensure_lists()
            return self._fetch(packages, dependencies)

    def _fetch(self, packages, dependencies):
        if not dependencies:
            return [self._file(*self._candidate(package)) for package in packages]
        plan = self._apt("apt-get", "--simulate", "install", *packages)
        wanted = re.findall(r"^Inst (\S+) \((\S+) .*\[(\w+)\]\)", plan, re.MULTILINE)
        self._apt("apt-get", "--yes", "--download-only", "install", *packages)
        return [self._file(*one) for one in sorted(wanted)]

    def depended_on(self, package, pattern):
        """The dependency of a metapackage that matches the pattern."""
        self._ensure_lists()
        text = self._apt("apt-cache", "show", "--no-all-versions", package)
        (depends,) = re.findall(r"^Depends: (.*)$", text, re.MULTILINE)
        found = re.findall(pattern, depends)
        if not found:
            raise FetchError(f"{self.suite}: {package} depends on nothing like {pattern}, but on {depends}")
        return found[0]

    def _candidate(self, package):
        text = self._apt("apt-cache", "show", "--no-all-versions", package)
        return (package, *(re.search(rf"^{key}: (.*)$", text, re.MULTILINE)[1] for key in ("Version", "Architecture")))

    def _file(self, package, version, architecture):
        # apt escapes the colon of an epoch in file names.
        version = version.replace(":", "%3a")
        path = self._archives / f"{package}_{version}_{architecture}.deb"
        if not path.exists():
            self._apt("apt-get", "download", package)
        return path
