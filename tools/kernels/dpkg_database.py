"""Writes a dpkg database that lists unpacked packages as installed, with their files.

It has no maintainer scripts. Other packages can depend on these packages, but nobody can upgrade or remove them.
"""

import re
import subprocess

FORMAT = "1\n"  # of the directory info: files of packages with "Multi-Arch: same" have the architecture in their names


def output_of(*command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, check=True).stdout


def installed(control):
    """The control file of a package as an entry of dpkg's status file."""
    name, rest = control.split("\n", 1)
    return f"{name}\nStatus: install ok installed\n{rest.rstrip()}\n"


def listed(names):
    """The file names of an archive, which start with ./, in the form of dpkg's lists."""
    paths = (name.removeprefix(".").rstrip("/") for name in names.splitlines())
    return "".join(f"{path or '/.'}\n" for path in paths)


def info_name(control):
    fields = dict(re.findall(r"^(Package|Architecture|Multi-Arch): (.*)$", control, re.MULTILINE))
    architecture = f":{fields['Architecture']}" if fields.get("Multi-Arch") == "same" else ""
    return f"{fields['Package']}{architecture}"


def write(root, files):
    folder = root / "var/lib/dpkg"
    for name in ("info", "triggers", "updates"):
        (folder / name).mkdir(parents=True, exist_ok=True)
    (folder / "info/format").write_text(FORMAT)
    entries = []
    script = 'dpkg-deb --fsys-tarfile "$1" | tar -t'
    for file in files:
        control = output_of("dpkg-deb", "-f", file)
        entries.append(installed(control))
        names = output_of("bash", "-o", "pipefail", "-c", script, "bash", file)
        (folder / f"info/{info_name(control)}.list").write_text(listed(names))
    (folder / "status").write_text("\n".join(entries))
    (folder / "available").touch()
