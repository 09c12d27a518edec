"""Twenty agents and the play of contrib/ansible: one is down, one busy, one
refuses, and the others are backed up all the same."""

import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import shutil
import socket
import subprocess
import sys
import textwrap

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "agent"))
from lab import BUILD, Agent, TftpServer  # noqa: E402
from snmp import IN_PROGRESS, go, upload  # noqa: E402
from tools import free_port  # noqa: E402

CONTRIB = pathlib.Path(__file__).resolve().parents[2] / "contrib/ansible"
CALLBACKS = pathlib.Path(__file__).parent / "callbacks"
README = (CONTRIB / "README.md").read_text()

DONE = [f"sw{number}" for number in range(1, 18)]
DOWN, BUSY, REFUSING = "down", "busy", "refusing"
FTP = 2

# With what has a meaning in snmp.conf.
PASSPHRASES = {"copier_auth_password": 'say "one" \\ two',
               "copier_privacy_password": "#passphrase 2"}

# The passwords are not locked up here: nobody is asked for that one.
COMMAND = shlex.split(re.search(r"^    (ansible-playbook .*)", README, re.M)[1])
COMMAND.remove("--ask-vault-pass")

pytestmark = pytest.mark.skipif(
    not shutil.which("ansible-playbook"), reason="ansible-core is not there")


def block(name):
    """What stands in README under the name of a file."""
    found = re.search(rf"^`{name}`[^\n]*\n(?:[^ \n][^\n]*\n)*\n((?:    .*\n|\n)+)",
                      README, re.M)
    return textwrap.dedent(found[1])


def users(access):
    words = [each.replace("\\", "\\\\").replace('"', '\\"')
             for each in PASSPHRASES.values()]
    return (f'createUser copier SHA-256 "{words[0]}" AES "{words[1]}"\n'
            f"{access} copier priv\n")


class Fleet:
    def __init__(self, folder):
        self.folder = folder
        self.agents = {}
        for name in [*DONE, BUSY, REFUSING]:
            (folder / name).mkdir()
            self.agents[name] = Agent(
                folder / name, users("rouser" if name == REFUSING else "rwuser"))
            self.agents[name].settings["tftp_port"] = \
                self.agents["sw1"].tftp_port
        self.peers = {name: f"127.0.0.1:{each.port}"
                      for name, each in self.agents.items()}
        self.peers[DOWN] = f"127.0.0.1:{free_port()}"
        (folder / "server").mkdir()
        self.server = None
        self.slow = socket.create_server(("127.0.0.3", 0))
        self.agents[BUSY].settings |= {
            "ftp_port": self.slow.getsockname()[1], "login_seconds": 300}

    def start(self):
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            list(pool.map(Agent.start, self.agents.values()))
        for name, agent in self.agents.items():
            agent.running_config(f"hostname {name}\n".encode())
        self.server = TftpServer(self.folder / "server", self.agents["sw1"])
        self.write_files()

    def close(self):
        self.slow.close()
        for agent in self.agents.values():
            agent.stop()
        if self.server:
            self.server.stop()

    def write_files(self):
        (self.folder / "switches.ini").write_text("[switches]\n" + "".join(
            f"{name} ansible_host={peer}\n"
            for name, peer in self.peers.items()))
        (self.folder / "backup.yml").write_text(block("backup.yml"))
        (self.folder / "passwords.yml").write_text(json.dumps(PASSPHRASES))

    def ansible(self, *command):
        shutil.rmtree(self.folder / "results", ignore_errors=True)
        (self.folder / "results").mkdir()
        environment = {
            "PATH": f"{BUILD / 'xfcopy'}:{os.environ['PATH']}",
            "HOME": str(self.folder), "LC_ALL": "C.UTF-8",
            "SNMP_PERSISTENT_DIR": str(self.folder / "snmp-state"),
            "ANSIBLE_COLLECTIONS_PATH": str(CONTRIB), "ANSIBLE_NOCOLOR": "1",
            "ANSIBLE_HOME": str(self.folder / "ansible"),
            "ANSIBLE_REMOTE_TEMP": str(self.folder / "ansible/tmp"),
            "ANSIBLE_CALLBACK_PLUGINS": str(CALLBACKS),
            "RESULTS": str(self.folder / "results"),
            "ASAN_OPTIONS": "detect_leaks=0"}
        done = subprocess.run(
            command, cwd=self.folder, env=environment, stdin=subprocess.DEVNULL,
            capture_output=True, text=True, errors="replace", timeout=100)
        print(done.stdout, done.stderr)
        self.hides_passwords(done)
        return done

    def hides_passwords(self, done):
        told = done.stdout + done.stderr + "".join(
            each.read_text() for each in self.results().values())
        for password in (*PASSPHRASES.values(), "Zq7-never-seen"):
            assert password not in told
            assert json.dumps(password)[1:-1] not in told

    def results(self):
        return {each.name: each
                for each in (self.folder / "results").iterdir()}

    def play(self, *words, **variables):
        """The status of the play of README, and the result of each switch."""
        variables = {
            "backup_url": "tftp://127.0.0.2/{{ inventory_hostname }}.cfg",
            "backup_wait_busy": 1, "backup_records": str(self.folder / "done"),
            **variables}
        done = self.ansible(*COMMAND, "-e", json.dumps(variables), *words)
        results = {name: json.loads(file.read_text())
                   for name, file in self.results().items()}
        return done, results

    def module(self, *words, **options):
        """The module alone, for the first switch."""
        return self.ansible(
            "ansible", "localhost", *words, "-m", "xf.switch.config_copy",
            "-a", json.dumps({"agent": self.peers["sw1"], **options}))

    def sent(self, name):
        file = self.server.files / f"{name}.cfg"
        return file.read_bytes() if file.exists() else None


@pytest.fixture(scope="module")
def fleet(tmp_path_factory):
    made = Fleet(tmp_path_factory.mktemp("fleet"))
    try:
        made.start()
        yield made
    finally:
        made.close()


def test_check_mode_copies_nothing(fleet):
    """Nor can it tell who may only read."""
    done, results = fleet.play("--check", "--limit", f"sw1,{REFUSING}")
    assert done.returncode == 0
    for name in ("sw1", REFUSING):
        assert results[name]["changed"] and results[name]["outcome"] == "check"
        assert fleet.sent(name) is None
        assert fleet.agents[name].station.rows() == []


def test_check_mode_finds_an_unknown_user(fleet):
    done = fleet.module("--check", destination="startup", version=3,
                        user="nobody", level="noAuthNoPriv")
    assert done.returncode == 2 and '"outcome": "access"' in done.stdout


def keep_busy(fleet):
    """With a copy that a server never answers."""
    station = fleet.agents[BUSY].station
    station.set(go(upload(1, "slow.cfg", "127.0.0.3", xfCopyProtocol=FTP,
                          xfCopyUserName="joe", xfCopyUserPassword="x")))
    assert station.get("xfCopyState", 1) == IN_PROGRESS


def says_what_came_of_each(done, results):
    _, said = done.stdout.split("TASK [Say what came of it]")
    for name, result in results.items():
        words = json.dumps(f'{result["outcome"]}. {result.get("msg", "")}')
        assert re.search(rf"ok: \[{name}\] => {{\s*\"msg\": {re.escape(words)}",
                         said), name


def test_one_play(fleet):
    keep_busy(fleet)
    done, results = fleet.play("-vvv")
    assert done.returncode == 2  # some have failed
    for name in DONE:
        assert results[name]["changed"] and results[name]["outcome"] == "done"
        assert fleet.sent(name) == f"hostname {name}\n".encode()
        assert fleet.agents[name].station.rows() == []
    for name, outcome, words in ((DOWN, "no-answer", "did not answer|does not"),
                                 (BUSY, "busy", "another copy"),
                                 (REFUSING, "access", "user")):
        assert results[name]["outcome"] == outcome
        assert not results[name]["changed"]
        assert re.search(words, results[name]["msg"]), results[name]
        assert fleet.sent(name) is None
    assert set(results) == set(fleet.peers) and len(results) == 20
    says_what_came_of_each(done, results)
    fleet.slow.close()
    fleet.agents[BUSY].fails(1)


def test_the_next_play_does_what_is_left(fleet):
    """After the first one: what has failed, what was done long ago, and what
    was another copy."""
    records = fleet.folder / "done"
    os.utime(records / "sw2", (0, 0))
    shutil.copy(records / "sw1", records / "sw3")
    again = {"sw2", "sw3", BUSY}
    for name in {"sw1", *again} - {BUSY}:
        (fleet.server.files / f"{name}.cfg").unlink()
    done, results = fleet.play("--limit", f"sw1,{','.join(again)}")
    assert done.returncode == 0
    assert results["sw1"]["outcome"] == "fresh"
    assert not results["sw1"]["changed"] and fleet.sent("sw1") is None
    for name in again:
        assert results[name]["outcome"] == "done" and results[name]["changed"]
        assert fleet.sent(name) == f"hostname {name}\n".encode()


def test_what_came_of_it_is_said_when_all_fail(fleet):
    done, results = fleet.play("--limit", f"{DOWN},{REFUSING}")
    assert done.returncode == 2
    assert {name: each["outcome"] for name, each in results.items()} == \
        {DOWN: "no-answer", REFUSING: "access"}
    says_what_came_of_each(done, results)


def test_without_options_snmp_conf_counts(fleet):
    play, found = re.subn(r"\n    backup_snmp:(\n      .*)+", "",
                          block("backup.yml"))
    assert found == 1
    (fleet.folder / "backup.yml").write_text(play)
    (fleet.folder / ".snmp").mkdir()
    (fleet.folder / ".snmp/snmp.conf").write_text(
        "defVersion 2c\ndefCommunity private\n")
    done, results = fleet.play("--limit", "sw4", backup_records="")
    assert done.returncode == 0 and results["sw4"]["outcome"] == "done"


def test_a_password_for_the_server(fleet):
    done = fleet.module("-vvv", destination="ftp://joe@127.0.0.2/x",
                        password="Zq7-never-seen", version="2c",
                        community="private")
    assert done.returncode == 2
    assert '"outcome": "failed"' in done.stdout
    assert "FTP sends the password" in done.stdout + done.stderr


def test_wrong_options_are_told(fleet):
    done = fleet.module(destination="nowhere")
    assert done.returncode == 2
    assert "nowhere" in done.stdout and "Traceback" not in done.stdout
