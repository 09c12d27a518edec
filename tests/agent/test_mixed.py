"""Two hundred copies of all kinds in random order, through one agent.

XF_TEST_SEED gives another order; the seed is printed. What each kind of copy
has to show is written beside it, in `kinds`.
"""

import collections
import contextlib
import dataclasses
import os
import pathlib
import random
import re
import signal
import socket
import subprocess
import tempfile
import time

import pytest

import lab
import manager
from snmp import (ACTIVE, BAD_FILE_NAME, COMPLETION, CREATE_AND_GO,
                  CREATE_AND_WAIT, DESTROY, FAILED, FALSE, IN_PROGRESS, NETWORK,
                  NO_CONFIG, NO_MEMORY, NOT_READY, ROOT, RUNNING,
                  SOME_CONFIG_APPLY_FAILED, STARTUP, SUCCESSFUL, SYSTEM_IMAGE,
                  TERMINAL, TIMEOUT, TRUE, UNKNOWN, WAITING, Failure, name, row)
from tftp import TftpDouble
from tools import children_of, wait_for
from transfer_servers import (PASSWORD, USER, Servers, needs_servers,
                              public_folder)

pytestmark = needs_servers

SEED = int(os.environ.get("XF_TEST_SEED", "20240611"))
COPIES = 200
SETTLED, MEASURED = 80, 20
# The allocator's own play. From there on, one leaked row a copy would be 120
# KiB or more.
PLAY_KIB = 48
ROWS_KEPT = 4

PROTOCOLS = {"tftp": 1, "ftp": 2, "scp": 4, "sftp": 5}
RCP = 3
FABRIC_STARTUP, ALL_STARTUP = 6, 7
SAVE_REFUSED, SAVE_FAILED = 8, 9
ERROR_TEXTS = ROOT + ".1.1.2.1.5"

SERVER, DOUBLE, SILENT, STRANGER, GATED, NOBODY = (
    "127.0.0.2", "127.0.0.3", "127.0.0.4", "127.0.0.5", "127.0.0.6",
    "127.0.0.9")

RESULTS = pathlib.Path("/tmp/configcopy.txt")

STARTED, NOT_STARTED = "copy r s (SUCCESS)", "copy r s (FAILURE)"


@dataclasses.dataclass
class Copy:
    """What is asked for, and what it has to show. `records` are the texts of
    the accounting, `state` is None if no row is to be left."""
    columns: dict
    answer: str = "noError"
    state: int = SUCCESSFUL
    cause: int = UNKNOWN
    row_status: int = ACTIVE
    records: tuple = (STARTED,)
    notifies: bool = True
    # So many rows of the error table.
    switches_failed: int = 0
    meanwhile: object = None
    # An end that finds no running row is told in the name of the last row, if
    # that one asked to be told.
    ends_without_row: bool = False

    def fails(self, cause):
        self.state, self.cause = FAILED, cause
        return self


# ---- The bench ---------------------------------------------------------------


class Bench:
    """The agent with its manager, the servers, the other switches."""

    def __init__(self, folder, stack, receiver):
        self.receiver = receiver
        self.servers = Servers()
        stack.callback(self.servers.stop)
        self.ftp = self.servers.ftp(full=True)
        self.ssh = self.servers.ssh(full=True)
        port = self.ssh.port
        self.servers.ssh(STRANGER, port)
        self.gate = self.gated_ssh(port)
        for each in (self.ftp.port, port):
            # Connections to it are made, and nothing more.
            stack.enter_context(socket.create_server((SILENT, each)))
        (folder / "fabric").mkdir()
        self.fabric = manager.Fabric(folder / "fabric")
        stack.callback(self.close_fabric)
        self.good = [self.fabric.add(each).start()
                     for each in ("north", "south")]
        self.down = self.fabric.add("down")
        self.slow_gate = folder / "slow-gate"
        self.slow = self.fabric.add(
            "slow", command=f"exec timeout 60 sh -c 'until [ -e "
            f"{self.slow_gate} ]; do sleep 0.05; done'").start()
        self.every_switch = self.fabric.switches
        self.in_fabric(self.good)
        self.scratch = folder / "scratch"
        (folder / "agent").mkdir()
        self.agent = self.make_agent(folder / "agent")
        stack.callback(self.stop_programs)
        self.settings_file = folder / "xfhost.conf"
        self.limits()
        self.agent.start()
        self.agent.manager.start()
        self.fresh_manager = kinds_of_descriptors(self.agent.manager.pid)
        (self.agent.state / "known_hosts").write_text(
            self.ssh.known_host + self.gate.known_host)
        self.tftp = lab.TftpServer(folder, self.agent)
        stack.callback(self.tftp.stop)
        self.double = TftpDouble(DOUBLE, self.agent.tftp_port)
        stack.callback(self.double.close)

    def gated_ssh(self, port):
        """Its SFTP begins when the file `open` is there."""
        folder = self.servers.stack.enter_context(public_folder())
        script = folder / "gated"
        script.write_text("#!/bin/sh\nexec timeout 60 sh -c 'until [ -e "
                          f"{folder}/open ]; do sleep 0.05; done\n"
                          "exec /usr/lib/openssh/sftp-server'\n")
        script.chmod(0o755)
        server = self.servers.ssh(GATED, port, subsystem=script)
        server.opened = folder / "open"
        return server

    def make_agent(self, folder):
        # By itself the agent keeps its last thousand notifications and copies
        # in memory.
        agent = manager.SavingAgent(
            folder, "doNotRetainNotificationLogs yes\n"
            f"trap2sink 127.0.0.1:{self.receiver.port} public\n",
            ftp_port=self.ftp.port, ssh_port=self.ssh.port,
            tftp_packet_seconds=4, tftp_total_seconds=60,
            manager_restart_seconds=1, history_rows=SETTLED // 2,
            **self.fabric.settings(fabric_connect_seconds=20,
                                   fabric_switch_seconds=60))
        agent.settings["config"] = folder.parent / "xfhost.conf"
        return agent

    def limits(self, login_seconds=60):
        """The transfer programs read them anew for each transfer."""
        self.settings_file.write_text(f"login_seconds {login_seconds}\n"
                                      "transfer_seconds 60\n")
        self.settings_file.chmod(0o600)

    def in_fabric(self, switches):
        self.fabric.switches = list(switches)
        self.fabric.write()

    def restart_manager(self, save_delay_seconds=0):
        self.agent.manager.stop()
        self.agent.manager.settings["save_delay_seconds"] = save_delay_seconds
        self.agent.manager.start()

    def startup(self, content=None):
        file = self.agent.state / "startup" / "system.cfg"
        if content is not None:
            file.parent.mkdir(mode=0o700, exist_ok=True)
            file.touch(mode=0o600)
            file.write_bytes(content)
        return file.read_bytes() if file.exists() else None

    def saving(self):
        return (self.agent.state / "save-in-progress").exists()

    def half_saved(self):
        return (self.agent.state / "startup" / ".system.cfg.new").exists()

    def quiet(self):
        """Waits until nothing is under way any more."""
        self.agent.idle()
        wait_for(lambda: not self.saving(), "the save to end")

    def stop_programs(self):
        print(f"--- procd\n{self.agent.manager.log}")
        self.agent.manager.stop()
        print(f"--- snmpd\n{self.agent.log}")
        self.agent.stop()

    def close_fabric(self):
        self.fabric.switches = self.every_switch
        self.fabric.close()

    def left_processes(self):
        """All processes that have been started with the agent's settings."""
        mark = f"XF_RUN_DIRECTORY={self.agent.run_directory}\0".encode()
        found = set()
        for entry in filter(str.isdigit, os.listdir("/proc")):
            with contextlib.suppress(OSError):
                with open(f"/proc/{entry}/environ", "rb") as environment:
                    if mark in environment.read() + b"\0":
                        found.add(int(entry))
        return found


# ---- The kinds of copies -----------------------------------------------------
#
# Each is a generator: it prepares, yields what is asked for with what has to
# come of it, and looks at the rest after the end.


def columns(protocol, source, to, file, server=SERVER, password=PASSWORD):
    found = {"xfCopyProtocol": PROTOCOLS.get(protocol, RCP),
             "xfCopySourceFileType": source, "xfCopyDestFileType": to,
             "xfCopyServerAddress": server, "xfCopyFileName": file}
    if protocol in ("ftp", "scp", "sftp"):
        found |= {"xfCopyUserName": USER, "xfCopyUserPassword": password}
    return found


def transfer(protocol, source, to, file, ended="SUCCESS", **more):
    """A copy to or from a server; `ended` is what its own record tells."""
    asked = columns(protocol, source, to, file, **more)
    server = asked["xfCopyServerAddress"]
    words = {RUNNING: "running-config", STARTUP: "startup-config"}
    # TFTP's record has the port of the protocol, whatever the setting is.
    where = f"tftp://{server}:69" if protocol == "tftp" else \
        f"{protocol}://{USER}@{server}"
    if to == NETWORK:
        text = f"copy {words[source]} {where}{file}"
    else:
        text = f"copy {where}{os.path.basename(file)} {words[to]}"
    records = (STARTED, f"{text} ({ended})") if ended else (STARTED,)
    return Copy(asked, records=records)


def files(bench, protocol):
    return {"tftp": bench.tftp, "ftp": bench.ftp}.get(protocol, bench.ssh)


def upload(protocol, source):
    def kind(bench, number):
        text = b"hostname up-%d\n" % number
        if source == RUNNING:
            bench.agent.running_config(text)
        else:
            bench.startup(text)
        yield transfer(protocol, source, NETWORK, f"up-{number}.cfg")
        assert files(bench, protocol).content(f"up-{number}.cfg") == text
    return kind


def download(protocol):
    def kind(bench, number):
        bench.agent.running_config(b"vlan 7\nhostname old\n")
        files(bench, protocol).offer(f"d-{number}.cfg",
                                     b"hostname n-%d\n" % number)
        yield transfer(protocol, NETWORK, RUNNING, f"d-{number}.cfg")
        assert sorted(bench.agent.running_config().splitlines()) == \
            [b"hostname n-%d" % number, b"vlan 7"]
    return kind


def untouched(bench, number):
    """Gives a running and a startup configuration that must stay."""
    before = (bench.agent.running_config(b"hostname r-%d\n" % number),
              bench.startup(b"hostname s-%d\n" % number))

    def check():
        assert (bench.agent.running_config(), bench.startup()) == before
    return check


def missing_file(protocol):
    def kind(bench, number):
        check = untouched(bench, number)
        yield transfer(protocol, NETWORK, RUNNING, f"missing-{number}",
                       "FAILURE").fails(BAD_FILE_NAME)
        check()
    return kind


def wrong_password(protocol):
    def kind(bench, number):
        check = untouched(bench, number)
        source, to = [(NETWORK, RUNNING), (RUNNING, NETWORK)][number % 2]
        yield transfer(protocol, source, to, f"w-{number}", "FAILURE",
                       password="wrong").fails(UNKNOWN)
        check()
        assert not (files(bench, protocol).files / f"w-{number}").exists()
    return kind


def nobody_there(protocol):
    """A connection is refused at once. TFTP makes none and waits."""
    def kind(bench, number):
        check = untouched(bench, number)
        yield transfer(protocol, RUNNING, NETWORK, "x", "FAILURE",
                       server=NOBODY).fails(
                           TIMEOUT if protocol == "tftp" else UNKNOWN)
        check()
    return kind


def silent_server(protocol):
    def kind(bench, number):
        check = untouched(bench, number)
        bench.limits(login_seconds=1)
        bench.double.silent = True
        yield transfer(protocol, NETWORK, RUNNING, "x", "FAILURE",
                       server=DOUBLE if protocol == "tftp" else SILENT
                       ).fails(TIMEOUT)
        bench.double.silent = False
        bench.limits()
        check()
    return kind


def unknown_host_key(protocol):
    def kind(bench, number):
        check = untouched(bench, number)
        yield transfer(protocol, RUNNING, NETWORK, "x", "FAILURE",
                       server=STRANGER).fails(UNKNOWN)
        check()
    return kind


def full_disk(protocol):
    """The folder full/ of the server has room for 64 kB."""
    def kind(bench, number):
        bench.agent.running_config(b"! x\n" * 50_000)
        yield transfer(protocol, RUNNING, NETWORK, "full/up",
                       "FAILURE").fails(NO_MEMORY)
    return kind


def line_refused(bench, number):
    bench.agent.running_config(b"")
    bench.tftp.offer(f"p-{number}", b"hostname part\nflux on\nvlan 7\n")
    yield transfer("tftp", NETWORK, RUNNING, f"p-{number}").fails(
        SOME_CONFIG_APPLY_FAILED)
    assert bench.agent.running_config() == b"hostname part\nvlan 7\n"


def nothing_in_it(bench, number):
    check = untouched(bench, number)
    bench.ftp.offer(f"e-{number}", b"! nothing\n")
    yield transfer("ftp", NETWORK, RUNNING, f"e-{number}").fails(NO_CONFIG)
    check()


def between(source, to):
    return Copy({"xfCopySourceFileType": source, "xfCopyDestFileType": to})


def startup_to_running(bench, number):
    bench.agent.running_config(b"hostname old\n")
    bench.startup(b"hostname kept-%d\n" % number)
    yield between(STARTUP, RUNNING)
    assert bench.agent.running_config() == b"hostname kept-%d\n" % number


def empty_startup_to_running(bench, number):
    bench.startup(b"! nothing\n")
    yield between(STARTUP, RUNNING).fails(NO_CONFIG)


def save(to):
    def kind(bench, number):
        text = bench.agent.running_config(b"hostname save-%d\n" % number)
        if to == FABRIC_STARTUP:
            bench.in_fabric(bench.good)
            for each in bench.good:
                (each.state / "running-config").write_bytes(text)
        yield between(RUNNING, to)
        assert bench.startup() == text
        if to == FABRIC_STARTUP:
            assert [(each.state / "startup" / "system.cfg").read_bytes()
                    for each in bench.good] == [text, text]
    return kind


def fabric_save_with_one_down(bench, number):
    text = bench.agent.running_config(b"hostname save-%d\n" % number)
    bench.in_fabric([*bench.good, bench.down])
    failed = between(RUNNING, FABRIC_STARTUP).fails(SAVE_FAILED)
    failed.switches_failed = 1
    yield failed
    (_, why), = bench.agent.station.walk(oid=f"{ERROR_TEXTS}.{number}")
    assert why.startswith("The switch cannot be reached: ")
    assert bench.startup() == text


def save_refused(bench, number):
    check = untouched(bench, number)
    bench.in_fabric(bench.good)
    bench.fabric.file.unlink()
    yield between(RUNNING, FABRIC_STARTUP).fails(SAVE_REFUSED)
    bench.fabric.write()
    check()


def save_without_manager(bench, number):
    """The request cannot be sent: nobody is told, and there is no cause."""
    check = untouched(bench, number)
    bench.agent.manager.stop()
    failed = between(RUNNING, STARTUP).fails(UNKNOWN)
    failed.notifies = False
    yield failed
    bench.agent.manager.start()
    check()


def save_not_kept(bench, number):
    bench.startup(b"")
    file = bench.agent.state / "startup" / "system.cfg"
    file.unlink()
    file.mkdir(mode=0o700)
    yield between(RUNNING, ALL_STARTUP).fails(SAVE_FAILED)
    file.rmdir()


def manager_dies(bench, number):
    check = untouched(bench, number)
    bench.restart_manager(save_delay_seconds=60)
    failed = between(RUNNING, STARTUP).fails(SAVE_FAILED)

    def die(index):
        wait_for(bench.half_saved, "the save to write its file")
        bench.agent.manager.kill()
        bench.agent.ended(index)
        # The next one tells of the save, too; that must not count again.
        bench.restart_manager()
    failed.meanwhile = die
    yield failed
    check()
    # What the dead one has left goes with the next save, here by hand.
    subprocess.run([lab.BUILD / "root/brim/bin/qsh", "-c",
                    "copy running-config startup-config"], check=True,
                   env=bench.agent.environment())
    assert not bench.half_saved()


# What is refused. A request that got as far as the check of the whole row is
# accounted for; one that was refused before that never was a copy.


def refused(answer, source, to, server=SERVER):
    def kind(bench, number):
        check = untouched(bench, number)
        yield Copy(columns("tftp", source, to, "x", server), answer=answer,
                   state=None, records=(NOT_STARTED,), notifies=False)
        check()
    return kind


def unknown_protocol(bench, number):
    """Refused so early that nobody takes the new row away again."""
    check = untouched(bench, number)
    yield Copy(columns("rcp", RUNNING, NETWORK, "x"), answer="wrongValue",
               state=WAITING, row_status=CREATE_AND_GO, records=(),
               notifies=False)
    check()


def incomplete(bench, number):
    """createAndGo without a file name leaves a row that is not ready."""
    asked = columns("sftp", RUNNING, NETWORK, "x")
    del asked["xfCopyFileName"]
    yield Copy(asked, state=WAITING, row_status=NOT_READY,
               records=(NOT_STARTED,), notifies=False)


def second_while_one_runs(bench, number):
    """The second is refused, the first one ends as if nothing had been."""
    bench.agent.running_config(b"hostname first-%d\n" % number)
    bench.double.gate.clear()
    first = transfer("tftp", RUNNING, NETWORK, f"first-{number}",
                     server=DOUBLE)

    def second(index):
        asked = row(index + 1000, **columns("tftp", RUNNING, NETWORK, "y"),
                    xfCopyEntryRowStatus=CREATE_AND_GO)
        assert bench.agent.station.refused(asked) == "genError"
        assert bench.agent.station.get("xfCopyState", index + 1000) is None
        bench.double.gate.set()
    first.meanwhile = second
    yield first
    assert bench.double.files.pop(f"first-{number}") == \
        b"hostname first-%d\n" % number


# What is aborted. A transfer goes on to its end without its row; a save ends.


def destroyed_transfer(protocol):
    def kind(bench, number):
        text = bench.agent.running_config(b"hostname gone-%d\n" % number)
        server = DOUBLE if protocol == "tftp" else GATED
        aborted = transfer(protocol, RUNNING, NETWORK, f"g-{number}",
                           server=server)
        aborted.state, aborted.notifies = None, False
        aborted.ends_without_row = True
        bench.double.gate.clear()
        bench.gate.opened.unlink(missing_ok=True)

        def destroy(index):
            bench.destroy(index)
            # There is no row, but still a copy.
            asked = row(index + 1000, **columns("tftp", RUNNING, NETWORK, "y"),
                        xfCopyEntryRowStatus=CREATE_AND_GO)
            assert bench.agent.station.refused(asked) == "genError"
            bench.double.gate.set()
            bench.gate.opened.touch()
        aborted.meanwhile = destroy
        yield aborted
        assert (bench.double.files.pop(f"g-{number}") if protocol == "tftp"
                else bench.gate.content(f"g-{number}")) == text
    return kind


def killed_transfer(bench, number):
    """A copy process that dies without a report, by somebody else's hand."""
    check = untouched(bench, number)
    bench.double.gate.clear()
    killed = transfer("tftp", RUNNING, NETWORK, "k", ended=None,
                      server=DOUBLE).fails(UNKNOWN)

    def kill(index):
        child, = wait_for(lambda: children_of(bench.agent.pid), "the process")
        os.kill(child, signal.SIGKILL)
        bench.quiet()
        bench.double.gate.set()
    killed.meanwhile = kill
    yield killed
    check()


def destroyed_save(bench, number):
    check = untouched(bench, number)
    bench.restart_manager(save_delay_seconds=60)
    aborted = between(RUNNING, STARTUP)
    aborted.state, aborted.notifies = None, False

    def destroy(index):
        wait_for(bench.half_saved, "the save to write its file")
        bench.destroy(index)
    aborted.meanwhile = destroy
    yield aborted
    assert not bench.half_saved()
    check()
    bench.restart_manager()


def destroyed_fabric_save(bench, number):
    """A switch that has not answered yet is not waited for."""
    bench.in_fabric([*bench.good, bench.slow])
    bench.slow_gate.unlink(missing_ok=True)
    aborted = between(RUNNING, FABRIC_STARTUP)
    aborted.state, aborted.notifies = None, False

    def destroy(index):
        wait_for(lambda: children_of(bench.agent.manager.pid), "a connection")
        bench.destroy(index)
    aborted.meanwhile = destroy
    yield aborted
    bench.slow_gate.touch()
    wait_for(lambda: not children_of(bench.agent.manager.pid), "connections")


def kinds():
    """Name, how many, what it is."""
    scripts = ("ftp", "scp", "sftp")
    every = ("tftp", *scripts)
    for each in every:
        yield f"{each}, running to server", 10, upload(each, RUNNING)
        yield f"{each}, startup to server", 4, upload(each, STARTUP)
        yield f"{each}, server to running", 9, download(each)
    yield "startup to running", 8, startup_to_running
    yield "save", 8, save(STARTUP)
    yield "save, all startup", 6, save(ALL_STARTUP)
    yield "save in the fabric", 6, save(FABRIC_STARTUP)
    for each in every:
        yield f"{each}, no such file", 3, missing_file(each)
    for each in scripts:
        yield f"{each}, wrong password", 2, wrong_password(each)
        yield f"{each}, full disk", 1, full_disk(each)
    for each in every:
        yield f"{each}, nobody there", 1, nobody_there(each)
        yield f"{each}, silent server", 2, silent_server(each)
    for each in ("scp", "sftp"):
        yield f"{each}, unknown host key", 2, unknown_host_key(each)
    yield "a line that cannot be applied", 3, line_refused
    yield "a file with nothing in it", 2, nothing_in_it
    yield "empty startup to running", 1, empty_startup_to_running
    yield "save in the fabric, one down", 4, fabric_save_with_one_down
    yield "save refused", 2, save_refused
    yield "save without procd", 2, save_without_manager
    yield "save that cannot be kept", 1, save_not_kept
    yield "procd dies in a save", 1, manager_dies
    for said, answer, source, to in (
            ("server to server", "genError", NETWORK, NETWORK),
            ("server to startup", "genError", NETWORK, STARTUP),
            ("running to running", "genError", RUNNING, RUNNING),
            ("startup to fabric", "genError", STARTUP, FABRIC_STARTUP),
            ("server to all startup", "genError", NETWORK, ALL_STARTUP),
            ("system image", "wrongValue", SYSTEM_IMAGE, RUNNING),
            ("terminal", "wrongValue", RUNNING, TERMINAL)):
        yield f"refused: {said}", 1, refused(answer, source, to)
    yield "refused: own address", 2, refused("wrongValue", RUNNING, NETWORK,
                                               "127.0.0.1")
    yield "refused: unknown protocol", 1, unknown_protocol
    yield "incomplete", 2, incomplete
    yield "a second one while it runs", 2, second_while_one_runs
    yield "aborted: tftp", 3, destroyed_transfer("tftp")
    yield "aborted: sftp", 2, destroyed_transfer("sftp")
    yield "aborted: copy process killed", 2, killed_transfer
    yield "aborted: save", 3, destroyed_save
    yield "aborted: save in the fabric", 3, destroyed_fabric_save


# ---- The run -----------------------------------------------------------------


class Run:
    """Asks for the copies, one after the other, and knows what there is."""

    def __init__(self, bench, chance):
        self.bench, self.agent, self.chance = bench, bench.agent, chance
        bench.destroy = self.destroy
        self.rows = {}      # index: (asked to be told, state, cause)
        self.errors = []    # (index, number of the switch) of the error table
        self.told = []      # (index, state, cause), as they have to come
        self.accounted = 0

    def destroy(self, index):
        self.agent.station.set(row(index, xfCopyEntryRowStatus=DESTROY))
        self.rows.pop(index, None)
        self.errors = [each for each in self.errors if each[0] != index]

    def ask(self, copy, index, tell):
        """The name of the answer's error."""
        station, alice = self.agent.station, self.agent.alice
        by_user = self.chance.random() < 0.3
        in_steps = self.chance.random() < 0.3
        who = alice if by_user else station
        asked = row(index, **copy.columns,
                    xfCopyNotificationOnCompletion=TRUE if tell else FALSE)
        status = "xfCopyEntryRowStatus"
        try:
            if in_steps and copy.row_status == ACTIVE and \
                    copy.answer == "noError":
                who.set(row(index, **{status: CREATE_AND_WAIT}) + asked)
                assert station.get(status, index) == NOT_READY
                who.set(row(index, **{status: ACTIVE}))
            else:
                who.set(asked + row(index, **{status: CREATE_AND_GO}))
        except Failure as failure:
            return failure.error, by_user
        return "noError", by_user

    def one(self, index, kind):
        tell = self.chance.random() < 0.6
        steps = kind(self.bench, index)
        copy = next(steps)
        answer, by_user = self.ask(copy, index, tell)
        assert answer == copy.answer
        if copy.meanwhile:
            assert self.agent.station.get("xfCopyState", index) == IN_PROGRESS
            copy.meanwhile(index)
        if copy.state in (SUCCESSFUL, FAILED):
            self.agent.ended(index)
        self.bench.quiet()
        self.check_row(copy, index)
        self.check_accounting(copy, by_user)
        self.check_notifications(copy, index, tell)
        assert next(steps, None) is None
        if copy.state is not None:
            self.rows[index] = tell, copy.state, copy.cause
            self.errors += [(index, switch) for switch in
                            range(1, copy.switches_failed + 1)]
        while len(self.rows) > ROWS_KEPT:
            self.destroy(min(self.rows))
        assert self.agent.station.rows() == sorted(self.rows)
        assert [tuple(map(int, found.split(".")[-2:])) for found, _ in
                self.agent.station.walk(oid=ERROR_TEXTS)] == self.errors
        assert os.listdir(self.agent.staging) == []

    def check_row(self, copy, index):
        station = self.agent.station
        found = [station.get(each, index) for each in
                 ("xfCopyState", "xfCopyFailCause", "xfCopyEntryRowStatus")]
        expected = [copy.state, copy.cause, copy.row_status]
        assert found == (expected if copy.state else [None] * 3)

    def check_accounting(self, copy, by_user):
        new = self.agent.accounting()[self.accounted:]
        self.accounted += len(new)
        texts = [re.search(' text="(.*)"$', each)[1] for each in new]
        # The copy process may be faster than the agent.
        assert sorted(texts) == sorted(copy.records)
        assert all((' user="alice" ' in each) == by_user for each in new)

    def check_notifications(self, copy, index, tell):
        if copy.notifies and tell:
            self.told.append((index, copy.state, copy.cause))
        if copy.ends_without_row and self.rows:
            last = max(self.rows)
            if self.rows[last][0]:
                self.told.append((last, *self.rows[last][1:]))
        wait_for(lambda: len(self.received()) >= len(self.told),
                 "the notification")
        assert self.received() == self.told

    def received(self):
        found = []
        for trap in self.bench.receiver.received:
            values = dict(trap)
            of = [value.rpartition(".")[2] for value in values.values()
                  if value.startswith(COMPLETION + ".")]
            found += [(int(index), *(int(values[name(each, index)]) for each in
                                     ("xfCopyState", "xfCopyFailCause")))
                      for index in of]
        return found


def summary(outcomes):
    lines = [f"{'kind':32} {'copies':>6}  outcome"]
    for (said, outcome), count in outcomes.items():
        lines.append(f"{said:32} {count:6}  {outcome}")
    lines.append(f"{'all':32} {sum(outcomes.values()):6}")
    return "\n".join(lines)


def outcome_of(run, index):
    if index not in run.rows:
        return "no row"
    _, state, cause = run.rows[index]
    return {WAITING: "waiting", SUCCESSFUL: "successful",
            FAILED: f"failed, cause {cause}"}[state]


def sequence(seed):
    """The same seed gives the same kinds in the same order. Each comes once
    before any comes again: what is used for the first time takes memory."""
    chance = random.Random(seed)
    first, rest = [], []
    for said, count, kind in kinds():
        first.append((said, kind))
        rest += [(said, kind)] * (count - 1)
    chance.shuffle(first)
    chance.shuffle(rest)
    assert len(first) <= SETTLED
    return first + rest, chance


@pytest.fixture
def bench(tmp_path, trap_receiver, monkeypatch):
    results_are_ours = not RESULTS.exists()
    with contextlib.ExitStack() as stack:
        # What the agent's programs leave in their temporary folder is found.
        # The servers' folders have to be where everybody can reach them.
        tempfile.gettempdir()
        (tmp_path / "scratch").mkdir()
        monkeypatch.setenv("TMPDIR", str(tmp_path / "scratch"))
        made = Bench(tmp_path, stack, trap_receiver)
        yield made
    if results_are_ours:
        RESULTS.unlink(missing_ok=True)


def nothing_left(bench, descriptors):
    agent = bench.agent
    wait_for(lambda: bench.left_processes() ==
             {agent.pid, agent.manager.pid}, "processes to end")
    assert children_of(agent.pid) == children_of(agent.manager.pid) == []
    for each in (bench.ftp, bench.ssh, bench.gate, *bench.good, bench.slow,
                 bench.tftp):
        wait_for(lambda: not children_of(each.pid), f"sessions of {each.name}",
                 60)
    assert kinds_of_descriptors(agent.pid) == descriptors
    assert kinds_of_descriptors(agent.manager.pid) == bench.fresh_manager
    assert os.listdir(agent.staging) == []
    assert os.listdir(bench.scratch) == []
    assert sorted(os.listdir(agent.state / "startup")) == \
        ["system.cfg", "system.cfg.lock"]
    known = {"accounting.log", "errors.log", "fabric-results", "history",
             "known_hosts", "running-config", "running-config.lock", "staging",
             "startup", "trace"}
    assert set(os.listdir(agent.state)) <= known
    assert sorted(agent.sockets()) == ["sap.28", "sap.3", "sap.46"]


def kinds_of_descriptors(pid):
    """How many of each kind: socket, pipe, file."""
    found = collections.Counter()
    for each in os.listdir(f"/proc/{pid}/fd"):
        with contextlib.suppress(OSError):
            found[os.readlink(f"/proc/{pid}/fd/{each}").split("[")[0]] += 1
    return found


def test_mixed_copies(bench, capsys):
    copies, chance = sequence(SEED)
    assert len(copies) == COPIES
    with capsys.disabled():
        print(f"\nseed {SEED} (XF_TEST_SEED)")
    run = Run(bench, chance)
    outcomes, memory, descriptors = collections.Counter(), {}, {}
    for index, (said, kind) in enumerate(copies, 1):
        print(f"copy {index}: {said}")
        start = time.monotonic()
        run.one(index, kind)
        seconds = time.monotonic() - start
        print(f"    {outcome_of(run, index)}, {seconds:.1f} s")
        outcomes[said, outcome_of(run, index)] += 1
        if index % MEASURED == 0:
            memory[index] = bench.agent.resident_kib()
            descriptors[index] = kinds_of_descriptors(bench.agent.pid)
    nothing_left(bench, descriptors[MEASURED])
    with capsys.disabled():
        print(summary(dict(sorted(outcomes.items()))))
        print(f"resident KiB after so many copies: {memory}")
    if not lab.SANITIZED:  # which keeps what is freed
        assert memory[COPIES] <= memory[SETTLED] + PLAY_KIB
