"""Showing, applying and saving on a real router."""

import os
import pathlib
import subprocess
import time

import pytest

from routers import (APPLIED, FAILED, NO_CONFIG, PROCD, SKIPPED, SOME_FAILED)
from tools import Program, wait_for

PLATFORM = os.environ["XF_TEST_PLATFORM"]
SANITIZED = os.environ["XF_TEST_SANITIZED"] == "1"

SITE = """\
ip prefix-list OWN seq 5 permit 10.1.0.0/16
ip route 10.1.2.0/24 blackhole
!
interface lo
 description to the  café & "other"   things
exit
!
router bgp 65001
 bgp router-id 192.0.2.1
 no bgp default ipv4-unicast
 neighbor 192.0.2.2 remote-as 65002
 neighbor 192.0.2.2 password s3cret
 !
 address-family ipv4 unicast
  network 10.1.2.0/24
  neighbor 192.0.2.2 activate
  neighbor 192.0.2.2 route-map OUT out
 exit-address-family
exit
!
router ospf
 ospf router-id 192.0.2.1
 network 10.1.0.0/16 area 0.0.0.1
exit
!
route-map OUT permit 10
 match ip address prefix-list OWN
exit
!
route-map OUT deny 20
exit
!
"""


def applied(outcome):
    """All of it; FRR may have had something to remark."""
    status, results = outcome
    assert status == APPLIED, results
    assert all(each.startswith("FRR said: ") for each in results)


def test_back_up_change_restore(router):
    applied(router.apply(SITE))
    backup = router.show()
    assert backup == router.own_show()
    assert "remote-as 65002" in backup and backup.endswith("\nend\n")
    status, results = router.apply(
        "router bgp 65001\n no neighbor 192.0.2.2\n"
        "no ip route 10.1.2.0/24 blackhole\nno route-map OUT\n")
    applied((status, results))
    changed = router.show()
    assert "192.0.2.2" not in changed and "route-map OUT" not in changed
    applied(router.apply(backup))
    # Route-maps are shown in the order in which they were made.
    assert sorted(router.show().split("\n")) == sorted(backup.split("\n"))
    applied(router.apply(router.show()))


def test_two_routers_become_neighbours(make_router):
    one, two = make_router(), make_router()
    one.link(two, "198.51.100")
    for router, own, other in ((one, 1, 2), (two, 2, 1)):
        applied(router.apply(f"""\
ip route 10.{own}.0.0/24 blackhole
router bgp 6500{own}
 no bgp ebgp-requires-policy
 neighbor 198.51.100.{other} remote-as 6500{other}
 neighbor 198.51.100.{other} timers connect 1
 address-family ipv4 unicast
  network 10.{own}.0.0/24
 exit-address-family
exit
"""))
    wait_for(lambda: "10.2.0.0/24" in one.vtysh("-c", "show ip bgp"),
             "the other's route", 60)
    backup = one.show()
    applied(one.apply("no router bgp 65001\n"))
    wait_for(lambda: "10.1.0.0/24" not in two.vtysh("-c", "show ip bgp"),
             "the route to go", 60)
    applied(one.apply(backup))
    wait_for(lambda: "10.1.0.0/24" in two.vtysh("-c", "show ip bgp"),
             "the route to come back", 60)
    assert one.show() == backup


def test_a_bad_line_in_the_middle(router):
    status, results = router.apply(
        "ip route 10.1.0.0/24 blackhole\nip rout\nnonsense\n"
        "router bgp 65001\n neighbor 10.0.0.9 password x\n"
        " neighbor 10.0.0.8 remote-as 5\nexit\n"
        "ip route 10.2.0.0/24 blackhole\n")
    assert status == SOME_FAILED
    assert results == [
        'line 2: FRR: Command incomplete: "ip rout"',
        'line 3: not a line of configuration that is known here: "nonsense"',
        "line 5: refused by bgpd: % Specify remote-as or peer-group commands "
        'first: "neighbor 10.0.0.9 password x"']
    shown = router.show()
    for line in ("ip route 10.1.0.0/24 blackhole", "10.0.0.8 remote-as 5",
                 "ip route 10.2.0.0/24 blackhole"):
        assert line in shown


BAD_HEADERS = {
    "syntax": ("route-map RM permit 10\n set metric 1\nexit\n"
               "route-map RM deny 99999\n set metric 9\nexit\n",
               "set metric 9", 4),
    "family": ("router bgp 65001\n neighbor 10.0.0.8 remote-as 5\n"
               " address-family ipv4 nonsense\n"
               "  neighbor 10.0.0.8 shutdown\n exit-address-family\nexit\n",
               "shutdown", 3),
    "another AS": ("router bgp 65001\nexit\nrouter bgp 65002\n"
                   " bgp suppress-fib-pending\nexit\n",
                   "suppress-fib", 3),
    "name too long": ("vrf " + "v" * 40 + "\n ip route 10.9.0.0/24 blackhole\n"
                      "exit-vrf\n", "10.9.0.0", 1),
    "not known": ("wlan red\n ip route 10.9.0.0/24 blackhole\nexit\n",
                  "10.9.0.0", 1),
    "not known, not indented": ("wlan red\nip route 10.9.0.0/24 blackhole\n"
                                "exit\n", "10.9.0.0", 1),
}


@pytest.mark.parametrize("kind", BAD_HEADERS)
def test_a_bad_header_takes_its_block_with_it(router, kind):
    text, lost, line = BAD_HEADERS[kind]
    good = "ip route 10.7.0.0/24 blackhole\n"
    status, results = router.apply(text + good)
    assert status == SOME_FAILED
    assert results[0].startswith(f"line {line}: ")
    assert results[1].startswith(
        f"line {line + 1}: the line that it is under was refused")
    assert len(results) == 2
    shown = router.show()
    assert lost not in shown
    assert good in shown


def test_lines_that_open_files_are_a_setting(router):
    log = router.folder / "run" / "frr.log"
    status, _ = router.apply(f"log file {log}\n")
    assert status == SOME_FAILED
    applied(router.apply(f"log file {log}\n",
                        frr_file_commands="yes"))
    # What is so already does no harm, so a backup can be restored.
    applied(router.apply(router.show()))


def test_a_daemon_that_does_not_run(make_router, fault):
    """vtysh drops its lines without a word."""
    router = make_router(daemons=("zebra", "staticd"))
    status, results = router.apply(
        "router bgp 65001\n bgp router-id 1.2.3.4\nexit\n"
        "ip route 10.1.0.0/24 blackhole\n")
    assert status == SOME_FAILED
    assert results == ["line 2: taken, but not in the configuration "
                       'afterwards: "bgp router-id 1.2.3.4"']
    assert "10.1.0.0" in router.show()
    fault("FRR", "lines for a daemon that does not run",
          "reported as not in the configuration; the others are applied")


def test_a_killed_daemon(router, fault):
    applied(router.apply(SITE))
    assert router.save() == (0, "")
    kept = router.startup.read_bytes()
    router.kill("bgpd")
    status, text, words = router.qsh("-c", "show running-config")
    assert (status, text) == (FAILED, "")
    assert "no answer from bgpd" in words
    status, words = router.save()
    assert status == FAILED and "bgpd" in words
    assert router.startup.read_bytes() == kept
    assert router.frr_conf.read_bytes() == kept
    status, results = router.apply("ip route 10.9.0.0/24 blackhole\n")
    assert status == FAILED and "bgpd" in results[0]
    fault("FRR", "bgpd is killed before a show, a save and a file",
          "each fails and names bgpd; what was saved stays")


def test_a_daemon_killed_while_it_is_applied(router, fault):
    neighbours = "".join(f" neighbor 10.0.{n // 250}.{n % 250 + 1} "
                         f"remote-as {n + 1}\n" for n in range(3000))
    file = router.folder / "given.cfg"
    file.write_text("router bgp 65001\n" + neighbours)
    qsh = subprocess.Popen(
        [*router.enter, str(router.settings["root"] / "brim/bin/qsh"),
         "--apply", str(file), str(router.folder / "results")],
        env=router.environment(), stderr=subprocess.PIPE, text=True)
    wait_for(lambda: "neighbor" in router.try_vtysh(
        "-d", "bgpd", "-c", "show running-config").stdout, "the first ones")
    router.kill("bgpd")
    _, words = qsh.communicate(timeout=120)
    assert qsh.returncode == FAILED
    assert "bgpd" in words and "in part" in words
    fault("FRR", "bgpd is killed while 3,000 neighbours are applied",
          "fails, names bgpd, and says that it may have been applied in part")


def test_a_daemon_that_hangs(router, fault):
    router.stop_daemon("bgpd")
    began = time.monotonic()
    status, text, words = router.qsh("-c", "show running-config",
                                     vtysh_seconds=2)
    assert time.monotonic() - began < 30
    assert (status, text) == (FAILED, "")
    assert "no answer from bgpd" in words
    router.go_on("bgpd")
    assert router.show() == router.own_show()
    fault("FRR", "bgpd hangs", "the show fails in time and names bgpd; goes on "
          "when bgpd does")


def test_no_vtysh(router, fault):
    status, _, words = router.qsh("-c", "show running-config",
                                  vtysh_program="/usr/bin/no-vtysh")
    assert status == FAILED and "/usr/bin/no-vtysh" in words
    status, _ = router.apply(SITE, vtysh_program="/usr/bin/no-vtysh")
    assert status == FAILED
    assert "65001" not in router.own_show()
    fault("FRR", "there is no vtysh when a file is applied",
          "fails and names it; nothing is applied")


def test_a_user_without_the_groups(router, fault):
    for name in ("state", "sockets"):
        subprocess.run(["chown", "-R", "nobody", str(router.folder / name)],
                       check=True)
    router.folder.chmod(0o755)
    status, text, words = router.qsh(
        "-c", "show running-config",
        as_user=["setpriv", "--reuid", "nobody", "--clear-groups"])
    assert (status, text) == (FAILED, "")
    assert "vtysh" in words
    fault("FRR", "a user without FRR's groups", "no configuration; vtysh's "
          "own words are in the error")


def test_no_configuration(router):
    assert router.apply("! nothing\n\nend\n") == (NO_CONFIG, [])


def test_too_many_bad_lines(router):
    status, results = router.apply("ip route 10.1.0.0/24 blackhole\n" +
                                   "nonsense\n" * 200 +
                                   "ip route 10.2.0.0/24 blackhole\n")
    assert status == SKIPPED
    assert results[-1].startswith("stopped after 100")
    shown = router.show()
    assert "10.1.0.0" in shown and "10.2.0.0" not in shown


def test_what_frr_writes_in_another_form(router):
    text = ("ip route 10.23.1.5/24 blackhole\naccess-list A permit 10.1.2.3/8\n"
            "router ospf\n network 10.1.0.0/16 area 0\nexit\n"
            "router-id 1.1.1.1\n")
    for _ in range(2):
        status, results = router.apply(text)
        assert status == APPLIED, results
        assert [each for each in results if "line 2: FRR has it as" in each]


def test_all_or_nothing(router):
    applied(router.apply(SITE))
    before = router.show()
    refused = "ip route 10.3.0.0/24 blackhole\nnonsense\n"
    status, results = router.apply(refused, apply_atomic="yes")
    assert status == SOME_FAILED
    assert results[-1] == "nothing was applied (apply_atomic)"
    assert router.show() == before
    by_daemon = """\
ip route 10.3.0.0/24 blackhole
interface lo
 description another one
exit
router bgp 65001
 timers bgp 4 12
 no neighbor 192.0.2.2
 neighbor 10.0.0.9 password x
 address-family ipv6 unicast
  network 2001:db8::/32
 exit-address-family
exit
route-map NEW permit 5
 set metric 7
exit
no router ospf
"""
    status, results = router.apply(by_daemon, apply_atomic="yes")
    assert status == SOME_FAILED
    assert results[-1] == "the configuration of before was put back"
    assert router.show() == before


def test_save_keeps_both(router):
    applied(router.apply(SITE))
    router.frr_conf.write_text("! old\n")
    assert router.save() == (0, "")
    shown = router.show()
    assert router.startup.read_text() == shown == router.frr_conf.read_text()
    stat = router.frr_conf.stat()
    assert stat.st_mode & 0o777 == 0o640
    assert router.frr_conf.owner() == router.frr_conf.group() == "frr"
    # FRR starts with it: a router that has lost everything is the same again.
    for name in list(router.daemons):
        router.kill(name)
    for name in ("zebra", "staticd", "bgpd", "ospfd"):
        router.start(name)
    assert "65001" not in router.own_show()
    router.vtysh("-b")
    assert router.show() == shown


def store_startup(router, text):
    """The platform's call for a text that does not come from FRR."""
    file = router.folder / "start.cfg"
    file.write_text(text)
    call = ("import ctypes, sys\n"
            "platform = ctypes.CDLL(sys.argv[1])\n"
            "sys.exit(platform.procd_cli_write_ascii_cfg(None, "
            "sys.argv[2].encode()) != 0)")
    return subprocess.run(
        [*router.enter, "/usr/bin/python3", "-c", call, PLATFORM, str(file)],
        env=router.environment(), capture_output=True, text=True)


@pytest.mark.skipif(SANITIZED, reason="Python is not built for the sanitizer")
def test_a_hostile_startup_configuration_is_not_kept(router):
    """FRR would run it at its next start."""
    assert router.save() == (0, "")
    kept = router.frr_conf.read_bytes()
    for text, line in (("agentx\nexit\nwrite memory\n", 2),
                       ("log file /x\n", 1)):
        done = store_startup(router, text)
        assert done.returncode == 1
        assert f"startup configuration, line {line}: " in done.stderr
        assert router.frr_conf.read_bytes() == kept
        assert router.startup.read_bytes() == kept
    good = "ip route 10.1.0.0/24 blackhole\n"
    assert store_startup(router, good).returncode == 0
    assert router.frr_conf.read_text() == good == router.startup.read_text()


@pytest.mark.parametrize("place", ["etc", "state"])
def test_a_full_disk(router, place, fault):
    """Both startup files stay what they were."""
    applied(router.apply(SITE))
    folder = router.folder / place
    if place == "state":
        mounted = folder
        inside = router.enter
    else:
        mounted = pathlib.Path("/etc/frr")
        inside = router.enter
    mode, owner = ("700", "root") if place == "state" else ("750", "frr")
    subprocess.run([*inside, "sh", "-c",
                    f"mount -t tmpfs -o size=64k,mode={mode} small {mounted} "
                    f"&& chown {owner}:{owner} {mounted}"], check=True)
    if place == "etc":
        subprocess.run([*inside, "touch", "/etc/frr/vtysh.conf"], check=True)

    def read(path):
        return subprocess.run([*inside, "cat", path], check=True,
                              capture_output=True).stdout
    assert router.save() == (0, "")
    conf = "/etc/frr/frr.conf"
    old = read(conf)
    assert old == read(str(router.startup))
    assert router.apply("ip route 10.44.0.0/24 blackhole\n")[0] == APPLIED
    subprocess.run([*inside, "sh", "-c",
                    f"head -c 100000 /dev/zero >{mounted}/filler"],
                   capture_output=True)
    status, words = router.save()
    assert status == FAILED and "No space left" in words
    assert read(conf) == old == read(str(router.startup))
    subprocess.run([*inside, "rm", f"{mounted}/filler"], check=True)
    assert router.save() == (0, "")
    assert b"10.44.0.0" in read(conf) == read(str(router.startup))
    where = {"etc": "FRR's folder", "state": "the state directory"}[place]
    fault("FRR", f"no room in {where} during a save",
          "both startup files stay what they were; goes on when there is room")


def test_procd_says_that_the_startup_files_differ(router):
    assert router.save() == (0, "")
    router.frr_conf.write_text("! somebody else's\n")

    def started():
        procd = Program("procd", router.folder / "procd.log")
        procd.log_path.unlink(missing_ok=True)
        procd.run([*router.enter, str(PROCD)], env=router.environment())
        wait_for(lambda: "ready" in procd.log, "procd")
        assert procd.stop() == 0
        return procd.log
    assert "FRR starts with another one" in started()
    assert router.save() == (0, "")
    assert "another one" not in started()


def test_two_at_once_do_not_mix(router):
    """One file is applied whole before the next one."""
    texts = {n: "".join(f"route-map M-{n}-{i} permit 1\n set metric {n}\n"
                        for i in range(400)) for n in (1, 2, 3)}
    running = []
    for number, text in texts.items():
        file = router.folder / f"{number}.cfg"
        file.write_text(text)
        running.append(subprocess.Popen(
            [*router.enter, str(router.settings["root"] / "brim/bin/qsh"),
             "--apply", str(file), str(router.folder / f"{number}.out")],
            env=router.environment()))
    assert [each.wait(120) for each in running] == [APPLIED] * 3
    # They are shown in the order in which they were made.
    order = [int(line.split("-")[2]) for line in router.show().split("\n")
             if line.startswith("route-map M")]
    assert len(order) == 1200
    # A number that comes up, goes and comes again would be a mixture.
    blocks = [each for n, each in enumerate(order)
              if n == 0 or each != order[n - 1]]
    assert sorted(blocks) == [1, 2, 3]


def test_nothing_is_left_in_the_environment(router):
    """No history, no pager, no log of vtysh's."""
    home = router.folder / "home"
    extra = {"HOME": str(home), "VTYSH_PAGER": f"tee {home}/pager",
             "VTYSH_LOG": str(home / "log"),
             "VTYSH_HISTFILE": str(home / "history")}
    os.environ.update(extra)
    try:
        applied(router.apply(SITE))
        assert router.show() == router.own_show()
    finally:
        for name in extra:
            del os.environ[name]
    assert list(home.iterdir()) == []
