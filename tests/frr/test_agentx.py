"""bgpd as the agent's own subagent: each may have to wait for the other."""

import pathlib
import subprocess
import time

import pytest

from saves import save
from snmp import FAILED, IN_PROGRESS, Failure, download, go, upload
from switches import FrrAgent
from tools import wait_for

MODULE = "frr/modules/bgpd_snmp.so"
# bgpVersion, which bgpd answers.
BGP_VERSION = ".1.3.6.1.2.1.15.1.0"
ARRIVED = "Connection from UDP"
SUBAGENT = ["-M", "snmp"]

pytestmark = pytest.mark.skipif(
    not list(pathlib.Path("/usr/lib").glob(f"*/{MODULE}")),
    reason="frr-snmp is not installed")


@pytest.fixture
def switch(make_router, tmp_path):
    """An agent that takes subagents, and a bgpd that can be one."""
    router = make_router(daemons=())
    socket = router.folder / "run" / "agentx"
    (router.folder / "frr.conf").write_text(f"agentXSocket unix:{socket}\n")
    # vtysh has both turn it on, and stops at the first that cannot.
    for name, options in (("zebra", SUBAGENT), ("staticd", []),
                          ("bgpd", SUBAGENT)):
        router.start(name, *options, SNMPCONFPATH=str(router.folder))
    router.settings["frr_daemons"] = " ".join(router.daemons)
    agent = FrrAgent(tmp_path / "agent", router, vtysh_seconds=2, extra_configuration=(
        f"master agentx\nagentXSocket unix:{socket}\nagentXPerms 0777\n"))
    yield agent.start()
    agent.close()


def bgp_version(agent):
    """What bgpd answers through the agent; None if nothing comes."""
    try:
        text = agent.station.run("snmpget", "-t", "3", "-Oqv",
                                 agent.station.peer, BGP_VERSION)
    except Failure:
        return None
    return None if "No Such" in text else text.strip()


def slowest_answer(agent, index):
    """Until the copy has ended: the agent's slowest answer, in seconds."""
    slowest = 0.0
    while agent.station.get("xfCopyState", index) == IN_PROGRESS:
        began = time.monotonic()
        assert agent.answers()
        slowest = max(slowest, time.monotonic() - began)
        time.sleep(0.05)
    return slowest


def ask_bgpd(agent):
    """Somebody else, who waits for bgpd from now on."""
    station, before = agent.station, agent.log.count(ARRIVED)
    waiting = subprocess.Popen(
        ["snmpget", *station.who, "-t", "60", "-r", "0", "-m", "",
         station.peer, BGP_VERSION], stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT, text=True)
    wait_for(lambda: agent.log.count(ARRIVED) > before, "the question")
    return waiting


def seconds(call):
    began = time.monotonic()
    call()
    return time.monotonic() - began


def test_a_subagent_that_hangs(switch):
    router, double, station = switch.router, switch.double, switch.station
    assert bgp_version(switch) is None
    # It becomes one while the agent's own copy waits for vtysh.
    double.files["agentx.cfg"] = b"agentx\nrouter bgp 65001\nexit\n"
    station.set(go(download(1, "agentx.cfg", double.address)))
    assert slowest_answer(switch, 1) < 2
    switch.succeeds(1)
    wait_for(lambda: bgp_version(switch) == '"10 "', "bgpd as a subagent", 30)

    router.stop_daemon("bgpd")
    waiting = ask_bgpd(switch)
    # snmpd holds a SET back while it waits for a subagent, and gives that up
    # after six seconds.
    assert 3 < seconds(lambda: station.set(
        go(upload(2, "up.cfg", double.address)))) < 15
    began = time.monotonic()
    assert slowest_answer(switch, 2) < 2
    assert switch.ended(2) == FAILED
    assert time.monotonic() - began < 15
    assert "no answer from bgpd" in switch.log
    assert "up.cfg" not in double.files
    answer, _ = waiting.communicate(timeout=60)
    assert "genError" in answer
    began = time.monotonic()
    station.set(save(3))
    assert slowest_answer(switch, 3) < 2
    switch.fails(3)
    assert time.monotonic() - began < 15
    assert "no answer from bgpd" in switch.manager.log
    assert not router.frr_conf.exists()

    router.go_on("bgpd")
    station.set(save(4))
    switch.succeeds(4)
    assert "agentx\n" in router.frr_conf.read_text()
