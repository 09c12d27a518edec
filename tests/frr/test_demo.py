"""The demonstration with FRR: it tells its story, and leaves nothing behind."""

import os
import pathlib
import signal
import subprocess

import pytest

from routers import needed
from tools import clean_environment, wait_for

STORY = pathlib.Path(__file__).parents[2] / "scripts" / "demo" / "frr.sh"
# It has the programs of this folder, whatever is tested otherwise.
BUILD = STORY.parents[2] / "build"

pytestmark = pytest.mark.skipif(
    BUILD != pathlib.Path(os.environ["XF_TEST_BUILD"]),
    reason=f"the demonstration runs what is in {BUILD}")


def start(log):
    return subprocess.Popen([str(STORY)], stdin=subprocess.DEVNULL, stdout=log,
                            stderr=log, start_new_session=True,
                            env=clean_environment())


def family(pid):
    """A process and all that it has started."""
    try:
        with open(f"/proc/{pid}/task/{pid}/children") as children:
            return [pid, *(each for child in children.read().split()
                           for each in family(int(child)))]
    except OSError:
        return []


def name_of(pid):
    """None if it has ended: the story goes on meanwhile."""
    try:
        return pathlib.Path(f"/proc/{pid}/comm").read_text().strip()
    except OSError:
        return None


def test_story(tmp_path):
    needed()
    with open(tmp_path / "log", "w") as log:
        status = start(log).wait(300)
    told = (tmp_path / "log").read_text()
    assert status == 0, told
    assert told.endswith("\nAll of it was checked.\n")
    # With the route, without it, and with it again.
    tables = told.split("$ core ip route\n")[1:]
    shown = [table.partition("    checked:")[0] for table in tables]
    assert ["10.1.0.0/24" in table for table in shown] == [True, False, True]


def test_nothing_is_left_after_an_interruption(tmp_path):
    needed()
    log_path = tmp_path / "log"
    with open(log_path, "w") as log:
        story = start(log)
    wait_for(lambda: "\n1. " in log_path.read_text() or
             story.poll() is not None, "the story", 60)
    processes = family(story.pid)
    names = {name_of(each) for each in processes}
    assert {"zebra", "bgpd", "snmpd", "procd", "sshd"} <= names
    os.killpg(story.pid, signal.SIGINT)
    assert story.wait(30) == 130
    assert [each for each in processes
            if pathlib.Path(f"/proc/{each}").exists()] == []
    # Its folder was in its own /tmp.
    folder = log_path.read_text().partition("$ cat ")[2].partition("\n")[0]
    assert folder.endswith("/xfhost.conf")
    assert not pathlib.Path(folder).parent.exists()


def test_it_says_that_there_are_no_namespaces(tmp_path):
    unshare = tmp_path / "unshare"
    unshare.write_text("#!/bin/sh\necho unshare: not permitted >&2\nexit 1\n")
    unshare.chmod(0o755)
    done = subprocess.run(
        [str(STORY)], capture_output=True, text=True, timeout=60,
        env={**os.environ, "PATH": f"{tmp_path}:{os.environ['PATH']}"})
    assert done.returncode == 77
    assert done.stdout == ("Left out: routers need namespaces, and there are "
                           "none (unshare: not permitted).\n")
