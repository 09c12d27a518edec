"""Every pair of what can be copied to what, by every protocol, against real
servers. What came of it is the table in docs/copies.md."""

import os
import pathlib
import types

import pytest

import lab
import manager
from saves import keep_startup, startup
from snmp import (BAD_FILE_NAME, CREATE_AND_GO, DESTROY, IN_PROGRESS,
                  SUCCESSFUL, WAITING, Failure, go, row)
from tools import children_of
from transfer_servers import PASSWORD, USER, Servers, needs_servers

pytestmark = needs_servers

DOCUMENT = pathlib.Path(__file__).parents[2] / "docs" / "copies.md"
REWRITE = "XF_WRITE_COPIES=1 ctest --test-dir build -R 'agent[.]pairs'"

TFTP, FTP, RCP, SCP, SFTP = 1, 2, 3, 4, 5
PROTOCOLS = {"not set": None, "tftp": TFTP, "ftp": FTP, "rcp": RCP,
             "scp": SCP, "sftp": SFTP}
NETWORK, IMAGE, STARTUP, RUNNING, TERMINAL, FABRIC, ALL = 1, 2, 3, 4, 5, 6, 7
FILE_TYPES = {NETWORK: "networkFile", IMAGE: "systemImage",
              STARTUP: "startupConfig", RUNNING: "runningConfig",
              TERMINAL: "terminal", FABRIC: "fabricStartupConfig",
              ALL: "allStartupConfig"}

# What a complete request has to come to: one line a source, one column a
# destination, in the order of their numbers. Where several reasons speak
# against a copy, the last one that is looked at is told.
EXPECTED = {
    NETWORK: "genErr wrongValue genErr done wrongValue genErr genErr",
    IMAGE: "wrongValue genErr wrongValue wrongValue wrongValue wrongValue "
           "wrongValue",
    STARTUP: "done wrongValue genErr done wrongValue genErr genErr",
    RUNNING: "done wrongValue done genErr wrongValue done done",
    TERMINAL: "wrongValue wrongValue wrongValue wrongValue genErr wrongValue "
              "wrongValue",
    FABRIC: "badFileName wrongValue stuck stuck wrongValue genErr genErr",
    ALL: "badFileName wrongValue stuck stuck wrongValue genErr genErr",
}

# What a copy that is done changes: the place, and whose content it gets.
CHANGES = {
    (NETWORK, RUNNING): {"running": "server"},
    (STARTUP, NETWORK): {"server": "startup"},
    (STARTUP, RUNNING): {"running": "startup"},
    (RUNNING, NETWORK): {"server": "running"},
    (RUNNING, STARTUP): {"startup": "running"},
    (RUNNING, FABRIC): {"startup": "running", "other switch": "its running"},
    (RUNNING, ALL): {"startup": "running"},
}

TEXT = f"""\
<!-- Written by a test. To write it anew: {REWRITE} -->
# What can be copied to what

What a complete request came to: `createAndGo` with address, file name, user
name and password, and the protocol unless it says "not set". The test that
makes this table looks at the result of each copy.

| word | meaning |
|---|---|
| **done** | copied, octet by octet; the row is successful(3) |
| genErr, wrongValue | the request is answered with this error; nothing changes and there is no row |
| badFileName | accepted, but there is no file to send: the row ends failed(4) with this cause |
| stuck | accepted, but nothing is started: the row stays running(2) and no other copy can start until it is destroyed |

Upload and download are seen from the switch. `rcp` cannot be written: the
request is refused, but a row that it was to create is there, with nothing but
its status createAndGo(4), and has to be destroyed.

"""


def expected(protocol, source, destination):
    if protocol == RCP:
        return "wrongValue"
    return EXPECTED[source].split()[destination - 1]


@pytest.fixture
def scene(tmp_path):
    """An agent with its system manager, another switch, and all servers."""
    servers = Servers()
    folders = {name: tmp_path / name for name in ("agent", "fabric", "tftp")}
    for each in folders.values():
        each.mkdir()
    fabric = manager.Fabric(folders["fabric"])
    agent = None
    tftp = None
    try:
        other = fabric.add("other").start()
        ftp, ssh = servers.ftp(), servers.ssh()
        agent = manager.SavingAgent(
            folders["agent"], ftp_port=ftp.port, ssh_port=ssh.port,
            login_seconds=20, transfer_seconds=30,
            **fabric.settings(fabric_switch_seconds=30))
        (agent.state / "known_hosts").write_text(ssh.known_host)
        agent.start()
        agent.manager.start()
        tftp = lab.TftpServer(folders["tftp"], agent)
        yield types.SimpleNamespace(
            agent=agent, other=other, index=0,
            servers={None: tftp, TFTP: tftp, FTP: ftp, RCP: tftp, SCP: ssh,
                     SFTP: ssh})
    finally:
        if tftp:
            tftp.stop()
        if agent:
            agent.manager.close()
            agent.close()
        fabric.close()
        servers.stop()


def places(scene, server, name):
    """The content of every place that a copy can change."""
    other = scene.other.state / "startup" / "system.cfg"
    return {
        "running": scene.agent.running_config(),
        "startup": startup(scene.agent),
        "server": server.content(name) if (server.files / name).exists()
        else None,
        "other switch": other.read_bytes() if other.exists() else None,
        "its running": (scene.other.state / "running-config").read_bytes(),
    }


def prepare(scene, server, name, source):
    """Other content in each place, so that it can be told where it came
    from."""
    mark = name.encode()
    scene.agent.running_config(b"hostname running-" + mark + b"\n")
    keep_startup(scene.agent, b"hostname startup-" + mark + b"\n")
    if source == NETWORK:
        server.offer(name, b"hostname server-" + mark + b"\n")
    (scene.other.state / "startup" / "system.cfg").unlink(missing_ok=True)
    return places(scene, server, name)


def outcome(scene, protocol, source, destination):
    """Asks for the copy; the word of the table, or what else was found."""
    agent, station = scene.agent, scene.agent.station
    scene.index += 1
    index, name = scene.index, f"file-{scene.index}"
    server = scene.servers[protocol]
    before = prepare(scene, server, name, source)
    columns = {} if protocol is None else {"xfCopyProtocol": protocol}
    request = go(row(
        index, **columns, xfCopySourceFileType=source,
        xfCopyDestFileType=destination, xfCopyServerAddress="127.0.0.2",
        xfCopyFileName=name, xfCopyUserName=USER, xfCopyUserPassword=PASSWORD))
    try:
        station.set(request)
    except Failure as failure:
        left = station.columns(index, "xfCopyState", "xfCopyEntryRowStatus",
                               "xfCopyFileName")
        assert left == left_behind(protocol)
        word, changes = failure.error.replace("genError", "genErr"), {}
    else:
        word, changes = what_became(agent, index, source, destination)
    station.set(row(index, xfCopyEntryRowStatus=DESTROY))
    assert station.rows() == []
    wanted = {**before, **{place: before[content]
                           for place, content in changes.items()}}
    after = places(scene, server, name)
    assert after == wanted, {place: (after[place], wanted[place])
                             for place in after
                             if after[place] != wanted[place]}
    return word


def left_behind(protocol):
    """State, status and file name of the row of a request that was refused. A
    protocol is refused so early that the row is not taken away again."""
    return [WAITING, CREATE_AND_GO, ""] if protocol == RCP else [None] * 3


def what_became(agent, index, source, destination):
    """Of a request that was accepted."""
    station = agent.station
    if expected(None, source, destination) == "stuck":
        assert station.get("xfCopyState", index) == IN_PROGRESS
        assert not children_of(agent.pid)
        assert not (agent.state / "save-in-progress").exists()
        assert station.refused(go(row(
            index + 10_000, xfCopySourceFileType=STARTUP,
            xfCopyDestFileType=RUNNING))) == "genError"
        return "stuck", {}
    if agent.ended(index) == SUCCESSFUL:
        agent.idle()
        return "done", CHANGES.get((source, destination), {})
    agent.idle()
    cause = station.get("xfCopyFailCause", index)
    return {BAD_FILE_NAME: "badFileName"}.get(cause, f"failed({cause})"), {}


def direction(source, destination):
    if source == NETWORK:
        return "none" if destination == NETWORK else "download"
    return "upload" if destination == NETWORK else "local"


def document(found):
    heads = ["source", "destination", "direction", *PROTOCOLS]
    lines = [heads, ["---"] * len(heads)]
    for source in FILE_TYPES:
        for destination in FILE_TYPES:
            words = [found[protocol, source, destination]
                     for protocol in PROTOCOLS.values()]
            lines.append([f"{FILE_TYPES[source]}({source})",
                          f"{FILE_TYPES[destination]}({destination})",
                          direction(source, destination),
                          *("**done**" if word == "done" else word
                            for word in words)])
    return TEXT + "".join(f"| {' | '.join(line)} |\n" for line in lines)


def test_every_pair_by_every_protocol(scene):
    found, wrong = {}, []
    for key in ((protocol, source, destination)
                for protocol in PROTOCOLS.values()
                for source in FILE_TYPES for destination in FILE_TYPES):
        try:
            found[key] = outcome(scene, *key)
        except AssertionError as error:
            found[key] = f"wrong: {error}"
        if found[key] != expected(*key):
            wrong.append((key, found[key], expected(*key)))
    assert wrong == []
    assert list(found.values()).count("done") == 5 * len(CHANGES)
    text = document(found)
    if os.environ.get("XF_WRITE_COPIES") == "1":
        DOCUMENT.parent.mkdir(exist_ok=True)
        DOCUMENT.write_text(text)
    assert DOCUMENT.read_text() == text, f"not up to date; run {REWRITE}"
