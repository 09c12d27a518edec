"""Age, clock steps and agents that read their configuration again."""

import pytest

from snmp import ACTIVE, CREATE_AND_WAIT, DESTROY, IN_PROGRESS, go, row, upload
from tools import wait_for

ALARM_SECONDS = 101


@pytest.fixture
def agent(make_agent):
    return make_agent(movable_clock=True)


def waiting_rows(station, *indexes):
    for index in indexes:
        station.set(row(index, xfCopyEntryRowStatus=CREATE_AND_WAIT))


def test_rows_age_out(agent, station, tftp_server):
    waiting_rows(station, 1, 2)
    station.set(go(upload(3, "up.cfg")))
    agent.succeeds(3)
    for _ in range(3):
        agent.pass_time(ALARM_SECONDS)
        assert station.rows() == [1, 2, 3]
    waiting_rows(station, 4)
    agent.pass_time(ALARM_SECONDS)
    assert station.rows() == [4]
    for _ in range(3):
        agent.pass_time(ALARM_SECONDS)
    assert station.rows() == []


def test_new_first_row_gets_a_new_alarm(agent, station):
    waiting_rows(station, 1)
    station.set(row(1, xfCopyEntryRowStatus=DESTROY))
    agent.pass_time(10 * ALARM_SECONDS)
    waiting_rows(station, 2)
    agent.pass_time(ALARM_SECONDS)
    assert station.rows() == [2]
    agent.pass_time(3 * ALARM_SECONDS)
    assert station.rows() == []


def test_running_row_stays(agent, station, double, fault):
    double.gate.clear()
    station.set(go(upload(1, "1.cfg", double.address)))
    wait_for(lambda: double.requests, "the transfer")
    agent.pass_time(4 * ALARM_SECONDS)
    agent.pass_time(ALARM_SECONDS)
    assert station.get("xfCopyState", 1) == IN_PROGRESS
    double.gate.set()
    agent.succeeds(1)
    agent.pass_time(ALARM_SECONDS)
    assert station.rows() == []
    fault("Clock", "age-out while a copy runs",
          "row stays until the copy has ended")


def test_clock_step_moves_the_creation_once(agent, station, fault):
    waiting_rows(station, 1, 2)
    assert_steps_count_once(agent, station, [1, 2])
    fault("Clock", "stepped back and forward, rows of before",
          "rows age out as if it had not been")


@pytest.mark.parametrize("seconds", [1000, -1000, 100_000, -100_000])
def test_clock_stepped_during_a_copy(agent, station, double, fault, seconds):
    """And over the age of the rows, beside one that is only waiting."""
    waiting_rows(station, 1)
    double.gate.clear()
    station.set(go(upload(2, "2.cfg", double.address)))
    wait_for(lambda: double.requests, "the transfer")
    agent.set_clock(seconds)
    agent.pass_time(ALARM_SECONDS)
    assert station.rows() == [1, 2]
    assert station.get("xfCopyState", 2) == IN_PROGRESS
    double.gate.set()
    agent.succeeds(2)
    started, completed = station.columns(2, "xfCopyTimeStarted",
                                         "xfCopyTimeCompleted")
    agent.pass_time(ALARM_SECONDS)
    assert station.rows() == [1, 2]
    agent.pass_time(2 * ALARM_SECONDS)
    assert station.rows() == []
    # In up-time; an agent was not up before its start.
    assert completed == 0 if seconds < 0 else \
        completed >= started + 100 * seconds
    fault("Clock", f"stepped by {seconds} s during a copy",
          "the copy ends successful, its completion time is " +
          ("moved with the clock" if seconds > 0 else "before the start: 0") +
          "; both rows age out in their time")


def test_six_hangups(agent, station, double, trap_receiver,
                     fault):
    """One of them during a copy. Rows stay, the copy ends, and a clock step
    still counts once."""
    waiting_rows(station, 1)
    for _ in range(3):
        agent.hang_up()
        assert station.rows() == [1]
    double.gate.clear()
    station.set(go(upload(2, "2.cfg", double.address)))
    wait_for(lambda: double.requests, "the transfer")
    agent.hang_up()
    assert station.columns(2, "xfCopyEntryRowStatus", "xfCopyState") == \
        [ACTIVE, IN_PROGRESS]
    assert station.refused(go(upload(3, "3.cfg", double.address))) == "genError"
    double.gate.set()
    agent.succeeds(2)
    assert double.files["2.cfg"] == agent.running_config()
    for _ in range(2):
        agent.hang_up()
    station.set(go(upload(3, "3.cfg", double.address)))
    agent.succeeds(3)
    assert station.rows() == [1, 2, 3]
    assert_every_column_once(station)
    assert_steps_count_once(agent, station, [1, 2, 3])
    fault("Agent", "SIGHUP six times, once during a copy",
          "rows stay, the copy ends successful, every column there once; goes "
          "on")


def test_hangups_leave_no_files_open(agent, station, fault):
    agent.hang_up()
    before = agent.open_files()
    for _ in range(5):
        agent.hang_up()
    assert agent.open_files() == before
    fault("Agent", "SIGHUP five times", "no more files open")


def test_agent_without_rows_hangs_up(agent, station):
    for _ in range(2):
        agent.hang_up()
    waiting_rows(station, 5)
    agent.hang_up()
    assert station.rows() == [5]
    agent.pass_time(4 * ALARM_SECONDS)
    assert station.rows() == []


def assert_steps_count_once(agent, station, rows):
    """Not moved, the rows would be too old after the step forward; moved
    twice, after the step back."""
    agent.set_clock(-1000)
    agent.pass_time(ALARM_SECONDS)
    assert station.rows() == rows
    agent.set_clock(2000)
    agent.pass_time(ALARM_SECONDS)
    assert station.rows() == rows
    agent.pass_time(3 * ALARM_SECONDS)
    assert station.rows() == []


def assert_every_column_once(station):
    walked = station.walk()
    assert len(set(walked)) == len(walked)
    assert station.walk("snmpbulkwalk") == walked
