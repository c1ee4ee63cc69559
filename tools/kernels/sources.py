"""The kernels that can be run. Each comes from a Debian package or is built from Debian's kernel source."""

import dataclasses
import hashlib
import os
import pathlib
import shutil
import subprocess

import guest
from archive import HOST_SUITE, Archive

CONFIGURATION = pathlib.Path(__file__).with_name("single_processor.config")
CROSS_PREFIX = "arm-linux-gnueabihf-"
BUILD_LIMIT_SECONDS = 3600


@dataclasses.dataclass(frozen=True)
class Kernel:
    architecture: str
    suite: str
    package: str
    built: bool = False  # the package contains the source, for a kernel without SMP


KERNELS = {
    "amd64-5.10": Kernel("amd64", "bullseye", "linux-image-cloud-amd64"),
    "amd64-6.1": Kernel("amd64", "bookworm", "linux-image-cloud-amd64"),
    "amd64-6.12": Kernel("amd64", "trixie", "linux-image-cloud-amd64"),
    "armhf-5.10": Kernel("armhf", "bullseye", "linux-image-armmp"),
    "armhf-6.1": Kernel("armhf", "bookworm", "linux-image-armmp"),
    "armhf-6.12": Kernel("armhf", "trixie", "linux-image-armmp"),
    "armhf-6.1-up": Kernel("armhf", HOST_SUITE, "linux-source-6.1", built=True),
}


@dataclasses.dataclass(frozen=True)
class Bootable:
    image: pathlib.Path
    initial: pathlib.Path


def state_of(*files):
    """A digest of the names of packages and of the contents of the other files."""
    state = hashlib.sha256()
    for file in files:
        state.update(file.name.encode() if file.suffix == ".deb" else file.read_bytes())
    return state.hexdigest()


def build(package, state, cache, folder):
    """The image of the kernel. It takes minutes to build and is kept in the cache."""
    image = cache / f"single-processor-{state[:16]}"
    if image.exists():
        return image
    tree = folder / "source"
    shutil.rmtree(tree, ignore_errors=True)
    tree.mkdir(parents=True)
    pack = f"{package.name.split('_')[0]}.tar.xz"
    script = 'dpkg-deb --fsys-tarfile "$1" | tar -xO "./usr/src/$2" | tar -xJ --strip-components=1'
    subprocess.run(["bash", "-o", "pipefail", "-c", script, "bash", package, pack], cwd=tree, check=True)
    environment = {**os.environ, "ARCH": "arm", "CROSS_COMPILE": CROSS_PREFIX, "KCONFIG_ALLCONFIG": str(CONFIGURATION)}
    log = folder / "build.log"
    with log.open("w", encoding="utf-8") as file:
        for target in (["allnoconfig"], [f"-j{os.cpu_count()}", "zImage"]):
            done = subprocess.run(
                ["make", "-s", *target],
                cwd=tree,
                env=environment,
                stdin=subprocess.DEVNULL,
                stdout=file,
                stderr=file,
                timeout=BUILD_LIMIT_SECONDS,
            )
            if done.returncode != 0:
                raise RuntimeError(f"the kernel cannot be built; see {log}")
            demand_configuration(tree / ".config")
    shutil.copy(tree / "arch/arm/boot/zImage", image.with_suffix(".partial"))
    image.with_suffix(".partial").rename(image)
    shutil.rmtree(tree)
    return image


def demand_configuration(file):
    """Raises RuntimeError for an option that the kernel does not have or that another option disables.

    make drops such an option silently.
    """
    taken = set(file.read_text(encoding="utf-8").splitlines())
    wanted = [line for line in CONFIGURATION.read_text(encoding="utf-8").splitlines() if line.startswith("CONFIG_")]
    if left_out := [line for line in wanted if line not in taken]:
        raise RuntimeError(f"the kernel does not take {', '.join(left_out)}")


def fetch(kernel, cache):
    archive = Archive(cache, kernel.suite, kernel.architecture)
    package = kernel.package if kernel.built else archive.depended_on(kernel.package, r"linux-image-[\w.+-]+")
    return archive.fetch(package, dependencies=False)[0]


def prepare(kernel, cache, folder):
    """Prepares the kernel for booting, in a directory for it alone."""
    package = fetch(kernel, cache)
    (busybox,) = Archive(cache, HOST_SUITE, kernel.architecture).fetch("busybox-static", dependencies=False)
    made_by = [pathlib.Path(guest.__file__), guest.HERE / "guest/init", pathlib.Path(__file__), CONFIGURATION]
    state = state_of(package, busybox, *made_by)
    stamp = folder / "made-from"
    bootable = Bootable(folder / "kernel", folder / "initial.cpio")
    if stamp.exists() and stamp.read_text() == state:
        return bootable
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    drivers = {}
    if kernel.built:
        shutil.copy(build(package, state_of(package, CONFIGURATION), cache, folder), bootable.image)
    else:
        content = folder / "package"
        content.mkdir()
        guest.unpack(package, content)
        drivers = guest.Modules(content).in_order(guest.DRIVERS)
        (image,) = (content / "boot").glob("vmlinuz-*")
        shutil.copy(image, bootable.image)
        shutil.rmtree(content)
    guest.initial_file_system(drivers, busybox, folder / "initial", bootable.initial)
    stamp.write_text(state)
    return bootable
