"""The history of copies, as a station reads it."""

import datetime
import types

from tools import wait_for

ROOT = ".1.3.6.1.4.1.32473.1.2"
NEWEST = ROOT + ".1.1.0"
ENTRY = ROOT + ".1.2.1"

COLUMNS = ["row", "asker", "vrf", "source", "destination", "protocol",
           "server_type", "server", "port", "file", "user", "asked", "started",
           "ended", "state", "cause", "reason", "advice", "octets", "sha256",
           "refused", "refused_line", "refused_reason"]
TIMES = ("asked", "started", "ended")
TEXTS = ("asker", "vrf", "file", "user", "reason", "advice", "sha256",
         "refused_reason")

IN_PROGRESS, SUCCESSFUL, FAILED, INTERRUPTED = 2, 3, 4, 5


def time_of(octets):
    """A DateAndTime in UTC; None if there is none."""
    if octets == bytes(8):
        return None
    assert len(octets) == 11 and octets[8:] == b"+\0\0", octets
    return datetime.datetime(
        int.from_bytes(octets[:2], "big"), *octets[2:7], octets[7] * 100000,
        tzinfo=datetime.timezone.utc)


def value_of(column, text):
    if not text.startswith('"'):
        return int(text)
    octets = bytes.fromhex(text.strip('" '))
    if column in TIMES:
        return time_of(octets)
    return octets.decode() if column in TEXTS else octets


def entries(station, tool="snmpbulkwalk", *options):
    """The rows of the history by their numbers."""
    found = {}
    text = station.run(tool, "-Oqx", *options, station.peer, ENTRY)
    for line in text.replace("\n.", "\n\n.").split("\n\n"):
        oid, _, value = line.replace("\n", " ").partition(" ")
        if value.startswith("No "):
            continue
        column, number = (int(each) for each in oid.split(".")[-2:])
        name = COLUMNS[column - 2]
        found.setdefault(number, types.SimpleNamespace())
        setattr(found[number], name, value_of(name, value))
    for each in found.values():
        assert list(vars(each)) == COLUMNS
    return found


def newest(station):
    """The number of the newest row and the row itself."""
    number = int(station.run("snmpget", "-Oqv", station.peer, NEWEST))
    return number, entries(station).get(number)


def ended(station, seconds=60):
    """Waits until the newest copy has ended, and returns its row."""
    def row():
        _, found = newest(station)
        return found if found and found.state != IN_PROGRESS else None
    return wait_for(row, "the end of the newest copy", seconds)


def fill(agent, numbers):
    """Before the start: copies of these numbers, from earlier days."""
    folder = agent.state / "history"
    folder.mkdir(mode=0o700)
    file = folder / "history"
    file.write_text("".join(line_of(
        f"number={number}\trow=7\tsource=4\tdestination=1\tprotocol=1\t"
        f"asked=17000000000\tstate=3\tfile=sw1.cfg") for number in numbers))
    file.chmod(0o600)


def line_of(body):
    """A line of the history, or of a report: with its checksum."""
    hash_ = 2166136261
    for octet in body.encode():
        hash_ = (hash_ ^ octet) * 16777619 & 0xFFFFFFFF
    return f"{hash_:08x} {body}\n"
