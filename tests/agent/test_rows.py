"""The life of a row through whole requests, and what refused ones leave."""

import socket
import threading

import pytest

import lab
from snmp import (ACTIVE, CREATE_AND_GO, CREATE_AND_WAIT, DESTROY,
                  FAILED, IN_PROGRESS, NETWORK, NOT_IN_SERVICE,
                  NOT_READY, RUNNING, STARTUP, SYSTEM_IMAGE, TRUE,
                  TERMINAL, UNKNOWN, WAITING, Failure, Station,
                  download, go, name, row, upload)
from tools import children_of, wait_for

EVERY_COLUMN = dict(
    xfCopyProtocol=1, xfCopySourceFileType=RUNNING, xfCopyDestFileType=NETWORK,
    xfCopyServerAddressType=1, xfCopyServerAddressRev1="7f000002",
    xfCopyServerAddress="127.0.0.2", xfCopyFileName="up.cfg",
    xfCopyUserName="somebody", xfCopyUserPassword="secret",
    xfCopyNotificationOnCompletion=TRUE, xfCopyEntryRowStatus=CREATE_AND_GO)

ORDERS = {
    "status last": list(EVERY_COLUMN),
    "status first": ["xfCopyEntryRowStatus"] + list(EVERY_COLUMN)[:-1],
    "sorted": sorted(EVERY_COLUMN),
    "reversed, type before address": [
        "xfCopyEntryRowStatus", "xfCopyUserPassword", "xfCopyUserName",
        "xfCopyFileName", "xfCopyServerAddressType", "xfCopyServerAddressRev1",
        "xfCopyServerAddress", "xfCopyNotificationOnCompletion",
        "xfCopyDestFileType", "xfCopySourceFileType", "xfCopyProtocol"],
}


@pytest.mark.parametrize("order", ORDERS.values(), ids=ORDERS.keys())
def test_all_in_one_request(agent, station, tftp_server, order):
    running = agent.running_config(b"hostname one\n")
    station.set(row(1, **{column: EVERY_COLUMN[column] for column in order}))
    agent.succeeds(1)
    assert tftp_server.content("up.cfg") == running
    assert station.columns(1, "xfCopyEntryRowStatus", "xfCopyFailCause",
                           "xfCopyUserName", "xfCopyServerAddress") == \
        [ACTIVE, UNKNOWN, "somebody", "127.0.0.2"]
    assert 0 < station.get("xfCopyTimeStarted", 1) <= \
        station.get("xfCopyTimeCompleted", 1)


def test_step_by_step(agent, station, tftp_server):
    running = agent.running_config(b"hostname one\n")
    station.set(row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    assert station.columns(
        1, "xfCopyEntryRowStatus", "xfCopyState", "xfCopyProtocol",
        "xfCopySourceFileType", "xfCopyDestFileType", "xfCopyFileName",
        "xfCopyTimeStarted", "xfCopyTimeCompleted") == \
        [NOT_READY, WAITING, 1, NETWORK, STARTUP, "", 0, 0]
    for varbind in upload(1, "up.cfg"):
        station.set([varbind])
    assert station.get("xfCopyEntryRowStatus", 1) == NOT_READY
    station.set(row(1, xfCopyEntryRowStatus=ACTIVE))
    agent.succeeds(1)
    assert tftp_server.content("up.cfg") == running


def test_row_while_its_copy_runs(agent, station, double):
    start_held_copy(station, double, 1)
    assert station.columns(1, "xfCopyEntryRowStatus", "xfCopyState",
                           "xfCopyTimeCompleted") == [ACTIVE, IN_PROGRESS, 0]
    assert station.get("xfCopyTimeStarted", 1) > 0
    for refused in (row(1, xfCopyFileName="other"), row(1, xfCopyProtocol=2),
                    row(1, xfCopyServerAddress="127.0.0.9")):
        assert station.refused(refused) == "inconsistentValue"
    double.gate.set()
    agent.succeeds(1)


def test_active_row_takes_no_columns(agent, station, tftp_server):
    station.set(go(upload(1, "up.cfg")))
    agent.succeeds(1)
    assert station.refused(row(1, xfCopyFileName="x")) == "inconsistentValue"
    assert station.get("xfCopyFileName", 1) == "up.cfg"


def test_refused_type_in_reserve1(station):
    """The created row has not come as far as RESERVE2, so FREE leaves it."""
    wrong = (name("xfCopyFileName", 1), "i", "5")
    assert station.refused(
        row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT) + [wrong]) == "wrongType"
    assert station.get("xfCopyEntryRowStatus", 1) == CREATE_AND_WAIT


@pytest.mark.parametrize("varbinds, error", [
    (row(1, xfCopyUserName="x" * 42), "wrongLength"),
    (row(1, xfCopyFileName="x" * 129), "wrongLength"),
    (row(1, xfCopyVRFName="x" * 33), "wrongLength"),
    (row(1, xfCopyServerAddressRev1="00" * 65), "wrongLength"),
    (row(1, xfCopyProtocol=3), "wrongValue"),
    (row(1, xfCopyProtocol=0), "wrongValue"),
    (row(1, xfCopyServerAddressType=3), "wrongValue"),
    (row(1, xfCopyEntryRowStatus=NOT_IN_SERVICE), "inconsistentValue"),
    (row(1, xfCopyEntryRowStatus=NOT_READY), "inconsistentValue"),
    (row(1, xfCopyEntryRowStatus=7), "inconsistentValue"),
    (row(1, xfCopyEntryRowStatus=CREATE_AND_GO), "inconsistentValue"),
    (row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT), "inconsistentValue"),
    (row(1, xfCopyState=3), "notWritable"),
    (row(0, xfCopyEntryRowStatus=CREATE_AND_WAIT), "inconsistentName"),
])
def test_refused_values_change_nothing(station, varbinds, error):
    station.set(download(1, "x.cfg") +
                row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    before = station.walk()
    assert station.refused(varbinds) == error
    assert station.walk() == before


@pytest.mark.parametrize("varbinds", [
    row(1, xfCopyUserName="x" * 41, xfCopyUserPassword="x" * 41),
    row(1, xfCopyFileName="x" * 128), row(1, xfCopyVRFName="x" * 32)])
def test_longest_values(station, varbinds):
    station.set(row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    station.set(varbinds)
    for oid, _, value in varbinds:
        assert station.walk(oid=oid) == [
            (oid, "" if oid == name("xfCopyUserPassword", 1) else value)]


def test_refused_in_reserve2_puts_columns_back(station):
    """FREE restores; a file name loses two octets, an address is lost."""
    station.set(download(1, "abc") +
                row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    missing = row(99, xfCopyDestFileType=RUNNING)
    assert station.refused(
        row(1, xfCopyProtocol=5, xfCopySourceFileType=STARTUP,
            xfCopyNotificationOnCompletion=TRUE, xfCopyUserName="new") +
        missing) == "noSuchName"
    assert station.columns(
        1, "xfCopyProtocol", "xfCopySourceFileType",
        "xfCopyNotificationOnCompletion", "xfCopyUserName",
        "xfCopyFileName") == [1, NETWORK, 2, "", "abc"]
    assert station.refused(row(1, xfCopyFileName="longer") + missing) == \
        "noSuchName"
    assert station.get("xfCopyFileName", 1) == "a"
    assert station.refused(row(1, xfCopyServerAddress="127.0.0.9") +
                           missing) == "noSuchName"
    assert station.get("xfCopyServerAddress", 1) is None
    assert station.get("xfCopyServerAddressType", 1) == 1


def test_refused_in_reserve2_leaves_no_new_row(station):
    missing = row(99, xfCopyDestFileType=RUNNING)
    assert station.refused(go(download(1, "x.cfg")) + missing) == "noSuchName"
    assert station.rows() == []


def test_refused_in_action_takes_the_new_row_away(station):
    assert station.refused(go(download(1, "x.cfg", "127.0.0.1"))) == \
        "wrongValue"
    assert station.rows() == []


@pytest.mark.parametrize("varbinds, error", [
    (row(1, xfCopySourceFileType=NETWORK, xfCopyDestFileType=NETWORK),
     "genError"),
    (row(1, xfCopySourceFileType=NETWORK, xfCopyDestFileType=STARTUP),
     "genError"),
    (row(1, xfCopySourceFileType=STARTUP, xfCopyDestFileType=STARTUP),
     "genError"),
    (row(1, xfCopySourceFileType=STARTUP, xfCopyDestFileType=6), "genError"),
    (row(1, xfCopySourceFileType=STARTUP, xfCopyDestFileType=7), "genError"),
    (row(1, xfCopySourceFileType=SYSTEM_IMAGE, xfCopyDestFileType=RUNNING),
     "wrongValue"),
    (row(1, xfCopySourceFileType=RUNNING, xfCopyDestFileType=TERMINAL),
     "wrongValue"),
    (row(1, xfCopyServerAddress="0.0.0.0"), "wrongValue"),
    (row(1, xfCopyServerAddress="127.0.0.1"), "wrongValue"),
    (row(1, xfCopyFileName=""), "inconsistentValue"),
    (row(1, xfCopyProtocol=5), "inconsistentValue"),
    (row(1, xfCopyProtocol=2), "inconsistentValue"),
])
def test_refused_in_action_sets_the_row_back(station, varbinds, error):
    """What active is refused for; the row can be mended afterwards."""
    station.set(download(1, "x.cfg") +
                row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    station.set(varbinds)
    before = station.walk()
    assert station.refused(row(1, xfCopyEntryRowStatus=ACTIVE)) == error
    assert station.walk() == before
    station.set(row(1, xfCopyFileName="y.cfg"))


def test_incomplete_row_stays_not_ready(agent, station, tftp_server):
    """createAndGo of a row without a file name is no error."""
    running = agent.running_config(b"hostname one\n")
    station.set(go(row(1, xfCopySourceFileType=RUNNING,
                       xfCopyDestFileType=NETWORK,
                       xfCopyServerAddress="127.0.0.2")))
    assert station.columns(1, "xfCopyEntryRowStatus", "xfCopyState") == \
        [NOT_READY, WAITING]
    station.set(row(1, xfCopyFileName="up.cfg"))
    station.set(row(1, xfCopyEntryRowStatus=ACTIVE))
    agent.succeeds(1)
    assert tftp_server.content("up.cfg") == running


def test_two_rows_in_one_request(agent, station, tftp_server):
    agent.running_config(b"hostname one\n")
    both = [upload(index, f"{index}.cfg") +
            row(index, xfCopyEntryRowStatus=CREATE_AND_WAIT)
            for index in (3, 2)]
    station.set(both[0] + both[1])
    assert station.rows() == [2, 3]
    for index in (2, 3):
        assert station.get("xfCopyFileName", index) == f"{index}.cfg"
        station.set(row(index, xfCopyEntryRowStatus=ACTIVE))
        agent.succeeds(index)


def test_two_copies_started_by_one_request(agent, station, double):
    """The second is refused in ACTION, and UNDO takes both rows away. What
    was started ends by itself."""
    double.gate.clear()
    assert station.refused(go(upload(1, "1.cfg", double.address)) +
                           go(upload(2, "2.cfg", double.address))) == "genError"
    assert station.rows() == []
    assert station.refused(go(upload(3, "3.cfg", double.address))) == "genError"
    double.gate.set()
    agent.idle()
    accepted = go(upload(4, "4.cfg", double.address))
    wait_for(lambda: accepts(station, accepted), "the next copy")
    agent.succeeds(4)
    assert set(double.files) == {"1.cfg", "4.cfg"}


def test_destroyed_row_comes_back_when_the_request_fails(station):
    station.set(download(1, "x.cfg") +
                row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    before = station.walk()
    assert station.refused(row(1, xfCopyEntryRowStatus=DESTROY) + go(
        download(2, "x.cfg", "127.0.0.1"))) == "wrongValue"
    assert station.walk() == before


def test_destroy(station):
    station.set(row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    station.set(row(1, xfCopyEntryRowStatus=DESTROY))
    assert station.rows() == []
    station.set(row(1, xfCopyEntryRowStatus=DESTROY))
    assert station.rows() == []
    station.set(row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    assert station.rows() == [1]


def test_destroy_while_the_copy_runs(agent, station, double):
    start_held_copy(station, double, 1)
    station.set(row(1, xfCopyEntryRowStatus=DESTROY))
    assert station.rows() == []
    assert station.refused(go(upload(2, "2.cfg", double.address))) == "genError"
    double.gate.set()
    agent.idle()
    accepted = go(upload(2, "2.cfg", double.address))
    wait_for(lambda: accepts(station, accepted), "the next copy")
    agent.succeeds(2)
    assert set(double.files) == {"1.cfg", "2.cfg"}


def test_second_copy_while_one_runs(agent, station, double):
    start_held_copy(station, double, 1)
    station.set(upload(2, "2.cfg", double.address) +
                row(2, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    assert station.refused(row(2, xfCopyEntryRowStatus=ACTIVE)) == "genError"
    assert station.refused(go(upload(3, "3.cfg", double.address))) == "genError"
    assert station.rows() == [1, 2]
    assert len(children_of(agent.pid)) == 1
    double.gate.set()
    agent.succeeds(1)
    station.set(row(2, xfCopyEntryRowStatus=ACTIVE))
    agent.succeeds(2)
    assert set(double.files) == {"1.cfg", "2.cfg"}


MOST_ROWS = 20


def test_more_rows_than_the_table_holds(make_agent, make_double, fault):
    agent = make_agent(table_rows=MOST_ROWS)
    double = make_double(agent)
    station = agent.station

    def create(index):
        return row(index, xfCopyEntryRowStatus=CREATE_AND_WAIT)
    for index in range(1, MOST_ROWS + 1):
        station.set(create(index))
    full = station.walk()
    for index in range(100, 500):
        assert station.refused(create(index)) == "genError"
        if index == 200:
            memory = agent.resident_kib()
    # Less than a row for each that was refused. What a sanitizer or an emulator
    # takes is its own.
    if not lab.SANITIZED and len(lab.SNMPD) == 1:
        assert agent.resident_kib() < memory + 200
    for varbinds in (go(upload(100, "x")), create(100) + create(101)):
        assert station.refused(varbinds) == "genError"
    assert station.walk() == full
    # Those that are there are as before.
    station.set(row(3, xfCopyEntryRowStatus=DESTROY))
    agent.running_config(b"hostname one\n")
    station.set(go(upload(100, "x", double.address)))
    agent.succeeds(100)
    assert station.refused(create(101)) == "genError"
    for index in station.rows():
        station.set(row(index, xfCopyEntryRowStatus=DESTROY))
    assert station.rows() == []
    for index in range(1, MOST_ROWS + 1):
        station.set(create(index))
    assert station.refused(create(101)) == "genError"
    fault("Somebody on the switch or the network",
          "more rows created than table_rows",
          "genErr, nothing is left of them; rows that are there are copied and "
          "destroyed, and then others can be created")


def test_request_that_arrives_twice(agent, station, double):
    """The copy of a retransmitted request is refused and harms nothing."""
    double.gate.clear()
    with Repeater(agent.port) as repeater:
        Station(repeater.peer).set(go(upload(1, "1.cfg", double.address)))
        answers = repeater.answers()
    assert len(answers) == 2
    wait_for(lambda: double.requests, "the transfer")
    assert station.columns(1, "xfCopyEntryRowStatus", "xfCopyState",
                           "xfCopyFileName") == [ACTIVE, IN_PROGRESS, "1.cfg"]
    assert len(children_of(agent.pid)) == 1
    double.gate.set()
    agent.succeeds(1)
    assert double.files["1.cfg"] == agent.running_config()


@pytest.mark.parametrize("destination", [STARTUP, 6, 7])
def test_save_without_a_system_manager(station, destination):
    """The request cannot be sent: no error, and the row tells the failure."""
    station.set(go(row(1, xfCopySourceFileType=RUNNING,
                       xfCopyDestFileType=destination)))
    assert station.columns(1, "xfCopyState", "xfCopyEntryRowStatus") == \
        [FAILED, ACTIVE]
    station.set(row(1, xfCopyEntryRowStatus=DESTROY))


def start_held_copy(station, double, index):
    """Starts a copy that does not end before the gate is set."""
    double.gate.clear()
    station.set(go(upload(index, f"{index}.cfg", double.address)))
    wait_for(lambda: double.requests, "the transfer")


def accepts(station, varbinds):
    try:
        station.set(varbinds)
    except Failure as failure:
        assert failure.error == "genError"
        return False
    return True


class Repeater:
    """Stands between a station and the agent and passes each request on
    twice, as an impatient station would send it. The station gets the first
    answer."""

    def __init__(self, port):
        self.agent = ("127.0.0.1", port)
        self.front = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.front.bind(("127.0.0.1", 0))
        self.back = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        for each in (self.front, self.back):
            each.settimeout(20)
        self.peer = "udp:127.0.0.1:%d" % self.front.getsockname()[1]
        self.got = []
        self.thread = threading.Thread(target=self.run)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.thread.join()
        self.front.close()
        self.back.close()

    def run(self):
        request, client = self.front.recvfrom(65536)
        self.back.sendto(request, self.agent)
        self.back.sendto(request, self.agent)
        self.got.append(self.back.recv(65536))
        self.front.sendto(self.got[0], client)
        self.got.append(self.back.recv(65536))

    def answers(self):
        self.thread.join()
        return self.got
