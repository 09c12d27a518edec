"""## Saves in the fabric

A save on this switch and others, from the SET to the state seen, with a program
in the place of `ssh` that answers after 50 ms. The ideal is what that alone
takes: switches / fabric_parallel x 50 ms. Processor time is that of the system
manager and of the programs that it has run; what it has written is what went to
the disk."""

import os
import pathlib
import tempfile
import time

import manager
import snmp
from saves import FABRIC_STARTUP, save
from station import Station
from tables import Table, number, ratio, with_spread

ANSWER = 0.05
PARALLEL = 4


class Fabric(manager.SavingAgent):
    """This switch and so many others."""

    def __init__(self, folder, switches):
        program = folder / "ssh"
        program.write_text(f"#!/bin/sh\nexec sleep {ANSWER}\n")
        program.chmod(0o755)
        listed = folder / "fabric.conf"
        listed.write_text(
            "switch here wwn 10:00:00:05:1e:34:00:00 address 127.0.0.1 local\n" +
            "".join(f"switch s{n} wwn 10:00:00:05:1e:35:{n >> 8:02x}:"
                    f"{n & 255:02x} address 127.1.{n >> 8}.{n & 255}\n"
                    for n in range(switches)))
        listed.chmod(0o600)
        super().__init__(folder, fabric_file=listed, ssh_program=program,
                         fabric_key_file=listed, fabric_known_hosts=listed,
                         fabric_parallel=PARALLEL, management_interface="lo")

    def processor_seconds(self):
        """Of the manager, and of the programs that it has waited for."""
        with open(f"/proc/{self.manager.pid}/stat") as stat:
            fields = stat.read().rpartition(")")[2].split()
        return sum(map(int, fields[11:15])) / os.sysconf("SC_CLK_TCK")

    def written_octets(self):
        with open(f"/proc/{self.manager.pid}/io") as counters:
            return next(int(line.split()[1]) for line in counters
                        if line.startswith("write_bytes"))


def one_save(fabric, station):
    """Seconds, processor seconds and octets written."""
    before = fabric.processor_seconds(), fabric.written_octets()
    began = time.perf_counter()
    station.set(save(1, FABRIC_STARTUP))
    while station.get("xfCopyState", 1) not in (snmp.SUCCESSFUL, snmp.FAILED):
        time.sleep(.002)
    seconds = time.perf_counter() - began
    state = station.get("xfCopyState", 1)
    assert state == snmp.SUCCESSFUL, fabric.manager.log[-500:]
    station.set(snmp.row(1, xfCopyEntryRowStatus=snmp.DESTROY))
    return (seconds, fabric.processor_seconds() - before[0],
            fabric.written_octets() - before[1])


def measure(table, folder, switches, runs):
    fabric = Fabric(folder, switches)
    fabric.start().running_config(b"hostname one\n")
    fabric.manager.start()
    try:
        station = Station(fabric.port)
        series = [one_save(fabric, station) for _ in range(runs)]
    finally:
        fabric.manager.stop()
        fabric.stop()
    seconds, processor, written = zip(*series)
    ideal = switches / PARALLEL * ANSWER
    table.add(f"{switches:,}", with_spread(seconds), number(ideal),
              ratio(seconds, [ideal] * runs),
              with_spread([each / switches * 1000 for each in processor]),
              with_spread([each / switches / 1024 for each in written]))


def tables(quick):
    table = Table(f"{PARALLEL} switches at a time",
                  ["switches", "s", "ideal, s", "of the ideal",
                   "processor time of a switch, ms",
                   "written for a switch, KiB"])
    for switches, runs in (((10, 1), (100, 1)) if quick else
                           ((10, 5), (100, 3), (1000, 1))):
        with tempfile.TemporaryDirectory(prefix="bench-") as folder:
            measure(table, pathlib.Path(folder), switches, runs)
    return [table]
