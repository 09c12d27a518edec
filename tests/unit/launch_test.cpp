/*
 * The launch of a copy: every way it can go, the order of what it does, and its
 * one accounting record.
 */
#include "set_driver.h"

#include <cstring>
#include <tuple>

using namespace scripted;

namespace {

const char launch[] = "validate_n_start_copy";

std::string log_line(const std::string &text) {
    return log(std::string(launch) + "(#):" + launch + text);
}

const std::string succeeded =
    "account_lib_interim_update(response_q, \"session-1\", \"operator\", "
    "\"copy r s (SUCCESS)\")";
const std::string failed =
    "account_lib_interim_update(response_q, \"session-1\", \"operator\", "
    "\"copy r s (FAILURE)\")";
const std::string forked =
    info("start_copy : Created the process to copy with pid = 4343\n");

class LaunchTest : public ModuleTest {
  protected:
    /* A stored row of these file types that misses nothing. */
    struct xfCopyEntry stored_row(int source, int dest) {
        struct xfCopyEntry row = make_row(7, XF_ROW_CREATE_AND_GO);
        row.xfCopySourceFileType = source;
        row.xfCopyDestFileType = dest;
        row.xfCopyServerAddressType = 1;
        assign(row.xfCopyServerAddressRev1, "192.0.2.1");
        assign(row.xfCopyFileName, "file");
        store(row);
        return row;
    }
    struct xfCopyEntry running(struct xfCopyEntry row) {
        row.xfCopyEntryRowStatus = XF_ROW_ACTIVE;
        row.xfCopyState = XF_STATE_RUNNING;
        row.xfCopyTimeStarted = {1'700'000'000, 250'000};
        return row;
    }
    void expect_stored(const struct xfCopyEntry &expected) {
        ASSERT_TRUE(stored(7).has_value());
        EXPECT_EQ("", difference(expected, *stored(7)));
    }
    /* The system manager accepts the save. */
    void accept_save() {
        p.to_receive.push_back(
            {0, 0, p.message(1381, std::string("\x40\x1e\x00\x03", 4))});
    }
};

} // namespace

/* ---- Refused by validation -------------------------------------------------
 */

TEST_F(LaunchTest, refusedRequestReturnsTheValidatorsError) {
    is_snmp_debug_enabled = 1;
    struct xfCopyEntry row = stored_row(3, 6);
    row.xfCopyTimeStarted = {1'700'000'000, 5};
    EXPECT_EQ(SNMP_ERR_GENERR, validate_n_start_copy(&row, 1));
    EXPECT_EQ((Story{
                  log_line(": Copy requested with: xfCopyServerAddressRev1 = "
                           "192.0.2.1,xfCopyFileName= file, xfCopyUserName=, "
                           "xfCopyTimeStarted=100000 xfCopyProtocol = 1 "
                           "xfCopySourceFileType = 3, xfCopyDestFileType= 6, "
                           "xfCopyServerAddressType= 1, xfCopyVRFName= \n"),
                  log("validate_entry(#):validate_entry : only running to "
                      "fabric_startupconfig allowed\n"),
                  "log_set_error(0x4049004a, 584)",
                  log_line(" : Validation failed row index = 7 \n"),
                  failed,
              }),
              story());
}

TEST_F(LaunchTest, failedValidationClearsTheStoredStartTime) {
    struct xfCopyEntry row = stored_row(3, 6);
    {
        const Quiet quiet;
        row.xfCopyTimeStarted = {11, 22};
        ASSERT_EQ(0, setXfCopyEntry(&row, 0));
    }
    EXPECT_EQ(SNMP_ERR_GENERR, validate_n_start_copy(&row, 4));
    struct xfCopyEntry expected = row;
    expected.xfCopyTimeStarted = {0, 0};
    expect_stored(expected);
    EXPECT_EQ("", difference(expected, row));
    EXPECT_EQ((Story{"log_set_error(0x4049004a, 584)", failed}), story());
}

TEST_F(LaunchTest, incompleteCreationReturnsNoErrorAndIsStoredNotReady) {
    struct xfCopyEntry row = stored_row(4, 1);
    assign(row.xfCopyFileName, "");
    EXPECT_EQ(SNMP_ERR_NOERROR, validate_n_start_copy(&row, 4));
    EXPECT_EQ(Story{failed}, story());
    struct xfCopyEntry expected = make_row(7, XF_ROW_NOT_READY);
    EXPECT_EQ(XF_ROW_NOT_READY, stored(7)->xfCopyEntryRowStatus);
    EXPECT_EQ(expected.xfCopyState, stored(7)->xfCopyState);
}

TEST_F(LaunchTest, incompleteActivationReturnsInconsistentValue) {
    struct xfCopyEntry row = stored_row(4, 1);
    assign(row.xfCopyFileName, "");
    EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, validate_n_start_copy(&row, 1));
    EXPECT_EQ(Story{failed}, story());
}

TEST_F(LaunchTest, refusedRowThatCannotBeStoredIsGenErr) {
    is_snmp_debug_enabled = 1;
    struct xfCopyEntry row = stored_row(2, 4);
    p.fail_ordset_find_at = 1;
    EXPECT_EQ(SNMP_ERR_GENERR, validate_n_start_copy(&row, 1));
    Story expected = {
        log_line(" : Validation failed row index = 7 \n"),
        log_line(": Set to entry (index= 7) failed after valdation\n"),
        failed,
    };
    const Story all = story();
    EXPECT_EQ(expected, Story(all.end() - 3, all.end()));
    EXPECT_EQ(5u, all.size());
    EXPECT_EQ(XF_ROW_CREATE_AND_GO, stored(7)->xfCopyEntryRowStatus);
}

TEST_F(LaunchTest, debugRecordNamesTheWholeRequestButThePassword) {
    is_snmp_debug_enabled = 1;
    struct xfCopyEntry row = stored_row(4, 1);
    row.xfCopyProtocol = 5;
    row.xfCopyTimeStarted = {1'699'998'999, 990'000}; /* before the agent */
    assign(row.xfCopyUserName, "some-user");
    assign(row.xfCopyUserPassword, "some-secret");
    assign(row.xfCopyVRFName, "some-vrf");
    EXPECT_EQ(SNMP_ERR_NOERROR, validate_n_start_copy(&row, 1));
    EXPECT_EQ(log_line(": Copy requested with: xfCopyServerAddressRev1 = "
                       "192.0.2.1,xfCopyFileName= file, "
                       "xfCopyUserName=some-user, xfCopyTimeStarted=-1 "
                       "xfCopyProtocol = 5 xfCopySourceFileType = 4, "
                       "xfCopyDestFileType= 1, xfCopyServerAddressType= 1, "
                       "xfCopyVRFName= some-vrf\n"),
              story()[0]);
    for (const Event &event : p.journal)
        EXPECT_EQ(std::string::npos, event.text.find("some-secret"));
}

/* ---- To the network and back -----------------------------------------------
 */

TEST_F(LaunchTest, networkCopyIsStoredRunningThenForked) {
    for (const auto &types :
         {std::pair(4, 1), std::pair(3, 1), std::pair(1, 4)}) {
        struct xfCopyEntry row = stored_row(types.first, types.second);
        const struct xfCopyEntry expected = running(row);
        int state_at_fork = 0;
        p.hooks["fork"] = [&] { state_at_fork = stored(7)->xfCopyState; };
        module_state.copyChildRunning = 0;
        p.forget();
        EXPECT_EQ(SNMP_ERR_NOERROR, validate_n_start_copy(&row, 1));
        EXPECT_EQ((Story{"fork()", forked, succeeded}), story());
        EXPECT_EQ(XF_STATE_RUNNING, state_at_fork);
        expect_stored(expected);
        EXPECT_EQ("", difference(expected, row));
        EXPECT_EQ(1u, module_state.copyChildRunning);
        const Quiet quiet;
        deleteXfCopyEntry(&row);
    }
}

TEST_F(LaunchTest, localHostIsRefusedAndTheStoredRowStaysAsItWas) {
    for (const auto &[server, source, dest] :
         {std::tuple("127.0.0.1", 4, 1), std::tuple("0.0.0.0", 4, 1),
          std::tuple("127.0.0.1", 1, 4), std::tuple("0.0.0.0", 1, 4)}) {
        struct xfCopyEntry row = stored_row(source, dest);
        const struct xfCopyEntry before = row;
        assign(row.xfCopyServerAddressRev1, server);
        p.forget();
        is_snmp_debug_enabled = 1;
        EXPECT_EQ(SNMP_ERR_WRONGVALUE, validate_n_start_copy(&row, 1));
        const Story all = story();
        EXPECT_EQ((Story{log_line(std::string(" : Localhost address received "
                                              "(") +
                                  server + ").  Disallowing this operation."),
                         failed}),
                  Story(all.begin() + 1, all.end()));
        expect_stored(before);
        EXPECT_EQ(0u, p.count("fork"));
        const Quiet quiet;
        deleteXfCopyEntry(&row);
    }
}

TEST_F(LaunchTest, otherLoopBackAddressesPass) {
    for (const char *const server :
         {"127.0.0.2", "127.0.0.10", "127.0.0.01", "::1", "0.0.0.00"}) {
        struct xfCopyEntry row = stored_row(1, 4);
        assign(row.xfCopyServerAddressRev1, server);
        module_state.copyChildRunning = 0;
        EXPECT_EQ(SNMP_ERR_NOERROR, validate_n_start_copy(&row, 1)) << server;
        const Quiet quiet;
        deleteXfCopyEntry(&row);
    }
    EXPECT_EQ(5u, p.count("fork"));
}

TEST_F(LaunchTest, networkCopyThatCannotBeStoredIsNotStarted) {
    is_snmp_debug_enabled = 1;
    struct xfCopyEntry row = stored_row(4, 1);
    p.fail_ordset_find_at = 1;
    EXPECT_EQ(SNMP_ERR_GENERR, validate_n_start_copy(&row, 1));
    const Story all = story();
    EXPECT_EQ((Story{log_line(" : Set to entry (index= 7) failed just before "
                              "starting the copy \n"),
                     failed}),
              Story(all.begin() + 1, all.end()));
    EXPECT_EQ(0u, p.count("fork"));
}

TEST_F(LaunchTest, withTheLogOffAFailureToStoreIsStillGenErr) {
    for (const int32_t source : {2, 4}) { /* refused; to be started */
        struct xfCopyEntry row = stored_row(source, 1);
        p.forget();
        p.fail_ordset_find_at = 1;
        EXPECT_EQ(SNMP_ERR_GENERR, validate_n_start_copy(&row, 1));
        EXPECT_EQ(Story{failed}, story());
        const Quiet quiet;
        deleteXfCopyEntry(&row);
    }
}

TEST_F(LaunchTest, aChildThatStillRunsFailsTheLaunch) {
    struct xfCopyEntry row = stored_row(4, 1);
    module_state.copyChildRunning = 1;
    EXPECT_EQ(SNMP_ERR_GENERR, validate_n_start_copy(&row, 1));
    EXPECT_EQ(
        (Story{info("start_copy: child process is still running\n"), failed}),
        story());
    expect_stored(running(row));
}

/* ---- Within the switch -----------------------------------------------------
 */

TEST_F(LaunchTest, startupToRunningForks) {
    struct xfCopyEntry row = stored_row(3, 4);
    /* The addresses that a network copy is refused for do not matter. */
    assign(row.xfCopyServerAddressRev1, "127.0.0.1");
    const struct xfCopyEntry expected = running(row);
    EXPECT_EQ(SNMP_ERR_NOERROR, validate_n_start_copy(&row, 1));
    EXPECT_EQ((Story{"fork()", forked, succeeded}), story());
    expect_stored(expected);
}

TEST_F(LaunchTest, runningToStartupGoesToTheSystemManagerAndNeverForks) {
    for (const int dest : {3, 6, 7}) {
        struct xfCopyEntry row = stored_row(4, dest);
        int state_at_send = 0;
        p.hooks["ipcbus_send"] = [&] {
            state_at_send = stored(7)->xfCopyState;
        };
        accept_save();
        p.forget();
        EXPECT_EQ(SNMP_ERR_NOERROR, validate_n_start_copy(&row, 1));
        EXPECT_EQ(0u, p.count("fork"));
        EXPECT_EQ(1u, p.count("ipcbus_send"));
        EXPECT_EQ(1u, p.count("account_lib_interim_update"));
        EXPECT_EQ(succeeded, story().back());
        EXPECT_EQ(XF_STATE_RUNNING, state_at_send);
        EXPECT_EQ(XF_STATE_RUNNING, stored(7)->xfCopyState);
        EXPECT_EQ(0u, module_state.copyChildRunning);
        const Quiet quiet;
        deleteXfCopyEntry(&row);
    }
}

TEST_F(LaunchTest, resultOfTheSaveIsNotLookedAt) {
    struct xfCopyEntry row = stored_row(4, 3);
    p.send_results.then(-1, 111);
    EXPECT_EQ(SNMP_ERR_NOERROR, validate_n_start_copy(&row, 1));
    EXPECT_EQ(succeeded, story().back());
    EXPECT_EQ(XF_STATE_FAILED, row.xfCopyState);
}

TEST_F(LaunchTest, saveThatCannotBeStoredIsNotStarted) {
    struct xfCopyEntry row = stored_row(4, 3);
    p.fail_ordset_find_at = 1;
    EXPECT_EQ(SNMP_ERR_GENERR, validate_n_start_copy(&row, 1));
    EXPECT_EQ((Story{error("validate_n_start_copy : Set to entry (index= 7) "
                           "failed just beforestarting copy running to "
                           "startup\n"),
                     failed}),
              story());
}

/* The rules let no other pair through that has known file types. */
TEST_F(LaunchTest, otherPairsStartNothing) {
    for (const auto &types : {std::pair(4, 0), std::pair(3, 8), std::pair(6, 4),
                              std::pair(6, 3), std::pair(0, 3)}) {
        struct xfCopyEntry row = stored_row(types.first, types.second);
        const struct xfCopyEntry before = row;
        p.forget();
        EXPECT_EQ(SNMP_ERR_NOERROR, validate_n_start_copy(&row, 1));
        EXPECT_EQ(Story{succeeded}, story());
        EXPECT_EQ("", difference(running(before), row));
        expect_stored(before);
        const Quiet quiet;
        deleteXfCopyEntry(&row);
    }
}

/* ---- Accounting ------------------------------------------------------------
 */

TEST_F(LaunchTest, accountingAsksForSessionAndUserOfRequestZero) {
    struct xfCopyEntry row = stored_row(4, 1);
    p.session_id = "";
    p.user_name = "another \"user\"";
    EXPECT_EQ(SNMP_ERR_NOERROR, validate_n_start_copy(&row, 1));
    ASSERT_EQ(1u, p.count("get_snmp_sessionid"));
    ASSERT_EQ(1u, p.count("get_snmp_username"));
    EXPECT_EQ("get_snmp_sessionid(0)",
              p.calls_of("get_snmp_sessionid")[0].text);
    EXPECT_EQ("get_snmp_username(0)", p.calls_of("get_snmp_username")[0].text);
    const std::vector<Event> records = p.calls_of("account_lib_interim_update");
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ((std::vector<std::string>{"", "another \"user\"",
                                        "copy r s (SUCCESS)"}),
              records[0].strings);
}

TEST_F(LaunchTest, clockIsReadOnceAndItsMicrosecondsKept) {
    struct xfCopyEntry row = stored_row(4, 1);
    p.now_seconds = 2'000'000'001;
    p.now_microseconds = 999'999;
    EXPECT_EQ(SNMP_ERR_NOERROR, validate_n_start_copy(&row, 1));
    EXPECT_EQ(2'000'000'001, stored(7)->xfCopyTimeStarted.seconds);
    EXPECT_EQ(999'999, stored(7)->xfCopyTimeStarted.microseconds);
    EXPECT_EQ(1u, p.count("gettimeofday"));
}
