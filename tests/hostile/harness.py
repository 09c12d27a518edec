"""Copies through a real agent against servers that misbehave, and what has to
be as before after each of them. Knows no protocol.

    trial = Trial(agent, good)
    outcome = trial.fails(lambda index: download(index, "x.cfg", ADDRESS),
                          TIMEOUT, UNKNOWN)
    fault("Hostile servers", "SFTP server that ...", outcome)
    ...
    trial.goes_on()
"""

import contextlib
import os
import pathlib
import re
import time

from faults import CAUSES, forget
from snmp import FAILED, SUCCESSFUL, go
from tools import wait_for

RUNNING_TEXT = b"hostname one\nvlan 7\n"


def processes_of(agent):
    """Ids of the processes that the agent or one of its own has started: they
    have its settings in their environment, whoever their parent is."""
    mark = f"XF_RUN_DIRECTORY={agent.run_directory}\0".encode()
    found = set()
    for entry in pathlib.Path("/proc").iterdir():
        if not entry.name.isdigit() or int(entry.name) == agent.pid:
            continue
        try:
            if mark in (entry / "environ").read_bytes():
                found.add(int(entry.name))
        except OSError:
            continue  # it has just ended, or is somebody else's
    return found


def descriptors_of(agent):
    """What the agent has open, without the numbers of sockets and the like."""
    folder = pathlib.Path(f"/proc/{agent.pid}/fd")
    found = []
    for entry in folder.iterdir():
        with contextlib.suppress(OSError):
            found.append(re.sub(r"\d+", "", os.readlink(entry)))
    return sorted(found)


class Trial:
    """An agent that makes copies, one after the other, with rows of its own.

    `good` takes a row's index and gives the columns of a copy of which the
    agent makes a success (as snmp.upload and snmp.download give them); `check`,
    if given, is called after each of those.
    """

    def __init__(self, agent, good, check=None, running=RUNNING_TEXT):
        self.agent = agent
        self.good = good
        self.check = check
        self.running = running
        self.index = 0
        self.took = 0  # by the last copy, in seconds
        self.why = ()  # it failed: reason and advice
        self.processes = processes_of(agent)
        self._good_copy()
        self.before = self._settled()

    def fails(self, columns_of, *causes, seconds=60):
        """A copy with these columns has to fail with one of the causes, and
        leave nothing. Returns the outcome in the words of the table, which are
        the same whichever it was."""
        state, cause = self._copy(columns_of, seconds)
        assert state == FAILED, "the copy was successful"
        assert cause in causes, f"cause {CAUSES.get(cause, cause)}"
        assert self.agent.running_config() == self.running
        self._nothing_left()
        allowed = " or ".join(CAUSES[each] for each in causes)
        return f"row failed, {allowed}; running configuration unchanged"

    def succeeds(self, columns_of, running=None, seconds=60):
        """A copy with these columns has to be successful; the running
        configuration is `running` then, None for as before."""
        state, cause = self._copy(columns_of, seconds)
        assert state == SUCCESSFUL, f"cause {CAUSES.get(cause, cause)}"
        assert self.agent.running_config() == (
            self.running if running is None else running)
        self._nothing_left()
        return "row successful"

    def fails_within(self, most, columns_of, *causes):
        """The same as `fails`, in at most so many seconds."""
        outcome = self.fails(columns_of, *causes, seconds=most)
        assert self.took <= most
        return outcome

    def goes_on(self):
        """The same agent makes a good copy."""
        self._good_copy()
        self._nothing_left()
        return "goes on"

    def _good_copy(self):
        state, cause = self._copy(self.good, 60)
        assert state == SUCCESSFUL, f"cause {CAUSES.get(cause, cause)}"
        if self.check:
            self.check()

    def _copy(self, columns_of, seconds):
        """State and cause of a copy, whose row is then removed."""
        self.index += 1
        self.agent.running_config(self.running)
        began = time.monotonic()
        self.agent.station.set(go(columns_of(self.index)))
        state = self.agent.ended(self.index, seconds)
        self.took = time.monotonic() - began
        self.why = self.agent.why
        cause = self.agent.station.get("xfCopyFailCause", self.index)
        self.agent.idle()
        forget(self.agent, self.index)
        return state, cause

    def _traces(self):
        """What a copy could leave behind: names of files, and what the agent
        has open."""
        agent = self.agent
        return {
            "staging directory": sorted(os.listdir(agent.staging)),
            "state directory": sorted(
                str(each.relative_to(agent.state))
                for each in agent.state.rglob("*")
                # Those of the running configuration stay.
                if each.suffix not in (".lock", ".sum")),
            "sockets": sorted(agent.sockets()),
            "descriptors": descriptors_of(agent)}

    def _settled(self):
        """Without what the agent has open for a moment only, as while its
        history is synced."""
        looks = []
        for _ in range(10):
            looks.append(self._traces())
            time.sleep(0.03)
        return min(looks, key=lambda each: len(each["descriptors"]))

    def _nothing_left(self):
        wait_for(lambda: processes_of(self.agent) <= self.processes,
                 "the processes of the copy to end")
        # The agent has a file of its own open now and then, and sweeps the
        # staging directory every five seconds if a process was slow to end.
        left = {}

        def nothing():
            left.update(self._traces())
            return left == self.before
        with contextlib.suppress(AssertionError):
            wait_for(nothing, "that", 15)
        assert left == self.before, "\n".join(
            f"{each}: {left[each]}, before: {self.before[each]}"
            for each in left if left[each] != self.before[each])
