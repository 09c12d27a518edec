"""Fixtures. Each test has an agent of its own, with an empty table."""

import shutil

import pytest

import lab
import manager
import tftp_double
from saves import RUNNING_TEXT


def pytest_sessionfinish(session, exitstatus):
    """Only what a failure left is worth keeping; some files are large."""
    folder = session.config.option.basetemp
    if exitstatus == 0 and folder:
        shutil.rmtree(folder, ignore_errors=True)


@pytest.fixture
def make_agent(tmp_path):
    """Makes agents. Those of a test that passed leave nothing behind."""
    agents = []

    def make(*arguments, **settings):
        folder = tmp_path / f"agent-{len(agents)}"
        folder.mkdir()
        agents.append(lab.Agent(folder, *arguments, **settings))
        return agents[-1].start()
    yield make
    for agent in agents:
        agent.close()


@pytest.fixture
def agent(make_agent):
    return make_agent()


@pytest.fixture
def station(agent):
    return agent.station


@pytest.fixture
def make_tftp_server(tmp_path, agent):
    servers = []

    def make(*arguments, **named):
        folder = tmp_path / f"tftp-{len(servers)}"
        folder.mkdir()
        servers.append(lab.TftpServer(folder, agent, *arguments, **named))
        return servers[-1]
    yield make
    for server in servers:
        server.stop()
        print(f"--- {server.name}\n{server.log}")


@pytest.fixture
def tftp_server(make_tftp_server):
    return make_tftp_server()


@pytest.fixture
def double(agent):
    """A TFTP server that does as it is told, on an address of its own."""
    server = tftp_double.TftpDouble("127.0.0.3", agent.tftp_port)
    yield server
    server.close()


@pytest.fixture
def trap_receiver(tmp_path):
    folder = tmp_path / "traps"
    folder.mkdir()
    receiver = lab.TrapReceiver(folder)
    yield receiver
    receiver.stop()
    print(f"--- snmptrapd\n{receiver.log}")


@pytest.fixture
def with_manager(tmp_path):
    """Makes an agent and its procd, with the same settings."""
    agents = []

    def make(*arguments, start=True, **settings):
        folder = tmp_path / f"agent-{len(agents)}"
        folder.mkdir()
        agent = manager.SavingAgent(folder, *arguments, **settings)
        agents.append(agent)
        agent.start().running_config(RUNNING_TEXT)
        if start:
            agent.manager.start()
        return agent
    yield make
    for agent in agents:
        agent.manager.close()
        agent.close()


@pytest.fixture
def fabric(tmp_path):
    folder = tmp_path / "fabric"
    folder.mkdir()
    made = manager.Fabric(folder)
    yield made
    made.close()
