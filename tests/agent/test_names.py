"""The MIB file: names for what the module shows."""

import pathlib
import subprocess

import pytest

from lab import BUILD
from snmp import COLUMNS, COMPLETION, ROOT, name

BASE = pathlib.Path(__file__).resolve().parents[2] / ".cache" / "mibs"

pytestmark = pytest.mark.skipif(
    not BASE.is_dir(), reason="the base MIB modules could not be had")

MIBS = ["-M", f"{BASE}:{BUILD / 'mibs'}", "-m", "XF-CONFIG-COPY-MIB"]


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
