"""## Copies

Timed from the SET that starts a copy to the GET that shows its end; the station
asks when the notification of the end has come. Beside it stand the bare client
with the same file and, for TFTP, the same block size, and what an operator would
write: a script that has the shell show the configuration and starts the client,
or the client and then the shell that applies. The agent and all clients run on
one processor, servers and the station on another; the agent's run directory is
in memory, as /run is. Configurations that are downloaded are comments but for
their first line."""

import concurrent.futures
import contextlib
import io
import os
import pathlib
import select
import shlex
import socket
import tempfile
import time

import lab
import snmp
import transfer_servers
from station import Station
from tables import Table, number, ratio, with_spread
from tools import children_of, wait_for

KIB, MIB = 1 << 10, 1 << 20
PROTOCOLS = {"TFTP": 1, "FTP": 2, "SCP": 4, "SFTP": 5}
SERVER = "127.0.0.2"
QSH = str(lab.BUILD / "root/brim/bin/qsh")
PROCESSORS = sorted(os.sched_getaffinity(0))


def content(size):
    line = b"! nothing but filling, which is a comment and stays one\n"
    return (b"hostname one\n" + line * (size // len(line) + 1))[:size]


def size_name(size):
    return f"{size // MIB} MiB" if size >= MIB else f"{size // KIB} KiB"


class Clients:
    """Runs programs on the agent's processor."""

    def __init__(self, processor, environment):
        self.environment = environment
        self.pool = concurrent.futures.ThreadPoolExecutor(
            1, initializer=lambda: os.sched_setaffinity(0, {processor}))

    def run(self, command):
        """Seconds from the start of a program to its end."""
        return self.pool.submit(self._run, command).result()

    def _run(self, command):
        began = time.perf_counter()
        process = os.posix_spawnp(
            command[0], command, self.environment, file_actions=[
                (os.POSIX_SPAWN_OPEN, each, "/dev/null", os.O_RDWR, 0)
                for each in range(3)])
        status = os.waitpid(process, 0)[1]
        seconds = time.perf_counter() - began
        assert status == 0, f"{command} ended with {status}"
        return seconds


class Switch:
    """An agent with a station and clients."""

    def __init__(self, folder, configuration="", **settings):
        os.sched_setaffinity(0, {PROCESSORS[-1]})
        folder.mkdir()
        self.folder = folder
        self.ends = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.ends.bind(("127.0.0.1", 0))
        self.ends.settimeout(300)
        host, port = self.ends.getsockname()
        self.memory = tempfile.TemporaryDirectory(dir="/dev/shm")
        self.agent = lab.Agent(
            folder, f"{configuration}trap2sink {host}:{port} private\n",
            wrapper=("taskset", "-c", str(PROCESSORS[0])),
            **{"login_seconds": 60, "tftp_total_seconds": 300,
               "run_directory": self.memory.name, **settings})
        self.agent.start()
        self.station = Station(self.agent.port)
        environment = self.agent.environment()
        environment.pop("LD_PRELOAD", None)
        environment.update(SSH_ASKPASS=str(folder / "askpass"),
                           SSH_ASKPASS_REQUIRE="force")
        askpass = folder / "askpass"
        askpass.write_text("#!/bin/sh\nprintf '%s\\n' "
                           f"{shlex.quote(transfer_servers.PASSWORD)}\n")
        askpass.chmod(0o700)
        self.clients = Clients(PROCESSORS[0], environment)
        self.file = folder / "file"

    def configure(self, size):
        """The running configuration, as it is after something was applied."""
        self.agent.running_config(content(size))
        self.clients.run([QSH, "-c", "accept running-config"])
        self.file.write_bytes(content(size))

    def copy(self, columns):
        """Seconds that a copy took; `columns` are those of row 1."""
        varbinds = snmp.go(columns + snmp.row(
            1, xfCopyNotificationOnCompletion=snmp.TRUE))
        self.forget_notifications()
        began = time.perf_counter()
        self.station.set(varbinds)
        state = None
        # To look now and then would take the copy's processor from it.
        while state not in (snmp.SUCCESSFUL, snmp.FAILED):
            self.ends.recv(65536)
            state = self.station.get("xfCopyState", 1)
        seconds = time.perf_counter() - began
        assert state == snmp.SUCCESSFUL, self.station.get("xfCopyFailCause", 1)
        self.forget()
        return seconds

    def forget(self):
        wait_for(lambda: not children_of(self.agent.pid) and
                 not os.listdir(self.agent.staging), "the copy to be gone")
        self.station.set(snmp.row(1, xfCopyEntryRowStatus=snmp.DESTROY))

    def forget_notifications(self):
        while select.select([self.ends], [], [], 0)[0]:
            self.ends.recv(65536)

    def stop(self):
        self.agent.stop()
        self.ends.close()
        self.memory.cleanup()
        self.clients.pool.shutdown()


class Tftp:
    def __init__(self, stack, folder, block):
        self.name = f"TFTP, blocks of {block:,}"
        self.switch = Switch(folder / f"switch-{block}",
                             tftp_block_octets=block)
        stack.callback(self.switch.stop)
        served = folder / f"tftp-{block}"
        served.mkdir()
        self.server = lab.TftpServer(served, self.switch.agent)
        stack.callback(self.server.stop)
        self.columns = {"xfCopyProtocol": PROTOCOLS["TFTP"]}
        self.url = f"tftp://{SERVER}:{self.switch.agent.tftp_port}/"
        self.curl = ["curl", "-s", "--tftp-blksize", str(block)]

    def put(self, file):
        return [*self.curl, "-T", str(file), self.url + "theirs"]

    def get(self, file):
        return [*self.curl, "-o", str(file), self.url + "given"]


class WithLogin:
    """A server that a user logs in at."""

    def __init__(self, stack, folder, protocol, server):
        self.name, self.server = protocol, server
        key = "ftp_port" if protocol == "FTP" else "ssh_port"
        self.switch = Switch(folder / f"switch-{protocol}",
                             **{key: server.port})
        stack.callback(self.switch.stop)
        known = self.switch.agent.state / "known_hosts"
        if protocol != "FTP":
            known.write_text(server.known_host)
        self.columns = {"xfCopyProtocol": PROTOCOLS[protocol],
                        "xfCopyUserName": transfer_servers.USER,
                        "xfCopyUserPassword": transfer_servers.PASSWORD}
        self.curl = ["curl", "-s", "-u",
                     f"{transfer_servers.USER}:{transfer_servers.PASSWORD}"]
        self.url = f"ftp://{SERVER}:{server.port}/"
        self.ssh = [f"-o{option}" for option in (
            "BatchMode=no", "PreferredAuthentications=password",
            f"UserKnownHostsFile={known}", f"Port={server.port}")]
        self.there = f"{transfer_servers.USER}@{SERVER}"

    def put(self, file):
        if self.name == "FTP":
            return [*self.curl, "-T", str(file), self.url + "theirs"]
        if self.name == "SCP":
            return ["scp", *self.ssh, str(file), f"{self.there}:theirs"]
        batch = self.switch.folder / "batch"
        batch.write_text(f"put {file} theirs\n")
        return ["sftp", *self.ssh, "-b", str(batch), self.there]

    def get(self, file):
        if self.name == "FTP":
            return [*self.curl, "-o", str(file), self.url + "given"]
        return [self.name.lower(), *self.ssh, f"{self.there}:given", str(file)]


def script(*commands):
    return ["sh", "-c", " && ".join(commands)]


def uploads(way, runs):
    """Series of ours, of the client's, of the script's."""
    switch, shown = way.switch, way.switch.folder / "shown"
    columns = snmp.upload(1, "ours", SERVER, **way.columns)
    by_hand = script(f"{QSH} -c 'show running-config' >{shown}",
                     shlex.join(way.put(shown)))
    return zip(*[(switch.copy(columns), switch.clients.run(way.put(switch.file)),
                  switch.clients.run(by_hand)) for _ in range(runs)])


def downloads(way, runs, size):
    switch, fetched = way.switch, way.switch.folder / "fetched"
    way.server.offer("given", content(size))
    columns = snmp.download(1, "given", SERVER, **way.columns)
    by_hand = script(shlex.join(way.get(fetched)),
                     f"{QSH} --apply {fetched} {switch.folder}/results")
    return zip(*[(switch.copy(columns), switch.clients.run(way.get(fetched)),
                  switch.clients.run(by_hand)) for _ in range(runs)])


def milliseconds(series):
    return with_spread([each * 1000 for each in series])


def ways(stack, folder):
    """What there is to compare; FTP, SFTP and SCP need root and namespaces."""
    yield from (Tftp(stack, folder, block) for block in (1428, 8928, 65464))
    if transfer_servers.why_not() is None:
        servers = transfer_servers.Servers()
        # At their end they tell what they have logged.
        stack.enter_context(contextlib.redirect_stdout(io.StringIO()))
        stack.callback(servers.stop)
        ssh = servers.ssh()
        yield WithLogin(stack, folder, "FTP", servers.ftp())
        yield WithLogin(stack, folder, "SFTP", ssh)
        yield WithLogin(stack, folder, "SCP", ssh)


def copies(folder, quick):
    sizes = {KIB: 5, MIB: 3} if quick else {KIB: 20, MIB: 9, 32 * MIB: 5}
    table = Table("Copies", ["", "ours, ms", "client, ms", "script, ms",
                             "ours / client", "ours / script"],
                  transfer_servers.why_not() or "")
    with contextlib.ExitStack() as stack:
        for way in ways(stack, folder):
            for size, runs in sizes.items():
                way.switch.configure(size)
                row(table, f"{way.name}, {size_name(size)} up",
                    uploads(way, runs))
                way.switch.configure(KIB)
                row(table, f"{way.name}, {size_name(size)} down",
                    downloads(way, runs, size))
    return table


def row(table, what, series):
    ours, client, by_hand = series
    table.add(what, milliseconds(ours), milliseconds(client),
              milliseconds(by_hand), ratio(ours, client), ratio(ours, by_hand))


def answers(folder, quick):
    """How long others wait meanwhile."""
    table = Table("GET latency beside an upload of 32 MiB by TFTP",
                  ["", "answers", "median, ms", "99 of 100 below, ms",
                   "worst, ms"],
                  "One request after the other. A copy starts until the answer "
                  "to its SET has come, and ends in the last 20 ms until its "
                  "state shows it.")
    with contextlib.ExitStack() as stack:
        way = Tftp(stack, folder, 65464)
        way.switch.configure(32 * MIB)
        phases = {"no copy": [], "it starts": [], "it runs": [], "it ends": []}
        for _ in range(3 if quick else 20):
            one_copy(way, phases)
        for name, series in phases.items():
            series.sort()
            milli = [each * 1000 for each in series]
            table.add(name, f"{len(milli):,}", number(milli[len(milli) // 2]),
                      number(milli[len(milli) * 99 // 100]), number(milli[-1]))
    return table


def timed_get(station):
    began = time.perf_counter()
    state = station.get("xfCopyState", 1)
    return began, time.perf_counter() - began, state


def one_copy(way, phases):
    """Adds the latencies of the GETs beside a copy to those of its phases."""
    station, other = Station(way.switch.agent.port), way.switch.station
    other.set(snmp.row(1, xfCopyEntryRowStatus=snmp.CREATE_AND_WAIT))
    phases["no copy"] += [timed_get(station)[1] for _ in range(100)]
    other.set(snmp.row(1, xfCopyEntryRowStatus=snmp.DESTROY))
    other.send_set(snmp.go(snmp.upload(1, "ours", SERVER, **way.columns)))
    # It waits behind the SET, and comes after it.
    phases["it starts"].append(timed_get(station)[1])
    other.answer()
    found = [timed_get(station)]
    while found[-1][2] not in (snmp.SUCCESSFUL, snmp.FAILED):
        found.append(timed_get(station))
    last = found[-1][0] - .02
    phases["it runs"] += [took for at, took, _ in found if at < last]
    phases["it ends"] += [took for at, took, _ in found if at >= last]
    way.switch.forget()


def sizes_of_the_agent(folder, quick):
    table = Table("A copy of 1 KiB by the size of the agent",
                  ["the agent's memory, MiB", "answer to the SET, ms",
                   "SET to the state seen, ms"],
                  "`fork` copies the tables of the agent's pages; the memory is "
                  "touched in pieces as small as rows.")
    ballast = lab.BUILD / "bench" / "libbench_ballast.so"
    for mebibytes in (0, 200) if quick else (0, 200, 1024):
        with contextlib.ExitStack() as stack:
            switch = Switch(folder / f"size-{mebibytes}",
                            f"dlmod ballast {ballast}\n"
                            f"ballastMebibytes {mebibytes}\n")
            stack.callback(switch.stop)
            (folder / f"sized-{mebibytes}").mkdir()
            server = lab.TftpServer(folder / f"sized-{mebibytes}", switch.agent)
            stack.callback(server.stop)
            switch.configure(KIB)
            columns = snmp.upload(1, "ours", SERVER)
            began, whole = [], []
            for _ in range(5 if quick else 20):
                began.append(answer_to_set(switch, columns))
                whole.append(switch.copy(columns))
            resident = switch.agent.resident_kib() / 1024
            table.add(number(resident), milliseconds(began), milliseconds(whole))
    return table


def answer_to_set(switch, columns):
    varbinds = snmp.go(columns)
    began = time.perf_counter()
    switch.station.set(varbinds)
    seconds = time.perf_counter() - began
    wait_for(lambda: switch.station.get("xfCopyState", 1) == snmp.SUCCESSFUL,
             "the copy")
    switch.forget()
    return seconds


def tables(quick):
    before = os.sched_getaffinity(0)
    try:
        for measure in (copies, answers, sizes_of_the_agent):
            with tempfile.TemporaryDirectory(prefix="bench-") as name:
                os.chmod(name, 0o755)
                os.sched_setaffinity(0, before)
                yield measure(pathlib.Path(name), quick)
    finally:
        os.sched_setaffinity(0, before)
