"""The agent with the module, and the servers around it."""

import os
import pathlib
import shlex
import signal
import struct
import subprocess
import time

import reasons
from snmp import FAILED, SUCCESSFUL, Failure, Station, v3_user
from tools import (Program, children_of, clean_environment, free_port, taken,
                   wait_for)

BUILD = pathlib.Path(os.environ["XF_TEST_BUILD"])
MODULE = os.environ["XF_TEST_MODULE"]
MOVABLE_CLOCK = os.environ["XF_TEST_CLOCK"]
# Not where agents run that nothing can be preloaded into.
FAULT_POINTS = os.environ.get("XF_TEST_FAULT_POINTS")
NO_MEMORY = os.environ.get("XF_TEST_NO_MEMORY")
SANITIZED = os.environ.get("XF_TEST_SANITIZED") == "1"
# What starts an agent; more than one word if it runs under an emulator.
SNMPD = shlex.split(os.environ.get("XF_TEST_SNMPD", "snmpd"))

CONFIGURATION = """\
rwcommunity private
createUser alice SHA alice-password AES alice-password
rwuser alice priv
"""


def sanitizer_libraries():
    """A stock agent is not built for the sanitizer: it has to come first."""
    if not SANITIZED:
        return []
    return [subprocess.run(["g++", f"-print-file-name={library}"], check=True,
                           capture_output=True, text=True).stdout.strip()
            for library in ("libasan.so", "libubsan.so")]


class Agent(Program):
    """snmpd with the module, its own folders and its own port."""

    def __init__(self, folder, extra_configuration="", after="",
                 movable_clock=False, clock_speed=None, fault_points=False,
                 no_memory=False, wrapper=(), **settings):
        super().__init__("snmpd", folder / "snmpd.log")
        self.folder = folder
        # Every failure of a copy; without memory something may be missing.
        self.explains = not no_memory
        # Reason and advice of the copy that ended last, if it failed.
        self.why = ()
        self.home = folder / "home"  # where it runs
        self.state = folder / "state"
        self.run_directory = folder / "run"
        # Each copy process has a folder of its own there.
        self.staging = self.state / "staging"
        for each in (self.home, self.state, self.run_directory, self.staging):
            each.mkdir(mode=0o700)
        self.port = free_port()
        self.tftp_port = free_port()
        self.configuration = folder / "snmpd.conf"
        self.configuration.write_text(CONFIGURATION + extra_configuration +
                                      f"dlmod config_copy_mib {MODULE}\n" +
                                      after)
        self.clock = folder / "clock" if movable_clock else None
        self.clock_speed = clock_speed
        # A step that kills the copy process, see fault_points.c.
        self.fault_point = folder / "fault-point" if fault_points else None
        # Which allocation fails, see no_memory.cpp.
        self.countdown = folder / "countdown" if no_memory else None
        self.wrapper = list(wrapper)
        self.settings = {
            "root": BUILD / "root", "run_directory": self.run_directory,
            "state_directory": self.state, "tftp_port": self.tftp_port,
            "tftp_packet_seconds": 10, "tftp_total_seconds": 60, **settings}
        self.station = Station(f"udp:127.0.0.1:{self.port}")
        self.alice = self.as_user("alice", "alice-password")

    def as_user(self, user, password, **more):
        return Station(self.station.peer, v3_user(user, password, **more))

    def environment(self):
        preload = sanitizer_libraries()
        environment = clean_environment(self.settings)
        if self.clock or self.clock_speed:
            preload.append(MOVABLE_CLOCK)
        if self.clock:
            environment["MOVABLE_CLOCK"] = str(self.clock)
        if self.clock_speed:
            environment["MOVABLE_CLOCK_SPEED"] = str(self.clock_speed)
        if self.fault_point:
            preload.append(FAULT_POINTS)
            environment["FAULT_POINT"] = str(self.fault_point)
        if self.countdown:
            self.countdown.write_bytes(bytes(8))
            preload.append(NO_MEMORY)
            environment["NO_MEMORY"] = str(self.countdown)
        if preload:
            environment["LD_PRELOAD"] = " ".join(preload)
        environment["MIBS"] = ""
        environment["SNMPCONFPATH"] = str(self.folder)
        environment["SNMP_PERSISTENT_DIR"] = str(self.folder / "persistent")
        # The agent itself leaves memory behind when it ends.
        environment["ASAN_OPTIONS"] = "detect_leaks=0:quarantine_size_mb=8"
        return environment

    def start(self):
        if self.clock:
            os.mkfifo(self.clock)
        self.run([*self.wrapper, *SNMPD, "-f", "-Lo", "-C",
                  "-c", str(self.configuration),
                  "-I", "-smux", f"udp:127.0.0.1:{self.port}"],
                 cwd=self.home, env=self.environment())
        wait_for(self.answers, "the agent to answer")
        return self

    def answers(self):
        assert self.running(), "the agent ended"
        if not self.listens():
            return False
        try:
            self.station.run("snmpget", "-t", "1", self.station.peer,
                             ".1.3.6.1.2.1.1.3.0")
        except Failure:
            return False
        return True

    def listens(self):
        """Whether a request would reach it: an answer that cannot come would be
        waited for."""
        return taken("0.0.0.0", self.port, self.pid)

    def hang_up(self):
        """SIGHUP: the agent reads its configuration and loads the module
        again. Returns when it has."""
        def restarts():
            return self.log.count("NET-SNMP version")
        before = restarts()
        self.signal(signal.SIGHUP)
        wait_for(lambda: restarts() > before, "the agent to start over")
        # It says so first; it answers when it is done.
        assert self.answers()

    def move_clocks(self, wall, monotonic):
        """Needs the movable clock. See tests/preload/movable_clock.c."""
        pipe = os.open(self.clock, os.O_WRONLY | os.O_NONBLOCK)
        os.write(pipe, struct.pack("=qq", wall, monotonic))
        os.close(pipe)

    def set_clock(self, seconds):
        """The wall clock is set that much forward."""
        before = self.log.count("the clock was set")
        self.move_clocks(seconds, 0)
        wait_for(lambda: self.log.count("the clock was set") > before,
                 "the agent to notice the new time")

    def pass_time(self, seconds):
        self.move_clocks(seconds, seconds)
        # Alarms that are due run before and after the next requests.
        for _ in range(3):
            assert self.answers()

    def running_config(self, content=None):
        """The running configuration, or what it is from now on."""
        file = self.state / "running-config"
        if content is None:
            return file.read_bytes() if file.exists() else b""
        # As an older version has left it: nothing tells that it was changed.
        (self.state / "running-config.sum").unlink(missing_ok=True)
        with open(file, "wb", opener=lambda path, flags: os.open(
                path, flags, 0o600)) as out:
            out.write(content)
        return content

    def staged(self):
        """The files that copies have staged now, by their names."""
        return {each.name: each for each in self.staging.glob("*/*")}

    def nothing_staged(self):
        """Waits until the folders of ended copies are gone; sees no other. A
        shell that a killed process was just starting holds its folder, until
        the agent looks again."""
        self.idle()
        wait_for(lambda: os.listdir(self.staging) == [], "the staged files to go")

    def own_programs(self):
        """Before the start: /brim/bin is a folder of the agent's own."""
        root = self.folder / "root"
        (root / "brim/bin").mkdir(parents=True)
        for each in (BUILD / "root/brim/bin").iterdir():
            (root / "brim/bin" / each.name).symlink_to(each)
        self.settings["root"] = root

    def replace_program(self, name, script):
        """In a folder of its own: the text of a script that is run instead;
        `{real}` in it is the program's own path."""
        program = self.settings["root"] / "brim/bin" / name
        program.unlink()
        program.write_text(script.replace(
            "{real}", str(BUILD / "root/brim/bin" / name)))
        program.chmod(0o755)

    def accounting(self):
        file = self.state / "accounting.log"
        return file.read_text().splitlines() if file.exists() else []

    def ended(self, index, seconds=60):
        """Waits for the end of a copy and returns its state."""
        def state():
            now = self.station.get("xfCopyState", index)
            return now if now in (SUCCESSFUL, FAILED) else None
        end = wait_for(state, f"the end of copy {index}", seconds)
        explained = end == FAILED and self.explains
        self.why = reasons.note_failure(self, index) if explained else ()
        return end

    def succeeds(self, index, seconds=60):
        assert self.ended(index, seconds) == SUCCESSFUL, \
            f"fail cause {self.station.get('xfCopyFailCause', index)}"

    def fails(self, index, seconds=60):
        """Waits for the failure of a copy and returns its cause."""
        assert self.ended(index, seconds) == FAILED
        return self.station.get("xfCopyFailCause", index)

    def idle(self):
        """Waits until no copy process is left."""
        wait_for(lambda: not children_of(self.pid), "copy processes to end")

    def open_files(self):
        """How many it keeps open: some are there for a moment only, as while the
        history is synced."""
        looks = []
        for _ in range(10):
            looks.append(len(os.listdir(f"/proc/{self.pid}/fd")))
            time.sleep(0.03)
        return min(looks)

    def resident_kib(self):
        with open(f"/proc/{self.pid}/status") as status:
            line = next(each for each in status if each.startswith("VmRSS"))
        return int(line.split()[1])

    def close(self):
        """Ends the agent and looks for what it has left behind."""
        try:
            assert self.running(), "the agent ended by itself"
            self.nothing_staged()
            # The agent's own socket and that of its requests.
            own = ("sap.28", f"q.{self.pid}.")
            assert all(each.startswith(own) for each in self.sockets())
        finally:
            status = self.stop()
            print(f"--- snmpd, status {status}\n{self.log}")
        assert status == 0
        assert self.sockets() == []
        # It has been nowhere but where it was told to be.
        assert self.home == self.state or os.listdir(self.home) == []

    def sockets(self):
        return [each.name for each in self.run_directory.iterdir()
                if each.is_socket()]


class TftpServer(Program):
    """in.tftpd on a folder of its own. Only root can give it its root."""

    def __init__(self, folder, agent, address="127.0.0.2", options=("-c",),
                 user="nobody"):
        super().__init__(f"in.tftpd of {address}", folder / "tftpd.log")
        self.files = folder / "files"
        self.files.mkdir()
        self.files.chmod(0o777)
        folder.chmod(0o755)
        self.address = address
        host = f"[{address}]" if ":" in address else address
        self.run(["/usr/sbin/in.tftpd", "-L", "-a", f"{host}:{agent.tftp_port}",
                  "-u", user, "-s", *options, str(self.files)],
                 as_root=True)
        wait_for(lambda: taken(address, agent.tftp_port), self.name)

    def stop(self):
        # It has processes of its own that linger after a transfer.
        for child in children_of(self.pid) if self.running() else []:
            self.signal(signal.SIGKILL, child)
        return super().stop()

    def offer(self, name, content):
        file = self.files / name
        file.write_bytes(content)
        file.chmod(0o644)
        return content

    def content(self, name):
        return (self.files / name).read_bytes()


class TrapReceiver(Program):
    """snmptrapd; `received` are the notifications as lists of varbinds."""

    def __init__(self, folder, configuration="disableAuthorization yes\n"):
        super().__init__("snmptrapd", folder / "snmptrapd.log")
        self.port = free_port()
        (folder / "snmptrapd.conf").write_text(configuration)
        self.run(["snmptrapd", "-f", "-Lo", "-C", "-c",
                  str(folder / "snmptrapd.conf"), "-n", "-m", "", "-OnqxtU",
                  "-F", "trap|%V|%v\\n",
                  f"udp:127.0.0.1:{self.port}"],
                 env={**os.environ, "MIBS": "", "SNMPCONFPATH": str(folder),
                      "SNMP_PERSISTENT_DIR": str(folder / "trap-persistent")})
        wait_for(lambda: taken("127.0.0.1", self.port), "snmptrapd")

    @property
    def received(self):
        lines = [line.partition("|")[2] for line in self.log.splitlines()
                 if line.startswith("trap|")]
        return [[varbind.partition(" ")[::2] for varbind in line.split("|")]
                for line in lines]
