"""Boots guests in which bench/idle_cost.py measures the cost of the agent."""

import concurrent.futures
import dataclasses
import functools

import boots
import cost
import machine
import sources


def measure(name, ready, minutes, limit, counted):
    """The figures of one kernel; {} if the guest failed."""
    bootable, disks = ready
    board = machine.BOARDS[sources.KERNELS[name].architecture]
    if counted:
        # With several processors the guest hangs during boot.
        board = dataclasses.replace(board, counted=True, processors=1)
    what = f"cost-{name}-counted" if counted else f"cost-{name}"
    log = boots.FOLDER / f"{what}.log"
    lines: list[str] = []
    boots.say(f"{what}: boots for at most {limit} s")
    booted = machine.boot(board, bootable, disks, log, limit, lines.append, f"ORLIM_COST_MINUTES={minutes}")
    if booted.status != 0:
        boots.say(f"{what}: {booted.failure or f'ended with {booted.status}'}; see {log.relative_to(boots.ROOT)}")
        return {}
    return {"kernel": booted.release, **cost.figures_of(lines)}


def measure_all(names, minutes, limit):
    """The figures by guest: first each kernel with a clock that counts instructions, then all at once by wall clock."""
    ready = {name: boots.get_ready(name, name, functools.partial(boots.end_to_end_disks, name)) for name in names}
    limit += minutes * 60
    try:
        columns = {f"{name} counted": measure(name, ready[name], minutes, limit, True) for name in names}
        with concurrent.futures.ThreadPoolExecutor(len(names)) as pool:
            running = {name: pool.submit(measure, name, ready[name], minutes, limit, False) for name in names}
            columns |= {name: future.result() for name, future in running.items()}
    finally:
        for _, (_, tested) in ready.values():
            tested.unlink()
    return columns
