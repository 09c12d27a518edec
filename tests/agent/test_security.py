"""What docs/security.md promises: who may do what, and who can read what the
platform has written."""

import os
import pathlib
import stat

import pytest

import lab
from snmp import (CREATE_AND_WAIT, DESTROY, ENTRY, NETWORK, ROOT, RUNNING,
                  UNKNOWN, Failure, Station, download, go, name, row, upload)
from tools import wait_for
from transfer_servers import PASSWORD, USER, Servers, needs_servers

EXAMPLE = pathlib.Path(__file__).parents[2] / "docs" / "snmpd-v3-only.conf"
PASSPHRASES = "copier-authentication", "copier-encryption"
USERS = f"""
createUser copier SHA-256 {PASSPHRASES[0]} AES {PASSPHRASES[1]}
createUser master SHA-256 {PASSPHRASES[0]} AES {PASSPHRASES[1]}
rwuser master priv
"""
SFTP, SCP = 5, 4


def copier(user="copier", level="authPriv", authentication=PASSPHRASES[0]):
    return ["-v3", "-u", user, "-l", level, "-a", "SHA-256",
            "-A", authentication, "-x", "AES", "-X", PASSPHRASES[1]]


class ExampleAgent(lab.Agent):
    """An agent with the example's configuration, and with users."""

    def __init__(self, folder):
        super().__init__(folder)
        self.configuration.write_text(
            EXAMPLE.read_text() + USERS +
            f"dlmod config_copy_mib {lab.MODULE}\n")
        self.station = Station(self.station.peer, copier())
        self.master = Station(self.station.peer, copier("master"))


@pytest.fixture(scope="module")
def example(tmp_path_factory):
    agent = ExampleAgent(tmp_path_factory.mktemp("agent")).start()
    yield agent
    agent.close()


@pytest.fixture
def agent(example):
    yield example
    for index in example.station.rows():
        example.station.set(row(index, xfCopyEntryRowStatus=DESTROY))


def test_the_copier_copies(agent, tftp_server):
    running = agent.running_config(b"hostname one\n")
    agent.station.set(go(upload(1, "up.cfg")))
    agent.succeeds(1)
    assert tftp_server.content("up.cfg") == running
    agent.idle()
    records = agent.accounting()
    assert len(records) == 2
    assert all('user="copier"' in record for record in records)
    agent.station.set(row(1, xfCopyEntryRowStatus=DESTROY))
    assert agent.station.rows() == []


@pytest.mark.parametrize("who", [
    ["-v1", "-c", "private"], ["-v1", "-c", "public"],
    ["-v2c", "-c", "private"], ["-v2c", "-c", "public"],
    copier(level="noAuthNoPriv"), copier(level="authNoPriv"),
    copier(authentication="not-the-passphrase"), copier("nobody")],
    ids=["v1 private", "v1 public", "v2c private", "v2c public",
         "noAuthNoPriv", "authNoPriv", "wrong passphrase", "unknown user"])
def test_nobody_else(agent, who):
    intruder = Station(agent.station.peer, who)
    with pytest.raises(Failure):
        intruder.run("snmpget", "-t", "1", agent.station.peer,
                     ".1.3.6.1.2.1.1.3.0")
    with pytest.raises(Failure):
        intruder.run("snmpset", "-t", "1", agent.station.peer,
                     name("xfCopyEntryRowStatus", 1), "i",
                     str(CREATE_AND_WAIT))
    assert agent.station.rows() == []


# What a stock agent lets somebody write, and what it is written with.
OTHER_OBJECTS = {
    "sysContact": (".1.3.6.1.2.1.1.4.0", "s", "mallory"),
    "sysName": (".1.3.6.1.2.1.1.5.0", "s", "mallory"),
    "snmpEnableAuthenTraps": (".1.3.6.1.2.1.11.30.0", "i", "1"),
    "snmpTargetAddrRowStatus":
        (".1.3.6.1.6.3.12.1.2.1.9.1.97", "i", "5"),
    "snmpNotifyRowStatus": (".1.3.6.1.6.3.13.1.1.1.5.1.97", "i", "5"),
    "usmUserSpinLock": (".1.3.6.1.6.3.15.1.2.1.0", "i", "1"),
    "vacmSecurityToGroupStatus":
        (".1.3.6.1.6.3.16.1.2.1.5.3.1.97", "i", "5"),
    "vacmViewTreeFamilyStatus":
        (".1.3.6.1.6.3.16.1.5.2.1.6.1.97.1.1", "i", "5"),
    "nsExtendStatus": (".1.3.6.1.4.1.8072.1.3.2.2.1.21.1.97", "i", "5"),
    "nsDebugEnabled": (".1.3.6.1.4.1.8072.1.7.2.1.1.0", "i", "1"),
}


@pytest.mark.parametrize("varbind", OTHER_OBJECTS.values(),
                         ids=OTHER_OBJECTS.keys())
def test_nothing_else_is_written(agent, varbind):
    assert agent.station.refused([varbind]) == "noAccess"
    # The view is what refuses it: another user is not told that.
    try:
        agent.master.set([varbind])
    except Failure as failure:
        assert failure.error not in ("noAccess", "authorizationError",
                                     "none"), failure


@pytest.mark.parametrize("oid", [f"{ROOT}.1.1.2.1.2.1.1",
                                 f"{ROOT}.1.1.2.1.5.1.1",
                                 f"{ROOT}.2.1.2.0"])
def test_nor_the_rest_of_the_module(agent, oid):
    assert agent.station.refused([(oid, "i", "1")]) == "noAccess"


def test_nothing_else_is_read(agent):
    agent.station.set(row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    read = [found for found, _ in agent.station.walk(oid=".1")]
    assert read[0] == ".1.3.6.1.2.1.1.3.0"
    assert all(found.startswith(ENTRY + ".") for found in read[1:])
    assert len(read) > 10


# --- what lies on the disk ----------------------------------------------------

def below(*folders):
    for folder in folders:
        for at, directories, files in os.walk(folder):
            yield from (pathlib.Path(at) / each for each in directories + files)


def open_to_others(*folders):
    return [str(path) for path in below(*folders)
            if not path.is_symlink() and
            stat.S_IMODE(path.lstat().st_mode) & 0o077]


def knows(path, secret):
    return path.is_file() and secret.encode() in path.read_bytes()


def test_a_configuration_on_its_way(agent, double):
    """It is in a folder of its own, for the agent's user alone."""
    double.gate.clear()
    try:
        agent.running_config(b"hostname one\n")
        agent.station.set(go(upload(1, "way.cfg", double.address)))
        wait_for(lambda: double.requests, "the request")
        file = agent.staged()["way.cfg"]
        assert file.read_bytes() == b"hostname one\n"
        assert stat.S_IMODE(file.stat().st_mode) == 0o600
        assert stat.S_IMODE(file.parent.stat().st_mode) == 0o700
        assert os.listdir(file.parent) == ["way.cfg"]
    finally:
        double.gate.set()
    agent.succeeds(1)
    agent.nothing_staged()


# Files of a user's home, and all that the state directory holds.
PRECIOUS = [".bashrc", ".profile", ".expect.rc", ".netrc", "known_hosts",
            "accounting.log", "running-config", "running-config.lock",
            "system.cfg", "staging", "trace", "startup"]


def with_precious_files(agent):
    """Its home is the state directory, with files of every name."""
    agent.home = agent.state
    for each in PRECIOUS:
        if not (agent.home / each).exists():
            (agent.home / each).touch(mode=0o600)
    (agent.home / "trace").unlink()
    (agent.home / "startup").unlink()
    (agent.home / "known_hosts").write_text("precious\n")
    (agent.home / ".expect.rc").write_text("precious\n")


@pytest.mark.parametrize("to_server", [True, False], ids=["up", "down"])
def test_names_of_the_agents_own_files(make_agent, make_double, fault,
                                       to_server):
    """A station chooses the name that a copy is staged under."""
    agent = make_agent(prepare=with_precious_files)
    double = make_double(agent)
    kept = {each: (agent.home / each).stat().st_ino
            for each in PRECIOUS if (agent.home / each).is_file() and
            each not in ("accounting.log", "running-config")}
    for index, name_ in enumerate(PRECIOUS, 1):
        running = agent.running_config(b"hostname one\n")
        double.files[name_] = b"hostname of-the-server\n"
        agent.station.set(go(
            upload(index, name_, double.address) if to_server else
            download(index, name_, double.address)))
        agent.succeeds(index)
        if to_server:
            assert double.files[name_] == running
        else:
            assert agent.running_config() == b"hostname of-the-server\n"
        agent.nothing_staged()
    for name_ in ("known_hosts", ".expect.rc"):
        assert (agent.home / name_).read_text() == "precious\n"
    if to_server:
        assert {each: (agent.home / each).stat().st_ino
                for each in kept} == kept
    assert len(agent.accounting()) == 2 * len(PRECIOUS)
    fault("Somebody on the switch or the network",
          "file names of the agent's own files, where it runs in its state "
          f"directory, {'upload' if to_server else 'download'}",
          "copied; no file of the agent's is touched")


def test_misspelt_setting(make_agent, fault):
    """By the environment as by the file: nothing runs on half of them."""
    agent = make_agent(download_octet=1000)
    agent.explains = False  # without settings there is no history
    assert "bad configuration: unknown variable XF_DOWNLOAD_OCTET" in agent.log
    agent.station.set(go(upload(1, "up.cfg")))
    assert agent.fails(1) == UNKNOWN
    agent.nothing_staged()
    fault("Agent", "an environment variable XF_... that is no setting",
          "logged with its name; row failed, unknown")


@needs_servers
@pytest.mark.parametrize("protocol", [SFTP, SCP], ids=["sftp", "scp"])
def test_what_a_copy_leaves_behind(make_agent, protocol):
    servers = Servers()
    try:
        server = servers.ssh()
        agent = make_agent(ssh_port=server.port, login_seconds=20,
                           transfer_seconds=30)
        (agent.state / "known_hosts").touch(mode=0o600)
        (agent.state / "known_hosts").write_text(server.known_host)
        agent.running_config(b"hostname one\n")
        columns = dict(xfCopyProtocol=protocol, xfCopySourceFileType=RUNNING,
                       xfCopyDestFileType=NETWORK, xfCopyFileName="up.cfg",
                       xfCopyServerAddress="127.0.0.2", xfCopyUserName=USER)
        agent.station.set(go(row(1, **columns, xfCopyUserPassword=PASSWORD)))
        agent.succeeds(1)
        agent.station.set(
            go(row(2, **columns, xfCopyUserPassword="not the password")))
        agent.fails(2)
        agent.idle()
    finally:
        servers.stop()
    folders = agent.state, agent.run_directory, agent.home
    left = list(below(*folders))
    assert agent.state / "accounting.log" in left
    assert open_to_others(*folders) == []
    # The trace quotes the command of SCP; nothing else has a password.
    trace = agent.state / "trace" / "snmpd.trc"
    for secret in (PASSWORD, "not the password"):
        with_secret = [path for path in left if knows(path, secret)]
        assert with_secret == ([trace] if protocol == SCP else [])
        # This is the line that has to be there, and where it goes.
        assert agent.log.count(secret) == 1
