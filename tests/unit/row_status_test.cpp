/*
 * The row status: what each phase answers, stores, says and keeps in the undo
 * list; and whole requests through all their phases.
 */
#include "set_driver.h"

#include <cstring>

using namespace scripted;

namespace {

constexpr int32_t row_index = 7;
constexpr oid row_status = 14;

const char handler[] = "set_xfCopyEntryRowStatus";

Binding written(long value, int32_t index = row_index) {
    return integer(row_status, index, value);
}

std::string error_line(const std::string &text) {
    return error(handler + text);
}
std::string info_line(const std::string &text) {
    return info(handler + text);
}
/* A debug log record of this handler: its name, the line, its name. */
std::string log_line(const std::string &text) {
    return log(std::string(handler) + "(#):" + handler + text);
}

const std::string entering_reserve1 = log(
    std::string(handler) + "(#):DEBUG: " + handler + " :  Entering RESERVE1\n");
const std::string alarm_registered =
    "snmp_alarm_register(101, SA_REPEAT, cfgentry_age_timer_handler, NULL)";
const Story copy_is_in_progress = {
    error(std::string(": ") + handler + " : Another Copy is in progress\n"),
    "log_set_error(0x40490049, 584)"};

class RowStatusTest : public ModuleTest {
  protected:
    struct xfCopyEntry row_with(int32_t status) {
        struct xfCopyEntry row = make_row(row_index, status);
        assign(row.xfCopyFileName, "kept");
        row.xfCopyFailCause = 7;
        return row;
    }
    /* Something other than this row's copy is in progress. */
    void run_a_child() {
        module_state.copyChildRunning = 1;
    }
    void run_another_row() {
        struct xfCopyEntry other = make_row(3, XF_ROW_ACTIVE);
        other.xfCopyState = XF_STATE_RUNNING;
        store(other);
    }
    void expect_row(const struct xfCopyEntry &expected) {
        ASSERT_TRUE(stored(expected.xfCopyIndex).has_value());
        EXPECT_EQ("", difference(expected, *stored(expected.xfCopyIndex)));
    }
    void expect_no_row(int32_t index = row_index) {
        EXPECT_FALSE(stored(index).has_value());
    }
    int phase(int phase, long value, int32_t index = row_index) {
        return set_phase(written(value, index), phase);
    }
    /* Puts a record into the undo list, as RESERVE1 does. */
    void keep_undo_record(const struct xfCopyEntry &row) {
        const Quiet quiet;
        store(row);
        ASSERT_EQ(SNMP_ERR_NOERROR, phase(RESERVE1, 6));
        ASSERT_EQ(1u, undo_indexes().size());
        deleteXfCopyEntry(&row);
    }
    /* The handler with an OID of the test's own. */
    int call(int phase, long value, std::vector<oid> name) {
        return set_xfCopyEntryRowStatus(
            phase, reinterpret_cast<u_char *>(&value), ASN_INTEGER,
            sizeof(value), nullptr, name.data(), name.size());
    }
    /* A copy to the network that misses nothing. */
    struct xfCopyEntry complete_row(int32_t status) {
        struct xfCopyEntry row = make_row(row_index, status);
        row.xfCopySourceFileType = XF_FILE_RUNNING;
        row.xfCopyDestFileType = XF_FILE_NETWORK;
        row.xfCopyServerAddressType = 1;
        assign(row.xfCopyServerAddressRev1, "192.0.2.1");
        assign(row.xfCopyFileName, "file");
        return row;
    }
};

} // namespace

/* ---- RESERVE1: what is refused ---------------------------------------------
 */

TEST_F(RowStatusTest, reserve1RefusesOtherTypesOnStandardError) {
    for (const int type :
         {ASN_BOOLEAN, ASN_OCTET_STR, ASN_NULL, ASN_OBJECT_ID, ASN_IPADDRESS,
          ASN_COUNTER, ASN_UNSIGNED, ASN_TIMETICKS, ASN_COUNTER64}) {
        Binding binding = written(5);
        binding.type = static_cast<u_char>(type);
        p.forget();
        EXPECT_EQ(SNMP_ERR_WRONGTYPE, set_phase(binding, RESERVE1));
        EXPECT_EQ(Story{err("write to xfCopyEntryRowStatus not ASN_INTEGER\n")},
                  story());
    }
    expect_no_row();
}

TEST_F(RowStatusTest, reserve1RefusesLengthsOnStandardError) {
    for (size_t length = 0; length <= 17; length++) {
        Binding binding = written(5);
        binding.octets.assign(length, '\0');
        p.forget();
        const int error = set_phase(binding, RESERVE1);
        if (length > 4 && length != sizeof(long)) {
            EXPECT_EQ(SNMP_ERR_WRONGLENGTH, error) << length;
            EXPECT_EQ(Story{err("write to xfCopyEntryRowStatus: bad length\n")},
                      story());
        } else {
            /* Octets that are not there are zero, and so is the value. */
            EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, error) << length;
            EXPECT_EQ(Story{}, story());
        }
    }
    expect_no_row();
}

TEST_F(RowStatusTest, reserve1TakesFourOctetsAndTheAgentsLong) {
    EXPECT_EQ(SNMP_ERR_NOERROR,
              set_phase(integer4(row_status, 1, 5), RESERVE1));
    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(integer(row_status, 2, 5), RESERVE1));
    EXPECT_EQ((std::vector<int32_t>{1, 2}), stored_indexes());
}

TEST_F(RowStatusTest, reserve1LogsItsEntryBeforeAnyTest) {
    is_snmp_debug_enabled = 1;
    Binding binding = written(5);
    binding.type = ASN_NULL;
    EXPECT_EQ(SNMP_ERR_WRONGTYPE, set_phase(binding, RESERVE1));
    EXPECT_EQ((Story{entering_reserve1,
                     err("write to xfCopyEntryRowStatus not ASN_INTEGER\n")}),
              story());
}

TEST_F(RowStatusTest, valuesThatCannotBeWrittenAreInconsistent) {
    for (const long value : {-1L, 0L, 2L, 3L, 7L, 1000L, long{INT32_MIN}}) {
        EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, phase(RESERVE1, value)) << value;
        expect_no_row();
    }
    store(row_with(XF_ROW_NOT_READY));
    run_a_child(); /* tested later than the value */
    for (const long value : {-1L, 0L, 2L, 3L, 7L, 1000L, long{INT32_MIN}})
        EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, phase(RESERVE1, value)) << value;
    EXPECT_EQ(Story{}, story());
    expect_row(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

TEST_F(RowStatusTest, createAndGoOnAnExistingRowIsInconsistent) {
    store(row_with(XF_ROW_NOT_READY));
    run_a_child(); /* tested later */
    EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, phase(RESERVE1, 4));
    EXPECT_EQ(Story{error_line(" : CreateAndGo on a existing row\n")}, story());
    expect_row(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

TEST_F(RowStatusTest, aSecondCopyIsRefused) {
    run_another_row();
    for (const long value : {1L, 4L}) {
        p.forget();
        EXPECT_EQ(SNMP_ERR_GENERR, phase(RESERVE1, value)) << value;
        EXPECT_EQ(copy_is_in_progress, story());
        expect_no_row();
    }
    store(row_with(XF_ROW_NOT_READY));
    p.forget();
    EXPECT_EQ(SNMP_ERR_GENERR, phase(RESERVE1, 1));
    EXPECT_EQ(copy_is_in_progress, story());
    expect_row(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

TEST_F(RowStatusTest, activeWhileAnotherRowsCopyRunsIsGenErr) {
    run_another_row();
    store(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_GENERR, set_request({written(1)}));
    EXPECT_EQ("0 4", phases_seen);
}

TEST_F(RowStatusTest, aRunningChildIsACopyInProgressToo) {
    run_a_child();
    EXPECT_EQ(SNMP_ERR_GENERR, phase(RESERVE1, 4));
    EXPECT_EQ(SNMP_ERR_GENERR, phase(RESERVE1, 1));
    expect_no_row();
}

TEST_F(RowStatusTest, aSecondCopyIsRefusedBeforeItsIndexIsLookedAt) {
    run_a_child();
    for (const long value : {1L, 4L}) {
        p.forget();
        EXPECT_EQ(SNMP_ERR_GENERR, phase(RESERVE1, value, 0)) << value;
        EXPECT_EQ(copy_is_in_progress, story());
    }
}

TEST_F(RowStatusTest, rowsAreMadeAndDestroyedWhileACopyRuns) {
    run_a_child();
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({written(5)}));
    EXPECT_EQ(XF_ROW_NOT_READY, stored(row_index)->xfCopyEntryRowStatus);
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({written(6)}));
    expect_no_row();
}

/* ---- RESERVE1: the undo record ---------------------------------------------
 */

TEST_F(RowStatusTest, undoRecordIsTheRowBeforeItsStatusChanges) {
    store(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(RESERVE1, 1));
    EXPECT_EQ(Story{info_line(" : Setting xfCopyEntryRowStatus to 3 \n")},
              story());
    ASSERT_EQ(std::vector<int32_t>{row_index}, undo_indexes());
    EXPECT_EQ("",
              difference(row_with(XF_ROW_NOT_READY), *undo_record(row_index)));
    expect_row(row_with(XF_ROW_ACTIVE));
    EXPECT_EQ(1u, p.mallocs);
}

/* The record is what the read handler served last, not a fresh lookup; and
 * looking whether a copy runs does not disturb that. */
TEST_F(RowStatusTest, undoRecordComesFromTheReadHandlersRow) {
    store(make_row(1));
    store(row_with(XF_ROW_NOT_READY));
    store(make_row(99));
    ASSERT_TRUE(read_before_set(written(1)));
    module_state.read_row.xfCopyFailCause = 1234;

    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(written(1), RESERVE1, true));
    ASSERT_TRUE(undo_record(row_index).has_value());
    EXPECT_EQ(1234, undo_record(row_index)->xfCopyFailCause);
    EXPECT_STREQ("kept", undo_record(row_index)->xfCopyFileName);
    expect_row(row_with(XF_ROW_ACTIVE));
}

TEST_F(RowStatusTest, undoRecordWithoutMemoryIsGenErr) {
    store(row_with(XF_ROW_NOT_READY));
    p.fail_malloc_at = 1;
    EXPECT_EQ(SNMP_ERR_GENERR, phase(RESERVE1, 6));
    EXPECT_EQ(
        Story{error_line(" : Mallocing for entry into undolist failed\n")},
        story());
    expect_row(row_with(XF_ROW_NOT_READY));
}

TEST_F(RowStatusTest, undoRecordThatTheListRefusesIsFreedAndGenErr) {
    store(row_with(XF_ROW_NOT_READY));
    p.fail_ordset_add_at = 1;
    EXPECT_EQ(SNMP_ERR_GENERR, phase(RESERVE1, 6));
    EXPECT_EQ(Story{error_line(" : Adding undolist failed\n")}, story());
    EXPECT_EQ(1u, p.count("free"));
    expect_row(row_with(XF_ROW_NOT_READY));
}

/* A record of that index is there already: that is a failed insertion. */
TEST_F(RowStatusTest, aSecondUndoRecordOfOneRowIsGenErr) {
    store(row_with(XF_ROW_NOT_READY));
    {
        const Quiet quiet;
        ASSERT_EQ(SNMP_ERR_NOERROR, phase(RESERVE1, 1));
    }
    EXPECT_EQ(SNMP_ERR_GENERR, phase(RESERVE1, 6));
    EXPECT_EQ(Story{error_line(" : Adding undolist failed\n")}, story());
    EXPECT_EQ("",
              difference(row_with(XF_ROW_NOT_READY), *undo_record(row_index)));
}

TEST_F(RowStatusTest, undoListHoldsOneRecordForEachRow) {
    store(make_row(1));
    store(make_row(2));
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(RESERVE1, 6, 2));
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(RESERVE1, 6, 1));
    EXPECT_EQ((std::vector<int32_t>{1, 2}), undo_indexes());
    EXPECT_EQ(0u, size_of(module_state.second_list));
}

/* ---- RESERVE1: rows that are made ------------------------------------------
 */

TEST_F(RowStatusTest, destroyOfAMissingRowIsNoErrorAtOnce) {
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(RESERVE1, 6));
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(RESERVE1, 6, 0));
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(RESERVE1, 6, -5));
    EXPECT_EQ(Story{}, story());
    EXPECT_EQ(std::vector<int32_t>{}, stored_indexes());
    EXPECT_EQ(0u, p.mallocs);
}

TEST_F(RowStatusTest, destroyOfAMissingRowSucceedsAndMakesNothing) {
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({written(6)}));
    EXPECT_EQ("0 1 2 3", phases_seen);
    EXPECT_EQ(std::vector<int32_t>{}, stored_indexes());
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

TEST_F(RowStatusTest, indexesBelowOneAreInconsistentNames) {
    for (const long value : {1L, 4L, 5L})
        for (const int32_t index : {0, -1, -2147483647}) {
            EXPECT_EQ(SNMP_ERR_INCONSISTENTNAME, phase(RESERVE1, value, index));
            EXPECT_EQ(Story{}, story());
        }
    EXPECT_EQ(std::vector<int32_t>{}, stored_indexes());
    EXPECT_EQ(0u, p.mallocs);
}

TEST_F(RowStatusTest, indexZeroWithCreateAndWaitIsAnInconsistentName) {
    EXPECT_EQ(SNMP_ERR_INCONSISTENTNAME, set_request({written(5, 0)}));
}

TEST_F(RowStatusTest, reserve1MakesARowOfDefaultsWithTheStatusAskedFor) {
    for (const int32_t value : {1, 4, 5}) {
        p.forget();
        EXPECT_EQ(SNMP_ERR_NOERROR, phase(RESERVE1, value, value));
        Story expected = {
            info_line(" : Added new entry to xfCopyTable ( index = " +
                      std::to_string(value) + ")\n"),
            alarm_registered,
            info_line(" : Setting xfCopyEntryRowStatus to 0 \n")};
        if (value != 1) /* the alarm comes with the first row */
            expected.erase(expected.begin() + 1);
        EXPECT_EQ(expected, story());
        expect_row(make_row(value, value));
    }
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

TEST_F(RowStatusTest, newRowWithoutMemoryIsGenErr) {
    p.fail_malloc_at = 1;
    EXPECT_EQ(SNMP_ERR_GENERR, phase(RESERVE1, 5));
    EXPECT_EQ(Story{error_line(" : RESERVE1 - Could not malloc for the "
                               "xfCopyEntry for  a new entry \n")},
              story());
    expect_no_row();
}

TEST_F(RowStatusTest, newRowThatTheTableRefusesIsFreedAndGenErr) {
    store(make_row(1));
    p.fail_ordset_add_at = 1;
    EXPECT_EQ(SNMP_ERR_GENERR, phase(RESERVE1, 5));
    EXPECT_EQ(
        (Story{info_line(" : Added new entry to xfCopyTable ( index = 7)\n"),
               error_line(" : Adding a new entry (index = 7) failed\n")}),
        story());
    expect_no_row();
    EXPECT_EQ(1u, p.count("free"));
}

TEST_F(RowStatusTest, createAndWaitOnAnExistingRowIsInconsistent) {
    store(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, phase(RESERVE1, 5));
    EXPECT_EQ(Story{error_line(" : CREATE on a existing row (index = 7)\n")},
              story());
    expect_row(row_with(XF_ROW_NOT_READY));
    /* The record is made before the row is looked at. */
    EXPECT_EQ(std::vector<int32_t>{row_index}, undo_indexes());
}

/* The read handler found no row, but an earlier binding has made it since. */
TEST_F(RowStatusTest, createOfARowThatThisRequestMadeIsInconsistent) {
    for (const long value : {4L, 5L}) {
        store(row_with(XF_ROW_CREATE_AND_WAIT));
        p.forget();
        EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE,
                  set_phase(written(value), RESERVE1, false));
        EXPECT_EQ(
            Story{error_line(" : CREATE on a existing row (index = 7)\n")},
            story());
        expect_row(row_with(XF_ROW_CREATE_AND_WAIT));
        EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
        const Quiet quiet;
        struct xfCopyEntry row = make_row(row_index);
        deleteXfCopyEntry(&row);
    }
}

/* ---- RESERVE1: the status is stored ----------------------------------------
 */

TEST_F(RowStatusTest, storedStatusIsTheOneAskedForBeforeAnyValidation) {
    store(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(RESERVE1, 6));
    EXPECT_EQ(Story{info_line(" : Setting xfCopyEntryRowStatus to 3 \n")},
              story());
    expect_row(row_with(XF_ROW_DESTROY));
}

TEST_F(RowStatusTest, failedWriteBackOfAnExistingRowIsGenErr) {
    store(row_with(XF_ROW_NOT_READY));
    p.fail_ordset_find_at = 3; /* of the read, of the row, of the write-back */
    EXPECT_EQ(SNMP_ERR_GENERR, phase(RESERVE1, 6));
    EXPECT_EQ(
        (Story{info_line(" : Setting xfCopyEntryRowStatus to 3 \n"),
               error_line(" : Setting a new entry (index = 7) failed\n")}),
        story());
    expect_row(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(std::vector<int32_t>{row_index}, undo_indexes());
}

TEST_F(RowStatusTest, failedWriteBackOfARowBeingCreatedDeletesIt) {
    for (const long value : {4L, 5L}) {
        p.forget();
        p.fail_ordset_find_at = 1;
        EXPECT_EQ(SNMP_ERR_GENERR, set_phase(written(value), RESERVE1, false));
        EXPECT_EQ(
            (Story{info_line(" : Added new entry to xfCopyTable ( index = "
                             "7)\n"),
                   alarm_registered,
                   info_line(" : Setting xfCopyEntryRowStatus to 0 \n"),
                   error_line(" : Setting a new entry (index = 7) failed\n"),
                   info("deleteXfCopyErrorEntries : xfCopyErrorTable empty "
                        "forcopy index: 7\n"),
                   "snmp_alarm_unregister(77)"}),
            story());
        expect_no_row();
    }
}

TEST_F(RowStatusTest, failedWriteBackOfAnActiveRowKeepsIt) {
    p.fail_ordset_find_at = 1;
    EXPECT_EQ(SNMP_ERR_GENERR, set_phase(written(1), RESERVE1, false));
    expect_row(make_row(row_index, 0));
}

/* ---- RESERVE2 --------------------------------------------------------------
 */

TEST_F(RowStatusTest, reserve2MarksTheRow) {
    for (const int32_t status : {1, 3, 4, 5, 6}) {
        store(row_with(status));
        p.forget();
        EXPECT_EQ(SNMP_ERR_NOERROR, phase(RESERVE2, 1));
        EXPECT_EQ(Story{}, story());
        struct xfCopyEntry expected = row_with(status);
        expected.rowCreatedByRequest = 1;
        expect_row(expected);
        const Quiet quiet;
        deleteXfCopyEntry(&expected);
    }
}

TEST_F(RowStatusTest, reserve2NeverFails) {
    is_snmp_debug_enabled = 1;
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(RESERVE2, 6));
    EXPECT_EQ(Story{log_line(" :  Entering RESERVE2\n")}, story());
    expect_no_row();

    store(row_with(XF_ROW_NOT_READY));
    p.forget();
    p.fail_ordset_find_at = 2;
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(RESERVE2, 6));
    EXPECT_EQ(Story{log_line(" :  Entering RESERVE2\n")}, story());
    expect_row(row_with(XF_ROW_NOT_READY));
}

/* ---- ACTION ----------------------------------------------------------------
 */

TEST_F(RowStatusTest, actionDestroysTheRow) {
    is_snmp_debug_enabled = 1;
    store(row_with(XF_ROW_DESTROY));
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(ACTION, 6));
    EXPECT_EQ((Story{log_line(" : Entering ACTION for index = 7 \n"),
                     log_line(" : long_ret 6 \n"),
                     info("deleteXfCopyErrorEntries : xfCopyErrorTable empty "
                          "forcopy index: 7\n"),
                     "snmp_alarm_unregister(77)"}),
              story());
    expect_no_row();
}

TEST_F(RowStatusTest, actionAbortsTheSaveOfTheRowItDestroys) {
    struct xfCopyEntry row = row_with(XF_ROW_DESTROY);
    row.xfCopyState = XF_STATE_RUNNING;
    row.xfCopySourceFileType = XF_FILE_RUNNING;
    row.xfCopyDestFileType = XF_FILE_STARTUP;
    store(row);
    module_state.save_request = p.message(1381, "");
    module_state.save_request->token = 0x01020304;

    EXPECT_EQ(SNMP_ERR_NOERROR, phase(ACTION, 6));
    EXPECT_EQ((Story{info("Sending request to procd to abort the copy running "
                          "to startup"),
                     "ipcbus_send(response_q, {0xfe000000, 3}, 1383, 8 octets, "
                     "0, 0, NULL)",
                     "ipcbus_drop(response_q, message1)",
                     info("deleteXfCopyErrorEntries : xfCopyErrorTable empty "
                          "forcopy index: 7\n"),
                     "snmp_alarm_unregister(77)"}),
              story());
    expect_no_row();
}

TEST_F(RowStatusTest, actionTurnsCreateAndWaitIntoNotReady) {
    is_snmp_debug_enabled = 1;
    store(row_with(XF_ROW_CREATE_AND_WAIT));
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(ACTION, 5));
    EXPECT_EQ((Story{log_line(" : Entering ACTION for index = 7 \n"),
                     log_line(" : long_ret 5 \n")}),
              story());
    expect_row(row_with(XF_ROW_NOT_READY));
}

TEST_F(RowStatusTest, actionOfCreateAndWaitOnAnotherStatusStoresFive) {
    for (const int32_t status : {0, 1, 3, 4}) {
        store(row_with(status));
        EXPECT_EQ(SNMP_ERR_NOERROR, phase(ACTION, 5)) << status;
        expect_row(row_with(XF_ROW_CREATE_AND_WAIT));
        const Quiet quiet;
        struct xfCopyEntry row = make_row(row_index);
        deleteXfCopyEntry(&row);
    }
}

TEST_F(RowStatusTest, actionThatCannotWriteBackIsLoggedAndGenErr) {
    is_snmp_debug_enabled = 1;
    store(row_with(XF_ROW_CREATE_AND_WAIT));
    p.fail_ordset_find_at = 2;
    EXPECT_EQ(SNMP_ERR_GENERR, phase(ACTION, 5));
    EXPECT_EQ((Story{log_line(" : Entering ACTION for index = 7 \n"),
                     log_line(" : long_ret 5 \n"),
                     log_line(" : Set to 5 failed \n")}),
              story());
    expect_row(row_with(XF_ROW_CREATE_AND_WAIT));
}

TEST_F(RowStatusTest, actionWithoutTheRowIsNoErrorForDestroyOnly) {
    is_snmp_debug_enabled = 1;
    for (const int32_t value : {1, 4, 5, 6}) {
        p.forget();
        EXPECT_EQ(value == 6 ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR,
                  phase(ACTION, value));
        EXPECT_EQ((Story{log_line(" : Entering ACTION for index = 7 \n"),
                         log_line(" : second long_ret " +
                                  std::to_string(value) + " \n")}),
                  story());
    }
    expect_no_row();
}

TEST_F(RowStatusTest, actionReturnsTheValidatorsErrorAndLogsZeroForIt) {
    is_snmp_debug_enabled = 1;
    store(row_with(XF_ROW_ACTIVE)); /* network to startup */
    EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, phase(ACTION, 1));
    EXPECT_EQ(log_line(" : Validation failed (ret_code = 0) \n"),
              story().back());
    expect_row(row_with(XF_ROW_ACTIVE));
}

TEST_F(RowStatusTest, actionRefusesALoopBackServerAndKeepsTheStoredRow) {
    struct xfCopyEntry row = complete_row(XF_ROW_ACTIVE);
    assign(row.xfCopyServerAddressRev1, "127.0.0.1");
    store(row);
    EXPECT_EQ(SNMP_ERR_WRONGVALUE, phase(ACTION, 1));
    expect_row(row);
}

TEST_F(RowStatusTest, actionWritesBackWhatTheLaunchMadeOfTheRow) {
    struct xfCopyEntry row = make_row(row_index, XF_ROW_ACTIVE);
    row.xfCopySourceFileType = XF_FILE_RUNNING;
    row.xfCopyDestFileType = XF_FILE_STARTUP;
    store(row);
    /* Done at once: the save changes the private copy only. */
    p.to_receive.push_back({0, 0, p.message(1381, std::string(4, '\0'))});

    EXPECT_EQ(SNMP_ERR_NOERROR, phase(ACTION, 1));
    row.xfCopyState = XF_STATE_SUCCESSFUL;
    row.xfCopyTimeStarted = {1'700'000'000, 250'000};
    row.xfCopyTimeCompleted = {1'700'000'000, 250'000};
    expect_row(row);
}

/* A request that could not be sent answers no error and leaves it failed. */
TEST_F(RowStatusTest, actionOfASaveThatCouldNotBeSentLeavesAFailedRow) {
    struct xfCopyEntry row = make_row(row_index, XF_ROW_ACTIVE);
    row.xfCopySourceFileType = XF_FILE_RUNNING;
    row.xfCopyDestFileType = XF_FILE_STARTUP;
    store(row);
    p.send_results.then(-1, 111);

    EXPECT_EQ(SNMP_ERR_NOERROR, phase(ACTION, 1));
    EXPECT_EQ(XF_STATE_FAILED, stored(row_index)->xfCopyState);
    EXPECT_EQ(1'700'000'000, stored(row_index)->xfCopyTimeCompleted.seconds);
}

TEST_F(RowStatusTest, actionThatCannotWriteBackTheLaunchedRowIsGenErr) {
    store(complete_row(XF_ROW_ACTIVE));
    p.fail_ordset_find_at = 3; /* of the row, of the launch, of the end */
    EXPECT_EQ(SNMP_ERR_GENERR, phase(ACTION, 1));
    EXPECT_EQ(1u, p.count("fork"));
}

/* ---- COMMIT ----------------------------------------------------------------
 */

TEST_F(RowStatusTest, commitClearsTheChangeTimeFlagForCreateAndGoAndDestroy) {
    for (const int32_t value : {1, 4, 5, 6}) {
        change_time_flag = 1;
        EXPECT_EQ(SNMP_ERR_NOERROR, phase(COMMIT, value));
        EXPECT_EQ(value == 4 || value == 6 ? 0 : 1, change_time_flag) << value;
    }
    EXPECT_EQ(Story{}, story());
}

TEST_F(RowStatusTest, onlyCommitClearsTheChangeTimeFlag) {
    store(row_with(XF_ROW_DESTROY));
    for (const int any : {RESERVE1, RESERVE2, FREE, ACTION, UNDO, -1, 6})
        phase(any, 6);
    EXPECT_EQ(1, change_time_flag);
}

TEST_F(RowStatusTest, commitDropsTheUndoRecord) {
    is_snmp_debug_enabled = 1;
    keep_undo_record(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(COMMIT, 1));
    EXPECT_EQ(
        Story{log_line(" : COMMIT Removing the entry from undo list  (index "
                       "= 7)\n")},
        story());
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
    EXPECT_EQ(1u, p.count("free"));

    p.forget();
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(COMMIT, 1));
    EXPECT_EQ(Story{}, story());
}

/* COMMIT and UNDO parse the OID: one sub-identifier behind the column. */
TEST_F(RowStatusTest, commitAndUndoTakeTheIndexFromAWholeInstanceOnly) {
    const std::vector<oid> instance = copy_column(row_status, {7});
    const std::vector<oid> longer = copy_column(row_status, {9, 7});

    keep_undo_record(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_NOERROR, call(COMMIT, 1, longer));
    EXPECT_EQ(SNMP_ERR_NOERROR, call(COMMIT, 1, {1, 2, 7}));
    EXPECT_EQ(std::vector<int32_t>{row_index}, undo_indexes());
    EXPECT_EQ(SNMP_ERR_GENERR, call(UNDO, 6, longer));
    EXPECT_EQ(std::vector<int32_t>{row_index}, undo_indexes());
    EXPECT_EQ(info_line(" : Entering UNDO for index = 0\n"), story()[0]);
    EXPECT_EQ(SNMP_ERR_NOERROR, call(COMMIT, 1, instance));
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

/* ---- FREE ------------------------------------------------------------------
 */

TEST_F(RowStatusTest, freeLogsItsEntry) {
    is_snmp_debug_enabled = 1;
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(FREE, 4));
    EXPECT_EQ(Story{log_line(" : Entering FREE for index = 7\n")}, story());
}

TEST_F(RowStatusTest, freeDeletesARowThatReachedReserve2) {
    for (const int32_t status : {4, 5})
        for (const int32_t value : {4, 5}) {
            struct xfCopyEntry row = row_with(status);
            row.rowCreatedByRequest = 1;
            store(row);
            EXPECT_EQ(SNMP_ERR_NOERROR, phase(FREE, value));
            expect_no_row();
        }
}

TEST_F(RowStatusTest, freeKeepsARowThatDidNotReachReserve2) {
    for (const int32_t status : {4, 5})
        for (const int32_t value : {4, 5}) {
            store(row_with(status));
            EXPECT_EQ(SNMP_ERR_NOERROR, phase(FREE, value));
            expect_row(row_with(status));
            const Quiet quiet;
            struct xfCopyEntry row = make_row(row_index);
            deleteXfCopyEntry(&row);
        }
}

TEST_F(RowStatusTest, freeOfOtherValuesKeepsTheRowAndTheRecord) {
    struct xfCopyEntry row = row_with(XF_ROW_CREATE_AND_WAIT);
    row.rowCreatedByRequest = 1;
    keep_undo_record(row);
    store(row);
    for (const int32_t value : {1, 2, 3, 6, 0, 7})
        EXPECT_EQ(SNMP_ERR_NOERROR, phase(FREE, value));
    expect_row(row);
    EXPECT_EQ(std::vector<int32_t>{row_index}, undo_indexes());
}

TEST_F(RowStatusTest, freeLeavesTheRecordOfARowThatIsNotBeingCreated) {
    for (const int32_t status : {0, 1, 2, 3, 6}) {
        struct xfCopyEntry row = row_with(status);
        row.rowCreatedByRequest = 1;
        keep_undo_record(row);
        store(row);
        for (const int32_t value : {1, 4, 5, 6})
            EXPECT_EQ(SNMP_ERR_NOERROR, phase(FREE, value));
        EXPECT_EQ(Story{}, texts());
        expect_row(row);
        EXPECT_EQ(std::vector<int32_t>{row_index}, undo_indexes());
        const Quiet quiet;
        phase(COMMIT, 1);
        deleteXfCopyEntry(&row);
    }
}

TEST_F(RowStatusTest, freeDropsTheRecordOfACreation) {
    for (const int32_t value : {4, 5}) {
        /* The row is gone, or is being created. */
        keep_undo_record(row_with(XF_ROW_CREATE_AND_WAIT));
        EXPECT_EQ(SNMP_ERR_NOERROR, phase(FREE, value));
        EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());

        keep_undo_record(row_with(XF_ROW_CREATE_AND_WAIT));
        store(row_with(XF_ROW_CREATE_AND_WAIT));
        EXPECT_EQ(SNMP_ERR_NOERROR, phase(FREE, value));
        EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
        expect_row(row_with(XF_ROW_CREATE_AND_WAIT));
        const Quiet quiet;
        struct xfCopyEntry row = make_row(row_index);
        deleteXfCopyEntry(&row);
    }
}

/* createAndWait on a row that is notReady: refused in RESERVE1 with its record
 * made, and FREE leaves that where it is. */
TEST_F(RowStatusTest, aRefusedCreateAndWaitLeavesItsRecordBehind) {
    store(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, set_request({written(5)}));
    EXPECT_EQ("0 4", phases_seen);
    EXPECT_EQ(std::vector<int32_t>{row_index}, undo_indexes());
    /* The next change of that row's status trips over it. */
    EXPECT_EQ(SNMP_ERR_GENERR, set_request({written(6)}));
}

/* ---- UNDO ------------------------------------------------------------------
 */

TEST_F(RowStatusTest, undoWithoutARecordIsGenErrForActiveAndDestroy) {
    for (const long value : {1L, 6L}) {
        p.forget();
        EXPECT_EQ(SNMP_ERR_GENERR, phase(UNDO, value));
        EXPECT_EQ((Story{info_line(" : Entering UNDO for index = 7\n"),
                         error_line(" : Could not get the structure for undo "
                                    "list for UNDO (index = 7)\n")}),
                  story());
    }
}

TEST_F(RowStatusTest, undoOfActiveSetsTheRowBack) {
    keep_undo_record(row_with(XF_ROW_NOT_READY));
    struct xfCopyEntry row = complete_row(XF_ROW_ACTIVE);
    store(row);
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(UNDO, 1));
    EXPECT_EQ(
        (Story{info_line(" : Entering UNDO for index = 7\n"),
               info_line(" : UNDO Setting back the value  (index = 7)\n")}),
        story());
    expect_row(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

TEST_F(RowStatusTest, undoOfActiveThatCannotBeStoredIsGenErr) {
    keep_undo_record(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_GENERR, phase(UNDO, 1)); /* the row is gone */
    EXPECT_EQ(
        (Story{info_line(" : Entering UNDO for index = 7\n"),
               info_line(" : UNDO Setting back the value  (index = 7)\n")}),
        story());
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
    EXPECT_EQ(0u, p.count("free"));
    p.expected_leaks = 1; /* the record is not freed then */
}

/* The answers are the wrong way round on purpose. */
TEST_F(RowStatusTest, undoOfDestroyIsGenErrWhenTheRowIsBack) {
    keep_undo_record(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_GENERR, phase(UNDO, 6));
    EXPECT_EQ(
        (Story{info_line(" : Entering UNDO for index = 7\n"),
               info_line(" : UNDO Adding the deleted entry (index = 7)\n"),
               alarm_registered}),
        story());
    expect_row(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
    EXPECT_EQ(0u, p.count("free"));
}

TEST_F(RowStatusTest, undoOfDestroyIsNoErrorWhenTheRowIsLost) {
    keep_undo_record(row_with(XF_ROW_NOT_READY));
    store(complete_row(XF_ROW_ACTIVE)); /* of the same index */
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(UNDO, 6));
    EXPECT_EQ(
        (Story{info_line(" : Entering UNDO for index = 7\n"),
               info_line(" : UNDO Adding the deleted entry (index = 7)\n")}),
        story());
    expect_row(complete_row(XF_ROW_ACTIVE));
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
    EXPECT_EQ(1u, p.count("free"));
}

TEST_F(RowStatusTest, undoMakesACopyRunOrNotAsItsRecordDid) {
    struct xfCopyEntry row = complete_row(XF_ROW_ACTIVE);
    row.xfCopyState = XF_STATE_RUNNING;

    keep_undo_record(row);
    EXPECT_EQ(0, copy_inprogress());
    EXPECT_EQ(SNMP_ERR_GENERR, phase(UNDO, 6));
    EXPECT_EQ(1, copy_inprogress());

    {
        const Quiet quiet;
        deleteXfCopyEntry(&row);
    }
    keep_undo_record(row_with(XF_ROW_NOT_READY));
    store(row);
    EXPECT_EQ(1, copy_inprogress());
    EXPECT_EQ(SNMP_ERR_NOERROR, phase(UNDO, 1));
    EXPECT_EQ(0, copy_inprogress());
}

TEST_F(RowStatusTest, undoOfACreationDeletesTheRow) {
    for (const long value : {4L, 5L}) {
        store(row_with(XF_ROW_CREATE_AND_GO));
        store(make_row(8));
        p.forget();
        EXPECT_EQ(SNMP_ERR_NOERROR, phase(UNDO, value));
        EXPECT_EQ((Story{info_line(" : Entering UNDO for index = 7\n"),
                         info_line(" : UNDO - Deleting the added entry (index "
                                   "= 7) failed\n"),
                         info("deleteXfCopyErrorEntries : xfCopyErrorTable "
                              "empty forcopy index: 7\n")}),
                  story());
        EXPECT_EQ(std::vector<int32_t>{8}, stored_indexes());
        const Quiet quiet;
        struct xfCopyEntry row = make_row(8);
        deleteXfCopyEntry(&row);
    }
}

TEST_F(RowStatusTest, undoOfACreationWithARecordDropsTheRecordOnly) {
    for (const long value : {4L, 5L}) {
        keep_undo_record(row_with(XF_ROW_NOT_READY));
        store(complete_row(XF_ROW_CREATE_AND_GO));
        p.forget();
        EXPECT_EQ(SNMP_ERR_NOERROR, phase(UNDO, value));
        EXPECT_EQ(Story{info_line(" : Entering UNDO for index = 7\n")},
                  story());
        EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
        EXPECT_EQ(1u, p.count("free"));
        expect_row(complete_row(XF_ROW_CREATE_AND_GO));
        const Quiet quiet;
        struct xfCopyEntry row = make_row(row_index);
        deleteXfCopyEntry(&row);
    }
}

TEST_F(RowStatusTest, unknownPhasesDoNothing) {
    is_snmp_debug_enabled = 1;
    store(row_with(XF_ROW_CREATE_AND_WAIT));
    for (const int any : {-1, 6, 7, 99})
        EXPECT_EQ(SNMP_ERR_NOERROR, phase(any, 6));
    EXPECT_EQ(Story{}, story());
    expect_row(row_with(XF_ROW_CREATE_AND_WAIT));
}

TEST_F(RowStatusTest, noLengthMakesAPhaseReadPastTheValue) {
    store(row_with(XF_ROW_NOT_READY));
    for (size_t length = 0; length <= 17; length++)
        for (const int any : {RESERVE2, FREE, COMMIT}) {
            Binding binding = written(3);
            binding.octets.assign(length, '\x33');
            EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(binding, any));
        }
}

/* ---- Whole requests: stored status by written value ------------------------
 */

TEST_F(RowStatusTest, createAndGoOfACompleteRequestIsRunning) {
    EXPECT_EQ(SNMP_ERR_NOERROR,
              set_request({integer(3, row_index, 4), integer(4, row_index, 1),
                           ip_address(5, row_index, "\xC0\xA8\x01\x01"),
                           octets(6, row_index, "file"), written(4)}));
    EXPECT_EQ("0 1 2 3", phases_seen);
    struct xfCopyEntry expected = make_row(row_index, XF_ROW_ACTIVE);
    expected.xfCopySourceFileType = 4;
    expected.xfCopyDestFileType = 1;
    memcpy(&expected.xfCopyServerAddress, "\xC0\xA8\x01\x01", 4);
    expected.xfCopyServerAddressType = 1;
    assign(expected.xfCopyServerAddressRev1, "192.168.1.1");
    assign(expected.xfCopyFileName, "file");
    expected.xfCopyState = XF_STATE_RUNNING;
    expected.xfCopyTimeStarted = {1'700'000'000, 250'000};
    expected.rowCreatedByRequest = 1;
    expect_row(expected);
    EXPECT_EQ(1u, p.count("fork"));
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
    EXPECT_EQ(0, change_time_flag);
}

TEST_F(RowStatusTest, createAndGoWithEveryColumnInOneRequest) {
    const std::vector<Binding> bindings = {
        written(4),
        integer(2, row_index, 5),
        integer(3, row_index, 4),
        integer(4, row_index, 1),
        ip_address(5, row_index, "\xC0\xA8\x01\x01"),
        octets(6, row_index, "file"),
        octets(7, row_index, "user"),
        octets(8, row_index, "password"),
        integer(9, row_index, 1),
        integer(15, row_index, 2),
        octets(16, row_index, "\x20\x01\x0d\xb8"),
        octets(17, row_index, "vrf")};

    EXPECT_EQ(SNMP_ERR_NOERROR, set_request(bindings));
    const struct xfCopyEntry row = *stored(row_index);
    EXPECT_EQ(XF_ROW_ACTIVE, row.xfCopyEntryRowStatus);
    EXPECT_EQ(XF_STATE_RUNNING, row.xfCopyState);
    EXPECT_EQ(5, row.xfCopyProtocol);
    EXPECT_STREQ("user", row.xfCopyUserName);
    EXPECT_STREQ("password", row.xfCopyUserPassword);
    EXPECT_EQ(1, row.xfCopyNotificationOnCompletion);
    EXPECT_EQ(2, row.xfCopyServerAddressType);
    EXPECT_STREQ("2001:db8::", row.xfCopyServerAddressRev1);
    EXPECT_STREQ("vrf", row.xfCopyVRFName);
    EXPECT_EQ(1u, p.count("fork"));
}

TEST_F(RowStatusTest, createAndGoOfAnIncompleteRequestWaits) {
    EXPECT_EQ(SNMP_ERR_NOERROR,
              set_request({integer(3, row_index, 4), integer(4, row_index, 1),
                           written(4)}));
    EXPECT_EQ("0 1 2 3", phases_seen);
    EXPECT_EQ(XF_ROW_NOT_READY, stored(row_index)->xfCopyEntryRowStatus);
    EXPECT_EQ(XF_STATE_WAITING, stored(row_index)->xfCopyState);
    EXPECT_EQ(0u, p.count("fork"));
}

TEST_F(RowStatusTest, createAndGoWhileACopyRunsIsGenErr) {
    run_another_row();
    EXPECT_EQ(SNMP_ERR_GENERR, set_request({written(4)}));
    EXPECT_EQ("0 4", phases_seen);
    expect_no_row();
}

/* Network to startup, the defaults: refused in ACTION, and undone. */
TEST_F(RowStatusTest, createAndGoThatIsRefusedLeavesNoRow) {
    EXPECT_EQ(SNMP_ERR_GENERR, set_request({written(4)}));
    EXPECT_EQ("0 1 2 5", phases_seen);
    expect_no_row();
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
    EXPECT_EQ("snmp_alarm_unregister(77)", calls().back());
}

TEST_F(RowStatusTest, createAndWaitLeavesTheRowNotReady) {
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({written(5)}));
    struct xfCopyEntry expected = make_row(row_index, XF_ROW_NOT_READY);
    expected.rowCreatedByRequest = 1;
    expect_row(expected);
    EXPECT_EQ(1, change_time_flag);
}

TEST_F(RowStatusTest, activeOnAMissingRowMakesItAndValidates) {
    EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE,
              set_request({integer(3, row_index, 3), written(1)}));
    /* Columns are refused: the new row is active from RESERVE1 on. */
    EXPECT_EQ("0 1 4", phases_seen);

    {
        const Quiet quiet;
        struct xfCopyEntry row = make_row(row_index);
        deleteXfCopyEntry(&row);
    }
    EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, set_request({written(1)}));
    EXPECT_EQ("0 1 2 5", phases_seen);
    /* It was validated (network to startup, nothing set) and stays. */
    EXPECT_EQ(XF_ROW_ACTIVE, stored(row_index)->xfCopyEntryRowStatus);
}

TEST_F(RowStatusTest, valuesThatCannotBeWrittenChangeNothing) {
    for (const long value : {2L, 3L, 7L}) {
        EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, set_request({written(value)}));
        EXPECT_EQ("0 4", phases_seen);
        expect_no_row();
    }
    store(row_with(XF_ROW_NOT_READY));
    for (const long value : {2L, 3L, 7L}) {
        EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, set_request({written(value)}));
        expect_row(row_with(XF_ROW_NOT_READY));
    }
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

TEST_F(RowStatusTest, createAndGoOnAnExistingIndexLeavesTheRowUnchanged) {
    store(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, set_request({written(4)}));
    expect_row(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

TEST_F(RowStatusTest, activeOnAnExistingRowStartsItsCopy) {
    store(complete_row(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({written(1)}));
    EXPECT_EQ("0 1 2 3", phases_seen);
    EXPECT_EQ(XF_STATE_RUNNING, stored(row_index)->xfCopyState);
    EXPECT_EQ(XF_ROW_ACTIVE, stored(row_index)->xfCopyEntryRowStatus);
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
    EXPECT_EQ(1, change_time_flag);
}

TEST_F(RowStatusTest, activeOnAnIncompleteRowIsUndone) {
    struct xfCopyEntry row = complete_row(XF_ROW_NOT_READY);
    assign(row.xfCopyFileName, "");
    row.xfCopyTimeStarted = {5, 6};
    store(row);
    EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE, set_request({written(1)}));
    EXPECT_EQ("0 1 2 5", phases_seen);
    expect_row(row);
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

TEST_F(RowStatusTest, destroyDeletesTheRowAndItsRecord) {
    store(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({written(6)}));
    EXPECT_EQ("0 1 2 3", phases_seen);
    expect_no_row();
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
    EXPECT_EQ(0, change_time_flag);
}

TEST_F(RowStatusTest, twoRowsInOneRequest) {
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({written(5, 1), written(5, 2)}));
    EXPECT_EQ((std::vector<int32_t>{1, 2}), stored_indexes());
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({written(6, 1), written(5, 3)}));
    EXPECT_EQ((std::vector<int32_t>{2, 3}), stored_indexes());
}

/* ---- Whole requests: what a failure leaves ---------------------------------
 */

TEST_F(RowStatusTest, failureInReserve2DeletesTheRowBeingCreated) {
    /* The address type of a new row is 0: that refuses the address. */
    EXPECT_EQ(SNMP_ERR_WRONGVALUE,
              set_request({written(4), octets(16, row_index, "ABCD")}));
    EXPECT_EQ("0 1 4", phases_seen);
    expect_no_row();
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

/* Not marked yet in RESERVE1: FREE does not know the row for a new one. */
TEST_F(RowStatusTest, failureInReserve1LeavesTheRowBeingCreated) {
    EXPECT_EQ(SNMP_ERR_WRONGVALUE,
              set_request({written(5), integer(2, row_index, 3)}));
    EXPECT_EQ("0 4", phases_seen);
    expect_row(make_row(row_index, XF_ROW_CREATE_AND_WAIT));
}

TEST_F(RowStatusTest, failureBesideAnActivationLeavesStatusAndRecord) {
    store(complete_row(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_WRONGVALUE,
              set_request({written(1), integer(2, row_index, 3)}));
    EXPECT_EQ(XF_ROW_ACTIVE, stored(row_index)->xfCopyEntryRowStatus);
    EXPECT_EQ(std::vector<int32_t>{row_index}, undo_indexes());
}

TEST_F(RowStatusTest, destroyBesideAFailureInActionIsUndone) {
    struct xfCopyEntry incomplete = make_row(1, XF_ROW_NOT_READY);
    store(incomplete);
    store(row_with(XF_ROW_NOT_READY));
    EXPECT_EQ(SNMP_ERR_INCONSISTENTVALUE,
              set_request({written(6), written(1, 1)}));
    EXPECT_EQ("0 1 2 5", phases_seen);
    expect_row(row_with(XF_ROW_NOT_READY));
    expect_row(incomplete);
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

/* ---- What an agent does not do ---------------------------------------------
 */

TEST_F(RowStatusTest, phaseWithoutAValueIsThatOfAnotherValue) {
    store(row_with(XF_ROW_NOT_READY));
    std::vector<oid> name = copy_column(14, {row_index});
    for (const int phase : {RESERVE2, COMMIT, FREE, UNDO})
        EXPECT_EQ(SNMP_ERR_NOERROR,
                  set_xfCopyEntryRowStatus(phase, nullptr, ASN_INTEGER, 0,
                                           nullptr, name.data(), name.size()))
            << phase;
    EXPECT_EQ(XF_ROW_NOT_READY, stored(row_index)->xfCopyEntryRowStatus);
}

TEST_F(RowStatusTest, undoOfAValueThatIsNeverWrittenDoesNothing) {
    for (const long value : {0L, 2L, 3L, 7L})
        EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(written(value), UNDO));
}
