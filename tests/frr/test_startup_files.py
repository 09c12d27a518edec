"""Saves and applied files that end between their steps: what is left is found
and said."""

import os
import signal
import subprocess
import time

import pytest

from routers import APPLIED, FAILED, PROCD, QSH, SOME_FAILED
from tools import Program, wait_for

SANITIZED = os.environ["XF_TEST_SANITIZED"] == "1"
KILL_POINT = os.environ["XF_TEST_KILL_POINT"]
FIRST = "ip route 10.76.0.0/24 blackhole\n"
NEW = "ip route 10.77.0.0/24 blackhole\n"
SAVE = [str(QSH), "-c", "copy running-config startup-config"]


def killed_at(router, step):
    """Whether a save was killed there; it ends well once it has fewer steps."""
    done = subprocess.run(
        [*router.enter, *SAVE], capture_output=True, text=True,
        env={**router.environment(), "LD_PRELOAD": KILL_POINT,
             "KILL_AT": str(step)})
    assert done.returncode in (0, -signal.SIGKILL), done
    return done.returncode != 0


def said_at_start(router):
    """The log of a procd that starts, and ends."""
    procd = Program("procd", router.folder / "procd.log")
    procd.log_path.unlink(missing_ok=True)
    procd.run([*router.enter, str(PROCD)], env=router.environment())
    wait_for(lambda: "ready" in procd.log, "procd")
    assert procd.stop() == 0
    return procd.log


def text_of(path):
    return path.read_text() if path.exists() else None


@pytest.mark.skipif(SANITIZED, reason="the sanitizer has to be loaded first")
def test_a_save_that_is_killed_at_every_step(router, fault):
    assert router.apply(FIRST)[0] == APPLIED
    assert router.save() == (0, "")
    old = router.own_show()
    assert router.apply(NEW)[0] == APPLIED
    new = router.own_show()
    left = []
    for step in range(1, 100):
        killed = killed_at(router, step)
        left.append((text_of(router.startup), text_of(router.frr_conf)))
        differ = left[-1][0] != left[-1][1]
        assert left[-1] in ((old, old), (new, old), (new, new))
        if differ or step == 1:
            said = "FRR starts with another one" in said_at_start(router)
            assert said == differ
        if not killed:
            break
        for file in (router.startup, router.frr_conf):
            file.write_text(old)
    assert left[0] == (old, old) and left[-1] == (new, new)
    assert (new, old) in left
    assert 5 < len(left) < 40
    # A save after each of these deaths has cleared up.
    assert sorted(path.name for path in (router.folder / "etc").iterdir()) == \
        ["frr.conf", "vtysh.conf"]
    fault("FRR", "a save is killed at each of its steps on the disk",
          "both startup files are whole, old or new; where only the first one "
          "is new, the next procd says so")


def test_the_only_startup_file(router):
    """The state directory's without FRR's, and the other way round."""
    assert router.save() == (0, "")
    router.frr_conf.unlink()
    assert "frr.conf: No such file" in said_at_start(router)
    assert router.save() == (0, "")
    router.startup.unlink()
    assert "startup" not in said_at_start(router)


BY_DAEMON = NEW + """\
router bgp 65001
 neighbor 10.0.0.9 password x
exit
"""


@pytest.fixture
def slow_vtysh(router):
    """One that waits, with `-f`, before the n-th time."""
    def make(number, then="sleep 1000"):
        program, count = router.folder / "slow", router.folder / "count"
        count.write_text("")
        program.write_text(
            "#!/bin/bash\n"
            f'if [ "$1" = -f ]; then echo >>{count}\n'
            f"  if [ $(wc -l <{count}) = {number} ]; then {then}; fi\nfi\n"
            'exec /usr/bin/vtysh "$@"\n')
        program.chmod(0o755)
        count.chmod(0o666)
        return program
    return make


def left(router):
    return router.folder / "state/before-apply.cfg"


def sent(router):
    return len((router.folder / "count").read_text())


def all_or_nothing(router, program, **settings):
    """A file that has to be taken back, applied with such a vtysh."""
    return router.apply(BY_DAEMON, apply_atomic="yes", vtysh_program=program,
                        **settings)


def test_taking_back_hangs(router, slow_vtysh, fault):
    before = router.own_show()
    status, results = all_or_nothing(router, slow_vtysh(2), apply_seconds=2)
    assert status == SOME_FAILED
    assert "is not known: " in results[-1] and "in time" in results[-1]
    assert "10.77.0.0" in router.own_show()
    assert left(router).read_text() == before
    fault("FRR", "with apply_atomic, vtysh hangs while the configuration of "
          "before is put back",
          "the results file says that it is not known whether it is")


def test_taking_back_does_nothing(router, slow_vtysh, fault):
    status, results = all_or_nothing(router, slow_vtysh(2, "exit 0"))
    assert status == SOME_FAILED
    assert results[-1] == \
        "the configuration of before COULD NOT be put back whole"
    assert "10.77.0.0" in router.own_show()
    fault("FRR", "with apply_atomic, nothing is put back",
          "the results file says so")


def test_nothing_is_left_of_what_went_well(router, slow_vtysh):
    assert router.apply(NEW, apply_atomic="yes") == (APPLIED, [])
    assert router.apply("nonsense\n", apply_atomic="yes")[0] == SOME_FAILED
    status, results = all_or_nothing(router, slow_vtysh(9))
    assert results[-1] == "the configuration of before was put back"
    status, _ = all_or_nothing(router, "/usr/bin/no-vtysh")
    assert status == FAILED
    assert not left(router).exists()
    assert "not taken back" not in said_at_start(router)


def test_killed_before_it_is_taken_back(router, slow_vtysh, fault):
    """The next procd says so, and the next file that is applied."""
    before = router.own_show()
    file, results = router.folder / "given.cfg", router.folder / "results"
    file.write_text(BY_DAEMON)
    program = slow_vtysh(2)
    qsh = subprocess.Popen(
        [*router.enter, str(QSH), "--apply", str(file), str(results)],
        env=router.environment(apply_atomic="yes", vtysh_program=program))
    wait_for(lambda: sent(router) == 2, "the way back")
    qsh.kill()
    qsh.wait()
    assert not results.exists()
    assert "10.77.0.0" in router.own_show()
    assert left(router).read_text() == before
    assert "not taken back" in said_at_start(router)
    for _ in range(2):
        status, words = router.apply("no " + NEW)
        assert status == APPLIED
        assert str(left(router)) in words[0]
    assert router.apply("no " + NEW, apply_atomic="yes")[0] == APPLIED
    assert not any("taken back" in each
                   for each in router.apply("no " + NEW)[1])
    fault("FRR", "the shell is killed before the configuration of before is "
          "put back", "what was applied stays; the next procd and the next "
          "file that is applied say so, and where that configuration is")


@pytest.mark.parametrize("moment", ["show", "apply"])
def test_bgpd_dies_meanwhile(router, moment, fault):
    """A daemon that stands still is killed while vtysh waits for it."""
    arguments = {"show": ["-c", "show running-config"],
                 "apply": ["--apply", str(router.folder / "given.cfg"),
                           str(router.folder / "results")]}[moment]
    (router.folder / "given.cfg").write_text(NEW)
    router.stop_daemon("bgpd")
    qsh = subprocess.Popen([*router.enter, str(QSH), *arguments],
                           env=router.environment(), stdout=subprocess.PIPE,
                           stderr=subprocess.PIPE, text=True)
    time.sleep(0.5)
    assert qsh.poll() is None
    router.kill("bgpd")
    text, words = qsh.communicate(timeout=60)
    assert (qsh.returncode, text) == (FAILED, "")
    assert "bgpd" in words
    assert "10.77.0.0" not in router.own_show()
    fault("FRR", f"bgpd hangs, and dies during the {moment}",
          "fails and names bgpd; nothing is applied")
