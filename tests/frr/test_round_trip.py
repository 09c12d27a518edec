"""What goes through the shell is what FRR's own tool makes of it."""

import pathlib
import random

import pytest

from routers import APPLIED

EXAMPLES = sorted(
    file for folder in ("/etc/frr", "/usr/share/doc/frr", "/usr/share/frr")
    for file in pathlib.Path(folder).rglob("*.conf*")
    if file.is_file() and file.name not in ("vtysh.conf", "daemons.conf",
                                            "support_bundle_commands.conf"))

ODD = ["plain", "two  blanks", "tab\there", "ünï ¢ödé", "quote\"s 'and' `these`",
       "$HOME $(reboot) ;|&<>", "! not a comment", "# nor this", "exit",
       "end of it", "write memory", "% Unknown command", "a\\b\\", "no",
       "line 2: % Unknown command[4]: foo", "\udce9\udcff raw octets"]


class Generator:
    """A configuration for every seed; everything it refers to is in it."""

    def __init__(self, seed):
        self.random = random.Random(seed)
        self.seed = seed
        self.text = []
        self.maps = [f"MAP-{n}" for n in range(self.random.randint(1, 4))]
        self.lists = [f"LIST-{n}" for n in range(self.random.randint(1, 4))]

    def add(self, line):
        self.text.append(line + "\n")

    def prefix(self, shortest=8):
        length = self.random.randint(shortest, 30)
        address = self.random.getrandbits(32) & ~((1 << (32 - length)) - 1)
        first = 11 + (address >> 24) % 80
        octets = [first, address >> 16 & 255, address >> 8 & 255, address & 255]
        return ".".join(map(str, octets)) + f"/{length}"

    def address(self):
        return "192.0.2." + str(self.random.randint(1, 254))

    def whole(self):
        for name in ["red", "blue"][:self.random.randint(0, 2)]:
            self.add(f"vrf {name}")
            for _ in range(self.random.randint(1, 3)):
                self.add(f" ip route {self.prefix()} blackhole")
            self.add("exit-vrf")
            self.add("!")
        self.filters()
        self.interfaces()
        self.route_maps()
        self.bgp()
        self.ospf()
        for _ in range(self.random.randint(0, 5)):
            self.add(f"ip route {self.prefix()} {self.address()}")
            self.add(f"ipv6 route 2001:db8:{self.random.randint(1, 99)}::/48 "
                     "blackhole")
        return "".join(self.text)

    def filters(self):
        for name in self.lists:
            for number in range(1, self.random.randint(2, 6)):
                self.add(f"ip prefix-list {name} seq {number * 5} "
                         f"{self.random.choice(['permit', 'deny'])} "
                         f"{self.prefix()}")
            self.add(f"access-list {name} seq 5 permit {self.prefix()}")
            self.add(f"access-list {name} remark {self.odd()}")

    def odd(self):
        return self.random.choice(ODD)

    def interfaces(self):
        for name in ["lo", "x1", "x2"][:self.random.randint(0, 3)]:
            self.add(f"interface {name}")
            self.add(f" description {self.odd()}")
            if self.random.random() < 0.5:
                self.add(f" ip address {self.address()}/32")
            if self.random.random() < 0.5:
                self.add(" ip ospf cost 12")
            self.add("exit")

    def route_maps(self):
        for name in self.maps:
            for number in range(1, self.random.randint(2, 5)):
                self.add(f"route-map {name} "
                         f"{self.random.choice(['permit', 'deny'])} "
                         f"{number * 10}")
                self.add(f" description {self.odd()}")
                self.add(" match ip address prefix-list "
                         f"{self.random.choice(self.lists)}")
                self.add(f" set local-preference {number}")
                if self.random.random() < 0.5:
                    self.add("exit")

    def bgp(self):
        self.add("router bgp 65001")
        self.add(f" bgp router-id {self.address()}")
        own = self.random.sample(range(1, 250), self.random.randint(1, 6))
        for number in own:
            self.add(f" neighbor 198.51.100.{number} remote-as {number}")
            self.add(f" neighbor 198.51.100.{number} description {self.odd()}")
        for family in ("ipv4 unicast", "ipv6 unicast"):
            self.add(f" address-family {family}")
            for number in own:
                self.add(f"  neighbor 198.51.100.{number} activate")
                self.add(f"  neighbor 198.51.100.{number} route-map "
                         f"{self.random.choice(self.maps)} "
                         f"{self.random.choice(['in', 'out'])}")
            if family == "ipv4 unicast":
                self.add(f"  network {self.prefix()}")
            self.add(" exit-address-family")
        self.add("exit")
        self.add("bgp route-map delay-timer 7")

    def ospf(self):
        self.add("router ospf")
        self.add(f" ospf router-id {self.address()}")
        for area in range(self.random.randint(1, 4)):
            self.add(f" network {self.prefix()} area 0.0.0.{area}")
            if area and self.random.random() < 0.5:
                self.add(f" area 0.0.0.{area} stub")
        self.add("exit")


def compare(make_router, text):
    """Through the shell on one router, through vtysh on the other."""
    ours, theirs = make_router(), make_router()
    status, results = ours.apply(text)
    given = theirs.folder / "given.cfg"
    given.write_bytes(text.encode(errors="surrogateescape"))
    done = theirs.try_vtysh("-f", str(given))
    assert done.returncode == 0, done
    assert ours.show() == theirs.own_show()
    assert status == APPLIED, results
    # And once more, from the backup: on itself, and on a new router.
    backup = ours.show()
    status, results = ours.apply(backup)
    assert status == APPLIED, results
    assert ours.show() == backup
    new = make_router()
    status, results = new.apply(backup)
    assert status == APPLIED, results
    assert sorted(new.show().split("\n")) == sorted(backup.split("\n"))


@pytest.mark.parametrize("file", EXAMPLES, ids=str)
def test_examples_of_the_packages(make_router, file):
    compare(make_router, file.read_bytes().decode(errors="surrogateescape"))


@pytest.mark.parametrize("seed", range(6))
def test_generated(make_router, seed):
    compare(make_router, Generator(seed).whole())


def test_ten_thousand_lines(make_router):
    ours, theirs = make_router(), make_router()
    text = "".join(f"ip route 20.{n // 250}.{n % 250}.0/24 blackhole\n"
                   for n in range(10_000))
    given = theirs.folder / "given.cfg"
    given.write_text(text)
    theirs.vtysh("-f", str(given))
    assert ours.apply(text) == (APPLIED, [])
    assert ours.show() == theirs.own_show()
