"""Copies with FTP servers that misbehave."""

import socket
import time

import pytest

import lab
from ftp import (MARK, HostileFtp, accept, close_data, do, for_ever, hang_up,
                 honestly, listen_nowhere, raw, reset, say, send, silent, take,
                 wait)
from harness import Trial
from snmp import (BAD_FILE_NAME, NO_MEMORY, TIMEOUT, UNKNOWN, download,
                  upload)
from tools import mounted, wait_for
from transfer_client import Client, peak_kib
from transfer_servers import covers_tmp, needs_mounts

ADDRESS, OTHER_ADDRESS = "127.0.0.3", "127.0.0.9"
USER, PASSWORD = "copier", "pass-w0rd-of-mine"
# A configuration of which a part is one, too.
OFFERED = "".join(f"vlan {number}\n" for number in range(100, 700)).encode()
LOGIN_SECONDS, TRANSFER_SECONDS = 3, 4
# More than both and what is around a copy; much less than without a limit.
SOON = LOGIN_SECONDS + TRANSFER_SECONDS + 10


def by_ftp(columns):
    return lambda index: columns(
        index, "x.cfg", ADDRESS, xfCopyProtocol=2, xfCopyUserName=USER,
        xfCopyUserPassword=PASSWORD)


GET, PUT = by_ftp(download), by_ftp(upload)

# What the server does, at which step, and the cause of the failure.
TORN_DOWNLOADS = {
    "resets the connection for the file in the middle, then says 226":
        ({"middle": do(reset, say("226 done"))}, UNKNOWN),
    "resets it in the middle, knows no SIZE, then says 226":
        ({"SIZE": say("502 no"), "middle": do(reset, wait(0.1),
                                              say("226 done"))}, UNKNOWN),
    "ends the file in the middle, then says 226":
        ({"middle": do(close_data, say("226 done"))}, UNKNOWN),
    "sends nothing of the file, then says 226":
        ({"data": do(close_data, say("226 done"))}, UNKNOWN),
    "sends 21 octets of 5000":
        ({"SIZE": raw(b"213 5000\r\n"),
          "data": do(send(b"hostname 21-octets-x\n"), close_data,
                     say("226 done"))}, UNKNOWN),
    "says 451 with 226 as a line of it":
        ({"end": say("451-failed\r\n226 done\r\n451 failed")}, UNKNOWN),
    "says 451 with 226 as a line of it, knows no SIZE, and sends half":
        ({"SIZE": say("500 what"),
          "middle": do(close_data,
                       say("451-failed\r\n226 done\r\n451 failed"))}, UNKNOWN),
    "says 150 with 226 as a line of it, sends half, then says 426":
        ({"RETR": do(say("150-a\r\n226 fake\r\n150 go"), accept,
                     send(OFFERED[:2000]), close_data, say("426 lost"))},
         UNKNOWN),
    "sends half, then says 426":
        ({"middle": do(close_data, say("426 lost"))}, UNKNOWN),
    "sends half, then says 226-, 426 and 226":
        ({"middle": do(close_data, say("226-not\r\n426 lost\r\n226 so"))},
         UNKNOWN),
    "says 226 in the place of 150":
        ({"RETR": do(say("226 done"), accept, send(b"vlan 1\n"), close_data)},
         UNKNOWN),
    "says 226 before the file, and sends half":
        ({"data": do(say("226 done"), send(OFFERED[:2000]), close_data)},
         UNKNOWN),
    "sends more than it said behind 226":
        ({"end": hang_up, "middle": do(say("226 done"), send(OFFERED),
                                       close_data)}, UNKNOWN),
    "says 250 and 550 in one":
        ({"end": raw(b"250-one\r\n550 two\r\n250 three\r\n")}, UNKNOWN),
    "hangs up without a word after the file":
        ({"end": hang_up}, UNKNOWN),
    "leaves its last line without an end":
        ({"end": do(raw(b"226 done"), hang_up)}, UNKNOWN),
    "says 226 without a blank and hangs up":
        ({"end": do(raw(b"226\r\n"), hang_up)}, UNKNOWN),
    "says 226 with a NUL in it":
        ({"end": raw(b"22\x006 done\r\n")}, UNKNOWN),
}

STORED_IN_PART = {
    "resets the connection for the file, then says 226":
        ({"data": do(reset, wait(0.1), say("226 done"))}, UNKNOWN),
    "resets it, knows no SIZE, then says 226":
        ({"SIZE": say("502 no"), "data": do(reset, wait(0.1),
                                            say("226 done"))}, UNKNOWN),
    "resets it after a few octets, then says 226":
        ({"middle": do(reset, wait(0.1), say("226 done"))}, UNKNOWN),
    "takes all, stores nothing and says 226":
        ({"data": do(take, close_data, say("226 done"))}, UNKNOWN),
    "stores half and says 226":
        ({"SIZE": raw(b"213 10\r\n"), "data": do(take, close_data,
                                             say("226 done"))}, UNKNOWN),
    "says 226 in the place of 150, twice":
        ({"STOR": do(say("226 done"), say("226 done"))}, UNKNOWN),
    "says 226 in the place of 150, takes the file and says it again":
        ({"STOR": do(say("226 done"), accept, take, say("226 done")),
          "SIZE": raw(b"213 %d\r\n" % len(b"hostname one\nvlan 7\n"))},
         UNKNOWN),
    "says 451 with 226 as a line of it":
        ({"end": say("451-failed\r\n226 done\r\n451 failed")}, UNKNOWN),
    "says 150 with 226 as a line of it, then 426":
        ({"STOR": do(say("150-a\r\n226 fake\r\n150 go"), accept, take,
                     say("426 lost"))}, UNKNOWN),
    "says 150 three times, then 226":
        ({"data": do(take, close_data, say("150 a\r\n150 b\r\n226 c"))},
         UNKNOWN),
    "takes it and says 426": ({"end": say("426 lost")}, UNKNOWN),
    "takes it and says 452": ({"end": say("452 full")}, NO_MEMORY),
    "takes it and says 552": ({"end": say("552 full")}, NO_MEMORY),
    "takes it and says that writing failed":
        ({"end": say("451 error writing")}, NO_MEMORY),
    "resets the connection and says 552":
        ({"data": do(reset, say("552 full"))}, NO_MEMORY),
    "takes it and hangs up": ({"end": hang_up}, UNKNOWN),
    "hangs up when asked for the size": ({"SIZE": hang_up}, UNKNOWN),
    "refuses the name": ({"STOR": say("553 no")}, BAD_FILE_NAME),
}

SIZES = {
    "more than there is": (b"213 99999\r\n", UNKNOWN, UNKNOWN),
    "less than there is": (b"213 5\r\n", UNKNOWN, UNKNOWN),
    "0": (b"213 0\r\n", UNKNOWN, UNKNOWN),
    "-1": (b"213 -1\r\n", UNKNOWN, UNKNOWN),
    "2^64": (b"213 18446744073709551616\r\n", NO_MEMORY, UNKNOWN),
    "2^64 and what there is":
        (b"213 %d\r\n" % (2**64 + len(OFFERED)), NO_MEMORY, UNKNOWN),
    "a gigabyte": (b"213 1073741824\r\n", NO_MEMORY, UNKNOWN),
    "a text": (b"213 much\r\n", UNKNOWN, UNKNOWN),
    "nothing": (b"213 \r\n", UNKNOWN, UNKNOWN),
    "a number and a text": (b"213 20 octets\r\n", UNKNOWN, UNKNOWN),
}

REFUSALS = {
    "greets with 120": ({"greeting": say("120 later")}, UNKNOWN),
    "greets with 421": ({"greeting": say("421 full")}, UNKNOWN),
    "greets with 220 and a line that begins with 230":
        ({"greeting": say("220-a\r\n230 in\r\n220 b")}, UNKNOWN),
    "speaks another protocol":
        ({"greeting": raw(b"HTTP/1.1 400 Bad Request\r\n\r\n")}, UNKNOWN),
    "refuses the user": ({"USER": say("530 no")}, UNKNOWN),
    "wants an account": ({"PASS": say("332 account")}, UNKNOWN),
    "says 421 to the password": ({"PASS": say("421 bye")}, UNKNOWN),
    "says 331 to the password": ({"PASS": say("331 again")}, UNKNOWN),
    "refuses the type": ({"TYPE": say("504 no")}, UNKNOWN),
    "gives no port":
        ({"EPSV": say("502 no"), "PASV": say("502 no")}, UNKNOWN),
    "gives port 0":
        ({"EPSV": say("229 (|||0|)"), "PASV": say("502 no")}, UNKNOWN),
    "gives port 99999":
        ({"EPSV": say("229 (|||99999|)"), "PASV": say("502 no")}, UNKNOWN),
    "gives a port that is none":
        ({"EPSV": say("229 (|||x|)"), "PASV": say("227 (1,2,3)")}, UNKNOWN),
    "gives ports on which nobody listens":
        ({"EPSV": listen_nowhere(lambda port: f"229 (|||{port}|)"),
          "PASV": listen_nowhere(lambda port: "227 (127,0,0,3,%d,%d)" %
                                 divmod(port, 256))}, UNKNOWN),
    "says 350 to the file":
        ({"RETR": say("350 more"), "STOR": say("350 more")}, UNKNOWN),
    "says 421 to the file":
        ({"RETR": say("421 bye"), "STOR": say("421 bye")}, UNKNOWN),
    "says 550 to the file":
        ({"RETR": say("550 no"), "STOR": say("550 no")}, BAD_FILE_NAME),
    "answers with a flood of 150":
        ({"data": for_ever(b"150 more\r\n")}, (UNKNOWN, TIMEOUT)),
    "answers the password with a flood of lines":
        ({"PASS": for_ever(b"230-more\r\n")}, (UNKNOWN, TIMEOUT)),
    "greets with a line of 8 MB":
        ({"greeting": do(raw(b"220-" + b"x" * (8 << 20) + b"\r\n"), hang_up)},
         UNKNOWN),
    "greets with 20000 lines":
        ({"greeting": do(raw(b"220-%s\r\n" % (b"y" * 90) * 20000),
                         raw(b"220 ready\r\n"), honestly)}, UNKNOWN),
}

FIRST_STEPS = ["greeting", "USER", "PASS", "PWD", "EPSV", "TYPE"]
STEPS = {"download": [*FIRST_STEPS, "SIZE", "RETR", "data", "middle", "end"],
         "upload": [*FIRST_STEPS, "STOR", "data", "end", "SIZE"]}
COLUMNS = {"download": GET, "upload": PUT}


@pytest.fixture
def server():
    made = HostileFtp(ADDRESS)
    yield made
    made.close()


@pytest.fixture(params=["download", "upload"])
def what(request):
    return request.param


@pytest.fixture
def trial(make_agent, server):
    """An agent whose FTP server is the hostile one."""
    agent = make_agent(ftp_port=server.port, login_seconds=LOGIN_SECONDS,
                       transfer_seconds=TRANSFER_SECONDS,
                       download_octets=100_000)
    server.offer("x.cfg", OFFERED)
    # The first copy leaves what applying a configuration does.
    made = Trial(agent, GET, lambda: server.offer("x.cfg", OFFERED))
    made.good = PUT
    return made


def check_log(agent):
    """No text of a server, and the password only where the module puts it."""
    for text in (MARK, "\x1b", "Sanitizer", "runtime error"):
        assert text not in agent.log
    for line in agent.log.splitlines():
        assert PASSWORD not in line or "xfCopyUserPassword" in line


def try_all(trial, server, fault, what, behaviours):
    """Every behaviour, each with a good copy behind it."""
    wrong = {}
    for text, (steps, causes) in behaviours.items():
        causes = causes if isinstance(causes, tuple) else (causes,)
        server.steps = steps
        try:
            outcome = trial.fails_within(SOON, COLUMNS[what], *causes)
            assert causes != (TIMEOUT,) or " within " in trial.why[0], trial.why
            server.steps = {}
            fault("Hostile servers", f"FTP server that {text}, {what}",
                  f"{outcome}; {trial.goes_on()}")
        except AssertionError as error:
            wrong[text] = str(error).splitlines()[0]
            server.steps = {}
    check_log(trial.agent)
    assert not wrong, "\n".join(f"{key}: {wrong[key]}" for key in wrong)


def test_torn_downloads(trial, server, fault):
    try_all(trial, server, fault, "download", TORN_DOWNLOADS)


def test_uploads_that_are_not_stored(trial, server, fault):
    try_all(trial, server, fault, "upload", STORED_IN_PART)


def test_sizes(trial, server, fault, what):
    try_all(trial, server, fault, what, {
        f"tells the size {text}":
            ({"SIZE": raw(reply)}, get if what == "download" else put)
        for text, (reply, get, put) in SIZES.items()})


def test_refusals(trial, server, fault, what):
    try_all(trial, server, fault, what, REFUSALS)


def test_silence(trial, server, fault, what):
    try_all(trial, server, fault, what, {
        f"falls silent at {step}": ({step: silent}, TIMEOUT)
        for step in STEPS[what]})


def test_hanging_up(trial, server, fault, what):
    try_all(trial, server, fault, what, {
        f"hangs up at {step}": ({step: hang_up}, UNKNOWN)
        for step in STEPS[what]})


SLOW = {
    f"{text} at {step}": ({step: action}, (TIMEOUT, UNKNOWN)
                          if text.startswith("never") else TIMEOUT)
    for step in ("greeting", "PASS", "end")
    for text, action in {
        # More often than libcurl looks at the time.
        "gives an octet now and then":
            do(raw(b"220-"), for_ever(b"x", pause=0.3)),
        "gives a line a second": for_ever(b"230-more\r\n", pause=1),
        "never ends an answer": for_ever(b"230-more of it\r\n"),
        "never ends a line": for_ever(b"2" * 4096)}.items()}


def test_answers_that_never_end(trial, server, fault, what):
    try_all(trial, server, fault, what, SLOW)


def test_limits_are_for_all_steps_together(trial, server, fault, what):
    slowly = do(wait(0.8 * LOGIN_SECONDS), honestly)
    try_all(trial, server, fault, what, {
        "takes most of the time for each step of the login":
            (dict.fromkeys(["greeting", "PASS"], slowly), TIMEOUT),
        "takes half of the time for each step behind the login":
            (dict.fromkeys(["TYPE", "RETR", "STOR"], slowly), TIMEOUT)})


def test_files_that_never_end(trial, server, fault):
    try_all(trial, server, fault, "download", {
        "never ends the file":
            ({"SIZE": say("502 no"), "data": for_ever(b"!" * 4096, "data")},
             NO_MEMORY),
        "never ends the file whose size it told":
            ({"data": for_ever(b"!" * 4096, "data")}, NO_MEMORY),
        "gives an octet of the file a second":
            ({"data": for_ever(b"!", "data", pause=1)}, TIMEOUT)})


def test_servers_without_sizes(trial, server, fault):
    """Those that are honest otherwise are served."""
    for code in (500, 502):
        server.steps = {"SIZE": say(f"{code} what is that")}
        trial.succeeds(PUT)
        server.offer("x.cfg", b"no hostname\n")
        trial.succeeds(GET, running=b"vlan 7\n")
    fault("Hostile servers", "FTP server that knows no SIZE, both directions",
          f"row successful; {trial.goes_on()}")


def test_what_servers_may_do(trial, server):
    """Answers of several lines, 250 for 226, EPSV refused, a last word later."""
    server.offer("x.cfg", b"no hostname\n")
    for steps in (
            {"greeting": raw(b"220-200 in a line\r\n 226 indented\r\n220 x\r\n"),
             "end": raw(b"226-all\r\n  451 but\r\n226-of it\r\n226 sent\r\n")},
            {"end": say("250 fine")}, {"EPSV": say("502 no")},
            {"USER": raw(b"230 in\r\n")}, {"QUIT": silent}, {"QUIT": hang_up},
            {"middle": do(say("226 sent already"), honestly), "end": hang_up}):
        server.steps = steps
        trial.succeeds(GET, running=b"vlan 7\n", seconds=SOON)


def test_other_hosts_are_not_reached(trial, server, fault):
    with socket.create_server((OTHER_ADDRESS, 0)) as other:
        other.settimeout(0)
        port = "%d,%d" % divmod(other.getsockname()[1], 256)
        host = OTHER_ADDRESS.replace(".", ",")
        try_all(trial, server, fault, "download", {
            "names another host for the file":
                ({"EPSV": say("502 no"), "PASV": say(f"227 ({host},{port})")},
                 UNKNOWN)})
        with pytest.raises(BlockingIOError):
            other.accept()


def test_texts_of_servers(trial, server, fault):
    """Neither control characters nor the password come out of the client."""
    evil = f"\x1b]0;x\x07\x1b[2J\x07\r{PASSWORD} 226 \xff\xfe%s%n"
    try_all(trial, server, fault, "download", {
        f"says {code} at {step} with a password and control characters":
            ({step: say(f"{code} {evil}")},
             BAD_FILE_NAME if code == 550 else UNKNOWN)
        for step, code in (("greeting", 421), ("USER", 530), ("PASS", 530),
                           ("RETR", 550), ("end", 451))})


LONG_NAMES = ["$ " + "n" * (length - 6) + ".cfg"
              for length in (103, 104, 127, 128)]


@pytest.mark.parametrize("name", LONG_NAMES, ids=len)
def test_long_names_of_uploads(trial, server, name):
    trial.succeeds(lambda index: [
        (oid, kind, name if text == "x.cfg" else text)
        for oid, kind, text in PUT(index)])
    assert server.files[name.encode()] == trial.running


# ---- The program by itself ---------------------------------------------------

class Run(Client):
    """The client, with limits of its own."""

    def __init__(self, folder, server, prefix=(), **settings):
        super().__init__(folder)
        self.prefix = list(prefix)
        self.reach("ftp", server)
        self.settings.update(login_seconds=LOGIN_SECONDS,
                             transfer_seconds=TRANSFER_SECONDS, **settings)

    def start(self, remote="x.cfg", local="new"):
        return self.begin("snmp.ftp.expect", ADDRESS, remote, local, USER,
                          PASSWORD, "get")


@pytest.mark.parametrize("name", LONG_NAMES, ids=len)
def test_long_names_of_downloads(server, tmp_path, name):
    server.offer(name, OFFERED)
    run = Run(tmp_path, server)
    with run.start(name, name) as client:
        assert client.wait(20) == 0, client.stderr.read()
    assert run.staged() == {name.encode(): OFFERED}


@pytest.mark.parametrize("step", ["greeting", "PASS", "end"])
@pytest.mark.parametrize("octets", [b"230-x\r\n" * 500, b"2" * 4096],
                         ids=["lines", "line"])
def test_memory_is_bounded(server, tmp_path, step, octets):
    server.offer("x.cfg", OFFERED)
    server.steps = {step: for_ever(octets)}
    most = 0
    with Run(tmp_path, server).start() as client:
        while client.poll() is None:
            most = max(most, peak_kib(client.pid))
            time.sleep(0.01)
    assert client.returncode in (1, 6, 8)
    assert 0 < most < (400_000 if lab.SANITIZED else 30_000)


def test_a_client_that_is_killed_leaves_nothing(server, tmp_path):
    server.offer("x.cfg", OFFERED)
    server.steps = {"middle": silent}
    for number, end in enumerate(("kill", "terminate"), 1):
        run = Run(tmp_path, server)
        with run.start() as client:
            wait_for(lambda: server.commands.count("RETR") == number,
                     "the transfer")
            time.sleep(0.2)
            assert client.poll() is None
            getattr(client, end)()
        assert client.returncode == (-9 if end == "kill" else 8)
        assert run.staged() == {}


def test_the_password_is_overwritten(server, tmp_path):
    server.steps = {"EPSV": silent}
    with Run(tmp_path, server).start() as client:
        wait_for(lambda: "EPSV" in server.commands, "the login")
        with open(f"/proc/{client.pid}/cmdline", "rb") as line:
            arguments = line.read()
        assert b"x.cfg\0new\0" in arguments
        assert PASSWORD.encode() not in arguments
        assert client.wait(20) == 1


@covers_tmp
@pytest.mark.parametrize("options", ["ro", "size=4k,nr_inodes=1"])
def test_tmp_is_not_needed(server, tmp_path, options):
    server.offer("x.cfg", OFFERED)
    run = Run(tmp_path, server, mounted(f"mount -t tmpfs -o {options} x /tmp"))
    with run.start() as client:
        assert client.wait(20) == 0, client.stderr.read()
    assert run.staged() == {b"new": OFFERED}


@needs_mounts
def test_room_is_looked_at_before(server, tmp_path):
    """Not a file is begun for which there is no room."""
    server.offer("x.cfg", bytes(80_000))
    run = Run(tmp_path, server, mounted('mount -t tmpfs -o size=64k x "$PWD"'))
    with run.start() as client:
        assert client.wait(20) == 3
    assert "SIZE" in server.commands and "RETR" not in server.commands


def test_the_limit_is_looked_at_before(server, tmp_path):
    server.offer("x.cfg", OFFERED)
    for limit, code in ((len(OFFERED) - 1, 3), (len(OFFERED), 0)):
        run = Run(tmp_path, server, download_octets=limit)
        with run.start() as client:
            assert client.wait(20) == code
        assert ("RETR" in server.commands) == (code == 0)
    assert run.staged() == {b"new": OFFERED}
