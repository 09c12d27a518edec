"""Somebody who is not the server and answers in the place of it.

    forger.py local LOW             on the switch itself, without rights: looks
                                    for the ports from LOW on in /proc/net
    forger.py blind LOW HIGH ADDRESS...
                                    a neighbour: tries every port of addresses

Both go on until they are ended, and print how much they have sent.
"""

import contextlib
import ctypes
import os
import pathlib
import socket
import struct
import subprocess
import sys
import time

from tftp import ack, data, error, options
from tools import Program, wait_for

FORGED = b"hostname forged\n"
ANSWERS = [data(1, FORGED), ack(0), options("blksize", 1428), error(1)]
NOBODY = "64123"
# Few, so that a forger is there in time: it has to try all of them.
PORTS = (40000, 40255)
SWITCH, SWITCH_V6 = "192.0.2.1", "2001:db8::1"
NEIGHBOUR, NEIGHBOUR_V6 = "192.0.2.2", "2001:db8::2"
# Addresses of the switch at which no test has a server.
LOCAL = {socket.AF_INET: "127.0.0.9", socket.AF_INET6: "2001:db8:1::9"}


def own_network():
    """Moves this process into a network of its own. Returns why it cannot."""
    new_network = 0x40000000
    if ctypes.CDLL(None, use_errno=True).unshare(new_network) != 0:
        return f"no network namespace: {os.strerror(ctypes.get_errno())}"
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    # Without an address that is no loopback's, in.tftpd takes none.
    for address in ("192.0.2.9/32", LOCAL[socket.AF_INET6] + "/128"):
        subprocess.run(["ip", "address", "add", address, "dev", "lo"],
                       check=True)
    pathlib.Path("/proc/sys/net/ipv4/ip_local_port_range").write_text(
        " ".join(map(str, PORTS)))
    return None


class Forger(Program):
    """One that runs beside this process, in a network of our own."""

    def __init__(self, kind, folder):
        super().__init__(f"{kind} forger", folder / f"{kind}-forger.log")
        self.kind = kind
        {"local": self._start_local, "blind": self._start_blind}[kind]()
        wait_for(self.sent, f"the {self.name}")

    def _start(self, before, *arguments):
        self.run([*before, sys.executable, __file__, *map(str, arguments)],
                 env={**os.environ, "PYTHONPATH": ":".join(sys.path)})

    def _start_local(self):
        self._start(["setpriv", "--reuid", NOBODY, "--regid", NOBODY,
                     "--clear-groups"], "local", PORTS[0])

    def _start_blind(self):
        here = os.readlink("/proc/self/ns/net")
        self._start(["unshare", "-n"], "blind", *PORTS, SWITCH, SWITCH_V6)

        def moved():
            with contextlib.suppress(OSError):
                return os.readlink(f"/proc/{self.pid}/ns/net") != here
        wait_for(moved, "the neighbour's network")
        for command in (
                f"link add to-neighbour type veth peer name to-switch netns "
                f"{self.pid}",
                f"address add {SWITCH}/24 dev to-neighbour",
                f"-6 address add {SWITCH_V6}/64 dev to-neighbour nodad",
                "link set to-neighbour up"):
            subprocess.run(["ip", *command.split()], check=True)

    def stop(self):
        if self.kind == "blind":
            subprocess.run(["ip", "link", "del", "to-neighbour"])
        return super().stop()

    def sent(self):
        """How many datagrams so far."""
        lines = self.log.split()
        return int(lines[-1]) if lines and lines[-1].isdigit() else 0

    def goes_on(self):
        """Waits until it has sent some more."""
        assert self.running(), self.log
        before = self.sent()
        wait_for(lambda: self.sent() > before, f"the {self.name} to go on")


# ---- The program -------------------------------------------------------------

class Sender:
    """Sends everything to ports of a family of addresses."""

    def __init__(self, family, address=None):
        self.socket = socket.socket(family, socket.SOCK_DGRAM)
        if address:
            self.socket.bind((address, 0))
        self.port = self.socket.getsockname()[1]

    def send(self, address, port):
        """How many went out."""
        if port == self.port:
            return 0
        with contextlib.suppress(OSError):
            for answer in ANSWERS:
                self.socket.sendto(answer, (address, port))
            return len(ANSWERS)
        return 0


def open_ports(family, lowest):
    """Addresses and ports of sockets that wait for anybody's datagrams. Not those
    at the servers' own addresses: in.tftpd can be deceived before it connects."""
    table = "udp" if family == socket.AF_INET else "udp6"
    loopback = "127.0.0.1" if family == socket.AF_INET else "::1"
    with open(f"/proc/net/{table}") as sockets:
        for line in list(sockets)[1:]:
            text, _, port = line.split()[1].partition(":")
            words = [int(text[i:i + 8], 16) for i in range(0, len(text), 8)]
            address = socket.inet_ntop(family,
                                       struct.pack(f"={len(words)}I", *words))
            if address in ("0.0.0.0", "::"):
                address = loopback
            if int(port, 16) >= lowest and (
                    address == loopback or not address.startswith("127.")):
                yield address, int(port, 16)


def forge_locally(lowest):
    senders = {family: Sender(family, address)
               for family, address in LOCAL.items()}
    while True:
        # It is there even while there is nobody to be deceived.
        sent = senders[socket.AF_INET].send("127.0.0.1", 1)
        for family, sender in senders.items():
            for address, port in open_ports(family, lowest):
                sent += sender.send(address, port)
        yield sent
        time.sleep(0.001)


def join_switch():
    """The other end of the link, once it is there."""
    wait_for(lambda: os.path.exists("/proc/sys/net/ipv4/conf/to-switch"),
             "the link")
    for command in ("link set lo up", f"address add {NEIGHBOUR}/24 dev to-switch",
                    f"-6 address add {NEIGHBOUR_V6}/64 dev to-switch nodad",
                    "link set to-switch up"):
        subprocess.run(["ip", *command.split()], check=True)


def forge_blindly(lowest, highest, addresses):
    join_switch()
    senders = {address: Sender(socket.AF_INET6 if ":" in address
                               else socket.AF_INET) for address in addresses}
    while True:
        sent = 0
        for port in range(lowest, highest + 1):
            for address, sender in senders.items():
                sent += sender.send(address, port)
        yield sent


def main(kind, *arguments):
    os.nice(5)
    low, *rest = arguments
    rounds = forge_locally(int(low)) if kind == "local" else \
        forge_blindly(int(low), int(rest[0]), rest[1:])
    total = 0
    told = time.monotonic()
    for sent in rounds:
        total += sent
        if sent and time.monotonic() - told > 0.05:
            print(total, flush=True)
            told = time.monotonic()


if __name__ == "__main__":
    main(*sys.argv[1:])
