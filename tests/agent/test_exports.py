"""What the module and the platform library offer, and what they need."""

import os
import pathlib
import re
import subprocess

import pytest

MODULE = os.environ["XF_TEST_MODULE"]
PLATFORM = os.environ["XF_TEST_PLATFORM"]
SOURCES = pathlib.Path(__file__).resolve().parents[2]

MODULE_FUNCTIONS = """
    init_config_copy_mib deinit_config_copy_mib get_config_copy_mib
    createXfCopyEntry addXfCopyEntry getXfCopyEntry getnextXfCopyEntry
    deleteXfCopyEntry xfCopyEntry_free xfCopyEntry_comp_func
    get_config_entry_with_status copy_inprogress
    get_xfCopyTable set_xfCopyTable_setmethods
    cfgentry_age_timer_handler
    setXfCopyEntry xf_handle_starttime_change
    set_xfCopyProtocol set_xfCopySourceFileType set_xfCopyDestFileType
    set_xfCopyServerAddress set_xfCopyFileName set_xfCopyUserName
    set_xfCopyUserPassword set_xfCopyNotificationOnCompletion
    set_xfCopyServerAddressType set_xfCopyServerAddressRev1 set_xfCopyVRFName
    set_xfCopyEntryRowStatus
    validate_entry validate_n_start_copy
    start_copy handle_abort copy_function
    do_nw_upload_download tftperr2miberr
    do_nw_upload_download_on_vrf do_nw_upload_download_on_storage_pod
    send_status_2_parent
    do_cp_runningtostartup
    handle_notifications handle_copy_done handle_copy_failure
    handle_copy_success
    build_notification
    xfCopyErrorEntry_comp_func search_all_cmp addXfCopyErrorEntry
    getXfCopyErrorEntry getnextXfCopyErrorEntry deleteXfCopyErrorEntries
    getFirstErrorEntryForNextCopyEntry get_xfCopyErrorTable
    """.split()

MODULE_DATA = """
    config_copy_mib_variables config_copy_mib_variables_oid
    ageouttimer is_snmp_debug_enabled start_cpu_cycles
    """.split()


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True,
                          text=True).stdout


def exported(library):
    """Names by kind: functions and data."""
    functions, data = set(), set()
    for line in output_of("nm", "-D", "--defined-only", library).splitlines():
        kind, symbol = line.split()[-2:]
        (functions if kind in "TtWi" else data).add(symbol.split("@")[0])
    return functions, data


def declared():
    """Functions and variables that platform/*.h declares."""
    functions, data = set(), set()
    for header in sorted((SOURCES / "platform").glob("*.h")):
        text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.S)
        text = re.sub(r"^\s*#(?:.*\\\n)*.*$", "", text, flags=re.M)
        text = re.sub(r"\{[^{}]*\}", "", text)
        text = re.sub(r"PLATFORM_(RECORD_SIZE|FIELD_AT|STATIC_ASSERT)\([^;]*;",
                      "", text)
        text = text.replace("PLATFORM_BEGIN_DECLS", "")
        text = text.replace("PLATFORM_END_DECLS", "")
        for statement in text.split(";"):
            if "typedef" in statement:
                continue
            call = re.search(r"(\w+)\s*\(", statement)
            if call and "extern" not in statement:
                functions.add(call[1])
            elif "extern" in statement:
                data.add(re.search(r"(\w+)(?:\s*\[\w*\])?\s*$", statement)[1])
    return functions, data


def needed(library):
    return re.findall(r"\(NEEDED\).*\[(.*)\]",
                      output_of("readelf", "-d", library))


def test_module_exports_what_is_stated():
    functions, data = exported(MODULE)
    assert functions == set(MODULE_FUNCTIONS)
    assert data == set(MODULE_DATA)


def test_platform_exports_what_it_declares():
    functions, data = exported(PLATFORM)
    assert (functions, data) == declared()
    assert len(functions) > 40


def test_module_needs_one_platform_library():
    ours = [each for each in needed(MODULE) if not re.match(
        r"(libnetsnmp|libnetsnmpagent|libnetsnmpmibs|libc|libm|libstdc\+\+|"
        r"libgcc_s|libasan|libubsan)\.so\.\d+$", each)]
    assert ours == ["libxfplatform.so.1"]
    loaded = [line.split()[0] for line in output_of("ldd", MODULE).splitlines()
              if "xfplatform" in line]
    assert loaded == ["libxfplatform.so.1"]


def test_platform_does_not_need_the_module():
    assert not any("configcopy" in each for each in needed(PLATFORM))


@pytest.mark.parametrize("library", [MODULE, PLATFORM])
def test_stays_mapped(library):
    flags = output_of("readelf", "-d", library)
    assert "NODELETE" in flags
