"""The switch of the debug log in snmpd.conf."""

import pathlib
import re

import pytest

from snmp import go, upload


@pytest.fixture
def debug_log():
    """The log of an agent; it stands outside of our folders."""
    logs = []

    def of(agent):
        logs.append(pathlib.Path(f"/tmp/cfg_snmp_debug.log.{agent.pid}"))
        return logs[-1]
    yield of
    for log in logs:
        log.unlink(missing_ok=True)


def copy_refused(agent):
    assert agent.alice.refused(go(upload(1, "up.cfg", "127.0.0.1"))) == \
        "wrongValue"


def test_off_by_itself(agent, debug_log):
    log = debug_log(agent)
    copy_refused(agent)
    assert not log.exists()


def test_switched_on_and_off(make_agent, debug_log):
    agent = make_agent(after="xfSnmpDebug yes\n")
    log = debug_log(agent)
    copy_refused(agent)
    assert log.stat().st_mode & 0o7777 == 0o600
    text = log.read_text()
    assert "Localhost address received (127.0.0.1)" in text
    for entry in text.rstrip("\n").split("\n\n"):
        assert re.match(r"\[\w{3} \w{3} [ \d]\d \d\d:\d\d:\d\d \d{4}\] \w+\(\d+\)",
                        entry), entry
    agent.configuration.write_text(
        agent.configuration.read_text().replace("xfSnmpDebug yes", ""))
    agent.hang_up()
    copy_refused(agent)
    assert log.read_text() == text


def test_never_through_somebody_elses_link(agent, debug_log, tmp_path):
    log = debug_log(agent)
    precious = tmp_path / "precious"
    log.symlink_to(precious)
    agent.configuration.write_text(
        agent.configuration.read_text() + "xfSnmpDebug yes\n")
    agent.hang_up()
    copy_refused(agent)
    assert not precious.exists()
    assert f"debug log {log}: " in agent.log
    assert "; it stays off" in agent.log
