"""The programs that move files, run by themselves."""

import hashlib
import os
import re
import subprocess

import lab
from reasons import says_nothing
from reports import begin_report, read_report
from tools import clean_environment
from transfer_servers import PASSWORD, USER

(DONE, TIMEOUT, BAD_NAME, NO_SPACE, LOGIN, HOST_KEY, CONNECTION, USAGE,
 OTHER) = range(9)
STEPS = ("Checking the (request|host key of )|Entering the VRF|Reading the file "
         "to send|Connecting to |Logging in as |(Sending|Fetching) |Storing ")
BIN = lab.BUILD / "root/brim/bin"


class Client:
    """Runs the programs in a folder of its own."""

    def __init__(self, folder):
        self.folder = folder / "staging"
        self.state = folder / "state"
        for each in (self.folder, self.state):
            each.mkdir(mode=0o700, exist_ok=True)
        self.settings = {"state_directory": self.state, "login_seconds": 20,
                         "transfer_seconds": 40}
        self.prefix = []
        self.password = PASSWORD
        self.said = ""
        self.report = {}
        self.failures = []  # program and exit code of each, and its report
        self.report_file = folder / "report"

    @property
    def environment(self):
        return clean_environment(self.settings) | {
            "XF_COPY_REPORT": str(self.report_file)}

    @property
    def reason(self):
        return self.report.get("reason", "")

    def trust(self, server, line=None):
        (self.state / "known_hosts").write_text(line or server.known_host)

    def reach(self, protocol, server):
        key = "ftp_port" if protocol == "ftp" else "ssh_port"
        self.settings[key] = server.port
        if protocol != "ftp" and hasattr(server, "known_host"):
            self.trust(server)

    def begin(self, program, *arguments):
        return subprocess.Popen(
            [*self.prefix, BIN / program, *arguments], cwd=self.folder,
            env=self.environment, stdin=subprocess.DEVNULL,
            stderr=subprocess.PIPE)

    def run(self, program, *arguments):
        begin_report(self.report_file)
        done = subprocess.run(
            [*self.prefix, BIN / program, *arguments], cwd=self.folder,
            env=self.environment, stdin=subprocess.DEVNULL,
            capture_output=True, timeout=60)
        self.said = (done.stdout + done.stderr).decode(errors="replace")
        assert not self.password or self.password not in self.said
        assert not [each for each in os.listdir(self.folder)
                    if each.startswith(".transfer-")]
        if str(program).endswith((".expect", "tftp")):
            self.check_report(done.returncode)
            if done.returncode != DONE:
                self.failures.append((program, done.returncode, self.report))
        return done.returncode

    def told(self, *parts):
        for part in parts:
            assert part in self.reason, self.reason

    def moved(self, content):
        assert self.report["octets"] == len(content)
        assert self.report["sha256"] == hashlib.sha256(content).hexdigest()

    def check_report(self, code):
        """Each failure has a reason that names a step, and an advice."""
        self.report = read_report(self.report_file)
        assert len(self.password) < 2 or \
            self.password not in self.report_file.read_text()
        assert (code != DONE) == bool(self.reason)
        if code == DONE:
            assert len(self.report["sha256"]) == 64
            return
        assert re.match(STEPS, self.reason), self.reason
        assert not says_nothing(self.reason)
        assert self.report["advice"]

    def put(self, protocol, local, remote, server="127.0.0.2", vrf=()):
        remote = os.fsencode(remote)
        if protocol == "ftp":
            return self.run("snmp.ftp.expect", server, local, remote, USER,
                            self.password, "put", *vrf)
        if protocol == "sftp":
            return self.run("sftp.expect", server, USER, self.password, "put",
                            local, remote, *vrf)
        return self.run("scp.expect", local,
                        f"{USER}@{server}:".encode() + remote, self.password,
                        *vrf)

    def get(self, protocol, remote, local, server="127.0.0.2", vrf=()):
        remote = os.fsencode(remote)
        if protocol == "ftp":
            return self.run("snmp.ftp.expect", server, remote, local, USER,
                            self.password, "get", *vrf)
        if protocol == "sftp":
            return self.run("sftp.expect", server, USER, self.password, "get",
                            remote, local, *vrf)
        return self.run("scp.expect", f"{USER}@{server}:".encode() + remote,
                        local, self.password, *vrf)

    def stage(self, content, name=b"local.cfg"):
        path = os.path.join(os.fsencode(self.folder), name)
        with open(path, "wb") as file:
            file.write(content)
        return path

    def staged(self):
        found = {}
        for name in os.listdir(os.fsencode(self.folder)):
            with open(os.path.join(os.fsencode(self.folder), name),
                      "rb") as file:
                found[name] = file.read()
        return found


def processes_in(folder):
    """The ids of the processes that work in a folder."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.readlink(f"/proc/{pid}/cwd") == str(folder):
                found.append(int(pid))
        except OSError:
            continue
    return found


def peak_kib(pid):
    """The most memory that a process has had; 0 if it has gone."""
    try:
        with open(f"/proc/{pid}/status") as status:
            return next((int(line.split()[1]) for line in status
                         if line.startswith("VmHWM")), 0)
    except OSError:
        return 0
