"""The attacker's host: a network namespace, connected to this host by a pair of virtual interfaces."""

import fcntl
import ipaddress
import json
import os
import pathlib
import subprocess
import sys
import tempfile

from children import end_child
from waiting import scaled

LISTENER = pathlib.Path(__file__).with_name("listener.py")
NAME_PREFIX = "orlim-e2e-"
INTERFACE_PREFIX = "oe2e"
# Held while a network is chosen: several runs, and several workers of one run, do this at the same time.
NETWORKS_LOCK = pathlib.Path(tempfile.gettempdir()) / "orlim-e2e-networks.lock"

# Reserved for documentation, so no other host can be reached by mistake. Several, because a host may use one of them
# and several runs may share a host.
IPV4_NETWORKS = (
    *("198.51.100.248/30", "203.0.113.248/30", "192.0.2.248/30"),
    *("198.51.100.244/30", "203.0.113.244/30", "192.0.2.244/30"),
    *("198.51.100.240/30", "203.0.113.240/30", "192.0.2.240/30"),
)
IPV6_NETWORKS = tuple(f"2001:db8:e{number}::/64" for number in range(20, 20 + len(IPV4_NETWORKS)))


def ip(*arguments):
    done = subprocess.run(
        ["ip", *arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=scaled(30)
    )
    if done.returncode != 0:
        raise RuntimeError(f"ip {' '.join(arguments)}: {done.stderr.strip()}")
    return done.stdout


def routed_networks():
    networks = []
    for family in ("-4", "-6"):
        for route in json.loads(ip("-j", family, "route", "show", "table", "all") or "[]"):
            if route["dst"] != "default":
                networks.append(ipaddress.ip_network(route["dst"], strict=False))
    return networks


def free_network(candidates):
    taken = routed_networks()
    for text in candidates:
        network = ipaddress.ip_network(text)
        if not any(network.version == other.version and network.overlaps(other) for other in taken):
            return network
    raise RuntimeError(f"all of {', '.join(candidates)} are in use on this host")


def remove_leftovers():
    """Removes namespaces of runs that were killed before they could clean up."""
    for line in ip("netns", "list").splitlines():
        name = line.split()[0]
        owner = name.removeprefix(NAME_PREFIX)
        if owner != name and owner.isdigit() and not os.path.exists(f"/proc/{owner}"):
            ip("netns", "delete", name)


class Attacker:
    def __init__(self):
        self.namespace = f"{NAME_PREFIX}{os.getpid()}"
        self.listener = None
        self._interface = f"{INTERFACE_PREFIX}{os.getpid()}"
        remove_leftovers()
        ip("netns", "add", self.namespace)
        try:
            with NETWORKS_LOCK.open("w") as lock:
                fcntl.flock(lock, fcntl.LOCK_EX)
                self._connect_hosts()
            self._start_listener()
        except BaseException:
            self.close()
            raise

    def _connect_hosts(self):
        ipv4 = free_network(IPV4_NETWORKS)
        ipv6 = free_network(IPV6_NETWORKS)
        self.host_ipv4, self.ipv4 = str(ipv4[1]), str(ipv4[2])
        self.host_ipv6, self.ipv6 = str(ipv6[1]), str(ipv6[2])
        ip("link", "add", self._interface, "type", "veth", "peer", "name", "uplink", "netns", self.namespace)
        for where, interface, address4, address6 in (
            ((), self._interface, self.host_ipv4, self.host_ipv6),
            (("-n", self.namespace), "uplink", self.ipv4, self.ipv6),
        ):
            ip(*where, "address", "add", f"{address4}/{ipv4.prefixlen}", "dev", interface)
            # Without duplicate address detection the address is usable at once.
            ip(*where, "address", "add", f"{address6}/{ipv6.prefixlen}", "dev", interface, "nodad")
            ip(*where, "link", "set", interface, "up")

    def _start_listener(self):
        self.listener = subprocess.Popen(
            ["ip", "netns", "exec", self.namespace, sys.executable, str(LISTENER)],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
        )
        line = self.listener.stdout.readline()
        if not line:
            raise RuntimeError("the listener on the attacker's host did not start")
        ports = json.loads(line)
        self.tcp = (self.ipv4, ports["tcp4"])
        self.tcp6 = (self.ipv6, ports["tcp6"])
        self.udp = (self.ipv4, ports["udp4"])
        self.udp6 = (self.ipv6, ports["udp6"])

    def converse(self, from_port, send, until):
        """Sends text on the connection from from_port and returns the answer, up to and including until."""
        self.listener.stdin.write(json.dumps({"from_port": from_port, "send": send, "until": until}) + "\n")
        self.listener.stdin.flush()
        answer = json.loads(self.listener.stdout.readline())
        assert "received" in answer, answer
        return answer["received"]

    def close(self):
        if self.listener is not None:
            end_child(self.listener)
        # Otherwise the interface stays until the last connection inside the namespace has timed out.
        if os.path.exists(f"/sys/class/net/{self._interface}"):
            ip("link", "delete", self._interface)
        ip("netns", "delete", self.namespace)
