"""An agent whose memory runs out for a moment: each allocation that the
platform makes in it fails once."""

import mmap
import struct

import pytest

import lab
from faults import goes_on, saves_on
from saves import save
from snmp import (DESTROY, FAILED, SUCCESSFUL, TRUE, Failure, go, row,
                  upload)
from tools import wait_for

pytestmark = pytest.mark.skipif(
    lab.SANITIZED, reason="the sanitizer has allocations of its own")

MOST = 400


class Countdown:
    """The allocation of this number fails next; 0: none."""

    def __init__(self, agent):
        self.file = open(agent.countdown, "r+b")
        self.page = mmap.mmap(self.file.fileno(), 4)

    def set(self, number):
        self.page[:] = struct.pack("=i", number)

    def left(self):
        return struct.unpack("=i", self.page[:])[0]


def every_allocation(agent, act, settle):
    """Does `act`, with the first allocation failing, the second, and so on.
    `settle` brings everything back."""
    countdown = Countdown(agent)
    errors = {}
    for number in range(1, MOST):
        countdown.set(number)
        try:
            outcome = act(number)
        except Failure as failure:
            outcome = failure.error
            assert agent.station.rows() == []
        left = countdown.left()
        countdown.set(0)
        assert agent.running(), f"allocation {number}: {agent.log[-600:]}"
        settle(number)
        errors.setdefault(outcome, []).append(number)
        if left > 0:
            print({each: len(numbers) for each, numbers in errors.items()})
            return set(errors)
    raise AssertionError("there is no end to it")


def test_upload(make_agent, make_double, fault):
    agent = make_agent(no_memory=True)
    double = make_double(agent)
    station = agent.station
    agent.running_config(b"hostname one\n")
    goes_on(agent, double)

    def copy(index):
        station.set(go(upload(index, "up.cfg", double.address,
                              xfCopyNotificationOnCompletion=TRUE)))
        return agent.ended(index, 20)

    def settle(index):
        agent.idle()
        station.set(row(index, xfCopyEntryRowStatus=DESTROY))
        assert station.rows() == []
    assert every_allocation(agent, copy, settle) == \
        {"genError", SUCCESSFUL}
    fault("Memory", "operator new fails once in the agent during an upload, "
          "at every call", "genErr and no row, or row successful; " +
          goes_on(agent, double))


def test_copy_process_that_dies(make_agent, make_double, fault):
    agent = make_agent(no_memory=True, fault_points=True)
    double = make_double(agent)
    station = agent.station
    agent.running_config(b"hostname one\n")
    goes_on(agent, double)
    agent.fault_point.write_text("report before")

    def copy(index):
        station.set(go(upload(index, "up.cfg", double.address)))
        return agent.ended(index, 20)

    def settle(index):
        agent.idle()
        station.set(row(index, xfCopyEntryRowStatus=DESTROY))
    assert every_allocation(agent, copy, settle) == \
        {"genError", FAILED}
    agent.fault_point.unlink()
    fault("Memory", "operator new fails once in the agent while a copy "
          "process dies, at every call", "genErr and no row, or row failed; " +
          goes_on(agent, double))


def test_save(with_manager, fault):
    agent = with_manager(no_memory=True)
    station = agent.station
    saves_on(agent)

    def one(index):
        station.set(save(index))
        return agent.ended(index, 20)

    def settle(index):
        wait_for(lambda: not (agent.state / "save-in-progress").exists(),
                 "the save to end")
        station.set(row(index, xfCopyEntryRowStatus=DESTROY))
    outcomes = every_allocation(agent, one, settle)
    assert outcomes == {"genError", SUCCESSFUL, FAILED}
    fault("Memory", "operator new fails once in the agent during a save, at "
          "every call", "genErr and no row, or row successful or "
          "failed; " + saves_on(agent))
