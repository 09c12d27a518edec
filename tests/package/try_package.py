"""Tries the packages in a bare root: README's commands, copies, an upgrade while
a copy runs, a maker's platform, a purge. Started by scripts/check-package.sh in
network, mount and process namespaces of its own, so that the standard ports are
free and nothing is left running.

usage: try_package.py ROOT PACKAGE NEXT-PACKAGE README"""

import contextlib
import os
import pathlib
import re
import shutil
import signal
import stat
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "agent"))

from snmp import (FAILED, IN_PROGRESS, RUNNING, STARTUP,  # noqa: E402
                  SUCCESSFUL, Station, download, go, row, upload)
from tools import Program, wait_for  # noqa: E402
import transfer_servers  # noqa: E402
from units import Manager  # noqa: E402

SERVER = "192.0.2.1"
SERVER_IN_RED = "198.51.100.1"
TFTP, FTP, SCP, SFTP = 1, 2, 4, 5
VRF_CHASSIS = 29
USER = "Debian-snmp"
LIBRARY = "libxfplatform.so.1"
ENABLED = "etc/snmp/snmpd.conf.d/config-copy.conf"
CONFIGURATION = "hostname router\ncontact operations\nvlan 10\n  name users\n"
# What dpkg and apt note, and what they were given.
NOT_COMPARED = re.compile(
    r"var/(log|cache)/(?!xfplatform)|var/lib/(dpkg|apt)/|root/|"
    r"etc/ld\.so\.cache$|etc/(passwd|group|g?shadow)-$")


@contextlib.contextmanager
def step(what):
    begun = time.monotonic()
    print(f"  {what} ... ", end="", flush=True)
    try:
        yield
    except BaseException:
        print("FAILED", flush=True)
        raise
    print(f"ok ({time.monotonic() - begun:.0f} s)", flush=True)


class Root:
    """The system in a folder."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)

    def mount(self):
        subprocess.run(["mount", "--make-rprivate", "/"], check=True)
        # Its root is a mount of its own, which ip netns asks for.
        subprocess.run(["mount", "--bind", self.folder, self.folder],
                       check=True)
        for kind, place in (("proc", "proc"), ("tmpfs", "run")):
            subprocess.run(["mount", "-t", kind, kind, self.folder / place],
                           check=True)
        subprocess.run(["mount", "--rbind", "/dev", self.folder / "dev"],
                       check=True)

    def path(self, name):
        return self.folder / name.lstrip("/")

    def run(self, command, check=True, text=None, **options):
        """A line of shell in the root; its output."""
        done = subprocess.run(
            ["chroot", self.folder, "/bin/bash", "-c", f"cd /root; {command}"],
            input=text or "", capture_output=True, text=True, timeout=300,
            errors="replace", env={
                "PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root",
                "DEBIAN_FRONTEND": "noninteractive", "LC_ALL": "C.UTF-8"},
            **options)
        if check and done.returncode != 0:
            raise AssertionError(f"{command}\n{done.stdout}{done.stderr}")
        return done.stdout if check else done

    def as_agent(self, command, **more):
        return self.run(f"runuser -u {USER} -- {command}", **more)

    def files(self):
        """Each file but those of the kernel, with what it is."""
        found = {}
        for folder, names, files in os.walk(self.folder):
            if pathlib.Path(folder) == self.folder:
                names[:] = [each for each in names
                            if each not in ("proc", "sys", "dev", "run")]
            for name in names + files:
                path = pathlib.Path(folder) / name
                inside = str(path.relative_to(self.folder))
                if not NOT_COMPARED.match(inside):
                    found[inside] = what_is(path)
        return found


def what_is(path):
    status = path.lstat()
    link = os.readlink(path) if path.is_symlink() else ""
    return stat.filemode(status.st_mode), status.st_uid, status.st_gid, link


def readme_commands(readme):
    """The indented lines of the chapter; each is a command, or goes on with
    the one before."""
    chapter = re.search(r"^## On a router\n(.*?)(?=^## |\Z)", readme,
                        re.M | re.S)[1]
    lines = re.findall(r"^    (.*)$", chapter, re.M)
    assert 5 <= len(lines) <= 10, f"{len(lines)} lines"
    return "\n".join(lines).replace("\\\n", " ").splitlines()


class TftpServer(Program):
    def __init__(self, folder, address=SERVER, wrapper=()):
        super().__init__("in.tftpd", folder / "tftpd.log")
        self.files = folder / "tftp"
        self.files.mkdir()
        self.files.chmod(0o777)
        self.run([*wrapper, "/usr/sbin/in.tftpd", "--foreground", "--create",
                  "--secure", "--address", f"{address}:69", str(self.files)])

    def content(self, name):
        return (self.files / name).read_bytes()


class Trial:
    """The switch, its servers and its station."""

    def __init__(self, root, readme):
        self.root = Root(root)
        self.readme = readme
        self.folder = self.root.folder.parent / "servers"
        shutil.rmtree(self.folder, ignore_errors=True)
        self.manager = Manager(root)
        self.station = None
        self.last_row = 1

    def start_network(self):
        for words in (["link", "set", "lo", "up"],
                      ["address", "add", f"{SERVER}/32", "dev", "lo"]):
            subprocess.run(["ip", *words], check=True)

    def start_servers(self):
        def folder(name):
            (self.folder / name).mkdir(parents=True)
            return self.folder / name
        self.sshd = transfer_servers.SshServer(folder("ssh"), SERVER, 22)
        self.ftpd = transfer_servers.FtpServer(folder("ftp"), SERVER, 21)
        self.tftpd = TftpServer(folder("tftpd"))

    # --- README -------------------------------------------------------------

    def follow_readme(self):
        known = {"FINGERPRINT": self.sshd.fingerprint.removeprefix("SHA256:"),
                 "USER": transfer_servers.USER,
                 "PASSWORD": "'" + transfer_servers.PASSWORD + "'"}
        for line in readme_commands(self.readme):
            if line.startswith("systemctl enable"):
                self.verify_units()
                self.configure()
            for name, value in known.items():
                line = re.sub(rf"\b{name}\b", lambda _, v=value: v, line)
            with step(line[:66]):
                self.follow(line)

    def follow(self, line):
        if line.startswith("systemctl "):
            self.manager.run(line.split()[1:])
        elif "snmpset" in line:
            self.station = Station("127.0.0.1", station_options(line))
            subprocess.run(["bash", "-c", line], check=True,
                           stdout=subprocess.PIPE)
        else:
            self.root.run(line)

    def configure(self):
        """What an operator has of his own: a configuration and a setting."""
        with step("a configuration, and a setting in /etc/xfhost.conf"):
            with open(self.root.path("/etc/xfhost.conf"), "a") as settings:
                settings.write("login_seconds 250\n")
            self.root.path("/tmp/first.cfg").write_text(CONFIGURATION)
            self.root.path("/var/lib/xfplatform").mkdir(mode=0o700)
            self.root.run(f"chown {USER}:{USER} /var/lib/xfplatform")
            self.root.as_agent("qsh --apply /tmp/first.cfg /tmp/results")
            self.root.run("rm /tmp/first.cfg /tmp/results")

    def verify_units(self):
        """What systemd says about the units, those of others left out."""
        with step("systemd-analyze verify"):
            done = self.root.run("systemd-analyze --man=no verify "
                                 "xfprocd.service snmpd.service", check=False)
            told = [each for each in (done.stdout + done.stderr).splitlines()
                    if re.search("xfprocd|config-copy", each)]
            assert not told, "\n".join(told)
        shown = self.root.run("systemd-analyze security --offline=true "
                              "--no-pager xfprocd.service")
        exposure = re.search(r"Overall exposure level.*: ([\d.]+) ", shown)
        assert float(exposure[1]) < 2, exposure[0]
        print(f"  {exposure[0]}")

    # --- copies -------------------------------------------------------------

    def running_config(self):
        return self.root.as_agent("qsh -c 'show running-config'")

    def ended(self, index):
        state = self.station.get("xfCopyState", index)
        return state in (SUCCESSFUL, FAILED) and state

    def succeeds(self, index):
        state = wait_for(lambda: self.ended(index), f"row {index}", 120)
        if state != SUCCESSFUL:
            raise AssertionError(
                f"row {index} failed, cause "
                f"{self.station.get('xfCopyFailCause', index)}\n" +
                self.root.path("/var/log/xfplatform/snmpd.err").read_text())

    def copy(self, varbinds, protocol=None):
        """Starts a copy; the index of its row."""
        index = int(varbinds[0][0].rpartition(".")[2])
        if protocol:
            varbinds = row(index, xfCopyProtocol=protocol) + varbinds
        if protocol not in (None, TFTP):
            varbinds += row(index, xfCopyUserName=transfer_servers.USER,
                            xfCopyUserPassword=transfer_servers.PASSWORD)
        self.station.set(go(varbinds))
        return index

    def next_row(self):
        self.last_row += 1
        return self.last_row

    def check_backup(self):
        self.succeeds(1)
        sent = self.sshd.content("router.cfg").decode()
        assert sent == self.running_config() and "hostname router" in sent, sent

    def check_way_back(self):
        self.sshd.offer("new.cfg", b"hostname second\n")
        index = self.copy(download(self.next_row(), "new.cfg", SERVER), SFTP)
        self.succeeds(index)
        assert "hostname second\n" in self.running_config()

    def check_protocol(self, protocol, server):
        index = self.copy(upload(self.next_row(), "again.cfg", SERVER),
                          protocol)
        self.succeeds(index)
        assert server.content("again.cfg").decode() == self.running_config()
        with contextlib.suppress(FileNotFoundError):
            (server.files / "again.cfg").unlink()

    def check_save(self):
        index = self.next_row()
        self.station.set(go(row(index, xfCopySourceFileType=RUNNING,
                                xfCopyDestFileType=STARTUP)))
        self.succeeds(index)
        shown = self.root.as_agent("qsh -c 'show startup-config'")
        assert shown == self.running_config() != ""

    def check_processes(self):
        """Who they are, and what they have loaded from where."""
        user = self.root.run(f"id -u {USER}").strip()
        for name in ("snmpd", "xfprocd"):
            pid = self.manager.unit(name).pid
            status = pathlib.Path(f"/proc/{pid}/status").read_text()
            assert f"Uid:\t{user}\t{user}\t{user}\t{user}\n" in status, status
            assert re.search(r"^CapEff:\t0+$", status, re.M), status
        assert self.platform() == \
            f"/usr/lib/{self.triplet()}/libconfigcopymib/{LIBRARY}"

    def triplet(self):
        return self.root.run("dpkg-query -L snmpd-config-copy | "
                             "sed -n 's|^/usr/lib/\\([^/]*\\)/snmp$|\\1|p'"
                             ).strip()

    def platform(self):
        """The platform library that the agent has loaded."""
        maps = pathlib.Path(
            f"/proc/{self.manager.unit('snmpd').pid}/maps").read_text()
        found = set(re.findall(rf"\S*{re.escape(LIBRARY)}\S*", maps))
        assert len(found) == 1, found
        return "/" + os.path.relpath(found.pop(), self.root.folder)

    def check_private(self):
        """Nobody else reads what the agent keeps and says."""
        for folder in ("/var/lib/xfplatform", "/var/log/xfplatform",
                       "/run/xfplatform"):
            mode = self.root.path(folder).stat().st_mode & 0o777
            assert mode == 0o700, f"{folder} {mode:o}"
        log = self.root.path("/var/log/xfplatform/snmpd.err").read_text()
        assert "sftp" in log.lower(), log
        agent = self.manager.unit("snmpd").log.read_text(errors="replace")
        assert transfer_servers.PASSWORD not in agent

    # --- VRFs ---------------------------------------------------------------

    def check_vrf(self):
        self.root.run("ip netns add red && ip -n red link set lo up && "
                      f"ip -n red address add {SERVER_IN_RED}/32 dev lo")
        try:
            number = self.root.as_agent("xfvrf --id red").strip()
            show = f"xfvrf {number} /bin/sh -c " \
                "'readlink /proc/self/ns/net; grep CapEff /proc/self/status'"
            there, rights = self.root.as_agent(show).splitlines()
            assert there != self.root.run("readlink /proc/self/ns/net").strip()
            assert int(rights.split()[1], 16) == 0, rights
            other = self.root.run(f"runuser -u nobody -- {show}", check=False)
            assert other.returncode != 0 and \
                "Permission denied" in other.stderr, other
            self.check_copies_in_vrf()
        finally:
            self.root.run("ip netns del red")

    def servers_in_red(self):
        """Outside of the root the namespace has the same name, and a /run of
        its own to have it in."""
        inside = self.root.path("/run/netns/red")
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/run"], check=True)
        outside = pathlib.Path("/run/netns/red")
        outside.parent.mkdir()
        outside.touch()
        subprocess.run(["mount", "--bind", inside, outside], check=True)
        for name in ("red-ssh", "red-ftp", "red-tftp"):
            (self.folder / name).mkdir()
        made = {
            SFTP: transfer_servers.SshServer(
                self.folder / "red-ssh", SERVER_IN_RED, 22, netns="red"),
            FTP: transfer_servers.FtpServer(
                self.folder / "red-ftp", SERVER_IN_RED, 21, netns="red"),
            TFTP: TftpServer(self.folder / "red-tftp", SERVER_IN_RED,
                             ["ip", "netns", "exec", "red"])}
        for protocol, port in ((SFTP, 22), (FTP, 21), (TFTP, 69)):
            wait_for(lambda p=port: subprocess.run(
                ["ip", "netns", "exec", "red", "ss", "-Hlntu",
                 f"sport = :{p}"], capture_output=True).stdout,
                made[protocol].name)
        return made

    def check_copies_in_vrf(self):
        """On a chassis where the module knows VRFs, and calls the program for
        TFTP by its literal name."""
        with open(self.root.path("/etc/xfhost.conf"), "a") as settings:
            settings.write(f"chassis_type {VRF_CHASSIS}\n")
        self.root.run("ln -s /usr/libexec/libconfigcopymib/brim /brim")
        servers = self.servers_in_red()
        self.root.as_agent(f"xfenrol {SERVER_IN_RED} "
                           f"{servers[SFTP].fingerprint} -v red")
        self.manager.run(["restart", "snmpd"])
        for protocol, server in servers.items():
            index = self.copy(upload(self.next_row(), "vrf.cfg", SERVER_IN_RED,
                                     xfCopyVRFName="red"), protocol)
            self.succeeds(index)
            assert server.content("vrf.cfg").decode() == self.running_config()
            server.stop()
        subprocess.run(["umount", "-R", "/run"], check=True)
        self.root.run("sed -i /chassis_type/d /etc/xfhost.conf")
        self.manager.run(["restart", "snmpd"])

    # --- upgrade, replacement, purge ----------------------------------------

    def upgrade(self, package):
        """While a copy waits for its server."""
        units = [self.manager.unit(each) for each in ("snmpd", "xfprocd")]
        before = [each.pid for each in units]
        done = self.copy(upload(self.next_row(), "early.cfg", SERVER), SFTP)
        self.succeeds(done)
        held = listening(22)
        os.kill(held, signal.SIGSTOP)
        try:
            index = self.copy(upload(self.next_row(), "late.cfg", SERVER), SFTP)
            old = self.installed_version()
            self.root.run(f"apt install ./{package}")
            assert self.installed_version() != old
            assert self.station.get("xfCopyState", index) == IN_PROGRESS
        finally:
            os.kill(held, signal.SIGCONT)
        self.succeeds(index)
        assert self.sshd.content("late.cfg").decode() == self.running_config()
        assert self.station.get("xfCopyState", done) == SUCCESSFUL
        assert all(each.running() for each in units)
        assert [each.pid for each in units] == before
        assert "login_seconds 250" in \
            self.root.path("/etc/xfhost.conf").read_text()

    def installed_version(self):
        return self.root.run(
            "dpkg-query -W -f '${Version}' snmpd-config-copy")

    def restart(self):
        self.manager.run(["restart", "snmpd", "xfprocd"])
        self.check_protocol(SFTP, self.sshd)
        self.check_save()

    def replace_platform(self):
        """A maker's library of the same name, put where the module looks
        first, and taken away again."""
        own = self.platform()
        maker = os.path.join(os.path.dirname(own), "maker")
        self.root.run(f"mkdir {maker} && cp {own} {maker}/")
        self.manager.run(["restart", "snmpd"])
        assert self.platform() == f"{maker}/{LIBRARY}"
        self.check_protocol(SFTP, self.sshd)
        self.root.run(f"rm -r {maker}")
        self.manager.run(["restart", "snmpd"])
        assert self.platform() == own

    def purge(self):
        self.manager.run(["stop", "xfprocd", "snmpd"])
        # The operator's own, not the package's.
        self.root.run("rm /etc/snmp/snmpd.conf.d/snmpd-v3-only.conf")
        self.root.run("apt purge --autoremove snmpd-config-copy")
        for folder in ("/run/xfplatform", "/var/log/xfplatform"):
            assert not self.root.path(folder).exists(), folder


def station_options(line):
    """Those of SNMPv3 in the command of a station."""
    words = subprocess.run(["bash", "-c", "printf '%s\\n' " +
                            re.search(r"snmpset (.*?) 127\.0\.0\.1", line)[1]],
                           check=True, capture_output=True, text=True)
    return words.stdout.splitlines()


def listening(port):
    """The process that listens on a TCP port."""
    output = subprocess.run(["ss", "-Hltnp", f"sport = :{port}"], check=True,
                            capture_output=True, text=True).stdout
    return int(re.search(r"pid=(\d+)", output)[1])


def compare(before, after, users_before, users_after):
    lines = [f"left: {each}" for each in sorted(after.keys() - before.keys())]
    lines += [f"gone: {each}" for each in sorted(before.keys() - after.keys())]
    lines += [f"changed: {each} {before[each]} {after[each]}"
              for each in sorted(before.keys() & after.keys())
              if before[each] != after[each]]
    assert not lines, "\n".join(lines)
    changed = users_before ^ users_after
    assert not changed, f"users or groups: {changed}"


def users(root):
    """Lines of the users and groups, but for the group that Debian's
    openssh-client leaves behind."""
    return {line for each in ("passwd", "group")
            for line in root.path(f"/etc/{each}").read_text().splitlines()
            if not line.startswith("_ssh:")}


def main(folder, package, next_package, readme):
    trial = Trial(folder, pathlib.Path(readme).read_text())
    root = trial.root
    root.mount()
    trial.start_network()
    with step("the agent as Debian has it"):
        trial.manager.run(["start", "snmpd"])
    before, users_before = root.files(), users(root)
    with step("servers for SFTP, SCP, FTP and TFTP"):
        trial.start_servers()
    shutil.copy(package, root.path("/root/"))
    trial.follow_readme()
    with step("the first backup is the running configuration"):
        trial.check_backup()
    with step("processes: whose, no capabilities, which library"):
        trial.check_processes()
    with step("from the server to the running configuration"):
        trial.check_way_back()
    for name, protocol, server in (("SCP", SCP, trial.sshd),
                                   ("FTP", FTP, trial.ftpd),
                                   ("TFTP", TFTP, trial.tftpd)):
        with step(f"to the server by {name}"):
            trial.check_protocol(protocol, server)
    with step("running to startup configuration"):
        trial.check_save()
    with step("directories and logs are private"):
        trial.check_private()
    with step("upgrade while a copy runs: the copy and all rows stay"):
        shutil.copy(next_package, root.path("/root/"))
        trial.upgrade(pathlib.Path(next_package).name)
    with step("restart: copies and saves go on with the new version"):
        trial.restart()
    with step("VRF: the agent's user enters it, nobody else does; copies by\n"
              "    SFTP, FTP and TFTP"):
        trial.check_vrf()
    with step("a maker's platform takes the place of ours"):
        trial.replace_platform()
    with step("purge"):
        trial.purge()
    with step("files, users and groups are as before"):
        compare(before, root.files(), users_before, users(root))


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except AssertionError as error:
        sys.exit(f"{error}")
