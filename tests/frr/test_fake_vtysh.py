"""A vtysh that does not behave: never a configuration, never a hang, and a
word of why. No router is needed."""

import pathlib
import re
import subprocess
import time

import pytest

from routers import APPLIED, FAILED, QSH, SOME_FAILED
from tools import clean_environment, wait_for

BODY = r" zebra staticd\nfrr version 8.4.4\nhostname r\n!\nend\n zebra staticd\n"
GOOD = f"printf '{BODY}'"
LINE = "ip route 10.1.0.0/24 blackhole"

# What it does when it is asked to show, and what is said of it.
SHOWS = {
    "nothing": ("true", "what vtysh printed has no end"),
    "noise": ("head -c 100000 /dev/urandom", "vtysh"),
    "another text": ("echo hello", "did not say which daemons"),
    "no line end": ("printf ' zebra staticd'", "has no end"),
    "half of it": (r"printf ' zebra staticd\nfrr version 8.4.4\nhostn'",
                   "has no end"),
    "no end": (f"printf '{BODY}' | grep -v end", "has no end"),
    "nothing behind": (f"printf '{BODY}' | head -n 5",
                       "did not say which daemons"),
    "no configuration": (r"printf ' zebra staticd\nx\nend\n zebra staticd\n'",
                         "no configuration"),
    "a NUL": (f"printf '{BODY}' | tr r '\\0'", "vtysh"),
    "a complaint": (r"printf 'vtysh: error reading from bgpd\n'; " + GOOD,
                    "error reading from bgpd"),
    "words beside it": (f"echo 'Warning: x' >&2; {GOOD}", "Warning: x"),
    "noise beside it": (f"head -c 1000 /dev/urandom >&2; {GOOD}", "vtysh"),
    "a daemon less": (f"printf '{BODY}' | sed '1s/staticd//'",
                      "no answer from staticd"),
    "a daemon less afterwards": (f"printf '{BODY}' | sed '5,$s/staticd//'",
                                 "no answer from staticd"),
    "without end": ("exec yes", "was ended by signal 25 or did not end in time"),
    "bad status": (f"{GOOD}; exit 3", "status 3"),
    "killed": (f"{GOOD}; kill -SEGV $$", "was ended by signal 11"),
    "hangs": (f"{GOOD}; sleep 1000", "did not end in time"),
    "hangs, unmoved": (f"trap '' TERM HUP INT; {GOOD}; sleep 1000 & wait",
                       "did not end in time"),
}

# What it does of the check, of applying, and of the show after that.
APPLIES = {
    "check hangs": ("sleep 1000", "true", GOOD, FAILED, "nothing was applied"),
    "check is killed": ("kill -KILL $$", "true", GOOD, FAILED,
                        "nothing was applied"),
    "check says noise": ("head -c 5000 /dev/urandom >&2; exit 1", "true", GOOD,
                         FAILED, "nothing was applied"),
    "line numbers": ("for n in 0 -1 9 99999999999999999999 1x; do "
                     "echo line $n: % no >&2; done; exit 2", "true", GOOD,
                     FAILED, "nothing was applied"),
    "hangs": ("true", "sleep 1000", GOOD, FAILED, "in part"),
    "killed": ("true", "kill -SEGV $$", GOOD, FAILED, "in part"),
    "too much beside it": ("true", "exec yes >&2", GOOD, FAILED, "in part"),
    "cut off": ("true", "echo 'line 1: Failure to comm' >&2; exit 13", GOOD,
                SOME_FAILED, "refused by"),
    "says done, is not": ("true", "true", GOOD, SOME_FAILED,
                          "not in the configuration afterwards"),
    "no show afterwards": ("true", "true", "sleep 1000", FAILED, "in part"),
}

FAKE = """\
#!/bin/bash
echo $$ >>{folder}/started
case "$1" in
    -C) {check} ;;
    -f) touch {folder}/sent; {send} ;;
    -c) if [ -e {folder}/sent ]; then {after}
        else {show}
        fi ;;
    *) exit 1 ;;
esac
"""


class Fake:
    def __init__(self, folder):
        self.folder = folder
        for name in ("run", "state"):
            (folder / name).mkdir(mode=0o700)

    def qsh(self, *arguments, **parts):
        vtysh = self.folder / "vtysh"
        parts = {"check": "true", "send": "true", "show": GOOD, "after": GOOD,
                 **parts}
        vtysh.write_text(FAKE.format(folder=self.folder, **parts))
        vtysh.chmod(0o755)
        began = time.monotonic()
        done = subprocess.run(
            [QSH, *arguments], timeout=60, capture_output=True,
            env=clean_environment({
                "backend": "frr", "root": QSH.parents[2], "vtysh_seconds": 1,
                "apply_seconds": 2, "vtysh_program": vtysh,
                "state_directory": self.folder / "state",
                "run_directory": self.folder / "run",
                "frr_directory": self.folder, "frr_daemons": "zebra staticd"}))
        assert time.monotonic() - began < 30
        words = done.stderr.decode()
        assert words == "" or words.startswith("qsh: ") and len(words) < 1200
        return done.returncode, done.stdout.decode(), words

    def apply(self, **parts):
        given, results = self.folder / "given", self.folder / "results"
        given.write_text(LINE + "\n")
        status, _, words = self.qsh("--apply", given, results, **parts)
        return status, words + (results.read_text() if results.exists() else "")

    def ended(self):
        """Whether nothing is left: each vtysh led a session of its own."""
        leaders = (self.folder / "started").read_text().split()
        for status in pathlib.Path("/proc").glob("[0-9]*/stat"):
            try:
                state, _, _, session = \
                    status.read_text().rpartition(")")[2].split()[:4]
            except (FileNotFoundError, ProcessLookupError):
                continue
            if session in leaders and state != "Z":
                return False
        return True


@pytest.fixture
def fake(tmp_path):
    return Fake(tmp_path)


def test_one_that_behaves(fake):
    status, text, words = fake.qsh("-c", "show running-config")
    assert (status, words) == (0, "")
    assert text == "frr version 8.4.4\nhostname r\n!\nend\n"
    after = GOOD.replace("!", LINE)
    assert fake.apply(after=after) == (APPLIED, "")


@pytest.mark.parametrize("kind", SHOWS)
def test_show(fake, kind, fault):
    what, reason = SHOWS[kind]
    status, text, words = fake.qsh("-c", "show running-config", show=what)
    assert (status, text) == (FAILED, "")
    assert re.search(reason.replace(" or ", "|"), words)
    wait_for(fake.ended, "what it started to end", 5)
    status, _, words = fake.qsh("-c", "copy running-config startup-config",
                                show=what)
    assert status == FAILED and words
    assert not (fake.folder / "frr.conf").exists()
    assert list((fake.folder / "state").rglob("system.cfg")) == []
    fault("FRR", f"vtysh shows: {kind}", "no configuration, nothing is saved; "
          f'"{reason}"')


@pytest.mark.parametrize("kind", APPLIES)
def test_apply(fake, kind, fault):
    check, send, after, expected, reason = APPLIES[kind]
    status, words = fake.apply(check=check, send=send, after=after)
    assert status == expected
    assert reason in words
    assert (fake.folder / "sent").exists() == (check == "true")
    wait_for(fake.ended, "what it started to end", 5)
    fault("FRR", f"vtysh applies: {kind}", f'fails, "{reason}"')


def test_none(fake, fault):
    for program in ("/usr/bin/no-vtysh", str(fake.folder)):
        done = subprocess.run(
            [QSH, "-c", "show running-config"], capture_output=True, text=True,
            env=clean_environment({
                "backend": "frr", "root": QSH.parents[2],
                "run_directory": fake.folder / "run",
                "state_directory": fake.folder / "state",
                "vtysh_program": program}))
        assert (done.returncode, done.stdout) == (FAILED, "")
        assert program in done.stderr
    fault("FRR", "there is no vtysh, or it is a folder",
          "no configuration; the error names it")
