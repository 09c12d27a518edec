"""A system manager that neither answers nor dies: how long the agent waits for
it, and what becomes of the save afterwards."""

import contextlib
import os
import signal
import socket
import struct
import subprocess
import threading
import time

import pytest

import lab
from saves import (FABRIC_STARTUP, RUNNING_TEXT, SAVE_FAILED, completions,
                   errors, keep_startup, save, startup)
from snmp import (ACTIVE, DESTROY, FAILED, IN_PROGRESS, STARTUP, SUCCESSFUL,
                  TRUE, row)
from tools import wait_for

SAVE, HEARTBEAT = 1381, 1370
WAIT_SECONDS, HEARTBEAT_SECONDS = 899, 10
# One each time that nothing has come, up to the one that ends the wait.
SIGNS_OF_LIFE = [SAVE] + [HEARTBEAT] * (WAIT_SECONDS // HEARTBEAT_SECONDS + 1)
# The wait takes about a second; nothing else goes faster.
SPEED = 1000
UPTIME = ".1.3.6.1.2.1.1.3.0"


class Tap:
    """Stands before the system manager's access point, passes everything on
    and keeps what it was."""

    def __init__(self, agent):
        self.opcodes = []
        self.point = agent.run_directory / "sap.3"
        self.behind = agent.run_directory / "behind"

    def __enter__(self):
        os.rename(self.point, self.behind)
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(self.point))
        self.thread = threading.Thread(target=self.run)
        self.thread.start()
        return self

    def run(self):
        while True:
            message = self.socket.recv(65536)
            if not message:
                return
            self.opcodes.append(struct.unpack(">4xI", message[:8])[0])
            # As without a tap, what finds no room is lost.
            with contextlib.suppress(OSError):
                self.socket.sendto(message, socket.MSG_DONTWAIT,
                                   str(self.behind))

    def __exit__(self, *_):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as end:
            end.sendto(b"", str(self.point))
        self.thread.join()
        self.socket.close()
        os.rename(self.behind, self.point)


@pytest.fixture
def stopped(with_manager, trap_receiver):
    """Makes an agent whose manager is stopped."""
    managers = []

    def make(**settings):
        agent = with_manager(
            f"trap2sink 127.0.0.1:{trap_receiver.port} public\n",
            clock_speed=SPEED, **settings)
        agent.manager.signal(signal.SIGSTOP)
        managers.append(agent.manager)
        return agent
    yield make
    for each in managers:
        if each.running():
            each.signal(signal.SIGCONT)


def uptime(agent):
    """Seconds, as the agent tells them."""
    return int(agent.station.run("snmpget", "-Oqv", agent.station.peer,
                                 UPTIME)) / 100


def wait_in_vain(agent, to, **more):
    """Asks for a save, which is answered once the agent has waited."""
    before = uptime(agent)
    start = time.monotonic()
    agent.station.set(save(1, to, xfCopyNotificationOnCompletion=TRUE, **more))
    really = time.monotonic() - start
    assert WAIT_SECONDS < uptime(agent) - before < WAIT_SECONDS + 60 + really
    assert agent.station.columns(1, "xfCopyState", "xfCopyEntryRowStatus",
                                 "xfCopyTimeCompleted") == \
        [IN_PROGRESS, ACTIVE, 0]
    assert "no response from procd" in trace(agent)
    assert agent.station.refused(save(2)) == "genError"


def trace(agent):
    return subprocess.run(
        [lab.BUILD / "host/xftrace", "snmpd"], env=agent.environment(),
        capture_output=True, text=True).stdout


def test_one_that_goes_on(stopped, trap_receiver, fault):
    """The end comes later, and the late first answer is nobody else's."""
    agent = stopped()
    keep_startup(agent, b"hostname old\n")
    with Tap(agent) as tap:
        wait_in_vain(agent, STARTUP)
    assert tap.opcodes == SIGNS_OF_LIFE
    assert completions(trap_receiver) == []
    assert startup(agent) == b"hostname old\n"
    agent.manager.signal(signal.SIGCONT)
    agent.succeeds(1)
    assert startup(agent) == RUNNING_TEXT
    assert wait_for(lambda: completions(trap_receiver), "the notification") \
        == [("1", str(SUCCESSFUL))]
    agent.running_config(b"hostname later\n")
    agent.station.set(save(2))
    agent.succeeds(2)
    assert startup(agent) == b"hostname later\n"
    assert agent.station.get("xfCopyState", 1) == SUCCESSFUL
    assert len(completions(trap_receiver)) == 1
    fault("System manager", "stopped for longer than the 899 seconds that a "
          "save is waited for, then goes on", "row running, then successful; "
          "a sign of life every ten seconds; the next save as well")


def test_one_that_is_killed(stopped, fabric, trap_receiver, fault):
    """In the fabric: nothing was saved anywhere, and each switch says so. What
    an earlier save has left there is not told again."""
    other = fabric.add("other")
    agent = stopped(**fabric.settings(manager_restart_seconds=1))
    results = agent.state / "fabric-results"
    results.write_text("10000000000000ff remote failed 192.0.2.9 Old.\n")
    results.chmod(0o600)
    with Tap(agent) as tap:
        wait_in_vain(agent, FABRIC_STARTUP)
    assert tap.opcodes == SIGNS_OF_LIFE
    agent.manager.kill()
    assert agent.fails(1) == SAVE_FAILED
    assert wait_for(lambda: completions(trap_receiver), "the notification") \
        == [("1", str(FAILED))]
    text = "The system manager ended before it began to save."
    assert [each[1:] for each in errors(agent, 1).values()] == [
        ("127.0.0.1", "10:00:00:05:1e:34:01:00", text),
        (other.address, other.wwn, text)]
    assert startup(agent) is None
    other.start()
    agent.manager.start()
    agent.station.set(save(2, FABRIC_STARTUP))
    agent.succeeds(2)
    assert errors(agent, 2) == {}
    assert agent.station.get("xfCopyState", 1) == FAILED
    fault("System manager", "stopped for longer than that during a save in the "
          "fabric, then killed", "row failed, saveFailed, an error row for "
          "each switch; the next save as well")


def test_save_that_is_taken_back_meanwhile(stopped, fault):
    """The abort finds room behind the signs of life."""
    agent = stopped(save_delay_seconds=60)
    old = keep_startup(agent, b"hostname old\n")
    wait_in_vain(agent, STARTUP)
    agent.station.set(row(1, xfCopyEntryRowStatus=DESTROY))
    agent.manager.signal(signal.SIGCONT)
    wait_for(lambda: "the save is aborted" in agent.manager.log, "the abort")
    wait_for(lambda: not (agent.state / "save-in-progress").exists(),
             "the end of the save")
    assert startup(agent) == old
    assert agent.station.rows() == []
    # Neither the late answer nor that end is taken for the next save's.
    agent.station.set(save(3))
    assert agent.station.get("xfCopyState", 3) == IN_PROGRESS
    agent.station.set(row(3, xfCopyEntryRowStatus=DESTROY))
    wait_for(lambda: not (agent.state / "save-in-progress").exists(),
             "the end of the save")
    fault("System manager", "stopped while the row is destroyed, then goes on",
          "save aborted; old startup configuration; the next save as well")
