"""GET and GETNEXT without a tool, for when it matters how long they take."""

import itertools
import socket
import time

GET, GET_NEXT, RESPONSE = 0xA0, 0xA1, 0xA2
_ids = itertools.count(0x11000000)


def tlv(tag, content):
    size = len(content)
    length = bytes([size]) if size < 128 else \
        bytes([0x82]) + size.to_bytes(2, "big")
    return bytes([tag]) + length + content


def read_tlv(octets):
    """Tag, content and what follows."""
    size, start = octets[1], 2
    if size & 0x80:
        start += size & 0x7F
        size = int.from_bytes(octets[2:start], "big")
    return octets[0], octets[start:start + size], octets[start + size:]


def encode_name(oid):
    first, second, *rest = (int(each) for each in oid.strip(".").split("."))
    octets = bytes([40 * first + second])
    for number in rest:
        part = [number & 0x7F]
        while number := number >> 7:
            part.append(number & 0x7F | 0x80)
        octets += bytes(reversed(part))
    return octets


class QuickStation:
    def __init__(self, port, community=b"private"):
        self.community = community
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.settimeout(20)
        self.socket.connect(("127.0.0.1", port))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def ask(self, kind, oid):
        """The seconds that the answer took; it has to be a value."""
        number = next(_ids).to_bytes(4, "big")
        zero = tlv(2, b"\0")
        varbind = tlv(0x30, tlv(6, encode_name(oid)) + tlv(5, b""))
        message = tlv(0x30, tlv(2, b"\1") + tlv(4, self.community) + tlv(
            kind, tlv(2, number) + zero + zero + tlv(0x30, varbind)))
        start = time.monotonic()
        self.socket.send(message)
        answer = self.socket.recv(65536)
        took = time.monotonic() - start
        self.check(answer, number, oid)
        return took

    @staticmethod
    def check(answer, number, oid):
        _, message, _ = read_tlv(answer)
        _, _, rest = read_tlv(message)
        _, _, rest = read_tlv(rest)
        kind, pdu, _ = read_tlv(rest)
        _, request, rest = read_tlv(pdu)
        _, error, rest = read_tlv(rest)
        _, _, rest = read_tlv(rest)
        _, varbinds, _ = read_tlv(rest)
        _, varbind, _ = read_tlv(varbinds)
        _, _, value = read_tlv(varbind)
        assert (kind, request, error) == (RESPONSE, number, b"\0"), oid
        # noSuchObject, noSuchInstance and endOfMibView are no values.
        assert value[0] < 0x80, oid
