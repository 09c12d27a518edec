"""README's chapter "By hand", as somebody types it: in a network of its own,
where port 1161 is free and the server is there, by the numbers that it names."""

import os
import pathlib
import signal
import subprocess
import sys

import pytest

from documents import TOP, chapter, fill

sys.path.insert(0, str(TOP / "tests/agent"))
from snmp import SUCCESSFUL, Station  # noqa: E402
from tools import Program, can_run, clean_environment, wait_for  # noqa: E402

BUILD = pathlib.Path(os.environ["XF_TEST_BUILD"])
SERVER, AGENT = "192.0.2.1", "127.0.0.1:1161"
# Its snmpd keeps what it has to keep elsewhere.
NETWORK = f"""\
mount -t tmpfs none /var/lib/snmp && ip link set lo up &&
ip address add {SERVER}/32 dev lo && echo ready && exec sleep 600
"""


class Network:
    """A network and a mount namespace; what is started here ends with it."""

    def __init__(self, folder):
        self.folder = folder
        self.started = []
        holder = self.start("network", ["unshare", "-n", "-m", "sh", "-c",
                                        NETWORK])
        wait_for(lambda: "ready" in holder.log, "the network")
        self.enter = ["nsenter", "-t", str(holder.pid), "-n", "-m"]

    def start(self, name, command, **options):
        program = Program(name, self.folder / f"{name}.log")
        program.run(command, start_new_session=True, **options)
        self.started.append(program)
        return program

    def environment(self):
        """A patient station: the machine may be busy."""
        (self.folder / "snmp.conf").write_text("timeout 20\n")
        return {**clean_environment(), "MANPAGER": "cat",
                "SNMPCONFPATH": str(self.folder)}

    def shell(self, text):
        return [*self.enter, f"--wd={TOP}", "bash", "-ec", text]

    def run(self, text):
        done = subprocess.run(self.shell(text), env=self.environment(),
                              capture_output=True, text=True, timeout=120)
        assert done.returncode == 0, (text, done)
        return done.stdout

    def serve(self, name, text):
        return self.start(name, self.shell(text), env=self.environment())

    def close(self):
        for each in reversed(self.started):
            if each.running():
                os.killpg(each.pid, signal.SIGTERM)
            each.stop()
            print(f"--- {each.name}\n{each.log}")


class Names(Station):
    """It asks from within the network."""

    def __init__(self, network):
        super().__init__(AGENT)
        self.network = network

    def run(self, tool, *arguments, seconds=120):
        return subprocess.run(
            [*self.network.enter, tool, *self.who, "-r", "0", "-t", "20",
             "-On", *arguments], check=True, capture_output=True, text=True,
            timeout=seconds).stdout


@pytest.fixture
def network(tmp_path):
    if os.environ["XF_TEST_SANITIZED"] == "1":
        pytest.skip("a stock snmpd does not load what is sanitized")
    if not can_run(["unshare", "-n", "-m"]):
        pytest.skip("no namespaces can be had here")
    network = Network(tmp_path)
    yield network
    network.close()


def serve_tftp(network, folder):
    folder.mkdir()
    folder.chmod(0o777)
    for each in folder.parents[:4]:
        each.chmod(each.stat().st_mode | 0o011)
    network.serve("tftpd", f"exec in.tftpd --foreground --create --secure "
                           f"--address {SERVER}:69 {folder}")


def test_by_hand(network, tmp_path):
    def text(command):
        return fill(command, FOLDER=tmp_path / "xf", BUILD=BUILD)
    station = Names(network)
    serve_tftp(network, tmp_path / "server")
    with chapter("README.md", "By hand") as told:
        network.serve("agent", text(told.take("mkdir")))
        network.run(f"until snmpget -v2c -c private -r 0 -t 1 {AGENT} "
                    "1.3.6.1.2.1.1.3.0; do sleep 0.1; done")
        names = told.take("export MIBS"), told.take("snmpset")
        if not (TOP / ".cache/mibs").exists():
            pytest.skip("the base MIB modules are not there: no names")
        shown = network.run(text("\n".join(names)))
        assert "xfCopySourceFileType.1" in shown
        for row in (1, 2):
            wait_for(lambda r=row: station.get("xfCopyState", r) == SUCCESSFUL,
                     f"row {row}", 60)
        sent = tmp_path / "server/switch.cfg"
        assert sent.read_text() == "hostname one\n"
        sent.unlink()
        assert "xfcopy" in network.run(told.take("man"))
        network.run(text(told.take("build")))
        assert sent.read_text() == "hostname one\n"
