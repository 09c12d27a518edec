"""docs/frr.md: its commands are run as it has them, and what it says about
rights, startup files and operators is so."""

import pathlib
import pwd
import re
import subprocess

import pytest

import routers
from documents import commands
from routers import APPLIED, FAILED, QSH
from saves import save
from snmp import NETWORK, RUNNING, STARTUP, download, go, row, upload
from switches import FrrAgent
from tools import Program, wait_for

DOCUMENT = "docs/frr.md"
USER = "Debian-snmp"
DAEMONS = ("zebra", "staticd", "bgpd", "ospfd")

# The machine of the document: its own users, state and run directory.
MACHINE = f"""set -e
mount --bind {{folder}}/machine /etc
mount --bind {{folder}}/etc /etc/frr
mount -t tmpfs -o mode=755 machine /run
mkdir /run/frr
mount --bind {{folder}}/run /run/frr
mount -t tmpfs -o mode=755 machine /var/lib
for group in frr frrvty; do gpasswd -d {USER} $group || true; done
install -d -o {USER} -g {USER} -m 700 /var/lib/xfplatform /run/xfplatform
"""


@pytest.fixture(scope="module")
def told():
    """Takes the command that begins so; in the end none may be left."""
    left = [each.text for each in commands(DOCUMENT)]

    def take(begin):
        found = {each for each in left if each.startswith(begin)}
        assert len(found) == 1, begin
        left[:] = [each for each in left if each not in found]
        return found.pop()
    take.left = left
    return take


@pytest.fixture(scope="module")
def machine(tmp_path_factory, told):
    routers.needed()
    try:
        pwd.getpwnam(USER)
    except KeyError:
        pytest.skip(f"there is no user {USER}")
    folder = tmp_path_factory.mktemp("machine")
    router = routers.Router(folder, DAEMONS)
    subprocess.run(["cp", "-a", "/etc", str(folder / "machine")], check=True)
    (folder / "machine/xfhost.conf").write_text(
        told("backend frr") +
        f"\nroot {QSH.parents[2]}\nuser {USER}\nvtysh_seconds 4\n")
    subprocess.run([*router.enter, "sh", "-c", MACHINE.format(folder=folder)],
                   check=True, capture_output=True)
    yield router
    router.close()


def typed(machine, command):
    """What runs it as a person types it on that machine, who is root there."""
    return [*machine.enter, "env", "-i", "HOME=/nonexistent",
            f"PATH={QSH.parent}:/usr/sbin:/usr/bin:/sbin:/bin", "sh", "-c",
            command]


def run(machine, command):
    return subprocess.run(typed(machine, command), capture_output=True,
                          text=True, timeout=120)


def good(done):
    assert done.returncode == 0, done
    return done.stdout


@pytest.fixture(scope="module")
def with_groups(machine, told):
    """The chapter about rights, before and after its first command."""
    show = told("runuser")
    without = run(machine, show)
    assert without.returncode == FAILED and without.stdout == ""
    assert f"no answer from {' '.join(DAEMONS)}" in without.stderr
    good(run(machine, f"usermod -aG frrvty {USER}"))
    half = run(machine, show)
    assert half.returncode == FAILED and half.stdout == ""
    assert "vtysh.conf" in half.stderr and "no answer" not in half.stderr
    good(run(machine, told("usermod")))
    assert good(run(machine, show)) == machine.own_show()
    return machine


@pytest.fixture(scope="module")
def keep(told):
    return told("qsh -c 'copy")


def test_who_saves(with_groups, keep):
    machine = with_groups
    as_user = run(machine, f"runuser -u {USER} -- {keep}")
    assert as_user.returncode == FAILED
    assert "Permission denied" in as_user.stderr
    assert not machine.frr_conf.exists()
    good(run(machine, keep))
    assert machine.frr_conf.read_text() == machine.own_show()
    assert machine.frr_conf.owner() == machine.frr_conf.group() == "frr"


@pytest.fixture
def agent(with_groups, tmp_path):
    """As Debian starts it: it gives up root. procd is root."""
    agent = FrrAgent(tmp_path / "agent", with_groups, user=USER)
    # A word that is left out, then the agent's own.
    agent.wrapper += ["sh", "-c", f'shift; exec snmpd -u {USER} -g {USER} "$@"',
                      "sh"]
    subprocess.run(["chown", "-R", f"{USER}:", str(agent.folder)], check=True)
    for each in (tmp_path, *tmp_path.parents):
        each.chmod(each.stat().st_mode | 0o011)
    yield agent.start()
    agent.close()


def groups(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    return re.search(r"^Uid:\t(\d+)", status, re.M)[1], \
        re.search(r"^Groups:\t(.*)", status, re.M)[1].split()


def test_copies_of_an_agent_that_is_not_root(agent):
    router, double, station = agent.router, agent.double, agent.station
    user, own = groups(agent.pid)
    assert user == str(pwd.getpwnam(USER).pw_uid)
    assert len(own) >= 3, own
    double.files["new.cfg"] = b"ip route 10.1.0.0/24 blackhole\n"
    station.set(go(download(1, "new.cfg", double.address)))
    agent.succeeds(1)
    assert "10.1.0.0/24" in router.own_show()
    station.set(go(upload(2, "up.cfg", double.address)))
    agent.succeeds(2)
    assert double.files["up.cfg"].decode() == router.own_show()
    station.set(save(3))
    agent.succeeds(3)
    assert router.frr_conf.read_bytes() == double.files["up.cfg"]
    assert router.apply("no ip route 10.1.0.0/24 blackhole\n")[0] == APPLIED
    station.set(go(row(4, xfCopySourceFileType=STARTUP,
                       xfCopyDestFileType=RUNNING)))
    agent.succeeds(4)
    assert router.own_show().encode() == double.files["up.cfg"]
    station.set(go(row(5, xfCopySourceFileType=STARTUP,
                       xfCopyDestFileType=NETWORK, xfCopyFileName="start.cfg",
                       xfCopyServerAddress=double.address)))
    agent.succeeds(5)
    assert double.files["start.cfg"] == double.files["up.cfg"]


def procd_says(machine):
    """What procd logs when it starts there."""
    procd = Program("procd", machine.folder / "procd.log")
    procd.log_path.unlink(missing_ok=True)
    procd.run(typed(machine, "exec procd"))
    wait_for(lambda: "ready" in procd.log, "procd")
    assert procd.stop() == 0
    return procd.log


def test_when_the_two_startup_files_differ(with_groups, keep, told):
    machine = with_groups
    compare = told("diff")
    good(run(machine, keep))
    assert run(machine, compare).returncode == 0
    assert "frr.conf" not in procd_says(machine)

    machine.vtysh("-c", "configure terminal",
                  "-c", "ip route 10.2.0.0/24 blackhole")
    machine.vtysh("-c", "write memory")
    assert "/etc/frr/frr.conf" in procd_says(machine)
    differ = run(machine, compare)
    assert differ.returncode == 1
    assert "> ip route 10.2.0.0/24 blackhole" in differ.stdout

    # system.cfg is right.
    good(run(machine, told("install")))
    assert run(machine, compare).returncode == 0
    assert "frr.conf" not in procd_says(machine)
    assert "10.2.0.0/24" not in machine.frr_conf.read_text()
    assert "10.2.0.0/24" in machine.own_show()
    stat = machine.frr_conf.stat()
    assert stat.st_mode & 0o777 == 0o640
    assert machine.frr_conf.owner() == machine.frr_conf.group() == "frr"

    # What runs is right.
    machine.vtysh("-c", "write memory")
    assert run(machine, compare).returncode == 1
    good(run(machine, keep))
    assert run(machine, compare).returncode == 0
    assert "10.2.0.0/24" in machine.frr_conf.read_text()


# -- An operator at the same time --

# bgpd takes one line after the other; staticd all routes at once.
COUNT = 2000
NEIGHBOURS = "router bgp 65001\n" + "".join(
    f" neighbor 20.0.{n // 250}.{n % 250 + 1} remote-as 65002\n"
    for n in range(COUNT))


def neighbours(text):
    return text.count(" remote-as 65002\n")


class Operator:
    """Somebody at vtysh."""

    def __init__(self, router):
        self.process = subprocess.Popen(
            [*router.enter, *routers.CLEAN, "vtysh"], text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT)

    def type(self, *lines):
        self.process.stdin.write("".join(line + "\n" for line in lines))
        self.process.stdin.flush()

    def leave(self):
        """All that was on the screen."""
        return self.process.communicate(timeout=60)[0]




def test_an_operator_stays_in_the_block(router):
    operator = Operator(router)
    operator.type("configure terminal", "router bgp 65001")
    wait_for(lambda: "router bgp" in router.own_show(), "the operator's block")
    status, results = router.apply(
        "router bgp 65001\n neighbor 10.0.0.1 remote-as 1\nexit\n"
        "router ospf\n ospf router-id 192.0.2.9\nexit\n")
    assert status == APPLIED, results
    operator.type("neighbor 10.0.0.2 remote-as 2")
    wait_for(lambda: "10.0.0.2 remote-as 2" in router.own_show(),
             "the operator's line")
    assert router.apply("no router bgp 65001\n")[0] == APPLIED
    operator.type("neighbor 10.0.0.3 remote-as 3")
    screen = operator.leave()
    assert "object was deleted by another process" in screen
    shown = router.own_show()
    assert "10.0.0.3" not in shown and "router bgp" not in shown
    assert "192.0.2.9" in shown


def test_a_copy_shows_what_is_there_at_that_moment(router, told):
    file = router.folder / "given.cfg"
    file.write_text(NEIGHBOURS)
    words = told("vtysh -f").split()
    other = subprocess.Popen([*router.enter, *routers.CLEAN, *words, str(file)],
                             stdout=subprocess.DEVNULL)
    shown = []
    while other.poll() is None:
        shown.append(neighbours(router.show()))
    assert other.returncode == 0
    assert any(0 < each < COUNT for each in shown), shown
    assert neighbours(router.show()) == COUNT


def copy_with_an_operator(router, text, line, **settings):
    """What came of a copy during which an operator has this line."""
    file, results = router.folder / "given.cfg", router.folder / "results"
    file.write_text(text)
    copy = subprocess.Popen(
        [*router.enter, str(QSH), "--apply", str(file), str(results)],
        env=router.environment(**settings))
    wait_for(lambda: neighbours(router.own_show()), "the first lines")
    assert copy.poll() is None
    router.vtysh("-c", "configure terminal", "-c", line)
    return copy.wait(120), results.read_text()


def test_what_an_operator_does_is_undone_with_the_rest(router):
    status, results = copy_with_an_operator(
        router, NEIGHBOURS + " neighbor 10.0.0.9 password x\n",
        "ip route 10.7.0.0/24 blackhole", apply_atomic="yes")
    assert status == routers.SOME_FAILED
    assert results.endswith("the configuration of before was put back\n")
    assert "10.7.0.0/24" not in router.own_show()


def test_an_operator_removes_the_block_of_a_copy(router):
    status, results = copy_with_an_operator(router, NEIGHBOURS,
                                            "no router bgp 65001")
    assert status == routers.SOME_FAILED
    assert neighbours(router.own_show()) == 0
    # None of them counts as applied.
    told = re.findall(r"(?m)^line (\d+): ", results)
    assert told == [str(number) for number in range(2, 102)]
    assert f"{COUNT - 100} more lines were refused\n" in results


def test_what_vtysh_does_with_one_exit_too_many(router, told):
    """Why each line is read before vtysh sees it."""
    file = router.folder / "given.cfg"
    file.write_text("exit\nwrite memory\n")
    router.frr_conf.write_text("! precious\n")
    subprocess.run(["chown", "frr:frr", str(router.frr_conf)], check=True)
    router.try_vtysh(*told("vtysh -C").split()[1:], "-f", str(file))
    assert router.frr_conf.read_text() != "! precious\n"
    router.frr_conf.write_text("! precious\n")
    assert router.apply("exit\nwrite memory\n")[0] == routers.SOME_FAILED
    assert router.frr_conf.read_text() == "! precious\n"


def test_every_command_was_run(machine, told):
    assert told.left == []
