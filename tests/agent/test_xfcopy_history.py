"""xfcopy history: a long one, networks that do not carry it, agents that lie."""

import pytest

import history
from command import DONE, NO_ANSWER, Relay, Xfcopy
from quick import GET_NEXT, RESPONSE, encode_name, read_tlv, tlv

NUMBERS = [*range(1, 41), *range(55, 1001)]
QUICK = ["-v2c", "-c", "private", "-t", "0.5", "-r", "1"]


@pytest.fixture
def agent(make_agent):
    return make_agent(prepare=lambda each: history.fill(each, NUMBERS))


def asks(agent, folder, *words, who=QUICK, request=None, answer=None):
    """The command's result, and how many requests it has sent."""
    with Relay(agent.port, request, answer) as relay:
        command = Xfcopy(folder, agent, who, relay.peer)
        result = command.run("history", "@", *words)
    return result, relay.seen["request"]


def numbers(result):
    assert result.status == DONE, result
    return [each["number"] for each in result.events[:-1]]


def test_long_history(agent, tmp_path):
    """Some copies with each request, on every version, over every gap."""
    result, requests = asks(agent, tmp_path, "--json")
    assert numbers(result) == NUMBERS
    assert requests < len(NUMBERS) / 4
    version_1 = ["-v1", *QUICK[1:]]
    result, _ = asks(agent, tmp_path, "--json", "--last=980", who=version_1)
    assert numbers(result) == NUMBERS[20:]
    result, requests = asks(agent, tmp_path, "--last", 3, "--json")
    assert numbers(result) == [998, 999, 1000]
    assert requests == 3
    result, _ = asks(agent, tmp_path, "--last=1000000", "--quiet")
    title, *lines = result.out.splitlines()
    assert [int(line.split()[0]) for line in lines] == NUMBERS
    assert title.split()[0] == "COPY" and lines[0].index("sw1.cfg") == \
        lines[9].index("sw1.cfg")


def test_network_that_carries_no_large_packets(agent, tmp_path):
    def small_only(relay, message):
        return [(0, message)] if len(message) < 1400 else []
    result, _ = asks(agent, tmp_path, "--last=25", "--json",
                     request=small_only, answer=small_only)
    assert numbers(result) == NUMBERS[-25:]


def test_what_has_come_is_printed(agent, tmp_path):
    def deaf(relay, message):
        return [(0, message)] if relay.seen["request"] < 20 else []
    result, _ = asks(agent, tmp_path, answer=deaf)
    assert result.status == NO_ANSWER, result
    assert len(result.out.splitlines()) > 50
    assert "the agent does not answer" in result.err


def response(request, oid):
    """An answer to a request: that name, and a number."""
    _, inside, _ = read_tlv(request)
    _, version, rest = read_tlv(inside)
    _, community, rest = read_tlv(rest)
    _, pdu, _ = read_tlv(rest)
    _, number, _ = read_tlv(pdu)
    zero = tlv(2, b"\0")
    varbind = tlv(0x30, tlv(6, encode_name(oid)) + tlv(2, b"\3"))
    return tlv(0x30, tlv(2, version) + tlv(4, community) + tlv(
        RESPONSE, tlv(2, number) + zero + zero + tlv(0x30, varbind)))


@pytest.mark.parametrize("step", [1000, 0])
def test_history_that_never_ends(make_agent, tmp_path, step):
    """Each copy is followed by one that is not there, or by itself."""
    agent = make_agent(prepare=lambda each: history.fill(each, [2**32 - 1]))
    named = [7]

    def endless(relay, message):
        if relay.kind != GET_NEXT:
            return [(0, message)]
        named[0] += step
        relay.to_client(response(message, f"{history.ENTRY}.16.{named[0]}"))
        return []
    result, _ = asks(agent, tmp_path, request=endless)
    assert result.status == NO_ANSWER and result.out == "", result
    assert "its answers make no sense" in result.err
