"""A fresh Debian 12 in a directory tree, with the kernel interfaces of this machine.

Mirror, proxies and name servers are those of this machine. The caller has to be in a private mount namespace, which
contains all mounts.
"""

import os
import pathlib
import shutil
import signal
import subprocess
import tempfile

RELEASE = "bookworm"
INTERRUPTED = 130
KEYRING = "/usr/share/keyrings/debian-archive-keyring.gpg"
# The environment of a root login.
ENVIRONMENT = {
    "HOME": "/root",
    "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
    "TERM": "dumb",
    "LANG": "C.UTF-8",
}


def heed_signals():
    """Makes SIGTERM raise KeyboardInterrupt, so that the program cleans up, and SIGINT too.

    A program that a shell starts in the background ignores SIGINT at first.
    """
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.default_int_handler)


def in_mount_namespace(command, prefix):
    """Runs the command with a new directory as its last argument and returns its exit status.

    The command runs in a private mount namespace. The directory is removed after that namespace has ended.
    """
    folder = tempfile.mkdtemp(prefix=prefix)
    entry = ["setpriv", "--pdeathsig", "INT", "unshare", "--mount", "--propagation", "private"]
    # In a separate session, so that Ctrl-C does not reach it twice.
    child = subprocess.Popen([*entry, *command, folder], start_new_session=True)
    try:
        return child.wait()
    except KeyboardInterrupt:
        # Further signals must not interrupt the cleanup.
        for number in (signal.SIGINT, signal.SIGTERM):
            signal.signal(number, signal.SIG_IGN)
        child.send_signal(signal.SIGINT)
        return child.wait() or INTERRUPTED
    finally:
        shutil.rmtree(folder)


def output_of(*command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, check=True).stdout


def debian_sources():
    """The sources of the release on this machine, as lines of a sources.list."""
    fields = "$(ORIGIN) $(REPO_URI) $(CODENAME)"
    targets = output_of("apt-get", "indextargets", "--format", fields, "Created-By: Packages")
    sources = []
    for origin, address, codename in (line.split() for line in targets.splitlines() if line.count(" ") == 2):
        line = f"deb {address} {codename} main"
        if origin == "Debian" and codename.split("-")[0] == RELEASE and line not in sources:
            sources.append(line)
    if not any(line.split()[2] == RELEASE for line in sources):
        raise SystemExit(f"apt knows no source of {RELEASE} here: run apt-get update")
    return sources


def apt_proxies():
    """The lines of apt's configuration that name proxies."""
    return [line for line in output_of("apt-config", "dump").splitlines() if "::proxy" in line.lower()]


class FreshDebian:
    def __init__(self, root):
        self.root = pathlib.Path(root)

    def build(self):
        sources = debian_sources()
        mirror = next(line.split()[1] for line in sources if line.split()[2] == RELEASE)
        environment = dict(os.environ)
        for line in apt_proxies():
            key, value = line.rstrip(";").split(" ", 1)
            if key.lower() in ("acquire::http::proxy", "acquire::https::proxy"):
                environment[f"{key.split('::')[1].lower()}_proxy"] = value.strip('"')
        options = ["--variant=minbase", *([f"--keyring={KEYRING}"] if os.path.exists(KEYRING) else [])]
        if any("https:" in line for line in sources):
            options.append("--include=ca-certificates")
        self._debootstrap([*options, RELEASE, self.root, mirror], environment)
        self._write("etc/apt/sources.list", "\n".join(sources))
        self._write("etc/apt/apt.conf.d/90proxies", "\n".join(apt_proxies()))
        for file in ("etc/resolv.conf", "etc/hosts"):
            shutil.copy(f"/{file}", self.root / file)
        # Packages must not start servers or set kernel parameters, because both would affect this machine.
        self._write("usr/sbin/policy-rc.d", "#!/bin/sh\nexit 101")
        (self.root / "usr/sbin/policy-rc.d").chmod(0o755)

    def _debootstrap(self, arguments, environment):
        child = subprocess.Popen(
            ["debootstrap", *arguments],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            env=environment,
            start_new_session=True,
        )
        try:
            status = child.wait()
        except BaseException:
            os.killpg(child.pid, signal.SIGKILL)
            child.wait()
            raise
        if status != 0:
            raise SystemExit(f"debootstrap ends with status {status}")

    def _write(self, file, text):
        (self.root / file).write_text(text + "\n", encoding="utf-8")

    def mount(self):
        """Mounts /proc of this PID namespace, and /sys and /dev read-only."""
        subprocess.run(["mount", "-t", "proc", "proc", self.root / "proc"], check=True)
        for name in ("sys", "dev"):
            subprocess.run(["mount", "--rbind", f"/{name}", self.root / name], check=True)
            subprocess.run(["mount", "-o", "remount,bind,ro", self.root / name], check=True)

    def start(self, script, directory="/", **options):
        """A shell in the tree that runs the script in a separate session. Ends with the caller."""
        variables = [f"{name}={value}" for name, value in ENVIRONMENT.items()]
        entry = ["setpriv", "--pdeathsig", "KILL", "chroot", self.root, "env", "-i", "-C", directory, *variables]
        return subprocess.Popen(
            [*entry, "bash", "-c", script], stdin=subprocess.DEVNULL, start_new_session=True, **options
        )

    def processes(self):
        """The PIDs of the processes whose root directory is the tree."""
        found = []
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if os.readlink(process / "root") == str(self.root):
                    found.append(int(process.name))
            except OSError:
                continue  # it has ended, or is a kernel thread
        return found

    def end_processes(self):
        for pid in self.processes():
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                continue
