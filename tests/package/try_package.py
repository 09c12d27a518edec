"""Tries the packages in a bare root: the commands of README, docs/operation.md and
the manual pages, copies, an upgrade while a copy runs, a maker's platform, another
installation, a purge, and FRR. Started by scripts/check-package.sh in network,
mount and process namespaces of its own, so that the standard ports are free and
nothing is left running.

usage: try_package.py ROOT PACKAGE NEXT-PACKAGE [--systemd]

With --systemd, systemd itself is process 1 of the root, and the exit status 77 if
it cannot be; without, units.py does what the units say."""

import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time
import traceback

HERE = pathlib.Path(__file__).resolve().parent
for each in ("agent", "docs"):
    sys.path.insert(0, str(HERE.parent / each))

from attacks import XFVRF, try_xfvrf  # noqa: E402
from booted import Booted, NotBooted  # noqa: E402
from documents import Chapter, chapter, fill, lines_of  # noqa: E402
import fabric  # noqa: E402
from links import check_links  # noqa: E402
from root import Root, USER, compare  # noqa: E402
from saves import FABRIC_STARTUP, save  # noqa: E402
from snmp import (FAILED, IN_PROGRESS, SUCCESSFUL, Station,  # noqa: E402
                  download, go, row, upload)
from tools import Program, wait_for  # noqa: E402
import transfer_servers  # noqa: E402
from units import Manager  # noqa: E402

SERVER = "192.0.2.1"
SERVER_IN_RED = "198.51.100.1"
TFTP, FTP, SCP, SFTP = 1, 2, 4, 5
VRF_CHASSIS = 29
LIBRARY = "libxfplatform.so.1"
ENABLED = "/etc/snmp/snmpd.conf.d/config-copy.conf"
# A folder beside the packages, as a checkout is after a build.
CHECKOUT = "/root/checkout"
OVERRIDDEN = "/etc/systemd/system/xfprocd.service.d/frr.conf"
CONFIGURATION = "hostname router\ncontact operations\nvlan 10\n  name users\n"
ROUTES = b"ip route 10.1.0.0/24 blackhole\nip route 10.2.0.0/24 blackhole\n"
# The most that `systemd-analyze security` may say of xfprocd, from 0 to 10.
EXPOSURE = 2.0
NOT_BOOTED = 77


@contextlib.contextmanager
def step(what):
    begun = time.monotonic()
    print(f"  {what} ... ", end="", flush=True)
    try:
        yield
    except NotBooted as reason:
        print(f"skipped, and FRR with it, because {reason}", flush=True)
        raise
    except BaseException:
        print("FAILED", flush=True)
        raise
    print(f"ok ({time.monotonic() - begun:.0f} s)", flush=True)


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

    def __init__(self, folder):
        self.root = Root(folder)
        self.folder = self.root.folder.parent / "servers"
        shutil.rmtree(self.folder, ignore_errors=True)
        self.manager = None
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

    def start_system(self, booted):
        self.root.bind()
        self.start_network()
        if booted:
            # As on any machine: packages may start what they like.
            self.root.path("/usr/sbin/policy-rc.d").unlink()
            self.manager = Booted(self.root)
        else:
            self.root.mount()
            self.manager = Manager(self.root.folder)
        self.manager.run(["start", "snmpd"])

    # --- README -------------------------------------------------------------

    def follow_readme(self, prepare):
        """`prepare` does what an operator has done before the units start."""
        with chapter("README.md", "On a router") as told:
            lines = [line for block in told.take_all()
                     for line in lines_of(block)]
        assert 5 <= len(lines) <= 10, f"{len(lines)} lines"
        assert lines[1].startswith("dpkg-buildpackage")
        for line in lines[2:]:  # those are run by scripts/check-package.sh
            if line.startswith("systemctl enable"):
                self.verify_units()
                prepare()
            line = self.filled(line)
            with step(line[:66]):
                self.follow(line, CHECKOUT)

    def filled(self, text):
        return fill(text, USER=transfer_servers.USER,
                    PASSWORD="'" + transfer_servers.PASSWORD + "'",
                    FINGERPRINT=self.sshd.fingerprint.removeprefix("SHA256:"))

    def follow(self, line, folder="/root"):
        """A command of a document."""
        if line.startswith("systemctl "):
            self.manager.run(line.split()[1:])
        elif "snmpset" in line:
            self.station = Station("127.0.0.1", station_options(line))
            subprocess.run(["bash", "-c", line], check=True,
                           stdout=subprocess.PIPE)
        else:
            self.root.run(f"cd {folder}; {line}")

    def configure(self):
        """What an operator has of his own: a configuration and a setting."""
        with step("a configuration, and a setting in /etc/xfhost.conf"):
            self.set("login_seconds 250\n")
            self.root.path("/tmp/first.cfg").write_text(CONFIGURATION)
            self.root.as_agent("qsh --apply /tmp/first.cfg /tmp/results")
            self.root.run("rm /tmp/first.cfg /tmp/results")

    def set(self, text):
        with open(self.root.path("/etc/xfhost.conf"), "a") as settings:
            settings.write(text)

    def verify_units(self):
        """What systemd says about the units, those of others left out."""
        with step("systemd-analyze verify"):
            done = self.root.run("systemd-analyze --man=no verify "
                                 "xfprocd.service snmpd.service", check=False)
            told = [each for each in (done.stdout + done.stderr).splitlines()
                    if re.search("xfprocd|config-copy", each)]
            assert not told, "\n".join(told)

    def check_exposure(self):
        """All that systemd has to say of the sandbox; judged by the sum."""
        shown = self.root.run("systemd-analyze security --offline=true "
                              "--no-pager xfprocd.service")
        print(f"\n{shown}", end="    ")
        exposure = re.search(r"Overall exposure level.*: ([\d.]+) ", shown)
        assert float(exposure[1]) <= EXPOSURE, exposure[0]

    # --- other packages -----------------------------------------------------

    def try_station(self):
        """Its package needs nothing of the agent's."""
        told = Chapter("docs/guide.md", "The station")
        self.root.run(told.take("apt install"))
        check_links(self.root, "xfcopy")
        assert "xfcopy 0." in self.root.run("xfcopy --version")
        self.root.run("apt purge xfcopy")

    def try_maker(self):
        """Nor does the one for makers."""
        self.root.run("apt install ./libconfigcopymib-dev_*.deb")
        check_links(self.root, "libconfigcopymib-dev")
        assert self.root.path("/usr/include/libconfigcopymib/platform/trc.h"
                              ).exists()
        self.root.run("apt purge --autoremove libconfigcopymib-dev")

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
                self.root.path("/var/log/xfplatform/snmpd.err").read_text() +
                self.manager.unit("xfprocd").said())

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
        self.station.set(save(index))
        self.succeeds(index)
        shown = self.root.as_agent("qsh -c 'show startup-config'")
        assert shown == self.running_config() != ""

    def check_processes(self):
        """Who they are, and what they have loaded from where."""
        user = self.root.run(f"id -u {USER}").strip()
        for name in ("snmpd", "xfprocd"):
            pid = self.manager.unit(name).pid
            status = self.root.path(f"/proc/{pid}/status").read_text()
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
        found = self.platforms()
        assert len(found) == 1, found
        return found.pop()

    def platforms(self):
        pid = self.manager.unit("snmpd").pid
        return set(self.root.run(
            f"grep -o '/.*{LIBRARY}' /proc/{pid}/maps || true").split())

    def check_private(self):
        """Nobody else reads what the agent keeps and says."""
        for folder in ("/var/lib/xfplatform", "/var/log/xfplatform",
                       "/run/xfplatform"):
            mode = self.root.path(folder).stat().st_mode & 0o777
            assert mode == 0o700, f"{folder} {mode:o}"
        log = self.root.path("/var/log/xfplatform/snmpd.err").read_text()
        assert "sftp" in log.lower(), log
        assert transfer_servers.PASSWORD not in self.manager.unit("snmpd").said()

    def check_sandbox(self):
        """What only systemd does: the sandbox, and to start it again."""
        procd = self.manager.unit("xfprocd")
        before = procd.pid
        status = self.root.path(f"/proc/{before}/status").read_text()
        assert "NoNewPrivs:\t1\n" in status and "Seccomp:\t2\n" in status
        self.root.run(f"kill -KILL {before}")
        wait_for(lambda: procd.running() and procd.pid not in (0, before),
                 "another procd")
        self.check_save()

    def check_rotation(self):
        """The rules for logs: what was said is kept, what comes is heard."""
        self.check_protocol(SFTP, self.sshd)
        errors = self.root.path("/var/log/xfplatform/snmpd.err")
        records = self.root.path("/var/lib/xfplatform/accounting.log")
        said = {each: each.read_text() for each in (errors, records)}
        assert all(said.values())
        self.root.run("logrotate -f -s /root/rotated "
                      "/etc/logrotate.d/snmpd-config-copy")
        for each, text in said.items():
            assert each.with_name(f"{each.name}.1").read_text() == text
        assert errors.read_text() == "" and not records.exists()
        self.check_protocol(SFTP, self.sshd)
        assert "sftp" in errors.read_text().lower()
        assert len(records.read_text().splitlines()) < \
            len(said[records].splitlines())
        assert self.root.run("stat -c '%U %a' /var/lib/xfplatform/"
                             "accounting.log") == f"{USER} 600\n"

    # --- docs/operation.md --------------------------------------------------

    def follow_operation(self):
        """Chapters whose commands need nothing else."""
        with chapter("docs/man/qsh.8", "EXAMPLES") as page, \
                chapter("docs/platform.md",
                        "What holds beyond the comments") as makers, \
                chapter("docs/operation.md", "Users") as told:
            for command in (page.take("runuser"), told.take("runuser"),
                            f"runuser -u {USER} -- {makers.take('qsh')}"):
                assert "hostname" in self.root.run(command)
        with chapter("docs/man/xfenrol.8", "EXAMPLES") as page:
            assert "is known now" in self.root.run(
                self.filled(page.take("runuser")))
        logs = self.root.path("/var/log/xfplatform")
        with chapter("docs/operation.md", "Units") as told:
            shutil.rmtree(logs)
            self.root.run(told.take("systemd-tmpfiles"))
            assert logs.stat().st_mode & 0o777 == 0o700
            self.manager.run(["restart", "snmpd"])

    def look_at_a_failure(self):
        with chapter("docs/operation.md", "When a copy fails") as told:
            command = told.take("journalctl")
            if isinstance(self.manager, Booted):
                assert "(SUCCESS)" in self.root.run(command)
            copied = self.root.run(self.filled(told.take("cd ")))
            assert copied == "0\n", copied
            assert self.sshd.content("test").decode() == \
                self.root.run("cat /etc/hostname")
            self.follow(told.take("systemctl restart"))
        self.check_save()

    # --- the fabric ---------------------------------------------------------

    def check_fabric(self):
        """Another switch is enrolled, and saves when this one is asked to."""
        other = fabric.Switch(self.root.folder, self.folder / "switch.log")
        try:
            with chapter("docs/operation.md", "Fabric") as told:
                self.enrol(other, told)
            self.check_save_there(other, "hostname north\n")
            # It runs what fabric_command says without a command of its own.
            other.root.run("sed -i 's/,command=.*\" / /' .ssh/authorized_keys")
            self.check_save_there(other, "hostname northern\n")
        finally:
            other.stop()
        self.root.run("rm -r /etc/xffabric; "
                      "sed -i /^fabric_/d /etc/xfhost.conf")

    def enrol(self, other, told):
        for command in (told.take("install"), told.take("ssh-keygen -q")):
            self.root.run(f"set -e; {command}")
        self.follow(told.take("systemctl restart"))
        shown = other.root.run(told.take("ssh-keygen -lf /etc/ssh"))
        fetched = self.root.run(f"set -e; {told.take('ssh-keyscan')}")
        assert fetched.split()[1] == shown.split()[1]
        key = self.root.path("/etc/xffabric/key.pub").read_text().strip()
        other.root.run(fill(told.take("mkdir"), PUBLIC_KEY=key))

    def check_save_there(self, other, configuration):
        other.configure(configuration)
        index = self.next_row()
        self.station.set(save(index, FABRIC_STARTUP))
        self.succeeds(index)
        assert other.startup_config() == configuration

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
            try_xfvrf(self.root, number)
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
        self.set(f"chassis_type {VRF_CHASSIS}\n")
        with chapter("docs/operation.md", "`/brim/bin`") as told, \
                chapter("docs/man/ovan-tftp.8", "DESCRIPTION") as page:
            for command in (told.take("ln "), page.take("ln ")):
                self.root.run(f"rm -f /brim; {command}")
        servers = self.servers_in_red()
        with chapter("docs/operation.md", "Host keys") as told:
            enrol = fill(told.take("xfenrol"), VRF="red")
        self.root.as_agent(f"{enrol} {SERVER_IN_RED} "
                           f"{servers[SFTP].fingerprint}")
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
        with chapter("docs/operation.md", "Upgrading") as told:
            self.follow(told.take("systemctl restart"))
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

    # --- installed again and again ------------------------------------------

    def reconfigure(self):
        """As often as one likes, and what the operator has decided stays."""
        rights = f"stat -c '%U %G %a' {XFVRF}; getcap {XFVRF}"
        ours = self.root.run(rights)
        for _ in range(2):
            self.root.run("dpkg-reconfigure snmpd-config-copy")
        assert self.root.run(rights) == ours
        with chapter("docs/operation.md", "VRFs") as told:
            self.root.run("set -e; " + told.take("dpkg-statoverride"))
        self.root.run("dpkg-reconfigure snmpd-config-copy")
        assert self.root.run(rights) == "root root 755\n"
        self.root.as_agent("xfvrf 1 true")
        self.root.run(f"dpkg-statoverride --remove {XFVRF}; "
                      "dpkg-reconfigure snmpd-config-copy")
        assert self.root.run(rights) == ours

    def remove_and_install(self, package):
        """Removed, the agent goes on without it; installed again, it is off
        until the link is there, and then everything is as it was."""
        shown = self.running_config()
        agent = self.manager.unit("snmpd")
        before = agent.pid
        with chapter("docs/operation.md", "Removing") as told:
            self.root.run(f"{told.take('apt remove')} snmpd-config-copy")
            told.take("apt purge")  # at the end
        for name in (ENABLED, "/brim"):
            assert not os.path.lexists(self.root.path(name)), name
        if isinstance(self.manager, Booted):
            self.check_without(agent, before)
        else:
            self.manager.run(["stop", "xfprocd"])
            self.manager.run(["restart", "snmpd"])
        assert self.platforms() == set()
        self.root.run(f"apt install ./{package}")
        self.manager.run(["restart", "snmpd"])
        assert self.platforms() == set()
        with chapter("docs/man/config_copy_mib.8", "DESCRIPTION") as page:
            self.root.run(page.take("ln "))
        self.manager.run(["restart", "snmpd", "xfprocd"])
        assert self.running_config() == shown
        self.check_protocol(SFTP, self.sshd)
        self.check_save()

    def check_without(self, agent, before):
        """systemd has started the agent anew, as Debian has it."""
        assert agent.running() and agent.pid != before
        assert not self.manager.unit("xfprocd").running()
        errors = self.root.run(f"readlink /proc/{agent.pid}/fd/2")
        assert "xfplatform" not in errors, errors

    def purge(self):
        """With the links that the operator has made."""
        self.root.run("ln -s /usr/libexec/libconfigcopymib/brim /brim")
        agent = self.manager.unit("snmpd")
        before = agent.pid
        if not isinstance(self.manager, Booted):
            self.manager.run(["stop", "xfprocd", "snmpd"])
        # The operator's own, not the package's.
        self.root.run("rm /etc/snmp/snmpd.conf.d/snmpd-v3-only.conf")
        self.root.run("apt purge --autoremove snmpd-config-copy")
        for folder in ("/run/xfplatform", "/var/log/xfplatform"):
            assert not self.root.path(folder).exists(), folder
        if isinstance(self.manager, Booted):
            self.check_without(agent, before)

    # --- FRR ----------------------------------------------------------------

    def configure_frr(self):
        """What docs/operation.md says of it, with settings of docs/frr.md."""
        with step("FRR is told of, as docs/operation.md says"):
            self.root.run("systemctl restart frr")
            self.set("backend frr\nfrr_daemons zebra staticd\n")
            self.root.path(OVERRIDDEN).parent.mkdir()
            with chapter("docs/operation.md", "FRR") as told:
                self.root.run(told.take("usermod"))
                self.root.path(OVERRIDDEN).write_text(told.take("[Service]"))
                for line in lines_of(told.take("systemctl daemon-reload")):
                    self.follow(line)

    def own_show(self):
        return self.root.run("vtysh -c 'show running-config no-header'")

    def check_frr(self):
        """There and back, and kept."""
        self.succeeds(1)
        assert self.sshd.content("router.cfg").decode() == self.own_show()
        self.sshd.offer("routes.cfg", ROUTES)
        self.succeeds(self.copy(
            download(self.next_row(), "routes.cfg", SERVER), SFTP))
        assert ROUTES.decode() in self.own_show()
        self.check_protocol(SFTP, self.sshd)
        self.check_save()
        kept = self.root.path("/etc/frr/frr.conf")
        assert kept.read_text() == self.own_show()
        assert self.root.run(f"stat -c '%U %G %a' /etc/frr/frr.conf") == \
            "frr frr 640\n"
        for name in ("xfprocd", "snmpd"):
            assert self.manager.unit(name).running()


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


def try_copies(trial):
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
    with step("links in the documents"):
        check_links(trial.root, "snmpd-config-copy")
    with step("commands of docs/operation.md and the manual pages"):
        trial.follow_operation()
        trial.look_at_a_failure()
    with step("a fabric: another switch is enrolled, and saves"):
        trial.check_fabric()


def try_changes(trial, next_package):
    with step("upgrade while a copy runs: the copy and all rows stay"):
        trial.upgrade(next_package)
    with step("restart: copies and saves go on with the new version"):
        trial.restart()
    with step("VRF: the agent's user enters it, nobody else does; copies by\n"
              "    SFTP, FTP and TFTP"):
        trial.check_vrf()
    with step("a maker's platform takes the place of ours"):
        trial.replace_platform()
    with step("dpkg-reconfigure twice; an operator's dpkg-statoverride stays"):
        trial.reconfigure()
    with step("remove, and install again: off, then as it was"):
        trial.remove_and_install(next_package)
    with step("purge, with the operator's links"):
        trial.purge()


def try_frr(trial):
    with step("apt install frr"):
        trial.root.run("apt install frr")
    trial.last_row = 1
    trial.follow_readme(trial.configure_frr)
    with step("FRR: to the server and back, and saved in frr.conf"):
        trial.check_frr()
    with step("FRR: a save in the fabric"):
        trial.check_fabric()


def main(folder, package, next_package, *options):
    trial = Trial(folder)
    root = trial.root
    booted = "--systemd" in options
    try:
        with step("the agent as Debian has it"):
            trial.start_system(booted)
    except NotBooted:
        sys.exit(NOT_BOOTED)
    if not booted:
        root.run("apt install logrotate")
    before = root.contents()
    with step("servers for SFTP, SCP, FTP and TFTP"):
        trial.start_servers()
    for each in pathlib.Path(package).parent.glob("*.deb"):
        shutil.copy(each, root.path("/root/"))
    root.path(CHECKOUT).mkdir()
    if not booted:
        with step("the packages of the station and of makers"):
            trial.try_station()
            trial.try_maker()
    trial.follow_readme(trial.configure)
    if not booted:
        with step(f"systemd-analyze security xfprocd, at most {EXPOSURE}"):
            trial.check_exposure()
    try_copies(trial)
    if not booted:
        with step("logrotate"):
            trial.check_rotation()
    if booted:
        with step("the sandbox of xfprocd, and that it is started again"):
            trial.check_sandbox()
    try_changes(trial, pathlib.Path(next_package).name)
    with step("files, users, alternatives and the like are as before"):
        compare(before, root.contents())
    if booted:
        try_frr(trial)
    trial.manager.stop()


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except AssertionError as error:
        sys.exit(str(error) or traceback.format_exc())
