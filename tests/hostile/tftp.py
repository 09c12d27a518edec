"""A TFTP server whose misbehaviour is chosen: RFC 1350, without options, unless
told otherwise."""

import select
import socket
import struct
import threading
import time

READ, WRITE, DATA, ACKNOWLEDGE, ERROR, OPTIONS = 1, 2, 3, 4, 5, 6
BLOCK = 512


def data(block, octets=b""):
    return struct.pack("!HH", DATA, block & 0xffff) + octets


def ack(block):
    return struct.pack("!HH", ACKNOWLEDGE, block & 0xffff)


def error(code, text=b"as told\0"):
    return struct.pack("!HH", ERROR, code) + text


def options(*words):
    """What a server answers that takes options: names and values in turn."""
    return struct.pack("!H", OPTIONS) + b"".join(
        str(word).encode() + b"\0" for word in words)


def bound(address, port=0):
    family = socket.AF_INET6 if ":" in address else socket.AF_INET
    made = socket.socket(family, socket.SOCK_DGRAM)
    made.bind((address, port))
    return made


class TftpDouble:
    """Answers one request after the other.

    silent      nothing is answered
    error       every request is answered with this error code
    stop_after  after this many blocks nothing more is answered
    gate        an Event: nothing is answered before it is set
    tries       so often a packet is sent to a client that does not answer
    act         called with a Talk in the place of all this

    `files` are what it gives and what it got, by name; `requests` the names
    that were asked for; `heard` every packet of a client that an act has heard.
    """

    def __init__(self, address, port, act=None):
        self.address = address
        self.act = act
        self.heard = []
        self.silent = False
        self.error = None
        self.stop_after = None
        self.gate = threading.Event()
        self.gate.set()
        self.files = {}
        self.requests = []
        self.tries = 10
        self._closed = False
        self._socket = bound(address, port)
        self._socket.settimeout(0.1)
        self._thread = threading.Thread(target=self._serve)
        self._thread.start()

    def close(self):
        self._closed = True
        self.gate.set()
        self._thread.join()
        self._socket.close()

    def _serve(self):
        while not self._closed:
            try:
                packet, client = self._socket.recvfrom(65536)
            except socket.timeout:
                continue
            kind, = struct.unpack("!H", packet[:2])
            name = packet[2:].split(b"\0")[0].decode()
            self.requests.append(name)
            if self.silent:
                continue
            if self.act:
                self._play(packet, client)
                continue
            self.gate.wait()
            if not self._closed:
                self._answer(kind, name, client)

    def _asked_anew(self, talk):
        """Whether a client waits that is not the one of this talk. What that
        one repeats is dropped, unless the talk wants it."""
        while select.select([self._socket], [], [], 0)[0]:
            _, sender = self._socket.recvfrom(1, socket.MSG_PEEK)
            if talk.wants_repeats or sender != talk.client:
                return True
            self._socket.recvfrom(65536)
        return False

    def _play(self, request, client):
        self.heard.append(request)
        with Talk(self, client) as talk:
            self.act(talk)
            while talk.goes_on():
                talk.hear()

    def _answer(self, kind, name, client):
        with bound(self.address) as transfer:
            transfer.connect(client)
            transfer.settimeout(0.2)
            if self.error is not None:
                transfer.send(error(self.error))
            elif kind == READ:
                self._send(transfer, self.files[name])
            else:
                self._receive(transfer, name)

    def _stopped(self, blocks):
        return self._closed or blocks == self.stop_after

    def _send(self, transfer, content):
        for block in range(1, len(content) // BLOCK + 2):
            if self._stopped(block - 1):
                return
            packet = data(block, content[(block - 1) * BLOCK:block * BLOCK])
            tries = 0
            while not self._exchange(transfer, packet, ack(block)):
                tries += 1
                if self._closed or tries == self.tries:
                    return

    def _receive(self, transfer, name):
        content, block, last, tries = b"", 0, False, 0
        while not last and not self._stopped(block) and tries < self.tries:
            came = self._exchange(transfer, ack(block), data(block + 1))
            if came:
                content += came[4:]
                last = len(came) < BLOCK + 4
                block += 1
            tries = 0 if came else tries + 1
        if last:
            self.files[name] = content  # before the client is done
            transfer.send(ack(block))

    @staticmethod
    def _exchange(transfer, packet, expected):
        try:
            transfer.send(packet)
            answer = transfer.recv(65536)
        except (socket.timeout, ConnectionError):
            return None
        return answer if answer.startswith(expected) else None


class Talk:
    """What an act says to a client, from a port of its own unless told
    otherwise. Every wait is short, and an act ends when the server is closed or
    another client asks: one that begins again is another one. With
    `wants_repeats` it also ends when the client repeats its request.
    """

    def __init__(self, server, client):
        self.server = server
        self.client = client
        self.wants_repeats = False
        self.sockets = {}
        self.own = self._bound(server.address, "own")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for each in self.sockets.values():
            each.close()

    def _bound(self, address, name):
        if name not in self.sockets:
            self.sockets[name] = bound(address)
            self.sockets[name].settimeout(0.1)
        return self.sockets[name]

    def goes_on(self):
        return not self.server._closed and not self.server._asked_anew(self)

    def say(self, *packets):
        for packet in packets:
            self.own.sendto(packet, self.client)

    def say_elsewhere(self, *packets, address=None):
        """From another port of the server, or from another address."""
        other = self._bound(address or self.server.address, address)
        for packet in packets:
            other.sendto(packet, self.client)

    def hear(self):
        """The next packet of the client, None after a moment without one."""
        try:
            packet, sender = self.own.recvfrom(65536)
        except socket.timeout:
            return None
        if sender == self.client:
            self.server.heard.append(packet)
        return packet

    def wait_for(self, beginning):
        """The client's next packet that begins like this; None if the talk
        ends before."""
        while self.goes_on():
            packet = self.hear()
            if packet and packet.startswith(beginning):
                return packet
        return None

    def pause(self, seconds):
        end = time.monotonic() + seconds
        while self.goes_on() and time.monotonic() < end:
            time.sleep(0.02)

    def give(self, content, size=BLOCK, first=1, around=None):
        """Sends a file block by block, as it should be. `around` gives for a
        block what is sent in the place of it."""
        around = around or (lambda block, packet: [packet])
        for block in range(first, len(content) // size + 2):
            packet = data(block, content[(block - 1) * size:block * size])
            self.say(*around(block, packet))
            self.wait_for(ack(block))

    def take(self, begin, size=BLOCK, around=None, blocks=None):
        """Takes a file as it should be taken; begins with the packet `begin`.
        The file, once it is whole, is the server's file of that name."""
        around = around or (lambda block, packet: [packet])
        self.say(*around(0, begin))
        content, block = b"", 0
        while self.goes_on() and block != blocks:
            block += 1
            came = self.wait_for(data(block))
            if came is None:
                return
            content += came[4:]
            if len(came) < size + 4:
                self.server.files[self.server.requests[-1]] = content
                self.say(*around(block, ack(block)))
                return
            self.say(*around(block, ack(block)))
