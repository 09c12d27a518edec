"""The system manager, and a fabric of switches that are reached over SSH."""

import os
import pathlib
import pwd
import shlex
import signal
import socket
import subprocess

import lab
from tools import Program, clean_environment, wait_for

PROCD = lab.BUILD / "root/brim/bin/procd"
SSHD = "/usr/sbin/sshd"


class Procd(Program):
    """procd of an agent: the same settings, the same folders."""

    def __init__(self, folder, settings):
        super().__init__("procd", folder / "procd.log")
        self.settings = settings
        self.wrapper = []
        self.killed = False

    def start(self):
        before = self.log.count("ready") if self.log_path.exists() else 0
        self.run([*self.wrapper, str(PROCD)],
                 env=clean_environment(self.settings))
        wait_for(lambda: self.log.count("ready") > before or
                 not self.running(), "procd")
        assert self.running(), self.log
        self.killed = False
        return self

    def kill(self):
        """Without a chance to tidy up."""
        self.signal(signal.SIGKILL)
        self.stop()
        self.killed = True

    def close(self):
        status = self.stop()
        print(f"--- procd, status {status}\n{self.log}")
        assert status in (0, None)


class SavingAgent(lab.Agent):
    """An agent with its manager. It keeps the socket on which answers to its
    requests come."""

    def __init__(self, folder, *arguments, **settings):
        super().__init__(folder, *arguments, **settings)
        self.manager = Procd(folder, self.settings)

    def sockets(self):
        def expected(name):
            if name in ("sap.3", "sap.46"):
                return self.manager.killed
            return self.running() and name.startswith(f"q.{self.pid}.")
        return [each for each in super().sockets() if not expected(each)]


def make_key(path):
    subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C",
                    path.name, "-f", str(path)], check=True)
    return path


def free_tcp_port():
    with socket.socket() as probe:
        probe.bind(("", 0))
        return probe.getsockname()[1]


def accepts(address, port):
    with socket.socket() as probe:
        probe.settimeout(1)
        return probe.connect_ex((address, port)) == 0


class Switch(Program):
    """An sshd on an address of its own, with a host key of its own, that runs
    one command for whoever has the key."""

    def __init__(self, folder, number, name, command, authorized):
        super().__init__(f"sshd of {name}", folder / "sshd.log")
        self.log_path.touch()
        self.folder = folder
        self.switch_name = name
        self.address = f"127.0.0.{20 + number}"
        self.wwn = f"10:00:00:05:1e:34:01:{number:02x}"
        self.port = free_tcp_port()
        self.host_key = make_key(folder / "host_key")
        self.command = command
        (folder / "authorized").write_bytes(
            authorized.with_suffix(".pub").read_bytes())
        (folder / "authorized").chmod(0o600)

    def start(self):
        script = self.folder / "command"
        script.write_text(f"#!/bin/sh\n{self.command}\n")
        script.chmod(0o755)
        configuration = self.folder / "sshd_config"
        configuration.write_text(f"""\
ListenAddress {self.address}:{self.port}
HostKey {self.host_key}
AuthorizedKeysFile {self.folder}/authorized
PidFile none
StrictModes no
UsePAM no
PasswordAuthentication no
KbdInteractiveAuthentication no
PermitRootLogin prohibit-password
ForceCommand {script}
""")
        # The server wants to be called by its whole path, and, as root, a
        # folder to lock its helpers in.
        if os.getuid() == 0:
            pathlib.Path("/run/sshd").mkdir(mode=0o755, exist_ok=True)
        self.run([SSHD, "-D", "-e", "-f", str(configuration)])
        wait_for(lambda: accepts(self.address, self.port) or
                 not self.running(), self.name)
        assert self.running(), self.log
        return self

    def known_as(self):
        key = self.host_key.with_suffix(".pub").read_text().split()[:2]
        return f"[{self.address}]:{self.port} {' '.join(key)}\n"

    def line(self):
        return (f"switch {self.switch_name} wwn {self.wwn} "
                f"address {self.address} port {self.port} "
                f"user {pwd.getpwuid(os.getuid()).pw_name}\n")

    def close(self):
        self.stop()
        print(f"--- {self.name}\n{self.log}")


def saving_command(root, state):
    """What another switch does: its own shell on its own state directory."""
    qsh = lab.BUILD / "root/brim/bin/qsh"
    return (f"test \"$SSH_ORIGINAL_COMMAND\" = {shlex.quote(COMMAND)} || "
            f"exit 9\n"
            f"XF_ROOT={shlex.quote(str(root))} "
            f"XF_STATE_DIRECTORY={shlex.quote(str(state))} "
            f"exec {shlex.quote(str(qsh))} -c "
            f"'copy running-config startup-config'")


COMMAND = "/brim/bin/qsh -c 'copy running-config startup-config'"


class Fabric:
    """This switch and others, in a file for the settings."""

    def __init__(self, folder):
        self.folder = folder
        self.key = make_key(folder / "fabric_key")
        self.switches = []
        self.file = folder / "fabric.conf"
        self.known_hosts = folder / "known_hosts"
        self.unknown = set()
        self.write()

    def add(self, name, command=None, key=None):
        """A switch whose command is that of a real one, or `command`."""
        folder = self.folder / name
        folder.mkdir()
        state = folder / "state"
        state.mkdir(mode=0o700)
        config = state / "running-config"
        config.write_text(f"hostname {name}\n")
        config.chmod(0o600)
        switch = Switch(folder, len(self.switches) + 1, name,
                        command or saving_command(lab.BUILD / "root", state),
                        key or self.key)
        switch.state = state
        self.switches.append(switch)
        self.write()
        return switch

    def write(self):
        self.file.write_text(
            "switch here wwn 10:00:00:05:1e:34:01:00 address 127.0.0.1 local\n"
            + "".join(each.line() for each in self.switches))
        self.file.chmod(0o600)
        self.known_hosts.write_text("".join(
            each.known_as() for each in self.switches
            if each not in self.unknown))

    def settings(self, **more):
        return {"fabric_file": self.file, "fabric_key_file": self.key,
                "fabric_known_hosts": self.known_hosts,
                "fabric_command": COMMAND,
                "fabric_connect_seconds": 2, "fabric_switch_seconds": 4,
                "management_interface": "lo", **more}

    def close(self):
        for each in self.switches:
            each.close()
