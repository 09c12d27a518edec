"""The programs that move files, run by themselves."""

import os
import subprocess

import lab
from tools import clean_environment
from transfer_servers import PASSWORD, USER

(DONE, TIMEOUT, BAD_NAME, NO_SPACE, LOGIN, HOST_KEY, CONNECTION, USAGE,
 OTHER) = range(9)
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

    @property
    def environment(self):
        return clean_environment(self.settings)

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
        done = subprocess.run(
            [*self.prefix, BIN / program, *arguments], cwd=self.folder,
            env=self.environment, stdin=subprocess.DEVNULL,
            capture_output=True, timeout=60)
        self.said = (done.stdout + done.stderr).decode(errors="replace")
        assert not self.password or self.password not in self.said
        assert not [each for each in os.listdir(self.folder)
                    if each.startswith(".transfer-")]
        return done.returncode

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
