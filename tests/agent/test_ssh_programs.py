"""What surrounds a copy by SFTP or SCP: homes, working directories, the
environment, disks, signals; and the keys of servers."""

import contextlib
import os
import pathlib
import pwd
import signal
import subprocess
import tempfile
import time

import pytest

import lab
import ssh as hostile
from test_hostile_ssh import clients_of
from tools import mounted, wait_for
from transfer_client import (BIN, DONE, NO_SPACE, OTHER, TIMEOUT, Client,
                             peak_kib, processes_in)
from transfer_servers import covers_tmp, needs_mounts

pytestmark = pytest.mark.skipif(not os.access("/usr/bin/ssh", os.X_OK),
                                reason="not installed: ssh")


class SshClient(Client):
    """The programs, with a server of the tests' own."""

    def __init__(self, folder, server):
        super().__init__(folder)
        self.server = server
        self.password = hostile.PASSWORD
        self.reach("sftp", server)
        self.more = {}

    @property
    def environment(self):
        return {**super().environment, **self.more}

    def arguments(self, protocol, direction, local="new", remote="x.cfg"):
        names = [local, remote] if direction == "put" else [remote, local]
        if protocol == "sftp":
            return ["sftp.expect", self.server.address, hostile.USER,
                    self.password, direction, *names]
        target = f"{hostile.USER}@{self.server.address}:{remote}"
        return ["scp.expect", *([local, target] if direction == "put" else
                                [target, local]), self.password]

    def copy(self, *what, **names):
        return self.run(*self.arguments(*what, **names))

    def begin_copy(self, *what):
        return self.begin(*self.arguments(*what))


@pytest.fixture
def server():
    made = hostile.HostileSsh()
    yield made
    made.close()


@pytest.fixture
def client(tmp_path, server):
    return SshClient(tmp_path, server)


@pytest.fixture(params=["sftp", "scp"])
def protocol(request):
    return request.param


# ---- Files that somebody could put in the way --------------------------------

def plant(folder, told):
    """Puts there whatever a client could read or run, all of which tells."""
    tells = f"/bin/touch {told}\n"
    ssh_config = (f"Match exec \"{tells.strip()}\"\n"
                  f"Host *\nPermitLocalCommand yes\nLocalCommand {tells}"
                  f"ProxyCommand {tells}KnownHostsCommand {tells}"
                  "UserKnownHostsFile /dev/null\n")
    texts = {
        ".ssh/config": ssh_config,
        "ssh_config": ssh_config, ".ssh/rc": tells,
        ".ssh/environment": f"SSH_ASKPASS={folder}/ssh\n",
        ".ssh/known_hosts": "*  ssh-ed25519 AAAA\n", ".profile": tells,
        ".bashrc": tells, ".bash_profile": tells, ".shinit": tells,
        ".kshrc": tells, ".zshenv": tells,
        ".netrc": f"default login x password y\nmacdef init\n!{tells}\n",
        ".inputrc": f"$include {folder}/.profile\n", ".editrc": "bind x\n",
        ".termcap": "dumb:xx\n", ".terminfo/d/dumb": "x", ".hushlogin": ""}
    for name, text in texts.items():
        file = folder / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)
        file.chmod(0o700)
    for name in ("ssh", "sftp", "scp", "sh", "xfvrf", "xfsettings",
                 "xfaskpass", "ssh-askpass"):
        (folder / name).write_text(f"#!/bin/sh\n{tells}")
        (folder / name).chmod(0o700)


def planted_environment(folder):
    return {"HOME": str(folder), "ENV": f"{folder}/.profile",
            "BASH_ENV": f"{folder}/.profile", "NETRC": f"{folder}/.netrc",
            "INPUTRC": f"{folder}/.inputrc", "EDITRC": f"{folder}/.editrc",
            "TERMCAP": f"{folder}/.termcap", "TERMINFO": f"{folder}/.terminfo",
            "SSH_ASKPASS": f"{folder}/ssh-askpass", "DISPLAY": ":77",
            "SSH_ASKPASS_REQUIRE": "force", "SSH_AUTH_SOCK": f"{folder}/agent",
            "SHELL": f"{folder}/sh", "PATH": f"{folder}:/usr/bin:/bin",
            "TMPDIR": "/nonexistent"}


@pytest.mark.parametrize("direction", ["get", "put"])
def test_nothing_of_a_home_is_read(client, server, tmp_path, protocol,
                                   direction):
    """Neither of the agent's home nor of its working directory."""
    told, home = tmp_path / "told", tmp_path / "home"
    for folder in (home, client.folder):
        plant(folder, told)
    client.more = planted_environment(home)
    server.stored["x.cfg"] = b"hostname new\n"
    local = "new" if direction == "get" else client.stage(b"x").decode()
    assert client.copy(protocol, direction, local=local) == DONE
    assert not told.exists()


@needs_mounts
def test_nothing_of_the_users_home_is_read(client, server, tmp_path, protocol):
    """ssh looks for that in the list of users; and at the machine's own."""
    told, home = tmp_path / "told", tmp_path / "home"
    plant(home, told)
    client.prefix = ["unshare", "-m", "sh", "-c",
                     'mount --bind "$1" "$2" && mount --bind "$1" /etc/ssh &&'
                     ' shift 2 && exec "$@"', "sh", str(home),
                     pwd.getpwuid(os.getuid()).pw_dir]
    server.stored["x.cfg"] = b"hostname new\n"
    assert client.copy(protocol, "get") == DONE
    assert not told.exists()


# ---- Disks -------------------------------------------------------------------

@covers_tmp
@pytest.mark.parametrize("options", ["ro", "size=4k,nr_inodes=1"])
def test_nothing_needs_the_temporary_folder(server, protocol, options):
    with tempfile.TemporaryDirectory(dir="/var/tmp") as folder:
        client = SshClient(pathlib.Path(folder), server)
        client.prefix = mounted(f"mount -t tmpfs -o {options} tmpfs /tmp")
        server.stored["x.cfg"] = b"hostname new\n"
        assert client.copy(protocol, "get") == DONE
        assert client.staged() == {b"new": b"hostname new\n"}
        assert client.copy(protocol, "put", local="new") == DONE


@pytest.mark.parametrize("length", [103, 104, 127, 128])
def test_long_names(client, server, protocol, length):
    name = "n" * length
    local = client.stage(b"x", name.encode()).decode()
    assert client.copy(protocol, "put", local=local, remote=name) == DONE
    assert server.stored[name] == b"x"
    server.stored[name] = b"y"
    assert client.copy(protocol, "get", local=local, remote=name) == DONE
    assert client.staged() == {name.encode(): b"y"}


@pytest.mark.parametrize("size, code", [(100_000, DONE), (100_001, NO_SPACE)])
@pytest.mark.parametrize("session", [hostile.Session, hostile.NoStat])
def test_the_largest_file(client, server, protocol, size, code, session):
    client.settings["download_octets"] = 100_000
    server.session = session
    server.stored["x.cfg"] = bytes(size)
    assert client.copy(protocol, "get") == code
    assert client.staged() == ({b"new": bytes(size)} if code == DONE else {})


def test_no_room_is_told_before_it_is_used_up(client, server, protocol,
                                              mount_small):
    """A size that is announced is looked at before anything is fetched."""
    mount_small(client.folder / "small")
    server.session = type("Large", (hostile.Announces,), {
        "size": 100_000, "open": lambda self, number: self.stay_silent()})
    assert client.copy(protocol, "get", local="small/new") == NO_SPACE
    assert os.listdir(client.folder / "small") == []


# ---- The process -------------------------------------------------------------

# A sanitizer has a lot of its own.
most_kib = 262144 if lab.SANITIZED else 16384


@pytest.mark.parametrize("session", [hostile.Chatters, hostile.EndlessBanners,
                                     hostile.Endless])
def test_memory_is_bounded(client, server, protocol, session):
    client.settings.update(login_seconds=6, transfer_seconds=4,
                           download_octets=1 << 30)
    server.session = session
    server.stored["x.cfg"] = b"x"
    running = client.begin_copy(protocol, "get")
    peak, began = 0, time.monotonic()
    while running.poll() is None and time.monotonic() - began < 30:
        peak = max(peak, peak_kib(running.pid))
        time.sleep(0.05)
    running.terminate()
    assert running.wait(10) == TIMEOUT
    assert 0 < peak < most_kib
    assert client.staged() == {}


def test_the_password_is_not_shown(client, server, protocol):
    """The list of processes has it no longer than until it was read."""
    server.session = hostile.SilentAtLogin
    running = client.begin_copy(protocol, "get")
    wait_for(lambda: server.last and server.last.given, "the login")
    with open(f"/proc/{running.pid}/cmdline", "rb") as file:
        words = file.read()
    running.terminate()
    assert running.wait(10) == OTHER
    assert b".expect\0" in words
    assert hostile.PASSWORD.encode() not in words


def test_server_that_stops_reading(client, server, protocol):
    client.settings["transfer_seconds"] = 2
    server.session = hostile.StopsReading
    local = client.stage(bytes(20_000_000)).decode()
    began = time.monotonic()
    assert client.copy(protocol, "put", local=local) == TIMEOUT
    assert time.monotonic() - began < 15


@pytest.mark.parametrize("session", [hostile.SilentAtLogin,
                                     hostile.StallsInTheMiddle])
def test_killed(client, server, protocol, session):
    """Nothing stays, neither a process nor a part of the file."""
    server.session = session
    server.stored["x.cfg"] = b"x"
    running = client.begin_copy(protocol, "get")
    wait_for(lambda: server.last and server.last.given, "the login")
    running.send_signal(signal.SIGKILL)
    running.wait()
    wait_for(lambda: not processes_in(client.folder) and
             not clients_of(server.port), "the client to end")
    assert client.staged() == {}


# ---- Keys of servers ---------------------------------------------------------

def fingerprint_of(server):
    digest = subprocess.run(
        ["ssh-keygen", "-l", "-f", "-"], input=server.known_host,
        capture_output=True, text=True, check=True)
    return digest.stdout.split()[1]


OTHERS = "".join(f"192.0.2.{number} ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIJ0RZ"
                 f"zNTVIoBTYaF5nIMhtqsLEJzJ1MKBQTXuvyW{number:04}\n"
                 for number in range(60))


def fill(path, room):
    """Takes all of a file system but so many octets."""
    with open(path, "wb", buffering=0) as file:
        with contextlib.suppress(OSError):
            while True:
                file.write(bytes(4096))
        file.truncate(file.tell() - room)


@pytest.mark.parametrize("room", [0, 4096])
@pytest.mark.parametrize("where", ["state", "tmp"])
def test_a_full_disk_loses_no_key(client, server, mount_small, where, room):
    small = mount_small(client.state if where == "state" else
                        client.folder / "tmp")
    known = client.state / "known_hosts"
    known.write_text(OTHERS)
    client.more["TMPDIR"] = str(client.folder / "tmp")
    fill(small / "filler", room)
    code = client.run("xfenrol", server.address, fingerprint_of(server))
    if where == "tmp":
        assert code == 0
        assert known.read_text() == OTHERS + server.known_host
    else:
        assert code == 1 and "known now" not in client.said
        assert known.read_text() == OTHERS
    assert set(os.listdir(client.state)) <= {"known_hosts", "filler"}


def test_a_new_key_takes_the_place_of_the_old_one(client, server):
    known = client.state / "known_hosts"
    stale = server.known_host.rpartition(" ")[0] + " AAAA\n"
    first, last = OTHERS[:500].rpartition("\n")[0] + "\n", "# a remark\n"
    known.write_text(first + stale + server.known_host + last)
    assert client.run("xfenrol", server.address, fingerprint_of(server)) == 0
    assert known.read_text() == first + last + server.known_host
    assert os.listdir(client.state) == ["known_hosts"]


def test_keys_that_come_at_once_are_all_kept(tmp_path):
    with contextlib.ExitStack() as stack:
        servers = [hostile.HostileSsh(f"127.0.0.{number}")
                   for number in range(2, 10)]
        for each in servers:
            stack.callback(each.close)
        client = SshClient(tmp_path, servers[0])
        (client.state / "known_hosts").unlink()
        running = []
        for each in servers:
            client.settings["ssh_port"] = each.port
            running.append(subprocess.Popen(
                [BIN / "xfenrol", each.address, fingerprint_of(each)],
                env=client.environment, stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL))
        assert [each.wait(60) for each in running] == [0] * len(servers)
    known = (client.state / "known_hosts").read_text()
    assert sorted(known.splitlines(True)) == sorted(
        each.known_host for each in servers)


def test_only_lines_that_were_verified(client, server):
    """A scan that says more than the key that is wanted."""
    scan = client.folder / "ssh-keyscan"
    other = hostile.HostileSsh()
    other.close()
    key = server.known_host.split(" ", 1)[1]
    scan.write_text("#!/bin/sh\ncat <<'END'\n* " + key + server.known_host +
                    other.known_host +
                    server.known_host.replace("\n", " @cert-authority\n") +
                    "@cert-authority " + server.known_host + "END\n")
    scan.chmod(0o700)
    client.more["PATH"] = f"{client.folder}:{os.environ['PATH']}"
    (client.state / "known_hosts").unlink()
    assert client.run("xfenrol", server.address, fingerprint_of(server)) == 0
    assert (client.state / "known_hosts").read_text() == server.known_host
