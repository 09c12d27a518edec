"""xfcopy as a person or a program starts it, and what may stand between it
and the agent."""

import fcntl
import json
import os
import select
import socket
import struct
import subprocess
import termios
import threading
import time

from lab import BUILD
from quick import read_tlv
from snmp import V2C
from tools import wait_for

XFCOPY = BUILD / "xfcopy" / "xfcopy"

(DONE, INTERNAL, USAGE, NO_ANSWER, ACCESS, REFUSED, BUSY, COPY_FAILED,
 CANCELLED, TIMED_OUT, GONE) = range(11)


class Result:
    def __init__(self, status, out, err):
        self.status, self.out, self.err = status, out, err

    def __repr__(self):
        return f"status {self.status}\n{self.out}{self.err}"

    @property
    def events(self):
        return [json.loads(line) for line in self.out.splitlines()]

    @property
    def end(self):
        return self.events[-1]


class Xfcopy:
    """Runs the command for one agent."""

    def __init__(self, folder, agent, who=None, peer=None):
        self.folder, self.agent = folder, agent
        self.who = V2C if who is None else who
        self.peer = peer or agent.station.peer
        self.more = {}
        # The library says so when it has to make them.
        (folder / "snmp-state" / "cert_indexes").mkdir(parents=True,
                                                       exist_ok=True)

    def environment(self):
        kept = {key: os.environ[key] for key in ("PATH", "ASAN_OPTIONS")
                if key in os.environ}
        # The library leaves memory behind where it refuses an option.
        kept.setdefault("ASAN_OPTIONS", "detect_leaks=0")
        return {**kept, "HOME": str(self.folder), "LC_ALL": "C.UTF-8",
                "TERM": "xterm", "SNMPCONFPATH": str(self.folder / "snmp"),
                "SNMP_PERSISTENT_DIR": str(self.folder / "snmp-state"),
                **self.more}

    def line(self, words, who=None):
        """`@` stands for the agent."""
        who = self.who if who is None else who
        return [str(XFCOPY), *who, *(self.peer if each == "@" else str(each)
                                     for each in words)]

    def start(self, *words, who=None, **more):
        return subprocess.Popen(
            self.line(words, who), stdin=more.pop("stdin", subprocess.DEVNULL),
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            errors="replace", start_new_session=True, env=self.environment(),
            **more)

    def run(self, *words, seconds=60, **more):
        return result_of(self.start(*words, **more), seconds)


def result_of(process, seconds=60):
    try:
        out, err = process.communicate(timeout=seconds)
    except subprocess.TimeoutExpired:
        process.kill()
        raise
    return Result(process.returncode, out, err)


class Terminal:
    """The command on a terminal of its own. `text` is all that it printed."""

    def __init__(self, command, *words, columns=80, who=None):
        self.fd, inside = os.openpty()
        self.inside = inside
        self.resize(columns)
        self.text = ""
        self.process = subprocess.Popen(
            command.line(words, who), stdin=inside, stdout=inside,
            stderr=inside, start_new_session=True, env=command.environment(),
            preexec_fn=lambda: fcntl.ioctl(inside, termios.TIOCSCTTY, 0))

    def resize(self, columns):
        fcntl.ioctl(self.fd, termios.TIOCSWINSZ,
                    struct.pack("HHHH", 24, columns, 0, 0))

    def read(self):
        """Takes what has come; whether anything did."""
        ready, _, _ = select.select([self.fd], [], [], 0.05)
        if ready:
            self.text += os.read(self.fd, 65536).decode(errors="replace")
        return bool(ready)

    def expect(self, text, seconds=20):
        wait_for(lambda: (self.read(), text in self.text)[1],
                 f"{text!r} in {self.text!r}", seconds)

    def type(self, text):
        os.write(self.fd, text.encode())

    def echoes(self):
        return bool(termios.tcgetattr(self.inside)[3] & termios.ECHO)

    def end(self, seconds=30):
        """The exit status."""
        deadline = time.monotonic() + seconds
        while self.process.poll() is None:
            self.read()
            if time.monotonic() > deadline:
                self.process.kill()
                raise AssertionError(self.text)
        while self.read():
            pass
        return self.process.returncode

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        os.close(self.fd)
        os.close(self.inside)


SET = 0xA3


def pdu_of(message):
    """Kind and content of the PDU of a message of SNMPv2c."""
    _, inside, _ = read_tlv(message)
    _, _, rest = read_tlv(inside)
    _, _, rest = read_tlv(rest)
    kind, content, _ = read_tlv(rest)
    return kind, content


class Relay:
    """Stands between the command and the agent. `request` and `answer` get the
    relay and a message, and give what is sent on instead: a list of pairs of
    a delay in seconds and a message. `kind` is that of the last request,
    `sets` the number of SETs that the agent got."""

    def __init__(self, port, request=None, answer=None):
        self.agent = ("127.0.0.1", port)
        self.request = request or (lambda relay, message: [(0, message)])
        self.answer = answer or (lambda relay, message: [(0, message)])
        self.front = self.socket()
        self.front.bind(("127.0.0.1", 0))
        self.back = self.socket()
        self.peer = "udp:127.0.0.1:%d" % self.front.getsockname()[1]
        self.client = None
        self.kind, self.sets = None, 0
        self.seen = {"request": 0, "answer": 0, "set": 0}
        self.timers = []
        self.closed = False
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    @staticmethod
    def socket():
        made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        made.setblocking(False)
        return made

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.closed = True
        self.thread.join()
        for each in self.timers:
            each.cancel()
            each.join()
        self.front.close()
        self.back.close()

    def run(self):
        while not self.closed:
            ready, _, _ = select.select([self.front, self.back], [], [], 0.05)
            if self.front in ready:
                message, self.client = self.front.recvfrom(65536)
                self.kind, _ = pdu_of(message)
                self.seen["request"] += 1
                self.seen["set"] += self.kind == SET
                self.pass_on(self.request(self, message), self.to_agent)
            if self.back in ready:
                message = self.back.recv(65536)
                self.seen["answer"] += 1
                self.pass_on(self.answer(self, message), self.to_client)

    def pass_on(self, messages, send):
        for delay, message in messages:
            if not delay:
                send(message)
                continue
            self.timers.append(threading.Timer(delay, send, [message]))
            self.timers[-1].start()

    def to_agent(self, message):
        self.sets += pdu_of(message)[0] == SET
        self.back.sendto(message, self.agent)

    def to_client(self, message):
        self.front.sendto(message, self.client)
