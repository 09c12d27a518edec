"""SNMPv3, and who is told to have asked."""

import pytest

from snmp import CREATE_AND_WAIT, go, row, upload


def test_copy_asked_for_by_a_user(agent, tftp_server):
    running = agent.running_config(b"hostname one\n")
    agent.alice.set(go(upload(1, "up.cfg")))
    agent.succeeds(1)
    assert tftp_server.content("up.cfg") == running
    agent.idle()
    records = agent.accounting()
    assert len(records) == 2
    assert all('user="alice"' in record for record in records)
    assert records[0].endswith('text="copy r s (SUCCESS)"')
    assert records[1].endswith(
        'text="copy running-config tftp://127.0.0.2:69up.cfg (SUCCESS)"')


def test_refused_copy_is_accounted_for(agent):
    assert agent.alice.refused(go(upload(1, "up.cfg", "127.0.0.1"))) == \
        "wrongValue"
    record, = agent.accounting()
    assert 'user="alice"' in record
    assert record.endswith('text="copy r s (FAILURE)"')


def test_community_is_no_user_name(agent, station, tftp_server):
    station.set(go(upload(1, "up.cfg")))
    agent.succeeds(1)
    agent.idle()
    assert not any("private" in record for record in agent.accounting())


@pytest.mark.parametrize("password, level", [
    ("not-her-password", "authPriv"), ("alice-password", "authNoPriv")])
def test_who_may_not_ask(agent, password, level):
    intruder = agent.as_user("alice", password, level=level)
    with pytest.raises(Exception):
        intruder.set(row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    assert agent.station.rows() == []


def test_alice_may(agent):
    agent.alice.set(row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    assert agent.alice.rows() == [1]
    assert agent.alice.walk("snmpbulkwalk") == agent.station.walk()
