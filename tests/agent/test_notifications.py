"""What a trap receiver gets when a copy ends."""

import pytest

from snmp import (BAD_FILE_NAME, COMPLETION, FAILED, FALSE, SUCCESSFUL, TRUE,
                  UNKNOWN, download, go, name, upload)
from tools import wait_for

UP_TIME = ".1.3.6.1.2.1.1.3.0"
TRAP_OID = ".1.3.6.1.6.3.1.1.4.1.0"


@pytest.fixture
def agent(make_agent, trap_receiver):
    return make_agent(f"trap2sink 127.0.0.1:{trap_receiver.port} public\n")


def completions(trap_receiver):
    return [trap for trap in trap_receiver.received
            if trap[1][1].startswith(COMPLETION + ".")]


def wait_for_one(trap_receiver):
    return wait_for(lambda: completions(trap_receiver), "a notification")[0]


def test_successful_copy(agent, station, tftp_server, trap_receiver):
    station.set(go(upload(7, "up.cfg", xfCopyNotificationOnCompletion=TRUE)))
    trap = wait_for_one(trap_receiver)
    started, completed = station.columns(7, "xfCopyTimeStarted",
                                         "xfCopyTimeCompleted")
    assert trap[0][0] == UP_TIME
    assert int(trap[0][1]) >= completed
    assert trap[1:] == [
        (TRAP_OID, COMPLETION + ".7"),
        (name("xfCopyServerAddressType", 7), "1"),
        (name("xfCopyServerAddressRev1", 7),
         '"7F 00 00 02' + " 00" * 12 + ' "'),
        (name("xfCopyFileName", 7), '"75 70 2E 63 66 67 "'),
        (name("xfCopyState", 7), str(SUCCESSFUL)),
        (name("xfCopyTimeStarted", 7), str(started)),
        (name("xfCopyTimeCompleted", 7), str(completed)),
        (name("xfCopyFailCause", 7), str(UNKNOWN)),
    ]


def test_failed_copy(agent, station, tftp_server, trap_receiver):
    station.set(go(download(1, "missing.cfg",
                            xfCopyNotificationOnCompletion=TRUE)))
    values = dict(wait_for_one(trap_receiver))
    assert values[TRAP_OID] == COMPLETION + ".1"
    assert values[name("xfCopyState", 1)] == str(FAILED)
    assert values[name("xfCopyFailCause", 1)] == str(BAD_FILE_NAME)


def test_nobody_asked(agent, station, tftp_server, trap_receiver):
    station.set(go(upload(1, "1.cfg")))
    agent.succeeds(1)
    station.set(go(upload(2, "2.cfg", xfCopyNotificationOnCompletion=FALSE)))
    agent.succeeds(2)
    station.set(go(upload(3, "3.cfg", xfCopyNotificationOnCompletion=TRUE)))
    assert wait_for_one(trap_receiver)[1][1] == COMPLETION + ".3"
    assert len(completions(trap_receiver)) == 1


def test_notification_of_the_third_version(make_agent, tmp_path,
                                           tftp_server):
    """An inform to a user: acknowledged, so it was understood."""
    from lab import TrapReceiver
    folder = tmp_path / "v3"
    folder.mkdir()
    receiver = TrapReceiver(folder, "createUser bob SHA bob-password "
                            "AES bob-password\nauthUser log bob priv\n")
    agent = make_agent(
        "trapsess -v 3 -Ci -u bob -l authPriv -a SHA -A bob-password -x AES "
        f"-X bob-password 127.0.0.1:{receiver.port}\n")
    try:
        agent.station.set(go(download(4, "x.cfg", "127.0.0.9",
                                      xfCopyNotificationOnCompletion=TRUE)))
        assert wait_for_one(receiver)[1][1] == COMPLETION + ".4"
    finally:
        receiver.stop()
