"""The Net-SNMP tools, and the names of what the module shows through them."""

import re
import subprocess

ROOT = ".1.3.6.1.4.1.32473.1.1"
ENTRY = ROOT + ".1.1.1.1"
COMPLETION = ROOT + ".2.1.2"

# Column number and the type that snmpset is told.
COLUMNS = {
    "xfCopyProtocol": (2, "i"),
    "xfCopySourceFileType": (3, "i"),
    "xfCopyDestFileType": (4, "i"),
    "xfCopyServerAddress": (5, "a"),
    "xfCopyFileName": (6, "s"),
    "xfCopyUserName": (7, "s"),
    "xfCopyUserPassword": (8, "s"),
    "xfCopyNotificationOnCompletion": (9, "i"),
    "xfCopyState": (10, "i"),
    "xfCopyTimeStarted": (11, "t"),
    "xfCopyTimeCompleted": (12, "t"),
    "xfCopyFailCause": (13, "i"),
    "xfCopyEntryRowStatus": (14, "i"),
    "xfCopyServerAddressType": (15, "i"),
    "xfCopyServerAddressRev1": (16, "x"),
    "xfCopyVRFName": (17, "s"),
}

NETWORK, SYSTEM_IMAGE, STARTUP, RUNNING, TERMINAL = 1, 2, 3, 4, 5
# No file type: a copy to it stays in the staging directory as it arrived.
STAY_STAGED = 8

WAITING, IN_PROGRESS, SUCCESSFUL, FAILED = 1, 2, 3, 4

UNKNOWN, BAD_FILE_NAME, TIMEOUT, NO_MEMORY, NO_CONFIG = 1, 2, 3, 4, 5
UNSUPPORTED_PROTOCOL, SOME_CONFIG_APPLY_FAILED = 6, 7

ACTIVE, NOT_IN_SERVICE, NOT_READY = 1, 2, 3
CREATE_AND_GO, CREATE_AND_WAIT, DESTROY = 4, 5, 6

TRUE, FALSE = 1, 2

V2C = ["-v2c", "-c", "private"]


def name(column, index=None):
    oid = f"{ENTRY}.{COLUMNS[column][0]}"
    return oid if index is None else f"{oid}.{index}"


def row(index, **columns):
    """Varbinds for snmpset: the given columns of a row, in that order."""
    return [(name(column, index), COLUMNS[column][1], str(value))
            for column, value in columns.items()]


def upload(index, file_name, server="127.0.0.2", **more):
    """The columns of a copy of the running configuration to a server."""
    return row(index, xfCopySourceFileType=RUNNING, xfCopyDestFileType=NETWORK,
               xfCopyServerAddress=server, xfCopyFileName=file_name, **more)


def download(index, file_name, server="127.0.0.2", to=RUNNING, **more):
    """The columns of a copy of a file on a server."""
    return row(index, xfCopySourceFileType=NETWORK, xfCopyDestFileType=to,
               xfCopyServerAddress=server, xfCopyFileName=file_name, **more)


def go(varbinds):
    """The same, created and started by the same request."""
    index = varbinds[0][0].rpartition(".")[2]
    return varbinds + row(index, xfCopyEntryRowStatus=CREATE_AND_GO)


class Failure(Exception):
    """An answer that tells an error; `error` is its name."""

    def __init__(self, error, output):
        super().__init__(output)
        self.error = error


class Station:
    """A management station. `peer` is the agent's address for the tools."""

    def __init__(self, peer, who=None):
        self.peer = peer
        self.who = who or V2C

    def run(self, tool, *arguments, seconds=120):
        done = subprocess.run(
            [tool, *self.who, "-t", "20", "-r", "0", "-m", "", "-On", "-Ot",
             "-OU", *arguments], capture_output=True, text=True,
            errors="replace", timeout=seconds)
        if done.returncode != 0:
            output = done.stdout + done.stderr
            reason = re.search(r"Reason: \(?(\w+)", output)
            raise Failure(reason[1] if reason else "none", output)
        return done.stdout

    def set(self, varbinds):
        """One SET with these varbinds; raises Failure if it is refused."""
        arguments = [word for varbind in varbinds for word in varbind]
        return self.run("snmpset", self.peer, *arguments)

    def refused(self, varbinds):
        """The name of the error that a SET is answered with."""
        try:
            self.set(varbinds)
        except Failure as failure:
            return failure.error
        raise AssertionError("the SET was accepted")

    def get(self, column, index):
        """The value of an instance; None if there is none. Octet strings are
        given as text."""
        lines = self.run("snmpget", "-Oqa", self.peer, name(column, index))
        return value_of(lines.rstrip("\n").partition(" ")[2])

    def octets(self, column, index):
        text = self.run("snmpget", "-Oqx", self.peer, name(column, index))
        return bytes.fromhex(text.partition(" ")[2].strip().strip('"'))

    def columns(self, index, *columns):
        """The values of several columns of a row."""
        lines = self.run("snmpget", "-Oqa", self.peer,
                         *(name(column, index) for column in columns))
        return [value_of(line.partition(" ")[2])
                for line in lines.splitlines()]

    def next(self, oid):
        """Name and value of the instance behind `oid`."""
        found, _, value = self.run("snmpgetnext", "-Oqa", self.peer,
                                   oid).rstrip("\n").partition(" ")
        return found, value_of(value)

    def walk(self, tool="snmpwalk", *options, oid=ROOT):
        """Names and values of all instances below `oid`, as they came."""
        lines = self.run(tool, "-Oqa", *options, self.peer, oid).splitlines()
        pairs = [line.partition(" ")[::2] for line in lines]
        return [(found, value_of(value)) for found, value in pairs
                if not value.startswith("No ")]

    def rows(self):
        """The indexes of all rows."""
        return [int(found.rpartition(".")[2]) for found, _ in
                self.walk(oid=name("xfCopyEntryRowStatus"))]


def value_of(text):
    if text.startswith("No Such ") or text.startswith("No more "):
        return None
    if text.startswith('"'):
        return text[1:-1]
    return int(text) if text.isdigit() else text


def v3_user(user, password, level="authPriv"):
    return ["-v3", "-u", user, "-l", level, "-a", "SHA", "-A", password,
            "-x", "AES", "-X", password]
