"""Processes, ports and waiting, for everything the tests start."""

import itertools
import os
import signal
import socket
import struct
import subprocess
import time


def clean_environment(settings=()):
    """That of the programs under test: these settings, and none of what the
    tests themselves are told, which would be unknown settings there."""
    return {**{name: value for name, value in os.environ.items()
               if not name.startswith("XF_")},
            **{f"XF_{key.upper()}": str(value)
               for key, value in dict(settings).items()}}


def can_run(wrapper):
    """Whether programs can be run behind these words."""
    return subprocess.run([*wrapper, "true"],
                          capture_output=True).returncode == 0


def mounted(what):
    """Words that run a program in a mount namespace of its own, after `what`
    has mounted something there."""
    return ["unshare", "-m", "sh", "-c", what + ' && cd "$PWD" && exec "$@"',
            "sh"]


def wait_for(condition, what, seconds=20):
    """Polls until `condition` gives something true, and returns that. Less often
    what takes long: a look is often a program, and other tests run beside."""
    began = time.monotonic()
    while True:
        result = condition()
        if result:
            return result
        waited = time.monotonic() - began
        assert waited < seconds, f"waited {seconds} s for {what}"
        time.sleep(min(max(0.01, waited / 10), 0.2))


def hundred_of_our_own():
    """A hundred ports below those that the system gives to clients, which come
    and go. A socket whose name says which is there as long as this process:
    another one would ask an agent here that took a dead one's port there."""
    for each in range(120):
        number = (os.getpid() + each) % 120
        claim = socket.socket(socket.AF_UNIX)
        try:
            claim.bind(f"\0ports-of-tests-{number}")
            return claim, range(20000 + number * 100, 20100 + number * 100)
        except OSError:
            claim.close()
    raise AssertionError("no free ports: too many processes of tests")


_claim, _own = hundred_of_our_own()
_ports = itertools.cycle(_own)


def free_port():
    """A UDP port that is free on every local address."""
    for port in itertools.islice(_ports, 100):
        addresses = ["0.0.0.0"] + (["::"] if ipv6_loopback() else [])
        if not any(taken(address, port) for address in addresses):
            return port
    raise AssertionError("no free port")


def ipv6_loopback():
    try:
        with socket.socket(socket.AF_INET6, socket.SOCK_DGRAM) as probe:
            probe.bind(("::1", 0))
        return True
    except OSError:
        return False


def taken(address, port, network="self"):
    """Whether some UDP socket has the port of an address, in the network of a
    process. Only looks: who tries it out takes it from a server that is about
    to start."""
    family, table, every = (socket.AF_INET6, "udp6", "::") \
        if ":" in address else (socket.AF_INET, "udp", "0.0.0.0")

    def shown(text):
        words = struct.iter_unpack("=I", socket.inet_pton(family, text))
        return "".join(f"{word:08X}" for word, in words) + f":{port:04X}"
    with open(f"/proc/{network}/net/{table}") as sockets:
        local = {line.split()[1] for line in sockets}
    if address == every:
        return any(each.endswith(f":{port:04X}") for each in local)
    return bool(local & {shown(address), shown(every)})


def children_of(pid):
    """The ids of the processes whose parent is `pid`, zombies included."""
    found = []
    for entry in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{entry}/stat") as stat:
                parent = stat.read().rpartition(")")[2].split()[1]
        except OSError:
            continue
        if int(parent) == pid:
            found.append(int(entry))
    return found


class Program:
    """A server of the tests' own. What it prints is kept for the report."""

    def __init__(self, name, log):
        self.name = name
        self.log_path = log
        self.process = None

    def run(self, command, as_root=False, **options):
        self.sudo = as_root and os.getuid() != 0
        with open(self.log_path, "ab") as log:
            self.process = subprocess.Popen(
                (["sudo", "-n"] if self.sudo else []) + command,
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, **options)

    @property
    def pid(self):
        return self.process.pid

    @property
    def log(self):
        with open(self.log_path, errors="replace") as log:
            return log.read()

    def running(self):
        return self.process is not None and self.process.poll() is None

    def signal(self, number, pid=None):
        """To the process, or to one that it has started."""
        pid = pid or self.pid
        if self.sudo:
            subprocess.run(["sudo", "-n", "kill", f"-{int(number)}", str(pid)])
        else:
            try:
                os.kill(pid, number)
            except ProcessLookupError:
                pass  # it has just ended

    def stop(self):
        """Ends it and returns its exit status; kills what does not end."""
        if self.process is None:
            return None
        if self.running():
            self.signal(signal.SIGTERM)
        try:
            status = self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.signal(signal.SIGKILL)
            status = self.process.wait()
        self.process = None
        return status
