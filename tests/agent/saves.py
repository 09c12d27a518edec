"""Saves of the running configuration, and what they leave."""

import socket

from snmp import COMPLETION, ROOT, RUNNING, STARTUP, go, name, row
from tools import children_of

FABRIC_STARTUP, ALL_STARTUP = 6, 7
SAVE_REFUSED, SAVE_FAILED = 8, 9
ERROR_ENTRY = ROOT + ".1.1.2.1"
# What is running at the start of an agent with its manager.
RUNNING_TEXT = b"hostname one\nvlan 7\n"


def save(index, to=STARTUP, **more):
    return go(row(index, xfCopySourceFileType=RUNNING, xfCopyDestFileType=to,
                  **more))


def completions(receiver):
    """Row index and state of every xfCopyCompletion that came."""
    state = name("xfCopyState")
    return [(varbind.rpartition(".")[2], value)
            for trap in receiver.received
            if any(value.startswith(COMPLETION + ".") for _, value in trap)
            for varbind, value in trap if varbind.startswith(state + ".")]


def startup(agent):
    file = agent.state / "startup" / "system.cfg"
    return file.read_bytes() if file.exists() else None


def keep_startup(agent, content):
    folder = agent.state / "startup"
    folder.mkdir(mode=0o700, exist_ok=True)
    (folder / "system.cfg").write_bytes(content)
    (folder / "system.cfg").chmod(0o600)
    return content


def nothing_left(agent):
    """No trace of a save that has ended."""
    assert not (agent.state / "save-in-progress").exists()
    assert not children_of(agent.manager.pid)


def errors(agent, index):
    """The rows of the error table: device number to (type, address, WWN,
    text)."""
    station = agent.station
    found = {}
    for oid, _ in station.walk(oid=f"{ERROR_ENTRY}.2.{index}"):
        device = int(oid.rpartition(".")[2])

        def read(column, *options):
            text = station.run("snmpget", "-Oqv", *options, station.peer,
                               f"{ERROR_ENTRY}.{column}.{index}.{device}")
            return text.strip().strip('"')
        address = bytes.fromhex(read(3, "-Ox"))
        found[device] = (int(read(2)), socket.inet_ntoa(address),
                         ":".join(read(4, "-Ox").lower().split()), read(5))
    return found
