"""Routers of the tests' own: FRR's daemons in a network and a mount namespace
with their own /etc/frr and /run/frr."""

import os
import pathlib
import pwd
import shutil
import signal
import subprocess

import pytest

from tools import Program, clean_environment, wait_for

DAEMONS = pathlib.Path("/usr/lib/frr")
QSH = pathlib.Path(os.environ["XF_TEST_BUILD"]) / "root/brim/bin/qsh"
PROCD = QSH.parent / "procd"
APPLIED, SOME_FAILED, NO_CONFIG, SKIPPED, FAILED = 0, 1, 2, 3, 74
CLEAN = ["/usr/bin/env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin",
         "HOME=/nonexistent"]

# The longest that a forgotten one lives.
HOLD = """\
mount --make-rprivate / && mount --bind {folder}/etc /etc/frr &&
mkdir -p /run/frr && mount --bind {folder}/run /run/frr &&
ip link set lo up && echo ready && exec sleep 1800
"""


def needed():
    """Skips where there can be no router."""
    if not (DAEMONS / "bgpd").exists() or not shutil.which("vtysh"):
        pytest.skip("FRR is not installed")
    tried = subprocess.run(
        ["unshare", "-n", "-m", "sh", "-c",
         "mount --make-rprivate / && mount -t tmpfs none /mnt"],
        capture_output=True, text=True)
    if tried.returncode != 0:
        pytest.skip(f"no namespaces can be had: {tried.stderr.strip()}")


class Router:
    """`daemons` run until the test stops them; close() ends all."""

    def __init__(self, folder, daemons=("zebra", "staticd", "bgpd", "ospfd"),
                 **settings):
        self.folder = folder
        for name in ("etc", "run", "state", "sockets", "home"):
            (folder / name).mkdir(mode=0o700)
        for each in (folder, *folder.parents):
            if each.stat().st_mode & 0o001 == 0 and each != pathlib.Path("/"):
                each.chmod(each.stat().st_mode | 0o011)
        owner = pwd.getpwnam("frr")
        for name in ("etc", "run"):
            os.chown(folder / name, owner.pw_uid, owner.pw_gid)
            (folder / name).chmod(0o755 if name == "run" else 0o750)
        (folder / "etc/vtysh.conf").touch()
        os.chown(folder / "etc/vtysh.conf", owner.pw_uid, owner.pw_gid)
        self.settings = {
            "backend": "frr", "root": QSH.parents[2],
            "state_directory": folder / "state",
            "run_directory": folder / "sockets",
            "frr_daemons": " ".join(daemons), **settings}
        self.holder = Program("a namespace", folder / "holder.log")
        self.holder.run(["unshare", "-n", "-m", "sh", "-c",
                         HOLD.format(folder=folder)])
        wait_for(lambda: "ready" in self.holder.log, "the namespace")
        self.daemons = {}
        for name in daemons:
            self.start(name)

    @property
    def enter(self):
        return ["nsenter", "-t", str(self.holder.pid), "-n", "-m"]

    def start(self, name, *options, **environment):
        daemon = Program(name, self.folder / f"{name}.log")
        daemon.run([*self.enter, str(DAEMONS / name), "-A", "127.0.0.1",
                    *options], env={**os.environ, **environment})
        self.daemons[name] = daemon
        wait_for(lambda: self.try_vtysh("-d", name, "-c", "show version"
                                        ).returncode == 0, name)

    def kill(self, name):
        self.daemons[name].signal(signal.SIGKILL)
        self.daemons.pop(name).stop()

    def stop_daemon(self, name):
        """It neither answers nor ends."""
        self.daemons[name].signal(signal.SIGSTOP)

    def go_on(self, name):
        self.daemons[name].signal(signal.SIGCONT)

    def try_vtysh(self, *arguments, **options):
        return subprocess.run([*self.enter, *CLEAN, "vtysh", *arguments],
                              capture_output=True, text=True, timeout=300,
                              errors="surrogateescape", **options)

    def vtysh(self, *arguments):
        """What FRR's own tool says."""
        done = self.try_vtysh(*arguments)
        assert done.returncode == 0, done
        return done.stdout

    def own_show(self):
        return self.vtysh("-c", "show running-config no-header")

    def environment(self, **settings):
        environment = clean_environment()
        for key, value in {**self.settings, **settings}.items():
            environment[f"XF_{key.upper()}"] = str(value)
        return environment

    def qsh(self, *arguments, as_user=(), **settings):
        """Status, standard output, standard error."""
        done = subprocess.run([*self.enter, *as_user, str(QSH), *arguments],
                              env=self.environment(**settings),
                              capture_output=True, timeout=300)
        decode = [each.decode(errors="surrogateescape")
                  for each in (done.stdout, done.stderr)]
        return done.returncode, *decode

    def show(self, **settings):
        status, text, words = self.qsh("-c", "show running-config", **settings)
        assert status == 0, words
        return text

    def apply(self, text, **settings):
        """Status, and the lines of the results file."""
        file, results = self.folder / "given.cfg", self.folder / "results"
        file.write_bytes(text if isinstance(text, bytes) else
                         text.encode(errors="surrogateescape"))
        results.unlink(missing_ok=True)
        status, _, words = self.qsh("--apply", str(file), str(results),
                                    **settings)
        if not results.exists():
            return status, [words.strip()]
        return status, results.read_text().splitlines()

    def save(self, **settings):
        status, _, words = self.qsh("-c", "copy running-config startup-config",
                                    **settings)
        return status, words.strip()

    @property
    def frr_conf(self):
        return self.folder / "etc/frr.conf"

    @property
    def startup(self):
        return self.folder / "state/startup/system.cfg"

    def link(self, other, network):
        """A cable: x0 here has the address 1, x0 there 2."""
        subprocess.run([*self.enter, "ip", "link", "add", "x0", "type", "veth",
                        "peer", "name", "x0", "netns", str(other.holder.pid)],
                       check=True)
        for router, host in ((self, 1), (other, 2)):
            for command in (f"addr add {network}.{host}/24 dev x0",
                            "link set x0 up"):
                subprocess.run([*router.enter, "ip", *command.split()],
                               check=True)

    def close(self):
        for daemon in self.daemons.values():
            daemon.signal(signal.SIGCONT)
            daemon.stop()
            print(f"--- {daemon.name}\n{daemon.log}")
        self.holder.stop()
