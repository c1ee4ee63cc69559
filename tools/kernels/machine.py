"""Boots a kernel in an emulator and reads the console of its guest."""

import dataclasses
import re
import selectors
import subprocess
import time

MEMORY_MEBIBYTES = 768
READ_BYTES = 65536
COLOURS = re.compile(rb"\x1b\[[0-9;?]*[A-Za-z]")


@dataclasses.dataclass(frozen=True)
class Board:
    """The emulated machine for the kernels of one architecture."""

    emulator: tuple
    console: str
    disk_device: str
    processors: int = 2
    counted: bool = False  # the clock advances 1 ns per instruction and skips time without any


BOARDS = {
    # Without cmpxchg16b, which kernels can do without: after it qemu 7.2 sometimes passes invalid flags to an interrupt
    # handler, and 6.12 panics during boot.
    "amd64": Board(("qemu-system-x86_64", "-M", "pc", "-cpu", "qemu64,-cx16"), "ttyS0", "virtio-blk-pci"),
    "armhf": Board(("qemu-system-arm", "-M", "virt", "-cpu", "cortex-a15"), "ttyAMA0", "virtio-blk-device"),
}


@dataclasses.dataclass(frozen=True)
class Result:
    test: str
    outcome: str
    seconds: float
    reason: str


class Guest:
    """The result of one boot."""

    def __init__(self):
        self.release = ""
        self.boot_seconds = 0.0
        self.results = []
        self.status = None  # exit status of the tests, None until they end
        self.seconds = 0.0
        self.failure = ""

    def take(self, line):
        if found := re.fullmatch(r"RESULT\t([^\t]+)\t(\w+)\t([\d.]+)\t(.*)", line):
            self.results.append(Result(found[1], found[2], float(found[3]), found[4]))
        elif found := re.match(r"GUEST runs (\S+) after ([\d.]+) seconds", line):
            self.release, self.boot_seconds = found[1], float(found[2])
        elif found := re.match(r"GUEST ends with (\d+)", line):
            self.status = int(found[1])


def command(board, bootable, disks, variables=""):
    """The command that boots the guest. variables are NAME=VALUE words for the environment of its first program."""
    pace = ("tcg,thread=single", "-icount", "shift=0,sleep=off", "-rtc", "clock=vm")
    arguments = [*board.emulator, "-accel", *(pace if board.counted else ("tcg,thread=multi",))]
    arguments += ["-smp", str(board.processors), "-m", str(MEMORY_MEBIBYTES)]
    arguments += ["-nodefaults", "-no-reboot", "-display", "none", "-serial", "stdio", "-monitor", "none"]
    for number, disk in enumerate(disks):
        # Writes of the guest are discarded at its end.
        arguments += ["-drive", f"if=none,id=disk{number},file={disk},format=raw,snapshot=on"]
        arguments += ["-device", f"{board.disk_device},drive=disk{number}"]
    # Log lines of the kernel must not appear between the lines of the tests.
    options = f"console={board.console} panic=1 quiet loglevel=3 mitigations=off random.trust_bootloader=on"
    options += f" {variables}"
    return [*arguments, "-kernel", str(bootable.image), "-initrd", str(bootable.initial), "-append", options]


def lines_of(child, deadline):
    """The lines of the console as they arrive, until the guest ends or the deadline has passed."""
    rest = b""
    with selectors.DefaultSelector() as selector:
        selector.register(child.stdout, selectors.EVENT_READ)
        while (left := deadline - time.monotonic()) > 0:
            if not selector.select(left):
                continue
            block = child.stdout.read1(READ_BYTES)
            if not block:
                yield rest
                return
            *lines, rest = (rest + block).split(b"\n")
            yield from lines
    yield rest


def boot(board, bootable, disks, log, limit, on_line, variables=""):
    """Runs a guest until its end or for limit seconds. Its console goes to the file log, line by line to on_line."""
    guest = Guest()
    began = time.monotonic()
    child = subprocess.Popen(
        # Even a killed run leaves no emulator behind.
        ["setpriv", "--pdeathsig", "KILL", *command(board, bootable, disks, variables)],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
    )
    try:
        with log.open("w", encoding="utf-8") as file:
            for raw in lines_of(child, began + limit):
                line = COLOURS.sub(b"", raw).decode("utf-8", "replace").rstrip("\r")
                file.write(f"{line}\n")
                file.flush()
                guest.take(line)
                on_line(line)
    finally:
        guest.seconds = time.monotonic() - began
        child.kill()
        child.wait()
        child.stdout.close()
    if guest.seconds >= limit:
        guest.failure = f"ended after {limit} seconds, before its tests"
    elif guest.status is None:
        guest.failure = "ended before its tests"
    return guest
