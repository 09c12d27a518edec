"""docs/guide.md, chapter by chapter as somebody types it, with two switches, a
server and a station on loopback. The switch's package is tests/package's."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

import pytest

TOP = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP / "tests/docs"))
import lab  # noqa: E402
from command import COPY_FAILED, DONE  # noqa: E402
from documents import chapter, fill, lines_of  # noqa: E402
from manager import SavingAgent  # noqa: E402
from saves import startup  # noqa: E402
from tools import Program, free_port, taken, wait_for  # noqa: E402
from transfer_servers import PASSWORD, USER, Servers, needs_servers  # noqa: E402

V3_ONLY = (TOP / "docs/snmpd-v3-only.conf").read_text()
RUNNING_TEXT = b"hostname sw1\nvlan 7\n"

pytestmark = needs_servers


class Network:
    """What the guide has numbers for, and the home of its reader."""

    def __init__(self, folder):
        self.home = folder
        self.servers = Servers()
        self.server = self.servers.ssh()
        self.address = f"127.0.0.1:{free_port()}"  # of the first switch
        self.traps = free_port()
        self.switches = []

    def add_switch(self, name, user):
        """With the user that the guide makes."""
        (self.home / name).mkdir()
        switch = SavingAgent(self.home / name, f"{user}\n{V3_ONLY}",
                             ssh_port=self.server.port)
        self.switches.append(switch)
        (switch.state / "known_hosts").write_text(self.server.known_host)
        switch.start().running_config(f"hostname {name}\nvlan 7\n".encode())
        switch.manager.start()
        return switch

    def text(self, told):
        return fill(told, SERVER="127.0.0.2", SWITCH=self.address,
                    SECOND=f"127.0.0.1:{self.switches[-1].port}",
                    STATION=f"127.0.0.1:{self.traps}", SNMP=self.home,
                    TRAPS=f"udp:127.0.0.1:{self.traps}", USER=USER,
                    PASSWORD=f"'{PASSWORD}'")

    def environment(self):
        return {"PATH": f"{lab.BUILD / 'xfcopy'}:{os.environ['PATH']}",
                "HOME": str(self.home), "LC_ALL": "C.UTF-8", "MIBS": "",
                "SNMP_PERSISTENT_DIR": str(self.home / "snmp-state"),
                "ANSIBLE_COLLECTIONS_PATH": str(TOP / "contrib/ansible"),
                "ASAN_OPTIONS": "detect_leaks=0"}

    def run(self, told, status=DONE, shell="bash"):
        """A command of the guide; what it says."""
        done = subprocess.run(
            [shell, "-ec", self.text(told)], cwd=self.home, text=True,
            env=self.environment(), stdin=subprocess.DEVNULL, timeout=60,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        assert done.returncode == status, (told, done.stdout)
        return done.stdout

    def sent(self, name="sw1.cfg"):
        """The file on the server, which is away then."""
        content = self.server.content(name)
        (self.server.files / name).unlink()
        return content

    def close(self):
        for each in self.switches:
            each.manager.close()
            each.close()
        self.servers.stop()


@pytest.fixture(scope="module")
def network(tmp_path_factory):
    made = Network(tmp_path_factory.mktemp("home"))
    yield made
    made.close()


def commands_of_the_package(told):
    """Those of README, which tests/package runs; the line that makes the user."""
    with chapter("README.md", "On a router") as readme:
        install = told.take("apt install")
        built = readme.take("apt build-dep")
        # There the packages come into the folder above.
        assert built[built.index("apt install"):].replace("../", "./", 1) == \
            install
        readme.take("row=")
    return re.search(r"createUser[^']*", install)[0]


def test_the_switch(network):
    with chapter("docs/guide.md", "The switch") as told:
        user = commands_of_the_package(told)
        network.add_switch("sw2", user)
        switch = network.add_switch("sw1", user)
        network.switches.reverse()
        key = told.take("ssh-keygen").replace(
            "/etc/ssh/ssh_host_ed25519_key.pub", f"{network.server.key}.pub")
        assert network.server.fingerprint in network.run(key)
        script, restart = told.take("cat >").rsplit("\n", 1)
    network.run(script)
    with open(switch.configuration, "a") as configuration:
        configuration.write((network.home / "local.conf").read_text())
    assert restart == "systemctl restart snmpd"
    switch.stop()
    switch.start()


def test_the_station(network):
    with chapter("docs/guide.md", "The station") as told:
        told.take("apt install")  # by tests/package
        network.run(told.take("umask"))
        for name in (".snmp/snmp.conf", ".switch-password"):
            assert (network.home / name).stat().st_mode & 0o777 == 0o600
        said = network.run(told.take("xfcopy --password-file"))
        assert said.splitlines()[-1].startswith("copied running to sftp://")
        assert network.sent() == RUNNING_TEXT
        listed, details = lines_of(told.take("xfcopy history"))
        assert "successful" in network.run(listed)
        assert re.search(r"[0-9a-f]{64}", network.run(details))


def test_every_night(network):
    switch = network.switches[0]
    with chapter("docs/guide.md", "Every night") as told:
        line = told.take("17 2")
        command = re.fullmatch(r"[\d]+ [\d]+ \* \* \* ([^%]*)", line)[1]
        assert network.run(command, shell="sh") == ""
        switch.running_config(b"hostname other\nvlan 8\n")
        back, kept = lines_of(told.take("xfcopy"))
        network.run(back)
        assert network.sent() == RUNNING_TEXT
        # It adds and changes.
        assert switch.running_config() == b"hostname sw1\nvlan 8\nvlan 7\n"
        network.run(kept)
        assert startup(switch) == switch.running_config()


def test_when_it_fails(network):
    with chapter("docs/guide.md", "When it fails") as told:
        said = network.run(told.take("xfcopy --password"), COPY_FAILED)
        reason = re.search(r"xfcopy: fetching (.*?); look at", said)[1]
        assert reason in network.run(told.take("xfcopy history"))


def shape(text):
    """The lines of a notification without what is another one each time."""
    text = re.sub(r"(\.2\.1\.2|\.1\.1\.1\.\d+)\.\d+( =|$)", r"\1.N\2", text,
                  flags=re.M)
    text = re.sub(r"(Timeticks|Hex-STRING): .*", r"\1", text)
    return [line for line in text.splitlines() if line.startswith(".1.3")]


def test_notifications(network):
    receiver = Program("snmptrapd", network.home / "traps.log")
    with chapter("docs/guide.md", "Notifications") as told:
        listen = told.take("echo").replace("snmptrapd", "exec snmptrapd")
        receiver.run(["bash", "-ec", network.text(listen)],
                     env=network.environment())
        try:
            wait_for(lambda: taken("127.0.0.1", network.traps), "snmptrapd")
            network.run(told.take("xfcopy --notify"))
            wait_for(lambda: ".1.1.1.13." in receiver.log, "the notification")
        finally:
            receiver.stop()
        assert shape(told.take()) == shape(receiver.log)
    assert network.sent() == network.switches[0].running_config()


def test_the_same_by_hand(network):
    with chapter("docs/guide.md", "The same by hand") as told:
        row, copy, look, destroy = lines_of(told.take())
    switch = network.switches[0]
    network.run(f"{row}\n{copy}")
    wait_for(lambda: "INTEGER: 3\n" in network.run(f"{row}\n{look}"), "the end")
    network.run(f"{row}\n{destroy}")
    assert network.sent() == switch.running_config()
    assert switch.station.rows() == []


@pytest.mark.skipif(not shutil.which("ansible-playbook"),
                    reason="ansible-core is not there")
def test_a_fleet(network):
    with chapter("docs/guide.md", "A fleet") as told:
        play = told.take()
    assert network.run(play).count("failed=0") == 2
    for name in ("sw1", "sw2"):
        assert f"hostname {name}\n".encode() in network.sent(f"{name}.cfg")
    # Once more it has nothing to do.
    assert network.run(play).count("failed=0") == 2
    assert not list(network.server.files.iterdir())


def test_no_password_was_printed_or_left(network):
    """But where the guide has it put."""
    for file in network.home.rglob("*"):
        if file.is_file() and file.name not in (".switch-password", "snmpd.log"):
            assert PASSWORD.encode() not in file.read_bytes(), file
