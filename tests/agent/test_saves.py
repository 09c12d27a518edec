"""Running to startup configuration, through the system manager."""

import os
import signal
import threading
import time

import pytest

import lab
import manager
from saves import (ALL_STARTUP, FABRIC_STARTUP, RUNNING_TEXT, SAVE_FAILED,
                   SAVE_REFUSED, completions, errors, keep_startup,
                   nothing_left, save, startup)
from snmp import (ACTIVE, DESTROY, FAILED, IN_PROGRESS, STARTUP, SUCCESSFUL,
                  TRUE, row)
from tools import children_of, wait_for


def temporary(agent):
    return (agent.state / "startup" / ".system.cfg.new").exists()


def start_slow_save(agent, index=1, **more):
    agent.station.set(save(index, **more))
    assert agent.station.get("xfCopyState", index) == IN_PROGRESS
    wait_for(lambda: temporary(agent), "the save to write its file")


@pytest.mark.parametrize("to", [STARTUP, ALL_STARTUP])
def test_save_ends_well(with_manager, trap_receiver, to):
    agent = with_manager(f"trap2sink 127.0.0.1:{trap_receiver.port} public\n")
    agent.station.set(save(3, to, xfCopyNotificationOnCompletion=TRUE))
    agent.succeeds(3)
    assert startup(agent) == RUNNING_TEXT
    assert agent.station.get("xfCopyEntryRowStatus", 3) == ACTIVE
    assert wait_for(lambda: completions(trap_receiver), "the notification") \
        == [("3", str(SUCCESSFUL))]
    time.sleep(0.3)
    assert len(completions(trap_receiver)) == 1
    nothing_left(agent)


def test_empty_running_configuration(with_manager):
    agent = with_manager()
    agent.running_config(b"")
    keep_startup(agent, b"hostname old\n")
    agent.station.set(save(1))
    agent.succeeds(1)
    assert startup(agent) == b""


def test_one_save_at_a_time(with_manager):
    """The module allows one copy; another client's request is refused by
    procd, which then serves the first one to its end."""
    agent = with_manager(save_delay_seconds=2)
    start_slow_save(agent)
    assert agent.station.refused(save(2)) in ("inconsistentValue",
                                              "resourceUnavailable",
                                              "genError")
    agent.succeeds(1)


def test_abort_by_destroy(with_manager):
    agent = with_manager(save_delay_seconds=60)
    old = keep_startup(agent, b"hostname old\n")
    start_slow_save(agent)
    agent.station.set(row(1, xfCopyEntryRowStatus=DESTROY))
    assert agent.station.get("xfCopyState", 1) is None
    wait_for(lambda: not (agent.state / "save-in-progress").exists(),
             "the save to end", 5)
    assert not temporary(agent)
    assert startup(agent) == old
    # The end of the aborted save must not end another one.
    start_slow_save(agent, 2)
    time.sleep(0.3)
    assert agent.station.get("xfCopyState", 2) == IN_PROGRESS
    agent.station.set(row(2, xfCopyEntryRowStatus=DESTROY))
    wait_for(lambda: not (agent.state / "save-in-progress").exists(),
             "the save to end", 5)
    nothing_left(agent)


def test_without_a_manager(with_manager, fault):
    agent = with_manager(start=False)
    start = time.monotonic()
    agent.station.set(save(1))
    assert agent.station.get("xfCopyState", 1) == FAILED
    assert time.monotonic() - start < 2
    agent.fails(1)
    # One that comes later serves the next request.
    agent.manager.start()
    agent.station.set(save(2))
    agent.succeeds(2)
    fault("System manager", "not there when a save is requested",
          "row failed at once; the next save works when it is there")


def test_request_that_is_refused(with_manager, trap_receiver):
    agent = with_manager(f"trap2sink 127.0.0.1:{trap_receiver.port} public\n")
    agent.station.set(save(1, FABRIC_STARTUP,
                           xfCopyNotificationOnCompletion=TRUE))
    assert agent.fails(1) == SAVE_REFUSED
    assert wait_for(lambda: completions(trap_receiver), "the notification") \
        == [("1", str(FAILED))]
    assert "fabric_file is not set" in agent.manager.log
    nothing_left(agent)


def test_manager_killed_and_restarted(with_manager, fault):
    agent = with_manager(save_delay_seconds=30, manager_restart_seconds=60)
    old = keep_startup(agent, b"hostname old\n")
    start_slow_save(agent)
    agent.manager.kill()
    time.sleep(0.5)
    assert agent.station.get("xfCopyState", 1) == IN_PROGRESS
    agent.manager.settings["save_delay_seconds"] = 0
    agent.manager.start()
    assert agent.fails(1, seconds=5) == SAVE_FAILED
    assert startup(agent) == old
    agent.station.set(save(2))
    agent.succeeds(2)
    assert startup(agent) == RUNNING_TEXT
    assert not temporary(agent)
    nothing_left(agent)
    fault("System manager", "killed during a save and started again",
          "row failed, saveFailed, old startup configuration kept; goes on")


def test_manager_killed_for_good(with_manager, trap_receiver, fault):
    agent = with_manager(f"trap2sink 127.0.0.1:{trap_receiver.port} public\n",
                         save_delay_seconds=30, manager_restart_seconds=2)
    old = keep_startup(agent, b"hostname old\n")
    start_slow_save(agent, xfCopyNotificationOnCompletion=TRUE)
    agent.manager.kill()
    assert agent.fails(1, seconds=8) == SAVE_FAILED
    assert wait_for(lambda: completions(trap_receiver), "the notification") \
        == [("1", str(FAILED))]
    assert startup(agent) == old
    # What a later one has to tell of that save is told already.
    agent.manager.settings["save_delay_seconds"] = 2
    agent.manager.start()
    start_slow_save(agent, 2)
    agent.succeeds(2)
    assert startup(agent) == RUNNING_TEXT
    fault("System manager", "killed during a save, not started again in time",
          "row failed, saveFailed, one notification, old startup configuration "
          "kept; goes on with another one")


def test_killed_at_any_moment_leaves_a_whole_file(with_manager, fault):
    # One that is killed before it has noted the save is not spoken for.
    agent = with_manager(manager_restart_seconds=2)
    texts = [(b"hostname " + bytes([c]) * 50 + b"\n" + b"! " + bytes([c]) * 70 +
              b"\n") * 20000 for c in b"abcdefgh"]
    before = agent.running_config(b"hostname old\n" * 200_000)
    began = time.monotonic()
    agent.station.set(save(1))
    wait_for(lambda: startup(agent) == before, "a whole save")
    took = time.monotonic() - began
    agent.succeeds(1)
    for number, text in enumerate(texts):
        agent.running_config(text)
        asking = threading.Thread(target=agent.station.set,
                                  args=[save(number + 2)])
        asking.start()
        time.sleep(took * number / len(texts))
        agent.manager.kill()
        asking.join()
        now = startup(agent)
        print("after the kill:", "new" if now == text else "old")
        assert now in (before, text)
        before = now
        agent.manager.start()
        if agent.ended(number + 2, 10) == SUCCESSFUL:
            assert now == text
    # Whether one of them failed, and at which step, is up to the machine.
    fault("System manager", "killed at eight moments of a save",
          "the startup configuration is the old or the new one, whole", why=())


def test_manager_killed_while_the_agent_waits(with_manager, fault):
    """Stopped before it answers, then killed: the agent need not wait any
    longer than that."""
    agent = with_manager(manager_restart_seconds=0)
    agent.manager.signal(signal.SIGSTOP)
    asking = threading.Thread(target=agent.station.set, args=[save(1)])
    asking.start()
    time.sleep(1)
    assert asking.is_alive()
    agent.manager.kill()
    asking.join(5)
    assert not asking.is_alive()
    assert agent.fails(1, seconds=5) == SAVE_FAILED
    fault("System manager", "stopped before it answers, then killed",
          "the agent waits no longer; row failed, saveFailed")


def test_disk_that_takes_nothing(with_manager, fault):
    agent = with_manager()
    (agent.state / "startup").mkdir(mode=0o700)
    (agent.state / "startup" / "system.cfg").mkdir(mode=0o700)
    agent.station.set(save(1))
    assert agent.fails(1) == SAVE_FAILED
    nothing_left(agent)
    fault("Disk", "startup configuration that cannot be replaced, save",
          "row failed, saveFailed")


def test_manager_that_is_ended(with_manager, fault):
    agent = with_manager(save_delay_seconds=60)
    start_slow_save(agent)
    assert agent.manager.stop() == 0
    assert agent.fails(1, seconds=5) == SAVE_FAILED
    assert not (agent.state / "save-in-progress").exists()
    fault("System manager", "ended by SIGTERM during a save",
          "row failed, saveFailed, nothing left")


def test_every_switch_of_the_fabric(with_manager, fabric):
    for each in ("north", "south", "west"):
        fabric.add(each).start()
    agent = with_manager(**fabric.settings())
    agent.station.set(save(1, FABRIC_STARTUP))
    agent.succeeds(1)
    assert startup(agent) == RUNNING_TEXT
    for each in fabric.switches:
        assert (each.state / "startup" / "system.cfg").read_text() == \
            f"hostname {each.switch_name}\n"
    assert errors(agent, 1) == {}
    nothing_left(agent)


def test_switches_that_fail(with_manager, fabric, fault):
    """Each in its own way, and the rest is saved all the same."""
    good = fabric.add("good").start()
    down = fabric.add("down")
    locked = fabric.add("locked",
                        key=manager.make_key(fabric.folder / "other")).start()
    late = fabric.add("late", command="exec sleep 20").start()
    stranger = fabric.add("stranger").start()
    full = fabric.add("full", command="echo 'qsh: startup configuration: "
                      "No space left on device' >&2; exit 74").start()
    fabric.unknown.add(stranger)
    fabric.write()
    agent = with_manager(**fabric.settings())
    start = time.monotonic()
    agent.station.set(save(4, FABRIC_STARTUP))
    assert agent.fails(4) == SAVE_FAILED
    # Side by side: no longer than the slowest one, with something to spare.
    assert time.monotonic() - start < 4 + 3
    assert startup(agent) == RUNNING_TEXT
    assert (good.state / "startup" / "system.cfg").read_text() == \
        "hostname good\n"
    rows = errors(agent, 4)
    assert [rows[number][:3] for number in sorted(rows)] == [
        (1, each.address, each.wwn)
        for each in (down, locked, late, stranger, full)]
    assert sorted(rows) == [1, 2, 3, 4, 5]
    texts = [rows[number][3] for number in sorted(rows)]
    assert texts[0].startswith("The switch cannot be reached: ")
    assert "Connection refused" in texts[0]
    assert texts[1] == "The switch refused the key of this switch."
    assert texts[2] == "The switch did not finish within 4 seconds."
    assert texts[3].startswith("The switch is not the known one")
    assert texts[4].startswith("The disk of the switch is full")
    nothing_left(agent)
    # Rows go with their copy.
    agent.station.set(row(4, xfCopyEntryRowStatus=DESTROY))
    assert errors(agent, 4) == {}
    for what in ("is down", "refuses the key", "does not finish",
                 "has another host key", "says its disk is full"):
        fault("Switches of the fabric", "one that " + what,
              "row failed, saveFailed, an error row for it; the others saved")


def test_switch_with_a_full_disk(with_manager, fabric, mount_small, tmp_path,
                                 fault):
    """Its own shell finds that there is no room, and says so over SSH."""
    small_disk = mount_small(tmp_path / "disk")
    full = fabric.add("full", command=manager.saving_command(
        lab.BUILD / "root", small_disk)).start()
    fabric.add("good").start()
    big = small_disk / "running-config"
    big.write_bytes(b"! " + b"x" * 40_000 + b"\n")
    big.chmod(0o600)
    old = small_disk / "startup"
    old.mkdir(mode=0o700)
    (old / "system.cfg").write_bytes(b"hostname old\n")
    (old / "system.cfg").chmod(0o600)
    agent = with_manager(**fabric.settings())
    agent.station.set(save(1, FABRIC_STARTUP))
    assert agent.fails(1) == SAVE_FAILED
    (_, address, wwn, text), = errors(agent, 1).values()
    assert (address, wwn) == (full.address, full.wwn)
    assert text == ("The disk of the switch is full: it kept its old startup "
                    "configuration.")
    assert (old / "system.cfg").read_bytes() == b"hostname old\n"
    assert set(os.listdir(old)) == {"system.cfg", "system.cfg.lock"}
    fault("Switches of the fabric", "one with a full disk",
          "row failed, saveFailed, an error row; old startup configuration "
          "kept there")


def test_local_switch_that_fails(with_manager, fabric, fault):
    fabric.add("north").start()
    agent = with_manager(**fabric.settings())
    (agent.state / "startup").mkdir(mode=0o700)
    (agent.state / "startup" / "system.cfg").mkdir(mode=0o700)
    agent.station.set(save(1, FABRIC_STARTUP))
    assert agent.fails(1) == SAVE_FAILED
    (number, (kind, address, wwn, text)), = errors(agent, 1).items()
    assert (number, kind, address) == (1, 1, "127.0.0.1")
    assert wwn == "10:00:00:05:1e:34:01:00"
    assert text.startswith("The startup configuration cannot be kept: ")
    fault("Switches of the fabric", "this one cannot keep its configuration",
          "row failed, saveFailed, an error row for it")


def test_fabric_save_aborted(with_manager, fabric):
    fabric.add("late", command="exec sleep 20").start()
    agent = with_manager(**fabric.settings(fabric_switch_seconds=30))
    agent.station.set(save(1, FABRIC_STARTUP))
    wait_for(lambda: children_of(agent.manager.pid), "the connection")
    agent.station.set(row(1, xfCopyEntryRowStatus=DESTROY))
    wait_for(lambda: not (agent.state / "save-in-progress").exists(),
             "the save to end", 5)
    nothing_left(agent)


def test_fabric_save_interrupted(with_manager, fabric, fault):
    """The rows are there after the restart: the results were kept."""
    fabric.add("good").start()
    late = fabric.add("late", command="exec sleep 20").start()
    agent = with_manager(**fabric.settings(fabric_switch_seconds=30,
                                           manager_restart_seconds=60))
    agent.station.set(save(1, FABRIC_STARTUP))
    results = agent.state / "fabric-results"
    wait_for(lambda: results.exists() and
             results.read_text().count(" done ") == 2, "two results")
    connections = children_of(agent.manager.pid)
    assert connections
    agent.manager.kill()
    wait_for(lambda: not any(os.path.exists(f"/proc/{pid}")
                             for pid in connections),
             "the connections to end with their manager", 5)
    agent.manager.start()
    assert agent.fails(1, seconds=5) == SAVE_FAILED
    rows = errors(agent, 1)
    assert [each[1:] for each in rows.values()] == [
        (late.address, late.wwn, "The save ended before this switch answered.")]
    fault("System manager", "killed during a save in the fabric, started again",
          "row failed, saveFailed, error rows of the switches that had not "
          "answered; no connection left")


def test_fabric_save_whose_manager_is_gone_for_good(with_manager, fabric,
                                                    trap_receiver, fault):
    """Nobody starts it again: the agent tells the end, and the rows are there
    without a manager."""
    good = fabric.add("good").start()
    late = fabric.add("late", command="exec sleep 20").start()
    agent = with_manager(
        f"trap2sink 127.0.0.1:{trap_receiver.port} public\n",
        **fabric.settings(fabric_switch_seconds=30, manager_restart_seconds=1))
    agent.station.set(save(1, FABRIC_STARTUP,
                           xfCopyNotificationOnCompletion=TRUE))
    results = agent.state / "fabric-results"
    wait_for(lambda: results.exists() and
             results.read_text().count(" done ") == 2, "two results")
    agent.manager.kill()
    assert agent.fails(1, seconds=10) == SAVE_FAILED
    assert wait_for(lambda: completions(trap_receiver), "the notification") \
        == [("1", str(FAILED))]
    assert [each[1:] for each in errors(agent, 1).values()] == [
        (late.address, late.wwn, "The save ended before this switch answered.")]
    assert (good.state / "startup" / "system.cfg").read_text() == \
        "hostname good\n"
    fault("System manager", "killed during a save in the fabric, not started "
          "again in time", "row failed, saveFailed, error rows of the switches "
          "that had not answered")
