"""Why copies failed: what the history of the agent says, which is what xfcopy
shows. Collected for docs/failures.md."""

import re

from snmp import Failure
from tools import wait_for

HISTORY = ".1.3.6.1.4.1.32473.1.2.1"
ROW, STATE, REASON, ADVICE = 2, 16, 18, 19
IN_PROGRESS = 2

# What each run says otherwise.
ALWAYS_NEW = (
    (r"/\S*/(state|run)\b", r"<\1 directory>"),
    (r"\b(port|VRF with the id|status of process) \d+", r"\1 N"),
    (r"\b(block|within|after|process) \d+", r"\1 N"),
    (r"\b\d+ (octets|of \d+ octets)\b", "N octets"),
    (r"127\.\d+\.\d+\.\d+", "192.0.2.1"))

noted = []  # reason and advice of each copy that failed since the last row


def entry(station):
    """Number of the row, state, reason and advice of the newest copy; None
    where there is no history."""
    text = station.run("snmpget", "-Oqv", station.peer, f"{HISTORY}.1.0")
    if not text.strip().isdigit() or int(text) == 0:
        return None
    oids = (f"{HISTORY}.2.1.{column}.{int(text)}"
            for column in (ROW, STATE, REASON, ADVICE))
    values = station.run("snmpget", "-Oqv", station.peer, *oids).splitlines()
    return (int(values[0]), int(values[1]),
            *(value[1:-1].replace('\\"', '"') for value in values[2:]))


def general(text):
    for pattern, replacement in ALWAYS_NEW:
        text = re.sub(pattern, replacement, text)
    return text.replace("|", "/")


def says_nothing(reason):
    """An unknown command is a reason, "unknown" is none."""
    return re.search(r"\bunknown( error| reason)?\W*$", reason.lower())


def note_failure(agent, index):
    """Each copy that failed has a reason: it says what was being done, and
    what to do about it. Returns both."""
    def known():
        found = entry(agent.station)
        return found if found and found[1] != IN_PROGRESS else None
    try:
        row, _, reason, advice = wait_for(known, "the history", 10)
    except Failure as failure:
        raise AssertionError(failure.output) from failure
    assert row == index
    assert reason and not says_nothing(reason), reason
    assert advice, reason
    assert all(" " <= each <= "~" for each in reason + advice)
    noted.append((reason, advice))
    return reason, advice
