"""Copy processes that are killed, forks that fail, descriptors that run out,
disks that are full or cannot be written, agents that are killed or hung up."""

import errno
import os
import pathlib
import resource
import signal
import subprocess
import time

import pytest

import lab
from faults import (forget, goes_on, outcome_of, saves_on, startup_to_running,
                    wait_for_copy_process, with_held_upload)
from harness import descriptors_of
from saves import RUNNING_TEXT, keep_startup, save, startup
from snmp import (CREATE_AND_WAIT, IN_PROGRESS, download, go, name, row,
                  upload)
from tftp import TftpDouble
from tools import can_run, wait_for

# The copies, and the steps of each in their order with what has to come of a
# process that is killed there.
KILLED = "row failed, unknown, nothing staged"
REPORTED = "row successful"
STEPS = {
    "upload": [
        ("birth before", "before it has done anything", KILLED),
        ("start before", "as soon as it runs", KILLED),
        ("bind before", "before it binds its handle", KILLED),
        ("bind after", "after it has bound its handle", KILLED),
        ("stage before", "before it opens the staged file", KILLED),
        ("stage after", "after it has opened the staged file", KILLED),
        ("show before", "before the configuration is shown", KILLED),
        ("show after", "after the configuration was shown", KILLED),
        ("tell before", "before it tells the system manager", KILLED),
        ("send before", "before the transfer", KILLED),
        ("send after", "after the transfer", KILLED),
        ("remove before", "before it removes the staged file", KILLED),
        ("remove after", "after it has removed the staged file", KILLED),
        ("bind-report before", "before it binds for its report", KILLED),
        ("bind-report after", "after it has bound for its report", KILLED),
        ("report before", "before its report", KILLED),
        ("report after", "after its report", REPORTED),
    ],
    "download": [
        ("fetch before", "before the transfer", KILLED),
        ("fetch after", "after the transfer", KILLED),
        ("apply before", "before the configuration is applied", KILLED),
        ("apply after", "after the configuration was applied", KILLED),
        ("remove after", "after it has removed the fetched file", KILLED),
        ("report before", "before its report", KILLED),
        ("report after", "after its report", REPORTED),
    ],
    "startup to running": [
        ("bind after", "after it has bound its handle", KILLED),
        ("apply before", "before the configuration is applied", KILLED),
        ("apply after", "after the configuration was applied", KILLED),
        ("report after", "after its report", REPORTED),
    ],
}


@pytest.mark.parametrize("copy", STEPS)
def test_copy_process_killed_at_every_step(make_agent, make_double, fault,
                                           copy):
    agent = make_agent(fault_points=True)
    double = make_double(agent)
    station = agent.station
    agent.running_config(b"hostname one\n")
    keep_startup(agent, b"hostname kept\n")
    double.files["down.cfg"] = b"hostname two\n"
    files = None
    for index, (step, words, expected) in enumerate(STEPS[copy], 1):
        agent.fault_point.write_text(step)
        station.set({
            "upload": go(upload(index, "up.cfg", double.address)),
            "download": go(download(index, "down.cfg", double.address)),
            "startup to running": startup_to_running(index)}[copy])
        outcome = outcome_of(agent, index)
        agent.idle()
        assert os.listdir(agent.staging) == [], step
        if outcome != REPORTED:
            outcome += ", nothing staged"
        assert outcome == expected, step
        fault("Copy process", f"{copy}, killed {words}", outcome)
        agent.fault_point.unlink()
        forget(agent, index)
        # Nothing of it is left in the run directory, nor in the agent.
        assert not [each for each in agent.sockets()
                    if not each.startswith(("sap.28", f"q.{agent.pid}."))]
        files = files or agent.open_files()
        assert agent.open_files() == files, step
    goes_on(agent, double)


# ---- Forks and descriptors ---------------------------------------------------

# Forks of root cannot be limited. Everything else is as root has it.
AGENTS_USER = ["setpriv", "--reuid", "64123", "--clear-groups",
               "--inh-caps", "-all,+dac_override,+dac_read_search,+fowner",
               "--ambient-caps", "-all,+dac_override,+dac_read_search,+fowner"
               ] if os.getuid() == 0 else []


def limit(agent, what, soft=None):
    """The soft limit, or that of the start; only a process of the same user
    may set it."""
    if soft is None:
        number = {"nproc": resource.RLIMIT_NPROC,
                  "nofile": resource.RLIMIT_NOFILE}[what]
        soft, _ = resource.getrlimit(number)
        soft = "unlimited" if soft == resource.RLIM_INFINITY else soft
    subprocess.run([*agent.wrapper, "prlimit", "--pid", str(agent.pid),
                    f"--{what}={soft}:"], check=True)


def test_fork_that_fails(make_agent, make_double, fault):
    if not can_run(AGENTS_USER):
        pytest.skip("root has not the rights of root")
    agent = make_agent(wrapper=AGENTS_USER)
    double = make_double(agent)
    station = agent.station
    agent.running_config(b"hostname one\n")
    goes_on(agent, double)
    files = agent.open_files()
    limit(agent, "nproc", 0)
    for index in (1, 2):  # the second is not refused: the first has ended
        station.set(go(upload(index, "up.cfg", double.address)))
        outcome = outcome_of(agent, index)
        assert outcome == "row failed, unknown"
        assert agent.log.count("a copy process could not be started") == index
    assert not double.files.get("up.cfg")
    assert agent.open_files() == files
    limit(agent, "nproc")
    fault("Fork", "fork fails (RLIMIT_NPROC), twice",
          f"SET answered noError; {outcome}, each time; "
          f"{goes_on(agent, double, 3)} once forks work")


def lowest_free(pid):
    taken = set(map(int, os.listdir(f"/proc/{pid}/fd")))
    return next(number for number in range(1024) if number not in taken)


def wait_for_sync(agent):
    """Until the history has no more open than its directory and its file."""
    wait_for(lambda: sum("/state/history" in each
                         for each in descriptors_of(agent)) <= 2,
             "the history to be on the disk")


def patient_state(agent, index):
    """While the history is synced with the last descriptor the agent refuses
    everybody: a station asks again."""
    return int(agent.station.run(
        "snmpget", "-t", "1", "-r", "30", "-Oqv", agent.station.peer,
        name("xfCopyState", index)))


@pytest.mark.parametrize("spare", [1, 3])
def test_few_descriptors_left(make_agent, make_double, fault, spare):
    """Without any, a stock agent answers nobody. A copy process has closed
    what is the agent's."""
    if lab.SANITIZED and spare == 1:
        pytest.skip("the sanitizer makes a pipe to look at an object's type")
    agent = make_agent(fault_points=True)
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    goes_on(agent, double)
    wait_for_sync(agent)
    files = agent.open_files()
    limit(agent, "nofile", lowest_free(agent.pid) + spare)
    agent.station.set(go(upload(1, "up.cfg", double.address)))
    wait_for(lambda: patient_state(agent, 1) != IN_PROGRESS, "the copy")
    agent.idle()
    limit(agent, "nofile")
    outcome = outcome_of(agent, 1)
    assert outcome == "row successful"
    wait_for_sync(agent)
    assert agent.open_files() == files
    wait_for(lambda: os.listdir(agent.staging) == [], "the staged file to go")
    fault("Descriptors", f"agent with {spare} to spare (RLIMIT_NOFILE)",
          f"{outcome}; {goes_on(agent, double)} when there are more")


# ---- A copy process killed while others work ---------------------------------

def hold_shell(agent):
    """From now on the shell waits while the file "hold" is there."""
    agent.own_programs()
    agent.replace_program("qsh", f"""\
#!/bin/sh
echo $$ >>{agent.folder}/shells
for i in $(seq 300); do
    [ -e {agent.folder}/hold ] || break
    sleep 0.1
done
exec {{real}} "$@"
""")


def shells(agent):
    """The ids of the shells that run."""
    file = agent.folder / "shells"
    pids = file.read_text().split() if file.exists() else []
    return [each for each in pids if os.path.exists(f"/proc/{each}")]


@pytest.mark.parametrize("copy", ["shown", "sent", "fetched", "applied"])
def test_copy_process_killed_in_the_middle(make_agent, make_double, fault,
                                           copy):
    agent = make_agent(prepare=hold_shell)
    double = make_double(agent)
    hold = agent.folder / "hold"
    agent.running_config(b"hostname one\n")
    double.files["down.cfg"] = b"hostname two\n"
    if copy in ("shown", "applied"):
        hold.touch()
    else:
        double.gate.clear()
    agent.station.set(go(
        upload(1, "up.cfg", double.address) if copy in ("shown", "sent") else
        download(1, "down.cfg", double.address)))
    child = wait_for_copy_process(agent)
    wait_for(lambda: shells(agent) if hold.exists() else double.requests,
             "the step")
    os.kill(child, signal.SIGKILL)
    outcome = outcome_of(agent, 1)
    assert outcome == "row failed, unknown"
    agent.idle()
    # The shell is a process of its own; what it was to read is gone.
    hold.unlink(missing_ok=True)
    double.gate.set()
    wait_for(lambda: not shells(agent), "the shell to end")
    assert agent.running_config() == b"hostname one\n"
    assert os.listdir(agent.staging) == []
    if copy == "applied":
        outcome += "; a shell that has not begun finds nothing to apply"
    fault("Copy process", "killed while the configuration is " + copy,
          f"{outcome}; {goes_on(agent, double)}")


# ---- Disks -------------------------------------------------------------------

BIG = b"! " + b"x" * 76 + b"\n"


def fill(path):
    """Leaves no room on the disk of that file."""
    with open(path, "ab", buffering=0) as filler:
        try:
            while filler.write(bytes(4096)):
                pass
        except OSError as error:
            assert error.errno == errno.ENOSPC


def test_full_staging_directory(mount_small, make_agent, make_double, fault):
    agent = make_agent(prepare=lambda agent: mount_small(agent.staging))
    double = make_double(agent)
    big = agent.running_config(BIG * 2000)
    double.files["down.cfg"] = b"hostname two\n" + BIG * 2000
    agent.station.set(go(upload(1, "up.cfg", double.address)))
    outcome = outcome_of(agent, 1)
    assert outcome == "row failed, unknown"
    assert "up.cfg" not in double.files
    agent.nothing_staged()
    fault("Disk", "staging directory full, upload",
          f"{outcome}, nothing sent, nothing left")
    agent.station.set(go(download(2, "down.cfg", double.address)))
    fetched = outcome_of(agent, 2)
    assert fetched == "row failed, noMem"
    assert agent.running_config() == big
    agent.nothing_staged()
    agent.running_config(b"hostname one\n")
    fault("Disk", "staging directory full, download",
          f"{fetched}, nothing left; {goes_on(agent, double)} with less")


def test_staging_directory_that_cannot_be_written(mount_small, make_agent,
                                                  make_double, fault):
    agent = make_agent(prepare=lambda agent: mount_small(agent.staging))
    double = make_double(agent)
    sudo = ["sudo", "-n"] if os.getuid() != 0 else []

    def remount(mode):
        subprocess.run([*sudo, "mount", "-o", f"remount,{mode}",
                        str(agent.staging)], check=True)
    agent.running_config(b"hostname one\n")
    double.files["down.cfg"] = b"hostname two\n"
    remount("ro")
    for index, (words, copy) in enumerate([("upload", upload),
                                           ("download", download)], 1):
        agent.station.set(go(copy(index, "down.cfg", double.address)))
        outcome = outcome_of(agent, index)
        assert outcome == "row failed, unknown"
        agent.nothing_staged()
        fault("Disk", f"staging directory read-only, {words}", outcome)
    assert double.requests == []
    assert agent.running_config() == b"hostname one\n"
    remount("rw")
    goes_on(agent, double)


def test_state_directory_full(mount_small, make_agent, make_double, fault):
    """Copies are staged there, too."""
    agent = make_agent(prepare=lambda agent: mount_small(agent.state))
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    fill(agent.state / "filler")
    agent.station.set(go(upload(1, "up.cfg", double.address)))
    outcome = outcome_of(agent, 1)
    assert outcome == "row failed, unknown"
    assert double.requests == []
    agent.nothing_staged()
    assert "accounting record lost: No space left on device" in agent.log
    (agent.state / "filler").unlink()
    fault("Disk", "state directory full, upload",
          f"{outcome}, nothing sent, nothing left, no accounting record, "
          f"which is logged; {goes_on(agent, double)} with more room")


def test_state_directory_full_but_for_copies(mount_small, make_agent,
                                             make_double, fault):
    """Trace history and records are lost, copies are not."""
    def prepare(agent):
        mount_small(agent.state)
        mount_small(agent.staging)
    agent = make_agent(prepare=prepare)
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    fill(agent.state / "filler")
    outcome = goes_on(agent, double)
    assert "accounting record lost: No space left on device" in agent.log
    fault("Disk", "state directory full, staging directory on a disk of its "
          "own, upload",
          f"row successful, no accounting record, which is logged; {outcome}")
    double.files["down.cfg"] = b"hostname two\n" + b"".join(
        b"vlan %d\n" % number for number in range(1, 3000))
    agent.station.set(go(download(1, "down.cfg", double.address)))
    outcome = outcome_of(agent, 1)
    assert outcome == "row failed, unknown"
    assert agent.running_config() == b"hostname one\n"
    fault("Disk", "state directory full, staging directory on a disk of its "
          "own, configuration applied",
          f"{outcome}, running configuration unchanged")


@pytest.mark.parametrize("damage, words", [
    (b"hostname t", "cut off"), (b"", "emptied"), (None, "gone")])
def test_damaged_running_configuration(with_manager, make_double, fault,
                                       damage, words):
    """It goes nowhere: not to a server, not to the startup one."""
    agent = with_manager()
    double = make_double(agent)
    double.files["down.cfg"] = b"hostname two\n"
    agent.station.set(go(download(1, "down.cfg", double.address)))
    agent.succeeds(1)
    saves_on(agent)
    before = startup(agent)
    file = agent.state / "running-config"
    file.unlink() if damage is None else file.write_bytes(damage)
    crash = f"running configuration {words} by a crash"
    for what, copy, expected in (
            ("upload", go(upload(2, "up.cfg", double.address)),
             "row failed, unknown"),
            ("save", save(2), "row failed, saveFailed"),
            ("download", go(download(2, "down.cfg", double.address)),
             "row failed, unknown")):
        agent.station.set(copy)
        assert outcome_of(agent, 2) == expected
        forget(agent, 2)
        assert startup(agent) == before
        assert agent.running_config() == (damage or b"")
        fault("Disk", f"{crash}, {what}",
              f"{expected}, startup configuration unchanged")
    assert "up.cfg" not in double.files
    agent.nothing_staged()
    assert "running-config is damaged" in agent.log
    subprocess.run([lab.BUILD / "root/brim/bin/qsh", "-c",
                    "accept running-config"], check=True,
                   env=agent.environment())
    agent.station.set(go(download(3, "down.cfg", double.address)))
    agent.succeeds(3)
    assert agent.running_config().startswith(b"hostname two\n")
    fault("Disk", f"{crash}, accepted", goes_on(agent, double))


def test_save_on_a_full_disk(mount_small, with_manager, fault):
    def prepare(agent):
        mount_small(agent.state / "startup")
    agent = with_manager(prepare=prepare)
    old = keep_startup(agent, b"hostname old\n")
    agent.running_config(BIG * 2000)
    agent.station.set(save(1))
    outcome = outcome_of(agent, 1)
    assert outcome == "row failed, saveFailed"
    assert startup(agent) == old
    assert set(os.listdir(agent.state / "startup")) == {"system.cfg",
                                                        "system.cfg.lock"}
    agent.running_config(b"hostname one\n")
    fault("Disk", "startup directory full, save", f"{outcome}, old startup "
          f"configuration kept; {saves_on(agent)} with less")


# The agent sees another /tmp, with the folders of the old one that it needs.
OTHER_TMP = """
new=$1 needed=$2
shift 2
for each in $needed; do
    mkdir -p "$new/$each" && mount --rbind "/tmp/$each" "$new/$each" || exit
done
mount --rbind "$new" /tmp && exec "$@"
"""


def test_results_file_on_a_full_disk(mount_small, make_agent, make_double,
                                     tmp_path, fault):
    small = mount_small(tmp_path / "tmp")
    needed = {pathlib.Path(each).parts[2]
              for each in (tmp_path, lab.BUILD, lab.MODULE)
              if str(each).startswith("/tmp/")}
    for each in needed:
        (small / each).mkdir()
    wrapper = ["unshare", "-m", "sh", "-c", OTHER_TMP, "sh", str(small),
               " ".join(needed)]
    if not can_run(["unshare", "-m"]):
        pytest.skip("only root has a view of the disks of its own")
    fill(small / "filler")
    agent = make_agent(wrapper=wrapper)
    double = make_double(agent)
    double.files["down.cfg"] = b"hostname two\nflux on\n"
    agent.station.set(go(download(1, "down.cfg", double.address)))
    outcome = outcome_of(agent, 1)
    assert outcome == "row failed, someConfigApplyFailed"
    assert agent.running_config() == b"hostname two\n"
    assert "qsh: /tmp/configcopy.txt: No space left on device" in agent.log
    assert set(os.listdir(small)) == needed | {"filler"}
    fault("Disk", "disk of the results file full, one line refused",
          f"{outcome}, the other lines applied, as with more room; logged")


# ---- Agents that are killed --------------------------------------------------

def kill_agent(agent):
    agent.signal(signal.SIGKILL)
    agent.process.wait()


def test_agent_killed_during_a_copy(make_agent, make_double, fault):
    agent, double, child = with_held_upload(make_agent, make_double)
    kill_agent(agent)
    # On the same port, while the copy process still works.
    agent.start()
    assert agent.station.rows() == []
    assert os.path.exists(f"/proc/{child}")
    # Its server holds this copy, too, until the gate opens for both.
    agent.station.set(go(upload(7, "held.cfg", double.address)))
    wait_for(lambda: sorted(agent.staged()) == ["held.cfg", "up.cfg"],
             "the second transfer")
    double.gate.set()
    wait_for(lambda: not os.path.exists(f"/proc/{child}"), "the copy process")
    assert double.files["up.cfg"] == b"hostname one\n"
    agent.succeeds(7)
    assert double.files["held.cfg"] == b"hostname one\n"
    wait_for(lambda: os.listdir(agent.staging) == [], "the staged files to go")
    forget(agent, 7)
    fault("Agent", "killed during a copy and started again on its port while "
          "the copy process works, and asked for another copy",
          "both copies are done, each report reaches its own agent or none, "
          "nothing is left; " + goes_on(agent, double))


def test_second_agent_in_the_same_folders(make_agent, make_double, with_manager,
                                          fault):
    """The access point is the first one's, and so are all reports."""
    first = with_manager()
    second = make_agent(prepare=lambda agent: agent.settings.update(
        run_directory=first.run_directory, tftp_port=first.tftp_port))
    second.explains = False  # the history is the first one's, too
    double = make_double(first)
    double.gate.clear()
    first.station.set(go(upload(1, "first.cfg", double.address)))
    wait_for(lambda: double.requests, "the transfer")
    second.station.set(go(upload(1, "second.cfg", double.address)))
    outcome = outcome_of(second, 1)
    assert outcome == "row failed, unknown"
    second.station.set(save(2))
    assert outcome_of(second, 2).startswith("row failed")
    assert f"access point 28: process {first.pid} has it; there are no " \
        "copies" in second.log
    assert first.station.get("xfCopyState", 1) == IN_PROGRESS
    double.gate.set()
    first.succeeds(1)
    forget(first, 1)
    assert double.requests == ["first.cfg"]
    assert startup(first) is None
    goes_on(first, double)
    saves_on(first)
    fault("Agent", "a second one in the same run directory, asked for a copy "
          "and for a save",
          f"{outcome}, at once, both, and logged; nothing sent, nothing saved; "
          "the first one's copy is done")
    first.stop()
    second.running_config(b"hostname second\n")
    fault("Agent", "a second one in the same run directory, when the first "
          "has ended", goes_on(second, double))
    second.stop()
    first.start()
    second.start()


def test_sigchld_ignored(make_agent, make_double, fault):
    """As by a supervisor that does not want to wait."""
    agent = make_agent(wrapper=["env", "--ignore-signal=CHLD"])
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    keep_startup(agent, b"hostname kept\n")
    double.files["down.cfg"] = b"hostname two\n"
    agent.station.set(go(download(1, "down.cfg", double.address)))
    outcome = outcome_of(agent, 1)
    assert outcome == "row successful"
    assert agent.running_config() == b"hostname two\n"
    agent.station.set(startup_to_running(2))
    assert outcome_of(agent, 2) == outcome
    assert agent.running_config() == b"hostname kept\n"
    fault("Agent", "started with SIGCHLD ignored", f"{outcome}, the "
          f"configuration is applied; {goes_on(agent, double)}")


def test_what_a_copy_process_keeps_of_the_agent(make_agent, make_double):
    agent, double, child = with_held_upload(make_agent, make_double)

    def links(pid):
        folder = f"/proc/{pid}/fd"
        return {number: os.readlink(f"{folder}/{number}")
                for number in os.listdir(folder)}
    agents, kept = set(links(agent.pid).values()), links(child)
    assert kept["0"] == "/dev/null"
    shared = {link for number, link in kept.items()
              if int(number) > 2 and link in agents}
    assert not [each for each in shared if each.startswith("socket:")]
    assert not [each for each in shared if not each.startswith("/")
                and not each.startswith("pipe:")]
    double.gate.set()
    agent.succeeds(1)


def test_report_of_a_copy_process_of_the_agent_before(make_agent, make_double,
                                                      fault):
    """It comes while a copy of the new agent runs, and must not end that."""
    agent, double, child = with_held_upload(make_agent, make_double)
    kill_agent(agent)
    agent.start()
    other = TftpDouble("127.0.0.5", agent.tftp_port)
    try:
        other.gate.clear()
        agent.station.set(go(upload(7, "held.cfg", other.address)))
        wait_for(lambda: other.requests, "the second transfer")
        double.gate.set()
        wait_for(lambda: not os.path.exists(f"/proc/{child}"),
                 "the copy process")
        agent.answers()
        time.sleep(0.2)
        assert agent.station.get("xfCopyState", 7) == IN_PROGRESS
        assert "a report of process" in agent.log
        other.gate.set()
        agent.succeeds(7)
        assert other.files["held.cfg"] == b"hostname one\n"
    finally:
        other.gate.set()
        other.close()
    forget(agent, 7)
    fault("Agent", "a copy process of the agent before it reports",
          "logged and dropped, the copy of the new agent runs on; " +
          goes_on(agent, double))


def test_agent_killed_with_its_copy_process(make_agent, make_double, fault):
    agent = make_agent()
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    double.files["down.cfg"] = b"hostname two\n" * 1000
    double.stop_after = 5
    agent.station.set(go(download(1, "down.cfg", double.address)))
    child = wait_for_copy_process(agent)
    wait_for(lambda: double.requests, "the transfer")
    kill_agent(agent)
    os.kill(child, signal.SIGKILL)
    wait_for(lambda: not os.path.exists(f"/proc/{child}"), "the copy process")
    double.stop_after = None
    agent.start()
    assert os.listdir(agent.staging) == []
    assert agent.running_config() == b"hostname one\n"
    fault("Agent", "killed with its copy process in the middle of a download",
          "no part of the file, no rows; " + goes_on(agent, double))


def test_agent_killed_during_a_save(with_manager, fault):
    agent = with_manager(save_delay_seconds=2)
    keep_startup(agent, b"hostname old\n")
    agent.station.set(save(1))
    assert agent.station.get("xfCopyState", 1) == IN_PROGRESS
    kill_agent(agent)
    agent.start()
    assert agent.station.rows() == []
    wait_for(lambda: startup(agent) == RUNNING_TEXT,
             "the save to end")
    wait_for(lambda: not (agent.state / "save-in-progress").exists(),
             "the note to go")
    # The end of that save must not end another one.
    agent.running_config(b"hostname new\n")
    fault("Agent", "killed during a save and started again",
          "the save is done to its end; no rows; " + saves_on(agent))


# ---- SIGHUP ------------------------------------------------------------------

HANGUPS = 300


LOADS = 20  # at least: those that come while one is served are one


def loads(agent):
    return agent.log.count("NET-SNMP version")


def storm(agent):
    before = loads(agent)
    for _ in range(HANGUPS):
        agent.signal(signal.SIGHUP)
        time.sleep(0.002)

    def one_more():
        agent.signal(signal.SIGHUP)
        return loads(agent) >= before + LOADS
    wait_for(one_more, "the agent to start over", 60)


def test_hundreds_of_hangups(make_agent, make_double, fault):
    agent = make_agent(movable_clock=True)
    double = make_double(agent)
    agent.running_config(b"hostname one\n")
    agent.station.set(row(7, xfCopyEntryRowStatus=CREATE_AND_WAIT))
    double.gate.clear()
    agent.station.set(go(upload(1, "up.cfg", double.address)))
    wait_for(lambda: double.requests, "the transfer")
    for _ in range(3):
        agent.hang_up()
    files, memory = agent.open_files(), agent.resident_kib()
    storm(agent)
    wait_for(agent.answers, "the agent to answer")
    assert agent.station.get("xfCopyState", 1) == IN_PROGRESS
    double.gate.set()
    agent.succeeds(1)
    agent.idle()
    assert agent.station.rows() == [1, 7]
    print(f"{loads(agent)} loads, {files} and {agent.open_files()} files, "
          f"{memory} and {agent.resident_kib()} KiB")
    assert agent.open_files() <= files
    if not lab.SANITIZED:  # which keeps what is freed
        assert agent.resident_kib() < memory + 1024
    # A step of the clock moves the rows once, so there is one callback.
    agent.set_clock(-1000)
    agent.pass_time(101)
    assert agent.station.rows() == [1, 7]
    agent.set_clock(2000)
    agent.pass_time(101)
    assert agent.station.rows() == [1, 7]
    fault("Agent", f"more than {HANGUPS} SIGHUPs while a copy runs",
          "rows stay, the copy ends successful, one callback, no more files "
          f"open, less than 1 MiB more memory; {goes_on(agent, double)}")
