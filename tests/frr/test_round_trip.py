"""What goes through the shell is what FRR's own tool makes of it."""

import difflib
import pathlib
import random

import pytest

import table
from routers import APPLIED, needed

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


ROWS = {}


def differences(one, other):
    """How many lines are only in one of them."""
    return sum(line[0] in "+-" for line in difflib.ndiff(one, other))


def compare(make_router, name, text):
    """Through the shell on one router, through vtysh on the other."""
    ours, theirs, new = make_router(), make_router(), make_router()
    given = theirs.folder / "given.cfg"
    given.write_bytes(text.encode(errors="surrogateescape"))
    assert ours.apply(text)[0] == APPLIED
    theirs.vtysh("-f", str(given))
    shown = ours.own_show().split("\n")
    through_us = [differences(ours.show().split("\n"), each.split("\n"))
                  for each in (ours.own_show(), theirs.own_show())]
    # And once more, from the backup: on itself, and on a new router, where only
    # the order may be another one.
    backup = ours.show()
    assert ours.apply(backup)[0] == APPLIED == new.apply(backup)[0]
    restored = [differences(ours.show().split("\n"), shown),
                differences(sorted(new.show().split("\n")), sorted(shown))]
    lines = [line for line in text.split("\n")
             if line.strip() and line.strip()[0] not in "!#"]
    ROWS[name] = [len(lines), len(shown) - 1, *through_us, *restored]
    assert through_us + restored == [0] * 4


@pytest.mark.parametrize("file", EXAMPLES, ids=str)
def test_examples_of_the_packages(make_router, file):
    compare(make_router, str(file),
            file.read_bytes().decode(errors="surrogateescape"))


SEEDS = range(8)


@pytest.mark.parametrize("seed", SEEDS)
def test_generated(make_router, seed):
    compare(make_router, f"generated, {seed}", Generator(seed).whole())


INTRODUCTION = """\
The one configuration that Debian's packages of FRR carry, and generated ones
(route-maps, prefix-lists, access-lists, BGP with two address families, OSPF,
VRFs, interfaces with odd descriptions): applied through the shell to an empty router, and with
`vtysh -f` to another one. The last four columns are numbers of lines that
differ: what the shell shows from what `vtysh -c show` gives on that router, and
on the other one; after the backup was applied once more; and on a new router
that it was applied to, without regard to the order.
"""


def test_table(request):
    """Of the tests above; not if only some of them were run."""
    needed()
    names = [str(file) for file in EXAMPLES] + \
        [f"generated, {seed}" for seed in SEEDS]
    if len(request.session.items) < len(names) + 1:
        pytest.skip("only some were run")
    assert list(ROWS) == names
    total = [sum(column) for column in zip(*ROWS.values())]
    rows = [*ROWS.items(), (f"**{len(ROWS)} configurations**", total)]
    table.compare(
        "frr-round-trip.md", "round_trip", "Configurations through the shell "
        "and through vtysh", INTRODUCTION,
        ["configuration", "lines", "lines shown", "same router",
         "other router", "applied again", "new router"],
        [[name, *map(str, numbers)] for name, numbers in rows])


def test_ten_thousand_lines(make_router):
    ours, theirs = make_router(), make_router()
    text = "".join(f"ip route 20.{n // 250}.{n % 250}.0/24 blackhole\n"
                   for n in range(10_000))
    given = theirs.folder / "given.cfg"
    given.write_text(text)
    theirs.vtysh("-f", str(given))
    assert ours.apply(text) == (APPLIED, [])
    assert ours.show() == theirs.own_show()
