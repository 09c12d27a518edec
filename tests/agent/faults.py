"""What tests of faults have in common."""

from saves import save, startup
from snmp import DESTROY, RUNNING, STARTUP, SUCCESSFUL, go, row, upload
from tools import children_of, wait_for

CAUSES = {1: "unknown", 2: "badFileName", 3: "timeout", 4: "noMem",
          5: "noConfig", 7: "someConfigApplyFailed", 8: "saveRefused",
          9: "saveFailed"}


def startup_to_running(index):
    return go(row(index, xfCopySourceFileType=STARTUP,
                  xfCopyDestFileType=RUNNING))


def outcome_of(agent, index, seconds=60):
    """How the copy ended, in the words of the table of faults."""
    if agent.ended(index, seconds) == SUCCESSFUL:
        return "row successful"
    cause = agent.station.get("xfCopyFailCause", index)
    return f"row failed, {CAUSES[cause]}"


def forget(agent, index):
    agent.station.set(row(index, xfCopyEntryRowStatus=DESTROY))


def goes_on(agent, double, index=1000):
    """The same agent does another copy to its end."""
    text = agent.running_config()
    agent.station.set(go(upload(index, "on.cfg", double.address)))
    agent.succeeds(index)
    assert double.files.pop("on.cfg") == text
    agent.idle()
    forget(agent, index)
    return "goes on"


def saves_on(agent, index=1000):
    """The same for a save."""
    agent.station.set(save(index))
    agent.succeeds(index)
    assert startup(agent) == agent.running_config()
    forget(agent, index)
    return "goes on"


def wait_for_copy_process(agent):
    """The id of the one that runs; one of before may be there for a moment."""
    def alone():
        found = children_of(agent.pid)
        return found if len(found) == 1 else None
    child, = wait_for(alone, "the copy process")
    return child


def with_held_upload(make_agent, make_double):
    """An agent whose copy 1 has reached its server, which holds it: agent,
    server, id of the copy process."""
    agent = make_agent()
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    double.gate.clear()
    agent.station.set(go(upload(1, "up.cfg", double.address)))
    child = wait_for_copy_process(agent)
    wait_for(lambda: double.requests, "the transfer")
    return agent, double, child
