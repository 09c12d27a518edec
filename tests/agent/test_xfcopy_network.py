"""xfcopy over a network that loses, repeats, delays, cuts and forges, with
agents that die, and beside many others."""

import signal
import time

import pytest

import lab
from command import (BUSY, DONE, GONE, NO_ANSWER, SET, Relay,
                     Xfcopy, result_of)
from lab import Agent
from tools import taken, wait_for

RUNNING_TEXT = b"hostname one\nvlan 7\n"
URL = "tftp://127.0.0.3/x"
QUICK = ["-v2c", "-c", "private", "-t", "0.4", "-r", "3"]


@pytest.fixture
def behind(agent, double, tmp_path):
    """Runs a copy behind a relay; gives its result and the relay."""
    agent.running_config(RUNNING_TEXT)

    def run(*words, request=None, answer=None):
        with Relay(agent.port, request, answer) as relay:
            command = Xfcopy(tmp_path, agent, QUICK, relay.peer)
            result = command.run("@", "running", URL, *words)
        return result, relay
    return run


def copied_once(agent, double):
    """One copy was made, and nothing of it is left."""
    agent.idle()
    # A server that waits may be asked by one copy again and again.
    launches = [line for line in agent.accounting() if "copy r s" in line]
    assert len(launches) == 1 and "(SUCCESS)" in launches[0]
    assert double.files["x"] == RUNNING_TEXT
    assert agent.station.rows() == []


def first_set(act):
    """Does something with the first SET, or the answer to it, only."""
    done = []

    def filtered(relay, message):
        if relay.kind != SET or done:
            return [(0, message)]
        done.append(message)
        return act(message)
    return filtered


def nothing(message):
    return []


def test_request_is_lost(agent, double, behind):
    result, relay = behind(request=first_set(nothing))
    assert result.status == DONE, result
    # The first was lost; then the copy, and its row's end.
    assert (relay.seen["set"], relay.sets) == (3, 2)
    copied_once(agent, double)


def test_answer_is_lost(agent, double, behind):
    """It is seen at the row that the copy was started: nothing is sent
    again."""
    result, relay = behind(answer=first_set(nothing))
    assert result.status == DONE, result
    assert relay.sets == 2
    copied_once(agent, double)


def test_answer_is_late(agent, double, behind):
    result, relay = behind(answer=first_set(lambda message: [(1, message)]))
    assert result.status == DONE, result
    assert relay.sets == 2
    copied_once(agent, double)


def test_request_is_late(agent, double, behind):
    """It comes when another one like it has long been served."""
    double.gate.clear()

    def late(message):
        return [(1.2, message)]
    with Relay(agent.port, request=first_set(late)) as relay:
        agent.running_config(RUNNING_TEXT)
        command = Xfcopy(agent.folder, agent, QUICK, relay.peer)
        process = command.start("@", "running", URL)
        wait_for(lambda: relay.sets == 2, "the late request")
        time.sleep(0.3)
        double.gate.set()
        result = result_of(process)
    assert result.status == DONE, result
    copied_once(agent, double)


def test_everything_twice(agent, double, behind):
    def twice(relay, message):
        return [(0, message), (0, message)]
    result, relay = behind(request=twice, answer=twice)
    assert result.status == DONE, result
    copied_once(agent, double)


@pytest.mark.parametrize("keep", [0, 1, 20, -1, -10])
def test_answers_that_are_cut(agent, double, behind, keep):
    """Each first answer to a request; the one that is asked again is whole."""
    cut = []

    def shorten(relay, message):
        cut.append(relay.kind)
        return [(0, message[:keep] if len(cut) % 2 else message)]
    result, _ = behind(answer=shorten)
    assert result.status == DONE, result
    assert SET in cut
    copied_once(agent, double)


def test_answers_of_a_stranger(agent, double, behind):
    """Other request numbers, other communities, noise, before the answer."""
    def forge(relay, message):
        at = message.index(b"\xa2") + (4 if message[
            message.index(b"\xa2") + 1] & 0x80 else 2)
        number = bytearray(message)
        number[at + 2] ^= 0x55
        return [(0, bytes(number)), (0, b"\x30\x82\xff\xff" * 9), (0, b"x"),
                (0, message.replace(b"private", b"publics")), (0, message)]
    result, _ = behind(answer=forge)
    assert result.status == DONE, result
    copied_once(agent, double)


def refused(message):
    """The same answer, but an error: genErr about the last varbind."""
    at = message.index(b"\xa2")
    at += 4 if message[at + 1] == 0x82 else 3 if message[at + 1] == 0x81 else 2
    at += 2 + message[at + 1]  # behind the request's number
    assert message[at:at + 6] == b"\2\1\0\2\1\0"
    return [(0, message[:at] + b"\2\1\5\2\1\7" + message[at + 6:])]


def test_forged_error(agent, double, behind):
    """The row tells otherwise."""
    result, relay = behind(answer=first_set(refused))
    assert result.status == DONE, result
    assert relay.sets == 2
    copied_once(agent, double)


def test_forged_success(agent, double, behind):
    """The request never arrived, but somebody says that it was done."""
    held = []

    def swallow(message):
        held.append(message)
        forged = bytearray(message)
        forged[forged.index(b"\xa3")] = 0xA2
        relay_box[0].to_client(bytes(forged))
        return []
    relay_box = []

    def request(relay, message):
        relay_box[:] = [relay]
        return inner(relay, message)
    inner = first_set(swallow)
    result, relay = behind(request=request)
    assert held and result.status == GONE, result
    assert double.requests == []


def test_every_set_is_lost(agent, double, behind):
    def no_sets(relay, message):
        return [] if relay.kind == SET else [(0, message)]
    result, relay = behind(request=no_sets)
    assert result.status == NO_ANSWER, result
    assert "the copy was not started" in result.err
    assert relay.seen["set"] == 6 and relay.sets == 0


def test_nothing_is_answered_from_a_moment_on(agent, double, behind):
    def deaf(relay, message):
        return [] if relay.seen["set"] else [(0, message)]
    start = time.monotonic()
    result, _ = behind(answer=deaf, *["--json"])
    assert result.status == NO_ANSWER, result
    assert "is not known" in result.end["text"]
    assert time.monotonic() - start < 15
    row, = agent.station.rows()
    assert f"show AGENT {row}" in result.end["advice"]
    agent.succeeds(row)


def test_answer_to_the_removal_is_lost(agent, double, behind):
    sets = []

    def second_lost(relay, message):
        if relay.kind == SET:
            sets.append(message)
        return [] if relay.kind == SET and len(sets) == 2 else [(0, message)]
    result, relay = behind(answer=second_lost)
    assert result.status == DONE, result
    assert "warning" not in result.err and relay.sets == 2
    copied_once(agent, double)


# ---- Agents that die --------------------------------------------------------


@pytest.fixture
def mortal(tmp_path):
    folder = tmp_path / "mortal"
    folder.mkdir()
    agent = Agent(folder).start()
    yield agent
    agent.stop()


def test_agent_dies_in_the_middle(mortal, make_double, tmp_path):
    double = make_double(mortal)
    double.gate.clear()
    command = Xfcopy(tmp_path, mortal, QUICK)
    process = command.start("@", "running", URL)
    wait_for(lambda: double.requests, "the transfer")
    mortal.signal(signal.SIGKILL)
    result = result_of(process, 30)
    assert result.status == NO_ANSWER, result
    assert "the copy may go on in row" in result.err
    double.gate.set()


def test_agent_is_started_anew(mortal, make_double, tmp_path):
    double = make_double(mortal)
    double.gate.clear()
    command = Xfcopy(tmp_path, mortal)  # has the patience
    process = command.start("@", "running", URL)
    wait_for(lambda: double.requests, "the transfer")
    mortal.stop()
    double.gate.set()
    # The copy process has the agent's socket until it ends.
    wait_for(lambda: not taken("127.0.0.1", mortal.port), "the copy to end")
    mortal.start()
    result = result_of(process, 30)
    assert result.status == GONE, result
    assert "started anew" in result.err


def test_agent_that_stands_still(agent, double, tmp_path):
    """For longer than one request is waited for."""
    double.gate.clear()
    agent.running_config(RUNNING_TEXT)
    process = Xfcopy(tmp_path, agent, QUICK).start("@", "running", URL)
    wait_for(lambda: double.requests, "the transfer")
    agent.signal(signal.SIGSTOP)
    time.sleep(2.5)
    agent.signal(signal.SIGCONT)
    double.gate.set()
    assert result_of(process).status == DONE
    copied_once(agent, double)


# ---- Many -------------------------------------------------------------------


PATIENT = ["-v2c", "-c", "private", "-t", "5", "-r", "5"]


def test_many_at_the_same_time(with_manager, tmp_path):
    agent = with_manager(save_delay_seconds=1)
    command = Xfcopy(tmp_path, agent, PATIENT)
    all_of_them = [command.start("@", "running", "startup", "--json")
                   for _ in range(60 if lab.SANITIZED else 200)]
    results = [result_of(each, 90) for each in all_of_them]
    statuses = [each.status for each in results]
    assert set(statuses) == {DONE, BUSY}, results
    for each in results:
        assert each.end["status"] == each.status
    # Each that says so was done by the system manager.
    assert agent.manager.log.count("save for user") == statuses.count(DONE)
    assert agent.station.rows() == []


def test_ten_that_wait_for_each_other(agent, double, tmp_path):
    agent.running_config(RUNNING_TEXT)
    command = Xfcopy(tmp_path, agent, PATIENT)
    names = [f"{number}.cfg" for number in range(10)]
    all_of_them = [command.start("@", "running", f"tftp://127.0.0.3/{each}",
                                 "--wait-busy", 60) for each in names]
    for each in all_of_them:
        result = result_of(each, 60)
        assert result.status == DONE, result
    assert sorted(double.requests) == names
    assert set(double.files) == set(names)
    assert agent.station.rows() == []
