"""What a hostile file tries. Each case is written into a table with what came
of it, and what is around its lines is applied."""

import re

import table
from routers import SKIPPED

BEFORE = """\
route-map KEEP permit 1
 set metric 1
exit
interface lo
 description mine
exit
router bgp 65001
 neighbor 10.9.9.9 remote-as 5
exit
router ospf
 network 10.0.0.0/8 area 0.0.0.0
exit
"""

HOSTILE = [
    "exit", "quit", "exit\nexit", "end\nip route 10.5.0.0/24 blackhole", "en",
    "exit\nwrite memory", "exit\ncopy running-config startup-config",
    "exit\nclear bgp *", "exit\nshow running-config", "exit\nping 127.0.0.1",
    "exit\nconfigure terminal", "exit\nterminal monitor", "ex", "qu",
    "exit\nshow history", "exit\ngraceful-restart prepare",
    "do write memory", "do", "write", "wr", "write memory", "show history",
    "copy a b", "configure terminal", "clear log filter-text", "list", "lis",
    "find .*", "terminal paginate", "no terminal paginate", "start-shell",
    "output file FILE", "outp file FILE", "output", "ou f FILE",
    "router bgp 65009\n output file FILE\nexit",
    "log file FILE", "lo f FILE", "log filtered-file FILE",
    "log fi FILE", "log commands", "dump bgp all FILE",
    "banner motd file FILE", "banner mo fi FILE",
    "nhrp event socket FILE",
    "vrf red\n netns FILE\nexit",
    "\tip route 10.8.0.0/24\vblackhole", "\x01ip route 10.8.0.0/24 blackhole",
    "\0write memory", "ip route 10.8.0.0/24 blackhole\0\nwrite memory",
    "\ufeffip route 10.8.0.0/24 blackhole", "description \x7f",
    "ip route 10.8.0.0/24 blackhole " + "x" * 4000 + "\nwrite memory",
    "! " + "x" * 4093 + "write memory\nwrite memory",
    # Behind what looks like the end.
    "end\n! c\n\nwrite memory\nend", "end x", " end \nwrite file",
    "router bgp 65001\nend\nneighbor 10.9.9.3 remote-as 3",
    # Blocks left too often, or not where they were entered.
    "router bgp 65001\n address-family ipv4 unicast\n"
    " exit-address-family\n exit-address-family\nexit\nexit\nwrite file",
    "exit-address-family", "exit-vrf", "router bgp 65001\nexit-vrf\nexit",
    "router bgp 65001\nexit now\nexit", "quit quit", "no exit", "no end",
    "router bgp 65001\n  wlan\n    exit\n  exit\nexit\nexit\nwrite",
    "key chain K\n key 1\n exit\nexit\nexit\nwrite",
    "bfd\n peer 192.0.2.9\n exit\nexit\nexit\nwr",
    # Shortened, in other letters, or with other octets between.
    "conf t\nwr mem", "config terminal", "\tdo\tshow\trunning-config",
    "wr\tite memory", "WRITE MEMORY\nEXIT", "no write memory", "no no write",
    "exit\r\nwrite memory\r", "agentx\rexit\rwrite memory",
    "ip\u00a0route 10.8.0.0/24 blackhole", "\uff45xit\n\u2028exit\nexit\u200b",
    "interface x1\n description \u202e\u2028exit\nexit", "ena", "enable",
    # Comments that are none, and names that look like comments.
    "ip route 10.8.0.0/24 blackhole ! write memory",
    "ip route 10.8.0.0/24 blackhole # x", "!exit\n#exit\n ! write memory",
    "route-map ! permit 1\n set metric 4\nexit",
    "route-map # permit 1\n set metric 3\nexit",
    # Filters.
    "show running-config | tee FILE", "| tee FILE",
    "ip route 10.8.0.0/24 blackhole | include x",
    "route-map KEEP permit 1\nexit\nroute-map | permit 1\n set metric 9\nexit",
    "interface lo\nexit\ninterface | include\n description theirs\nexit",
    "interface x1\n description a | include b\nexit",
    "interface x1\n description a| b\nexit",
    # Help, and what another system would do.
    "?", "ip route ?", "ip route 10.8.0.0/24 blackhole ?", "ip route 10.8\t\t",
    "include /etc/passwd", "source FILE", "@FILE", "load FILE", "< FILE",
    "/bin/sh", "`touch FILE`", "$(touch FILE)", ";touch FILE",
    "interface x1\n description `touch FILE`$(touch FILE);touch FILE\nexit",
    # Another block than it seems.
    "router bgp 65001\nrouter bgp 65002\n neighbor 10.9.9.7 remote-as 6\nexit\n"
    "neighbor 10.9.9.6 remote-as 6",
    "router bgp 65001\nexit\nrouter bgp 65001\n neighbor 10.9.9.9 timers 4 12\n"
    "exit", "router b 65002\nbgp router-id 192.0.2.8",
    "router b 65001\n neighbor 10.9.9.5 remote-as 6\nexit",
    "router bgp 65002\n neighbor 10.9.9.9 shutdown\nexit",
    "router bgp 4294967296\n neighbor 10.9.9.9 shutdown\nexit",
    "router bgp 65001\n address-family ipv4 foo\n  neighbor 10.9.9.9 shutdown\n"
    " exit-address-family\nexit",
    "router bgp 65001\n address-family ipv4 unicast\n"
    "  address-family ipv6 unicast\n   network 2001:db8:5::/48\n exit\n exit\n"
    "exit", "router ospf 5\n network 10.0.0.0/8 area 7\nexit",
    "router rip\n network 10.0.0.0/8\nexit",
    "interface " + "i" * 40 + "\n description theirs\nexit",
    "vrf " + "v" * 40 + "\n ip route 10.8.0.0/24 blackhole\nexit-vrf",
    "route-map KEEP permit 1 set metric 5",
    "route-map KEEP permit 65536\n set metric 5\nexit",
    "int lo\n description theirs\nexit",
    # Lines that are nearly too long.
    "interface x1\n description " + "a" * 4000 + "\nexit\nwrite",
    "ip route 10.8.1.0/24 blackhole" + " " * 4100 + "write",
    # Taken by vtysh itself, and by no daemon.
    "hostname pwned", "domainname pwned", "username pwned nopassword",
    "service integrated-vtysh-config", "frr version 1",
]

INTRODUCTION = """\
Each case stands between two routes, which were applied every time, on a router
with a route-map, an interface, BGP and OSPF. No file was written and FRR's own
`frr.conf` stayed what it was. `FILE` is a path that anybody can write to;
`\\n`, `\\t`, `\\r` and `\\x..` stand for the octets, `xxx...(4000)` for so many of
one. Line 1 is the first route.
Under "new" and "gone" are lines of the configuration, but for the two routes.
"""


def written(text, pwned="FILE"):
    """As it is shown in the table."""
    text = text.replace(str(pwned), "FILE")
    text = text.encode("unicode_escape").decode().replace("|", "\\|")
    text = re.sub(r"(.)\1{20,}",
                  lambda run: f"{run[1] * 3}...({len(run[0])})", text)
    return f"`` {text} ``" if "`" in text else f"`{text}`"


def reasons(results, pwned):
    """Without the lines themselves."""
    words = [each.rpartition(": \"")[0] if each.startswith("line ") else each
             for each in results]
    return "; ".join(words).replace(str(pwned), "FILE").replace("|", "\\|")


def changes(before, after, routes, pwned):
    """The lines that are new, and those that are gone."""
    def lines(text):
        return {line.strip() for line in text.split("\n")} - routes
    listed = [sorted(lines(one) - lines(other) - {"exit", "exit-vrf", "!"})
              for one, other in ((after, before), (before, after))]
    return [", ".join(written(line, pwned) for line in each) or "-"
            for each in listed]


def test_hostile_lines(router):
    pwned = router.folder / "home" / "pwned"
    (router.folder / "home").chmod(0o777)
    router.frr_conf.write_text("! precious\n")
    assert router.apply(BEFORE)[0] == 0
    rows = []
    before = router.show()
    for number, hostile in enumerate(HOSTILE):
        routes = {f"ip route 10.{net}.{number}.0/24 blackhole"
                  for net in (6, 7)}
        first, last = sorted(routes)
        status, results = router.apply(
            f"{first}\n{hostile.replace('FILE', str(pwned))}\n{last}\n")
        after = router.show()
        assert status < SKIPPED, (hostile, results)
        assert all(f"\n{each}\n" in after for each in routes), hostile
        assert not pwned.exists(), hostile
        rows.append((written(hostile), reasons(results, pwned) or "-",
                     *changes(before, after, routes, pwned)))
        before = after
    assert router.frr_conf.read_text() == "! precious\n"
    assert list((router.folder / "home").iterdir()) == []
    assert {path.name for path in (router.folder / "etc").iterdir()} == \
        {"frr.conf", "vtysh.conf"}
    for line in BEFORE.splitlines():
        assert line in after
    table.compare("frr-hostile.md", "hostile", "Hostile lines for FRR",
                  INTRODUCTION, ["lines", "what is said", "new", "gone"], rows)
