"""Shared by the attacks: starts a shell on given descriptors, and copies bytes."""

import os
import select


def start_shell(program, arguments, descriptors):
    """Starts a shell with these descriptors, number -> source, and no others. Returns its pid."""
    pid = os.fork()
    if pid == 0:
        try:
            sources = {target: os.dup(source) for target, source in descriptors.items()}
            for target, source in sources.items():
                os.dup2(source, target)
            os.closerange(3, os.sysconf("SC_OPEN_MAX"))
            os.execv(program, arguments)
        finally:
            os._exit(1)
    return pid


def pass_on(routes):
    """Copies from each source of routes to its target until a source ends. Waits in poll(2)."""
    waiting = select.poll()
    for source in routes:
        waiting.register(source, select.POLLIN)
    while True:
        for source, _ in waiting.poll():
            block = os.read(source, 4096)
            if not block:
                return
            os.write(routes[source], block)
