"""An FTP server that misbehaves as it is told.

    server = HostileFtp("127.0.0.3")
    server.offer("x.cfg", content)
    server.steps = {"SIZE": say("213 1"), "middle": do(reset, say("226 done"))}

`steps` names points of a session: "greeting", each command, and of a file
"data" (the connection is there), "middle" (half has gone), "end" (all has gone,
nothing was said of it). What stands there is called with the session in the
place of what an honest server does; if it returns True, that is done too.
"""

import contextlib
import itertools
import socket
import struct
import threading
import time

# In every text, so that a test sees where one of them went.
MARK = "gnarled"


class HangUp(Exception):
    """Ends the session."""


class Session:
    """One client, served honestly where no step says something else."""

    def __init__(self, server, control):
        self.server, self.control = server, control
        self.listener = self.data = None

    def run(self):
        with contextlib.suppress(OSError, HangUp):
            if self.step("greeting"):
                self.say("220 ready")
            for line in self.control.makefile("rb"):
                verb, _, argument = line.rstrip(b"\r\n").partition(b" ")
                verb = verb.decode()
                self.server.commands.append(verb)
                if self.step(verb):
                    getattr(self, verb, self.unknown)(argument)
        self.close()

    def step(self, name):
        """Whether to go on honestly."""
        action = self.server.steps.get(name)
        return action is None or action(self) is True

    def say(self, text):
        self.control.sendall(f"{text} {MARK}\r\n".encode("latin-1"))

    def unknown(self, _):
        self.say("502 no such command")

    def USER(self, _):
        self.say("331 password")

    def PASS(self, _):
        self.say("230 in")

    def PWD(self, _):
        self.control.sendall(b'257 "/"\r\n')

    def TYPE(self, _):
        self.say("200 type")

    def listen(self):
        self.listener = socket.create_server((self.server.address, 0))
        self.server.keep(self.listener)
        return self.listener.getsockname()[1]

    def EPSV(self, _):
        self.say(f"229 (|||{self.listen()}|)")

    def PASV(self, _):
        host = self.server.address.replace(".", ",")
        self.say("227 (%s,%d,%d)" % (host, *divmod(self.listen(), 256)))

    def SIZE(self, name):
        content = self.server.files.get(name)
        # Exactly so: behind the number nothing may come.
        self.control.sendall(b"550 no such file\r\n" if content is None
                             else b"213 %d\r\n" % len(content))

    def accept(self):
        self.listener.settimeout(20)
        self.data, _ = self.listener.accept()
        self.server.keep(self.data)

    def RETR(self, name):
        content = self.server.files.get(name)
        if content is None:
            return self.say("550 no such file")
        self.say("150 here it comes")
        self.accept()
        half = len(content) // 2
        if not self.step("data"):
            return None
        self.data.sendall(content[:half])
        if not self.step("middle"):
            return None
        self.data.sendall(content[half:])
        self.data.close()
        if self.step("end"):
            self.say("226 sent")
        return None

    def STOR(self, name):
        self.say("150 send it")
        self.accept()
        if not self.step("data"):
            return
        content = self.data.recv(8)
        if not self.step("middle"):
            return
        while octets := self.data.recv(65536):
            content += octets
        self.data.close()
        if self.step("end"):
            self.server.files[name] = content
            self.say("226 stored")

    def QUIT(self, _):
        self.say("221 bye")
        raise HangUp

    def close(self):
        for each in (self.control, self.data, self.listener):
            if each is not None:
                with contextlib.suppress(OSError):
                    each.close()


class HostileFtp:
    """Serves clients of an address of its own, each in a thread, until
    `close`."""

    def __init__(self, address="127.0.0.3"):
        self.address = address
        self.listener = socket.create_server((address, 0))
        self.port = self.listener.getsockname()[1]
        self.files, self.commands, self.steps = {}, [], {}
        self.closed = threading.Event()
        self.open = [self.listener]
        threading.Thread(target=self.accept, daemon=True).start()

    def keep(self, connection):
        self.open.append(connection)

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                control, _ = self.listener.accept()
                self.keep(control)
                threading.Thread(target=Session(self, control).run,
                                 daemon=True).start()

    def offer(self, name, content):
        self.files[name.encode()] = content
        return content

    def close(self):
        self.closed.set()
        for each in self.open:
            with contextlib.suppress(OSError):
                each.shutdown(socket.SHUT_RDWR)
            each.close()


# ---- What it can do at a step ------------------------------------------------

def do(*actions):
    """One after the other."""
    def every(session):
        result = None
        for action in actions:
            result = action(session)
        return result
    return every


def say(text):
    return lambda session: session.say(text)


def raw(octets):
    """Says exactly this."""
    return lambda session: session.control.sendall(octets)


def honestly(_):
    """Goes on as an honest server."""
    return True


def silent(session):
    """Does nothing until the client has gone, or the server is closed."""
    session.control.settimeout(0.2)
    while not session.server.closed.is_set():
        try:
            if not session.control.recv(4096):
                break
        except TimeoutError:
            continue
    raise HangUp


def hang_up(_):
    raise HangUp


def accept(session):
    session.accept()


def close_data(session):
    session.data.close()


def reset(session):
    """Ends the connection for the file as a crash does."""
    session.data.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER,
                            struct.pack("ii", 1, 0))
    session.data.close()


def send(octets):
    return lambda session: session.data.sendall(octets)


def take(session):
    """Reads the file to its end and forgets it."""
    while session.data.recv(65536):
        pass


def wait(seconds):
    return lambda session: time.sleep(seconds)


def for_ever(octets, connection="control", pause=0.0):
    """Says the same again and again."""
    def flood(session):
        for _ in itertools.count():
            if session.server.closed.wait(pause):
                raise HangUp
            getattr(session, connection).sendall(octets)
    return flood


def listen_nowhere(form):
    """Names a port on which nobody listens."""
    def answer(session):
        port = session.listen()
        session.listener.close()
        session.say(form(port))
    return answer
