"""A whole system in a folder, and what is in it."""

import os
import pathlib
import re
import stat
import subprocess

USER = "Debian-snmp"
# What dpkg, apt and systemd note, and what they were given.
NOT_COMPARED = re.compile(
    r"var/(log|cache)/(?!xfplatform)|var/lib/(dpkg|apt)/|root/|tmp/systemd-|"
    r"var/lib/systemd/(?!deb-systemd-)|"
    r"etc/ld\.so\.cache$|etc/(passwd|group|g?shadow)-$")
# What is noted there that a package can leave behind.
NOTED = {"alternatives": "update-alternatives --get-selections",
         "owners": "dpkg-statoverride --list || true",
         "packages": "dpkg-query -W -f '${Package} ${db:Status-Status}\\n'"}
# Debian's openssh-client leaves its group behind, frr its user and groups.
OTHERS = re.compile(r"(_ssh|frr|frrvty):")


class Root:
    """The system in a folder. `inside` is the process that is process 1 there, if
    one is; commands then run beside it."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.inside = None

    def bind(self):
        """Its root is a mount of its own, which ip netns and systemd ask for."""
        subprocess.run(["mount", "--make-rprivate", "/"], check=True)
        subprocess.run(["mount", "--bind", self.folder, self.folder],
                       check=True)

    def mount(self):
        """What is there where no process 1 mounts it."""
        for kind, place in (("proc", "proc"), ("tmpfs", "run")):
            subprocess.run(["mount", "-t", kind, kind, self.folder / place],
                           check=True)
        subprocess.run(["mount", "--rbind", "/dev", self.folder / "dev"],
                       check=True)

    def path(self, name):
        """As it is for those who are in there."""
        view = f"/proc/{self.inside}/root" if self.inside else self.folder
        return pathlib.Path(view) / name.lstrip("/")

    def run(self, command, check=True, text=None, **options):
        """A line of shell in the root; its output."""
        enter = ["nsenter", "-t", str(self.inside), "--mount", "--pid", "--uts",
                 "--ipc", "--cgroup"] if self.inside else []
        done = subprocess.run(
            [*enter, "chroot", self.folder, "/bin/bash", "-c",
             f"cd /root; {command}"],
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

    def contents(self):
        """All that a package could leave behind, by name."""
        found = {f"{what}: {line}": "" for what, command in NOTED.items()
                 for line in self.run(command).splitlines()
                 if not line.endswith(" not-installed")}
        for name in ("passwd", "group"):
            found |= {f"{name}: {line}": "" for line in
                      self.path(f"/etc/{name}").read_text().splitlines()
                      if not OTHERS.match(line)}
        return found | self.files()

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
    return (stat.filemode(status.st_mode), status.st_uid, status.st_gid, link,
            capabilities(path))


def capabilities(path):
    try:
        return os.getxattr(path, "security.capability", follow_symlinks=False)
    except OSError:
        return b""


def compare(before, after):
    lines = [f"left: {each}" for each in sorted(after.keys() - before.keys())]
    lines += [f"gone: {each}" for each in sorted(before.keys() - after.keys())]
    lines += [f"changed: {each} {before[each]} {after[each]}"
              for each in sorted(before.keys() & after.keys())
              if before[each] != after[each]]
    assert not lines, "\n".join(lines)
