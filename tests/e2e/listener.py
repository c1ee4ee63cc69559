"""The program on the attacker's host: accepts every connection, keeps it open, and sends text on it on request.

Prints the ports that it listens on, then serves one request per line: send a text on the connection from a given port,
and print the answer up to and including a given text. Exits at the end of standard input.
"""

import json
import selectors
import socket
import sys
import time

from waiting import scaled

REPLY_LIMIT_SECONDS = scaled(10)


def open_sockets():
    sockets = {}
    for name, family, kind in (
        ("tcp4", socket.AF_INET, socket.SOCK_STREAM),
        ("tcp6", socket.AF_INET6, socket.SOCK_STREAM),
        ("udp4", socket.AF_INET, socket.SOCK_DGRAM),
        ("udp6", socket.AF_INET6, socket.SOCK_DGRAM),
    ):
        opened = socket.socket(family, kind)
        if family == socket.AF_INET6:
            opened.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
        opened.bind(("", 0))
        if kind == socket.SOCK_STREAM:
            opened.listen(256)
        sockets[name] = opened
    return sockets


def accept_waiting(listeners, connections, seconds):
    """Accepts connections for that long, because a request may arrive just before its connection."""
    with selectors.DefaultSelector() as selector:
        for listener in listeners:
            selector.register(listener, selectors.EVENT_READ, listener)
        for key, _ in selector.select(seconds):
            connection, peer = key.data.accept()
            connections[peer[1]] = connection


def converse(connection, request):
    connection.sendall(request["send"].encode())
    connection.settimeout(REPLY_LIMIT_SECONDS)
    received = b""
    while request["until"].encode() not in received:
        block = connection.recv(65536)
        if not block:
            break
        received += block
    return received.decode(errors="replace")


def serve(request, listeners, connections):
    deadline = time.monotonic() + REPLY_LIMIT_SECONDS
    while request["from_port"] not in connections and time.monotonic() < deadline:
        accept_waiting(listeners, connections, 0.2)
    if request["from_port"] not in connections:
        return {"error": f"nobody connected from port {request['from_port']}"}
    try:
        return {"received": converse(connections[request["from_port"]], request)}
    except OSError as error:
        return {"error": f"the connection failed: {error}"}


def main():
    sockets = open_sockets()
    listeners = [sockets["tcp4"], sockets["tcp6"]]
    connections: dict[int, socket.socket] = {}
    print(json.dumps({name: opened.getsockname()[1] for name, opened in sockets.items()}), flush=True)
    with selectors.DefaultSelector() as selector:
        for source in [sys.stdin, *listeners]:
            selector.register(source, selectors.EVENT_READ)
        while True:
            for key, _ in selector.select():
                if key.fileobj is sys.stdin:
                    line = sys.stdin.readline()
                    if not line:
                        return
                    print(json.dumps(serve(json.loads(line), listeners, connections)), flush=True)
                else:
                    accept_waiting([key.fileobj], connections, 0)


main()
