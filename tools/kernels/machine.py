"""Booting a kernel in an emulator, and reading what its guest says."""

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
    """The emulated machine that kernels of one architecture are booted on."""

    emulator: tuple
    console: str
    disk_device: str
    processors: int = 2
    counted: bool = False  # its clock counts instructions, one a nanosecond, and leaves out the time without any


BOARDS = {
    # Without cmpxchg16b, for which kernels have another way: behind it qemu 7.2 now and then hands an interrupt flags
    # that are none, and 6.12 panics while it boots.
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
    """What one boot has led to."""

    def __init__(self):
        self.release = ""
        self.boot_seconds = 0.0
        self.results = []
        self.status = None  # of the tests as a whole, None while they have not come to their end
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
    """variables are NAME=VALUE words, which the guest's first program finds in its environment."""
    pace = ("tcg,thread=single", "-icount", "shift=0,sleep=off", "-rtc", "clock=vm")
    arguments = [*board.emulator, "-accel", *(pace if board.counted else ("tcg,thread=multi",))]
    arguments += ["-smp", str(board.processors), "-m", str(MEMORY_MEBIBYTES)]
    arguments += ["-nodefaults", "-no-reboot", "-display", "none", "-serial", "stdio", "-monitor", "none"]
    for number, disk in enumerate(disks):
        # What the guest writes goes with it.
        arguments += ["-drive", f"if=none,id=disk{number},file={disk},format=raw,snapshot=on"]
        arguments += ["-device", f"{board.disk_device},drive=disk{number}"]
    # The kernel's own lines must not come between those of the tests.
    options = f"console={board.console} panic=1 quiet loglevel=3 mitigations=off random.trust_bootloader=on"
    options += f" {variables}"
    return [*arguments, "-kernel", str(bootable.image), "-initrd", str(bootable.initial), "-append", options]


def lines_of(child, deadline):
    """The lines of the console as they come, until the guest ends or the time is over."""
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


def boot(board, bootable, disks, log, limit, told, variables=""):
    """Runs a guest to its end or for limit seconds. What it says goes to the file log; told is called line by line."""
    guest = Guest()
    began = time.monotonic()
    child = subprocess.Popen(
        # Not even a killed run leaves an emulator behind.
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
                told(line)
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
