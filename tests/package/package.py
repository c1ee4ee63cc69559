"""Installs, upgrades and removes the package in a fresh Debian, and runs the unit's commands without systemd."""

import configparser
import os
import shutil
import signal
import subprocess
import time

from waiting import scaled

NAME = "orlim-agent"
UNIT = "lib/systemd/system/orlim-agent.service"
WANTED_BY = f"etc/systemd/system/multi-user.target.wants/{NAME}.service"
CONFIGURATION = "etc/orlim/orlim-agent.json"
STARTED = "the module was started"
INSTALL_LIMIT = 600
END_LIMIT = 30
KEEP_EDITED = "-o Dpkg::Options::=--force-confold"


class UnitParser(configparser.ConfigParser):
    optionxform = staticmethod(str)


class Watch:
    """The agent as the unit starts it, with the rights of the unit."""

    def __init__(self, tree, command, folder):
        self._output, self._log = folder / "output", folder / "log"
        with open(self._output, "wb") as output, open(self._log, "wb") as log:
            self._child = tree.start(f"exec {command}", stdout=output, stderr=log)

    @property
    def pid(self):
        return self._child.pid

    def said(self):
        return "\n".join(path.read_text(encoding="utf-8", errors="replace") for path in (self._output, self._log))

    def wait_for(self, text, limit=60):
        limit = scaled(limit)
        deadline = time.monotonic() + limit
        while text not in self.said():
            assert self._child.poll() is None, f"has ended:\n{self.said()}"
            assert time.monotonic() < deadline, f"not within {limit:.0f} seconds: {text}\n{self.said()}"
            time.sleep(0.05)

    def stop(self):
        """Stops the agent as systemd does. Returns the exit status."""
        os.kill(self.pid, signal.SIGTERM)
        return self._child.wait(scaled(END_LIMIT))

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        if self._child.poll() is None:
            os.killpg(self._child.pid, signal.SIGKILL)
            self._child.wait()


class Package:
    def __init__(self, tree, file, folder):
        self.tree = tree
        self.file = file
        self.folder = folder  # directory for the tests
        self.files_before = set()  # files of the tree before the first installation

    def field(self, name):
        done = subprocess.run(["dpkg-deb", "-f", self.file, name], capture_output=True, text=True, check=True)
        return done.stdout.strip()

    def run(self, script, limit=INSTALL_LIMIT):
        """Runs a script in the tree and returns its output. Fails unless its exit status is 0."""
        child = self.tree.start(script, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        try:
            said, _ = child.communicate(timeout=limit)
        except BaseException:
            os.killpg(child.pid, signal.SIGKILL)
            child.wait()
            raise
        assert child.returncode == 0, f"{script}: status {child.returncode}\n{said}"
        return said

    def apt(self, arguments):
        return self.run(f"DEBIAN_FRONTEND=noninteractive apt-get -q -y --no-install-recommends {arguments}")

    def install_dependencies(self):
        self.apt("update")
        self.apt(f"satisfy '{self.field('Depends')}'")
        self.files_before = self.files()

    def install(self, file=None, options=""):
        shutil.copy(file or self.file, self.tree.root / "root/orlim-agent.deb")
        try:
            return self.apt(f"{options} install /root/orlim-agent.deb")
        finally:
            (self.tree.root / "root/orlim-agent.deb").unlink()

    def remove(self):
        return self.apt(f"remove {NAME}")

    def purge(self):
        return self.apt(f"purge {NAME}")

    def state(self):
        """The state as dpkg names it, and the version; empty if dpkg does not know the package."""
        return self.run(f"dpkg-query -W -f='${{db:Status-Status}} ${{Version}}' {NAME} 2>/dev/null || true").strip()

    def path(self, name):
        return self.tree.root / name

    def unit(self):
        unit = UnitParser(strict=False, interpolation=None)
        unit.read(self.path(UNIT), encoding="utf-8")
        return unit

    def with_rights_of_unit(self, command):
        """The command as systemd runs it for the unit: only with the rights in CapabilityBoundingSet."""
        names = self.unit()["Service"]["CapabilityBoundingSet"].lower().replace("cap_", "+").split()
        return f"setpriv --no-new-privs --inh-caps=-all --bounding-set=-all,{','.join(names)} {command}"

    def start(self):
        return Watch(self.tree, self.with_rights_of_unit(self.unit()["Service"]["ExecStart"]), self.folder)

    def reload(self, watch):
        command = self.unit()["Service"]["ExecReload"].replace("$MAINPID", str(watch.pid))
        self.run(self.with_rights_of_unit(command))

    def next_version(self):
        """A package with a higher version and a changed default configuration."""
        content = self.folder / "next"
        shutil.rmtree(content, ignore_errors=True)
        subprocess.run(["dpkg-deb", "-R", self.file, content], check=True)
        control = content / "DEBIAN/control"
        version = self.field("Version")
        control.write_text(control.read_text().replace(f"Version: {version}", f"Version: {version}+next"))
        with open(content / CONFIGURATION, "a", encoding="utf-8") as configuration:
            configuration.write("// of the next version\n")
        file = self.folder / "next.deb"
        command = ["dpkg-deb", "--root-owner-group", "-Znone", "-b", content, file]
        subprocess.run(command, stdout=subprocess.DEVNULL, check=True)
        return file

    def files(self):
        """All files of the tree, without the records of dpkg and apt and without the kernel's file systems."""
        omitted = "/proc /sys /dev /tmp /run /var/lib/dpkg /var/lib/apt /var/cache /var/log"
        conditions = " -o ".join(f"-path {folder}" for folder in omitted.split())
        return set(self.run(f"find / \\( {conditions} \\) -prune -o -print").splitlines())
