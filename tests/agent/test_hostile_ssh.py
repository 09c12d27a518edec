"""Copies by SFTP and SCP with SSH servers that misbehave."""

import pathlib
import time

import pytest

import ssh as hostile
from harness import Trial
from snmp import (BAD_FILE_NAME, NETWORK, NO_MEMORY, RUNNING, TIMEOUT, UNKNOWN,
                  row)
from tools import wait_for

SCP, SFTP = 4, 5
NAMES = {SCP: "SCP", SFTP: "SFTP"}
NEW = b"hostname two\n"
GET, PUT = "download", "upload"

# Before the login is over: what the server does, and the cause of the failure.
LOGINS = [
    ("sends what is no SSH", hostile.NoSsh, UNKNOWN),
    ("sends noise after its version", hostile.Garbage, UNKNOWN),
    ("hangs up at once", hostile.GoneAtOnce, UNKNOWN),
    ("has another host key", hostile.OtherKey, UNKNOWN),
    ("lets nobody in with a password, in methods of odd names",
     hostile.NoPasswords, UNKNOWN),
    ("refuses the password", hostile.RefusesPassword, UNKNOWN),
    ("disconnects at the password, with an odd reason",
     hostile.DisconnectsAtLogin, UNKNOWN),
    ("asks for something else than the password", hostile.AsksSomethingElse,
     UNKNOWN),
    ("refuses the password and asks for it in another way",
     hostile.AsksForPasswordAfterwards, UNKNOWN),
    ("opens no session", hostile.NoChannel, UNKNOWN),
    ("has no SFTP", hostile.NoSubsystem, UNKNOWN)]

# The same, by the limit for the login.
SLOW_LOGINS = [
    ("says nothing", hostile.Silent, TIMEOUT),
    ("sends lines before its version for ever", hostile.EndlessLines, UNKNOWN),
    ("says before its version now and then that the login is over",
     hostile.SlowLines, TIMEOUT),
    ("takes its time with each octet of its version", hostile.SlowVersion,
     TIMEOUT),
    ("is silent when it has the password", hostile.SilentAtLogin, TIMEOUT),
    ("says in its banner that the login is over", hostile.BannerThatLies,
     TIMEOUT),
    ("says in banners for ever that the login is over", hostile.EndlessBanners,
     TIMEOUT),
    ("asks for the password for ever, with a name and a text that lie",
     hostile.AsksForEver, TIMEOUT),
    ("wants the old password and a new one", hostile.AsksForANewPassword,
     TIMEOUT)]

# Behind the login, for both directions.
FILES = [
    ("prints a text where SFTP is to be", hostile.Welcomes, UNKNOWN),
    ("speaks SFTP 2", hostile.OldVersion, UNKNOWN),
    ("announces a packet of 4 GiB", hostile.HugePacket, UNKNOWN),
    ("sends a packet of no octets", hostile.EmptyPacket, UNKNOWN),
    ("sends noise", hostile.GarbageFiles, UNKNOWN),
    ("answers a request that nobody made", hostile.WrongNumber, UNKNOWN),
    ("gives a handle of 200,000 octets", hostile.HugeHandle, UNKNOWN),
    ("gives a handle that is longer than its packet", hostile.ShortHandle,
     UNKNOWN),
    ("says that a file is open and gives no handle", hostile.OpenedByStatus,
     UNKNOWN),
    ("does not let the file be opened, in a text with control characters",
     hostile.Denies, BAD_FILE_NAME),
    ("disconnects when the file is opened", hostile.GoneAtOpen, UNKNOWN),
    ("disconnects when the file is closed", hostile.GoneAtClose, UNKNOWN)]

DOWNLOADS = [
    ("sends 21 octets of 5,000 and the end of the file", hostile.EndsEarly,
     UNKNOWN),
    ("sends more than it announced", hostile.GoesOn, UNKNOWN),
    ("sends a file with a hole", hostile.Hole, UNKNOWN),
    ("cannot read the file's middle", hostile.FailsInTheMiddle, UNKNOWN),
    ("sends for ever, without a size", hostile.Endless, NO_MEMORY),
    ("announces 2^64 - 1 octets", hostile.EndlessAnnounced, NO_MEMORY),
    ("sends nothing, again and again", hostile.EmptyData, UNKNOWN),
    ("sends more than was asked for", hostile.TooMuchData, UNKNOWN),
    ("sends data that is longer than its packet", hostile.ShortData, UNKNOWN),
    ("disconnects in the middle of the file", hostile.GoneInTheMiddle, UNKNOWN),
    ("answers twice", hostile.AnswersTwice, UNKNOWN),
    ("has a folder of that name", hostile.Folder, BAD_FILE_NAME),
    ("sends attributes that are longer than their packet",
     hostile.ShortAttributes, UNKNOWN),
    ("cannot close the file", hostile.FailsToClose, UNKNOWN)]

UPLOADS = [
    ("takes every octet and keeps none", hostile.KeepsNothing, UNKNOWN),
    ("takes every octet and keeps some", hostile.KeepsSome, UNKNOWN),
    ("refuses what is written", hostile.RefusesWrite, NO_MEMORY),
    ("has a quota", hostile.QuotaExceeded, NO_MEMORY),
    ("does not let the file be written", hostile.DeniesWrite, BAD_FILE_NAME),
    ("refuses what is written for no known reason", hostile.StrangeWrite,
     UNKNOWN),
    ("answers what is written with data", hostile.AnswersWriteWithData,
     UNKNOWN),
    ("answers another request than the one to write",
     hostile.WrongNumberOfWrite, UNKNOWN),
    ("disconnects at the file's octets", hostile.GoneAtWrite, UNKNOWN),
    ("cannot close the file", hostile.FailsToClose, NO_MEMORY),
    ("tells attributes that are longer than their packet",
     hostile.ShortAttributes, UNKNOWN)]

# By the limit for the file.
SLOW_DOWNLOADS = [
    ("says nothing any more", hostile.SilentFiles, TIMEOUT),
    ("prints errors for ever", hostile.Chatters, TIMEOUT),
    ("stalls in the middle of the file", hostile.StallsInTheMiddle, TIMEOUT),
    ("sends an octet now and then", hostile.Drips, TIMEOUT),
    ("stalls when the file is opened", hostile.SilentAtOpen, TIMEOUT)]
SLOW_UPLOADS = [
    ("says nothing any more", hostile.SilentFiles, TIMEOUT),
    ("stalls at the file's octets", hostile.SilentAtWrite, TIMEOUT),
    ("stalls when the file is closed", hostile.SilentAtClose, TIMEOUT)]


@pytest.fixture
def server():
    made = hostile.HostileSsh()
    yield made
    made.close()


class SshTrial(Trial):
    """Copies with `server`, by SFTP and SCP in turn."""

    def __init__(self, agent, server):
        (agent.state / "known_hosts").write_text(server.known_host)
        self.server = server
        super().__init__(agent, self.columns(PUT, SFTP), self.check_good)
        # The first copy that is applied makes files that stay.
        self._copy(self.columns(GET, SFTP), 60)
        self.before = self._settled()

    def columns(self, direction, protocol):
        source, to = (NETWORK, RUNNING) if direction == GET else \
            (RUNNING, NETWORK)
        return lambda index: row(
            index, xfCopyProtocol=protocol, xfCopySourceFileType=source,
            xfCopyDestFileType=to, xfCopyServerAddress=self.server.address,
            xfCopyFileName="x.cfg", xfCopyUserName=hostile.USER,
            xfCopyUserPassword=hostile.PASSWORD)

    def check_good(self):
        assert self.server.stored == {"x.cfg": self.running}

    def tries(self, direction, protocol, session, cause, within=None):
        """One copy with a server of which `session` makes the sessions."""
        self.server.session = session
        self.server.stored = {"x.cfg": NEW}
        began = time.monotonic()
        outcome = self.fails(self.columns(direction, protocol), cause)
        assert within is None or time.monotonic() - began < within
        self.check_secrets()
        self.server.session = hostile.Session
        return outcome

    def check_secrets(self):
        """The server was told the password once at most, and nobody what the
        server said."""
        given = self.server.last.given
        assert given.count(hostile.PASSWORD) <= 1
        assert not any(given[1:]), given
        log = self.agent.log
        for each in ("owned", "Authenticated", "said by the server", "\x1b"):
            assert each not in log
        wait_for(lambda: not clients_of(self.server.port), "the client to end")


def clients_of(port):
    """The ids of SSH clients of this port, which have another environment."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                words = (entry / "cmdline").read_bytes().split(b"\0")
            except OSError:
                continue  # it has just ended
            if b"Port=%d" % port in words:
                found.append(int(entry.name))
    return found


def try_all(trial, fault, direction, behaviours, within=None):
    for number, (what, session, cause) in enumerate(behaviours):
        protocol = (SFTP, SCP)[number % 2]
        outcome = trial.tries(direction, protocol, session, cause, within)
        fault("Hostile servers",
              f"{NAMES[protocol]} server that {what}; {direction}", outcome)
    trial.goes_on()


@pytest.fixture
def trial(make_agent, server):
    """Limits that no honest step comes near."""
    return SshTrial(make_agent(ssh_port=server.port, login_seconds=40,
                               transfer_seconds=40, download_octets=1_000_000),
                    server)


@pytest.fixture
def short_trial(make_agent, server):
    return SshTrial(make_agent(ssh_port=server.port, login_seconds=4,
                               transfer_seconds=3), server)


# What a limit may be passed by: the row is made and read, on a machine that has
# other work to do.
ALLOWANCE = 20


def test_until_the_login_is_over(trial, fault):
    try_all(trial, fault, GET, LOGINS)


@pytest.mark.parametrize("direction, behaviours",
                         [(GET, FILES + DOWNLOADS), (PUT, FILES + UPLOADS)],
                         ids=[GET, PUT])
def test_behind_the_login(trial, fault, direction, behaviours):
    try_all(trial, fault, direction, behaviours)


def test_servers_that_take_their_time(short_trial, fault):
    try_all(short_trial, fault, GET, SLOW_LOGINS, within=ALLOWANCE)
    try_all(short_trial, fault, GET, SLOW_DOWNLOADS, within=ALLOWANCE)
    try_all(short_trial, fault, PUT, SLOW_UPLOADS, within=ALLOWANCE)


@pytest.mark.parametrize("protocol", NAMES, ids=NAMES.values())
def test_servers_that_tell_less(trial, server, protocol):
    """What an honest server may leave out or do."""
    server.session = hostile.NoStat
    server.stored = {"x.cfg": NEW}
    trial.succeeds(trial.columns(GET, protocol), NEW + b"vlan 7\n")
    trial.succeeds(trial.columns(PUT, protocol))
    trial.check_good()
    server.session = hostile.TakesItAway
    trial.succeeds(trial.columns(PUT, protocol))
    assert server.taken == trial.running
    server.session = hostile.Asks
    trial.succeeds(trial.columns(PUT, protocol))
    assert server.last.given == [hostile.PASSWORD]


def test_one_right_answer_is_not_two(trial, server, fault):
    """A second question is not answered with the password."""
    server.session = hostile.AsksTwice
    trial.succeeds(trial.columns(PUT, SFTP))
    assert server.last.given == [hostile.PASSWORD, ""]
    fault("Hostile servers", "SFTP server that asks a second time",
          "row successful; the password was told once")
