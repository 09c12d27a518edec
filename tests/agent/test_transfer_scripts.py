"""The transfer programs by themselves, against real servers."""

import contextlib
import os
import re
import threading
import time

import pytest

from tools import ipv6_loopback, mounted, wait_for
from transfer_client import (BAD_NAME, CONNECTION, DONE, HOST_KEY, LOGIN,
                             NO_SPACE, OTHER, TIMEOUT, USAGE, Client,
                             processes_in)
from transfer_servers import (PASSWORD, USER, Servers, free_tcp_port,
                              needs_servers)

PROTOCOLS = ["ftp", "sftp", "scp"]

ODD_NAMES = [
    b"a b", b" both ", b'q"q', b"q'q", b"$HOME", b"$(touch oops)",
    b"`touch oops`", b"[ab]", b"[exit]", b"{a,b}", b"-l", b"--", b"back\\slash",
    b"\\[x\\]", b"*?", b"~", b"~root", b"#x", b";ls", b"|touch oops", b"!x",
    b"%s%n", b"a:b", b"@1.2.3.4:x", "\N{SNOWMAN}".encode(), b"\xe4.cfg"]

pytestmark = needs_servers


@pytest.fixture
def client(tmp_path, request, fault):
    """Each of its failures is a row of docs/failures.md."""
    made = Client(tmp_path)
    yield made
    what, _, case = request.node.name.removeprefix("test_").partition("[")
    for program, code, report in made.failures:
        fault("Exit codes of the transfer programs",
              f"`{program}` ends with {code}: {what.replace('_', ' ')}" +
              f" ({case.rstrip(']')})" * bool(case), "",
              why=(report["reason"], report["advice"]))


@pytest.fixture
def servers():
    made = Servers()
    yield made
    made.stop()


@pytest.fixture(scope="module")
def usual():
    """One server of each kind, for the tests that leave them as they are."""
    made = Servers()
    ssh, ftp = made.ssh(full=True), made.ftp(full=True)
    yield {"ftp": ftp, "sftp": ssh, "scp": ssh}
    made.stop()


@pytest.fixture(params=PROTOCOLS)
def protocol(request):
    return request.param


@pytest.fixture
def server(protocol, client, usual):
    client.reach(protocol, usual[protocol])
    return usual[protocol]


def make_server(servers, protocol, *arguments, **more):
    make = servers.ftp if protocol == "ftp" else servers.ssh
    return make(*arguments, **more)


@pytest.mark.parametrize("size", [0, 1, 5_000_000])
def test_every_octet_arrives(client, server, protocol, size):
    content = os.urandom(size)
    assert client.put(protocol, client.stage(content), "up") == DONE
    assert server.content("up") == content
    client.moved(content)
    content = server.offer("down", os.urandom(size))
    assert client.get(protocol, "down", "down.cfg") == DONE
    assert client.staged()[b"down.cfg"] == content
    client.moved(content)
    assert client.said == ""


@pytest.mark.parametrize("name", ODD_NAMES)
def test_odd_names(client, server, protocol, name):
    content = os.urandom(64)
    before = set(os.listdir(server.files))
    assert client.put(protocol, client.stage(content, name), name) == DONE
    assert server.content(name) == content
    assert set(os.listdir(server.files)) - before <= {os.fsdecode(name)}
    content = server.offer(name, os.urandom(64))
    assert client.get(protocol, name, name) == DONE
    assert client.staged() == {name: content}


@pytest.mark.parametrize("name", [b"two\nlines", b"x\x03", b"x\x7f", b"x\ry"])
def test_names_with_control_characters_are_refused(client, server, protocol,
                                                   name):
    local = client.stage(b"x")
    before = set(os.listdir(server.files))
    assert client.put(protocol, local, name) == BAD_NAME
    assert client.get(protocol, name, "new") == BAD_NAME
    assert client.get(protocol, "x", name) == BAD_NAME
    assert "cannot be sent" in client.said
    client.told("Checking the request: a file name that cannot be sent")
    assert set(os.listdir(server.files)) == before
    assert set(client.staged()) == {b"local.cfg"}


def test_ftp_refuses_what_telnet_would_change(client, usual):
    client.reach("ftp", usual["ftp"])
    assert client.put("ftp", client.stage(b"x"), b"x\xff") == BAD_NAME
    client.told("Checking the request: a file name that cannot be sent")
    client.reach("sftp", usual["sftp"])
    assert client.put("sftp", client.stage(b"x"), b"x\xff") == DONE


def test_folders_and_absolute_names(client, server, protocol):
    (server.files / "sub dir").mkdir(exist_ok=True)
    (server.files / "sub dir").chmod(0o777)
    assert client.put(protocol, client.stage(b"x"), "sub dir/x") == DONE
    assert server.content("sub dir/x") == b"x"
    assert client.get(protocol, f"{server.files}/sub dir/x", "got") == DONE
    (client.folder / "-deep").mkdir()
    assert client.get(protocol, "sub dir/x", "-deep/got") == DONE
    assert (client.folder / "-deep" / "got").read_bytes() == b"x"


def test_wrong_password(client, server, protocol):
    client.password = "wrong"
    server.offer("x", b"x")
    assert client.get(protocol, "x", "new") == LOGIN
    assert client.put(protocol, client.stage(b"x"), "refused") == LOGIN
    client.told(f'Logging in as "{USER}" at 127.0.0.2 port {server.port} '
                f'({protocol.upper()}): the server refused the login: "',
                "530 Login incorrect." if protocol == "ftp"
                else "Permission denied (")
    assert not (server.files / "refused").exists()
    assert set(client.staged()) == {b"local.cfg"}


@pytest.mark.parametrize("password", ["", "new\nline", "!touch oops"])
def test_passwords_are_not_commands(client, server, protocol, password):
    client.password = password
    assert client.get(protocol, "x", "new") == LOGIN
    client.told("the request: a password that cannot be sent"
                if "\n" in password else "Logging in as ")
    assert client.staged() == {}


def test_missing_file(client, server, protocol):
    client.stage(b"old", b"kept")
    assert client.get(protocol, "missing", "kept") == BAD_NAME
    client.told('Fetching "missing" from 127.0.0.2 port',
                '"550 Failed to open file."' if protocol == "ftp"
                else 'the server answered "no such file" (2)')
    assert client.staged() == {b"kept": b"old"}


def test_folder_that_is_missing(client, server, protocol):
    assert client.put(protocol, client.stage(b"x"), "missing/x") == BAD_NAME
    client.told('Sending "missing/x" to 127.0.0.2 port', '"553 Could not'
                if protocol == "ftp" else '"no such file" (2)')
    assert client.put(protocol, "/missing/x", "x2") == BAD_NAME
    client.told("Reading the file to send: the local file cannot be read: No "
                "such file or directory")
    assert not (server.files / "x2").exists()


def test_full_disk_of_the_server(client, server, protocol):
    local = client.stage(os.urandom(500_000))
    assert client.put(protocol, local, "full/x") == NO_SPACE
    client.told('Sending "full/x" to', '"4' if protocol == "ftp"
                else 'the server answered "failure" (4)')
    assert client.report["advice"] == "Make room on the server."


def test_full_disk_here(client, server, protocol):
    server.offer("large", os.urandom(500_000))
    client.prefix = ["unshare", "-m", "sh", "-c",
                     'mount -t tmpfs -o size=64k tmpfs . && cd "$PWD" &&'
                     ' "$@" && exit; s=$?; ls -A; exit $s', "sh"]
    assert client.get(protocol, "large", "large") == NO_SPACE
    assert "large\n" not in client.said and ".transfer" not in client.said
    client.told("Storing the fetched file: no space for the file: No space")


def test_disk_that_tells_no_size(client, server, protocol):
    server.offer("large", os.urandom(500_000))
    client.prefix = mounted('mount -t tmpfs -o size=0 tmpfs "$PWD"')
    assert client.get(protocol, "large", "large") == DONE


def test_limit_of_the_process(client, server, protocol):
    """The kernel would end it."""
    server.offer("large", os.urandom(500_000))
    client.prefix = ["prlimit", "--fsize=100000"]
    assert client.get(protocol, "large", "large") == NO_SPACE
    client.told("Storing the fetched file: no space for the file: File too")
    assert client.staged() == {}


def test_local_links_lead_nowhere(client, server, protocol):
    link = client.folder / "link"
    link.symlink_to(os.fsdecode(client.stage(b"precious")))
    assert client.put(protocol, "link", "linked") == BAD_NAME
    client.told("Reading the file to send: ", "symbolic links")
    assert not (server.files / "linked").exists()
    server.offer("x", b"new")
    assert client.get(protocol, "x", "link") == DONE
    assert client.staged() == {b"local.cfg": b"precious", b"link": b"new"}


@pytest.mark.parametrize("protocol", ["sftp", "scp"])
class TestHostKeys:
    def test_key_that_is_not_known(self, client, usual, protocol):
        client.settings["ssh_port"] = usual[protocol].port
        assert client.get(protocol, "x", "new") == HOST_KEY
        client.told("Checking the host key of 127.0.0.2 port",
                    "the server's host key is not known")
        assert client.report["advice"].endswith(": xfenrol 127.0.0.2")

    def test_another_key(self, client, usual, servers, protocol):
        client.reach(protocol, usual[protocol])
        other = servers.ssh()
        line = f"[127.0.0.2]:{usual[protocol].port} " + \
            other.known_host.partition(" ")[2]
        client.trust(None, line)
        assert client.get(protocol, "x", "new") == HOST_KEY
        client.told("host key is another than the known one")
        assert client.report["advice"].endswith(
            " Then, on the switch, enrol the server again with xfenrol.")
        assert (client.state / "known_hosts").read_text() == line
        assert client.run("xfenrol", "127.0.0.2",
                          usual[protocol].fingerprint) == 0
        usual[protocol].offer("again", b"known")
        assert client.get(protocol, "again", "new") == DONE

    def test_enrolled(self, client, usual, protocol):
        server = usual[protocol]
        client.settings["ssh_port"] = server.port
        assert client.run("xfenrol", "127.0.0.2") == 1
        assert client.run("xfenrol", "127.0.0.2", "SHA256:other") == 1
        assert not (client.state / "known_hosts").exists()
        for _ in range(2):
            assert client.run("xfenrol", "127.0.0.2", server.fingerprint) == 0
        assert (client.state / "known_hosts").read_text() == server.known_host
        assert (client.state / "known_hosts").stat().st_mode & 0o777 == 0o600
        server.offer("x", b"x")
        assert client.get(protocol, "x", "new") == DONE


@pytest.mark.parametrize("protocol", ["sftp", "scp"])
@pytest.mark.parametrize("direction", ["put", "get"])
class TestTroubledSsh:
    def copy(self, client, server, protocol, direction):
        client.reach(protocol, server)
        local = client.stage(bytes(5_000_000))
        if direction == "put":
            return client.put(protocol, local, "up")
        return client.get(protocol, "large", "new")

    def test_stalls_after_login(self, client, servers, protocol, direction):
        client.settings["transfer_seconds"] = 2
        server = servers.ssh(stalls=True)
        start = time.monotonic()
        assert self.copy(client, server, protocol, direction) == TIMEOUT
        client.told("ing \"", "the file was not moved within 2 seconds")
        assert time.monotonic() - start < 15
        assert set(client.staged()) == {b"local.cfg"}

    def test_dies_in_the_middle(self, client, servers, protocol, direction):
        server = servers.ssh()
        server.offer("large", bytes(5_000_000))
        relay = servers.relay(server, 1_000_000)
        assert self.copy(client, relay, protocol, direction) == CONNECTION
        client.told("ing \"", "the connection failed or was lost")
        assert 0 < client.report["octets"] <= 5_000_000
        assert set(client.staged()) == {b"local.cfg"}


def test_ftp_server_that_stalls(client, servers):
    client.settings["transfer_seconds"] = 2
    for copy in (lambda: client.get("ftp", "x", "new"),
                 lambda: client.put("ftp", client.stage(b"x"), "x")):
        client.reach("ftp", servers.ftp_double())
        assert copy() == TIMEOUT
        client.told("ing \"x\"", "the file was not moved within 2 seconds")
    assert set(client.staged()) == {b"local.cfg"}


def test_ftp_server_that_dies(client, servers):
    for copy in (lambda: client.get("ftp", "x", "new"),
                 lambda: client.put("ftp", client.stage(bytes(5_000_000)),
                                    "x")):
        client.reach("ftp", servers.ftp_double(dies_after=100_000))
        assert copy() == CONNECTION
        client.told("ing \"x\"")
    assert set(client.staged()) == {b"local.cfg"}


def test_server_that_says_nothing(client, servers, protocol):
    client.settings["login_seconds"] = 2
    client.reach(protocol, servers.ftp_double(silent=True))
    assert client.get(protocol, "x", "new") == TIMEOUT
    client.told("Logging in as ", "the server did not let us in within 2 ")


def test_no_server(client, protocol):
    port = free_tcp_port()
    client.settings.update(ftp_port=port, ssh_port=port)
    assert client.get(protocol, "x", "new") == CONNECTION
    client.told(f"Connecting to 127.0.0.2 port {port} ({protocol.upper()}): ",
                "Connection refused")


@pytest.mark.skipif(not ipv6_loopback(), reason="no IPv6 loopback address")
def test_ipv6(client, servers, protocol):
    server = make_server(servers, protocol, "::1")
    client.reach(protocol, server)
    assert client.put(protocol, client.stage(b"six"), "up", "::1") == DONE
    assert server.content("up") == b"six"
    assert client.get(protocol, "up", "down", "::1") == DONE
    assert client.staged()[b"down"] == b"six"
    # An address is as long as it can be: what is left is the name.
    server.offer("ffff:1", b"seven")
    assert client.get(protocol, "./ffff:1", "down", "::1") == DONE
    assert client.staged()[b"down"] == b"seven"


@pytest.mark.parametrize("script, arguments", [
    ("sftp.expect", []), ("scp.expect", ["x"]), ("snmp.ftp.expect", ["x"] * 8),
    ("sftp.expect", ["-oProxyCommand=touch oops", "u", "p", "get", "a", "b"]),
    ("snmp.ftp.expect", ["127.0.0.2 x", "a", "b", "u", "p", "get"]),
    ("sftp.expect", ["127.0.0.2", "u", "p", "remove", "a", "b"]),
    ("scp.expect", ["u@127.0.0.2:a", "b", "p", "0"]),
    ("scp.expect", ["u@127.0.0.2:a", "b", "p", "1;touch oops"]),
    ("scp.expect", ["u@-oProxyCommand=x:a", "b", "p"])])
def test_arguments_that_make_no_sense(client, script, arguments):
    assert client.run(script, *arguments) == USAGE
    client.told("Checking the request: ")
    assert client.staged() == {}


def test_ended_by_a_signal(client, servers):
    server = servers.ssh(stalls=True)
    client.reach("sftp", server)
    script = client.begin("sftp.expect", "127.0.0.2", USER, PASSWORD, "get",
                          "x", "new")
    wait_for(lambda: "Accepted password" in server.log, "the login")
    script.terminate()
    assert script.wait(10) == OTHER
    wait_for(lambda: not processes_in(client.folder), "the clients to end")
    assert client.staged() == {}


@pytest.mark.parametrize("arguments, code", [
    ([], 125), (["1"], 125), (["x", "true"], 125), (["1x", "true"], 125),
    (["0", "true"], 126), (["-1", "true"], 126), (["2147483647", "true"], 126),
    (["--id", "no-such-vrf"], 126), (["--id", "../../proc/self/ns/net"], 126),
    (["1", "/no/such/program"], 127), (["1", "sh", "-c", "exit 9"], 9)])
def test_programs_in_a_vrf(client, arguments, code):
    assert client.run("xfvrf", *arguments) == code


@pytest.mark.parametrize("arguments", [
    [], ["2", "127.0.0.2", "69", "a", "b", "1"],
    ["1", "127.0.0.2", "0", "a", "b", "1"],
    ["1", "127.0.0.2", "69x", "a", "b", "1"],
    ["1", "127.0.0.2", "69", "a", "b", "0"],
    ["1", "127.0.0.2", "69", "a", "b", "1", "management", "more"]])
def test_arguments_of_the_tftp_program(client, arguments):
    assert client.run("ovan-tftp", *arguments) == USAGE


def test_tftp_program_in_a_vrf_that_is_not_there(client):
    client.stage(b"x")
    assert client.run("ovan-tftp", "1", "127.0.0.2", "69", "local.cfg", "x",
                      "1", "no-such-vrf") == OTHER
    assert "VRF" in client.said
    client.told("Entering the VRF: no-such-vrf: there is no VRF of that name")


def test_password_is_on_no_other_command_line(client, servers, protocol):
    client.settings["transfer_seconds"] = 4
    server = servers.ftp_double() if protocol == "ftp" else \
        servers.ssh(stalls=True)
    client.reach(protocol, server)
    watcher = Watcher(client)
    assert client.get(protocol, "x", "new") == TIMEOUT
    seen = watcher.end()
    assert any(re.search(rb"snmp\.ftp\.expect\0|/ssh\0|\0?ssh\0", each)
               for each in seen)
    for line in seen:
        assert PASSWORD.encode() not in line or b".expect\0" in line


class Watcher:
    """Collects the command lines and environments of this user's processes."""

    def __init__(self, client):
        self.folder = client.folder
        self.seen = set()
        self.stopped = False
        self.thread = threading.Thread(target=self.watch)
        self.thread.start()

    def watch(self):
        while not self.stopped:
            for pid in processes_in(self.folder):
                for what in ("cmdline", "environ"):
                    with contextlib.suppress(OSError), \
                            open(f"/proc/{pid}/{what}", "rb") as file:
                        self.seen.add(file.read())
            time.sleep(0.1)

    def end(self):
        self.stopped = True
        self.thread.join()
        return self.seen
