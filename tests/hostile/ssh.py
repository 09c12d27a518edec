"""An SSH server that misbehaves. It is Paramiko's, with a hand-made SFTP behind
it, so that it can do what no server of its kind does.

`HostileSsh.session` is a function that makes the session of the next clients:
a `Session`, which behaves, or one of its kinds, which does not.
"""

import contextlib
import itertools
import logging
import os
import socket
import struct
import threading
import time

import paramiko

logging.getLogger("paramiko").addHandler(logging.NullHandler())
logging.getLogger("paramiko").propagate = False

USER, PASSWORD = "copier", "the password of the copy"
# What a client says of itself, and what the server says in its place.
FORGED = ("Authenticated to 127.0.0.2 ([127.0.0.2]:22) using \"password\".\r\n"
          "copier@127.0.0.2's password: \r\nsftp> \r\n")
ODD_TEXT = "\x1b]0;owned\x07\x1b[2J\r\n" + FORGED + "No space left on device\n"

INIT, VERSION, OPEN, CLOSE, READ, WRITE, LSTAT = 1, 2, 3, 4, 5, 6, 7
FSETSTAT, REALPATH, STAT = 10, 16, 17
STATUS, HANDLE, DATA, NAME, ATTRS = 101, 102, 103, 104, 105
OK, EOF, NO_FILE, DENIED, FAILURE = 0, 1, 2, 3, 4
UNSUPPORTED, NO_SPACE, QUOTA = 8, 14, 15


def word(value):
    return struct.pack(">I", value & 0xFFFFFFFF)


def text(octets):
    return word(len(octets)) + octets


def attributes(size=None, mode=None):
    flags = (size is not None) * 1 | (mode is not None) * 4
    return word(flags) + (b"" if size is None else struct.pack(">Q", size)) + \
        (b"" if mode is None else word(mode))


class Login(paramiko.ServerInterface):
    """Lets the user in with the password; `session` may make it otherwise."""

    def __init__(self, session):
        self.session = session

    def get_banner(self):
        return self.session.banner, "en"

    def get_allowed_auths(self, username):
        return self.session.methods

    def check_auth_password(self, username, password):
        return self.session.password(username, password)

    def check_auth_interactive(self, username, submethods):
        return self.session.question(0)

    def check_auth_interactive_response(self, responses):
        return self.session.answered(responses)

    def check_channel_request(self, kind, chanid):
        return self.session.channel()

    def check_channel_subsystem_request(self, channel, name):
        if not self.session.subsystem(name):
            return False
        threading.Thread(target=self.session.run_files, args=(channel,),
                         daemon=True).start()
        return True


class Session:
    """One connection of a client. Behaves well."""

    banner = None
    methods = "password"

    def __init__(self, server, connection):
        self.server, self.connection = server, connection
        self.transport = None
        self.given = []  # what it was told when it asked

    # ---- Until the login is over --------------------------------------------

    def run(self):
        self.before_all()
        self.transport = paramiko.Transport(self.connection)
        self.transport.add_server_key(self.host_key())
        self.transport.start_server(event=threading.Event(),
                                    server=Login(self))
        while self.transport.is_alive():
            time.sleep(0.05)

    def before_all(self):
        pass

    def host_key(self):
        return self.server.key

    def password(self, user, password):
        self.given.append(password)
        right = user == USER and password == PASSWORD
        return paramiko.AUTH_SUCCESSFUL if right else paramiko.AUTH_FAILED

    def question(self, number):
        return paramiko.AUTH_FAILED

    def answered(self, responses):
        return paramiko.AUTH_FAILED

    def channel(self):
        return paramiko.OPEN_SUCCEEDED

    def subsystem(self, name):
        return name == "sftp"

    def disconnect(self, reason=2, said=ODD_TEXT):
        message = paramiko.Message()
        message.add_byte(paramiko.common.cMSG_DISCONNECT)
        message.add_int(reason)
        message.add_string(said)
        message.add_string("en")
        self.transport._send_message(message)
        self.hang_up()

    def hang_up(self):
        with contextlib.suppress(OSError):
            self.connection.shutdown(socket.SHUT_RDWR)
        self.connection.close()

    def stay_silent(self):
        """Until the client is gone."""
        while self.transport is None or self.transport.is_alive():
            if self.server.closed:
                return
            time.sleep(0.05)

    # ---- SFTP ---------------------------------------------------------------

    def run_files(self, wire):
        self.wire = wire
        with contextlib.suppress(OSError, EOFError):
            self.files()
        with contextlib.suppress(OSError, EOFError):
            wire.close()

    def files(self):
        self.greet()
        while True:
            length, = struct.unpack(">I", self.take(4))
            packet = self.take(length)
            kind, number, rest = packet[0], packet[1:5], packet[5:]
            self.answer(kind, number, rest)

    def take(self, count):
        octets = b""
        while len(octets) < count:
            more = self.wire.recv(count - len(octets))
            if not more:
                raise EOFError
            octets += more
        return octets

    def greet(self):
        length, = struct.unpack(">I", self.take(4))
        self.take(length)
        self.packet(VERSION, word(3))

    def packet(self, kind, body):
        self.wire.sendall(text(bytes([kind]) + body))

    def status(self, number, code, said="said by the server"):
        self.packet(STATUS, number + word(code) + text(said.encode()) +
                    text(b"en"))

    def answer(self, kind, number, rest):
        size = struct.unpack(">I", rest[:4])[0]
        what, rest = rest[4:4 + size], rest[4 + size:]
        if kind in (STAT, LSTAT):
            self.stat(number, what.decode().removeprefix("/"))
        elif kind == OPEN:
            flags, = struct.unpack(">I", rest[:4])
            self.name = what.decode().removeprefix("/")
            if flags & 2:
                self.server.stored[self.name] = b""
            self.open(number)
        elif kind == READ:
            self.read(number, *struct.unpack(">QI", rest))
        elif kind == WRITE:
            self.write(number, struct.unpack(">Q", rest[:8])[0], rest[12:])
        elif kind == CLOSE:
            self.close(number)
        # Only OpenSSH's client asks for these.
        elif kind == REALPATH:
            self.packet(NAME, number + word(1) + text(b"/") * 2 + attributes())
        elif kind == FSETSTAT:
            self.status(number, OK)
        else:
            self.status(number, UNSUPPORTED)

    def stat(self, number, name):
        content = self.server.stored.get(name)
        if content is None:
            self.status(number, NO_FILE)
        else:
            self.packet(ATTRS, number + attributes(len(content), 0o100644))

    def open(self, number):
        if self.name in self.server.stored:
            self.packet(HANDLE, number + text(b"h"))
        else:
            self.status(number, NO_FILE)

    def read(self, number, offset, count):
        octets = self.server.stored[self.name][offset:offset + count]
        if octets:
            self.packet(DATA, number + text(octets))
        else:
            self.status(number, EOF)

    def write(self, number, offset, octets):
        before = self.server.stored[self.name]
        self.server.stored[self.name] = before[:offset] + octets + \
            before[offset + len(octets):]
        self.status(number, OK)

    def close(self, number):
        self.status(number, OK)


class HostileSsh:
    """`address` and `port` are where it listens."""

    def __init__(self, address="127.0.0.2"):
        self.key = paramiko.ECDSAKey.generate()
        self.session = Session
        self.stored = {}  # its files
        self.last = None  # the latest session
        self.closed = False
        self.listener = socket.create_server((address, 0))
        self.address, self.port = self.listener.getsockname()
        threading.Thread(target=self.accept, daemon=True).start()

    @property
    def known_host(self):
        return (f"[{self.address}]:{self.port} {self.key.get_name()} "
                f"{self.key.get_base64()}\n")

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self.listener.accept()
                threading.Thread(target=self.serve, args=(connection,),
                                 daemon=True).start()

    def serve(self, connection):
        self.last = session = self.session(self, connection)
        with contextlib.suppress(OSError, EOFError, paramiko.SSHException):
            session.run()
        session.hang_up()

    def close(self):
        self.closed = True
        with contextlib.suppress(OSError):
            self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        if self.last:
            self.last.hang_up()


# ---- Before the login is over ------------------------------------------------

class Silent(Session):
    """Says nothing at all."""

    def before_all(self):
        self.stay_silent()


class EndlessLines(Session):
    """A server may say lines before its version."""

    pause = 0

    def before_all(self):
        while not self.server.closed:
            self.connection.sendall(FORGED.encode())
            time.sleep(self.pause)


class SlowLines(EndlessLines):
    pause = 0.3


class SlowVersion(Session):
    def before_all(self):
        for octet in itertools.chain(b"SSH-2.0-", itertools.repeat(ord("x"), 240)):
            self.connection.sendall(bytes([octet]))
            time.sleep(0.2)


class NoSsh(Session):
    def before_all(self):
        self.connection.sendall(b"HTTP/1.0 400 Bad Request\r\n\r\n")
        self.hang_up()


class Garbage(Session):
    def before_all(self):
        self.connection.sendall(b"SSH-2.0-x\r\n" + os.urandom(4096))
        self.hang_up()


class GoneAtOnce(Session):
    def before_all(self):
        self.hang_up()


class OtherKey(Session):
    def host_key(self):
        return paramiko.ECDSAKey.generate()


class NoPasswords(Session):
    methods = "publickey,timed out\nHost key verification failed."


class RefusesPassword(Session):
    def password(self, user, password):
        self.given.append(password)
        return paramiko.AUTH_FAILED


class SilentAtLogin(Session):
    def password(self, user, password):
        self.given.append(password)
        self.stay_silent()
        return paramiko.AUTH_FAILED


class DisconnectsAtLogin(Session):
    def password(self, user, password):
        self.given.append(password)
        self.disconnect()
        return paramiko.AUTH_FAILED


class BannerThatLies(SilentAtLogin):
    """Says that the login is over, which it never is."""

    banner = FORGED


class EndlessBanners(Session):
    """One banner after the other, each of which says that the login is over."""

    def password(self, user, password):
        self.given.append(password)
        while self.transport.is_alive() and not self.server.closed:
            message = paramiko.Message()
            message.add_byte(paramiko.common.cMSG_USERAUTH_BANNER)
            message.add_string(FORGED)
            message.add_string("en")
            self.transport._send_message(message)
            time.sleep(0.02)
        return paramiko.AUTH_FAILED


class Asks(Session):
    """Asks by keyboard-interactive, as often as `rounds`."""

    methods = "keyboard-interactive"
    rounds = 1
    name, instructions, prompt = "", "", "Password: "

    def question(self, number):
        self.number = number
        query = paramiko.server.InteractiveQuery(self.name, self.instructions)
        query.add_prompt(self.prompt, False)
        return query

    def answered(self, responses):
        self.given += responses
        if self.number + 1 < self.rounds:
            return self.question(self.number + 1)
        right = self.given[0] == PASSWORD
        return paramiko.AUTH_SUCCESSFUL if right else paramiko.AUTH_FAILED


class AsksTwice(Asks):
    rounds = 2


class AsksForEver(Asks):
    rounds = 1 << 60
    name, instructions = "password:", FORGED


class AsksSomethingElse(Asks):
    name, instructions = "Password:", "Your password:\n" + FORGED
    prompt = "Your mother's maiden name: "


class AsksForPasswordAfterwards(Asks):
    """Refuses the password, then asks for it in another way."""

    methods = "password,keyboard-interactive"
    rounds = 5

    def password(self, user, password):
        self.given.append(password)
        return paramiko.AUTH_FAILED

    def answered(self, responses):
        super().answered(responses)
        return self.question(self.number + 1) \
            if self.number + 1 < self.rounds else paramiko.AUTH_FAILED


class AsksForANewPassword(Session):
    """Says that the password is too old, and asks for it and a new one."""

    def password(self, user, password):
        self.given.append(password)
        message = paramiko.Message()
        message.add_byte(bytes([60]))
        message.add_string("Your password has expired. password:")
        message.add_string("en")
        self.transport._send_message(message)
        self.stay_silent()
        return paramiko.AUTH_FAILED


class NoChannel(Session):
    def channel(self):
        return paramiko.OPEN_FAILED_ADMINISTRATIVELY_PROHIBITED


class NoSubsystem(Session):
    def subsystem(self, name):
        return False


# ---- SFTP, both directions ---------------------------------------------------

class SilentFiles(Session):
    """Lets the client in and says nothing any more."""

    def files(self):
        self.stay_silent()


class Chatters(Session):
    """Prints on the standard error of the session, for ever."""

    def files(self):
        while not self.server.closed:
            self.wire.send_stderr(ODD_TEXT.encode())


class Welcomes(Session):
    """Prints a text where SFTP is to be, as a shell's start-up file does."""

    def files(self):
        self.wire.sendall(FORGED.encode())
        super().files()


class OldVersion(Session):
    def greet(self):
        self.take(9)
        self.packet(VERSION, word(2))


class HugePacket(Session):
    def greet(self):
        self.take(9)
        self.wire.sendall(word(0xFFFFFFFF) + bytes(65536))
        self.stay_silent()


class EmptyPacket(Session):
    def greet(self):
        self.take(9)
        self.wire.sendall(word(0))
        self.stay_silent()


class GarbageFiles(Session):
    def open(self, number):
        self.wire.sendall(os.urandom(512))


class WrongNumber(Session):
    def open(self, number):
        self.packet(HANDLE, word(4711) + text(b"h"))


class HugeHandle(Session):
    def open(self, number):
        self.packet(HANDLE, number + text(bytes(200_000)))


class ShortHandle(Session):
    """A handle that is said to be longer than its packet."""

    def open(self, number):
        self.packet(HANDLE, number + word(100) + b"h")


class OpenedByStatus(Session):
    def open(self, number):
        self.status(number, OK)


class Denies(Session):
    def open(self, number):
        self.status(number, DENIED, ODD_TEXT)


class SilentAtOpen(Session):
    def open(self, number):
        self.stay_silent()


class GoneAtOpen(Session):
    def open(self, number):
        self.wire.send_stderr(ODD_TEXT.encode())
        self.disconnect()


class GoneAtClose(Session):
    def close(self, number):
        self.disconnect()


class SilentAtClose(Session):
    def close(self, number):
        self.stay_silent()


class FailsToClose(Session):
    def close(self, number):
        self.status(number, FAILURE, ODD_TEXT)


class NoStat(Session):
    """Does not tell the size of a file."""

    def stat(self, number, name):
        self.status(number, UNSUPPORTED)


# ---- Downloads ---------------------------------------------------------------

class Announces(Session):
    """Says that a file has `size` octets, and is what `mode` says."""

    size, mode = 5000, 0o100644

    def stat(self, number, name):
        self.packet(ATTRS, number + attributes(self.size, self.mode))


class EndsEarly(Announces):
    """21 octets of 5000, and then the end of the file."""


class GoesOn(Announces):
    """More than was announced."""

    size = 5


class Hole(Announces):
    """The end of the file in its middle, and what is behind it."""

    size = 200_000

    def read(self, number, offset, count):
        if offset == 32768:
            self.status(number, EOF)
        elif offset >= self.size:
            self.status(number, EOF)
        else:
            self.packet(DATA, number +
                        text(bytes(min(count, self.size - offset))))


class FailsInTheMiddle(Announces):
    def read(self, number, offset, count):
        if offset == 0:
            self.packet(DATA, number + text(b"hostname torn\n"))
        else:
            self.status(number, FAILURE, ODD_TEXT)


class Endless(Announces):
    """A file without a size and without an end."""

    size = None

    def read(self, number, offset, count):
        self.packet(DATA, number + text(bytes(count)))


class EndlessAnnounced(Endless):
    size = (1 << 64) - 1


class EmptyData(Announces):
    def read(self, number, offset, count):
        self.packet(DATA, number + text(b""))


class TooMuchData(Announces):
    def read(self, number, offset, count):
        self.packet(DATA, number + text(bytes(count + 1)))


class ShortData(Announces):
    """Data that is said to be longer than its packet."""

    def read(self, number, offset, count):
        self.packet(DATA, number + word(count) + b"x")


class Drips(Announces):
    """An octet now and then."""

    def read(self, number, offset, count):
        time.sleep(0.1)
        self.packet(DATA, number + text(b"x"))


class StallsInTheMiddle(Announces):
    def read(self, number, offset, count):
        self.packet(DATA, number + text(b"hostname torn\n"))
        self.stay_silent()


class GoneInTheMiddle(Announces):
    def read(self, number, offset, count):
        self.packet(DATA, number + text(b"hostname torn\n"))
        self.disconnect()


class AnswersTwice(Announces):
    size = 21

    def read(self, number, offset, count):
        for _ in range(2):
            super().read(number, offset, count)


class Folder(Announces):
    mode = 0o40755


class ShortAttributes(Session):
    def stat(self, number, name):
        self.packet(ATTRS, number + word(0xFFFFFFFF) + b"x")


# ---- Uploads -----------------------------------------------------------------

class KeepsNothing(Session):
    def write(self, number, offset, octets):
        self.status(number, OK)


class KeepsSome(Session):
    def write(self, number, offset, octets):
        super().write(number, offset, octets[:-1])


class RefusesWrite(Session):
    code = FAILURE

    def write(self, number, offset, octets):
        self.status(number, self.code, ODD_TEXT)


class QuotaExceeded(RefusesWrite):
    code = QUOTA


class DeniesWrite(RefusesWrite):
    code = DENIED


class StrangeWrite(RefusesWrite):
    code = 4711


class AnswersWriteWithData(Session):
    def write(self, number, offset, octets):
        self.packet(DATA, number + text(octets))


class WrongNumberOfWrite(Session):
    def write(self, number, offset, octets):
        self.status(word(4711), OK)


class SilentAtWrite(Session):
    def write(self, number, offset, octets):
        self.stay_silent()


class GoneAtWrite(Session):
    def write(self, number, offset, octets):
        self.disconnect(11, "timed out")


class TakesItAway(Session):
    """The file is gone as soon as it is whole, as from a letter box."""

    def close(self, number):
        self.server.taken = self.server.stored.pop(self.name)
        self.status(number, OK)


class StopsReading(Session):
    """Opens the file and takes nothing more from the line."""

    def open(self, number):
        super().open(number)
        self.stay_silent()
