"""A thousand copies through one agent."""

import pytest

import lab
from snmp import COMPLETION, DESTROY, TRUE, go, row, upload
from tools import wait_for

COPIES = 1000
SETTLED = 100
# The allocator's own play; one leaked row would be 1 KiB a copy.
PLAY_KIB = 128


@pytest.fixture
def agent(make_agent, trap_receiver):
    # By itself the agent keeps its last thousand notifications and copies in
    # memory.
    return make_agent("doNotRetainNotificationLogs yes\n"
                      f"trap2sink 127.0.0.1:{trap_receiver.port} public\n",
                      history_rows=SETTLED // 2)


def test_thousand_copies(agent, station, tftp_server, trap_receiver):
    running = agent.running_config(b"hostname one\nvlan 10\n")
    memory, files = {}, {}
    for index in range(1, COPIES + 1):
        station.set(row(index - 1, xfCopyEntryRowStatus=DESTROY) +
                    go(upload(index, "up.cfg",
                              xfCopyNotificationOnCompletion=TRUE)))
        agent.succeeds(index)
        agent.idle()
        assert tftp_server.content("up.cfg") == running
        (tftp_server.files / "up.cfg").unlink()
        if index % SETTLED == 0:
            memory[index] = agent.resident_kib()
            files[index] = agent.open_files()
    print(f"resident KiB {memory}, open files {files}")
    assert station.rows() == [COPIES]
    assert set(files.values()) == {files[SETTLED]}
    if not lab.SANITIZED:  # which keeps what is freed
        assert memory[COPIES] <= memory[SETTLED] + PLAY_KIB
    wait_for(lambda: trap_receiver.log.count(COMPLETION + ".") >= COPIES,
             "the last notification")
