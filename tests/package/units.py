"""Runs services as their unit files say, where systemd is not there to do it:
commands, users, directories, capabilities and readiness. What only systemd can
do is on the list below; any other key is an error."""

import configparser
import contextlib
import os
import pathlib
import shlex
import signal
import socket
import subprocess
import time

# Sandboxes, and what happens before or after the time that a test looks at.
NOT_DONE = {
    "DevicePolicy", "ExecReload", "LockPersonality", "MemoryDenyWriteExecute",
    "PrivateDevices", "PrivateTmp", "ProtectClock", "ProtectControlGroups",
    "ProtectHome", "ProtectHostname", "ProtectKernelLogs",
    "ProtectKernelModules", "ProtectKernelTunables", "ProtectSystem",
    "RemoveIPC", "Restart", "RestartSec", "RestrictAddressFamilies",
    "RestrictNamespaces", "RestrictRealtime", "RestrictSUIDSGID",
    "RuntimeDirectoryPreserve", "SystemCallArchitectures", "SystemCallFilter",
}
DIRECTORIES = {"RuntimeDirectory": "run", "StateDirectory": "var/lib"}
DONE = {"Type", "ExecStart", "User", "Group", "UMask", "LimitCORE",
        "NoNewPrivileges", "CapabilityBoundingSet", "StandardError",
        *DIRECTORIES, *(f"{each}Mode" for each in DIRECTORIES)}
PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
READY_SECONDS = 60


class UnitError(Exception):
    pass


def files_of(root, name):
    """The unit's own file, the administrator's before the package's, and its
    drop-ins."""
    folders = [root / each for each in
               ("etc/systemd/system", "usr/lib/systemd/system",
                "lib/systemd/system")]
    own = [each / name for each in folders if (each / name).is_file()]
    if not own:
        raise UnitError(f"there is no unit {name}")
    drop_ins = {each.name: each for folder in reversed(folders)
                for each in (folder / f"{name}.d").glob("*.conf")}
    return own[:1] + [drop_ins[each] for each in sorted(drop_ins)]


def settings_of(root, name):
    """What is in force of the section [Service]: the last of each key."""
    settings = {}
    for file in files_of(root, name):
        parser = configparser.RawConfigParser(strict=False)
        parser.optionxform = str
        parser.read(file)
        if parser.has_section("Service"):
            settings.update(parser["Service"])
    unknown = settings.keys() - DONE - NOT_DONE
    if unknown:
        raise UnitError(f"{name}: not known how to do: {sorted(unknown)}")
    return settings


class Unit:
    """A service below `root`, a folder with a whole system."""

    def __init__(self, root, name):
        self.root = pathlib.Path(root)
        self.name = name if name.endswith(".service") else f"{name}.service"
        self.process = None
        self.log = self.root.parent / f"{self.name}.log"

    @property
    def pid(self):
        return self.process.pid

    def running(self):
        return self.process is not None and self.process.poll() is None

    def start(self):
        if self.running():
            return
        settings = settings_of(self.root, self.name)
        with contextlib.ExitStack() as stack:
            ready = stack.enter_context(self.readiness())
            log = stack.enter_context(open(self.log, "ab"))
            # systemd has the directories made later than that.
            errors = self.standard_error(settings, log, stack)
            self.make_directories(settings)
            self.launch(settings, log, errors)
            if settings.get("Type") == "notify":
                self.wait_until(ready)

    def make_directories(self, settings):
        for key, base in DIRECTORIES.items():
            if key not in settings:
                continue
            path = self.root / base / settings[key]
            path.mkdir(parents=True, exist_ok=True)
            path.chmod(int(settings.get(f"{key}Mode", "755"), 8))
            user = settings.get("User", "root")
            self.inside("chown", f"{user}:{settings.get('Group', user)}",
                        f"/{base}/{settings[key]}")

    def inside(self, *command):
        subprocess.run(["chroot", self.root, *command], check=True)

    @contextlib.contextmanager
    def readiness(self):
        """A socket that the service tells on that it is ready."""
        path = self.root / "run/notify"
        with contextlib.suppress(FileNotFoundError):
            path.unlink()
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as listener:
            listener.bind(str(path))
            path.chmod(0o777)
            yield listener
        path.unlink()

    def wait_until(self, ready):
        ready.settimeout(0.2)
        deadline = time.monotonic() + READY_SECONDS
        while time.monotonic() < deadline:
            with contextlib.suppress(TimeoutError):
                if b"READY=1" in ready.recv(4096).split(b"\n"):
                    return
            if not self.running():
                break
        raise UnitError(f"{self.name} does not get ready:\n" +
                        self.said())

    def launch(self, settings, log, errors):
        words = ["setpriv"]
        if "User" in settings:
            user = settings["User"]
            words += ["--reuid", user, "--regid", settings.get("Group", user),
                      "--init-groups"]
        if settings.get("CapabilityBoundingSet") == "":
            words += ["--bounding-set=-all", "--inh-caps=-all"]
        if settings.get("NoNewPrivileges") == "yes":
            words += ["--no-new-privs"]
        limit = settings.get("LimitCORE", "0:unlimited")
        script = (f"umask {settings.get('UMask', '0022')}; cd /; "
                  f"exec prlimit --core={limit} {shlex.join(words)} "
                  f"{settings['ExecStart']}")
        self.process = subprocess.Popen(
            ["chroot", self.root, "/bin/sh", "-c", script],
            stdin=subprocess.DEVNULL, stdout=log, stderr=errors,
            env={"PATH": PATH, "NOTIFY_SOCKET": "/run/notify"})

    def standard_error(self, settings, log, stack):
        how, _, path = settings.get("StandardError", "").partition(":")
        if not how:
            return log
        if how != "append":
            raise UnitError(f"StandardError={how}")
        mode = 0o666 & ~int(settings.get("UMask", "0022"), 8)
        descriptor = os.open(self.root / path.lstrip("/"),
                             os.O_WRONLY | os.O_APPEND | os.O_CREAT, mode)
        return stack.enter_context(os.fdopen(descriptor, "ab"))

    def said(self):
        """What the journal would have."""
        return self.log.read_text(errors="replace")

    def stop(self):
        if not self.running():
            return
        self.process.send_signal(signal.SIGTERM)
        self.process.wait(60)


class Manager:
    """`systemctl`, as far as it is used."""

    def __init__(self, root):
        self.root = pathlib.Path(root)
        self.units = {}

    def unit(self, name):
        return self.units.setdefault(name, Unit(self.root, name))

    def run(self, words):
        """Carries a command out. `enable` is systemctl's own, in the root;
        units that are named together start in the order of their After=."""
        command, *rest = words
        now = "--now" in rest
        names = [each for each in rest if each != "--now"]
        if command in ("enable", "disable"):
            subprocess.run(["chroot", self.root, "systemctl", "-q", command,
                            *names], check=True)
            command = {"enable": "start", "disable": "stop"}[command]
            if not now:
                return
        if command not in ("start", "stop", "restart"):
            raise UnitError(f"systemctl {command}")
        # The agent comes after the system manager.
        for name in sorted(names, key=lambda each: each == "snmpd"):
            if command in ("stop", "restart"):
                self.unit(name).stop()
            if command in ("start", "restart"):
                self.unit(name).start()

    def stop(self):
        for each in self.units.values():
            each.stop()
