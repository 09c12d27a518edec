"""The whole way: SNMP, the module, the shell, a real router."""

import time

import pytest

from saves import save
from snmp import FAILED, RUNNING, STARTUP, download, go, row, upload
from switches import FrrAgent


@pytest.fixture
def switch(make_router, tmp_path):
    agent = FrrAgent(tmp_path / "agent", make_router())
    yield agent.start()
    agent.close()


def test_back_up_restore_and_save(switch):
    router, double, station = switch.router, switch.double, switch.station
    double.files["new.cfg"] = (b"ip route 10.1.0.0/24 blackhole\n"
                               b"router bgp 65001\n"
                               b" neighbor 192.0.2.2 remote-as 65002\nexit\n")
    station.set(go(download(1, "new.cfg", double.address)))
    switch.succeeds(1)
    station.set(go(upload(2, "backup.cfg", double.address)))
    switch.succeeds(2)
    assert double.files["backup.cfg"].decode() == router.own_show()
    station.set(save(3))
    switch.succeeds(3)
    assert router.frr_conf.read_bytes() == double.files["backup.cfg"]
    router.apply("no router bgp 65001\n")
    assert "65001" not in router.own_show()
    station.set(go(row(4, xfCopySourceFileType=STARTUP,
                       xfCopyDestFileType=RUNNING)))
    switch.succeeds(4)
    assert router.own_show().encode() == double.files["backup.cfg"]


def test_a_refused_line_is_some_config_apply_failed(switch):
    double = switch.double
    double.files["bad.cfg"] = b"ip route 10.1.0.0/24 blackhole\nwrite memory\n"
    switch.station.set(go(download(1, "bad.cfg", double.address)))
    assert switch.fails(1) == 7
    assert "10.1.0.0" in switch.router.own_show()


def test_the_agent_answers_while_a_daemon_hangs(switch):
    router, station = switch.router, switch.station
    router.stop_daemon("bgpd")
    station.set(go(upload(1, "up.cfg", switch.double.address)))
    slowest = 0.0
    while station.get("xfCopyState", 1) not in (FAILED,):
        began = time.monotonic()
        assert switch.answers()
        slowest = max(slowest, time.monotonic() - began)
        time.sleep(0.1)
    assert slowest < 1
    assert "no answer from bgpd" in switch.log
    assert "up.cfg" not in switch.double.files
    station.set(save(2))
    switch.fails(2)
    assert not router.frr_conf.exists()
    assert "no answer from bgpd" in switch.manager.log
    router.go_on("bgpd")
    station.set(save(3))
    switch.succeeds(3)
    assert router.frr_conf.exists()
