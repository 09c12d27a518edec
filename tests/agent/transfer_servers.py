"""FTP and SSH servers with users of their own: a private mount namespace hides
the machine's files of users from them, so nothing of it is changed."""

import contextlib
import os
import pathlib
import socket
import subprocess
import tempfile
import threading
import warnings

import pytest

from tools import Program, can_run, wait_for

USER = "copier"
PASSWORD = "s3 cr$et\"[x]\\{"
SSHD = "/usr/sbin/sshd"
VSFTPD = "/usr/sbin/vsftpd"
NEEDED = [SSHD, VSFTPD, "/usr/bin/sftp"]

# Runs in the private mount namespace. $1 is the folder of the server.
IN_NAMESPACE = """\
set -e
for file in passwd shadow pam.d; do mount --bind "$1/etc/$file" "/etc/$file"; done
mount -t tmpfs -o mode=755 tmpfs /run
mkdir -p /run/sshd /run/vsftpd/empty
[ -z "$2" ] || mount -t tmpfs -o size=64k,mode=777 tmpfs "$2"
shift 2
exec "$@"
"""

PAM = """\
auth required pam_unix.so
account required pam_permit.so
session required pam_permit.so
"""


def why_no_mounts():
    if os.getuid() != 0:
        return "only root can mount"
    return None if can_run(["unshare", "-m"]) else "no mount namespaces here"


def why_tmp_stays():
    """Why nothing can be mounted over /tmp; None if that can be done."""
    here = pathlib.Path(__file__).resolve()
    return "the tree is below /tmp" if here.is_relative_to("/tmp") \
        else why_no_mounts()


def why_not():
    """Why these servers cannot run here; None if they can."""
    missing = [each for each in NEEDED if not os.access(each, os.X_OK)]
    if missing:
        return f"not installed: {' '.join(missing)}"
    if os.getuid() != 0:
        return "only root can run servers that log users in"
    return why_no_mounts()


def why_no_network_namespaces():
    name = f"xftest-{os.getpid()}"
    made = subprocess.run(["ip", "netns", "add", name], capture_output=True)
    if made.returncode != 0:
        return "no network namespaces here"
    subprocess.run(["ip", "netns", "del", name], check=True)
    return None


needs_servers = pytest.mark.skipif(why_not() is not None,
                                   reason=str(why_not()))
needs_mounts = pytest.mark.skipif(why_no_mounts() is not None,
                                  reason=str(why_no_mounts()))
covers_tmp = pytest.mark.skipif(why_tmp_stays() is not None,
                                reason=str(why_tmp_stays()))


def free_tcp_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.2", 0))
        return probe.getsockname()[1]


def listens(address, port):
    with contextlib.suppress(OSError):
        socket.create_connection((address, port), 1).close()
        return True
    return False


class LoginServer(Program):
    """A server of a user `copier` whose home is `files`. `full`: the folder
    full/ in it is a file system of 64 kB."""

    def __init__(self, name, folder, address, port, full=False, netns=None):
        super().__init__(name, folder / "server.log")
        self.folder, self.address, self.port = folder, address, port
        self.full, self.netns = full, netns
        self.files = folder / "files"
        self.files.mkdir()
        self.files.chmod(0o777)
        if full:
            (self.files / "full").mkdir()
        self.make_users()

    def make_users(self):
        etc = self.folder / "etc"
        (etc / "pam.d").mkdir(parents=True)
        for service in ("vsftpd", "sshd", "other"):
            (etc / "pam.d" / service).write_text(PAM)
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            import crypt
            secret = crypt.crypt(PASSWORD, crypt.mksalt(crypt.METHOD_SHA512))
        users = pathlib.Path("/etc/passwd").read_text()
        (etc / "passwd").write_text(
            f"{users}{USER}:x:4711:65534::{self.files}:/bin/sh\n")
        (etc / "shadow").write_text(f"{USER}:{secret}:19000:0:99999:7:::\n")
        (etc / "shadow").chmod(0o600)

    def serve(self, command):
        script = self.folder / "in-namespace"
        script.write_text(IN_NAMESPACE)
        inside = ["unshare", "-m", "sh", str(script), str(self.folder),
                  str(self.files / "full") if self.full else "", *command]
        if self.netns:
            inside = ["ip", "netns", "exec", self.netns, *inside]
        self.run(inside)
        if not self.netns:
            wait_for(lambda: listens(self.address, self.port), self.name)
        return self

    def offer(self, name, content):
        path = os.path.join(os.fsencode(self.files), os.fsencode(name))
        with open(path, "wb") as file:
            file.write(content)
        os.chmod(path, 0o666)
        return content

    def content(self, name):
        with open(os.path.join(os.fsencode(self.files), os.fsencode(name)),
                  "rb") as file:
            return file.read()


class SshServer(LoginServer):
    """OpenSSH. `subsystem` is what serves SFTP."""

    def __init__(self, folder, address="127.0.0.2", port=None,
                 subsystem="/usr/lib/openssh/sftp-server", **more):
        super().__init__(f"sshd of {address}", folder, address,
                         port or free_tcp_port(), **more)
        self.key = folder / "key"
        subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f",
                        str(self.key)], check=True)
        configuration = folder / "sshd.conf"
        configuration.write_text(
            f"Port {self.port}\nListenAddress {address}\nHostKey {self.key}\n"
            "PidFile none\nUsePAM no\nPasswordAuthentication yes\n"
            f"StrictModes no\nSubsystem sftp {subsystem}\n")
        self.serve([SSHD, "-D", "-e", "-f", str(configuration)])

    @property
    def known_host(self):
        """The line that makes this server known."""
        kind, key = pathlib.Path(f"{self.key}.pub").read_text().split()[:2]
        return f"[{self.address}]:{self.port} {kind} {key}\n"

    @property
    def fingerprint(self):
        return subprocess.run(
            ["ssh-keygen", "-l", "-f", f"{self.key}.pub"], check=True,
            capture_output=True, text=True).stdout.split()[1]


class FtpServer(LoginServer):
    """vsftpd."""

    def __init__(self, folder, address="127.0.0.2", port=None, **more):
        super().__init__(f"vsftpd of {address}", folder, address,
                         port or free_tcp_port(), **more)
        listen = "listen_ipv6=YES\nlisten=NO\nlisten_address6" \
            if ":" in address else "listen=YES\nlisten_address"
        configuration = folder / "vsftpd.conf"
        configuration.write_text(
            f"{listen}={address}\nlisten_port={self.port}\nbackground=NO\n"
            "local_enable=YES\nwrite_enable=YES\nanonymous_enable=NO\n"
            "pam_service_name=vsftpd\nxferlog_enable=NO\n"
            "seccomp_sandbox=NO\nlocal_umask=022\n")
        self.serve([VSFTPD, str(configuration)])


class FtpDouble:
    """An FTP server that lets everybody in and, once a file is asked for,
    stalls or dies: `dies_after` octets of a download were sent, or an upload
    was begun."""

    def __init__(self, dies_after=None, silent=False):
        self.dies_after, self.silent = dies_after, silent
        self.listener = socket.create_server(("127.0.0.2", 0))
        self.port = self.listener.getsockname()[1]
        self.open = []
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        with contextlib.suppress(OSError):
            control, _ = self.listener.accept()
            self.open.append(control)
            self.serve(control)

    def serve(self, control):
        if self.silent:
            return
        control.sendall(b"220 ready\r\n")
        data = socket.create_server(("127.0.0.2", 0))
        self.open.append(data)
        port = data.getsockname()[1]
        answers = {
            b"USER": b"331 password", b"PASS": b"230 in", b"TYPE": b"200 type",
            b"SYST": b"215 UNIX Type: L8",
            b"EPSV": b"229 (|||%d|)" % port,
            b"PASV": b"227 (127,0,0,2,%d,%d)" % divmod(port, 256)}
        for line in control.makefile("rb"):
            verb = line.split()[0].upper()
            if verb in (b"RETR", b"STOR"):
                break
            control.sendall(answers.get(verb, b"502 no") + b"\r\n")
        if self.dies_after is None:
            return
        control.sendall(b"150 here it comes\r\n")
        connection, _ = data.accept()
        if verb == b"RETR":
            connection.sendall(bytes(self.dies_after))
        else:
            connection.recv(self.dies_after)
        for each in (connection, control):
            each.close()
        self.close()

    def close(self):
        for each in (self.listener, *self.open):
            with contextlib.suppress(OSError):
                each.shutdown(socket.SHUT_RDWR)
            each.close()


class CuttingRelay:
    """Stands before an SSH server and is gone after so many octets."""

    def __init__(self, server, octets):
        self.address, self.left = (server.address, server.port), octets
        self.listener = socket.create_server(("127.0.0.2", 0))
        self.port = self.listener.getsockname()[1]
        self.known_host = f"[127.0.0.2]:{self.port} " + \
            server.known_host.partition(" ")[2]
        self.ends = []
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        with contextlib.suppress(OSError):
            client, _ = self.listener.accept()
            server = socket.create_connection(self.address)
            self.ends = [client, server]
            for pair in ((client, server), (server, client)):
                threading.Thread(target=self.relay, args=pair,
                                 daemon=True).start()

    def relay(self, source, target):
        with contextlib.suppress(OSError):
            while self.left > 0:
                octets = source.recv(65536)
                if not octets:
                    break
                self.left -= len(octets)
                target.sendall(octets)
        self.close()

    def close(self):
        for each in (self.listener, *self.ends):
            with contextlib.suppress(OSError):
                each.shutdown(socket.SHUT_RDWR)
            each.close()


STALLING = "#!/bin/sh\nexec sleep 60\n"


@contextlib.contextmanager
def public_folder():
    """A folder that every user can reach, which pytest's are not."""
    with tempfile.TemporaryDirectory(prefix="xfcopy-") as folder:
        os.chmod(folder, 0o755)
        yield pathlib.Path(folder)


class Servers:
    """Makes servers; `stop` ends them and removes their folders."""

    def __init__(self):
        self.stack = contextlib.ExitStack()

    def ssh(self, *arguments, stalls=False, **more):
        folder = self.stack.enter_context(public_folder())
        if stalls:
            (folder / "stall").write_text(STALLING)
            (folder / "stall").chmod(0o755)
            more["subsystem"] = folder / "stall"
        return self.keep(SshServer(folder, *arguments, **more))

    def ftp(self, *arguments, **more):
        folder = self.stack.enter_context(public_folder())
        return self.keep(FtpServer(folder, *arguments, **more))

    def keep(self, server):
        def end():
            server.stop()
            print(f"--- {server.name}\n{server.log}")
        self.stack.callback(end)
        return server

    def relay(self, server, octets):
        relay = CuttingRelay(server, octets)
        self.stack.callback(relay.close)
        return relay

    def ftp_double(self, **more):
        double = FtpDouble(**more)
        self.stack.callback(double.close)
        return double

    def stop(self):
        self.stack.close()
