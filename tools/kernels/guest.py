"""The disks of a guest, one with Debian and one with the programs to test, and the drivers for them."""

import hashlib
import lzma
import os
import pathlib
import re
import shutil
import subprocess
import sys

import dpkg_database

HERE = pathlib.Path(__file__).resolve().parent
REPOSITORY = HERE.parents[1]

# The smallest Debian in which the agent and the end-to-end tests run.
PACKAGES = (
    *("base-files", "base-passwd", "bash", "busybox-static", "coreutils", "dash", "findutils", "grep", "iproute2"),
    *("libc-bin", "libfmt9", "libgcc-s1", "libmnl0", "libspdlog1.10", "libssl3", "libstdc++6", "mawk", "mount"),
    *("netcat-openbsd", "procps", "python3", "python3-jsonschema", "python3-pytest", "sed", "socat", "util-linux"),
)
# Links that the installation of the packages would create.
LINKS = {"bin/sh": "dash", "usr/bin/awk": "mawk", "usr/bin/nc": "nc.openbsd", "etc/mtab": "../proc/self/mounts"}
SHELLS = ("/bin/sh", "/bin/bash", "/bin/dash", "/usr/bin/bash", "/usr/bin/dash")
MERGED_FOLDERS = ("bin", "sbin", "lib")
NOT_NEEDED = ("usr/share/doc", "usr/share/man", "usr/share/locale", "usr/share/info", "usr/share/zoneinfo")
PROGRAMS = ("orlim-agent", "orlim-demo", "pass_cost")
ROOT_DISK_MEBIBYTES = 512
TESTED_DISK_MEBIBYTES = 256

# For the disks, then for the attacker's host of the tests. A kernel has each as a module or built in.
DRIVERS = ("virtio_pci", "virtio_mmio", "virtio_blk", "crc32c_generic", "ext4", "veth")


def run(*arguments, **options):
    done = subprocess.run(arguments, stdin=subprocess.DEVNULL, capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, arguments[:4]))}: {done.stderr.strip()[-600:]}")
    return done.stdout


def unpack(package, folder, *members):
    """Follows the link /bin to /usr/bin, for packages that contain /bin."""
    with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", package], stdout=subprocess.PIPE) as archive:
        command = ["tar", "-x", "--keep-directory-symlink", "-C", folder, *members]
        subprocess.run(command, stdin=archive.stdout, check=True)
    if archive.returncode != 0:
        raise RuntimeError(f"{package} cannot be unpacked")


def compile_python(folder, guest_folder, *names):
    """Compiles Python files of the guest here, because the guest would need minutes for it."""
    options = ["-q", "-j", "0", "--invalidation-mode", "unchecked-hash", "-s", str(folder), "-p", guest_folder]
    run(sys.executable, "-m", "compileall", *options, *(str(folder / name) for name in names))


def make_disk(folder, file, label, mebibytes):
    partial = file.with_suffix(".partial")
    partial.unlink(missing_ok=True)
    # A guest that is thrown away needs no journal.
    options = ["-q", "-t", "ext4", "-O", "^has_journal", "-L", label, "-d", str(folder)]
    # mke2fs is not on the PATH of an ordinary user.
    path = f"{os.environ['PATH']}:/usr/sbin:/sbin"
    run("mke2fs", *options, str(partial), f"{mebibytes}M", env={**os.environ, "PATH": path})
    partial.rename(file)


def link_like_merged(root):
    for name in MERGED_FOLDERS:
        (root / "usr" / name).mkdir(parents=True)
        (root / name).symlink_to(f"usr/{name}")


def set_up(root):
    for name in ("dev", "proc", "sys", "run", "tmp", "root", "usr/local/bin", "var/tmp", "repository"):
        (root / name).mkdir(parents=True, exist_ok=True)
    (root / "tmp").chmod(0o1777)
    for name in ("passwd", "group"):
        shutil.copy(root / f"usr/share/base-passwd/{name}.master", root / "etc" / name)
    for name, target in LINKS.items():
        link = root / name
        link.unlink(missing_ok=True)
        link.symlink_to(target)
    (root / "etc/shells").write_text("".join(f"{shell}\n" for shell in SHELLS))
    (root / "etc/hostname").write_text("guest\n")
    (root / "etc/hosts").write_text("127.0.0.1 localhost guest\n::1 localhost\n")
    for name in NOT_NEEDED:
        shutil.rmtree(root / name, ignore_errors=True)
    compile_python(root, "/", *(path.relative_to(root) for path in (root / "usr/lib").glob("python3*")))


def root_disk(archive, folder, packages=PACKAGES, name="root", known_to_dpkg=False):
    """The disk with Debian; created again if the packages have changed."""
    files = archive.fetch(*packages)
    state = hashlib.sha256()
    for source in (__file__, dpkg_database.__file__):
        state.update(pathlib.Path(source).read_bytes())
    for file in files:
        state.update(file.name.encode())
    disk = folder / f"{name}-{archive.architecture}-{state.hexdigest()[:16]}.img"
    if disk.exists():
        return disk
    for outdated in folder.glob(f"{name}-{archive.architecture}-*.img"):
        outdated.unlink()
    root = folder / f"{name}-{archive.architecture}"
    shutil.rmtree(root, ignore_errors=True)
    link_like_merged(root)
    for file in files:
        unpack(file, root)
    set_up(root)
    if known_to_dpkg:
        dpkg_database.write(root, files)
    make_disk(root, disk, "root", ROOT_DISK_MEBIBYTES)
    shutil.rmtree(root)
    return disk


def new_content(folder, name, *folders):
    """A directory for a tested disk, with these directories of the repository and the programs of the guest."""
    content = folder / f"tested-{name}"
    shutil.rmtree(content, ignore_errors=True)
    ignored = shutil.ignore_patterns("__pycache__")
    for one in folders:
        shutil.copytree(REPOSITORY / one, content / one, ignore=ignored)
    shutil.copytree(HERE / "guest", content / "guest", ignore=ignored)
    return content


def disk_of(content):
    compile_python(content, "/repository", *(path.name for path in content.iterdir() if path.is_dir()))
    disk = content.with_name(f"{content.name}.img")
    make_disk(content, disk, "tested", TESTED_DISK_MEBIBYTES)
    shutil.rmtree(content)
    return disk


def tested_disk(build, folder, name):
    """The disk with the agent, the module, the tests and, if it is built, the benchmark of a pass."""
    content = new_content(folder, name, "tests/e2e", "src/module", "docs/schema", "bench", "packaging")
    (content / "tools").mkdir()
    shutil.copy(REPOSITORY / "tools/generated.py", content / "tools")
    (content / "build/bin").mkdir(parents=True)
    (content / "build/lib").mkdir()
    for program in filter(pathlib.Path.exists, (build / f"bin/{name}" for name in PROGRAMS)):
        shutil.copy(program, content / "build/bin")
    for library in (build / "lib").glob("liborlim_*.so*"):
        shutil.copy(library, content / "build/lib", follow_symlinks=False)
    return disk_of(content)


def packaged_disk(package, folder, name):
    """The disk with a package and the tests for it."""
    content = new_content(folder, name, "tests/e2e", "src/module", "tests/package")
    (content / "tools").mkdir()
    shutil.copy(REPOSITORY / "tools/fresh_debian.py", content / "tools")
    shutil.copy(package, content / "orlim-agent.deb")
    return disk_of(content)


class Modules:
    """The loadable modules of an unpacked kernel package."""

    def __init__(self, folder):
        # In the names of modules the kernel treats "-" and "_" alike.
        self._files = {path.name.split(".ko")[0].replace("-", "_"): path for path in folder.rglob("*.ko*")}

    def image(self, name):
        data = self._files[name].read_bytes()
        return lzma.decompress(data) if self._files[name].suffix == ".xz" else data

    def in_order(self, names):
        """The contents of the module files by name, each after its dependencies. Omits built-in modules."""
        ordered = {}

        def add(name):
            if name in ordered or name not in self._files:
                return
            image = self.image(name)
            # One of the zero-terminated texts in the section .modinfo is the list of dependencies.
            for needed in re.search(rb"\0depends=([^\0]*)\0", image)[1].decode().split(","):
                add(needed.replace("-", "_"))
            ordered[name] = image

        for name in names:
            add(name)
        return ordered


def initial_file_system(modules, busybox, folder, file):
    """The initial file system, which loads the drivers and switches to the root disk.

    modules has the contents of the drivers by name, in the order in which they are loaded.
    """
    shutil.rmtree(folder, ignore_errors=True)
    for name in ("bin", "dev", "modules", "proc", "root"):
        (folder / name).mkdir(parents=True)
    unpack(busybox, folder, "./bin/busybox")
    shutil.copy(HERE / "guest/init", folder / "init")
    for name, image in modules.items():
        (folder / "modules" / name).write_bytes(image)
    (folder / "modules.order").write_text("".join(f"{name}\n" for name in modules))
    names = "".join(f"{path.relative_to(folder)}\n" for path in sorted(folder.rglob("*")))
    with file.open("wb") as archive:
        command = ["cpio", "--quiet", "-o", "-H", "newc", "--owner", "0:0"]
        subprocess.run(command, cwd=folder, input=names.encode(), stdout=archive, check=True)
    shutil.rmtree(folder)
    return file
