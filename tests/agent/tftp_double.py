"""A TFTP server whose misbehaviour is chosen: RFC 1350, without options."""

import socket
import struct
import threading

READ, WRITE, DATA, ACKNOWLEDGE, ERROR = 1, 2, 3, 4, 5
BLOCK = 512


class TftpDouble:
    """Answers one request after the other.

    silent      nothing is answered
    error       every request is answered with this error code
    stop_after  after this many blocks nothing more is answered
    gate        an Event: nothing is answered before it is set
    tries       so often a packet is sent to a client that does not answer

    `files` are what it gives and what it got, by name; `requests` the names
    that were asked for.
    """

    def __init__(self, address, port):
        self.address = address
        self.silent = False
        self.error = None
        self.stop_after = None
        self.gate = threading.Event()
        self.gate.set()
        self.files = {}
        self.requests = []
        self.tries = 10
        self._closed = False
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind((address, port))
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
            self.gate.wait()
            if not self._closed:
                self._answer(kind, name, client)

    def _answer(self, kind, name, client):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as transfer:
            transfer.bind((self.address, 0))
            transfer.connect(client)
            transfer.settimeout(0.2)
            if self.error is not None:
                transfer.send(struct.pack("!HH", ERROR, self.error) +
                              b"as told\0")
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
            data = content[(block - 1) * BLOCK:block * BLOCK]
            packet = struct.pack("!HH", DATA, block & 0xffff) + data
            expected = struct.pack("!HH", ACKNOWLEDGE, block & 0xffff)
            tries = 0
            while not self._exchange(transfer, packet, expected):
                tries += 1
                if self._closed or tries == self.tries:
                    return

    def _receive(self, transfer, name):
        content, block, last, tries = b"", 0, False, 0
        while not last and not self._stopped(block) and tries < self.tries:
            packet = struct.pack("!HH", ACKNOWLEDGE, block & 0xffff)
            expected = struct.pack("!HH", DATA, (block + 1) & 0xffff)
            data = self._exchange(transfer, packet, expected)
            if data:
                content += data[4:]
                last = len(data) < BLOCK + 4
                block += 1
            tries = 0 if data else tries + 1
        if last:
            self.files[name] = content  # before the client is done
            transfer.send(struct.pack("!HH", ACKNOWLEDGE, block & 0xffff))

    @staticmethod
    def _exchange(transfer, packet, expected):
        try:
            transfer.send(packet)
            answer = transfer.recv(65536)
        except (socket.timeout, ConnectionError):
            return None
        return answer if answer.startswith(expected) else None
