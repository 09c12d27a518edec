"""xfcopy on a terminal: the line that changes, questions, the password; and
what documents it."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

import pytest

from command import (CANCELLED, DONE, USAGE, Terminal, Xfcopy, result_of)
from lab import BUILD
from snmp import IN_PROGRESS, v3_user
from tools import wait_for
from transfer_servers import PASSWORD, USER, Servers, needs_servers

SOURCES = pathlib.Path(__file__).resolve().parents[2] / "xfcopy"
RUNNING_TEXT = b"hostname one\nvlan 7\n"
URL = "tftp://127.0.0.3/a-rather-long-name-of-a-file.cfg"
INTERRUPT = "\x03"
QUESTION = "Leave the copy running? [y/N] "


@pytest.fixture
def command(agent, tmp_path):
    agent.running_config(RUNNING_TEXT)
    return Xfcopy(tmp_path, agent)


@pytest.fixture
def on_terminal():
    """Starts the command on a terminal."""
    started = []

    def start(*arguments, **more):
        started.append(Terminal(*arguments, **more))
        return started[-1]
    yield start
    for each in started:
        each.close()


@pytest.fixture
def held(command, double, on_terminal):
    """A copy that runs on a terminal until the gate is opened."""
    double.gate.clear()

    def start(*words, **more):
        terminal = on_terminal(command, "@", "running", URL, "--index=5",
                               *words, **more)
        wait_for(lambda: (terminal.read(), double.requests)[1], "the transfer")
        return terminal
    yield start
    double.gate.set()
    command.agent.idle()


def lines_of(text):
    """What each line that is drawn over another one showed."""
    return re.findall("\r([^\r\n]*?)\x1b\\[K", text)


@pytest.mark.parametrize("columns", [40, 80, 12])
def test_line_fits_the_window(held, double, columns):
    terminal = held(columns=columns)
    terminal.expect("running"[:max(1, columns - 12)])
    wait_for(lambda: (terminal.read(), len(lines_of(terminal.text)) > 4)[1],
             "some lines")
    double.gate.set()
    assert terminal.end() == DONE
    drawn = lines_of(terminal.text)
    assert all(len(line) < columns for line in drawn)
    assert {len(line) for line in drawn} <= {0, columns - 1, len(
        f"0.0 s  running  running to {URL}")}
    # On a slow machine the octets are seen, too, for which 80 are too few.
    assert any("..." in line for line in drawn if "octets" not in line) == \
        (columns < 80)
    # The last one is taken away before the result is printed.
    before, _, after = terminal.text.rpartition("\r\x1b[K")
    assert before and f"copied running to {URL}" in after


def test_window_that_becomes_smaller(held, double):
    terminal = held(columns=120)
    terminal.expect(f"running to {URL}\x1b[K")
    terminal.resize(30)
    terminal.expect("...\x1b[K")
    double.gate.set()
    assert terminal.end() == DONE


def test_dumb_terminal(command, held, double):
    command.more = {"TERM": "dumb"}
    terminal = held()
    time.sleep(0.5)
    double.gate.set()
    assert terminal.end() == DONE
    assert "\x1b" not in terminal.text
    assert len(terminal.text.splitlines()) == 3


@pytest.mark.parametrize("word", ["--json", "--quiet"])
def test_no_line_for_programs(held, double, word):
    terminal = held(word)
    time.sleep(0.5)
    double.gate.set()
    assert terminal.end() == DONE
    assert "\x1b" not in terminal.text


def test_no_terminal(make_agent, make_double, tmp_path):
    """A line now and then."""
    agent = make_agent(tftp_packet_seconds=60)
    command, double = Xfcopy(tmp_path, agent), make_double(agent)
    double.gate.clear()
    process = command.start("@", "running", URL)
    wait_for(lambda: double.requests, "the transfer")
    time.sleep(10.8)
    double.gate.set()
    result = result_of(process)
    assert result.status == DONE and "\x1b" not in result.out
    lines = result.out.splitlines()
    assert len(lines) == 4 and re.match(r"1[01]\.\d s  running  ", lines[1])


def test_interrupt_and_leave(command, held, double):
    terminal = held()
    terminal.type(INTERRUPT)
    terminal.expect(QUESTION)
    terminal.type("y\n")
    assert terminal.end() == CANCELLED
    assert "the copy goes on, in row 5" in terminal.text
    station = command.agent.station
    assert station.get("xfCopyState", 5) == IN_PROGRESS
    double.gate.set()
    command.agent.succeeds(5)


@pytest.mark.parametrize("answer", ["n\n", "\n", INTERRUPT, "\x04", "ny\n"])
def test_interrupt_and_cancel(command, held, answer):
    terminal = held()
    terminal.type(INTERRUPT)
    terminal.expect(QUESTION)
    terminal.type(answer)
    assert terminal.end() == CANCELLED
    assert terminal.text.count(QUESTION) == 1
    assert "goes on in the switch" in terminal.text
    assert command.agent.station.rows() == []


def test_copy_ends_during_the_question(command, held, double):
    terminal = held()
    terminal.type(INTERRUPT)
    terminal.expect(QUESTION)
    double.gate.set()
    command.agent.succeeds(5)
    terminal.type("n\n")
    assert terminal.end() == DONE
    assert "copied running to" in terminal.text
    assert command.agent.station.rows() == []


def test_terminal_that_goes_away(command, held):
    """SIGHUP: nobody is asked."""
    terminal = held()
    terminal.process.send_signal(signal.SIGHUP)
    assert terminal.end() == CANCELLED
    assert QUESTION not in terminal.text
    assert command.agent.station.rows() == []


@needs_servers
def test_password_is_asked_for(make_agent, on_terminal, tmp_path):
    servers = Servers()
    try:
        server = servers.ftp()
        agent = make_agent(ftp_port=server.port)
        agent.running_config(RUNNING_TEXT)
        command = Xfcopy(tmp_path, agent, v3_user("alice", "alice-password"))
        terminal = on_terminal(command, "@", "running",
                               f"ftp://{USER}@127.0.0.2/a")
        terminal.expect(f"Password of {USER}@127.0.0.2: ")
        assert not terminal.echoes()
        terminal.type(PASSWORD + "\n")
        assert terminal.end() == DONE
        assert PASSWORD not in terminal.text
        assert server.content("a") == RUNNING_TEXT
    finally:
        servers.stop()


@pytest.mark.parametrize("typed, status", [
    (INTERRUPT, CANCELLED), ("\x04", USAGE), ("\n", USAGE),
    ("x" * 42 + "\n", USAGE)])
def test_no_password(command, on_terminal, typed, status):
    terminal = on_terminal(command, "@", "running", "ftp://joe@127.0.0.2/a")
    terminal.expect("Password of joe@127.0.0.2: ")
    wait_for(lambda: not terminal.echoes(), "silence")
    terminal.type(typed)
    assert terminal.end() == status
    assert terminal.echoes()
    assert command.agent.station.rows() == []


# ---- Documents --------------------------------------------------------------


def xfcopy(*words):
    return subprocess.run([BUILD / "xfcopy" / "xfcopy", *words],
                          capture_output=True, text=True).stdout


def existing_options():
    found = set(re.findall(r"^  (--[a-z-]+)", xfcopy("--help"), re.M))
    assert len(found) > 10
    return found


def existing_commands():
    lines = re.findall(r"^       xfcopy ([a-z|]+) ", xfcopy("--help"), re.M)
    return {each for line in lines for each in line.split("|")}


def manual():
    text = (SOURCES / "xfcopy.1").read_text()
    return text.replace("\\-", "-")


def test_every_option_is_in_the_manual():
    options = manual().partition(".SH OPTIONS")[2].partition(".SS Options of")[0]
    documented = set(re.findall(r"^\.B[IR]? (--[a-z-]+)", options, re.M))
    assert documented == existing_options()
    assert set(re.findall(r"--[a-z-]+", manual())) == existing_options()


def test_every_command_is_in_the_manual():
    assert existing_commands() == {"list", "show", "cancel", "errors",
                                   "history"}
    assert set(re.findall(r"^\.B xfcopy ([a-z]+)$",
                          manual().partition(".SH DESCRIPTION")[0], re.M)) == \
        existing_commands()


def test_every_exit_status_is_in_the_manual():
    text = (SOURCES / "words.h").read_text()
    known = re.findall(r"^    ([a-z_]+) = (\d+)", text, re.M)
    assert len(known) == 11
    documented = re.findall(r'^\.BR (\d+) " \(([a-z-]+)\)"$', manual(), re.M)
    assert [(name, number) for number, name in documented] == \
        [(name.replace("_", "-"), number) for name, number in known]


@pytest.mark.parametrize("checker", [
    ["mandoc", "-T", "lint"], ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8"]])
def test_manual_is_clean(checker):
    if not shutil.which(checker[0]):
        pytest.skip(f"{checker[0]} is not installed")
    done = subprocess.run([*checker, str(SOURCES / "xfcopy.1")],
                          capture_output=True, text=True,
                          env={"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8"})
    problems = done.stdout + done.stderr if checker[0] == "mandoc" \
        else done.stderr
    assert (done.returncode, problems) == (0, "")


def completed(*words):
    """What bash offers for the last of the words."""
    line = " ".join(f"'{each}'" for each in ("xfcopy", *words))
    done = subprocess.run(
        ["bash", "--norc", "-c",
         f"source {SOURCES}/xfcopy.bash; COMP_WORDS=({line}); "
         f"COMP_CWORD={len(words)}; _xfcopy; "
         'printf "%s\\n" "${COMPREPLY[@]}"'], capture_output=True, text=True)
    assert done.returncode == 0 and done.stderr == ""
    return set(done.stdout.split("\n")) - {""}


def test_completion_for_bash():
    assert completed("--") == existing_options()
    assert completed("--no") == {"--no-wait", "--notify"}
    assert completed("sw1", "r") == {"running "}
    assert completed("sw1", "running", "t") == {"tftp://"}
    assert completed("l") == {"list "}
    assert completed("sw1", "l") == set()
    assert existing_commands() < {each.strip() for each in completed("")}
    assert completed("-l", "auth") == {"authNoPriv", "authPriv"}
    assert completed("--vrf", "r") == set()


def test_completion_for_zsh():
    text = (SOURCES / "_xfcopy").read_text()
    assert set(re.findall(r"'(--[a-z-]+)\[", text)) == existing_options()
    commands = re.search(r"commands=\((.*)\)", text)[1].split()
    assert set(commands) == existing_commands() | {"copy"}
    if not shutil.which("zsh"):
        pytest.skip("zsh is not installed: only the words were looked at")
    done = subprocess.run(["zsh", "-n", str(SOURCES / "_xfcopy")],
                          capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, "")
