/* The copy child's launch, seen from both sides of the fork, and the abort of a
 * save. */
#include "fault_rows.h"
#include "scripted_platform.h"

using namespace scripted;
using namespace std::string_literals;

namespace {

constexpr int32_t already_running = 0x40490001;

class CopyLaunch : public ModuleTest {
  protected:
    struct xfCopyEntry row = make_row(5, XF_ROW_ACTIVE);

    CopyLaunch() {
        row.xfCopyState = XF_STATE_RUNNING;
        assign(row.xfCopyServerAddressRev1, "192.0.2.7");
        assign(row.xfCopyFileName, "/conf/r.cfg");
    }
    void set_file_types(int32_t source, int32_t dest) {
        row.xfCopySourceFileType = source;
        row.xfCopyDestFileType = dest;
    }
    /* The child's side of a launch; its exit status. */
    int run_child() {
        p.fork_results.then(0);
        return run_as_child([this] { start_copy(&row); });
    }
};

} // namespace

/* ---- The agent's side ------------------------------------------------------
 */

TEST_F(CopyLaunch, forksOneChildAndRemembersIt) {
    EXPECT_EQ(0, start_copy(&row));

    EXPECT_EQ((Story{
                  "fork()",
                  info("start_copy : Created the process to copy with pid = "
                       "4343\n"),
              }),
              story());
    EXPECT_EQ(1u, module_state.copyChildRunning);
    EXPECT_EQ(4343, module_state.copy_child_pid);
    EXPECT_EQ(agents_sigchld_handler, p.sigchld);
}

TEST_F(CopyLaunch, leavesTheRowAlone) {
    const struct xfCopyEntry before = row;

    start_copy(&row);
    EXPECT_EQ("", difference(before, row));
}

TEST_F(CopyLaunch, twoLaunchesInARowForkOnce) {
    EXPECT_EQ(0, start_copy(&row));
    p.forget();

    EXPECT_EQ(already_running, start_copy(&row));
    EXPECT_EQ(Story{info("start_copy: child process is still running\n")},
              story());
    EXPECT_EQ(1u, module_state.copyChildRunning);
    EXPECT_EQ(4343, module_state.copy_child_pid);
}

TEST_F(CopyLaunch, failedForkCountsAsAChildUntilAStatusMessageComes) {
    p.fork_results.then(-1, EAGAIN);

    EXPECT_EQ(0, start_copy(&row));
    EXPECT_EQ((Story{
                  "fork()",
                  info("start_copy : Created the process to copy with pid = "
                       "-1\n"),
              }),
              story());
    EXPECT_EQ(1u, module_state.copyChildRunning);
    EXPECT_EQ(-1, module_state.copy_child_pid);
    EXPECT_EQ(already_running, start_copy(&row));

    oid name[MAX_OID_LEN] = {};
    size_t name_len = 0;
    int notify = 0;
    handle_notifications(p.message(10277, "\0\0\0\1"s), name, &name_len,
                         &notify);
    EXPECT_EQ(0u, module_state.copyChildRunning);
    EXPECT_EQ(0, start_copy(&row));
    EXPECT_EQ(2u, p.count("fork"));
    write_fault_rows("Fork", {{"fork fails, in the module alone",
                               "the launch succeeds; others are refused until "
                               "a copy status message comes"}});
}

/* ---- The child's side ------------------------------------------------------
 */

/* One whole life for each way through the file types, nothing left out. */

TEST_F(CopyLaunch, childWithNothingToCopyReportsSuccessAndExits) {
    set_file_types(XF_FILE_STARTUP, XF_FILE_STARTUP);

    EXPECT_EQ(0, run_child());
    EXPECT_EQ((Story{
                  "fork()",
                  info("copy_function : Retrieved the Directory name = "
                       "/conf\n"),
                  error("send_status_2_parent: status is 0\n"),
                  "ipcbus_bind(1, -1, \"config_copy_task\")",
                  "ipcbus_send(handle1, {0xfe000000, 28}, 10277, 4 octets, 0, "
                  "0, NULL)",
                  "ipcbus_unbind(handle1, 0)",
                  info("start_copy : exit = child_id 4242\n"),
                  "_exit(0)",
              }),
              story());
}

TEST_F(CopyLaunch, childIsNotTheOneThatRemembersTheChild) {
    run_child();
    EXPECT_EQ(0u, module_state.copyChildRunning);
}

TEST_F(CopyLaunch, childThatFailsExitsWithZeroAllTheSame) {
    set_file_types(XF_FILE_STARTUP, XF_FILE_RUNNING);
    p.apply_results.always(0x40540002);

    EXPECT_EQ(0, run_child());
    ASSERT_EQ(1u, p.count("ipcbus_send"));
    EXPECT_EQ("\0\0\0\5"s, p.calls_of("ipcbus_send")[0].octets);
    EXPECT_EQ("_exit(0)", story().back());
}

TEST_F(CopyLaunch, childOfANetworkToRunningCopy) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_RUNNING);

    EXPECT_EQ(0, run_child());
    EXPECT_EQ(
        (Story{
            "fork()",
            info("copy_function : Retrieved the Directory name = /conf\n"),
            info("do_nw_upload_download : get chassis type return 0\n"),
            "tftp_timeout_set(20)",
            "tftp_connect(\"192.0.2.7\", -1)",
            info("do_nw_upload_download : Getting file /conf/r.cfg to local "
                 "file r.cfg \n"),
            "signal(SIGCHLD, SIG_DFL)",
            "tftp_get2(\"/conf/r.cfg\", \"r.cfg\", 0)",
            "signal(SIGCHLD, agent's)",
            "account_lib_interim_update(response_q, \"session-1\", "
            "\"operator\", \"copy tftp://192.0.2.7:69r.cfg running-config "
            "(SUCCESS)\")",
            info("do_nw_upload_download :  File /conf/r.cfg is downloaded\n"),
            err("copy_function : dir /stage\n"),
            err("copy_function : full filename /stage/r.cfg\n"),
            info("copy_function : File to be executed  /stage/r.cfg\n"),
            "qsh_execute_cfg_file2(\"/stage/r.cfg\", \"/tmp/configcopy.txt\")",
            info("copy_function : Return from qsh_execute_cfg_file2 is 0\n"),
            err("copy_function : Return from qsh_execute_cfg_file2 is 0\n"),
            "unlink(\"/stage/r.cfg\")",
            error("send_status_2_parent: status is 0\n"),
            "ipcbus_bind(1, -1, \"config_copy_task\")",
            "ipcbus_send(handle1, {0xfe000000, 28}, 10277, 4 octets, 0, 0, "
            "NULL)",
            "ipcbus_unbind(handle1, 0)",
            info("start_copy : exit = child_id 4242\n"),
            "_exit(0)",
        }),
        story());
}

TEST_F(CopyLaunch, childOfANetworkToStartupCopy) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_STARTUP);
    row.xfCopyProtocol = XF_PROTO_SFTP;
    assign(row.xfCopyUserName, "ann");
    assign(row.xfCopyUserPassword, "secret");

    EXPECT_EQ(0, run_child());
    EXPECT_EQ(
        (Story{
            "fork()",
            info("copy_function : Retrieved the Directory name = /conf\n"),
            info("do_nw_upload_download : Getting file /conf/r.cfg to local "
                 "file r.cfg \n"),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/sftp.expect\", \"192.0.2.7\", \"ann\", \"secret\", "
            "\"get\", \"/conf/r.cfg\", \"r.cfg\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download: SFTP_GET  add 192.0.2.7 "
                "xfCopySrcFileName r.cfg xfCopyFileName /conf/r.cfg "
                "xfCopyUserName ann xfCopyUserPassword secret ret_code 0x0\n"),
            info("do_nw_upload_download : Return code from sftp.expect is  "
                 "0\n"),
            "account_lib_interim_update(response_q, \"session-1\", "
            "\"operator\", \"copy sftp://ann@192.0.2.7r.cfg startup-config "
            "(SUCCESS)\")",
            err("copy_function : dir /stage\n"),
            err("copy_function : full filename /stage/r.cfg\n"),
            "rename(\"r.cfg\", \"system.cfg\")",
            info("copy_function : File to copy to startup is "
                 "/stage/system.cfg\n"),
            "ipcbus_bind(4, -1, \"req-resp\")",
            "procd_cli_write_ascii_cfg(handle1, \"/stage/system.cfg\")",
            "ipcbus_unbind(handle1, 0)",
            error("send_status_2_parent: status is 0\n"),
            "ipcbus_bind(1, -1, \"config_copy_task\")",
            "ipcbus_send(handle2, {0xfe000000, 28}, 10277, 4 octets, 0, 0, "
            "NULL)",
            "ipcbus_unbind(handle2, 0)",
            info("start_copy : exit = child_id 4242\n"),
            "_exit(0)",
        }),
        story());
}

TEST_F(CopyLaunch, childOfARunningToNetworkCopy) {
    set_file_types(XF_FILE_RUNNING, XF_FILE_NETWORK);

    EXPECT_EQ(0, run_child());
    EXPECT_EQ(
        (Story{
            "fork()",
            info("copy_function : Retrieved the Directory name = /conf\n"),
            "ipcbus_bind(4, -1, \"req-resp\")",
            "fopen(\"r.cfg\", \"w\")",
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, fd, -1, "
            "\"/brim/bin/qsh\", \"-c\", \"show running-config\")",
            "signal(SIGCHLD, agent's)",
            info("copy_function : ret val = 0x0\n"),
            "fflush()",
            "fclose()",
            info("copy_function : notifiy copy running <file> done\n"),
            "qsh_notify_cfg_update(handle1, 1, 2, 3)",
            "ipcbus_unbind(handle1, 0)",
            info("do_nw_upload_download : get chassis type return 0\n"),
            "tftp_timeout_set(20)",
            "tftp_connect(\"192.0.2.7\", -1)",
            info("do_nw_upload_download : Putting the file "
                 "(/stage/r.cfg)to the server (/conf/r.cfg)\n"),
            "signal(SIGCHLD, SIG_DFL)",
            "tftp_put2(\"/stage/r.cfg\", \"/conf/r.cfg\", 0)",
            "signal(SIGCHLD, agent's)",
            "account_lib_interim_update(response_q, \"session-1\", "
            "\"operator\", \"copy running-config "
            "tftp://192.0.2.7:69/conf/r.cfg (SUCCESS)\")",
            info("do_nw_upload_download : File /conf/r.cfg is uploaded\n"),
            info("copy_function : Copying done with SUCCESS\n"),
            "unlink(\"/stage/r.cfg\")",
            error("send_status_2_parent: status is 0\n"),
            "ipcbus_bind(1, -1, \"config_copy_task\")",
            "ipcbus_send(handle2, {0xfe000000, 28}, 10277, 4 octets, 0, 0, "
            "NULL)",
            "ipcbus_unbind(handle2, 0)",
            info("start_copy : exit = child_id 4242\n"),
            "_exit(0)",
        }),
        story());
}

TEST_F(CopyLaunch, childOfAStartupToNetworkCopy) {
    set_file_types(XF_FILE_STARTUP, XF_FILE_NETWORK);
    row.xfCopyProtocol = XF_PROTO_SCP;
    assign(row.xfCopyUserName, "ann");
    assign(row.xfCopyUserPassword, "secret");

    EXPECT_EQ(0, run_child());
    EXPECT_EQ(
        (Story{
            "fork()",
            info("copy_function : Retrieved the Directory name = /conf\n"),
            "ipcbus_bind(4, -1, \"req-resp\")",
            "ipcbus_bind(4, -1, \"req-resp\")",
            "procd_cli_dir_get(handle2, 2)",
            info("copy_function : Copying startup (dir = /startup) to "
                 "network\n"),
            "ipcbus_unbind(handle2, 0)",
            "fopen(\"r.cfg\", \"w\")",
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, fd, -1, "
            "\"/brim/bin/qsh\", \"-c\", \"show startup-config\")",
            "signal(SIGCHLD, agent's)",
            info("copy_function : ret val = 0x0\n"),
            "fflush()",
            "fclose()",
            info("do_nw_upload_download: executing command: "
                 "/brim/bin/scp.expect /stage/r.cfg ann@192.0.2.7:/conf/r.cfg "
                 "secret"),
            "signal(SIGCHLD, SIG_DFL)",
            "execute_program_and_wait_redirect(-1, -1, -1, "
            "\"/brim/bin/scp.expect\", \"/stage/r.cfg\", "
            "\"ann@192.0.2.7:/conf/r.cfg\", \"secret\")",
            "signal(SIGCHLD, agent's)",
            err("do_nw_upload_download: SCP_PUT xfCopySrcFileName "
                "/stage/r.cfg tmp_buf ann@192.0.2.7:/conf/r.cfg passwd secret "
                "ret_code 0x0\n"),
            info("do_nw_upload_download : Return code from scp.expect is  "
                 "0\n"),
            "account_lib_interim_update(response_q, \"session-1\", "
            "\"operator\", \"copy startup-config "
            "scp://ann@192.0.2.7/conf/r.cfg (SUCCESS)\")",
            info("copy_function : Copying done with SUCCESS\n"),
            "unlink(\"/stage/r.cfg\")",
            error("send_status_2_parent: status is 0\n"),
            "ipcbus_bind(1, -1, \"config_copy_task\")",
            "ipcbus_send(handle3, {0xfe000000, 28}, 10277, 4 octets, 0, 0, "
            "NULL)",
            "ipcbus_unbind(handle3, 0)",
            info("start_copy : exit = child_id 4242\n"),
            "_exit(0)",
        }),
        story());
}

TEST_F(CopyLaunch, childOfAStartupToRunningCopy) {
    set_file_types(XF_FILE_STARTUP, XF_FILE_RUNNING);

    EXPECT_EQ(0, run_child());
    EXPECT_EQ(
        (Story{
            "fork()",
            info("copy_function : Retrieved the Directory name = /conf\n"),
            "ipcbus_bind(4, -1, \"req-resp\")",
            "procd_cli_dir_get(handle1, 2)",
            info("copy_function : Copying startup (file = "
                 "/startup/system.cfg) to running\n"),
            "qsh_execute_cfg_file2(\"/startup/system.cfg\", "
            "\"/tmp/configcopy.txt\")",
            info("copy_function : Return from qsh_execute_cfg_file2 is 0\n"),
            info("copy_function : Copying done with SUCCESS\n"),
            info("copy_function : notifiy copy start running done\n"),
            "qsh_notify_cfg_update(handle1, 1, 1, 3)",
            "ipcbus_unbind(handle1, 0)",
            error("send_status_2_parent: status is 0\n"),
            "ipcbus_bind(1, -1, \"config_copy_task\")",
            "ipcbus_send(handle2, {0xfe000000, 28}, 10277, 4 octets, 0, 0, "
            "NULL)",
            "ipcbus_unbind(handle2, 0)",
            info("start_copy : exit = child_id 4242\n"),
            "_exit(0)",
        }),
        story());
}

TEST_F(CopyLaunch, childThatCannotReportExitsAllTheSame) {
    set_file_types(XF_FILE_STARTUP, XF_FILE_STARTUP);
    p.bind_results.always(-1, ECONNREFUSED);

    EXPECT_EQ(0, run_child());
    EXPECT_EQ(0u, p.count("ipcbus_send"));
    const Story whole = story();
    ASSERT_LE(2u, whole.size());
    EXPECT_EQ(info("start_copy : exit = child_id 4242\n"),
              whole[whole.size() - 2]);
    EXPECT_EQ("_exit(0)", whole.back());
}

/* ---- Abort -----------------------------------------------------------------
 */

namespace {

class CopyAbort : public CopyLaunch {
  protected:
    struct ipcbus_message *saved = p.message(1381, std::nullopt);

    CopyAbort() {
        saved->name = "saved";
        saved->token = 0x11223344;
        module_state.save_request = saved;
        set_file_types(XF_FILE_RUNNING, XF_FILE_STARTUP);
    }
};

const Story sent_abort = {
    info("Sending request to procd to abort the copy running to startup"),
    "ipcbus_send(response_q, {0xfe000000, 3}, 1383, 8 octets, 0, 0, NULL)",
    "ipcbus_drop(response_q, saved)",
};

} // namespace

TEST_F(CopyAbort, asksTheSystemManagerForEachKindOfSave) {
    for (const int32_t dest :
         {XF_FILE_STARTUP, XF_FILE_FABRIC_STARTUP, XF_FILE_ALL_STARTUP}) {
        saved->dropped = 0;
        module_state.save_request = saved;
        p.forget();
        set_file_types(XF_FILE_RUNNING, dest);

        EXPECT_EQ(0, handle_abort(&row));
        EXPECT_EQ(sent_abort, story()) << dest;
    }
}

TEST_F(CopyAbort, payloadIsTheTokenAndAZeroWord) {
    handle_abort(&row);
    ASSERT_EQ(1u, p.count("ipcbus_send"));
    EXPECT_EQ("\x11\x22\x33\x44\0\0\0\0"s, p.calls_of("ipcbus_send")[0].octets);
}

TEST_F(CopyAbort, tokenIsUnsigned) {
    saved->token = 0xfedcba98;
    handle_abort(&row);
    ASSERT_EQ(1u, p.count("ipcbus_send"));
    EXPECT_EQ("\xfe\xdc\xba\x98\0\0\0\0"s, p.calls_of("ipcbus_send")[0].octets);
}

TEST_F(CopyAbort, tokenIsTakenBeforeTheRequestIsDropped) {
    handle_abort(&row);
    EXPECT_EQ((Story{
                  "ipcbus_rr_token_get(saved)",
                  "ipcbus_send(response_q, {0xfe000000, 3}, 1383, 8 octets, 0, "
                  "0, NULL)",
                  "ipcbus_drop(response_q, saved)",
              }),
              [this] {
                  Story found;
                  for (const Event &event : p.journal)
                      if (event.function.rfind("ipcbus_", 0) == 0)
                          found.push_back(event.text);
                  return found;
              }());
}

TEST_F(CopyAbort, resultOfTheSendDoesNotMatter) {
    p.send_results.always(-1, ECONNREFUSED);
    EXPECT_EQ(0, handle_abort(&row));
    EXPECT_EQ(sent_abort, story());
}

TEST_F(CopyAbort, secondAbortDropsNothingTwice) {
    handle_abort(&row);
    handle_abort(&row);
    EXPECT_EQ(1, saved->dropped);
}

TEST_F(CopyAbort, anythingButASaveInProgressSendsNothing) {
    for (int32_t state = 0; state <= 5; state++)
        for (int32_t source = 0; source <= 8; source++)
            for (int32_t dest = 0; dest <= 8; dest++) {
                if (state == 2 && source == 4 &&
                    (dest == 3 || dest == 6 || dest == 7))
                    continue;
                row.xfCopyState = state;
                set_file_types(source, dest);
                EXPECT_EQ(0, handle_abort(&row));
                EXPECT_EQ(Story{}, story())
                    << state << ' ' << source << ' ' << dest;
                ASSERT_EQ(0, saved->dropped);
            }
}
