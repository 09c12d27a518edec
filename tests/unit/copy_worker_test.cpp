/*
 * The work of the copy child between the file types: staging, applying, saving.
 * The network transfer itself is a stand-in here; transfer_test has the real
 * one, copy_launch_test both together.
 */
#include "scripted_platform.h"

#include <algorithm>
#include <utility>

using namespace scripted;
using namespace std::string_literals;

namespace {

Results<int32_t> transfer_results;

/* One transfer as the stand-in was asked for it. */
std::string transfer(int direction, std::string_view directory,
                     std::string_view local) {
    return "transfer(" + std::to_string(direction) + ", " + quote(directory) +
           ", " + quote(local) + ")";
}

constexpr int upload = 2;
constexpr int download = 1;

} // namespace

extern "C" int32_t do_nw_upload_download(uint32_t direction, char *directory,
                                         const struct xfCopyEntry *entry) {
    Event &event =
        platform().record(Kind::Call, "transfer",
                          transfer(static_cast<int>(direction), directory,
                                   entry->xfCopySrcFileName));
    event.strings = {entry->xfCopyFileName};
    return transfer_results.take();
}

namespace {

class CopyWorker : public ModuleTest {
  protected:
    struct xfCopyEntry row = make_row(5, XF_ROW_ACTIVE);

    CopyWorker() {
        transfer_results = Results<int32_t>(0);
        row.xfCopyState = XF_STATE_RUNNING;
        assign(row.xfCopyFileName, "cfg.txt");
    }
    void set_file_types(int32_t source, int32_t dest) {
        row.xfCopySourceFileType = source;
        row.xfCopyDestFileType = dest;
    }
    /* What the child did; the status that it reported must be this one. */
    Story run(uint32_t status) {
        p.forget();
        copy_function(&row);
        EXPECT_EQ(1u, p.count("ipcbus_send")) << "reports one status";
        for (const Event &sent : p.calls_of("ipcbus_send")) {
            const std::string octets = {static_cast<char>(status >> 24),
                                        static_cast<char>(status >> 16 & 0xff),
                                        static_cast<char>(status >> 8 & 0xff),
                                        static_cast<char>(status & 0xff)};
            EXPECT_EQ(octets, sent.octets);
        }
        return story();
    }
    /* What the report adds, on the handle that was bound last. */
    Story report(uint32_t status) const {
        const std::string handle = "handle" + std::to_string(p.queues.size());
        return {
            error("send_status_2_parent: status is " + std::to_string(status) +
                  "\n"),
            "ipcbus_bind(1, -1, \"config_copy_task\")",
            "ipcbus_send(" + handle +
                ", {0xfe000000, 28}, 10277, 4 octets, 0, 0, NULL)",
            "ipcbus_unbind(" + handle + ", 0)",
        };
    }
    static Story join(std::initializer_list<Story> parts) {
        Story whole;
        for (const Story &part : parts)
            whole.insert(whole.end(), part.begin(), part.end());
        return whole;
    }
    void expect_worker(uint32_t status, const Story &before_report) {
        const Story found = run(status);
        EXPECT_EQ(join({before_report, report(status)}), found);
    }
};

const std::string bind_requests = "ipcbus_bind(4, -1, \"req-resp\")";

std::string unable_to_run(const char *reason) {
    return err("Unable to run: "s + reason + "\n");
}

} // namespace

/* ---- Start -----------------------------------------------------------------
 */

TEST_F(CopyWorker, startIsLoggedWhileTheDebugLogIsOn) {
    is_snmp_debug_enabled = 1;
    set_file_types(6, 7);
    row.xfCopyProtocol = 4;
    row.xfCopyServerAddressType = 1;
    row.xfCopyTimeStarted = {1'700'000'000, 250'000};
    assign(row.xfCopyServerAddressRev1, "192.0.2.7");
    assign(row.xfCopyUserName, "ann");
    assign(row.xfCopyUserPassword, "secret");
    assign(row.xfCopyVRFName, "blue");

    expect_worker(
        0, {log("copy_function(#):copy_function: Copy started with : "
                "xfCopyServerAddressRev1 = 192.0.2.7,xfCopyFileName= cfg.txt, "
                "xfCopyUserName=ann,xfCopyTimeStarted=100025 xfCopyProtocol = "
                "4 xfCopySourceFileType = 6, xfCopyDestFileType= 7, "
                "xfCopyServerAddressType= 1,xfCopyVRFName= blue\n")});
}

TEST_F(CopyWorker, startIsNotLoggedOtherwise) {
    set_file_types(6, 7);
    expect_worker(0, {});
    EXPECT_EQ(0u, p.count("fopen"));
}

TEST_F(CopyWorker, fileNameIsSplitIntoDirectoryAndLocalName) {
    struct Case {
        std::string name, directory, local;
        bool traced;
    };
    const Case cases[] = {
        {"/a/b/cfg.txt", "/a/b", "cfg.txt", true},
        {"/cfg.txt", ".", "cfg.txt", true},
        {"dir\\cfg.txt", ".", "cfg.txt", false},
        {"cfg.txt", ".", "cfg.txt", false},
        {"a/b/cfg.txt", ".", "cfg.txt", false},
        {"c:\\a\\b", ".", "b", false},
        {"a\\b/c", ".", "c", false},
        {"a/b\\c", ".", "b\\c", false},
        {"/a/b\\c", "/a", "b\\c", true},
        {"/a\\b", ".", "a\\b", true},
        {"//cfg.txt", "/", "cfg.txt", true},
        {"/a/", "/a", "", true},
        {"/", ".", "", true},
        {"a/", ".", "", false},
        {"a\\", ".", "", false},
        {"", ".", "", false},
        {"/" + std::string(120, 'd') + "/" + std::string(133, 'n'),
         "/" + std::string(120, 'd'), std::string(133, 'n'), true},
        {std::string(255, 'n'), ".", std::string(255, 'n'), false},
    };
    set_file_types(XF_FILE_NETWORK, XF_FILE_TERMINAL);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        assign(row.xfCopyFileName, c.name);
        Story before;
        if (c.traced)
            before = {info("copy_function : Retrieved the Directory name = " +
                           c.directory + "\n")};
        expect_worker(0, join({before,
                               {transfer(download, c.directory, c.local),
                                err("copy_function : dir /stage\n"),
                                err("copy_function : full filename /stage/" +
                                    c.local + "\n")}}));
    }
}

/* ---- From the network ------------------------------------------------------
 */

namespace {

const Story downloaded = {
    transfer(download, ".", "cfg.txt"),
    err("copy_function : dir /stage\n"),
    err("copy_function : full filename /stage/cfg.txt\n"),
};

} // namespace

TEST_F(CopyWorker, downloadStagesUnderTheLocalName) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_RUNNING);
    assign(row.xfCopyFileName, "/a/b/cfg.txt");
    assign(row.xfCopySrcFileName, "left over");
    run(0);
    EXPECT_STREQ("cfg.txt", row.xfCopySrcFileName);
    ASSERT_EQ(1u, p.count("transfer"));
    EXPECT_EQ("/a/b/cfg.txt", p.calls_of("transfer")[0].strings[0])
        << "the remote name stays whole";
}

TEST_F(CopyWorker, failedDownloadReportsItsCause) {
    for (const int32_t dest : {4, 3, 7})
        for (const uint32_t cause : {1u, 2u, 3u, 4u, 5u, 6u}) {
            set_file_types(XF_FILE_NETWORK, dest);
            transfer_results.then(static_cast<int32_t>(cause));
            expect_worker(
                cause, {transfer(download, ".", "cfg.txt"),
                        error("copy_function : Download of file cfg.txt from "
                              "n/w server failed. (error = " +
                              std::to_string(cause) + ") \n")});
        }
}

TEST_F(CopyWorker, failedDownloadNamesTheRemoteFileWhole) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_RUNNING);
    assign(row.xfCopyFileName, "/a/cfg.txt");
    transfer_results.then(2);
    expect_worker(
        2, {info("copy_function : Retrieved the Directory name = /a\n"),
            transfer(download, "/a", "cfg.txt"),
            error("copy_function : Download of file /a/cfg.txt from n/w server "
                  "failed. (error = 2) \n")});
}

TEST_F(CopyWorker, downloadedFileIsAppliedToRunningAndDeleted) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_RUNNING);
    expect_worker(
        0,
        join({downloaded,
              {info("copy_function : File to be executed  /stage/cfg.txt\n"),
               "qsh_execute_cfg_file2(\"/stage/cfg.txt\", "
               "\"/tmp/configcopy.txt\")",
               info("copy_function : Return from qsh_execute_cfg_file2 is "
                    "0\n"),
               err("copy_function : Return from qsh_execute_cfg_file2 is 0\n"),
               "unlink(\"/stage/cfg.txt\")"}}));
}

namespace {

/* Result of applying a configuration, and the cause it stands for. */
const std::pair<int, uint32_t> apply_failures[] = {{0x40540002, 5},
                                                   {0x40540001, 7},
                                                   {0x40540003, 7},
                                                   {0x40540004, 1},
                                                   {0x40540000, 1},
                                                   {1, 1},
                                                   {2, 1},
                                                   {3, 1},
                                                   {-1, 1},
                                                   {0x40490001, 1},
                                                   {0x40550002, 1},
                                                   {0x7fffffff, 1},
                                                   {-0x7fffffff - 1, 1}};

std::string syserr_text(int result) {
    char text[40];
    snprintf(text, sizeof(text), "syserr_format 0x%x",
             static_cast<unsigned>(result));
    return text;
}

} // namespace

TEST_F(CopyWorker, failedApplyOfADownloadedFile) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_RUNNING);
    for (const auto &[result, cause] : apply_failures) {
        const std::string number = std::to_string(result);

        SCOPED_TRACE(number);
        p.apply_results.then(result);
        expect_worker(
            cause,
            join(
                {downloaded,
                 {info("copy_function : File to be executed  "
                       "/stage/cfg.txt\n"),
                  "qsh_execute_cfg_file2(\"/stage/cfg.txt\", "
                  "\"/tmp/configcopy.txt\")",
                  info("copy_function : Return from qsh_execute_cfg_file2 is " +
                       number + "\n"),
                  err("copy_function : Return from qsh_execute_cfg_file2 is " +
                      number + "\n"),
                  error("copy_function : qsh_execute_cfg_file2 : Copy from "
                        "n/w to running failed (ret_code = " +
                        number + ") : " + syserr_text(result) + "\n"),
                  "unlink(\"/stage/cfg.txt\")"}}));
    }
}

TEST_F(CopyWorker, shellApplyReturning0x40540002YieldsCause5) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_RUNNING);
    p.apply_results.then(0x40540002);
    run(5);
    set_file_types(XF_FILE_STARTUP, XF_FILE_RUNNING);
    p.apply_results.then(0x40540002);
    run(5);
}

TEST_F(CopyWorker, applyRequestHoldsTwoTextsOf128OctetsAndZeroes) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_RUNNING);
    run(0);
    std::string expected(sizeof(struct qsh_cfg_file_request), '\0');
    expected.replace(0, 14, "/stage/cfg.txt");
    expected.replace(128, 19, "/tmp/configcopy.txt");
    ASSERT_EQ(1u, p.count("qsh_execute_cfg_file2"));
    EXPECT_EQ(expected, p.calls_of("qsh_execute_cfg_file2")[0].octets);
}

TEST_F(CopyWorker, pathToApplyIsCutTo127CharactersButDeletedWhole) {
    const std::string directory = "/" + std::string(119, 'd');
    const std::string path = directory + "/cfg.txt";

    p.working_directory = directory;
    set_file_types(XF_FILE_NETWORK, XF_FILE_RUNNING);
    run(0);
    ASSERT_EQ(128u, path.size());
    ASSERT_EQ(1u, p.count("qsh_execute_cfg_file2"));
    EXPECT_EQ(path.substr(0, 127),
              p.calls_of("qsh_execute_cfg_file2")[0].strings[0]);
    ASSERT_EQ(1u, p.count("unlink"));
    EXPECT_EQ(path, p.calls_of("unlink")[0].strings[0]);
}

TEST_F(CopyWorker, downloadedFileBecomesTheStartupConfiguration) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_STARTUP);
    expect_worker(0, join({downloaded,
                           {"rename(\"cfg.txt\", \"system.cfg\")",
                            info("copy_function : File to copy to startup is "
                                 "/stage/system.cfg\n"),
                            bind_requests,
                            "procd_cli_write_ascii_cfg(handle1, "
                            "\"/stage/system.cfg\")",
                            "ipcbus_unbind(handle1, 0)"}}));
}

TEST_F(CopyWorker, downloadedFileThatCannotBeRenamed) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_STARTUP);
    p.rename_results.then(-1, EACCES);
    expect_worker(
        1, join({downloaded,
                 {"rename(\"cfg.txt\", \"system.cfg\")",
                  err("Could not rename the file: Permission denied\n")}}));
}

TEST_F(CopyWorker, downloadedFileWithoutAHandleToTheSystemManager) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_STARTUP);
    p.bind_results.then(-1, EACCES);
    expect_worker(1,
                  join({downloaded,
                        {"rename(\"cfg.txt\", \"system.cfg\")",
                         info("copy_function : File to copy to startup is "
                              "/stage/system.cfg\n"),
                         bind_requests, unable_to_run("Permission denied")}}));
}

TEST_F(CopyWorker, downloadedFileThatTheSystemManagerRefuses) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_STARTUP);
    for (const int result : {0x40490001, 1, -1}) {
        p.queues.clear();
        p.write_cfg_results.then(result);
        expect_worker(
            1, join({downloaded,
                     {"rename(\"cfg.txt\", \"system.cfg\")",
                      info("copy_function : File to copy to startup is "
                           "/stage/system.cfg\n"),
                      bind_requests,
                      "procd_cli_write_ascii_cfg(handle1, "
                      "\"/stage/system.cfg\")",
                      error("copy_function : Error copying file into startup "
                            "(ret_code = " +
                            std::to_string(result) + ": " +
                            syserr_text(result) + "\n"),
                      "ipcbus_unbind(handle1, 0)"}}));
    }
}

TEST_F(CopyWorker, otherDestinationsDownloadAndReportSuccessWithoutApplying) {
    for (const int32_t dest : {0, 1, 2, 5, 6, 7, 8, -1}) {
        set_file_types(XF_FILE_NETWORK, dest);
        expect_worker(0, downloaded);
    }
}

/* ---- To the network --------------------------------------------------------
 */

namespace {

/* The shell shows a configuration into the local file. */
Story show(const std::string &which, const char *status = "0x0",
           const char *local = "cfg.txt") {
    return {
        "fopen(\""s + local + "\", \"w\")",
        "signal(SIGCHLD, SIG_DFL)",
        "execute_program_and_wait_redirect(-1, fd, -1, \"/brim/bin/qsh\", "
        "\"-c\", \"show " +
            which + "-config\")",
        "signal(SIGCHLD, agent's)",
        info("copy_function : ret val = "s + status + "\n"),
        "fflush()",
        "fclose()",
    };
}

const Story bound_for_startup = {
    bind_requests,
    bind_requests,
    "procd_cli_dir_get(handle2, 2)",
    info("copy_function : Copying startup (dir = /startup) to network\n"),
    "ipcbus_unbind(handle2, 0)",
};

const Story bound_for_running = {bind_requests};

const Story running_notified = {
    info("copy_function : notifiy copy running <file> done\n"),
    "qsh_notify_cfg_update(handle1, 1, 2, 3)",
    "ipcbus_unbind(handle1, 0)",
};

const Story uploaded = {
    transfer(upload, "/stage", "/stage/cfg.txt"),
    info("copy_function : Copying done with SUCCESS\n"),
    "unlink(\"/stage/cfg.txt\")",
};

} // namespace

/* Whole: of the two handles only the second is given back. */
TEST_F(CopyWorker, startupConfigurationIsShownAndUploaded) {
    set_file_types(XF_FILE_STARTUP, XF_FILE_NETWORK);
    expect_worker(0, join({bound_for_startup, show("startup"), uploaded}));
    EXPECT_EQ(0, p.queues.at(0)->unbound);
    EXPECT_EQ(1, p.queues.at(1)->unbound);
    EXPECT_STREQ("/stage/cfg.txt", row.xfCopySrcFileName);
}

TEST_F(CopyWorker, runningConfigurationIsShownAndUploaded) {
    set_file_types(XF_FILE_RUNNING, XF_FILE_NETWORK);
    expect_worker(0, join({bound_for_running, show("running"), running_notified,
                           uploaded}));
    EXPECT_STREQ("/stage/cfg.txt", row.xfCopySrcFileName);
}

TEST_F(CopyWorker, uploadIsGivenTheWorkingDirectoryNotTheRemoteOne) {
    set_file_types(XF_FILE_RUNNING, XF_FILE_NETWORK);
    assign(row.xfCopyFileName, "/a/b/cfg.txt");
    expect_worker(
        0,
        join({{info("copy_function : Retrieved the Directory name = /a/b\n")},
              bound_for_running,
              show("running"),
              running_notified,
              uploaded}));
}

TEST_F(CopyWorker, stagingPathIsLoggedWhileTheDebugLogIsOn) {
    for (const auto &[source, text] :
         {std::pair<int32_t, std::string>{XF_FILE_STARTUP, "startup"},
          std::pair<int32_t, std::string>{XF_FILE_RUNNING, "running"}}) {
        set_file_types(source, XF_FILE_NETWORK);
        is_snmp_debug_enabled = 1;
        const Story whole = run(0);
        const std::string expected =
            log("copy_function(#):copy_function: xfCopySrcFileName "
                "/stage/cfg.txt from " +
                text + " to network\n");
        const auto closed = std::find(whole.begin(), whole.end(), "fclose()");
        ASSERT_NE(whole.end(), closed);
        // cppcheck-suppress derefInvalidIteratorRedundantCheck; asserted
        EXPECT_EQ(expected, *(closed + 1));
        EXPECT_EQ(1, std::count(whole.begin(), whole.end(), expected));
    }
}

TEST_F(CopyWorker, shellRunsWithSigchldAtItsDefault) {
    for (const int32_t source : {XF_FILE_STARTUP, XF_FILE_RUNNING})
        for (const Handler before :
             {agents_sigchld_handler, Handler{SIG_IGN}, Handler{SIG_DFL}}) {
            set_file_types(source, XF_FILE_NETWORK);
            p.sigchld = before;
            run(0);
            const std::vector<Event> runs =
                p.calls_of("execute_program_and_wait_redirect");
            ASSERT_EQ(1u, runs.size());
            EXPECT_EQ(SIG_DFL, runs[0].sigchld);
            EXPECT_EQ(before, p.calls_of("fflush").at(0).sigchld);
            EXPECT_EQ(before, p.sigchld);
        }
}

TEST_F(CopyWorker, configurationThatCannotBeShown) {
    struct Case {
        int result;
        const char *text;
    };
    for (const Case &c : {Case{0x100, "0x100"}, Case{0xff00, "0xff00"},
                          Case{9, "0x9"}, Case{-1, "0xffffffff"}}) {
        p.queues.clear();
        set_file_types(XF_FILE_STARTUP, XF_FILE_NETWORK);
        p.program_results.then(c.result);
        expect_worker(1, join({bound_for_startup,
                               show("startup", c.text),
                               {error("copy_function : Show startup config "
                                      "failed, ret_val = "s +
                                      c.text + "\n")}}));
        p.queues.clear();
        set_file_types(XF_FILE_RUNNING, XF_FILE_NETWORK);
        p.program_results.then(c.result);
        expect_worker(1, join({bound_for_running,
                               show("running", c.text),
                               {error("copy_function : Show running config "
                                      "failed, ret_val = "s +
                                      c.text + "\n")}}));
    }
}

TEST_F(CopyWorker, localFileThatCannotBeOpened) {
    const Story could_not_open = {
        "fopen(\"cfg.txt\", \"w\")",
        err("copy_function : could not open cfg.txt, errno = 0x1e\n"),
        info("copy_function : could not open cfg.txt, errno = 0x1e\n"),
    };
    set_file_types(XF_FILE_STARTUP, XF_FILE_NETWORK);
    p.file_opens.then(false, EROFS);
    expect_worker(1, join({bound_for_startup, could_not_open}));
    EXPECT_STREQ("/startup/system.cfg", row.xfCopySrcFileName)
        << "the staging path until the file is shown";

    p.queues.clear();
    set_file_types(XF_FILE_RUNNING, XF_FILE_NETWORK);
    p.file_opens.then(false, EROFS);
    expect_worker(1, join({bound_for_running, could_not_open}));
}

TEST_F(CopyWorker, errnoOfTheOpenIsTheSameOnEveryChannel) {
    const std::string text =
        "copy_function : could not open cfg.txt, errno = 0xd\n";

    p.live_check.always(1);
    set_file_types(XF_FILE_RUNNING, XF_FILE_NETWORK);
    p.file_opens.then(false, EACCES);
    const Story whole = run(1);
    for (const std::string &shown : {err(text), info(text), live(text)})
        EXPECT_EQ(1, std::count(whole.begin(), whole.end(), shown)) << shown;
}

TEST_F(CopyWorker, uploadWithoutAHandle) {
    for (const int32_t source :
         {XF_FILE_STARTUP, XF_FILE_RUNNING, XF_FILE_FABRIC_STARTUP}) {
        set_file_types(source, XF_FILE_NETWORK);
        p.bind_results.then(-1, ECONNREFUSED);
        expect_worker(1, {bind_requests, unable_to_run("Connection refused")});
    }
}

TEST_F(CopyWorker, uploadOfStartupWithoutASecondHandle) {
    set_file_types(XF_FILE_STARTUP, XF_FILE_NETWORK);
    p.bind_results.then(0).then(-1, ECONNREFUSED);
    expect_worker(
        1, {bind_requests, bind_requests, unable_to_run("Connection refused")});
}

TEST_F(CopyWorker, failedUploadReportsItsCauseAndDeletesTheStagedFile) {
    for (const uint32_t cause : {1u, 2u, 3u, 4u, 5u, 6u}) {
        const Story failed = {
            transfer(upload, "/stage", "/stage/cfg.txt"),
            error("copy_function : Upload to n/w failed with code = " +
                  std::to_string(cause) + " \n"),
            "unlink(\"/stage/cfg.txt\")",
        };
        p.queues.clear();
        set_file_types(XF_FILE_STARTUP, XF_FILE_NETWORK);
        transfer_results.then(static_cast<int32_t>(cause));
        expect_worker(cause,
                      join({bound_for_startup, show("startup"), failed}));
        p.queues.clear();
        set_file_types(XF_FILE_RUNNING, XF_FILE_NETWORK);
        transfer_results.then(static_cast<int32_t>(cause));
        expect_worker(cause, join({bound_for_running, show("running"),
                                   running_notified, failed}));
    }
}

TEST_F(CopyWorker, otherSourcesAreUploadedFromWhereTheRowSaysAndKept) {
    assign(row.xfCopyFileName, "/a/b/cfg.txt");
    assign(row.xfCopySrcFileName, "kept.cfg");
    for (const int32_t source : {0, 2, 5, 6, 7, 8, -1}) {
        const Story begun = {
            info("copy_function : Retrieved the Directory name = /a/b\n"),
            bind_requests,
            transfer(upload, "/a/b", "kept.cfg"),
        };
        set_file_types(source, XF_FILE_NETWORK);
        expect_worker(
            0, join({begun,
                     {info("copy_function : Copying done with SUCCESS\n")}}));
        transfer_results.then(3);
        expect_worker(
            3, join({begun,
                     {error("copy_function : Upload to n/w failed with code = "
                            "3 \n")}}));
    }
}

TEST_F(CopyWorker, stagingPathIsCutTo255Characters) {
    const std::string directory = "/" + std::string(199, 'd');
    const std::string local(128, 'n');
    const std::string path = (directory + "/" + local).substr(0, 255);

    p.working_directory = directory;
    assign(row.xfCopyFileName, local);
    set_file_types(XF_FILE_RUNNING, XF_FILE_NETWORK);
    const Story whole = run(0);
    EXPECT_EQ(1, std::count(whole.begin(), whole.end(),
                            transfer(upload, directory, path)));
    EXPECT_EQ(path, row.xfCopySrcFileName);
}

/* ---- Within the switch -----------------------------------------------------
 */

TEST_F(CopyWorker, startupIsAppliedToRunning) {
    set_file_types(XF_FILE_STARTUP, XF_FILE_RUNNING);
    p.configuration_directory = "/conf/dir";
    expect_worker(
        0,
        {bind_requests, "procd_cli_dir_get(handle1, 2)",
         info("copy_function : Copying startup (file = /conf/dir/system.cfg) "
              "to running\n"),
         "qsh_execute_cfg_file2(\"/conf/dir/system.cfg\", "
         "\"/tmp/configcopy.txt\")",
         info("copy_function : Return from qsh_execute_cfg_file2 is 0\n"),
         info("copy_function : Copying done with SUCCESS\n"),
         info("copy_function : notifiy copy start running done\n"),
         "qsh_notify_cfg_update(handle1, 1, 1, 3)",
         "ipcbus_unbind(handle1, 0)"});
}

TEST_F(CopyWorker, startupThatCannotBeAppliedToRunning) {
    set_file_types(XF_FILE_STARTUP, XF_FILE_RUNNING);
    for (const auto &[result, cause] : apply_failures) {
        const std::string number = std::to_string(result);

        SCOPED_TRACE(number);
        p.queues.clear();
        p.apply_results.then(result);
        expect_worker(
            cause,
            {bind_requests, "procd_cli_dir_get(handle1, 2)",
             info("copy_function : Copying startup (file = "
                  "/startup/system.cfg) to running\n"),
             "qsh_execute_cfg_file2(\"/startup/system.cfg\", "
             "\"/tmp/configcopy.txt\")",
             info("copy_function : Return from qsh_execute_cfg_file2 is " +
                  number + "\n"),
             error("copy_function : qsh_execute_cfg_file2 : Copy from startup "
                   "(file = /startup/system.cfg) to running failed (ret_code "
                   "= " +
                   number + ") : " + syserr_text(result) + ".\n"),
             "ipcbus_unbind(handle1, 0)"});
    }
}

TEST_F(CopyWorker, startupToRunningWithoutAHandle) {
    set_file_types(XF_FILE_STARTUP, XF_FILE_RUNNING);
    p.bind_results.then(-1, ECONNREFUSED);
    expect_worker(1, {bind_requests, unable_to_run("Connection refused")});
}

/* ---- Everything else -------------------------------------------------------
 */

TEST_F(CopyWorker, everyOtherPairReportsSuccessAtOnce) {
    for (int32_t source = 0; source <= 8; source++)
        for (int32_t dest = 0; dest <= 8; dest++) {
            if (source == 1 || dest == 1 || (source == 3 && dest == 4))
                continue;
            SCOPED_TRACE(testing::Message() << source << " to " << dest);
            set_file_types(source, dest);
            expect_worker(0, {});
        }
}

TEST_F(CopyWorker, networkToNetworkIsADownload) {
    set_file_types(XF_FILE_NETWORK, XF_FILE_NETWORK);
    expect_worker(0, downloaded);
}

TEST_F(CopyWorker, directoryWithoutANameIsTheCurrentOne) {
    set_file_types(XF_FILE_STARTUP, XF_FILE_NETWORK);
    p.working_directory = "";
    run(0);
    EXPECT_STREQ("./cfg.txt", row.xfCopySrcFileName);
    ASSERT_EQ(1u, p.count("unlink"));
    EXPECT_EQ("./cfg.txt", p.calls_of("unlink")[0].strings[0]);
}
