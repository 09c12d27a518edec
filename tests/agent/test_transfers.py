"""Copies by FTP, SFTP and SCP, in VRFs and on the storage pod, end to end."""

import os
import subprocess

import pytest

import history
import lab
from snmp import (BAD_FILE_NAME, CREATE_AND_WAIT, DESTROY, NETWORK, NO_CONFIG,
                  NO_MEMORY, RUNNING, STARTUP, STAY_STAGED, TIMEOUT, UNKNOWN,
                  Failure, Station, go, row)
from tools import Program, ipv6_loopback, wait_for
from transfer_servers import (PASSWORD, USER, Servers, needs_servers,
                              why_no_network_namespaces)

TFTP, FTP, SCP, SFTP = 1, 2, 4, 5
BY_NAME = {"tftp": TFTP, "ftp": FTP, "scp": SCP, "sftp": SFTP}
SCRIPTS = ["ftp", "sftp", "scp"]
VRF_CHASSIS, OTHER_CHASSIS = 29, 32
STORAGE_POD = 2

pytestmark = needs_servers
needs_namespaces = pytest.mark.skipif(
    why_no_network_namespaces() is not None,
    reason=str(why_no_network_namespaces()))

# Runs in a mount namespace of the agent's own: its root directory is $1, with
# everything that / has and the programs of the build tree below /brim.
IN_ROOT = """\
set -e
new=$1 build=$2 staging=$3 full=$4 home=$5
shift 5
mount -t tmpfs tmpfs "$new"
for each in /*; do
    if [ -L "$each" ]; then cp -P "$each" "$new$each"
    elif [ -d "$each" ]; then mkdir "$new$each"; mount --rbind "$each" "$new$each"
    fi
done
mkdir -p "$new/brim"
mount --rbind "$build/root/brim" "$new/brim"
[ -z "$full" ] || mount -t tmpfs -o size=64k,mode=700 tmpfs "$new$staging"
exec chroot "$new" env -C "$home" "$@"
"""


class InstalledAgent(lab.Agent):
    """An agent that finds the programs at /brim/bin, as on a switch. `full`
    gives it a staging directory with room for 64 kB."""

    def __init__(self, folder, *arguments, full=False, **settings):
        super().__init__(folder, *arguments, **settings)
        self.full = full
        self.root = folder / "root"
        self.root.mkdir()
        self.script = folder / "in-root"
        self.script.write_text(IN_ROOT)

    def run(self, command, **options):
        super().run(["unshare", "-m", "sh", str(self.script), str(self.root),
                     str(lab.BUILD), str(self.staging),
                     "yes" if self.full else "", str(self.home), *command], **options)


@pytest.fixture
def make_installed(tmp_path):
    agents = []

    def make(**settings):
        folder = tmp_path / f"installed-{len(agents)}"
        folder.mkdir()
        agents.append(InstalledAgent(folder, **settings))
        return agents[-1].start()
    yield make
    for agent in agents:
        agent.close()


@pytest.fixture
def servers():
    made = Servers()
    yield made
    made.stop()


@pytest.fixture(params=SCRIPTS)
def protocol(request):
    return request.param


@pytest.fixture
def server(servers, protocol):
    return servers.ftp() if protocol == "ftp" else servers.ssh()


def agent_for(make, server, protocol, **settings):
    """An agent that knows the server's port and host key."""
    key = "ftp_port" if protocol == "ftp" else "ssh_port"
    agent = make(**{key: server.port, "login_seconds": 20,
                    "transfer_seconds": 30, **settings})
    if hasattr(server, "known_host"):
        (agent.state / "known_hosts").write_text(server.known_host)
    return agent


def copy(index, protocol, source, to, name, server="127.0.0.2",
         password=PASSWORD, **more):
    """The columns of a copy that logs in."""
    if "xfCopyServerAddressRev1" not in more:
        more["xfCopyServerAddress"] = server
    return row(index, xfCopyProtocol=BY_NAME[protocol],
               xfCopySourceFileType=source, xfCopyDestFileType=to,
               xfCopyFileName=name, xfCopyUserName=USER,
               xfCopyUserPassword=password, **more)


def keep_startup(agent, content):
    folder = agent.state / "startup"
    folder.mkdir(mode=0o700, exist_ok=True)
    file = folder / "system.cfg"
    file.touch(mode=0o600)
    file.write_bytes(content)


@pytest.mark.parametrize("source", [RUNNING, STARTUP])
def test_to_the_server(make_agent, server, protocol, source):
    agent = agent_for(make_agent, server, protocol)
    agent.running_config(b"hostname running\n")
    keep_startup(agent, b"hostname startup\n")
    agent.station.set(go(copy(1, protocol, source, NETWORK, "a b$HOME.cfg")))
    agent.succeeds(1)
    assert server.content("a b$HOME.cfg") == (
        b"hostname running\n" if source == RUNNING else b"hostname startup\n")
    assert any("(SUCCESS)" in each and f"{protocol}://{USER}@127.0.0.2" in each
               for each in agent.accounting())


def test_to_the_running_configuration(make_agent, server, protocol):
    agent = agent_for(make_agent, server, protocol)
    agent.running_config(b"hostname one\n")
    server.offer("new.cfg", b"hostname two\n")
    agent.station.set(go(copy(1, protocol, NETWORK, RUNNING, "new.cfg")))
    agent.succeeds(1)
    assert agent.running_config() == b"hostname two\n"


def test_to_the_startup_configuration_is_refused(make_agent, server, protocol):
    agent = agent_for(make_agent, server, protocol)
    assert agent.station.refused(
        go(copy(1, protocol, NETWORK, STARTUP, "new.cfg"))) == "genError"


@pytest.mark.skipif(not ipv6_loopback(), reason="no IPv6 loopback address")
def test_ipv6(make_agent, servers, protocol):
    server = servers.ftp("::1") if protocol == "ftp" else servers.ssh("::1")
    agent = agent_for(make_agent, server, protocol)
    agent.running_config(b"hostname six\n")
    address = {"xfCopyServerAddressType": 2,
               "xfCopyServerAddressRev1": "00" * 15 + "01"}
    agent.station.set(go(copy(1, protocol, RUNNING, NETWORK, "six.cfg",
                              **address)))
    agent.succeeds(1)
    assert server.content("six.cfg") == b"hostname six\n"
    server.offer("new.cfg", b"vlan 6\n")
    agent.station.set(go(copy(2, protocol, NETWORK, RUNNING, "new.cfg",
                              **address)))
    agent.succeeds(2)
    assert agent.running_config() == b"hostname six\nvlan 6\n"


def test_wrong_password(make_agent, server, protocol):
    agent = agent_for(make_agent, server, protocol)
    agent.running_config(b"hostname one\n")
    server.offer("x", b"hostname two\n")
    agent.station.set(go(copy(1, protocol, NETWORK, RUNNING, "x",
                              password="wrong")))
    assert agent.fails(1) == UNKNOWN
    agent.station.set(go(copy(2, protocol, RUNNING, NETWORK, "up",
                              password="wrong")))
    assert agent.fails(2) == UNKNOWN
    assert agent.running_config() == b"hostname one\n"
    assert not (server.files / "up").exists()


def test_missing_file(make_agent, server, protocol):
    agent = agent_for(make_agent, server, protocol)
    agent.station.set(go(copy(1, protocol, NETWORK, RUNNING, "missing")))
    assert agent.fails(1) == BAD_FILE_NAME


@pytest.mark.parametrize("known", ["no", "another"])
@pytest.mark.parametrize("protocol", ["sftp", "scp"])
def test_host_key(make_agent, servers, protocol, known):
    server, other = servers.ssh(), servers.ssh()
    agent = agent_for(make_agent, server, protocol)
    key = other.known_host.partition(" ")[2]
    (agent.state / "known_hosts").write_text(
        f"[127.0.0.2]:{server.port} {key}" if known == "another" else "")
    agent.running_config(b"hostname one\n")
    agent.station.set(go(copy(1, protocol, RUNNING, NETWORK, "up")))
    assert agent.fails(1) == UNKNOWN
    assert not (server.files / "up").exists()


def test_full_disk_of_the_server(make_agent, servers, protocol, fault):
    server = servers.ftp(full=True) if protocol == "ftp" else \
        servers.ssh(full=True)
    agent = agent_for(make_agent, server, protocol)
    agent.running_config(os.urandom(500_000))
    agent.station.set(go(copy(1, protocol, RUNNING, NETWORK, "full/up")))
    assert agent.fails(1) == NO_MEMORY
    fault("Servers", f"{protocol} server whose disk is full",
          "row failed, noMem")


def test_full_staging_directory(make_installed, server, protocol, fault):
    agent = agent_for(make_installed, server, protocol, full=True)
    server.offer("large", os.urandom(500_000))
    agent.station.set(go(copy(1, protocol, NETWORK, RUNNING, "large")))
    assert agent.fails(1) == NO_MEMORY
    agent.idle()
    assert os.listdir(f"/proc/{agent.pid}/root{agent.staging}") == []
    fault("Disk", f"staging directory full, {protocol} download",
          "row failed, noMem, nothing left")


def test_server_that_stalls(make_agent, servers, protocol, fault):
    server = servers.ftp_double() if protocol == "ftp" else \
        servers.ssh(stalls=True)
    agent = agent_for(make_agent, server, protocol, transfer_seconds=2)
    agent.station.set(go(copy(1, protocol, NETWORK, RUNNING, "x")))
    assert agent.fails(1, seconds=30) == TIMEOUT
    fault("Servers", f"{protocol} server that stalls", "row failed, timeout")


def test_server_that_dies_in_the_middle(make_agent, servers, protocol, fault):
    if protocol == "ftp":
        server = servers.ftp_double(dies_after=100_000)
    else:
        behind = servers.ssh()
        behind.offer("x", bytes(5_000_000))
        server = servers.relay(behind, 1_000_000)
    agent = agent_for(make_agent, server, protocol)
    agent.running_config(b"hostname one\n")
    agent.station.set(go(copy(1, protocol, NETWORK, RUNNING, "x")))
    assert agent.fails(1) == UNKNOWN
    assert agent.running_config() == b"hostname one\n"
    fault("Servers", f"{protocol} server that dies in the middle",
          "row failed, unknown, running configuration unchanged")


# ---- VRFs and the storage pod ------------------------------------------------

ADDRESS = "10.255.0.1"


class NetworkNamespaces:
    """VRFs that are network namespaces, each with the same address in it."""

    def __init__(self, *names):
        self.names = [f"{each}-{os.getpid()}" for each in names]

    def __enter__(self):
        for name in self.names:
            subprocess.run(["ip", "netns", "add", name], check=True)
            for command in (["link", "set", "lo", "up"],
                            ["addr", "add", f"{ADDRESS}/32", "dev", "lo"]):
                subprocess.run(["ip", "-n", name, *command], check=True)
        return self.names

    def __exit__(self, *unused):
        for name in self.names:
            subprocess.run(["ip", "netns", "del", name], check=True)


@pytest.fixture
def vrfs():
    with NetworkNamespaces("red", "blue") as names:
        yield names


def in_vrf(vrf, *command):
    return subprocess.run(["ip", "netns", "exec", vrf, *command],
                          capture_output=True, text=True)


def listening(vrf, port, kind="-lnt"):
    return wait_for(lambda: f":{port} " in in_vrf(vrf, "ss", kind).stdout,
                    f"a server in {vrf}")


def id_of(agent, vrf):
    done = subprocess.run([lab.BUILD / "root/brim/bin/xfvrf", "--id", vrf],
                          env=agent.environment(), capture_output=True,
                          text=True, check=True)
    return int(done.stdout)


def servers_in(vrfs, servers, protocol, port):
    make = servers.ftp if protocol == "ftp" else servers.ssh
    made = {vrf: make(ADDRESS, port, netns=vrf) for vrf in vrfs}
    for vrf in vrfs:
        listening(vrf, port)
    return made


@needs_namespaces
def test_each_vrf_has_its_own_server(make_installed, servers, vrfs, protocol):
    made = servers_in(vrfs, servers, protocol, 4077)
    agent = agent_for(make_installed, made[vrfs[0]], protocol,
                      chassis_type=VRF_CHASSIS)
    (agent.state / "known_hosts").unlink(missing_ok=True)
    index = 0
    for vrf in vrfs:
        if protocol != "ftp":
            subprocess.run(
                [lab.BUILD / "root/brim/bin/xfenrol", ADDRESS,
                 made[vrf].fingerprint, "-v", vrf],
                env=agent.environment(), check=True)
        agent.running_config(b"hostname to-" + vrf.encode() + b"\n")
        index += 1
        agent.station.set(go(copy(index, protocol, RUNNING, NETWORK, "up",
                                  ADDRESS, xfCopyVRFName=vrf)))
        agent.succeeds(index)
        made[vrf].offer("new", b"hostname from-" + vrf.encode() + b"\n")
        index += 1
        agent.station.set(go(copy(index, protocol, NETWORK, RUNNING, "new",
                                  ADDRESS, xfCopyVRFName=vrf)))
        agent.succeeds(index)
        assert agent.running_config() == \
            b"hostname from-" + vrf.encode() + b"\n"
    for vrf in vrfs:
        assert made[vrf].content("up") == b"hostname to-" + vrf.encode() + b"\n"
        assert any(each.endswith(f'vrf {vrf} (SUCCESS)"')
                   for each in agent.accounting())


@needs_namespaces
@pytest.mark.parametrize("protocol", ["sftp"])
def test_host_keys_of_one_vrf_are_not_those_of_another(make_installed, servers,
                                                       vrfs, protocol):
    made = servers_in(vrfs, servers, protocol, 4078)
    red, blue = vrfs
    agent = agent_for(make_installed, made[red], protocol,
                      chassis_type=VRF_CHASSIS)
    (agent.state / f"known_hosts.{id_of(agent, red)}").write_text(
        made[blue].known_host)
    agent.station.set(go(copy(1, protocol, RUNNING, NETWORK, "up", ADDRESS,
                              xfCopyVRFName=red)))
    assert agent.fails(1) == UNKNOWN


class TftpInVrf(Program):
    def __init__(self, folder, vrf, port):
        super().__init__(f"in.tftpd in {vrf}", folder / f"{vrf}.log")
        self.files = folder / f"files-{vrf}"
        self.files.mkdir(mode=0o777)
        self.files.chmod(0o777)
        self.run(["ip", "netns", "exec", vrf, "/usr/sbin/in.tftpd", "-L", "-a",
                  f"{ADDRESS}:{port}", "-u", "nobody", "-c", "-s",
                  str(self.files)])
        listening(vrf, port, "-lnu")


@needs_namespaces
def test_tftp_in_vrfs(make_installed, vrfs, tmp_path):
    agent = make_installed(chassis_type=VRF_CHASSIS)
    made = {}
    try:
        for vrf in vrfs:
            made[vrf] = TftpInVrf(tmp_path, vrf, agent.tftp_port)
        for index, vrf in enumerate(vrfs, 1):
            agent.running_config(b"hostname " + vrf.encode() + b"\n")
            agent.station.set(go(copy(index, "tftp", RUNNING, NETWORK, "up",
                                      ADDRESS, xfCopyVRFName=vrf)))
            agent.succeeds(index)
            (made[vrf].files / "new").write_text(f"hostname of-{vrf}\n")
            agent.station.set(go(copy(index + 10, "tftp", NETWORK, RUNNING,
                                      "new", ADDRESS, xfCopyVRFName=vrf)))
            agent.succeeds(index + 10)
            assert agent.running_config() == f"hostname of-{vrf}\n".encode()
        agent.station.set(go(copy(20, "tftp", NETWORK, RUNNING, "missing",
                                  ADDRESS, xfCopyVRFName=vrf)))
        assert agent.fails(20) == UNKNOWN
    finally:
        for server in made.values():
            server.stop()
    for vrf in vrfs:
        assert (made[vrf].files / "up").read_text() == f"hostname {vrf}\n"


def in_context(agent, vrf):
    return Station(agent.station.peer, agent.alice.who + ["-n", vrf])


@needs_namespaces
@pytest.mark.parametrize("protocol", ["ftp"])
def test_vrf_of_the_request(make_installed, servers, vrfs, protocol):
    """The context that a user asks in names it; a row's own VRF wins."""
    red, blue = vrfs
    made = servers_in(vrfs, servers, protocol, 4080)
    agent = agent_for(make_installed, made[red], protocol,
                      chassis_type=VRF_CHASSIS)
    for index, vrf in enumerate(vrfs, 1):
        agent.running_config(b"hostname to-" + vrf.encode() + b"\n")
        user = in_context(agent, vrf)
        user.set(go(copy(index, protocol, RUNNING, NETWORK, "up", ADDRESS)))
        agent.succeeds(index)
        assert user.rows() == agent.station.rows()
        assert agent.accounting()[-1].endswith(f'vrf {vrf} (SUCCESS)"')
        made[vrf].offer("new", b"hostname from-" + vrf.encode() + b"\n")
        user.set(go(copy(index + 10, protocol, NETWORK, RUNNING, "new",
                         ADDRESS)))
        agent.succeeds(index + 10)
        assert agent.running_config() == \
            b"hostname from-" + vrf.encode() + b"\n"
    for vrf in vrfs:
        assert made[vrf].content("up") == b"hostname to-" + vrf.encode() + b"\n"
    agent.running_config(b"hostname own\n")
    in_context(agent, red).set(go(copy(20, protocol, RUNNING, NETWORK, "own",
                                       ADDRESS, xfCopyVRFName=blue)))
    agent.succeeds(20)
    assert made[blue].content("own") == b"hostname own\n"
    # All contexts show one history; it has the VRF of each copy.
    copies = history.entries(in_context(agent, red))
    assert copies == history.entries(agent.station)
    assert [each.vrf for each in copies.values()] == \
        [red, red, blue, blue, blue]
    assert not (made[red].files / "own").exists()


@needs_namespaces
def test_contexts_come_with_their_vrf(make_agent):
    """And stay when it goes: its context id is 0 then."""
    agent = make_agent(chassis_type=VRF_CHASSIS)
    with NetworkNamespaces("green") as (green,):
        user = in_context(agent, green)
        user.set(row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
        for _ in range(2):
            agent.hang_up()
            walked = user.walk()
            assert len(set(walked)) == len(walked) > 0
            assert walked == agent.station.walk()
    user.set(go(copy(2, "ftp", RUNNING, NETWORK, "up", ADDRESS)))
    assert agent.fails(2) == UNKNOWN
    assert [each for each in agent.accounting() if "://" in each] == []


def test_context_that_is_no_vrf(make_agent):
    """A stock agent counts such a request and does not answer it."""
    agent = make_agent(chassis_type=VRF_CHASSIS)
    request = go(copy(1, "ftp", RUNNING, NETWORK, "up"))
    for count, name in enumerate(["no-such-vrf", "../x", "lo"], 1):
        with pytest.raises(Failure, match="No Response"):
            in_context(agent, name).run(
                "snmpset", "-t", "0.5", agent.station.peer,
                *(word for varbind in request for word in varbind))
        unknown_contexts = agent.station.run(
            "snmpget", "-Oqv", agent.station.peer, ".1.3.6.1.6.3.12.1.5.0")
        assert int(unknown_contexts) == count
    assert agent.station.rows() == []


@pytest.mark.parametrize("protocol", SCRIPTS + ["tftp"])
def test_vrf_that_is_not_there(make_installed, protocol):
    agent = make_installed(chassis_type=VRF_CHASSIS)
    for index, name in enumerate(["no-such-vrf", "../x", "lo"], 1):
        agent.station.set(go(copy(index, protocol, RUNNING, NETWORK, "up",
                                  xfCopyVRFName=name)))
        assert agent.fails(index) == NO_CONFIG
    # Nothing was run, and nothing accounted but the start.
    assert [each for each in agent.accounting() if "://" in each] == []


def test_management_is_the_own_network(make_installed, server, protocol):
    agent = agent_for(make_installed, server, protocol,
                      chassis_type=VRF_CHASSIS)
    agent.running_config(b"hostname m\n")
    agent.station.set(go(copy(1, protocol, RUNNING, NETWORK, "up")))
    agent.succeeds(1)
    assert server.content("up") == b"hostname m\n"
    assert agent.accounting()[-1].endswith('vrf management (SUCCESS)"')


@needs_namespaces
def test_management_as_configured(make_installed, servers, vrfs):
    made = servers_in(vrfs[:1], servers, "ftp", 4079)[vrfs[0]]
    agent = agent_for(make_installed, made, "ftp", chassis_type=VRF_CHASSIS,
                      management_vrf=vrfs[0])
    agent.running_config(b"hostname m\n")
    agent.station.set(go(copy(1, "ftp", RUNNING, NETWORK, "up", ADDRESS)))
    agent.succeeds(1)
    assert made.content("up") == b"hostname m\n"


def test_other_chassis_know_no_vrf(make_agent, server, protocol):
    agent = agent_for(make_agent, server, protocol, chassis_type=OTHER_CHASSIS)
    agent.running_config(b"hostname plain\n")
    agent.station.set(go(copy(1, protocol, RUNNING, NETWORK, "up",
                              xfCopyVRFName="no-such-vrf")))
    agent.succeeds(1)
    assert server.content("up") == b"hostname plain\n"
    assert agent.accounting()[-1].endswith('127.0.0.2up (SUCCESS)"')


def test_storage_pod(make_installed, server, protocol):
    agent = agent_for(make_installed, server, protocol,
                      chassis_type=VRF_CHASSIS, partition_type=STORAGE_POD)
    agent.running_config(b"hostname pod\n")
    agent.station.set(go(copy(1, protocol, RUNNING, NETWORK, "up",
                              xfCopyVRFName="no-such-vrf")))
    agent.succeeds(1)
    server.offer("new", b"hostname new\n")
    agent.station.set(go(copy(2, protocol, NETWORK, RUNNING, "new")))
    agent.succeeds(2)
    assert server.content("up") == b"hostname pod\n"
    assert agent.running_config() == b"hostname new\n"


SHELL_NAMES = ['a"b', "a$HOME", "$(id)", "a`id`", "a\\b", "a\nb",
               'x"; touch found; "']


@pytest.mark.parametrize("more", [{}, {"partition_type": STORAGE_POD}],
                         ids=["vrf", "storage pod"])
def test_names_that_a_shell_would_act_on(make_installed, tmp_path, fault, more):
    agent = make_installed(chassis_type=VRF_CHASSIS, **more)
    server = lab.TftpServer(tmp_path, agent)
    station = agent.station
    try:
        agent.running_config(b"hostname one\n")
        for index, name in enumerate(SHELL_NAMES, 1):
            request = copy(index, "tftp", RUNNING, NETWORK, name)
            assert station.refused(go(request)) == "wrongValue"
            assert station.rows() == []
            # Nor may it come before its protocol.
            station.set(row(index, xfCopyEntryRowStatus=CREATE_AND_WAIT))
            station.set(row(index, xfCopyFileName="kept"))
            assert station.refused(row(index, xfCopyFileName=name)) == \
                "wrongValue"
            assert station.refused(row(index, xfCopyProtocol=FTP,
                                       xfCopyFileName=name)) == "wrongValue"
            assert station.get("xfCopyFileName", index) == "kept"
            station.set(row(index, xfCopyEntryRowStatus=DESTROY))
        agent.hang_up()
        assert station.refused(go(request)) == "wrongValue"
        name = "a b'c;d&e|f(g)*!h.cfg"
        station.set(go(copy(90, "tftp", RUNNING, NETWORK, name)))
        agent.succeeds(90)
        assert server.content(name) == b"hostname one\n"
    finally:
        server.stop()
    assert os.listdir(server.files) == [name]
    where = "storage pod" if more else "chassis with VRFs"
    fault("Somebody on the switch or the network",
          f"file names that a shell acts on, {where}",
          "wrongValue, nothing stored, no row, also after SIGHUP; names with "
          "other characters are copied")


@needs_namespaces
def test_such_a_name_in_the_context_of_a_vrf(make_agent):
    agent = make_agent(chassis_type=VRF_CHASSIS)
    with NetworkNamespaces("green") as (green,):
        user = in_context(agent, green)
        for _ in range(2):
            assert user.refused(go(copy(1, "tftp", RUNNING, NETWORK,
                                        "a`id`"))) == "wrongValue"
            assert agent.station.rows() == []
            agent.hang_up()


@pytest.mark.parametrize("chassis", [10, 11, 22, 28, 29, 30, 31, 33, 32, 34, 40,
                                     None])
def test_chassis_types_on_which_a_shell_sees_names(make_agent, chassis):
    agent = make_agent(**({"chassis_type": chassis} if chassis else {}))
    agent.station.set(row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    if chassis in (None, 32, 34, 40):
        agent.station.set(row(1, xfCopyFileName="a$b"))
    else:
        assert agent.station.refused(row(1, xfCopyFileName="a$b")) == \
            "wrongValue"


def test_such_names_where_they_are_allowed(make_agent):
    agent = make_agent(chassis_type=VRF_CHASSIS, shell_names="yes")
    agent.station.set(row(1, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    for name in SHELL_NAMES:
        agent.station.set(row(1, xfCopyFileName=name))


def test_tftp_on_the_storage_pod(make_installed, tmp_path):
    agent = make_installed(chassis_type=VRF_CHASSIS,
                           partition_type=STORAGE_POD)
    server = lab.TftpServer(tmp_path, agent)
    try:
        agent.running_config(b"hostname pod\n")
        agent.station.set(go(copy(1, "tftp", RUNNING, NETWORK, "up")))
        agent.succeeds(1)
        assert server.content("up") == b"hostname pod\n"
        server.offer("a b.cfg", b"hostname new\n")
        agent.station.set(go(copy(2, "tftp", NETWORK, RUNNING, "a b.cfg")))
        agent.succeeds(2)
        assert agent.running_config() == b"hostname new\n"
        agent.station.set(go(copy(3, "tftp", NETWORK, STAY_STAGED, "missing")))
        assert agent.fails(3) == UNKNOWN
    finally:
        server.stop()
