"""What misbehaving TFTP servers do, and what has to come of it: the causes of
which one has to be told, none where the copy has to be a success.

A client that has not had a valid first answer goes on waiting for one, since
anybody can have sent the others: that ends as a timeout.
"""

import collections

from snmp import BAD_FILE_NAME, NO_CONFIG, NO_MEMORY, TIMEOUT, UNKNOWN
from tftp import BLOCK, READ, ack, data, error, options

# What downloads bring: seven blocks of 512 octets, the last one not full.
CONTENT = b"hostname two\n" + b"! nothing but filling\n" * 150
FORGED = b"hostname forged\n"
OTHER_ADDRESS = "127.0.0.5"
# With it a transfer has hundreds of blocks.
SMALL = 8


Act = collections.namedtuple("Act", "words act ends")
DOWNLOADS, UPLOADS = [], []


def keeper(acts, words, ends):
    """A decorator that adds an act to a list."""
    def keep(function):
        acts.append(Act(words, function, ends))
        return function
    return keep


def download(words, *ends):
    return keeper(DOWNLOADS, words, ends)


def upload(words, *ends):
    return keeper(UPLOADS, words, ends)


def both(words, *ends):
    """What is the same for a server that gives and one that takes."""
    def keep(function):
        return download(words, *ends)(upload(words, *ends)(function))
    return keep


def sends(words, packet, *ends):
    """A server that answers the request with this packet and then nothing."""
    both(words, *ends)(lambda talk: talk.say(packet))


def twice(_, packet):
    return [packet, packet]


def before(*others):
    """Sends these before each packet."""
    return lambda _, packet: [*others, packet]


def asked(talk):
    """The block that the request asks for; 0 if it has no options."""
    words = talk.server.heard[-1].split(b"\0")
    return int(words[words.index(b"blksize") + 1]) \
        if b"blksize" in words else 0


# ---- The first answer --------------------------------------------------------

sends("sends nothing but an opcode", b"\0\3", TIMEOUT)
sends("answers with a request to read", b"\0\1x\0octet\0", TIMEOUT)
sends("answers with a request to write", b"\0\2x\0octet\0", TIMEOUT)
sends("answers with opcode 0", b"\0\0\0\1", TIMEOUT)
sends("answers with opcode 65535", b"\xff\xff\0\1", TIMEOUT)
sends("answers with block 2", data(2, b"x"), TIMEOUT)
sends("answers with an acknowledgement of block 1", ack(1), TIMEOUT)
sends("takes a block size of 65465", options("blksize", 65465), UNKNOWN)
sends("takes a block size of 0", options("blksize", 0), UNKNOWN)
sends("takes a negative block size", options("blksize", -512), UNKNOWN)
sends("takes a block size that is no number", options("blksize", "all"),
      UNKNOWN)
sends("takes a block size without a value", options("blksize", ""), UNKNOWN)
sends("takes an option without its NUL", options("blksize", 512)[:-1], UNKNOWN)
sends("takes an option that nobody asked for", options("windowsize", 64),
      UNKNOWN)
sends("takes an option of 60 KiB", options("x" * 61440, 1), UNKNOWN)
sends("tells an error without text and NUL", error(1, b""), BAD_FILE_NAME)
sends("tells an error with 64 KiB of text", error(2, b"x" * 65000),
      BAD_FILE_NAME)
sends("tells an error with control characters",
      error(3, b"\x1b[2J\r\n\x07\xff%s%n\0"), NO_MEMORY)
sends("tells an error that there is not", error(65535), UNKNOWN)
sends("tells an error and its NUL is missing", error(6, b"x"), UNKNOWN)


@both("is silent", TIMEOUT)
def silent(_):
    pass


@both("answers from another address only", TIMEOUT)
def another_address(talk):
    talk.say_elsewhere(data(1, FORGED), ack(0), error(1),
                       address=OTHER_ADDRESS)


@both("refuses options, then takes them", TIMEOUT)
def refuses_and_takes(talk):
    if asked(talk):
        talk.say(error(8))
    else:
        talk.say(options("blksize", 1024))


# ---- Downloads ---------------------------------------------------------------

@download("takes the download for an upload", TIMEOUT)
def acknowledges_a_read(talk):
    talk.say(ack(0))


@download("takes the download for an upload after the options", UNKNOWN)
def acknowledges_after_options(talk):
    talk.say(options("blksize", 512))
    talk.wait_for(ack(0))
    talk.say(ack(0))


@download("takes the download for an upload in the middle", UNKNOWN)
def acknowledges_in_the_middle(talk):
    talk.give(CONTENT, around=lambda block, packet:
              [ack(2)] if block == 3 else [packet])


@download("goes on with block 2 after the options", TIMEOUT)
def begins_with_block_2(talk):
    talk.say(options("blksize", 512))
    talk.wait_for(ack(0))
    talk.say(data(2, FORGED))


@download("leaves out a block", TIMEOUT)
def leaves_out(talk):
    talk.give(CONTENT, around=lambda block, packet:
              [] if block == 3 else [packet])


@download("leaves out a block and sends the next one", TIMEOUT)
def skips(talk):
    talk.give(CONTENT, around=lambda block, packet:
              [data(4, FORGED)] if block == 3 else [packet])


@download("begins again with block 0 too early", TIMEOUT)
def wraps_early(talk):
    talk.give(CONTENT, around=lambda block, packet:
              [data(0, FORGED)] if block == 3 else [packet])


@download("sends a first block that is too long", TIMEOUT)
def first_too_long(talk):
    talk.say(data(1, b"hostname two\n" * 50))


@download("sends a later block that is too long", UNKNOWN)
def later_too_long(talk):
    talk.give(CONTENT, around=lambda block, packet:
              [packet + b"x"] if block == 2 else [packet])


@download("sends a block that is longer than it took", UNKNOWN)
def longer_than_taken(talk):
    talk.say(options("blksize", SMALL))
    talk.wait_for(ack(0))
    talk.say(data(1, CONTENT[:SMALL + 1]))


@download("tells a size that is too small", UNKNOWN)
def more_than_told(talk):
    talk.say(options("tsize", len(CONTENT) - 1))
    talk.wait_for(ack(0))
    talk.give(CONTENT)


@download("tells a size that is too large", UNKNOWN)
def less_than_told(talk):
    talk.say(options("tsize", len(CONTENT) + 1))
    talk.wait_for(ack(0))
    talk.give(CONTENT)


@download("tells a negative size", UNKNOWN)
def negative_size(talk):
    talk.say(options("tsize", -1))


@download("tells a size of 2^64", NO_MEMORY)
def size_beyond_numbers(talk):
    talk.say(options("tsize", 1 << 64))


@download("tells a size above the limit", NO_MEMORY)
def size_above_the_limit(talk):
    talk.say(options("tsize", 100_001))


@download("tells no size and has a file that never ends", NO_MEMORY)
def endless(talk):
    talk.give(CONTENT * 1000)


@download("gives a file without end, slowly", TIMEOUT)
def endless_and_slow(talk):
    def slowly(_, packet):
        talk.pause(0.3)
        return [packet]
    talk.say(options("blksize", SMALL))
    talk.wait_for(ack(0))
    talk.give(CONTENT, SMALL, around=slowly)


@download("takes the options and is silent then", TIMEOUT)
def silent_after_options(talk):
    talk.say(options("blksize", 512, "tsize", len(CONTENT)))


@download("is silent after the first block", TIMEOUT)
def silent_after_a_block(talk):
    talk.say(data(1, CONTENT[:BLOCK]))


@download("ends with a full block", TIMEOUT)
def ends_with_a_full_block(talk):
    talk.give(CONTENT[:2 * BLOCK], around=lambda block, packet:
              [] if block == 3 else [packet])


@download("repeats a block for ever", TIMEOUT)
def repeats_for_ever(talk):
    while talk.goes_on():
        talk.say(data(1, CONTENT[:BLOCK]))
        talk.pause(0.2)


@download("repeats its options for ever", TIMEOUT)
def options_for_ever(talk):
    while talk.goes_on():
        talk.say(options("blksize", 512))
        talk.pause(0.2)


@download("goes on from another port", TIMEOUT)
def goes_on_elsewhere(talk):
    talk.say(data(1, CONTENT[:BLOCK]))
    talk.wait_for(ack(1))
    while talk.goes_on():
        talk.say_elsewhere(data(2, FORGED))
        talk.pause(0.2)


@download("sends an opcode that there is not, in the middle", UNKNOWN)
def bad_opcode_in_the_middle(talk):
    talk.give(CONTENT, around=lambda block, packet:
              [b"\0\7\0\3"] if block == 3 else [packet])


@download("tells that its disk is full, in the middle", NO_MEMORY)
def error_in_the_middle(talk):
    talk.give(CONTENT, around=lambda block, packet:
              [error(3)] if block == 3 else [packet])


@download("has an empty file", NO_CONFIG)
def empty(talk):
    talk.say(data(1))


@download("has an empty file and tells so", NO_CONFIG)
def empty_with_options(talk):
    talk.say(options("tsize", 0, "blksize", 1428))
    talk.wait_for(ack(0))
    talk.say(data(1))


@download("sends each block twice")
def every_block_twice(talk):
    talk.give(CONTENT, around=twice)


@download("sends the block before with each block")
def block_before_again(talk):
    talk.give(CONTENT, around=lambda block, packet:
              [data(block - 1, FORGED), packet])


@download("sends block 2 before each block")
def block_ahead(talk):
    talk.say(options("blksize", 1428))
    talk.wait_for(ack(0))
    talk.say(data(2, FORGED), data(0, FORGED))
    talk.give(CONTENT, 1428)


@download("cuts off packets after 0 to 3 octets")
def cuts_off(talk):
    talk.give(CONTENT, around=before(b"", b"\0", b"\0\3", b"\0\3\0"))


@download("has another port beside it that answers too")
def other_port_beside(talk):
    def around(block, packet):
        talk.say_elsewhere(data(block + 1, FORGED), error(1))
        return [packet]
    talk.say(options("blksize", 512))
    talk.wait_for(ack(0))
    talk.give(CONTENT, around=around)


@download("has another address beside it that answers too")
def other_address_beside(talk):
    def around(block, packet):
        talk.say_elsewhere(data(block, FORGED), error(1), ack(0),
                           options("blksize", SMALL), address=OTHER_ADDRESS)
        return [packet]
    talk.give(CONTENT, around=around)


@download("tells its options again with each block")
def options_again(talk):
    talk.say(*twice(0, options("blksize", 512)))
    talk.wait_for(ack(0))
    talk.give(CONTENT, around=before(options("blksize", SMALL)))


@download("takes its options in other letters and another order")
def options_in_capitals(talk):
    talk.say(options("TSIZE", len(CONTENT), "BlkSize", SMALL))
    talk.wait_for(ack(0))
    talk.give(CONTENT, SMALL)


@download("tells an error behind the last block")
def error_at_the_end(talk):
    talk.give(CONTENT)
    talk.say(error(3), data(8, FORGED))


@download("repeats its last block for ever")
def repeats_the_last(talk):
    talk.give(CONTENT)
    while talk.goes_on():
        talk.say(data(7, CONTENT[6 * BLOCK:]))
        talk.pause(0.2)


# ---- Uploads -----------------------------------------------------------------

@upload("takes the upload for a download", TIMEOUT)
def gives_to_a_write(talk):
    talk.say(data(1, FORGED))


@upload("takes the upload for a download of an empty file", TIMEOUT)
def gives_nothing_to_a_write(talk):
    talk.say(data(1))


@upload("takes the upload for a download after the options", UNKNOWN)
def gives_after_options(talk):
    talk.say(options("blksize", 512))
    talk.wait_for(data(1))
    talk.say(data(1, FORGED))


@upload("takes the upload for a download in the middle", UNKNOWN)
def gives_in_the_middle(talk):
    talk.take(ack(0), around=lambda block, packet:
              [data(1)] if block == 3 else [packet])


@upload("acknowledges what has not been sent", TIMEOUT)
def acknowledges_ahead(talk):
    talk.say(ack(0))
    talk.wait_for(data(1))
    talk.say(*(ack(block) for block in range(2, 20)))


@upload("acknowledges block 65535", TIMEOUT)
def acknowledges_the_last_number(talk):
    talk.take(ack(0), around=lambda block, packet:
              [ack(-1)] if block == 3 else [packet])


@upload("acknowledges block 0 for ever", TIMEOUT)
def acknowledges_0_for_ever(talk):
    while talk.goes_on():
        talk.say(ack(0))
        talk.pause(0.2)


@upload("repeats an acknowledgement for ever", TIMEOUT)
def repeats_an_acknowledgement(talk):
    talk.take(ack(0), blocks=3)
    while talk.goes_on():
        talk.say(ack(3))
        talk.pause(0.2)


@upload("takes a file slowly", TIMEOUT)
def takes_slowly(talk):
    def slowly(_, packet):
        talk.pause(0.3)
        return [packet]
    talk.take(options("blksize", SMALL), SMALL, around=slowly)


@upload("takes the options and is silent then", TIMEOUT)
def silent_after_taking_options(talk):
    talk.say(options("blksize", 512))


@upload("is silent in the middle", TIMEOUT)
def silent_in_the_middle(talk):
    talk.take(ack(0), around=lambda block, packet:
              [] if block == 3 else [packet])


@upload("never acknowledges the last block", TIMEOUT)
def never_the_last(talk):
    def around(block, packet):
        name = talk.server.requests[-1]
        return [] if talk.server.files.pop(name, None) else [packet]
    talk.take(ack(0), around=around)


@upload("goes on from another port", TIMEOUT)
def takes_elsewhere(talk):
    talk.say(ack(0))
    while talk.goes_on():
        talk.say_elsewhere(*(ack(block) for block in range(1, 9)))
        talk.pause(0.2)


@upload("sends an opcode that there is not, in the middle", UNKNOWN)
def bad_opcode_while_taking(talk):
    talk.take(ack(0), around=lambda block, packet:
              [b"\0\7\0\3"] if block == 3 else [packet])


@upload("tells that its disk is full, in the middle", NO_MEMORY)
def full_while_taking(talk):
    talk.take(ack(0), around=lambda block, packet:
              [error(3)] if block == 3 else [packet])


@upload("tells that its disk is full, at the last block", NO_MEMORY)
def full_at_the_end(talk):
    def around(block, packet):
        name = talk.server.requests[-1]
        return [error(3)] if talk.server.files.pop(name, None) else [packet]
    talk.take(ack(0), around=around)


@upload("sends each acknowledgement twice")
def every_acknowledgement_twice(talk):
    talk.take(ack(0), around=twice)


@upload("acknowledges earlier and later blocks, too")
def other_acknowledgements(talk):
    talk.take(ack(0), around=lambda block, packet:
              [packet, ack(block - 1), ack(block + 3)])


@upload("cuts off packets after 0 to 3 octets")
def cuts_off_acknowledgements(talk):
    talk.take(ack(0), around=before(b"", b"\0", b"\0\4", b"\0\4\0"))


@upload("has another port beside it that answers too")
def other_port_beside_taker(talk):
    def around(block, packet):
        talk.say_elsewhere(ack(block + 1), error(1))
        return [packet]
    talk.say(ack(0))
    talk.take(ack(0), around=around)


@upload("has another address beside it that answers too")
def other_address_beside_taker(talk):
    def around(block, packet):
        talk.say_elsewhere(error(1), ack(block), data(1),
                           options("blksize", SMALL), address=OTHER_ADDRESS)
        return [packet]
    talk.take(ack(0), around=around)


@upload("tells its options again with each acknowledgement")
def options_again_to_taker(talk):
    talk.take(options("blksize", 512),
              around=before(options("blksize", 512)))


@upload("takes blocks of 8 octets and tells another size")
def smallest_blocks(talk):
    talk.take(options("tsize", 5, "blksize", SMALL), SMALL)


@upload("tells an error behind the last acknowledgement")
def error_after_taking(talk):
    talk.take(ack(0))
    talk.say(error(3))


# ---- Large blocks ------------------------------------------------------------
# A client that loses them begins again with smaller ones. These are tried with
# more patience, and with files of more than one large block. Each serves both
# directions.

LARGE_BLOCK, SAFE_BLOCK = 65464, 1428
LARGE_CONTENT = CONTENT + b"! nothing but filling\n" * 9000
LARGE = []


def large(words, *ends):
    return keeper(LARGE, words, ends)


def serve(talk, size, content=LARGE_CONTENT, around=None):
    """Serves the request as it should be, with blocks of that size; 0 is
    without options."""
    size = size or BLOCK
    begin = options("blksize", size) if size != BLOCK else ack(0)
    if not talk.server.heard[-1].startswith(bytes([0, READ])):
        talk.take(begin, size, around=around)
        return
    if size != BLOCK:
        talk.say(begin)
        talk.wait_for(ack(0))
    talk.give(content, size, around=around)


def nothing_from(block):
    return lambda number, packet: [] if number >= block else [packet]


@large("takes large blocks")
def takes_large(talk):
    assert asked(talk) == LARGE_BLOCK
    serve(talk, LARGE_BLOCK)


@large("takes blocks of 1000 octets where 65464 were asked for")
def takes_less(talk):
    serve(talk, 1000)


@large("loses all large blocks")
def loses_all(talk):
    serve(talk, asked(talk), around=nothing_from(
        1 if asked(talk) > SAFE_BLOCK else 1 << 16))


@large("loses large blocks from the second one on")
def loses_from_the_second(talk):
    serve(talk, asked(talk), around=nothing_from(
        2 if asked(talk) > SAFE_BLOCK else 1 << 16))


@large("loses large blocks, then all others", TIMEOUT)
def loses_everything(talk):
    serve(talk, asked(talk), around=nothing_from(2))


@large("loses large blocks, then has no such file", BAD_FILE_NAME)
def loses_the_file(talk):
    if asked(talk) > SAFE_BLOCK:
        loses_from_the_second(talk)
    else:
        talk.say(error(1))


@large("refuses blocks above 1428 octets")
def refuses_large(talk):
    if asked(talk) > SAFE_BLOCK:
        talk.say(error(8))
    else:
        serve(talk, asked(talk))


@large("refuses options")
def refuses_options(talk):
    if asked(talk):
        talk.say(error(8))
    else:
        serve(talk, BLOCK)


@large("does not answer who asks for more than 1428 octets")
def answers_small(talk):
    talk.wants_repeats = asked(talk) > SAFE_BLOCK
    if not talk.wants_repeats:
        serve(talk, asked(talk))


@large("does not answer who asks for options")
def answers_plain(talk):
    talk.wants_repeats = asked(talk) > 0
    if not talk.wants_repeats:
        serve(talk, BLOCK)


@large("takes large blocks when less is asked for already")
def takes_large_late(talk):
    talk.pause(2)
    serve(talk, LARGE_BLOCK)
