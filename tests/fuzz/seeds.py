#!/usr/bin/env python3
"""Writes the inputs that the fuzzers start from into corpus/. Run it again
after a change of how a fuzzer reads its input; what a fuzzer found by itself
(found-*) is made anew with scripts/fuzz.sh --minimise."""

import pathlib
import struct

CORPUS = pathlib.Path(__file__).parent / "corpus"


def write(fuzzer, name, *parts):
    data = b"".join(p.encode() if isinstance(p, str) else bytes(p) for p in parts)
    folder = CORPUS / fuzzer
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(data)


def word(value):
    return struct.pack(">I", value & 0xFFFFFFFF)


# ---- pdu_fuzzer: see step() there -------------------------------------------

PROTOCOL, SOURCE, DEST, ADDRESS, FILE, USER, PASSWORD, NOTIFY = range(2, 10)
STATE, STARTED, COMPLETED, CAUSE, ROW_STATUS, ADDRESS_TYPE, REV1, VRF = range(10, 18)
STRINGS = (FILE, USER, PASSWORD, REV1, VRF)
ACTIVE, CREATE_AND_GO, CREATE_AND_WAIT, DESTROY = 1, 4, 5, 6
WALK, OLD, AGE = b"\x0e", b"\x0b\x00\x01", b"\x0c"
STATUS, SAVE_END, SAVE_BEGIN = 8, 9, 10
SENT, NOT_SENT = b"\x00", b"\x07"
ACCEPTED, DONE, REFUSED = b"\x00", b"\x01", b"\x02" + word(0x401E0012)
INTERRUPTED, SILENCE, BROKEN = b"\x06", b"\x07", b"\x08"
FORKED, NOT_FORKED = b"\x00", b"\x07"


def name(column, row):
    return bytes([column - 2]) + (row if isinstance(row, bytes) else bytes([row]))


def bind(column, row, value):
    if column == ADDRESS:
        octets = bytes(int(part) for part in value.split("."))
    elif column in STRINGS:
        value = value.encode() if isinstance(value, str) else value
        octets = bytes([len(value)]) + value
        if column == PASSWORD:
            octets += b"\x00"
    else:
        octets = bytes([value & 0xFF])
    return name(column, row) + b"\x00" + octets


def set_(*binds):
    return bytes([0, len(binds) - 1]) + b"".join(binds)


def get(*names):
    return bytes([5, len(names) - 1]) + b"".join(names)


def get_next(*names):
    return bytes([6, len(names) - 1]) + b"".join(names)


def get_bulk(non_repeaters, repetitions, *names):
    return bytes([7, non_repeaters, repetitions, len(names) - 1]) + b"".join(names)


def message(what, value):
    return bytes([what, 0]) + word(value)


def network(row, protocol=1, *more):
    return (bind(PROTOCOL, row, protocol), bind(SOURCE, row, 4), bind(DEST, row, 1),
            bind(ADDRESS, row, "192.0.2.1"), bind(FILE, row, "a.cfg"), *more)


def save_row(row, dest=3):
    return set_(bind(ROW_STATUS, row, CREATE_AND_WAIT), bind(SOURCE, row, 4),
                bind(DEST, row, dest), bind(NOTIFY, row, 1))


def activate(row):
    return set_(bind(ROW_STATUS, row, ACTIVE))


create = lambda row: set_(bind(ROW_STATUS, row, CREATE_AND_WAIT))
destroy = lambda row: set_(bind(ROW_STATUS, row, DESTROY))


def pdu(file, *parts):
    write("pdu_fuzzer", file, *parts)


pdu("empty")
pdu("every-column", create(3),
    set_(*network(3), bind(USER, 3, "u"), bind(PASSWORD, 3, "secret"), bind(VRF, 3, "blue")),
    set_(bind(ADDRESS_TYPE, 3, 2), bind(REV1, 3, bytes(range(16))), bind(NOTIFY, 3, 1)),
    get(*(name(c, 3) for c in range(2, 10))), get(*(name(c, 3) for c in range(10, 18))), WALK)
pdu("longest-values", create(1),
    set_(bind(FILE, 1, "f" * 128), bind(USER, 1, "u" * 41), bind(PASSWORD, 1, "p" * 36),
         bind(VRF, 1, "v" * 32)),
    set_(bind(FILE, 1, "f" * 129)), set_(bind(USER, 1, "u" * 42)),
    set_(bind(PASSWORD, 1, "p" * 37)), set_(bind(VRF, 1, "v" * 33)),
    set_(bind(REV1, 1, "r" * 64)), set_(bind(REV1, 1, "r" * 65)), WALK)
pdu("three-rows-next-and-bulk", create(7), create(3), create(9),
    get_next(name(FILE, 7), name(STATE, 9), name(VRF, 1)),
    get_bulk(1, 20, name(PROTOCOL, 1), name(FILE, 2)), WALK)
pdu("limits-of-indexes", *(create(bytes([210, i])) for i in range(6)),
    get_next(name(FILE, bytes([210, 2])), name(FILE, bytes([210, 5]))), WALK)
pdu("names-with-two-indexes", create(1), set_(bind(ROW_STATUS, b"\xf0\x09\x01", ACTIVE)),
    set_(bind(ROW_STATUS, b"\xf0\x09\x01", DESTROY)), set_(bind(ROW_STATUS, b"\xff", 5)), WALK)
pdu("create-and-go-upload",
    set_(*network(1), bind(USER, 1, "u"), bind(PASSWORD, 1, "secret"),
         bind(ROW_STATUS, 1, CREATE_AND_GO)), FORKED)
pdu("upload-done", create(1), set_(*network(1, 1, bind(NOTIFY, 1, 1))), activate(1), FORKED,
    message(STATUS, 0), destroy(1))
pdu("upload-failed-then-again", create(1), set_(*network(1, 5)),
    set_(bind(USER, 1, "u"), bind(PASSWORD, 1, "secret")), activate(1), FORKED,
    message(STATUS, 3), activate(1), FORKED, message(STATUS, 0))
pdu("no-process", create(1), set_(*network(1)), activate(1), NOT_FORKED, activate(1),
    message(STATUS, 1))
pdu("second-copy-refused", create(1), set_(*network(1)), activate(1), FORKED, create(2),
    set_(*network(2)), activate(2), set_(*network(3)), message(STATUS, 0), activate(2), FORKED)
pdu("two-activations-in-one-request", create(1), set_(*network(1)), create(2),
    set_(*network(2)), set_(bind(ROW_STATUS, 1, ACTIVE), bind(ROW_STATUS, 2, ACTIVE)), FORKED)
pdu("save-accepted-and-done", save_row(1), activate(1), SENT, ACCEPTED, message(SAVE_END, 0))
pdu("save-begins-and-ends", save_row(1), message(SAVE_BEGIN, 0), message(SAVE_END, 0))
pdu("save-at-once", save_row(1), activate(1), SENT, DONE, get(name(STATE, 1)))
pdu("save-refused", save_row(1, 7), activate(1), SENT, REFUSED, get(name(CAUSE, 1)))
pdu("save-not-sent", save_row(1), activate(1), NOT_SENT)
pdu("save-without-answer", save_row(1), activate(1), SENT, INTERRUPTED, SILENCE, SILENCE,
    BROKEN, activate(1), message(SAVE_END, 0))
pdu("save-nobody-answers", save_row(1), activate(1), SENT, SILENCE * 12, message(STATUS, 1))
pdu("save-aborted", save_row(1), activate(1), SENT, ACCEPTED, destroy(1), SENT)
pdu("fabric-save-fails", save_row(1, 6), activate(1), SENT, ACCEPTED,
    bytes([SAVE_END, 1]) + word(1), b"\x00",
    b"\x01" + b"WWWWWWWW" + b"\x00\x01\xc0\x00\x02\x09" + b"\x05full disk!",
    b"\x01" + b"LLLLLLLL" + b"\x01" + b"\x03busy..", b"\x01\x01\xc0\x00\x02\x08",
    b"\x01" + b"VVVVVVVV" + b"\x02\x02" + bytes(range(16)) + b"\xff", b"x" * 256, b"\x00",
    b"\x00" * 8, WALK, get_bulk(0, 9, b"\x10\x01", b"\x11\x01", b"\x12\x01", b"\x13\x01"),
    destroy(1))
pdu("undo-of-an-activation", create(1), set_(*network(1)),
    set_(bind(ROW_STATUS, 1, ACTIVE), bind(ROW_STATUS, 2, ACTIVE)), FORKED, WALK)
pdu("undo-of-a-destruction", create(1), create(2),
    set_(bind(ROW_STATUS, 1, DESTROY), bind(ROW_STATUS, 2, ACTIVE)), WALK)
pdu("undo-of-a-creation", create(2),
    set_(bind(ROW_STATUS, 1, CREATE_AND_WAIT), bind(ROW_STATUS, 2, ACTIVE)), WALK)
pdu("free-of-an-activation", create(1),
    set_(bind(ROW_STATUS, 1, ACTIVE), bind(PROTOCOL, 1, 3)), activate(1), destroy(1))
pdu("free-of-columns", create(1), set_(*network(1), bind(USER, 1, "u")),
    set_(bind(FILE, 1, "b"), bind(USER, 1, "w"), bind(ADDRESS, 1, "192.0.2.7"),
         bind(PASSWORD, 1, "other"), bind(VRF, 1, "red"), bind(FILE, 9, "x")), WALK)
pdu("free-of-a-creation",
    set_(bind(ROW_STATUS, 1, CREATE_AND_GO), bind(FILE, 9, "x")), WALK,
    set_(bind(ROW_STATUS, 1, CREATE_AND_GO), bind(ROW_STATUS, 1, CREATE_AND_GO)), WALK)
pdu("undone-row-is-gone", create(1), create(2),
    set_(bind(ROW_STATUS, 1, ACTIVE), bind(ROW_STATUS, b"\xf0\x09\x01", DESTROY),
         bind(ROW_STATUS, 2, ACTIVE)), WALK)
pdu("create-twice", create(1), create(1), set_(bind(ROW_STATUS, 1, CREATE_AND_GO)), destroy(1))
pdu("old-rows-go", create(1), save_row(2), activate(2), SENT, ACCEPTED, OLD, AGE, WALK,
    message(SAVE_END, 0), AGE)
pdu("no-memory", b"\x0d\x00", create(1), create(1), b"\x0d\x00", activate(1), WALK)
pdu("wrong-types", create(1),
    *(set_(name(c, 1) + b"\x0f" + bytes([t, 4]) + b"abcd")
      for c, t in ((PROTOCOL, 1), (ADDRESS, 1), (FILE, 0), (PASSWORD, 2), (ROW_STATUS, 7))),
    set_(name(SOURCE, 1) + b"\x0e" + word(0x80000000)), WALK)

# ---- read_fuzzer: rows, error rows, reads -----------------------------------


def row(index, file="", user="", vrf="", address=b"\x01", started=0, completed=0):
    part = lambda text: bytes([len(text)]) + text.encode()
    return (bytes([index]) + part(file) + part(user) + part(vrf) + address + word(started)
            + b"\x07" + bytes([completed]))


def error_row(index, device, address="192.0.2.1", text="failed"):
    part = lambda text: bytes([len(text)]) + text.encode()
    return bytes([index, device]) + part(address) + part(text)


def read(column, exact, extra, *subids):
    """`extra` sub-identifiers behind the column, each below 256."""
    return (bytes([column, exact, 1, extra])
            + b"".join(bytes([1, s]) for s in subids) + b"\x01\x01")


def reads(file, rows, errors, *parts):
    write("read_fuzzer", file, bytes([len(rows)]), *rows, bytes([len(errors)]), *errors, *parts)


reads("empty-table", (), (), read(0, 0, 0), read(4, 1, 1, 1), read(17, 0, 0))
some = (row(3, "a.cfg", "u", "blue", b"\x01", 1700000000, 9), row(7, "b"),
        row(9, address=b"\x02"))
reads("every-column-exact", some, (), *(read(c, 1, 1, 3) for c in range(16)))
reads("every-column-next", some, (), *(read(c, 0, 1, 3) for c in range(16)))
reads("longer-names", some, (), read(4, 0, 2, 7, 1), read(4, 1, 2, 7, 0), read(4, 0, 1, 9))
reads("shorter-names", some, (), *(bytes([4, e, 0, n, 1, 1]) for e in (0, 1) for n in (0, 9, 14)))
reads("longest-name", some, (), b"\x04\x00\x00\x80" + b"\x01\x05" * 114 + b"\x01\x01")
reads("error-rows", some, (error_row(3, 1), error_row(3, 2, "2001:db8::9"), error_row(9, 1, "")),
      *(read(c, e, 2, 3, 1) for c in range(16, 20) for e in (0, 1)),
      read(17, 0, 1, 3), read(17, 1, 3, 3, 2, 0), read(17, 1, 2, 9, 1))
reads("texts-that-are-no-addresses", (row(1, address=b"\x03\x05abcde"),), (),
      read(3, 1, 1, 1), read(14, 0, 0))
reads("big-sub-identifiers", some, (), b"\x04\x00\x01\x01\x00\xff\xff\xff\xff\x01\x01",
      b"\x04\x01\x01\x01\x00\x80\x00\x00\x01\x01\x01",
      b"\x04\x01\x01\x01\x01\x03\x01\x00\x0e\x01")
reads("other-magic-numbers", some, (), *(bytes([20, m]) + b"\x01\x01\x01\x01\x03\x01\x01"
                                         for m in (0, 3, 12, 20, 24, 29, 255)))

# ---- write_fuzzer: requests, see request() there ----------------------------


def write_(column, row, value, kind=None):
    """A value of the column's type, or octets of another one."""
    head = bytes([column - 2, 0, row])
    if kind is not None:
        return head + bytes([0, kind, len(value)]) + value + b"\x01"
    if column in STRINGS or column == ADDRESS:
        return head + bytes([1, len(value)]) + value + (b"\x01" if column == PASSWORD else b"")
    return head + bytes([1, 0, value & 0xFF])


def writes(*each, fails_after=0):
    return bytes([0, fails_after, len(each) - 1]) + b"".join(each)


def phases(file, *parts):
    write("write_fuzzer", file, *parts)


made = writes(write_(ROW_STATUS, 1, CREATE_AND_WAIT))
upload = (writes(write_(SOURCE, 1, 4), write_(DEST, 1, 1), write_(FILE, 1, b"a.cfg"),
                 write_(ADDRESS, 1, b"\xc0\x00\x02\x01")))
phases("columns", made, upload,
       writes(write_(USER, 1, b"u" * 41), write_(PASSWORD, 1, b"p" * 36),
              write_(VRF, 1, b"v" * 32), write_(NOTIFY, 1, 1)),
       writes(write_(ADDRESS_TYPE, 1, 2), write_(REV1, 1, b"\x20\x01")))
phases("upload", made, upload, writes(write_(ROW_STATUS, 1, ACTIVE)), FORKED, b"\x07\x00",
       writes(write_(ROW_STATUS, 1, DESTROY)))
for length in (0, 1, 3, 4, 5, 7, 8, 9):
    phases("integer-of-%d-octets" % length, made,
           *(writes(write_(c, 1, b"\x01" * length, kind=0))
             for c in (PROTOCOL, SOURCE, ADDRESS_TYPE, ROW_STATUS)))
phases("every-type-in-every-column", made,
       *(writes(write_(c, 1, b"abcd", kind=t)) for c in range(2, 18) for t in range(6)))
for after in (1, 2, 3):
    phases("fails-after-%d" % after, made, upload,
           writes(write_(FILE, 1, b"b"), write_(PROTOCOL, 1, 2), fails_after=after),
           writes(write_(ROW_STATUS, 1, ACTIVE), fails_after=after), FORKED,
           writes(write_(ROW_STATUS, 2, CREATE_AND_WAIT), fails_after=after),
           writes(write_(ROW_STATUS, 1, DESTROY), fails_after=after))
phases("empty-values", made, *(writes(write_(c, 1, b"")) for c in STRINGS + (ADDRESS,)))

# ---- message_fuzzer: see step() there ---------------------------------------


def put(index, state, source, dest, notify=1, address=1, file=""):
    return (bytes([0, index - 1, state - 1, source, dest, notify]) + word(1700000000)
            + bytes([address, len(file)]) + file.encode())


def incoming(opcode, payload, outcome=0):
    which = {1391: 0, 1361: 1, 10277: 2}.get(opcode)
    head = bytes([6, which]) if which is not None else b"\x06\x03" + word(opcode)
    if payload is None:
        head += b"\x03"
    else:
        head += bytes([0, len(payload)]) + payload
    return head + (b"\x01" + word(outcome) if outcome else b"\x00")


def messages(file, *parts):
    write("message_fuzzer", file, *parts)


messages("status-good", put(1, 2, 4, 1, file="a.cfg"), incoming(10277, word(0)), b"\x00" * 8)
messages("status-bad", put(1, 2, 4, 1, address=2), incoming(10277, word(3)), b"\x00" * 8)
messages("status-without-payload", put(1, 2, 4, 1), incoming(10277, None))
messages("status-of-every-length", put(1, 2, 4, 1),
         *(incoming(10277, b"\x07" * n) for n in (0, 1, 3, 4, 5, 16, 17, 200)))
messages("status-without-a-running-row", put(2, 3, 4, 1), incoming(10277, word(1)),
         b"\x00" * 8)
messages("status-of-an-empty-table", incoming(10277, word(0)))
messages("save-begins", put(1, 1, 4, 3), put(2, 1, 4, 3), incoming(1391, b""),
         incoming(1391, word(7)))
messages("save-ends-well", put(1, 2, 4, 3), incoming(1361, word(0)), b"\x00" * 8)
messages("save-fails", put(1, 2, 4, 7), incoming(1361, word(5), 5), b"\x00" * 8)
messages("save-ends-for-another-copy", put(1, 2, 4, 1), incoming(1361, word(0)))
messages("fabric-save-fails", put(1, 2, 4, 6), incoming(1361, word(5), 5), b"\x00",
         b"\x01WWWWWWWW\x00\x01\xc0\x00\x02\x09\x02full", b"\x01LLLLLLLL\x01\x00",
         b"\x01\x01\xc0\x00\x02\x08", b"\x00", b"\x00" * 8)
messages("another-opcode", put(1, 2, 4, 3), incoming(1383, word(0)), incoming(0, None))
for file, answer in (("accepted", ACCEPTED), ("done", DONE), ("refused", REFUSED),
                     ("short", b"\x03\x02ab"), ("long", b"\x03\xff" + b"z" * 255),
                     ("without-payload", b"\x04"),
                     ("of-another-opcode", b"\x05\x04abcd" + word(1361)),
                     ("after-interruptions", INTERRUPTED * 5 + ACCEPTED),
                     ("after-silence", SILENCE * 3 + DONE), ("never", SILENCE * 12),
                     ("broken", BROKEN)):
    messages("reply-" + file, put(1, 2, 4, 3), b"\x01\x00", SENT, answer, b"\x00" * 8,
             incoming(1361, word(0)))
messages("request-not-sent", put(1, 2, 4, 3), b"\x01\x00", NOT_SENT)
messages("abort", put(1, 2, 4, 3), b"\x01\x00", SENT, ACCEPTED, b"\x02\x00", SENT)
messages("launch-and-remove", put(1, 1, 4, 3), b"\x03\x00\x00", SENT, ACCEPTED, b"\x05\x00",
         put(2, 1, 3, 4), b"\x03\x01\x01", FORKED, incoming(10277, word(0)))
messages("collect-and-remove", put(1, 4, 4, 6), b"\x04\x00\x00",
         b"\x01WWWWWWWW\x00\x01\xc0\x00\x02\x09\x02full" * 3, b"\x00", b"\x05\x00")

# ---- qsh_fuzzer: loaded, zero, applied --------------------------------------

CONFIGURATION = """hostname fuzz
domain-name example.net
banner two  words
contact somebody
location here
feature ftp
name-server 192.0.2.53
ntp server 192.0.2.1
ntp server 2001:db8::1
log server 192.0.2.9
route 0.0.0.0/0 192.0.2.254
vrf blue
  description a b
  route 2001:db8::/32 2001:db8::1
vlan 100
  name hundred
interface eth0
  description uplink
  mtu 9216
  address 192.0.2.2/24
  vlan 100
  vrf blue
  shutdown
"""


def qsh(file, loaded, applied):
    write("qsh_fuzzer", file, loaded, b"\x00", applied)


qsh("every-command", CONFIGURATION, CONFIGURATION)
qsh("merge", "hostname old\nvlan 1\n  name a\n", CONFIGURATION)
qsh("no-lines", CONFIGURATION,
    "no hostname\nno feature ftp\nno ntp server 192.0.2.1\nno vlan 100\ninterface eth0\n"
    "  no shutdown\n  no address 192.0.2.2/24\nno interface eth1\n")
qsh("refused", "", "nonsense\n  below it\nvlan 5000\nmtu 9000\ninterface e\n  mtu 1\n"
    "    deep\n vlan 1\nroute a b\nbanner\nvrf a b\n")
qsh("unknown-is-kept", "hostname a\nfuture x\n  deeper y\nvlan 2\n  colour red\n    z\n",
    "hostname b\n")
qsh("comments-and-blanks", "! one\r\n\r\nhostname a \t\r\n", "\t\n  ! two\nhostname\tb\n\n")
qsh("limits", "", "hostname " + "h" * 64 + "\nhostname " + "h" * 65 + "\nbanner " + "b" * 520
    + "\nvlan 4094\nvlan 4095\nvlan 0\ninterface e\n mtu 576\n mtu 575\n")
qsh("octets", b"banner \xe9\x01\n", b"banner \x7f\nbanner \x1b[m\n")
qsh("hundred-refused", "", "x\n" * 101 + "hostname a\n")

# ---- settings_fuzzer: a digit for what is read ------------------------------

SETTINGS = """# comment
root /r/
run_directory /run/a
state_directory /var/a b
user nobody
management_interface eth0
management_address 192.0.2.1
default_vrf blue
chassis_type 42
partition_type 2
tftp_port 1069
tftp_packet_seconds 5
tftp_total_seconds 30
tftp_block_octets 1000
ftp_port 2121
ssh_port 2222
login_seconds 3
transfer_seconds 60
known_hosts /etc/known
management_vrf mgmt
apply_seconds 10
trace_history no
"""
MANAGER_SETTINGS = """switch_wwn 10:00:00:05:1E:34:01:02
save_delay_seconds 0
manager_restart_seconds 5
fabric_file /etc/fabric
fabric_key_file /k
fabric_known_hosts /h
fabric_command do it
ssh_program /usr/bin/ssh
fabric_connect_seconds 5
fabric_switch_seconds 30
fabric_parallel 64
"""
LOCAL = "switch a wwn 10:00:00:05:1e:34:01:02 address 192.0.2.1 local\n"
RESULTS = ("100000051e340102 local failed 192.0.2.1 disk full\n"
           "100000051e340103 remote done 2001:db8::1 \nnonsense\n")


def settings(file, *parts):
    write("settings_fuzzer", file, *parts)


settings("settings", "0", SETTINGS)
settings("settings-of-the-manager", "0", MANAGER_SETTINGS)
settings("settings-without-values", "0", "root\nuser\n")
for number, bad in enumerate(("tftp_port 0", "tftp_port 65536", "trace_history maybe", "root r",
                            "nothing 1", "management_address x", "switch_wwn 1", "user a b")):
    settings("settings-bad-" + bad.split()[0] + str(number), "0", bad)
settings("setting", "1chassis_type 65535")
settings("setting-wwn", "1switch_wwn 10:00:00:05:1e:34:01:02")
settings("wwn", "110:00:00:05:1e:34:01:02")
settings("fabric", "2", "# all\n", LOCAL,
         "switch b-1 wwn 10:00:00:05:1e:34:01:03 address 2001:db8::1 port 22 user admin # far\n")
settings("fabric-same-wwn", "2", LOCAL * 2)
settings("fabric-none-local", "2", LOCAL.replace(" local", ""))
settings("fabric-bad-words", "2", "switch -x\nswitch\nswich a\n")
settings("fabric-bad-value", "2", "switch a port 0\n")
settings("fabric-without-value", "2", "switch a wwn")
settings("results", "3", RESULTS)
settings("results-short", "3", "100000051e340102 local failed")
settings("results-octets", "3", b"100000051e340102 x y \xff\x01 \x1b[m a\tb\n")
for token in ("7\n", "4294967295\n", "-1\n", "99999999999999999999\n", "x", "7" * 70):
    settings("journal-" + token.strip()[:12].replace("-", "minus-"), "4", token)
HEADER = b"XFB1" + word(1381) + word(9) + word(1) + b"agent.28".ljust(32, b"\x00")
settings("datagram", "5", HEADER, word(0))
settings("datagram-one-way", "5", b"XFB1", word(10277), word(0), word(0),
         b"a" * 31, b"\x00", b"p" * 200)
settings("datagram-name-of-32", "5", b"XFB1", word(1), word(1), word(2), b"a" * 32)
settings("datagram-path", "5", b"XFB1", word(1), word(1), word(2), b"../x".ljust(32, b"\x00"))
settings("datagram-short", "5", HEADER[:-1])
# Laid out as platform/messages.h says.
settings("save-request", "6", word(26), word(1), b"\x00\x00\x01\x00", b"\x00" * 16, word(1),
         b"\x00" * 8, word(1), b"operator".ljust(32, b"\x00"), b"s" * 32, b"\x00" * 32)
settings("save-request-in-a-datagram", "5", HEADER, word(26), b"\x00" * 136)
EVENT = struct.pack("<QqiiII", 1, 1700000000, 5, 77, 0x730000, 100) + b"text".ljust(512, b"\x00")
TRACE = b"XFTRACE1" + struct.pack("<IIQ", len(EVENT), 2, 3)
settings("trace", "7", TRACE, EVENT, EVENT.replace(b"\x01", b"\x02", 1))
settings("trace-text-without-end", "7", TRACE, EVENT[:32], b"x" * 512, EVENT)
settings("trace-cut", "7", TRACE, EVENT)


# ---- history_fuzzer: rows and whether lines get sums; where the file parts ---


def summed(body):
    total = 2166136261
    for octet in body.encode():
        total = (total ^ octet) * 16777619 & 0xFFFFFFFF
    return f"{total:08x} {body}\n"


def history(file, first, share, *lines):
    write("history_fuzzer", file, bytes([first, share]), *lines)


COPY = ("number={}\trow=7\tsource=4\tdestination=1\tprotocol=5\ttype=1\tport=22\t"
        "server=%c0%00%02%01\tfile=a%25b\tuser=u\tasker=alice\tvrf=red\tasked=17953101258\t"
        "started=17953101258\tended=17953101300\tcause=3\tstate={}\treason=It was slow.\t"
        "advice=Wait.\toctets=77\trefused=2\tfirst=5\trefusal=no\ttoken=9")
history("whole", 4, 0, *(summed(COPY.format(number, 3)) for number in range(1, 9)))
history("two-files", 1, 128, *(summed(COPY.format(number, 4)) for number in range(1, 6)))
history("again", 7, 0, *(summed(COPY.format(2, state)) for state in (2, 3, 4, 5)))
history("cut-off", 3, 0, summed(COPY.format(1, 2)), summed(COPY.format(2, 2))[:-20])
history("no-newline", 3, 200, summed(COPY.format(1, 2)), summed(COPY.format(2, 2))[:-1])
history("no-sum", 3, 0, "00000000 number=1\n", "\n", "x\n")
history("empty", 0, 0)
SUMS = 128
history("fields", SUMS + 3, 0, COPY.format(5, 3) + "\n", COPY.format(4, 2) + "\n")
history("bounds", SUMS + 3, 0, "number=4294967295\nnumber=4294967296\nnumber=1\tport=65536\n",
        "number=1\tstate=6\nnumber=1\trow=2147483648\nnumber=1\tasked=99999999999999\n")
history("escapes", SUMS + 3, 0, "number=1\tfile=%\nnumber=2\tfile=%4\nnumber=3\tfile=%zz%00\n",
        "number=4\treason=%1b[2J\nnumber=5\tfile=a=b=\n=\n\t\t\n")
history("long", SUMS + 3, 0, "number=1\tfile=" + 300 * "x" + "\nnumber=2\tasker=" + 255 * "y")

# ---- tftp_fuzzer: what is asked for, then datagrams: port, kind and more -----

FETCH, SEND, WITH_OPTIONS = 0, 1, 2
SERVER, SOMEBODY = b"\x00", b"\x07"


def tftp(name, what, *datagrams, size=60):
    write("tftp_fuzzer", name, bytes([what]), bytes([size] if what & SEND else []),
          *datagrams)


def tftp_data(size, ahead=0, fill=b"x"):
    return bytes([(ahead + 2) << 4 | 1, (0, 1, 8, 511, 512, 513, 1428, 1429).index(size)]) + fill


def tftp_options(*words):
    known = ["blksize", "tsize", "8", "512", "1428", "20000", "BLKSIZE", "0"]
    return bytes([len(words) << 4 | 3, *map(known.index, words)])


def tftp_error(code):
    return bytes([code << 4 | 4, 2]) + b"x\x00"


NEXT, ACKNOWLEDGED, SILENCE = b"\x00", b"\x06", b"\x07"
tftp("download", FETCH, SERVER, NEXT, SERVER, NEXT, SERVER, tftp_data(1))
tftp("download-empty", FETCH, SERVER, tftp_data(0))
tftp("download-with-options", FETCH | WITH_OPTIONS, SERVER,
     tftp_options("blksize", "1428", "tsize", "512"), SERVER, tftp_data(512))
tftp("download-of-another-size", FETCH | WITH_OPTIONS, SERVER,
     tftp_options("tsize", "20000"), SERVER, tftp_data(8))
tftp("download-beside-somebody", FETCH, SERVER, NEXT, SOMEBODY, NEXT, SERVER,
     tftp_data(8), SOMEBODY, tftp_data(1))
tftp("download-acknowledged", FETCH, SERVER, ACKNOWLEDGED, SERVER, NEXT, SERVER, ACKNOWLEDGED)
tftp("download-skips", FETCH, SERVER, NEXT, SERVER, tftp_data(512, 1), SERVER, tftp_data(8))
tftp("download-repeats", FETCH, SERVER, NEXT, SERVER, tftp_data(512, -1), SERVER, tftp_data(8))
tftp("download-too-long", FETCH, SERVER, tftp_data(513), SERVER, NEXT, SERVER, tftp_data(1429))
tftp("download-without-end", FETCH, *[SERVER, NEXT] * 45)
tftp("download-small-blocks", FETCH | WITH_OPTIONS, SERVER, tftp_options("blksize", "8"),
     *[SERVER, tftp_data(8)] * 5, SERVER, tftp_data(1))
tftp("upload", SEND, *[SERVER, ACKNOWLEDGED] * 4)
tftp("upload-empty", SEND, SERVER, ACKNOWLEDGED, SERVER, ACKNOWLEDGED, size=0)
tftp("upload-full-blocks", SEND, *[SERVER, ACKNOWLEDGED] * 4, size=64)
tftp("upload-with-options", SEND | WITH_OPTIONS, SERVER, tftp_options("BLKSIZE", "8"),
     *[SERVER, ACKNOWLEDGED] * 5, size=2)
tftp("upload-answered-with-data", SEND, SERVER, tftp_data(0), SERVER, ACKNOWLEDGED,
     SERVER, tftp_data(0))
tftp("upload-beside-somebody", SEND, SERVER, ACKNOWLEDGED, SOMEBODY, ACKNOWLEDGED,
     SERVER, ACKNOWLEDGED, SERVER, ACKNOWLEDGED)
tftp("options-bad", FETCH | WITH_OPTIONS, SERVER, tftp_options("blksize", "0"))
tftp("options-not-asked-for", FETCH, SERVER, tftp_options("blksize", "512"), SERVER, tftp_data(8))
tftp("options-refused", FETCH | WITH_OPTIONS, SERVER, tftp_error(8))
tftp("options-late", FETCH | WITH_OPTIONS, SERVER, SILENCE, SERVER, SILENCE, SERVER,
     tftp_options("blksize", "8"), SERVER, tftp_data(1))
tftp("error-later", FETCH, SERVER, NEXT, SERVER, tftp_error(3))
tftp("short", FETCH, SERVER, b"\x05\x03\x00\x03\x00", SERVER, b"\x05\x00", SERVER, tftp_data(8))
# ---- sftp_fuzzer: what the server says --------------------------------------

OK, EOF, FAILURE = 0, 1, 4


def sftp(name, half, *packets):
    write("sftp_fuzzer", name, bytes([half]),
          *(word(len(packet)) + packet for packet in packets))


def status(number, code):
    return b"\x65" + word(number) + word(code) + word(0) + word(0)


def handle(number):
    return b"\x66" + word(number) + word(1) + b"h"


def data(number, octets, length=None):
    return b"\x67" + word(number) + word(len(octets) if length is None else length) + octets


def told(number, size, mode=0o100644):
    return b"\x69" + word(number) + word(5) + struct.pack(">Q", size) + word(mode)


GREETING = b"\x02" + word(3)
GET, PUT = 0, 1
sftp("get", GET, GREETING, told(0, 5), handle(1), data(2, b"12345"), status(3, EOF), status(4, OK))
sftp("get-in-pieces", GET, GREETING, told(0, 5), handle(1), data(2, b"123"), data(3, b"45"),
     status(4, EOF), status(5, OK))
sftp("get-nothing", GET, GREETING, told(0, 0), handle(1), status(2, EOF), status(3, OK))
sftp("get-without-size", GET, GREETING, status(0, 8), handle(1), data(2, b"12345"),
     status(3, EOF), status(4, OK))
sftp("get-out-of-order", GET, GREETING, told(0, 32770), handle(1), data(3, b"ab"),
     data(2, b"x" * 32768), status(4, EOF), status(5, OK))
sftp("get-short", GET, GREETING, told(0, 5), handle(1), data(2, b"1"), status(3, EOF),
     status(4, EOF), status(5, OK))
sftp("get-long", GET, GREETING, told(0, 5), handle(1), data(2, b"12345"), data(3, b"6"),
     status(4, OK))
sftp("get-hole", GET, GREETING, told(0, 32770), handle(1), data(3, b"ab"), status(2, EOF),
     status(4, EOF), status(5, OK))
sftp("get-endless", GET, GREETING, status(0, 8), handle(1), data(2, b"x" * 32768),
     data(3, b"x" * 300), status(4, EOF), status(5, OK))
sftp("get-large", GET, GREETING, told(0, 1 << 63))
sftp("get-folder", GET, GREETING, told(0, 5, 0o40755))
sftp("get-lying-length", GET, GREETING, told(0, 5), handle(1), data(2, b"1", 5))
sftp("get-not-closed", GET, GREETING, told(0, 1), handle(1), data(2, b"1"), status(3, EOF),
     status(4, FAILURE))
WRITTEN = [status(number, OK) for number in (1, 2, 3, 4)]
sftp("put", PUT, GREETING, handle(0), *WRITTEN, told(5, 70000))
sftp("put-size-unknown", PUT, GREETING, handle(0), *WRITTEN, status(5, 2))
sftp("put-not-all-kept", PUT, GREETING, handle(0), *WRITTEN, told(5, 69999))
sftp("put-out-of-order", PUT, GREETING, handle(0), status(3, OK), status(1, OK), status(2, OK),
     status(4, OK), told(5, 70000))
sftp("put-twice", PUT, GREETING, handle(0), status(1, OK), status(1, OK), status(2, OK))
sftp("put-refused", PUT, GREETING, handle(0), status(1, FAILURE))
sftp("put-not-opened", PUT, GREETING, status(0, 3))
write("sftp_fuzzer", "packet-of-4-GiB", bytes([GET]), word(0xFFFFFFFF))
LOGS = {"host-key": "Host key verification failed.\r\n",
        "login": "u@192.0.2.1: Permission denied (password).\r\n",
        "timeout": "Timeout, server 192.0.2.1 not responding.\r\n",
        "connect": "ssh: connect to host 192.0.2.1 port 22: Connection timed out\r\n",
        "disconnect": "Received disconnect from 192.0.2.1 port 22:2: Too many authentication failures\r\n"}
for name, log in LOGS.items():
    write("sftp_fuzzer", f"log-{name}", bytes([2]), log)
    write("sftp_fuzzer", f"log-{name}-let-in", bytes([3]), log)

# ---- ftp_fuzzer: the size moved, then lines; '>' is in front of what is sent --

def ftp(name, size, *lines):
    write("ftp_fuzzer", name, struct.pack(">H", size), "".join(f"{line}\r\n" for line in lines))


IN = ("220-welcome", " 226 indented", "220 ready", ">USER u", "331 password", ">PASS p",
      "230 in", ">TYPE I", "200 type", ">EPSV", "229 (|||9|)")
GET, PUT, ASK = ">RETR x", ">STOR x", ">SIZE x"
GONE = "226 done"
ftp("download", 21, *IN, ASK, "213 21", GET, "150 go", GONE, ">QUIT", "221 bye")
ftp("download-no-size", 21, *IN, ASK, "502 what", GET, "125 go", "250 done")
ftp("download-torn", 21, *IN, ASK, "213 5000", GET, "150 go", GONE)
ftp("download-451-with-226", 21, *IN, ASK, "213 21", GET, "150 go", "451-a", GONE, "451 b")
ftp("download-150-with-226", 21, *IN, ASK, "213 21", GET, "150-a", "226 fake", "150 go", "426 x")
ftp("download-refused", 0, *IN, ASK, "550 no", GET, "550 no")
ftp("download-no-150", 21, *IN, ASK, "213 21", GET, GONE)
ftp("download-two-150", 21, *IN, GET, "150 a", "150 b", GONE)
ftp("download-two-226", 21, *IN, GET, "150 a", GONE, GONE)
ftp("upload", 21, *IN, PUT, "150 go", GONE, ASK, "213 21")
ftp("upload-no-size", 21, *IN, PUT, "150 go", GONE, ASK, "500 what")
ftp("upload-not-there", 21, *IN, PUT, "150 go", GONE, ASK, "550 no")
ftp("upload-full", 21, *IN, PUT, "150 go", "451-a", "451 error writing")
for text in ("-1", "", " 21", "21 octets", "18446744073709551615", "18446744073709551616", "x"):
    ftp(f"size-{text.replace(' ', '_')}", 21, *IN, ASK, f"213 {text}", GET, "150 go", GONE)
ftp("login-refused", 0, "220 ready", ">USER u", "530 no")
ftp("greeting-120", 0, "120 later", "220 ready")
ftp("not-ftp", 0, "HTTP/1.1 400 Bad Request", "")
ftp("code-999", 0, "999 x")
ftp("no-end", 0, "220-a", "220-b")
ftp("greeting-220-with-230", 0, "220-a", "230 in")
ftp("download-ends-in-451-with-226", 21, *IN, ASK, "213 21", GET, "150 go", "451-a", GONE)
ftp("upload-ends-in-451-with-226", 21, *IN, PUT, "150 go", "451-a", "226 b", ASK, "213 21")
