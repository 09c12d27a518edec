/* What the platform's messages make of the rows. */
#include "scripted_platform.h"

#include <cstring>
#include <utility>

using namespace scripted;
using namespace std::string_literals;

namespace {

/* OID of the module, dotted. */
std::string root() {
    std::string text = std::to_string(config_copy_mib_variables_oid[0]);
    for (size_t i = 1; i < 9; i++)
        text += "." + std::to_string(config_copy_mib_variables_oid[i]);
    return text;
}

class Completion : public ModuleTest {
  protected:
    struct xfCopyEntry row = make_row(5, XF_ROW_ACTIVE);
    oid name[MAX_OID_LEN] = {};
    size_t name_len = 0;
    int notify = 77;
    netsnmp_variable_list *varbinds = nullptr;

    Completion() {
        row.xfCopyState = XF_STATE_RUNNING;
        row.xfCopyTimeStarted = {1'699'999'990, 0};
        row.xfCopyServerAddressType = 1;
        assign(row.xfCopyServerAddressRev1, "192.0.2.7");
        assign(row.xfCopyFileName, "x.cfg");
        p.now_seconds = 1'700'000'100;
        p.now_microseconds = 720'000;
    }
    /* A message of this opcode; oid_len is what the agent says beside it. */
    Story handle(uint32_t opcode, std::optional<std::string> payload,
                 size_t oid_len = 0) {
        struct ipcbus_message *const message =
            p.message(opcode, std::move(payload));

        name_len = oid_len;
        notify = 77;
        p.forget();
        varbinds = handle_notifications(message, name, &name_len, &notify);
        EXPECT_EQ(0, message->dropped) << "the agent drops its message";
        return story();
    }
    void expect_no_notification(size_t oid_len = 0) {
        EXPECT_EQ(nullptr, varbinds);
        EXPECT_EQ(0, notify);
        EXPECT_EQ(oid_len, name_len);
    }
    /* The row as it was stored, ended in this state. */
    struct xfCopyEntry ended(int32_t state, int32_t cause) const {
        struct xfCopyEntry expected = row;
        expected.xfCopyState = state;
        expected.xfCopyTimeCompleted = {1'700'000'100, 720'000};
        expected.xfCopyFailCause = cause;
        return expected;
    }
    void expect_stored(const struct xfCopyEntry &expected) {
        ASSERT_TRUE(stored(expected.xfCopyIndex).has_value());
        EXPECT_EQ("", difference(expected, *stored(expected.xfCopyIndex)));
    }
    static Story join(std::initializer_list<Story> parts) {
        Story whole;
        for (const Story &part : parts)
            whole.insert(whole.end(), part.begin(), part.end());
        return whole;
    }
    /* Varbinds and trace of the notification of a row. */
    static Story built(const std::string &index, const std::string &state,
                       const std::string &cause,
                       const std::string &completed = "110072") {
        return {
            "build_varbind(NULL, 2, 4, " + root() + ".1.1.1.1.15." + index +
                ")",
            "build_varbind(varbind1, 4, 16, " + root() + ".1.1.1.1.16." +
                index + ")",
            "build_varbind(varbind2, 4, 5, " + root() + ".1.1.1.1.6." + index +
                ")",
            "build_varbind(varbind3, 2, 4, " + root() + ".1.1.1.1.10." + index +
                ")",
            "build_varbind(varbind4, 67, 4, " + root() + ".1.1.1.1.11." +
                index + ")",
            "build_varbind(varbind5, 67, 4, " + root() + ".1.1.1.1.12." +
                index + ")",
            "build_varbind(varbind6, 2, 4, " + root() + ".1.1.1.1.13." + index +
                ")",
            info("build_notification: Sending xfCopyCompletion notification : "
                 "xfCopyServerAddressRev1 = 192.0.2.7, xfCopyFileName= "
                 "x.cfg,xfCopyState=" +
                 state + ", xfCopyTimeStarted=99000, xfCopyTimeCompleted = " +
                 completed + ", xfCopyFailCause=" + cause +
                 ", xfCopyServerAddressType = 1\n"),
        };
    }
    static Story enqueued(const std::string &index) {
        return {"enqueue_notification(6, " + root() + ".2.1.2." + index +
                ", 7 varbinds)"};
    }
};

constexpr uint32_t started = 1391;
constexpr uint32_t child_status = 10277;
constexpr uint32_t save_ended = 1361;

} // namespace

/* ---- Dispatch --------------------------------------------------------------
 */

TEST_F(Completion, otherOpcodesAreIgnored) {
    store(row);
    for (const uint32_t opcode : {0u, 1360u, 1362u, 1381u, 1383u, 1390u, 1392u,
                                  10276u, 10278u, 0xffffffffu}) {
        EXPECT_EQ(Story{}, handle(opcode, "\0\0\0\0"s, 3)) << opcode;
        expect_no_notification(3);
        expect_stored(row);
    }
}

TEST_F(Completion, handlerIsSubscribedToTheThreeOpcodes) {
    for (const uint32_t opcode : {started, child_status, save_ended})
        EXPECT_EQ(handle_notifications, p.subscriptions.at(opcode));
}

/* ---- 1391: a copy has started ----------------------------------------------
 */

TEST_F(Completion, startMakesTheWaitingRowRun) {
    row.xfCopyState = XF_STATE_WAITING;
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    store(row);
    EXPECT_EQ(Story{}, handle(started, std::nullopt));
    expect_no_notification();
    row.xfCopyState = XF_STATE_RUNNING;
    expect_stored(row);
}

TEST_F(Completion, startMakesTheFirstOfTheWaitingRowsRun) {
    for (const int32_t index : {9, 7, 3}) {
        row.xfCopyIndex = index;
        row.xfCopyState = index == 3 ? XF_STATE_SUCCESSFUL : XF_STATE_WAITING;
        store(row);
    }
    handle(started, std::nullopt);
    EXPECT_EQ(XF_STATE_SUCCESSFUL, stored(3)->xfCopyState);
    EXPECT_EQ(XF_STATE_RUNNING, stored(7)->xfCopyState);
    EXPECT_EQ(XF_STATE_WAITING, stored(9)->xfCopyState);
}

TEST_F(Completion, startWithoutAWaitingRowChangesNothing) {
    EXPECT_EQ(Story{}, handle(started, std::nullopt));
    expect_no_notification();
    for (const int32_t state :
         {XF_STATE_RUNNING, XF_STATE_SUCCESSFUL, XF_STATE_FAILED}) {
        row.xfCopyIndex = state;
        row.xfCopyState = state;
        store(row);
    }
    EXPECT_EQ(Story{}, handle(started, std::nullopt));
    for (const int32_t state : {2, 3, 4})
        EXPECT_EQ(state, stored(state)->xfCopyState);
}

TEST_F(Completion, startOfARowThatCannotBeStoredIsTraced) {
    row.xfCopyState = XF_STATE_WAITING;
    store(row);
    p.fail_ordset_find_at = 1;
    EXPECT_EQ(Story{error("ERROR  handle_notifications : Set to entry (index= "
                          "5) failed \n")},
              handle(started, std::nullopt));
    expect_no_notification();
    expect_stored(row);
}

/* ---- 10277: the copy child is done -----------------------------------------
 */

TEST_F(Completion, statusZeroIsSuccess) {
    row.xfCopyFailCause = 4;
    store(row);
    module_state.copyChildRunning = 1;
    EXPECT_EQ(Story{info("handle_copy_done : Copy is done with status 0\n")},
              handle(child_status, "\0\0\0\0"s));
    expect_no_notification();
    expect_stored(ended(XF_STATE_SUCCESSFUL, 1));
    EXPECT_EQ(0u, module_state.copyChildRunning);
}

TEST_F(Completion, anyOtherStatusIsTheFailCause) {
    const std::pair<std::string, int32_t> cases[] = {
        {"\0\0\0\1"s, 1},          {"\0\0\0\2"s, 2},
        {"\0\0\0\3"s, 3},          {"\0\0\0\4"s, 4},
        {"\0\0\0\5"s, 5},          {"\0\0\0\6"s, 6},
        {"\0\0\0\7"s, 7},          {"\0\0\1\0"s, 256},
        {"\1\2\3\4"s, 0x01020304}, {"\xff\xff\xff\xff"s, -1},
        {"\0\0\0\5\0\0\0\6"s, 5},
    };
    store(row);
    for (const auto &[payload, cause] : cases) {
        {
            const Quiet quiet;
            setXfCopyEntry(&row, 0);
        }
        EXPECT_EQ(Story{info("handle_copy_done : Copy is done with status " +
                             std::to_string(cause) + "\n")},
                  handle(child_status, payload));
        expect_no_notification();
        expect_stored(ended(XF_STATE_FAILED, cause));
    }
}

TEST_F(Completion, messageWithNoPayloadFailsTheRunningRowWithCause1) {
    row.xfCopyFailCause = 4;
    store(row);
    module_state.copyChildRunning = 1;
    EXPECT_EQ((Story{error("handle_notifications: IPCBUS Payload NULL\n"),
                     info("handle_copy_done : Copy is done with status 1\n")}),
              handle(child_status, std::nullopt));
    expect_no_notification();
    expect_stored(ended(XF_STATE_FAILED, 1));
    EXPECT_EQ(0u, module_state.copyChildRunning);
}

TEST_F(Completion, outcomeOfTheChildIsInItsMessageAlone) {
    store(row);
    handle(child_status, "\0\0\0\0"s, 1);
    EXPECT_EQ(XF_STATE_SUCCESSFUL, stored(5)->xfCopyState);
    EXPECT_EQ(0, notify);
}

TEST_F(Completion, endOfTheChildIsNotified) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    store(row);
    EXPECT_EQ(join({{info("handle_copy_done : Copy is done with status 5\n")},
                    built("5", "4", "5"),
                    enqueued("5")}),
              handle(child_status, "\0\0\0\5"s));
    expect_no_notification();
    expect_stored(ended(XF_STATE_FAILED, 5));
    ASSERT_EQ(1u, p.notifications.size());
    EXPECT_EQ(6, p.notifications[0].trap_type);
}

TEST_F(Completion, successOfTheChildIsNotified) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    store(row);
    EXPECT_EQ(join({{info("handle_copy_done : Copy is done with status 0\n")},
                    built("5", "3", "1"),
                    enqueued("5")}),
              handle(child_status, "\0\0\0\0"s));
}

TEST_F(Completion, onlyTheValueTrueAsksForANotification) {
    for (const int32_t asked : {0, 2, 3, -1, 0x101}) {
        row.xfCopyIndex++;
        row.xfCopyNotificationOnCompletion = asked;
        store(row);
        handle(child_status, "\0\0\0\0"s);
        EXPECT_EQ(0u, p.count("enqueue_notification")) << asked;
    }
}

TEST_F(Completion, firstOfTheRunningRowsIsTheOneThatEnds) {
    for (const int32_t index : {9, 7, 3}) {
        row.xfCopyIndex = index;
        row.xfCopyState = index == 3 ? XF_STATE_WAITING : XF_STATE_RUNNING;
        store(row);
    }
    handle(child_status, "\0\0\0\0"s);
    EXPECT_EQ(XF_STATE_WAITING, stored(3)->xfCopyState);
    EXPECT_EQ(XF_STATE_SUCCESSFUL, stored(7)->xfCopyState);
    EXPECT_EQ(XF_STATE_RUNNING, stored(9)->xfCopyState);
}

TEST_F(Completion, endOfTheChildWithoutARunningRow) {
    module_state.copyChildRunning = 1;
    EXPECT_EQ((Story{info("handle_copy_done : Copy is done with status 3\n"),
                     info("handle_copy_done : No copy is running... 3 \n")}),
              handle(child_status, "\0\0\0\3"s));
    EXPECT_EQ(0u, module_state.copyChildRunning);

    row.xfCopyState = XF_STATE_SUCCESSFUL;
    store(row);
    EXPECT_EQ((Story{info("handle_copy_done : Copy is done with status 3\n"),
                     info("handle_copy_done : No copy is running... 3 \n")}),
              handle(child_status, "\0\0\0\3"s));
    expect_stored(row);
}

/* Then the row that the search for a running one visited last is looked at. */
TEST_F(Completion, endWithoutARunningRowNotifiesForTheLastRowOfTheTable) {
    row.xfCopyState = XF_STATE_SUCCESSFUL;
    row.xfCopyNotificationOnCompletion = XF_FALSE;
    store(row);
    row.xfCopyIndex = 8;
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    row.xfCopyTimeCompleted = {1'699'999'995, 0};
    store(row);
    EXPECT_EQ(join({{info("handle_copy_done : Copy is done with status 3\n"),
                     info("handle_copy_done : No copy is running... 3 \n")},
                    built("8", "3", "1", "99500"),
                    enqueued("8")}),
              handle(child_status, "\0\0\0\3"s));
    expect_stored(row);
}

TEST_F(Completion, endWithoutARunningRowLooksAtTheLastRowOnly) {
    row.xfCopyState = XF_STATE_SUCCESSFUL;
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    store(row);
    row.xfCopyIndex = 8;
    row.xfCopyNotificationOnCompletion = XF_FALSE;
    store(row);
    EXPECT_EQ((Story{info("handle_copy_done : Copy is done with status 0\n"),
                     info("handle_copy_done : No copy is running... 0 \n")}),
              handle(child_status, "\0\0\0\0"s));
}

TEST_F(Completion, searchThatFindsNoneLeavesTheLastRowOrZeroes) {
    struct xfCopyEntry found;

    memset(&found, 0xff, sizeof(found));
    EXPECT_EQ(0x40490001, get_config_entry_with_status(2, &found));
    EXPECT_EQ(0, found.xfCopyIndex);
    EXPECT_EQ("", difference(xfCopyEntry{}, found));

    row.xfCopyState = XF_STATE_FAILED;
    store(row);
    memset(&found, 0xff, sizeof(found));
    EXPECT_EQ(0x40490001, get_config_entry_with_status(2, &found));
    EXPECT_EQ("", difference(row, found));
}

TEST_F(Completion, endOfARowThatCannotBeStoredIsTracedAndNotified) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    store(row);
    p.fail_ordset_find_at = 1;
    EXPECT_EQ(
        join({{info("handle_copy_done : Copy is done with status 5\n"),
               error("handle_copy_done : Set to entry (index= 5) failed \n")},
              built("5", "4", "5"),
              enqueued("5")}),
        handle(child_status, "\0\0\0\5"s));
    expect_stored(row);
}

TEST_F(Completion, failureAndSuccessEntryPointsBothReportStatus1) {
    for (void (*const entry_point)() :
         {handle_copy_failure, handle_copy_success}) {
        row.xfCopyIndex++;
        row.xfCopyFailCause = 4;
        store(row);
        module_state.copyChildRunning = 1;
        p.forget();
        entry_point(); // cppcheck-suppress legacyUninitvar; it is looped over
        EXPECT_EQ(
            Story{info("handle_copy_done : Copy is done with status 1\n")},
            story());
        expect_stored(ended(XF_STATE_FAILED, 1));
        EXPECT_EQ(0u, module_state.copyChildRunning);
    }
}

TEST_F(Completion, endOfTheChildNeitherDropsNorCollects) {
    module_state.save_request = p.message(1381, std::nullopt);
    row.xfCopySourceFileType = XF_FILE_RUNNING;
    row.xfCopyDestFileType = XF_FILE_FABRIC_STARTUP;
    store(row);
    handle(child_status, "\0\0\0\1"s);
    EXPECT_EQ(0u, p.count("ipcbus_drop"));
    EXPECT_EQ(0u, p.count("grove_status_next_get"));
}

/* ---- 1361: the system manager's save has ended -----------------------------
 */

namespace {

class SaveEnd : public Completion {
  protected:
    SaveEnd() {
        row.xfCopySourceFileType = XF_FILE_RUNNING;
        row.xfCopyDestFileType = XF_FILE_STARTUP;
        module_state.save_request = p.message(1381, std::nullopt);
        module_state.save_request->name = "saved";
    }
};

const std::string drop_saved = "ipcbus_drop(response_q, saved)";

const Story save_succeeded = {
    info("handle_notifications: COPY SUCCESSFULL trap enabled 0\n"),
    "set_mgmt_conf_last_change_time_extended(2)",
    "set_mgmt_conf_last_change_time_extended(3)",
    drop_saved,
};

/* The same up to the row's store, when a notification is asked for. */
const Story success_told = {
    info("handle_notifications: COPY SUCCESSFULL trap enabled 1\n"),
    "set_mgmt_conf_last_change_time_extended(2)",
    "set_mgmt_conf_last_change_time_extended(3)",
};

const Story save_failed = {
    info("handle_notifications: COPY failed\n"),
    drop_saved,
};

const Story not_stored = {
    error("ERROR  handle_notifications : Set to entry (index= 5) failed \n"),
    drop_saved,
};

} // namespace

TEST_F(SaveEnd, zeroLengthOnEntryIsSuccess) {
    for (const int32_t dest : {3, 6, 7}) {
        struct ipcbus_message *const request = p.message(1381, std::nullopt);
        request->name = "saved";
        module_state.save_request = request;
        row.xfCopyIndex++;
        row.xfCopyDestFileType = dest;
        row.xfCopyFailCause = 4;
        store(row);
        EXPECT_EQ(save_succeeded, handle(save_ended, std::nullopt, 0)) << dest;
        expect_no_notification();
        expect_stored(ended(XF_STATE_SUCCESSFUL, 4));
        EXPECT_EQ(1, request->dropped);
        EXPECT_EQ(nullptr, module_state.save_request);
        EXPECT_EQ(Story{}, handle(save_ended, std::nullopt, 0))
            << "nothing runs any more";
    }
}

TEST_F(SaveEnd, anyOtherLengthOnEntryIsFailure) {
    /* One bit that is lost where a length is narrowed. */
    constexpr size_t high = size_t{1} << (sizeof(size_t) > 4 ? 32 : 31);

    for (const size_t length :
         {size_t{1}, size_t{13}, size_t{128}, SIZE_MAX, high})
        for (const int32_t dest : {3, 7}) {
            module_state.save_request = p.message(1381, std::nullopt);
            module_state.save_request->name = "saved";
            row.xfCopyIndex++;
            row.xfCopyDestFileType = dest;
            store(row);
            EXPECT_EQ(save_failed, handle(save_ended, std::nullopt, length));
            EXPECT_EQ(nullptr, varbinds);
            EXPECT_EQ(0, notify);
            expect_stored(ended(XF_STATE_FAILED, XF_FAIL_SAVE_FAILED));
            EXPECT_EQ(nullptr, module_state.save_request);
        }
}

TEST_F(SaveEnd, payloadDoesNotMatter) {
    store(row);
    EXPECT_EQ(save_succeeded, handle(save_ended, "\0\0\0\1"s, 0));
    EXPECT_EQ(0u, p.count("ipcbus_payload_get"));

    module_state.save_request = p.message(1381, std::nullopt);
    module_state.save_request->name = "saved";
    row.xfCopyIndex++;
    store(row);
    EXPECT_EQ(save_failed, handle(save_ended, "\0\0\0\0"s, 1));
}

TEST_F(SaveEnd, successIsNotifiedThroughTheCaller) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    store(row);
    EXPECT_EQ(join({success_told, {drop_saved}, built("5", "3", "1")}),
              handle(save_ended, std::nullopt, 0));
    EXPECT_EQ(1, notify);
    EXPECT_EQ(7u, p.varbinds_of(varbinds).size());
    EXPECT_EQ(p.varbinds.at(0), varbinds);
    std::vector<oid> expected(config_copy_mib_variables_oid,
                              config_copy_mib_variables_oid + 9);
    expected.insert(expected.end(), {2, 1, 2, 5});
    EXPECT_EQ(expected, std::vector<oid>(name, name + name_len));
    EXPECT_EQ(0u, p.notifications.size()) << "the caller sends it";
}

TEST_F(SaveEnd, failureIsNotifiedThroughTheCaller) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    store(row);
    EXPECT_EQ(join({save_failed, built("5", "4", "9")}),
              handle(save_ended, std::nullopt, 1));
    EXPECT_EQ(1, notify);
    EXPECT_EQ(13u, name_len);
    EXPECT_EQ(7u, p.varbinds_of(varbinds).size());
    EXPECT_EQ(0u, p.notifications.size());
}

TEST_F(SaveEnd, notificationWithoutVarbindsIsAskedForAllTheSame) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    store(row);
    p.hooks["build_varbind"] = [this] { p.fail_varbind_at = 1; };
    handle(save_ended, std::nullopt, 0);
    EXPECT_EQ(1, notify);
    EXPECT_EQ(nullptr, varbinds);
    EXPECT_EQ(13u, name_len);
}

TEST_F(SaveEnd, withoutARunningRowNothingHappens) {
    for (const int32_t state : {1, 3, 4}) {
        row.xfCopyIndex++;
        row.xfCopyState = state;
        row.xfCopyNotificationOnCompletion = XF_TRUE;
        store(row);
    }
    EXPECT_EQ(Story{}, handle(save_ended, std::nullopt, 1));
    expect_no_notification(1);
    EXPECT_EQ(Story{}, handle(save_ended, std::nullopt, 0));
    expect_no_notification(0);
    EXPECT_NE(nullptr, module_state.save_request);
}

TEST_F(SaveEnd, messageWhileTheRunningRowIsANetworkCopyIsIgnored) {
    row.xfCopySourceFileType = XF_FILE_RUNNING;
    row.xfCopyDestFileType = XF_FILE_NETWORK;
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    store(row);
    EXPECT_EQ(Story{info("handle_notifications: copy run2start not initiated "
                         "by us. ignore it\n")},
              handle(save_ended, std::nullopt, 1));
    expect_no_notification(1);
    expect_stored(row);
}

TEST_F(SaveEnd, runningRowThatIsNoSaveIsIgnored) {
    for (int32_t source = 0; source <= 8; source++)
        for (int32_t dest = 0; dest <= 8; dest++) {
            if (source == 4 && (dest == 3 || dest == 6 || dest == 7))
                continue;
            row.xfCopySourceFileType = source;
            row.xfCopyDestFileType = dest;
            if (stored(5).has_value()) {
                const Quiet quiet;
                setXfCopyEntry(&row, 0);
            } else {
                store(row);
            }
            EXPECT_EQ(Story{info("handle_notifications: copy run2start not "
                                 "initiated by us. ignore it\n")},
                      handle(save_ended, std::nullopt, 0))
                << source << ' ' << dest;
            expect_stored(row);
        }
    EXPECT_EQ(0, module_state.save_request->dropped);
}

TEST_F(SaveEnd, rowThatCannotBeStoredIsTracedTheRestGoesOn) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    store(row);
    p.fail_ordset_find_at = 1;
    EXPECT_EQ(join({{info("handle_notifications: COPY failed\n")},
                    not_stored,
                    built("5", "4", "9")}),
              handle(save_ended, std::nullopt, 1));
    EXPECT_EQ(1, notify);
    expect_stored(row);
}

TEST_F(SaveEnd, successIsToldBeforeTheRowIsStored) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    store(row);
    p.fail_ordset_find_at = 1;
    EXPECT_EQ(join({success_told, not_stored, built("5", "3", "1")}),
              handle(save_ended, std::nullopt, 0));
    EXPECT_EQ(1, notify);
    expect_stored(row);
}

TEST_F(SaveEnd, onlyAFailedFabricWideSaveCollectsTheErrors) {
    struct Case {
        int32_t dest;
        size_t length;
        bool collects;
    };
    for (const Case &c :
         {Case{3, 0, false}, Case{3, 1, false}, Case{6, 0, false},
          Case{6, 1, true}, Case{7, 0, false}, Case{7, 1, false}}) {
        module_state.save_request = p.message(1381, std::nullopt);
        row.xfCopyIndex++;
        row.xfCopyDestFileType = c.dest;
        p.grove_records = {
            {"12345678", 0, {1, {192, 0, 2, 9}}, "no space left"}};
        store(row);
        handle(save_ended, std::nullopt, c.length);
        EXPECT_EQ(c.collects ? 2u : 0u, p.count("grove_status_next_get"));
        EXPECT_EQ(c.collects ? 1u : 0u, stored_error_rows().size());
        if (c.collects) {
            EXPECT_EQ(row.xfCopyIndex, stored_error_rows().at(0).xfCopyIndex);
            deleteXfCopyErrorEntries(&row);
        }
    }
}

TEST_F(SaveEnd, errorsAreCollectedBeforeTheRequestIsDropped) {
    row.xfCopyDestFileType = XF_FILE_FABRIC_STARTUP;
    store(row);
    const Story whole = handle(save_ended, std::nullopt, 1);
    ASSERT_LE(3u, whole.size());
    EXPECT_EQ(info("handle_notifications: COPY failed\n"), whole.front());
    EXPECT_EQ("grove_status_clean(9)", whole.at(whole.size() - 2));
    EXPECT_EQ(drop_saved, whole.back());
}

TEST_F(SaveEnd, childFlagStays) {
    module_state.copyChildRunning = 1;
    store(row);
    handle(save_ended, std::nullopt, 0);
    EXPECT_EQ(1u, module_state.copyChildRunning);
}
