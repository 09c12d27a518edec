"""Copies with TFTP servers that misbehave: see tests/hostile/tftp_acts.py."""

import concurrent.futures
import contextlib

import pytest

from harness import Trial
from snmp import NO_MEMORY, download, upload
from tftp import (ACKNOWLEDGE, DATA, READ, WRITE, TftpDouble, ack, error,
                  options)
from tftp_acts import (DOWNLOADS, LARGE, LARGE_CONTENT, SAFE_BLOCK, UPLOADS,
                       Act, asked, loses_from_the_second, serve)

HOSTILE = "127.0.0.4"
# Eight blocks of 512 octets.
RUNNING = b"hostname one\n" + b"".join(b"vlan %d\n" % number
                                       for number in range(2, 450))
FETCHED = RUNNING.replace(b"hostname one", b"hostname two")
AGENTS = 4
# A copy that is not successful has to end by then on a busy machine, too.
SECONDS = 30


@pytest.fixture
def make_trial(make_agent, make_double):
    def make(running=RUNNING, **settings):
        agent = make_agent(**{"tftp_packet_seconds": 2, "tftp_total_seconds": 5,
                              "download_octets": 100_000, **settings})
        double = make_double(agent)

        def arrived():
            assert double.files.pop("good.cfg") == running
        return Trial(agent,
                     lambda index: upload(index, "good.cfg", double.address),
                     arrived, running)
    return make


def opcodes(heard):
    return {packet[1] for packet in heard}


def try_download(trial, act):
    def columns(index):
        return download(index, "down.cfg", HOSTILE)
    with hostile_server(trial, act) as server:
        outcome = trial.fails(columns, *act.ends, seconds=SECONDS) \
            if act.ends else trial.succeeds(columns, running=FETCHED)
    # Whatever the server takes it for, nothing is sent to it.
    assert not opcodes(server.heard) & {WRITE, DATA}
    return f"TFTP download: server {act.words}", outcome, trial.why


def try_upload(trial, act):
    def columns(index):
        return upload(index, "up.cfg", HOSTILE)
    with hostile_server(trial, act) as server:
        outcome = trial.fails(columns, *act.ends, seconds=SECONDS) \
            if act.ends else trial.succeeds(columns)
    assert server.files == ({} if act.ends else {"up.cfg": trial.running})
    assert not opcodes(server.heard) & {READ, ACKNOWLEDGE}
    return f"TFTP upload: server {act.words}", outcome, trial.why


@contextlib.contextmanager
def hostile_server(trial, act):
    print(act.words)
    server = TftpDouble(HOSTILE, trial.agent.tftp_port, act.act)
    try:
        yield server
    finally:
        server.close()
    assert server.heard


def try_some(trial, acts, try_out):
    rows = []
    for act in acts:
        try:
            rows.append(try_out(trial, act))
        except AssertionError as failure:
            raise AssertionError(act.words) from failure
    return rows + [("the agent of those before", trial.goes_on(), ())]


def try_side_by_side(trials, acts, try_out):
    with concurrent.futures.ThreadPoolExecutor(AGENTS) as pool:
        done = [pool.submit(try_some, trial, acts[number::AGENTS], try_out)
                for number, trial in enumerate(trials)]
    return [row for each in done for row in each.result()]


@pytest.mark.parametrize("acts, try_out", [
    (DOWNLOADS, try_download), (UPLOADS, try_upload)],
    ids=["download", "upload"])
def test_hostile_servers(make_trial, fault, acts, try_out):
    """Most of the time goes by in waiting: four agents do it side by side."""
    trials = [make_trial() for _ in range(AGENTS)]
    for row in try_side_by_side(trials, acts, try_out):
        fault("Hostile servers", *row)


@pytest.mark.parametrize("try_out, running", [
    (try_download, RUNNING), (try_upload, LARGE_CONTENT)],
    ids=["download", "upload"])
def test_large_blocks(make_trial, fault, try_out, running):
    """The client waits six seconds and says everything again after 1.5."""
    trials = [make_trial(running, tftp_packet_seconds=6, tftp_total_seconds=20,
                         download_octets=1_000_000) for _ in range(AGENTS)]
    for row in try_side_by_side(trials, LARGE, try_out):
        fault("Hostile servers", *row)


def test_shorter_file_after_large_blocks_were_lost(make_trial, fault):
    """Nothing of what had come before is left in it."""
    trial = make_trial(tftp_packet_seconds=6, tftp_total_seconds=20,
                       download_octets=1_000_000)

    def act(talk):
        if asked(talk) > SAFE_BLOCK:
            loses_from_the_second(talk)
        else:
            serve(talk, SAFE_BLOCK, b"hostname two\n")
    fault("Hostile servers", *try_download(trial, Act(
        "loses large blocks, then has a shorter file", act, ())))


def test_file_for_which_there_is_no_room(mount_small, make_agent, make_double,
                                         fault):
    """Nothing of it is fetched: its size is told before."""
    agent = make_agent(prepare=lambda agent: mount_small(agent.staging))
    double = make_double(agent)
    trial = Trial(agent, lambda index: upload(index, "x.cfg", double.address),
                  lambda: double.files.pop("x.cfg"))
    act = Act("tells a size for which there is no room",
              lambda talk: talk.say(options("tsize", 80_000)), (NO_MEMORY,))
    with hostile_server(trial, act) as server:
        outcome = trial.fails(lambda index: download(index, "x.cfg", HOSTILE),
                              NO_MEMORY)
    assert server.heard[-1].startswith(error(3, b""))
    assert not any(packet.startswith(ack(0)) for packet in server.heard)
    fault("Disk", "no room for the file that a TFTP server tells of",
          f"{outcome}; {trial.goes_on()}")


def test_there_are_enough():
    assert min(len(DOWNLOADS), len(UPLOADS)) >= 40
