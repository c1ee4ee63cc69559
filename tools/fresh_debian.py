"""A Debian 12 on which nothing is installed yet: a tree to work in, with the kernel's interfaces of this machine.

Mirror, proxies and name servers are those of this machine. What is mounted stays within the mount namespace of the
caller, who has to be in one of its own.
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
# What a login as root has.
ENVIRONMENT = {
    "HOME": "/root",
    "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
    "TERM": "dumb",
    "LANG": "C.UTF-8",
}


def heed_signals():
    """One that is told to end cleans up as one that is interrupted does.

    One in the background starts with interrupts ignored.
    """
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.default_int_handler)


def in_mount_namespace(command, prefix):
    """Has the command work in a new folder, whose name it gets as its last argument. The command's exit status.

    What the command mounts stays in a mount namespace of its own; when that is gone, the folder is removed.
    """
    folder = tempfile.mkdtemp(prefix=prefix)
    entry = ["setpriv", "--pdeathsig", "INT", "unshare", "--mount", "--propagation", "private"]
    # In a session of its own Ctrl-C does not reach it twice.
    child = subprocess.Popen([*entry, *command, folder], start_new_session=True)
    try:
        return child.wait()
    except KeyboardInterrupt:
        # Once is enough: what cleans up is not interrupted.
        for number in (signal.SIGINT, signal.SIGTERM):
            signal.signal(number, signal.SIG_IGN)
        child.send_signal(signal.SIGINT)
        return child.wait() or INTERRUPTED
    finally:
        shutil.rmtree(folder)


def output_of(*command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, check=True).stdout


def debian_sources():
    """What this machine takes the release from, as lines of a sources.list."""
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
        # Packages must not start servers or set the kernel's parameters: both would be this machine's.
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
        """/proc of the same processes, /sys and /dev; of the latter two nothing can be created or removed."""
        subprocess.run(["mount", "-t", "proc", "proc", self.root / "proc"], check=True)
        for name in ("sys", "dev"):
            subprocess.run(["mount", "--rbind", f"/{name}", self.root / name], check=True)
            subprocess.run(["mount", "-o", "remount,bind,ro", self.root / name], check=True)

    def start(self, script, directory="/", **options):
        """A shell in the tree that runs the script, in a session of its own. Does not outlive the caller."""
        variables = [f"{name}={value}" for name, value in ENVIRONMENT.items()]
        entry = ["setpriv", "--pdeathsig", "KILL", "chroot", self.root, "env", "-i", "-C", directory, *variables]
        return subprocess.Popen(
            [*entry, "bash", "-c", script], stdin=subprocess.DEVNULL, start_new_session=True, **options
        )

    def processes(self):
        """Those that have the tree for their root."""
        found = []
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if os.readlink(process / "root") == str(self.root):
                    found.append(int(process.name))
            except OSError:
                continue  # it has ended, or is the kernel's
        return found

    def end_processes(self):
        for pid in self.processes():
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                continue
