"""Another switch of the fabric, as docs/operation.md has it enrolled."""

import pathlib
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "agent"))
from root import Root  # noqa: E402
from tools import Program, wait_for  # noqa: E402
from transfer_servers import listens  # noqa: E402

ADDRESS = "192.0.2.12"
# The same system once more: what is a switch's own is another one's here. sshd is
# the machine's, and lets who logs in into the system.
SWITCH = """\
set -e
cd "$1"
mount --rbind /dev dev
mount -t proc proc proc
for own in run etc/ssh root var/lib/xfplatform; do
    mount -t tmpfs -o mode=755 tmpfs $own
done
mount --bind usr/share/libconfigcopymib/xfhost.conf.example etc/xfhost.conf
chroot . systemd-tmpfiles --create xfplatform.conf
ssh-keygen -q -t ed25519 -N '' -f etc/ssh/ssh_host_ed25519_key
mount --rbind . /mnt
mount -t tmpfs -o mode=755 tmpfs /run
mkdir /run/sshd
exec /usr/sbin/sshd -D -e -f /dev/null -o ListenAddress="$2" \\
    -o HostKey=/mnt/etc/ssh/ssh_host_ed25519_key -o PidFile=none \\
    -o AuthorizedKeysFile=/mnt/root/.ssh/authorized_keys -o ChrootDirectory=/mnt
"""


class Switch(Program):
    """`root` is the system in `folder`, seen from there."""

    def __init__(self, folder, log):
        super().__init__("the other switch", log)
        subprocess.run(["ip", "address", "replace", f"{ADDRESS}/32", "dev",
                        "lo"], check=True)
        self.run(["unshare", "--mount", "sh", "-c", SWITCH, "sh", str(folder),
                  ADDRESS])
        wait_for(lambda: listens(ADDRESS, 22) or not self.running(), self.name)
        assert self.running(), self.log
        self.root = Root(folder)
        self.root.inside = self.pid

    def configure(self, line):
        self.root.run("cat >own.cfg; qsh --apply own.cfg results", text=line)

    def startup_config(self):
        return self.root.run("qsh -c 'show startup-config'")
