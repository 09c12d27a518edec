"""Messages of the platform that find no socket, a full one, or one that
nobody reads any more."""

import os
import pathlib
import signal
import socket
import threading
import time

import pytest

from faults import goes_on, outcome_of, saves_on, with_held_upload
from saves import RUNNING_TEXT, keep_startup, save, startup
from snmp import IN_PROGRESS, go, upload
from tools import wait_for

AGENT, MANAGER = "sap.28", "sap.3"


class Sender:
    """Somebody who sends to the sockets of a run directory."""

    def __init__(self, folder):
        self.here = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)

    def name(self, point):
        return f"/proc/self/fd/{self.here}/{point}"

    def fill(self, point):
        """Until it takes no more. What is sent is no message."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sending:
            sending.setblocking(False)
            for sent in range(100_000):
                try:
                    sending.sendto(b"x", self.name(point))
                except BlockingIOError:
                    assert sent > 0
                    return
        raise AssertionError("it is never full")

    def remove(self, point):
        os.unlink(self.name(point))

    def replace_by_dead(self, point):
        """A socket that nobody reads takes its place."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as dead:
            dead.bind(self.name("dead"))
        os.rename(self.name("dead"), self.name(point))


@pytest.fixture
def sender():
    made = []

    def make(agent):
        made.append(Sender(agent.run_directory))
        return made[-1]
    yield make
    for each in made:
        os.close(each.here)


LOSSES = {"removed": Sender.remove, "of nobody": Sender.replace_by_dead}


@pytest.mark.parametrize("loss", LOSSES)
def test_agents_socket_lost_during_a_copy(make_agent, make_double, sender,
                                          fault, loss):
    agent = make_agent()
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    double.gate.clear()
    agent.station.set(go(upload(1, "up.cfg", double.address)))
    wait_for(lambda: double.requests, "the transfer")
    LOSSES[loss](sender(agent), AGENT)
    double.gate.set()
    outcome = outcome_of(agent, 1)
    assert outcome == "row failed, unknown"
    agent.idle()
    assert double.files["up.cfg"] == b"hostname one\n"
    fault("Message transport", f"report of a copy, agent's socket {loss}",
          f"{outcome}, although the file was sent; {goes_on(agent, double)} "
          "with a new socket")
    assert "access point 28 was gone" in agent.log


def test_agents_socket_full_during_a_copy(make_agent, make_double, sender,
                                          fault):
    agent, double, child = with_held_upload(make_agent, make_double)
    agent.signal(signal.SIGSTOP)
    sender(agent).fill(AGENT)
    double.gate.set()
    stat = pathlib.Path(f"/proc/{child}/stat")
    wait_for(lambda: stat.read_text().rpartition(")")[2].split()[0] == "Z",
             "the copy process to end")
    agent.signal(signal.SIGCONT)
    outcome = outcome_of(agent, 1)
    assert outcome == "row failed, unknown"
    assert double.files["up.cfg"] == b"hostname one\n"
    fault("Message transport",
          "report of a copy, agent stopped and its socket full",
          f"{outcome}, although the file was sent; {goes_on(agent, double)}")


@pytest.mark.parametrize("loss", LOSSES)
def test_agents_socket_lost_during_a_save(with_manager, sender, fault, loss):
    agent = with_manager(save_delay_seconds=3)
    agent.station.set(save(1))
    assert agent.station.get("xfCopyState", 1) == IN_PROGRESS
    LOSSES[loss](sender(agent), AGENT)
    outcome = outcome_of(agent, 1, seconds=30)
    assert outcome == "row successful"
    assert startup(agent) == RUNNING_TEXT
    fault("Message transport", f"end of a save, agent's socket {loss}",
          f"{outcome}, within seconds; {saves_on(agent)}")
    assert "access point 28 was gone" in agent.log


def test_agents_socket_full_at_the_end_of_a_save(with_manager, sender, fault):
    agent = with_manager(save_delay_seconds=2)
    agent.station.set(save(1))
    agent.signal(signal.SIGSTOP)
    sender(agent).fill(AGENT)
    assert startup(agent) is None  # the end is yet to come
    wait_for(lambda: startup(agent) == RUNNING_TEXT, "the save")
    time.sleep(0.5)  # some tries
    agent.signal(signal.SIGCONT)
    outcome = outcome_of(agent, 1, seconds=30)
    assert outcome == "row successful"
    fault("Message transport",
          "end of a save, agent stopped and its socket full",
          f"{outcome}, when the agent runs again; {saves_on(agent)}")


@pytest.mark.parametrize("loss", LOSSES)
def test_answer_to_a_lost_socket(with_manager, sender, fault, loss):
    """The one on which the agent waits for the first answer."""
    agent = with_manager()
    saves_on(agent)
    point, = (each for each in agent.run_directory.iterdir()
              if each.name.startswith(f"q.{agent.pid}.") and each.is_socket())
    LOSSES[loss](sender(agent), point.name)
    agent.station.set(save(1))
    outcome = outcome_of(agent, 1)
    assert outcome == "row successful"
    fault("Message transport",
          f"request of a save, agent's socket for the answer {loss}", outcome)


@pytest.mark.parametrize("loss", LOSSES)
def test_managers_socket_lost(with_manager, sender, fault, loss):
    agent = with_manager()
    old = keep_startup(agent, b"hostname old\n")
    LOSSES[loss](sender(agent), MANAGER)
    agent.station.set(save(1))
    outcome = outcome_of(agent, 1, seconds=5)
    assert outcome == "row failed, unknown"
    assert startup(agent) == old
    agent.manager.stop()
    agent.manager.start()
    fault("Message transport", f"request of a save, system manager's socket "
          f"{loss}", f"{outcome}, at once; {saves_on(agent)} with a system "
          "manager that is started again")


def test_managers_socket_full(with_manager, sender, fault):
    agent = with_manager()
    old = keep_startup(agent, b"hostname old\n")
    agent.manager.signal(signal.SIGSTOP)
    sender(agent).fill(MANAGER)
    agent.station.set(save(1))
    outcome = outcome_of(agent, 1, seconds=5)
    assert outcome == "row failed, unknown"
    assert startup(agent) == old
    agent.manager.signal(signal.SIGCONT)
    fault("Message transport",
          "request of a save, system manager stopped and its socket full",
          f"{outcome}, at once; {saves_on(agent)} when it runs again")


def test_manager_stopped_and_continued(with_manager, fault):
    """The request waits in its socket, and the agent for the answer."""
    agent = with_manager()
    agent.manager.signal(signal.SIGSTOP)
    asking = threading.Thread(target=agent.station.set, args=[save(1)])
    asking.start()
    time.sleep(1)
    assert asking.is_alive()
    agent.manager.signal(signal.SIGCONT)
    asking.join(20)
    assert not asking.is_alive()
    outcome = outcome_of(agent, 1)
    assert outcome == "row successful"
    fault("System manager", "stopped before it answers, and continued",
          f"{outcome}; the agent waits as long; {saves_on(agent)}")
