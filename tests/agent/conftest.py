"""Fixtures. Each test has an agent of its own, with an empty table."""

import os
import pathlib
import shutil
import subprocess
import sys

import pytest

# The servers that misbehave.
sys.path.append(str(pathlib.Path(__file__).parent.parent / "hostile"))
pytest.register_assert_rewrite("harness")

import forger
import lab
import manager
import tftp
from recorder import fault, pytest_runtest_makereport  # noqa: F401
from saves import RUNNING_TEXT


def pytest_sessionfinish(session, exitstatus):
    """Only what a failure left is worth keeping; some files are large."""
    folder = session.config.option.basetemp
    if exitstatus == 0 and folder:
        shutil.rmtree(folder, ignore_errors=True)


@pytest.fixture(scope="session", autouse=True)
def beside_forger(tmp_path_factory):
    """With XF_TEST_FORGER all tests run in a network of their own, beside such
    a forger."""
    kind = os.environ.get("XF_TEST_FORGER")
    if not kind:
        yield
        return
    why = forger.own_network()
    if why:
        pytest.skip(why)
    beside = forger.Forger(kind, tmp_path_factory.mktemp("forger"))
    yield
    beside.goes_on()
    beside.stop()


@pytest.fixture
def make_agent(tmp_path):
    """Makes agents. Those of a test that passed leave nothing behind."""
    agents = []

    def make(*arguments, prepare=None, **settings):
        folder = tmp_path / f"agent-{len(agents)}"
        folder.mkdir()
        agents.append(lab.Agent(folder, *arguments, **settings))
        if prepare:
            prepare(agents[-1])
        return agents[-1].start()
    yield make
    for agent in agents:
        agent.close()


@pytest.fixture
def with_manager(tmp_path):
    """Makes an agent and its procd, with the same settings."""
    agents = []

    def make(*arguments, start=True, prepare=None, **settings):
        folder = tmp_path / f"switch-{len(agents)}"
        folder.mkdir()
        agent = manager.SavingAgent(folder, *arguments, **settings)
        agents.append(agent)
        if prepare:
            prepare(agent)
        agent.start().running_config(RUNNING_TEXT)
        if start:
            agent.manager.start()
        return agent
    yield make
    for agent in agents:
        agent.manager.close()
        agent.close()


@pytest.fixture
def mount_small():
    """Mounts a file system with hardly any room on a folder."""
    places = []
    sudo = ["sudo", "-n"] if os.getuid() != 0 else []

    def mount(place):
        place.mkdir(exist_ok=True)
        try:
            subprocess.run([*sudo, "mount", "-t", "tmpfs", "-o",
                            f"size=64k,mode=700,uid={os.getuid()}", "small",
                            str(place)], check=True, capture_output=True)
        except (OSError, subprocess.CalledProcessError) as error:
            pytest.skip(f"no file system can be mounted: {error}")
        places.append(place)
        return place
    yield mount
    for place in reversed(places):
        # A process that has just been killed may be in it.
        subprocess.run([*sudo, "umount", "-l", str(place)], check=True)


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
def make_double():
    """Makes TFTP servers that do as they are told, on an address of their own.
    """
    servers = []

    def make(agent):
        servers.append(tftp.TftpDouble("127.0.0.3", agent.tftp_port))
        return servers[-1]
    yield make
    for server in servers:
        server.close()


@pytest.fixture
def double(agent, make_double):
    return make_double(agent)


@pytest.fixture
def trap_receiver(tmp_path):
    folder = tmp_path / "traps"
    folder.mkdir()
    receiver = lab.TrapReceiver(folder)
    yield receiver
    receiver.stop()
    print(f"--- snmptrapd\n{receiver.log}")


@pytest.fixture
def fabric(tmp_path):
    folder = tmp_path / "fabric"
    folder.mkdir()
    made = manager.Fabric(folder)
    yield made
    made.close()
