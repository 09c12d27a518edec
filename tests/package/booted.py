"""systemd itself as process 1 of the root, in namespaces of its own. Where the
machine does not let it be that, units.py does what the units say."""

import contextlib
import pathlib
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "agent"))
from tools import children_of  # noqa: E402

BOOT_SECONDS = 60
# As little as a container manager gives it. It keeps the network.
BOOT = """\
set -e
mount --make-rprivate /
for place in dev run tmp; do mount -t tmpfs -o mode=755 tmpfs "$1/$place"; done
chmod 1777 "$1/tmp"
for name in null zero full random urandom tty; do cp -a /dev/$name "$1/dev/"; done
mkdir "$1/dev/pts" "$1/dev/shm"
mount -t devpts -o newinstance,ptmxmode=666 devpts "$1/dev/pts"
ln -s pts/ptmx "$1/dev/ptmx"
mount -t proc proc "$1/proc"
mount -t sysfs -o ro sysfs "$1/sys"
mount -t cgroup2 cgroup2 "$1/sys/fs/cgroup"
exec chroot "$1" env -i container=lxc PATH=/usr/sbin:/usr/bin:/sbin:/bin \\
    /lib/systemd/systemd --log-target=journal --show-status=no
"""


class NotBooted(Exception):
    """Says why."""


class Service:
    def __init__(self, system, name):
        self.system, self.name = system, name

    @property
    def pid(self):
        return int(self.system.root.run(
            f"systemctl show --value -p MainPID {self.name}"))

    def running(self):
        return self.system.root.run(f"systemctl is-active {self.name}",
                                    check=False).stdout.strip() == "active"

    def said(self):
        return self.system.root.run(f"journalctl -q -o cat -u {self.name}")


class Booted:
    """Takes the part of units.Manager. `root` goes into the running system
    until stop()."""

    def __init__(self, root):
        self.root = root
        self.log = root.folder.parent / "systemd.log"
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(
                ["unshare", "--mount", "--pid", "--ipc", "--uts", "--cgroup",
                 "--fork", "--kill-child", "sh", "-c", BOOT, "sh", root.folder],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        try:
            self.wait()
        except BaseException:
            self.stop()
            raise

    def wait(self):
        deadline = time.monotonic() + BOOT_SECONDS
        while time.monotonic() < deadline and self.process.poll() is None:
            inside = children_of(self.process.pid)
            if inside and self.is_up(inside[0]):
                return
            time.sleep(0.1)
        raise NotBooted("systemd does not come up: " +
                        " ".join(self.log.read_text(errors="replace").split()))

    def is_up(self, pid):
        self.root.inside = pid
        with contextlib.suppress(OSError):
            if self.root.path("/run/systemd").is_dir():
                done = self.root.run("systemctl is-system-running", check=False)
                return done.stdout.strip() in ("running", "degraded")
        return False

    def unit(self, name):
        return Service(self, name)

    def run(self, words):
        command = " ".join(["systemctl", *words])
        self.root.run(f"{command} || {{ journalctl -q -o cat -n 20; false; }}")

    def stop(self):
        """Everything in it ends with it."""
        self.process.kill()
        self.process.wait()
        self.root.inside = None
