"""TFTP over paths that carry more or less, in networks of this test's own: the
agent's, a router's and a server's.

    agent, 192.0.2.1 -- 192.0.2.2, router, 198.51.100.1 -- 198.51.100.2, server
"""

import contextlib
import os
import subprocess
import time

import pytest

from forger import own_network
from tftp import bound, error
from tools import Program, wait_for
from transfer_client import Client
from transfer_servers import why_no_network_namespaces

SERVER, SERVER_V6 = "198.51.100.2", "2001:db8:2::2"
CONTENT = b"hostname one\n" + b"! nothing but filling\n" * 10_000
JUMBO_BLOCK, SMALL_BLOCK = 8928, 1428
PORT = 69

pytestmark = pytest.mark.skipif(
    why_no_network_namespaces() is not None or
    not os.access("/usr/sbin/in.tftpd", os.X_OK),
    reason="no network namespaces, or in.tftpd is not installed")


class Network(Program):
    """A network namespace; it lasts as long as a program in it."""

    def __init__(self, name, folder):
        super().__init__(f"network {name}", folder / f"network-{name}.log")
        here = os.readlink("/proc/self/ns/net")
        self.run(["unshare", "-n", "sleep", "600"])

        def moved():
            with contextlib.suppress(OSError):
                return os.readlink(f"/proc/{self.pid}/ns/net") != here
        wait_for(moved, self.name)

    def inside(self, *command):
        return ["nsenter", "-n", "-t", str(self.pid), *command]

    def ip(self, *commands):
        for each in commands:
            subprocess.run(self.inside("ip", *each.split()), check=True)

    def write(self, file, text):
        subprocess.run(self.inside("sh", "-c", f"echo {text} >/proc/sys/{file}"),
                       check=True)


def ip(*commands):
    for each in commands:
        subprocess.run(["ip", *each.split()], check=True)


class Path:
    """The three networks, the cables between them of 9000 octets."""

    def __init__(self, folder):
        self.router, self.server = (Network(name, folder)
                                    for name in ("router", "server"))
        ip(f"link add near type veth peer name far netns {self.router.pid}",
           "link set near up mtu 9000", "address add 192.0.2.1/24 dev near",
           "-6 address add 2001:db8:3::1/64 dev near nodad",
           "route add 198.51.100.0/24 via 192.0.2.2")
        self.router.ip(
            f"link add near type veth peer name far-end netns {self.server.pid}",
            "link set far up mtu 9000", "link set near up mtu 9000",
            "address add 192.0.2.2/24 dev far",
            "-6 address add 2001:db8:3::2/64 dev far nodad",
            "address add 198.51.100.1/24 dev near",
            "-6 address add 2001:db8:2::1/64 dev near nodad")
        self.router.write("net/ipv4/ip_forward", 1)
        self.router.write("net/ipv6/conf/all/forwarding", 1)
        self.server.ip(
            "link set lo up", "link set far-end up mtu 9000",
            f"address add {SERVER}/24 dev far-end",
            f"-6 address add {SERVER_V6}/64 dev far-end nodad",
            "route add default via 198.51.100.1",
            "-6 route add default via 2001:db8:2::1")
        ip("-6 route add 2001:db8:2::/64 via 2001:db8:3::2")

    def shrink(self):
        """The server's cable carries less; the router tells who sends more."""
        self.router.ip("link set near mtu 1500")

    def lose(self):
        """The server's end of the cable takes less, and nobody is told."""
        self.server.ip("link set far-end mtu 1500")

    def close(self):
        subprocess.run(["ip", "link", "del", "near"])
        self.server.stop()
        self.router.stop()


@pytest.fixture(scope="module", autouse=True)
def network():
    why = own_network()
    if why:
        pytest.skip(why)


@pytest.fixture
def path(tmp_path):
    made = Path(tmp_path)
    yield made
    made.close()


class Tftpd(Program):
    """in.tftpd in the server's network."""

    def __init__(self, folder, path, address):
        super().__init__(f"in.tftpd of {address}", folder / "tftpd.log")
        self.address = address
        self.files = folder / "files"
        self.files.mkdir(exist_ok=True)
        self.files.chmod(0o755)
        host = f"[{address}]" if ":" in address else address
        self.run(path.server.inside(
            "/usr/sbin/in.tftpd", "-L", "-c", "-s", "-u", "root",
            "-a", f"{host}:{PORT}", str(self.files)))
        wait_for(self.answers, self.name)

    def answers(self):
        """Whether it says that there is no such file. The networks' neighbours
        know each other from then on."""
        with bound("::" if ":" in self.address else "0.0.0.0") as probe:
            probe.settimeout(0.2)
            probe.sendto(b"\0\1none\0octet\0", (self.address, PORT))
            with contextlib.suppress(OSError):
                return probe.recv(100).startswith(error(1, b""))


@pytest.fixture
def make_tftpd(tmp_path, path):
    made = []

    def make(address=SERVER):
        made.append(Tftpd(tmp_path, path, address))
        return made[-1]
    yield make
    for each in made:
        each.stop()


@pytest.fixture
def client(tmp_path):
    made = Client(tmp_path)
    made.password = ""
    # Everything is said again after three seconds.
    made.settings.update(tftp_packet_seconds=12, tftp_total_seconds=60)
    made.stage(CONTENT)
    return made


def counters(version):
    """Datagrams that this network has sent, fragments that it has made, and
    datagrams that it has put together."""
    if version == 6:
        with open("/proc/net/snmp6") as lines:
            found = dict(line.split() for line in lines)
        names = "Udp6OutDatagrams", "Ip6FragCreates", "Ip6ReasmOKs"
    else:
        with open("/proc/net/snmp") as lines:
            rows = [line.split() for line in lines]
        found = {titles[0] + title: value
                 for titles, values in zip(rows[::2], rows[1::2])
                 for title, value in zip(titles, values)}
        names = "Udp:OutDatagrams", "Ip:FragCreates", "Ip:ReasmOKs"
    return [int(found[name]) for name in names]


def copied(client, server, direction):
    """Has a file copied, and returns what it has added to the counters."""
    version = 6 if ":" in server.address else 4
    (server.files / "down").write_bytes(CONTENT)
    before = counters(version)
    done = client.run("ovan-tftp", "1" if direction == "up" else "0",
                      server.address, str(PORT),
                      "local.cfg" if direction == "up" else "fetched",
                      direction, "1")
    assert done == 0, client.said
    arrived = server.files if direction == "up" else client.folder
    name = "up" if direction == "up" else "fetched"
    # The server may still be writing what it has acknowledged.
    wait_for(lambda: (arrived / name).read_bytes() == CONTENT, name)
    return [now - then for then, now in zip(before, counters(version))]


def packets(block):
    """What the client sends for the file: the request, and one a block; for a
    download one more, which takes the options."""
    return len(CONTENT) // block + 2


@pytest.mark.parametrize("address", [SERVER, SERVER_V6])
def test_blocks_fit_the_path(client, make_tftpd, address):
    """Nothing is fragmented, and no packet is smaller than it has to be."""
    server = make_tftpd(address)
    assert copied(client, server, "up") == [packets(JUMBO_BLOCK), 0, 0]
    assert copied(client, server, "down") == [packets(JUMBO_BLOCK) + 1, 0, 0]


def test_bounded_by_the_operator(client, make_tftpd):
    client.settings["tftp_block_octets"] = 1000
    assert copied(client, make_tftpd(), "up") == [packets(1000), 0, 0]


@pytest.mark.parametrize("address", [SERVER, SERVER_V6])
def test_path_that_shrinks(client, path, make_tftpd, address):
    """The router tells: the rest goes in fragments, and nothing waits. From
    then on the kernel knows the path."""
    server = make_tftpd(address)
    path.shrink()
    began = time.monotonic()
    sent, fragments, _ = copied(client, server, "up")
    assert time.monotonic() - began < 3
    assert sent == packets(JUMBO_BLOCK) + 1 and fragments > 0
    assert copied(client, server, "up") == [packets(SMALL_BLOCK), 0, 0]


def test_path_that_loses_large_packets(client, path, make_tftpd):
    """Nobody tells: the transfer begins again with small blocks."""
    server = make_tftpd()
    path.lose()
    sent, fragments, _ = copied(client, server, "up")
    # The lost block went out twice, and the server was told. One that is slow
    # to take the new request is asked again, for less.
    assert sent in (packets(SMALL_BLOCK) + 1 + 2 + 1,
                    packets(512) + 1 + 1 + 2 + 1)
    assert fragments == 0
