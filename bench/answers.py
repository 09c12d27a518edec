"""## Answers to others

One client asks the agent for a constant, one GET after the other, while
something else keeps the agent busy: how long it waits. The agent has a table
full of rows, and a system manager. The first line is what the machine itself
does to the answers."""

import contextlib
import io
import os
import pathlib
import tempfile
import time

import bed
import manager
from bed import request
from saves import ERROR_ENTRY, FABRIC_STARTUP, RUNNING_TEXT, save
from snmp import FAILED
from tables import Table, number

SWITCHES = 1_000
# More than the 305 seconds that a row is kept.
AGED = 320


def fabric_of(folder, switches):
    """Settings for a fabric of that many switches that cannot be reached."""
    file = folder / "fabric"
    file.write_text("switch here wwn 10:00:00:05:1e:34:00:00 "
                    "address 127.0.0.1 local\n" + "".join(
                        f"switch s{n} wwn 20:00:00:05:1e:34:"
                        f"{n >> 8:02x}:{n & 255:02x} "
                        f"address 10.9.{n >> 8}.{n & 255}\n"
                        for n in range(switches)))
    ssh = folder / "ssh"
    ssh.write_text("#!/bin/sh\nexit 255\n")
    ssh.chmod(0o755)
    (folder / "key").touch(mode=0o600)
    (folder / "known_hosts").touch()
    file.chmod(0o600)
    return {"fabric_file": file, "fabric_key_file": folder / "key",
            "fabric_known_hosts": folder / "known_hosts", "ssh_program": ssh,
            "management_interface": "lo"}


class Busy:
    """The agent, and what keeps it busy: each returns when it is over."""

    def __init__(self, where, rows, switches):
        self.agent = where.agent
        self.row = rows
        self.switches = switches

    def nothing(self):
        time.sleep(1)

    def save(self):
        self.agent.station.set(save(self.new_row()))
        self.agent.succeeds(self.row)

    def failed_fabric_save(self):
        self.agent.station.set(save(self.new_row(), FABRIC_STARTUP))
        assert self.agent.ended(self.row, 300) == FAILED
        collected = self.agent.station.walk(oid=f"{ERROR_ENTRY}.2.{self.row}")
        assert len(collected) == self.switches

    def hang_up(self):
        # An operator's agent keeps its users. This file has a createUser: keys
        # are made of a megabyte of passwords, 10 ms each time it is read.
        settings = self.agent.configuration
        settings.write_text("".join(
            line for line in settings.read_text().splitlines(True)
            if not line.startswith("createUser ")))
        self.agent.hang_up()

    def age_out(self):
        self.agent.pass_time(AGED)
        assert self.agent.station.rows() == []

    def new_row(self):
        self.row += 1
        return self.row


def go_first(pid):
    """What else the machine does meanwhile is not what is measured."""
    with contextlib.suppress(PermissionError):
        os.setpriority(os.PRIO_PROCESS, pid, -15)


def waits(where, event):
    """What the client saw until the event was over, and a little longer."""
    asking = bed.Client(where.agent.port)
    go_first(asking.process.pid)
    asking.begin("until", 1, [request("floor", "get", 2)])
    time.sleep(0.2)
    event()
    time.sleep(0.2)
    outcome = asking.stop()
    asking.close()
    return outcome


def tables(quick):
    rows = 10_000 if quick else 100_000
    switches = SWITCHES // 10 if quick else SWITCHES
    table = Table(f"Time to the answer of a GET, {rows:,} rows",
                  ["meanwhile, ms", "answers", "median", "99 of 100", "worst"])
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        with bed.Bed(folder, kind=manager.SavingAgent, movable_clock=True,
                     **fabric_of(folder, switches)) as where:
            where.agent.running_config(RUNNING_TEXT)
            where.agent.manager.start()
            go_first(where.agent.pid)
            where.fill("ours", rows)
            busy = Busy(where, rows, switches)
            for what, event in [
                    ("nothing", busy.nothing), ("a save", busy.save),
                    (f"a save that fails at {switches:,} switches, and the "
                     "collection of their rows", busy.failed_fabric_save),
                    ("SIGHUP", busy.hang_up),
                    ("the age-out of all rows", busy.age_out)]:
                seen = waits(where, event)
                table.add(what, f"{seen.requests:,}", *(
                    number(each / 1000)
                    for each in (seen.median, seen.p99, seen.worst)))
            with contextlib.redirect_stdout(io.StringIO()):
                where.agent.manager.close()
    return [table]
