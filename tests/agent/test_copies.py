"""Configurations that arrive, and those that cannot."""

import os
import pathlib
import signal

import pytest

from snmp import (BAD_FILE_NAME, NETWORK, NO_CONFIG, NO_MEMORY, RUNNING,
                  SOME_CONFIG_APPLY_FAILED, STAY_STAGED, STARTUP, TIMEOUT,
                  UNKNOWN, download, go, row, upload)
from tftp import TftpDouble
from tools import children_of, ipv6_loopback, wait_for

RESULTS = pathlib.Path("/tmp/configcopy.txt")
MEBIBYTE = 1 << 20
NEGOTIATED_BLOCK = 65464  # what this machine's loopback carries
SIZES = [0, 1, 511, 512, 513, 1024, NEGOTIATED_BLOCK - 1, NEGOTIATED_BLOCK,
         2 * NEGOTIATED_BLOCK, 200_000]

needs_ipv6 = pytest.mark.skipif(not ipv6_loopback(),
                                reason="no IPv6 loopback address")


@pytest.fixture(scope="module", autouse=True)
def results_file():
    """Applying a configuration writes a file outside of our folders."""
    ours = not RESULTS.exists()
    yield
    if ours:
        RESULTS.unlink(missing_ok=True)


@pytest.fixture
def agent(make_agent):
    return make_agent(prepare=lambda agent: agent.own_programs())


@pytest.fixture
def keeping(agent):
    """An agent whose shell keeps what it is told to apply; and where."""
    kept = agent.folder / "applied"
    agent.replace_program("qsh", f"""\
#!/bin/sh
[ "$1" = --apply ] || exec {{real}} "$@"
cp "$2" {kept}
""")
    return agent, kept


def test_running_configuration_to_server(agent, station, tftp_server):
    running = agent.running_config(b"hostname one\nvlan 10\n  name ten\n")
    station.set(go(upload(1, "up.cfg")))
    agent.succeeds(1)
    assert tftp_server.content("up.cfg") == running


def test_server_to_running_configuration(agent, station, tftp_server):
    agent.running_config(b"hostname one\ncontact somebody\n")
    tftp_server.offer("new.cfg", b"hostname two\nno contact\nvlan 7\n")
    station.set(go(download(1, "new.cfg")))
    agent.succeeds(1)
    assert agent.running_config() == b"hostname two\nvlan 7\n"


@pytest.mark.parametrize("size", SIZES)
def test_every_octet_arrives_at_the_server(agent, station, tftp_server, size):
    running = agent.running_config(os.urandom(size))
    station.set(go(upload(1, "up.bin")))
    agent.succeeds(1)
    assert tftp_server.content("up.bin") == running


@pytest.mark.parametrize("size", SIZES)
def test_every_octet_arrives_from_the_server(keeping, tftp_server, size):
    agent, kept = keeping
    content = tftp_server.offer("down.bin", os.urandom(size))
    agent.station.set(go(download(1, "down.bin")))
    agent.succeeds(1)
    assert kept.read_bytes() == content


def test_file_that_is_copied_to_nothing(agent, station, tftp_server):
    """It is fetched, and gone with its process."""
    tftp_server.offer("down.bin", b"anything")
    station.set(go(download(1, "down.bin", to=STAY_STAGED)))
    agent.succeeds(1)
    agent.nothing_staged()


@pytest.mark.parametrize("size", [0, 1, 512, 1024, 70_000])
def test_server_without_options_takes_blocks_of_512(
        keeping, make_tftp_server, size):
    agent, kept = keeping
    station = agent.station
    server = make_tftp_server(options=["-c", "-r", "blksize", "-r", "blksize2"])
    running = agent.running_config(os.urandom(size))
    content = server.offer("down.bin", os.urandom(size))
    station.set(go(upload(1, "up.bin")))
    agent.succeeds(1)
    station.set(go(download(2, "down.bin")))
    agent.succeeds(2)
    assert server.content("up.bin") == running
    assert kept.read_bytes() == content


@pytest.mark.parametrize("length", [1, 60, 100, 103, 104, 105, 127, 128])
def test_name_of_any_length(agent, station, tftp_server, length):
    """128 octets is the longest that a station can set."""
    name = "n" * length
    running = agent.running_config(b"hostname one\n")
    station.set(go(upload(1, name)))
    agent.succeeds(1)
    assert tftp_server.content(name) == running
    tftp_server.offer(name, b"hostname two\n")
    station.set(go(download(2, name)))
    agent.succeeds(2)
    assert agent.running_config() == b"hostname two\n"
    agent.nothing_staged()


def with_long_state_directory(agent):
    """Its path has 120 octets."""
    agent.state = agent.folder / ("s" * (119 - len(str(agent.folder))))
    agent.staging = agent.state / "staging"
    agent.staging.mkdir(mode=0o700, parents=True)
    agent.state.chmod(0o700)
    agent.settings["state_directory"] = agent.state


def test_long_state_directory(make_agent, make_double):
    agent = make_agent(prepare=with_long_state_directory)
    double = make_double(agent)
    double.files["down.cfg"] = b"hostname two\n"
    agent.station.set(go(download(1, "down.cfg", double.address)))
    agent.succeeds(1)
    assert agent.running_config() == b"hostname two\n"
    keep_startup(agent, b"hostname kept\n")
    agent.station.set(go(row(2, xfCopySourceFileType=STARTUP,
                             xfCopyDestFileType=RUNNING)))
    agent.succeeds(2)
    assert agent.running_config() == b"hostname kept\n"


def test_32_mebibytes_to_the_server(agent, station, tftp_server):
    running = agent.running_config(os.urandom(32 * MEBIBYTE))
    station.set(go(upload(1, "large.bin")))
    agent.succeeds(1, seconds=120)
    assert tftp_server.content("large.bin") == running


def test_32_mebibytes_from_the_server(keeping, tftp_server):
    agent, kept = keeping
    content = tftp_server.offer("large.bin", os.urandom(32 * MEBIBYTE))
    agent.station.set(go(download(1, "large.bin")))
    agent.succeeds(1, seconds=120)
    assert kept.read_bytes() == content


def test_32_mebibytes_are_applied(agent, station, tftp_server):
    comment = b"! " + b"x" * 77 + b"\n"
    filling = comment * (32 * MEBIBYTE // len(comment))
    tftp_server.offer("large.cfg", b"hostname first\n" + filling +
                      b"hostname last\n")
    station.set(go(download(1, "large.cfg")))
    agent.succeeds(1, seconds=120)
    assert agent.running_config() == b"hostname last\n"


def test_startup_configuration_to_server(agent, station, tftp_server):
    startup = os.urandom(3000)
    keep_startup(agent, startup)
    station.set(go(row(1, xfCopySourceFileType=STARTUP,
                       xfCopyDestFileType=NETWORK,
                       xfCopyServerAddress="127.0.0.2",
                       xfCopyFileName="startup.cfg")))
    agent.succeeds(1)
    assert tftp_server.content("startup.cfg") == startup


def test_startup_to_running_configuration(agent, station):
    keep_startup(agent, b"hostname kept\n")
    agent.running_config(b"hostname changed\n")
    station.set(go(row(1, xfCopySourceFileType=STARTUP,
                       xfCopyDestFileType=RUNNING)))
    agent.succeeds(1)
    assert agent.running_config() == b"hostname kept\n"


def test_folder_in_the_name(agent, station, tftp_server):
    (tftp_server.files / "site").mkdir()
    tftp_server.offer("site/new.cfg", b"hostname two\n")
    station.set(go(download(1, "/site/new.cfg")))
    agent.succeeds(1)
    assert agent.running_config() == b"hostname two\n"


@needs_ipv6
def test_ipv6_server(agent, station, make_tftp_server):
    server = make_tftp_server("::1")
    running = agent.running_config(b"hostname six\n")
    server.offer("new.cfg", b"vlan 6\n")
    loopback = "00" * 15 + "01"
    station.set(go(row(1, xfCopySourceFileType=RUNNING,
                       xfCopyDestFileType=NETWORK, xfCopyServerAddressType=2,
                       xfCopyServerAddressRev1=loopback,
                       xfCopyFileName="six.cfg")))
    agent.succeeds(1)
    assert server.content("six.cfg") == running
    station.set(go(row(2, xfCopySourceFileType=NETWORK,
                       xfCopyDestFileType=RUNNING, xfCopyServerAddressType=2,
                       xfCopyServerAddressRev1=loopback,
                       xfCopyFileName="new.cfg")))
    agent.succeeds(2)
    assert agent.running_config() == b"hostname six\nvlan 6\n"


def test_name_that_does_not_exist(agent, station, tftp_server):
    station.set(go(download(1, "missing.cfg")))
    assert agent.fails(1) == BAD_FILE_NAME


@pytest.mark.parametrize("direction", [upload, download])
def test_server_that_does_not_answer(make_agent, fault, direction):
    agent = make_agent(tftp_packet_seconds=1, tftp_total_seconds=10)
    with silent_server(agent) as server:
        agent.station.set(go(direction(1, "x.cfg", server.address)))
        assert agent.fails(1) == TIMEOUT
        assert server.requests
    fault("Servers", f"TFTP server that does not answer, {direction.__name__}",
          "row failed, timeout")


@pytest.mark.parametrize("direction", [upload, download])
def test_server_that_stops_in_the_middle(make_agent, fault, direction):
    agent = make_agent(tftp_packet_seconds=1, tftp_total_seconds=20)
    agent.running_config(bytes(5000))
    with silent_server(agent) as server:
        server.silent = False
        server.stop_after = 3
        server.files["x.cfg"] = b"hostname two\n" * 1000
        agent.station.set(go(direction(1, "x.cfg", server.address)))
        assert agent.fails(1) == TIMEOUT
    assert agent.running_config() == bytes(5000)
    fault("Servers", f"TFTP server that stops in the middle, "
          f"{direction.__name__}",
          "row failed, timeout, running configuration unchanged")


def test_transfer_that_never_ends_is_ended(make_agent):
    agent = make_agent(tftp_packet_seconds=10, tftp_total_seconds=2)
    with silent_server(agent) as server:
        agent.station.set(go(download(1, "x.cfg", server.address)))
        assert agent.fails(1, seconds=8) == TIMEOUT


def test_server_that_takes_nothing(agent, station, make_tftp_server,
                                   fault):
    # Another user's server tells "permission denied" without its error code.
    server = make_tftp_server(options=[], user="root")
    old = server.offer("old.cfg", b"hostname old\n")
    agent.running_config(b"hostname new\n")
    for index, kind in enumerate(["old", "new"], 1):
        station.set(go(upload(index, f"{kind}.cfg")))
        assert agent.fails(index) == BAD_FILE_NAME
        fault("Servers", f"TFTP server that takes no file, {kind} one",
              "row failed, badFileName")
    assert server.content("old.cfg") == old
    assert not (server.files / "new.cfg").exists()


@pytest.mark.parametrize("code, cause", [
    (0, UNKNOWN), (1, BAD_FILE_NAME), (2, BAD_FILE_NAME), (3, NO_MEMORY),
    (4, UNKNOWN), (6, UNKNOWN), (7, UNKNOWN)])
def test_errors_that_a_server_tells(agent, station, double, code, cause,
                                    fault):
    double.error = code
    station.set(go(upload(1, "x.cfg", double.address)))
    assert agent.fails(1) == cause
    if code == 3:
        fault("Servers", "TFTP server whose disk is full",
              "row failed, noMem")


def test_file_without_configuration(agent, station, tftp_server):
    tftp_server.offer("empty.cfg", b"! nothing but a comment\n\n")
    station.set(go(download(1, "empty.cfg")))
    assert agent.fails(1) == NO_CONFIG


def test_line_that_cannot_be_applied(agent, station, tftp_server):
    """Agents of other tests write the same results file: if one of them was
    quicker, the copy is made again."""
    tftp_server.offer("partly.cfg", b"hostname two\nflux on\nvlan 7\n")
    for index in range(1, 11):
        station.set(go(download(index, "partly.cfg")))
        assert agent.fails(index) == SOME_CONFIG_APPLY_FAILED
        assert agent.running_config() == b"hostname two\nvlan 7\n"
        lines = RESULTS.read_text().splitlines() if RESULTS.exists() else []
        if any("flux on" in line for line in lines):
            break
    assert len(lines) == 1 and "2" in lines[0] and "flux on" in lines[0]


def test_copy_process_that_is_killed(agent, station, double, fault):
    """The agent learns of it and can go on."""
    double.gate.clear()
    double.files["x.cfg"] = b"hostname two\n"
    station.set(go(download(1, "x.cfg", double.address)))
    child, = wait_for(lambda: children_of(agent.pid), "the copy process")
    wait_for(lambda: double.requests, "the request")
    os.kill(child, signal.SIGKILL)
    assert agent.fails(1) == UNKNOWN
    double.gate.set()
    station.set(go(download(2, "x.cfg", double.address)))
    agent.succeeds(2)
    fault("Copy process", "killed while it waits for the server",
          "row failed, unknown; goes on")


def keep_startup(agent, content):
    folder = agent.state / "startup"
    folder.mkdir(mode=0o700, exist_ok=True)
    (folder / "system.cfg").write_bytes(content)
    (folder / "system.cfg").chmod(0o600)


class silent_server:
    """A double for an agent with settings of its own; silent at first."""

    def __init__(self, agent):
        self.server = TftpDouble("127.0.0.3", agent.tftp_port)
        self.server.silent = True

    def __enter__(self):
        return self.server

    def __exit__(self, *_):
        self.server.close()
