"""The history of copies: what was started, what became of it, and that it is
there afterwards whatever happens."""

import datetime
import os
import signal
import time

import pytest

import lab
from faults import forget, startup_to_running, wait_for_copy_process
from history import (FAILED, IN_PROGRESS, INTERRUPTED, NEWEST, SUCCESSFUL,
                     TIMES, ended, entries, fill, line_of, newest)
from saves import ALL_STARTUP, FABRIC_STARTUP, SAVE_FAILED, SAVE_REFUSED, save
from snmp import (BAD_FILE_NAME, NETWORK, RUNNING, STARTUP, UNKNOWN, Failure,
                  download, go, row, upload)
from tools import free_port, wait_for

MARKER = "pAssw0rd-of-the-server"
TFTP, FTP = 1, 2


def files_of(agent):
    """Everything that the history has on the disk."""
    return b"".join(each.read_bytes()
                    for each in (agent.state / "history").iterdir())


def restart(agent):
    assert agent.stop() == 0
    agent.start()


def kill(agent):
    agent.signal(signal.SIGKILL)
    agent.process.wait()


def do_copies(agent, double):
    """Copies of every kind, one after the other."""
    alice = agent.alice
    double.files["down.cfg"] = b"hostname two\n"

    def missing(n):
        return go(download(n, "none.cfg", double.address))
    for index, request in enumerate((
            lambda n: go(upload(n, "up.cfg", double.address)),
            lambda n: go(download(n, "down.cfg", double.address)),
            missing,
            lambda n: go(upload(n, "up.cfg", double.address,
                                xfCopyProtocol=FTP, xfCopyUserName="backup",
                                xfCopyUserPassword=MARKER)),
            save,
            lambda n: save(n, ALL_STARTUP),
            lambda n: save(n, FABRIC_STARTUP),
            startup_to_running), start=11):
        double.error = 1 if request is missing else None  # no such file
        alice.set(request(index))
        agent.ended(index)
        forget(agent, index)
        agent.idle()


def common_to(each):
    """What every copy of do_copies has in its row."""
    assert each.asker == "alice" and each.vrf == ""
    assert each.asked <= each.ended
    if each.cause != SAVE_REFUSED:
        assert each.asked <= each.started <= each.ended


def test_every_copy_has_a_row(with_manager, make_double):
    agent = with_manager(ftp_port=free_port())
    double = make_double(agent)
    assert newest(agent.station) == (0, None)
    before = datetime.datetime.now(datetime.timezone.utc)
    do_copies(agent, double)
    after = datetime.datetime.now(datetime.timezone.utc)
    assert agent.station.rows() == []

    rows = entries(agent.station)
    assert list(rows) == list(range(1, 9))
    assert [each.row for each in rows.values()] == list(range(11, 19))
    for each in rows.values():
        common_to(each)
        assert before - datetime.timedelta(seconds=1) < each.asked
        assert each.ended <= after
    up, down, missing, ftp, saved, all_saved, refused, applied = rows.values()

    assert (up.source, up.destination, up.protocol) == (RUNNING, NETWORK, TFTP)
    assert (up.server_type, up.server) == (1, bytes([127, 0, 0, 3]))
    assert (up.port, up.file) == (agent.tftp_port, "up.cfg")
    assert (up.state, up.cause, up.reason, up.advice) == (SUCCESSFUL, 0, "", "")
    assert (down.source, down.destination) == (NETWORK, RUNNING)
    assert (down.state, down.refused) == (SUCCESSFUL, 0)
    assert (missing.state, missing.cause) == (FAILED, BAD_FILE_NAME)
    assert (ftp.protocol, ftp.user) == (FTP, "backup")
    assert ftp.port == agent.settings["ftp_port"]
    assert ftp.state == FAILED and ftp.reason and ftp.octets == 0
    for each, to in ((saved, STARTUP), (all_saved, ALL_STARTUP)):
        assert (each.source, each.destination) == (RUNNING, to)
        assert (each.state, each.cause, each.reason) == (SUCCESSFUL, 0, "")
        assert (each.protocol, each.server, each.port) == (0, b"", 0)
    assert (refused.state, refused.cause) == (FAILED, SAVE_REFUSED)
    assert refused.reason and refused.started is None
    assert (applied.source, applied.destination) == (STARTUP, RUNNING)
    assert applied.state == SUCCESSFUL

    # However it is asked for, it is the same, and holds no password.
    assert entries(agent.station, "snmpwalk") == rows
    assert entries(agent.alice, "snmpbulkwalk", "-Cr50") == rows
    assert MARKER not in str(rows)
    assert MARKER.encode() not in files_of(agent)
    # Neither a new beginning nor other modules change anything.
    restart(agent)
    assert entries(agent.station) == rows
    agent.hang_up()
    assert entries(agent.station) == rows
    agent.alice.set(go(upload(30, "up.cfg", double.address)))
    assert ended(agent.station).row == 30
    assert list(entries(agent.station)) == list(range(1, 10))
    agent.hang_up()
    agent.alice.set(go(upload(31, "up.cfg", double.address)))
    assert ended(agent.station).row == 31
    assert list(entries(agent.station)) == list(range(1, 11))


def test_what_is_not_started_has_no_row(make_agent, make_double):
    agent = make_agent()
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    station = agent.station
    for refused in (upload(1, "up.cfg", "127.0.0.1"),
                    row(3, xfCopySourceFileType=STARTUP,
                        xfCopyDestFileType=STARTUP)):
        with pytest.raises(Failure):
            station.set(go(refused))
    # Something is missing: it waits, and is no copy yet.
    station.set(go(upload(2, "up.cfg", double.address, xfCopyProtocol=FTP)))
    station.set(upload(4, "up.cfg", double.address) +
                row(4, xfCopyEntryRowStatus=5))
    assert newest(station) == (0, None)
    # Written in pieces, it is asked for by the last one.
    station.set(row(4, xfCopyEntryRowStatus=1))
    found = ended(station)
    assert (found.row, found.file, found.state) == (4, "up.cfg", SUCCESSFUL)
    # Another one while it runs is refused, too.
    double.gate.clear()
    station.set(go(upload(5, "up.cfg", double.address)))
    with pytest.raises(Failure):
        station.set(go(upload(6, "up.cfg", double.address)))
    assert newest(station)[1].state == IN_PROGRESS
    # Its row goes; the copy itself goes on, and is seen to its end.
    forget(agent, 5)
    assert newest(station)[1].row == 5
    double.gate.set()
    assert ended(station).state == SUCCESSFUL
    assert list(entries(station)) == [1, 2]


def begin_held_copy(make_agent, make_double):
    """An agent whose copy waits for its server, which goes on with its gate."""
    agent = make_agent()
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    double.gate.clear()
    agent.station.set(go(upload(1, "up.cfg", double.address)))
    return agent, double


def test_copy_process_that_dies(make_agent, make_double):
    agent, double = begin_held_copy(make_agent, make_double)
    os.kill(wait_for_copy_process(agent), signal.SIGKILL)
    found = ended(agent.station)
    double.gate.set()
    assert (found.state, found.cause) == (FAILED, UNKNOWN)
    assert found.reason == "The copy process was ended by a signal: Killed."
    assert os.listdir(agent.state / "history") == ["history"]


def test_agent_that_dies(make_agent, make_double):
    """The copy process goes on for a while; nobody hears how it ends."""
    agent = make_agent()
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    agent.station.set(go(upload(1, "up.cfg", double.address)))
    assert ended(agent.station).state == SUCCESSFUL
    double.gate.clear()
    agent.station.set(go(upload(2, "up.cfg", double.address)))
    wait_for_copy_process(agent)
    report = agent.run_directory / "reports" / "2.report"
    with open(report, "a") as file:
        file.write(line_of("reason=It was slow.\toctets=77"))
        file.write("12345678 cut o")
    wait_for(lambda: newest(agent.station)[1].octets == 77,
             "the octets of a copy that runs")
    kill(agent)
    agent.start()
    found = entries(agent.station)
    assert [each.state for each in found.values()] == [SUCCESSFUL, INTERRUPTED]
    assert found[2].reason == \
        "The agent ended before the copy did. It was slow."
    assert found[2].advice and found[2].octets == 77
    assert found[2].ended >= found[2].started  # both in tenths of a second
    double.gate.set()
    wait_for(lambda: not list(agent.staging.iterdir()), "the copy process")
    assert os.listdir(agent.state / "history") == ["history"]
    # What comes later does not change it.
    agent.station.set(go(upload(3, "up.cfg", double.address)))
    assert ended(agent.station).state == SUCCESSFUL
    assert entries(agent.station)[2] == found[2]


def test_agent_is_killed_at_any_moment(make_agent, make_double):
    agent = make_agent(history_rows=8)
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    known = {}
    for round_ in range(12):
        try:
            agent.station.set(go(upload(round_ + 1, "up.cfg", double.address)))
        except Failure as failure:  # the one of the last agent still runs
            assert failure.error == "genError"
        time.sleep(round_ * 0.004)
        kill(agent)
        agent.start()
        found = entries(agent.station)
        numbers = list(found)
        assert numbers == list(range(numbers[0], numbers[0] + len(numbers)))
        assert numbers[-1] == round_ + 1 and len(numbers) <= 8
        assert all(each.state in (SUCCESSFUL, INTERRUPTED)
                   for each in found.values())
        assert all(found[each] == known[each] for each in known
                   if each in found)
        known = found
    assert len(known) == 8


def test_bound_and_off(make_agent, make_double):
    agent = make_agent(history_rows=3)
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    for index in range(1, 8):
        agent.station.set(go(upload(index, "up.cfg", double.address)))
        assert ended(agent.station).row == index
        agent.succeeds(index)
        forget(agent, index)
    assert list(entries(agent.station)) == [5, 6, 7]
    restart(agent)
    assert list(entries(agent.station)) == [5, 6, 7]
    assert list(entries(agent.station, "snmpwalk")) == [5, 6, 7]

    agent = make_agent(history_rows=0)
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    agent.station.set(go(upload(1, "up.cfg", double.address)))
    agent.succeeds(1)
    assert entries(agent.station) == {}
    assert not (agent.state / "history").exists()


def test_saves(with_manager):
    agent = with_manager(start=False)
    agent.station.set(save(1))
    found = ended(agent.station)
    assert (found.state, found.cause) == (FAILED, UNKNOWN)
    assert found.reason == "The system manager could not be asked for the save."
    assert "system manager runs" in found.advice
    forget(agent, 1)

    agent.settings["save_delay_seconds"] = 3600
    agent.manager.start()
    agent.station.set(save(2))
    number, found = newest(agent.station)
    assert (number, found.row, found.state) == (2, 2, IN_PROGRESS)
    assert found.started >= found.asked
    forget(agent, 2)  # aborts it
    found = ended(agent.station)
    assert (found.state, found.cause) == (FAILED, SAVE_FAILED)

    wait_for(lambda: not (agent.state / "save-in-progress").exists(),
             "the save to end")
    agent.station.set(save(3))
    agent.manager.kill()
    found = ended(agent.station)
    assert (found.row, found.state, found.cause) == (3, FAILED, SAVE_FAILED)
    assert found.reason
    forget(agent, 3)
    assert [each.row for each in entries(agent.station).values()] == [1, 2, 3]


def test_save_that_outlives_the_agent(with_manager):
    """The system manager tells the next agent how it went."""
    agent = with_manager(save_delay_seconds=3)
    agent.station.set(save(1))
    assert newest(agent.station)[1].state == IN_PROGRESS
    kill(agent)
    agent.start()
    found = newest(agent.station)[1]
    assert found.state == INTERRUPTED and found.reason and found.advice
    found = wait_for(
        lambda: next((each for each in [newest(agent.station)[1]]
                      if each.state != INTERRUPTED), None), "the end")
    assert (found.row, found.state, found.reason) == (1, SUCCESSFUL, "")
    restart(agent)
    assert newest(agent.station)[1] == found


def test_another_agent_leaves_it_alone(make_agent, make_double):
    agent, double = begin_held_copy(make_agent, make_double)
    before = files_of(agent)
    folder = agent.folder / "other"
    folder.mkdir()
    second = lab.Agent(folder)
    second.settings = {**agent.settings}
    second.start()
    try:
        assert entries(second.station) == {}
        assert files_of(agent) == before
    finally:
        second.stop()
    double.gate.set()
    assert ended(agent.station).state == SUCCESSFUL


def test_long_history_is_walked(make_agent):
    agent = make_agent(prepare=lambda each: fill(each, range(1, 1001)))
    start = time.monotonic()
    rows = entries(agent.alice, "snmpbulkwalk", "-Cr100")
    took = time.monotonic() - start
    assert list(rows) == list(range(1, 1001))
    assert {each.file for each in rows.values()} == {"sw1.cfg"}
    assert took < 20  # 23000 values; a search from the start for each is minutes
    assert newest(agent.station)[0] == 1000


@pytest.mark.parametrize("name", ["history", "history.old"])
def test_history_that_cannot_be_read(make_agent, name):
    """It is not shown as an empty or a shorter one, nor gone on with."""
    def spoil(agent):
        fill(agent, range(1, 4))
        folder = agent.state / "history"
        (folder / "history").rename(folder / "aside")
        (folder / "history").touch(mode=0o600)
        (folder / name).unlink(missing_ok=True)
        (folder / name).symlink_to("aside")
    agent = make_agent(prepare=spoil)
    assert "there is no history: Too many levels of symbolic links" in agent.log
    assert "No Such Object" in agent.station.run(
        "snmpget", "-Oqv", agent.station.peer, NEWEST)
    assert entries(agent.station) == {}


def test_disk_that_fails_at_the_end_is_told(make_agent, make_double):
    agent, double = begin_held_copy(make_agent, make_double)
    wait_for(lambda: double.requests, "the transfer")
    file = agent.state / "history/history"
    file.rename(file.with_name("aside"))
    file.symlink_to("aside")  # which is not opened to be synced
    double.gate.set()
    assert ended(agent.station).state == SUCCESSFUL
    file.with_name("aside").replace(file)
    agent.idle()
    assert "history: " not in agent.log
    agent.stop()
    assert agent.log.count("history: Too many levels of symbolic links") == 1
    agent.start()
    assert newest(agent.station)[0] == 1


VIEWS = """\
view copies included .1.3.6.1.4.1.32473.1.1
view audit included .1.3.6.1.4.1.32473.1.2
createUser bob SHA bob-password AES bob-password
rwuser bob priv -V copies
createUser carol SHA carol-password AES carol-password
rouser carol priv -V audit
"""


def test_who_may_read_it(make_agent, make_double):
    agent = make_agent(VIEWS)
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    bob, carol = (agent.as_user(each, each + "-password")
                  for each in ("bob", "carol"))
    bob.set(go(upload(1, "up.cfg", double.address)))
    found = ended(agent.station)
    assert (found.asker, found.state) == ("bob", SUCCESSFUL)
    assert entries(bob) == {}
    assert entries(carol) == {1: found}
    with pytest.raises(Failure):
        carol.set(go(upload(2, "up.cfg", double.address)))
    with pytest.raises(Failure):
        agent.station.set([(".1.3.6.1.4.1.32473.1.2.1.2.1.18.1", "s", "x")])
    assert entries(carol) == {1: found}
    assert [getattr(found, each) for each in TIMES] == sorted(
        getattr(found, each) for each in TIMES)
