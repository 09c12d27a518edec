"""Copies by TFTP while somebody else answers in the place of the server, who is
late: the forgers have all the time they need. See tests/hostile/forger.py.

test_copies.py also runs beside each of them.
"""

import pytest

from forger import Forger, own_network
from harness import Trial
from snmp import NETWORK, RUNNING, TIMEOUT, download, row, upload
from tftp import TftpDouble
from tools import ipv6_loopback, wait_for

KINDS = {"local": "user without rights who reads the client's port",
         "blind": "neighbour who tries every port"}
BEFORE = b"hostname one\nvlan 7\n"
FETCHED = b"hostname two\nvlan 7\n"


@pytest.fixture(scope="module", autouse=True)
def network():
    why = own_network()
    if why:
        pytest.skip(why)


@pytest.fixture(params=KINDS)
def forger(request, tmp_path):
    made = Forger(request.param, tmp_path)
    yield made
    made.stop()
    print(f"--- {made.name}\n{made.log[-200:]}")


class LateServer(TftpDouble):
    """Answers a request when the forger has sent more, twice."""

    def __init__(self, forger, address, port):
        self.forger = forger
        super().__init__(address, port)

    def _answer(self, kind, name, client):
        for _ in range(2):
            self.forger.goes_on()
        super()._answer(kind, name, client)


@pytest.fixture
def late(make_agent, forger):
    """A trial whose server is late, and that server."""
    agent = make_agent(tftp_packet_seconds=6, tftp_total_seconds=30)
    server = LateServer(forger, "127.0.0.3", agent.tftp_port)
    yield Trial(agent, lambda index: upload(index, "good.cfg", server.address),
                lambda: server.files.pop("good.cfg"), BEFORE), server
    server.close()


def test_forged_answers_to_a_download(late, forger, fault):
    trial, server = late
    server.files["down.cfg"] = b"hostname two\n" + b"! filling\n" * 200
    outcome = trial.succeeds(
        lambda index: download(index, "down.cfg", server.address),
        running=FETCHED)
    fault("Somebody on the switch or the network",
          f"{KINDS[forger.kind]} forges answers to a TFTP download",
          f"{outcome}, with the server's file")


def test_forged_answers_to_an_upload(late, forger, fault):
    trial, server = late
    outcome = trial.succeeds(
        lambda index: upload(index, "up.cfg", server.address))
    assert server.files["up.cfg"] == BEFORE
    fault("Somebody on the switch or the network",
          f"{KINDS[forger.kind]} forges answers to a TFTP upload",
          f"{outcome}, the configuration goes to the server alone")


@pytest.mark.skipif(not ipv6_loopback(), reason="no IPv6 loopback address")
@pytest.mark.parametrize("copy", ["download", "upload"])
def test_forged_answers_over_ipv6(late, forger, make_tftp_v6, copy):
    trial, _ = late
    server = make_tftp_v6(forger, trial.agent.tftp_port)
    server.files["x.cfg"] = b"hostname two\n"
    network, running = (NETWORK, RUNNING) if copy == "download" else \
        (RUNNING, NETWORK)
    trial.succeeds(lambda index: row(
        index, xfCopySourceFileType=network, xfCopyDestFileType=running,
        xfCopyServerAddressType=2, xfCopyServerAddressRev1="00" * 15 + "01",
        xfCopyFileName="x.cfg"),
        running=FETCHED if copy == "download" else None)
    assert server.files["x.cfg"] == (
        b"hostname two\n" if copy == "download" else BEFORE)


@pytest.fixture
def make_tftp_v6():
    servers = []

    def make(forger, port):
        servers.append(LateServer(forger, "::1", port))
        return servers[-1]
    yield make
    for server in servers:
        server.close()


@pytest.mark.parametrize("direction", [upload, download])
def test_forged_answers_for_a_server_that_is_silent(late, forger, fault,
                                                    direction):
    trial, server = late
    server.silent = True
    trial.fails(lambda index: direction(index, "x.cfg", server.address),
                TIMEOUT)
    assert wait_for(lambda: server.requests, "the request")
    server.silent = False
    outcome = trial.goes_on()
    fault("Somebody on the switch or the network",
          f"{KINDS[forger.kind]} forges answers of a TFTP server that is "
          f"silent, {direction.__name__}", f"row failed, timeout; {outcome}")
