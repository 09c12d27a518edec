"""Every pair of what can be copied to what, by SFTP, on two routers that are
BGP neighbours of each other; and a save on four routers, one of which hangs.
What came of it is the tables in docs/frr-copies.md."""

import os
import pathlib
import subprocess
import time
import types

import pytest

import manager
import routers
from saves import ALL_STARTUP, FABRIC_STARTUP, SAVE_FAILED, errors, save
from snmp import (NETWORK, RUNNING, SOME_CONFIG_APPLY_FAILED, STARTUP,
                  SUCCESSFUL, go, row)
from switches import FrrAgent, saving_command
from tools import wait_for
from transfer_servers import PASSWORD, USER, Servers, needs_servers

pytestmark = needs_servers

DOCUMENT = pathlib.Path(__file__).parents[2] / "docs" / "frr-copies.md"
REWRITE = "XF_WRITE_COPIES=1 ctest --test-dir build -R 'frr[.]copies'"
SFTP = 5
NAMES = ["north", "south", "east", "west"]
DAEMONS = ("zebra", "staticd", "bgpd")

TEXT = f"""\
<!-- Written by a test. To write it anew: {REWRITE} -->
# Copies of routers with FRR

`north` and `south` run FRR and are BGP neighbours of each other. Each has an
agent with `backend frr`, and makes the copies of this table. The server is
OpenSSH's; the protocol of every row is sftp. What else can be asked for is
refused, or comes to nothing, as [copies.md](copies.md) tells: that is the same
with every back end.

"""
FABRIC_TEXT = """
## A save in the fabric while a daemon hangs

Four routers; `north` saves its running configuration on all of them. On `east`
bgpd was stopped with SIGSTOP, so that it neither answers nor ends. The copy
fails, and has a row in the error table for each router that was not saved.

"""
FABRIC_END = """
After SIGCONT the same copy is successful, and `east` is saved, too.
"""


def configuration(number, neighbour):
    """A router with a network of its own, and a neighbour perhaps."""
    lines = [f"ip route 10.{number}.0.0/24 blackhole",
             f"router bgp 6500{number}", " no bgp ebgp-requires-policy"]
    if neighbour:
        lines += [f" neighbor 198.51.100.{neighbour} remote-as 6500{neighbour}",
                  f" neighbor 198.51.100.{neighbour} timers connect 1"]
    return "\n".join([*lines, " address-family ipv4 unicast",
                      f"  network 10.{number}.0.0/24",
                      " exit-address-family", "exit", ""])


def make_routers(folder):
    made = []
    for name in NAMES:
        (folder / name).mkdir()
        made.append(routers.Router(folder / name, DAEMONS))
    made[0].link(made[1], "198.51.100")
    for number, router in enumerate(made, 1):
        neighbour = {1: 2, 2: 1}.get(number)
        status, results = router.apply(configuration(number, neighbour))
        assert status == routers.APPLIED, results
    return made


def fabric_of(fabric, local, folder):
    """The settings of one of the switches: the others are reached by SSH."""
    file = folder / f"fabric-of-{local.switch_name}"
    file.write_text("".join(
        f"switch {each.switch_name} wwn {each.wwn} address {each.address} "
        "local\n" if each is local else each.line()
        for each in fabric.switches))
    file.chmod(0o600)
    return fabric.settings(fabric_file=file, fabric_switch_seconds=25)


@pytest.fixture(scope="module")
def scene(tmp_path_factory):
    routers.needed()
    folder = tmp_path_factory.mktemp("scene")
    for each in ("routers", "fabric"):
        (folder / each).mkdir()
    servers, fabric = Servers(), manager.Fabric(folder / "fabric")
    made, agents = [], []
    try:
        made = make_routers(folder / "routers")
        for name, router in zip(NAMES, made):
            fabric.add(name, saving_command(router)).start()
        ssh = servers.ssh()
        for name, router, switch in zip(NAMES[:2], made, fabric.switches):
            agent = FrrAgent(folder / f"agent-{name}", router,
                             ssh_port=ssh.port,
                             **fabric_of(fabric, switch, folder))
            (agent.state / "known_hosts").write_text(ssh.known_host)
            agents.append(agent.start())
        yield types.SimpleNamespace(routers=made, agents=agents, server=ssh,
                                    found={}, index=0)
    finally:
        for agent in agents:
            agent.close()
        fabric.close()
        servers.stop()
        for router in made:
            router.close()


class Copier:
    """One of the two neighbours. What a test asks for happens here, what it
    changes is seen at the other one, too."""

    def __init__(self, scene, number):
        self.scene, self.number = scene, number
        self.agent, self.router = scene.agents[number], scene.routers[number]
        self.other = scene.routers[1 - number]
        self.file = f"{NAMES[number]}.cfg"

    def network(self, third):
        return f"10.{self.number + 1}.{third}.0/24"

    def copy(self, source, destination, file=None):
        """The state that it ended in."""
        self.scene.index += 1
        self.agent.station.set(go(row(
            self.scene.index, xfCopyProtocol=SFTP, xfCopySourceFileType=source,
            xfCopyDestFileType=destination,
            xfCopyServerAddress=self.scene.server.address,
            xfCopyFileName=file or self.file, xfCopyUserName=USER,
            xfCopyUserPassword=PASSWORD)))
        return self.agent.ended(self.scene.index)

    def configure(self, text):
        status, results = self.router.apply(text)
        assert status == routers.APPLIED, results

    def filter(self, name):
        return (f"ip prefix-list {name}-{self.number} seq 5 "
                f"permit {self.network(0)}\n")

    def bgp(self, line):
        return (f"router bgp 6500{self.number + 1}\n"
                " address-family ipv4 unicast\n"
                f"  {line}\n exit-address-family\nexit\n")

    def neighbour_routes_to(self, prefix):
        shown = subprocess.run(
            [*self.other.enter, "ip", "route", "show", prefix, "proto", "bgp"],
            check=True, capture_output=True, text=True)
        return prefix in shown.stdout

    def neighbour_learns(self, prefix):
        wait_for(lambda: self.neighbour_routes_to(prefix),
                 f"the route to {prefix}", 60)

    def neighbour_forgets(self, prefix):
        wait_for(lambda: not self.neighbour_routes_to(prefix),
                 f"the route to {prefix} to go", 60)


def saved(router):
    return router.frr_conf.exists() and \
        router.frr_conf.read_text() == router.own_show()


def running_to_server(at):
    at.neighbour_learns(at.network(0))
    assert at.copy(RUNNING, NETWORK) == SUCCESSFUL
    assert at.scene.server.content(at.file).decode() == at.router.own_show()
    return "the file is what vtysh shows"


def server_to_running(at):
    prefix = at.network(1)
    assert not at.neighbour_routes_to(prefix)
    at.scene.server.offer(at.file, (f"ip route {prefix} blackhole\n" +
                                    at.bgp(f"network {prefix}")).encode())
    assert at.copy(NETWORK, RUNNING) == SUCCESSFUL
    at.neighbour_learns(prefix)
    return "a network that the file adds is in the neighbour's `ip route`"


def running_to_startup(at):
    assert not at.router.frr_conf.exists()
    assert at.copy(RUNNING, STARTUP) == SUCCESSFUL
    assert saved(at.router)
    assert at.agent.system_cfg.read_bytes() == at.router.frr_conf.read_bytes()
    return "frr.conf and system.cfg are what vtysh shows"


def startup_to_server(at):
    at.scene.server.offer(at.file, b"another one\n")
    assert at.copy(STARTUP, NETWORK) == SUCCESSFUL
    assert at.scene.server.content(at.file) == at.router.frr_conf.read_bytes()
    return "the file is frr.conf"


def startup_to_running(at):
    prefix = at.network(1)
    at.configure(at.bgp(f"no network {prefix}"))
    at.neighbour_forgets(prefix)
    assert at.copy(STARTUP, RUNNING) == SUCCESSFUL
    at.neighbour_learns(prefix)
    assert saved(at.router)
    return "a network that was removed is in the neighbour's `ip route` again"


def running_to_all(at):
    at.configure(at.filter("ALL"))
    assert not saved(at.router)
    assert at.copy(RUNNING, ALL_STARTUP) == SUCCESSFUL
    assert saved(at.router)
    assert at.agent.system_cfg.read_bytes() == at.router.frr_conf.read_bytes()
    return "frr.conf and system.cfg are what vtysh shows"


def running_to_fabric(at):
    for router in at.scene.routers:
        status, results = router.apply(at.filter("FABRIC"))
        assert status == routers.APPLIED, results
        assert not saved(router)
    assert at.copy(RUNNING, FABRIC_STARTUP) == SUCCESSFUL
    assert [each for each in at.scene.routers if not saved(each)] == []
    return "frr.conf of all four routers is what vtysh shows there"


# In this order: each begins with what the one before has left.
PAIRS = [
    ("runningConfig(4)", "networkFile(1)", running_to_server),
    ("networkFile(1)", "runningConfig(4)", server_to_running),
    ("runningConfig(4)", "startupConfig(3)", running_to_startup),
    ("startupConfig(3)", "networkFile(1)", startup_to_server),
    ("startupConfig(3)", "runningConfig(4)", startup_to_running),
    ("runningConfig(4)", "allStartupConfig(7)", running_to_all),
    ("runningConfig(4)", "fabricStartupConfig(6)", running_to_fabric),
]


def table(heads, lines):
    return "".join(f"| {' | '.join(each)} |\n"
                   for each in (heads, ["---"] * len(heads), *lines))


def test_every_pair_on_two_neighbours(scene):
    lines = []
    for source, destination, done in PAIRS:
        seen = [done(Copier(scene, number)) for number in (0, 1)]
        assert seen[0] == seen[1]
        lines.append([source, destination, "successful", "successful", seen[0]])
    scene.found["pairs"] = table(
        ["source", "destination", *NAMES[:2], "seen afterwards"], lines)


def test_the_configuration_of_the_neighbour(scene):
    """One router has the other's: what cannot be is refused, by line."""
    north, south = Copier(scene, 0), Copier(scene, 1)
    assert north.copy(RUNNING, NETWORK) == SUCCESSFUL
    before = south.router.own_show()
    assert south.copy(NETWORK, RUNNING, north.file) != SUCCESSFUL
    cause = south.agent.station.get("xfCopyFailCause", scene.index)
    assert cause == SOME_CONFIG_APPLY_FAILED
    # Its block went with the header that was refused.
    after = south.router.own_show()
    assert "router bgp 65002" in after and "65001\n" not in after.replace(
        "remote-as 65001", "")
    assert f"ip route {north.network(0)} blackhole" in after
    assert set(before.split("\n")) <= set(after.split("\n"))
    south.neighbour_learns(south.network(0))


def test_a_save_in_the_fabric_while_a_daemon_hangs(scene):
    north, station = scene.agents[0], scene.agents[0].station
    east = scene.routers[2]
    assert north.answers()
    for router in scene.routers:
        router.frr_conf.write_text("! old\n")
    east.stop_daemon("bgpd")
    began = time.monotonic()
    station.set(save(100, FABRIC_STARTUP))
    cause = north.fails(100)
    # Its own limit ends it, not the one for a switch that says nothing.
    assert time.monotonic() - began < 25
    rows = errors(north, 100)
    assert (cause, len(rows)) == (SAVE_FAILED, 1)
    (_, address, _, words), = rows.values()
    east.go_on("bgpd")
    lines = []
    for name, router, address_there in zip(
            NAMES, scene.routers, ["-", *(f"127.0.0.{n}" for n in (22, 23, 24))]):
        hangs = router is east
        assert (address_there == address) == hangs
        kept = router.frr_conf.read_text()
        assert kept == ("! old\n" if hangs else router.own_show()), name
        lines.append([name, "hangs" if hangs else "runs",
                      words if hangs else "none",
                      "as before" if hangs else "its running configuration"])
    assert "no answer from bgpd" in words
    scene.found["fabric"] = table(
        ["router", "bgpd", "row of the error table", "frr.conf"], lines)
    station.set(save(101, FABRIC_STARTUP))
    north.succeeds(101)
    assert saved(east)


def test_the_document(scene):
    """The tables are those of the document."""
    assert sorted(scene.found) == ["fabric", "pairs"], "a test failed"
    text = (TEXT + scene.found["pairs"] + FABRIC_TEXT + scene.found["fabric"] +
            FABRIC_END)
    if os.environ.get("XF_WRITE_COPIES") == "1":
        DOCUMENT.write_text(text)
    assert DOCUMENT.read_text() == text, f"not up to date; run {REWRITE}"
