"""A management station in the bench's own process: SNMPv2c over a socket, since
a tool's start would take longer than what is measured."""

import socket

import snmp

GET, SET = 0xa0, 0xa3
INTEGER, OCTETS, NULL, NAME, SEQUENCE, ADDRESS = 2, 4, 5, 6, 0x30, 0x40


def item(tag, content):
    size = len(content)
    if size < 0x80:
        return bytes([tag, size]) + content
    return bytes([tag, 0x82]) + size.to_bytes(2, "big") + content


def integer(value):
    return item(INTEGER, value.to_bytes(value.bit_length() // 8 + 1, "big",
                                        signed=True))


def encoded_name(oid):
    first, second, *rest = map(int, oid.strip(".").split("."))
    octets = bytearray([first * 40 + second])
    for each in rest:
        octets += bytes(each >> shift & 0x7f | 0x80
                        for shift in (28, 21, 14, 7) if each >> shift)
        octets.append(each & 0x7f)
    return item(NAME, bytes(octets))


def encoded_value(kind, text):
    """A value as snmpset is told it, see snmp.row."""
    if kind == "i":
        return integer(int(text))
    if kind == "a":
        return item(ADDRESS, socket.inet_aton(text))
    return item(OCTETS, bytes.fromhex(text) if kind == "x" else text.encode())


def parts(content):
    """The items that stand one after the other, as pairs of tag and content."""
    found = []
    while content:
        size, begin = content[1], 2
        if size >= 0x80:
            begin += size - 0x80
            size = int.from_bytes(content[2:begin], "big")
        found.append((content[0], content[begin:begin + size]))
        content = content[begin + size:]
    return found


class Station:
    """Speaks to the agent on a port of 127.0.0.1."""

    def __init__(self, port):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.connect(("127.0.0.1", port))
        self.socket.settimeout(60)
        self.number = 0

    def send(self, kind, bindings):
        """`bindings`: pairs of an encoded name and an encoded value."""
        self.number += 1
        body = b"".join(item(SEQUENCE, name + value)
                        for name, value in bindings)
        pdu = item(kind, integer(self.number) + integer(0) + integer(0) +
                   item(SEQUENCE, body))
        self.socket.send(item(SEQUENCE, integer(1) + item(OCTETS, b"private") +
                              pdu))

    def answer(self):
        """The integers of the answer to what was sent last; raises
        RuntimeError if it tells an error."""
        while True:
            (_, message), = parts(self.socket.recv(65536))
            fields = [each for _, each in parts(parts(message)[2][1])]
            number, error, _ = (int.from_bytes(each, "big", signed=True)
                                for each in fields[:3])
            if number != self.number:
                continue
            if error:
                raise RuntimeError(f"the agent answers with error {error}")
            values = [parts(each)[1] for _, each in parts(fields[3])]
            return [int.from_bytes(value, "big", signed=True)
                    for tag, value in values if tag == INTEGER]

    def send_set(self, varbinds):
        self.send(SET, [(encoded_name(oid), encoded_value(kind, text))
                        for oid, kind, text in varbinds])

    def set(self, varbinds):
        """As snmp.Station.set."""
        self.send_set(varbinds)
        return self.answer()

    def get(self, column, index):
        """The value of a column of integers."""
        self.send(GET, [(encoded_name(snmp.name(column, index)),
                         item(NULL, b""))])
        value, = self.answer()
        return value
