"""The makers' suite: what it includes, that this tree's library passes it, and
that a wrong library fails by the test which names the fault."""

import json
import os
import pathlib
import re
import subprocess

SUITE = pathlib.Path(__file__).resolve().parent / "suite"
BUILD = pathlib.Path(os.environ["XF_TEST_BUILD"])

# What a maker of a switch has beside the headers. Net-SNMP's are those of the
# main loop that the agent turns.
SYSTEM = re.compile(r"gtest/gtest\.h|[a-z_]+|(arpa|netinet|sys)/[a-z_]+\.h|"
                    r"(dlfcn|elf|fcntl|getopt|link|poll|spawn|unistd)\.h|"
                    r"net-snmp/library/fd_event_manager\.h")

# Only an agent that serves requests can show it.
NOT_HERE = {"AgentExt.WhoAsksInARequest"}


def test_includes():
    """Nothing of this tree but the headers and the suite itself."""
    own = {each.name for each in SUITE.iterdir()} | {"calls.inc"}
    seen = set()
    for file in SUITE.glob("*.[ch]*"):
        for quoted, system in re.findall(
                r'^#\s*include\s+(?:"(.*)"|<(.*)>)', file.read_text(), re.M):
            seen.add(quoted)
            assert not system or SYSTEM.fullmatch(system), (file, system)
            assert not quoted or quoted in own or \
                re.fullmatch(r"platform/[a-z_]+\.h", quoted), (file, quoted)
    assert {f"platform/{each}" for each in (
        "ordset.h", "ipcbus.h", "tftp.h", "agent_ext.h")} <= seen


def test_includes_every_header():
    platform = SUITE.parents[2] / "platform"
    text = "".join(each.read_text() for each in SUITE.glob("*_test.cpp"))
    beneath = {"layout.h", "visibility.h"}  # included by the others
    for header in platform.glob("*.h"):
        assert header.name in beneath or \
            f'#include "platform/{header.name}"' in text, header.name


def run(folder, *options):
    """Names of the tests that passed, failed and were skipped."""
    for name in ("run", "state"):
        (folder / name).mkdir(mode=0o700)
    (folder / "host.conf").touch()
    (folder / "state/fabric-results").write_text(
        "100000051e340101 remote failed 192.0.2.2 It is down.\n"
        "100000051e340102 local failed 192.0.2.1 No room.\n")
    (folder / "state/fabric-results").chmod(0o600)
    environment = {name: value for name, value in os.environ.items()
                   if not name.startswith("XF_")}
    environment |= {
        "XF_CONFIG": str(folder / "host.conf"), "XF_ROOT": str(BUILD / "root"),
        "XF_RUN_DIRECTORY": str(folder / "run"),
        "XF_STATE_DIRECTORY": str(folder / "state"), "XF_CHASSIS_TYPE": "40",
        "XF_MANAGEMENT_INTERFACE": "lo",
        "XF_SWITCH_WWN": "10:00:00:05:1e:34:01:02"}
    done = subprocess.run(
        [os.environ["XF_TEST_SUITE"],
         f"--library={os.environ['XF_TEST_PLATFORM']}", *options,
         f"--gtest_output=json:{folder / 'result.json'}"],
        env=environment, capture_output=True, text=True, errors="replace",
        timeout=100)
    print(done.stdout, done.stderr)
    suites = json.loads((folder / "result.json").read_text())["testsuites"]
    outcome = {"passed": set(), "failed": set(), "skipped": set()}
    for test in (each for suite in suites for each in suite["testsuite"]):
        kind = "failed" if "failures" in test else \
            "skipped" if test["result"] == "SKIPPED" else "passed"
        outcome[kind].add(f"{test['classname']}.{test['name']}")
    assert done.returncode == (1 if outcome["failed"] else 0)
    return outcome


def test_ours(tmp_path):
    outcome = run(tmp_path, f"--manager={BUILD / 'root/brim/bin/procd'}",
                  "--accepted=hostname one", "--refused=no such command",
                  "--vrf=management", "--failed-switches=2")
    assert not outcome["failed"]
    assert outcome["skipped"] == NOT_HERE
    assert len(outcome["passed"]) > 60


def fails_by(tmp_path, test):
    outcome = run(tmp_path)
    assert outcome["failed"] == {test}


def test_next_skips(tmp_path):
    fails_by(tmp_path, "Ordset.TheNextIsTheFirstBehindTheKey")


def test_words_turned(tmp_path):
    fails_by(tmp_path, "Ipcbus.CarriesOctetsAsTheyAre")


def test_codes_positive(tmp_path):
    fails_by(tmp_path, "Tftp.ErrorsOfTheProtocolAreTheirNegativeCode")
