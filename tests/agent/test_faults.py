"""Copy processes that are killed, forks that fail, descriptors that run out,
disks that are full, sockets that are gone."""

import os
import signal
import socket
import subprocess
import threading
import time

import pytest

import lab
from snmp import (CREATE_AND_WAIT, DESTROY, FAILED, IN_PROGRESS, NETWORK,
                  RUNNING, STARTUP, SUCCESSFUL, TRUE, UNKNOWN, download, go,
                  name, row, upload)
from tools import children_of, wait_for

STATE_NAMES = {SUCCESSFUL: "successful", FAILED: "failed"}
CAUSE_NAMES = {1: "unknown", 2: "badFileName", 3: "timeout", 4: "noMem",
               5: "noConfig", 7: "someConfigApplyFailed"}


def keep_startup(agent, content):
    folder = agent.state / "startup"
    folder.mkdir(mode=0o700, exist_ok=True)
    (folder / "system.cfg").write_bytes(content)
    (folder / "system.cfg").chmod(0o600)


def startup_to_running(index):
    return row(index, xfCopySourceFileType=STARTUP,
               xfCopyDestFileType=RUNNING)


def outcome_of(agent, index, seconds=60):
    """How the copy ended, in the words of the table of faults."""
    state = agent.ended(index, seconds)
    if state == SUCCESSFUL:
        return "row successful"
    cause = agent.station.get("xfCopyFailCause", index)
    return f"row failed, {CAUSE_NAMES[cause]}"


def goes_on(agent, double, index=1000):
    """The same agent does another copy to its end."""
    text = agent.running_config()
    agent.station.set(go(upload(index, "on.cfg", double.address)))
    agent.succeeds(index)
    assert double.files["on.cfg"] == text
    agent.idle()
    agent.station.set(row(index, xfCopyEntryRowStatus=DESTROY))
    return "goes on"


def forget(agent, index):
    agent.station.set(row(index, xfCopyEntryRowStatus=DESTROY))


# The copies, and the steps of each in their order with what has to come of a
# process that is killed there.
KILLED = "row failed, unknown"
STAYS = "row failed, unknown; the staged file stays"
REPORTED = "row successful"
STEPS = {
    "upload": [
        ("start before", "as soon as it runs", KILLED),
        ("bind before", "before it binds its handle", KILLED),
        ("bind after", "after it has bound its handle", KILLED),
        ("stage before", "before it opens the staged file", KILLED),
        ("stage after", "after it has opened the staged file", STAYS),
        ("show before", "before the configuration is shown", STAYS),
        ("show after", "after the configuration was shown", STAYS),
        ("tell before", "before it tells the system manager", STAYS),
        ("send before", "before the transfer", STAYS),
        ("send after", "after the transfer", STAYS),
        ("remove before", "before it removes the staged file", STAYS),
        ("remove after", "after it has removed the staged file", KILLED),
        ("bind-report before", "before it binds for its report", KILLED),
        ("bind-report after", "after it has bound for its report", KILLED),
        ("report before", "before its report", KILLED),
        ("report after", "after its report", REPORTED),
    ],
    "download": [
        ("fetch before", "before the transfer", KILLED),
        ("fetch after", "after the transfer", STAYS),
        ("apply before", "before the configuration is applied", STAYS),
        ("apply after", "after the configuration was applied", STAYS),
        ("remove after", "after it has removed the fetched file", KILLED),
        ("report before", "before its report", KILLED),
        ("report after", "after its report", REPORTED),
    ],
    "startup to running": [
        ("bind after", "after it has bound its handle", KILLED),
        ("apply before", "before the configuration is applied", KILLED),
        ("apply after", "after the configuration was applied", KILLED),
        ("report after", "after its report", REPORTED),
    ],
}


@pytest.mark.parametrize("copy", STEPS)
def test_copy_process_killed_at_every_step(make_agent, make_double, fault,
                                           copy):
    agent = make_agent(fault_points=True)
    double = make_double(agent)
    station = agent.station
    agent.running_config(b"hostname one\n")
    keep_startup(agent, b"hostname kept\n")
    double.files["down.cfg"] = b"hostname two\n"
    files = None
    for index, (step, words, expected) in enumerate(STEPS[copy], 1):
        agent.fault_point.write_text(step)
        station.set(go({
            "upload": lambda: upload(index, "up.cfg", double.address),
            "download": lambda: download(index, "down.cfg", double.address),
            "startup to running": lambda: startup_to_running(index),
        }[copy]()))
        outcome = outcome_of(agent, index)
        agent.idle()
        left = sorted(os.listdir(agent.staging))
        if left:
            assert left == [{"upload": "up.cfg"}.get(copy, "down.cfg")]
            (agent.staging / left[0]).unlink()
            outcome += "; the staged file stays"
        assert outcome == expected, step
        fault("Copy process", f"{copy}, killed {words}", outcome)
        agent.fault_point.unlink()
        forget(agent, index)
        # Nothing of it is left in the run directory, nor in the agent.
        assert not [each for each in agent.sockets()
                    if not each.startswith(("sap.28", f"q.{agent.pid}."))]
        files = files or agent.open_files()
        assert agent.open_files() == files, step
    goes_on(agent, double)


# ---- Forks and descriptors ---------------------------------------------------

# Forks of root cannot be limited. Everything else is as root has it.
AGENTS_USER = ["setpriv", "--reuid", "64123", "--clear-groups",
               "--inh-caps", "-all,+dac_override,+dac_read_search,+fowner",
               "--ambient-caps", "-all,+dac_override,+dac_read_search,+fowner"
               ] if os.getuid() == 0 else []


def limit(agent, what, soft):
    """The soft limit; only a process of the same user may set it."""
    subprocess.run([*agent.wrapper, "prlimit", "--pid", str(agent.pid),
                    f"--{what}={soft}:"], check=True)


def test_fork_that_fails(make_agent, make_double, fault):
    agent = make_agent(wrapper=AGENTS_USER)
    double = make_double(agent)
    station = agent.station
    agent.running_config(b"hostname one\n")
    goes_on(agent, double)
    files = agent.open_files()
    limit(agent, "nproc", 0)
    for index in (1, 2):  # the second is not refused: the first has ended
        station.set(go(upload(index, "up.cfg", double.address)))
        outcome = outcome_of(agent, index)
        assert outcome == "row failed, unknown"
        assert agent.log.count("a copy process could not be started") == index
    assert not double.files.get("up.cfg")
    assert agent.open_files() == files
    limit(agent, "nproc", 4096)
    fault("Fork", "fork fails (RLIMIT_NPROC), twice",
          f"SET answered noError; {outcome}, each time; "
          f"{goes_on(agent, double, 3)} once forks work")


def lowest_free(pid):
    taken = set(map(int, os.listdir(f"/proc/{pid}/fd")))
    return next(number for number in range(1024) if number not in taken)


def test_no_descriptors_left(make_agent, make_double, fault):
    agent = make_agent()
    double = make_double(agent)
    station = agent.station
    agent.running_config(b"hostname one\n")
    goes_on(agent, double)
    agent.idle()
    files = agent.open_files()
    for spare in range(1, 9):
        limit(agent, "nofile", lowest_free(agent.pid) + spare)
        station.set(go(upload(1, "up.cfg", double.address)))
        print(spare, outcome_of(agent, 1), time.monotonic())
        agent.idle()
        limit(agent, "nofile", 1024)
        forget(agent, 1)
        print(os.listdir(agent.staging), double.files, agent.open_files(), files)
    goes_on(agent, double)
    assert 0
