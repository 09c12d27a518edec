"""The MIB file: names for what the module shows."""

import pathlib
import subprocess

import pytest

import history
from lab import BUILD
from snmp import COLUMNS, COMPLETION, ROOT, name

BASE = pathlib.Path(__file__).resolve().parents[2] / ".cache" / "mibs"

pytestmark = pytest.mark.skipif(
    not BASE.is_dir(), reason="the base MIB modules could not be had")

MIBS = ["-M", f"{BASE}:{BUILD / 'mibs'}", "-m",
        "XF-CONFIG-COPY-MIB:XF-COPY-HISTORY-MIB"]


def tool(program, *arguments):
    done = subprocess.run([program, *MIBS, *arguments], capture_output=True,
                          text=True)
    assert done.returncode == 0, done.stderr
    return done


@pytest.mark.parametrize("column", COLUMNS)
def test_columns_have_names(column):
    assert tool("snmptranslate", "-On", f"XF-CONFIG-COPY-MIB::{column}") \
        .stdout.strip() == name(column)


def test_notification_has_a_name():
    assert tool("snmptranslate", COMPLETION).stdout.strip() == \
        "XF-CONFIG-COPY-MIB::xfCopyCompletion"


def test_file_is_clean():
    """Warnings about the file would come on standard error."""
    done = tool("snmptranslate", "-Pw", "-PR", "-Tp", ROOT)
    assert "XF-CONFIG-COPY" not in done.stderr
    assert "xfCopyErrorTable" in done.stdout


@pytest.mark.parametrize("number, column", enumerate(history.COLUMNS, start=2))
def test_history_has_names(number, column):
    words = column.title().replace("_", "")
    assert tool("snmptranslate", "-On",
                f"XF-COPY-HISTORY-MIB::xfHistory{words}") \
        .stdout.strip() == f"{history.ENTRY}.{number}"


def test_history_file_is_clean():
    done = tool("snmptranslate", "-Pw", "-PR", "-Tp", history.ROOT)
    assert "XF-COPY-HISTORY" not in done.stderr
    assert "xfHistoryTable" in done.stdout


def test_history_by_name(agent):
    folder = agent.state / "history"
    agent.stop()
    (folder / "history").write_text(history.line_of(
        "number=3\trow=7\tsource=4\tdestination=1\tprotocol=5\ttype=1\t"
        "server=%c0%00%02%01\tasked=17953101258\tstate=4\tcause=3\t"
        "reason=It was slow."))
    agent.start()
    peer = ["-v2c", "-c", "private", agent.station.peer]
    shown = tool("snmpwalk", *peer, "xfCopyHistoryMIB").stdout.splitlines()
    for line in ("Newest.0 = Gauge32: 3", "State.3 = INTEGER: failed(4)",
                 "Cause.3 = INTEGER: timeout(3)",
                 "Protocol.3 = INTEGER: sftp(5)",
                 "Reason.3 = STRING: It was slow.",
                 "Server.3 = Hex-STRING: C0 00 02 01 ",
                 "Asked.3 = STRING: 2026-11-22,1:15:25.8,+0:0"):
        assert "XF-COPY-HISTORY-MIB::xfHistory" + line in shown, line


def test_request_and_answer_by_name(agent, station):
    peer = ["-v2c", "-c", "private", station.peer]
    tool("snmpset", *peer, "xfCopyEntryRowStatus.1", "=", "createAndWait",
         "xfCopySourceFileType.1", "=", "runningConfig",
         "xfCopyDestFileType.1", "=", "networkFile",
         "xfCopyServerAddressType.1", "=", "ipv4",
         "xfCopyFileName.1", "=", "up.cfg",
         "xfCopyNotificationOnCompletion.1", "=", "true")
    shown = tool("snmpwalk", *peer, "xfCopyTable").stdout
    for line in ("xfCopyEntryRowStatus.1 = INTEGER: notReady(3)",
                 "xfCopyState.1 = INTEGER: waiting(1)",
                 "xfCopySourceFileType.1 = INTEGER: runningConfig(4)",
                 "xfCopyDestFileType.1 = INTEGER: networkFile(1)",
                 "xfCopyServerAddressType.1 = INTEGER: ipv4(1)",
                 "xfCopyNotificationOnCompletion.1 = INTEGER: true(1)",
                 "xfCopyFileName.1 = STRING: up.cfg"):
        assert "XF-CONFIG-COPY-MIB::" + line in shown.splitlines()
