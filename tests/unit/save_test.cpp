/* Saving the running configuration through the system manager: the request, the
 * wait for its answer, and what the answer makes of the row. */
#include "scripted_platform.h"

#include <algorithm>
#include <cstring>
#include <utility>

using namespace scripted;
using namespace std::string_literals;

namespace {

constexpr int32_t not_sent = 0x40490009;
constexpr uint64_t second = 1000; /* in cycles of the scripted platform */

class Save : public ModuleTest {
  protected:
    struct xfCopyEntry row = make_row(5, XF_ROW_ACTIVE);
    struct xfCopyEntry before = {};

    Save() {
        row.xfCopySourceFileType = XF_FILE_RUNNING;
        row.xfCopyDestFileType = XF_FILE_STARTUP;
        row.xfCopyState = XF_STATE_RUNNING;
        row.xfCopyTimeStarted = {1'699'999'990, 0};
    }
    /* Saves a stored row; the private copy is the launch's. */
    int32_t save() {
        before = row;
        store(row);
        p.forget();
        return do_cp_runningtostartup(&row);
    }
    struct ipcbus_message *answer(std::string payload) {
        struct ipcbus_message *const message =
            p.message(1381, std::move(payload));
        message->name = "answer";
        p.to_receive.push_back({0, 0, message});
        return message;
    }
    void receive_error(int error_number) {
        p.to_receive.push_back({-1, error_number, nullptr});
    }
    struct ipcbus_message *request() const {
        for (const auto &message : p.messages)
            if (message->name.starts_with("request"))
                return message.get();
        return nullptr;
    }
    bool request_is_kept() const {
        return request() != nullptr && request()->dropped == 0 &&
               module_state.save_request == request();
    }
    /* The private copy must be as before but for these fields. */
    void expect_row(int32_t state, bool completed, int32_t cause) {
        struct xfCopyEntry expected = before;
        expected.xfCopyState = state;
        if (completed)
            expected.xfCopyTimeCompleted = {1'700'000'000, 250'000};
        expected.xfCopyFailCause = cause;
        EXPECT_EQ("", difference(expected, row));
    }
    void expect_stored(const struct xfCopyEntry &expected) {
        ASSERT_TRUE(stored(5).has_value());
        EXPECT_EQ("", difference(expected, *stored(5)));
    }
    /* The name of the request depends on how many messages there are. */
    std::string drop_request() const {
        return "ipcbus_drop(response_q, " + request()->name + ")";
    }
};

const std::string accepted = "\x40\x1e\x00\x03"s;
const std::string done = "\0\0\0\0"s;
const std::string refused = "\x40\x49\x00\x01"s;

const Story sent = {
    info("Sending request to procd to start copy running to startup"),
    "ipcbus_send(response_q, {0xfe000000, 3}, 1381, 140 octets, 0, 0, "
    "request)",
};
const std::string receive = "ipcbus_recv(response_q, {1, 30})";
const std::string drop_answer = "ipcbus_drop(response_q, answer)";

std::string no_response(const std::string &id) {
    return info("do_cp_runningtostartup : no response from procd (error id " +
                id + "). may be copy is progress\n");
}

std::string copy_state(const std::string &result) {
    return info("do_cp_runningtostartup : copy state : syserr2str " + result +
                "\n");
}

Story join(std::initializer_list<Story> parts) {
    Story whole;
    for (const Story &part : parts)
        whole.insert(whole.end(), part.begin(), part.end());
    return whole;
}

} // namespace

/* ---- Request ---------------------------------------------------------------
 */

namespace {

/* Offsets 0 to 43, 44 to 75, 76 to 107 and 108 to 139. */
std::string request_octets(char fabric_startup, char all_startup,
                           std::string user, std::string session) {
    std::string octets = "\0\0\0\x1a"
                         "\0\0\0\1"
                         "\0\0\1\0"
                         "\0\0\0\0"
                         "\0\0\0\0"
                         "\0\0\0\0"
                         "\0\0\0\0"s;
    octets += "\0\0\0"s + fabric_startup;
    octets += "\0\0\0\0\0\0\0\0"s;
    octets += "\0\0\0"s + all_startup;
    user.resize(32);
    session.resize(32);
    return octets + user + session + std::string(32, '\0');
}

} // namespace

TEST_F(Save, requestIs140Octets) {
    const std::pair<int32_t, std::string> cases[] = {
        {XF_FILE_STARTUP, request_octets(0, 0, "operator", "session-1")},
        {XF_FILE_FABRIC_STARTUP, request_octets(1, 0, "operator", "session-1")},
        {XF_FILE_ALL_STARTUP, request_octets(0, 1, "operator", "session-1")},
    };
    for (const auto &[dest, octets] : cases) {
        row.xfCopyDestFileType = dest;
        p.forget();
        do_cp_runningtostartup(&row);
        ASSERT_EQ(1u, p.count("ipcbus_send"));
        ASSERT_EQ(140u, octets.size());
        EXPECT_EQ(octets, p.calls_of("ipcbus_send")[0].octets) << dest;
        EXPECT_EQ("ipcbus_send(response_q, {0xfe000000, 3}, 1381, 140 octets, "
                  "0, 0, request)",
                  p.calls_of("ipcbus_send")[0].text);
    }
}

TEST_F(Save, userAndSessionAreCutTo31Characters) {
    for (const size_t length : {0u, 1u, 30u, 31u, 32u, 33u, 200u}) {
        p.user_name = std::string(length, 'u');
        p.session_id = std::string(length, 's');
        p.forget();
        do_cp_runningtostartup(&row);
        ASSERT_EQ(1u, p.count("ipcbus_send"));
        EXPECT_EQ(request_octets(0, 0, p.user_name.substr(0, 31),
                                 p.session_id.substr(0, 31)),
                  p.calls_of("ipcbus_send")[0].octets)
            << length;
    }
}

TEST_F(Save, userAndSessionAreThoseOfTheRequestInProgress) {
    do_cp_runningtostartup(&row);
    EXPECT_EQ("get_snmp_username(0)",
              p.calls_of("get_snmp_username").at(0).text);
    EXPECT_EQ("get_snmp_sessionid(0)",
              p.calls_of("get_snmp_sessionid").at(0).text);
}

TEST_F(Save, requestThatCannotBeSentFailsTheRowInPlace) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    p.send_results.then(-1, 111);

    EXPECT_EQ(not_sent, save());
    EXPECT_EQ(join({sent,
                    {error("do_cp_runningtostartup :  Unable to send message "
                           "IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION: "
                           "Connection refused (111).\n"),
                     "ipcbus_drop(response_q, NULL)"}}),
              story());
    expect_row(XF_STATE_FAILED, true, before.xfCopyFailCause);
    expect_stored(before);
    EXPECT_EQ(nullptr, module_state.save_request);
    EXPECT_EQ(0u, p.notifications.size());
}

TEST_F(Save, errnoIsTheSameInHistoryAndLiveOutput) {
    p.live_check.always(1);
    p.send_results.then(-1, 104);
    EXPECT_EQ(not_sent, save());
    const std::string text = "do_cp_runningtostartup :  Unable to send message "
                             "IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION: "
                             "Connection reset by peer (104).\n";
    const Story whole = story();
    EXPECT_EQ(1, std::count(whole.begin(), whole.end(), error(text)));
    EXPECT_EQ(1, std::count(whole.begin(), whole.end(), live(text)));
}

TEST_F(Save, onlyANegativeResultOfTheSendIsAFailure) {
    p.send_results.then(140);
    answer(accepted);
    EXPECT_EQ(0, save());
    EXPECT_TRUE(request_is_kept());
}

/* ---- Wait ------------------------------------------------------------------
 */

TEST_F(Save, receiveWaitsAsLongAsAHeartbeatMay) {
    for (const auto &[milliseconds, options] :
         {std::pair<uint32_t, std::string>{30'000, "{1, 30}"},
          std::pair<uint32_t, std::string>{1'999, "{1, 1}"},
          std::pair<uint32_t, std::string>{999, "{1, 0}"},
          std::pair<uint32_t, std::string>{4'000'000'000, "{1, 4000000}"}}) {
        p.heartbeat_milliseconds = milliseconds;
        p.forget();
        do_cp_runningtostartup(&row);
        EXPECT_EQ("ipcbus_recv(response_q, " + options + ")",
                  p.calls_of("ipcbus_recv").at(0).text);
    }
}

TEST_F(Save, everyReceiveThatTimesOutBeatsTheHeartbeat) {
    receive_error(62);
    receive_error(62);
    receive_error(62);
    answer(accepted);

    EXPECT_EQ(0, save());
    EXPECT_EQ(
        join({sent,
              {receive, "procd_heartbeat(0)", receive, "procd_heartbeat(0)",
               receive, "procd_heartbeat(0)", receive, copy_state("0x401e0003"),
               info("do_cp_runningtostartup : copy is initiated\n"),
               drop_answer}}),
        story());
}

namespace {

/* Receives, heartbeats and clock readings of the wait. */
Story wait_of(const Platform &p) {
    Story found;
    for (const Event &event : p.journal)
        if (event.function == "ipcbus_recv" ||
            event.function == "procd_heartbeat" ||
            event.function == "timer_get_cycles" ||
            event.function == "timer_diff_cycle_in_msec")
            found.push_back(event.text);
    return found;
}

} // namespace

TEST_F(Save, timeIsReadOnceBeforeTheWaitAndOnceBeforeEachReceive) {
    p.cycles.then(5).then(7).then(11);
    receive_error(62);
    answer(accepted);
    save();
    EXPECT_EQ((Story{
                  "timer_get_cycles()",
                  "timer_get_cycles()",
                  "timer_diff_cycle_in_msec(7, 5)",
                  receive,
                  "procd_heartbeat(0)",
                  "timer_get_cycles()",
                  "timer_diff_cycle_in_msec(11, 5)",
                  receive,
              }),
              wait_of(p));
    EXPECT_EQ(5u, start_cpu_cycles);
}

TEST_F(Save, interruptedReceiveNeitherBeatsTheHeartbeatNorChecksTheTime) {
    receive_error(4);
    receive_error(4);
    receive_error(62);
    receive_error(4);
    answer(accepted);
    save();
    EXPECT_EQ((Story{
                  "timer_get_cycles()",
                  "timer_get_cycles()",
                  "timer_diff_cycle_in_msec(1, 1)",
                  receive,
                  receive,
                  receive,
                  "procd_heartbeat(0)",
                  "timer_get_cycles()",
                  "timer_diff_cycle_in_msec(1, 1)",
                  receive,
                  receive,
              }),
              wait_of(p));
}

TEST_F(Save, waitEndsWhenMoreThan899SecondsAreOver) {
    p.receive_otherwise = {-1, 62, nullptr};
    p.cycles.then(10)
        .then(10)
        .then(10 + 899 * second)
        .then(10 + 899 * second + 999)
        .then(10 + 900 * second);

    EXPECT_EQ(0, save());
    EXPECT_EQ(
        join({sent,
              {receive, "procd_heartbeat(0)", receive, "procd_heartbeat(0)",
               receive, "procd_heartbeat(0)", no_response("ffffffff")}}),
        story());
    EXPECT_EQ(0u, start_cpu_cycles);
    expect_row(XF_STATE_RUNNING, false, before.xfCopyFailCause);
    expect_stored(before);
    EXPECT_TRUE(request_is_kept());
}

TEST_F(Save, waitThatIsOverBeforeItsFirstReceiveReceivesNothing) {
    p.cycles.then(1).then(1 + 900 * second);

    EXPECT_EQ(0, save());
    EXPECT_EQ(join({sent, {no_response("0")}}), story());
    EXPECT_EQ(0u, start_cpu_cycles);
    expect_row(XF_STATE_RUNNING, false, before.xfCopyFailCause);
    expect_stored(before);
    EXPECT_TRUE(request_is_kept());
}

TEST_F(Save, secondsAreComparedIn32Bits) {
    constexpr uint64_t wrap = uint64_t{1} << 32;

    p.receive_otherwise = {-1, 62, nullptr};
    p.cycles.then(1)
        .then(1)
        .then(1 + (wrap + 899) * second)
        .then(1 + (wrap - 1) * second);
    save();
    EXPECT_EQ(2u, p.count("ipcbus_recv"));
    EXPECT_EQ(0u, start_cpu_cycles);
}

TEST_F(Save, waitThatBeganAtCycle0IsNotTimed) {
    p.cycles.then(0).always(5000 * second);
    for (int i = 0; i < 40; i++)
        receive_error(62);
    answer(accepted);
    save();
    EXPECT_EQ(41u, p.count("ipcbus_recv"));
    EXPECT_EQ(40u, p.count("procd_heartbeat"));
    EXPECT_EQ(1u, p.count("timer_get_cycles"));
    EXPECT_EQ(0u, p.count("timer_diff_cycle_in_msec"));
}

TEST_F(Save, everyWaitIsTimedAnew) {
    p.receive_otherwise = {-1, 62, nullptr};
    p.cycles.then(1).then(1).then(1 + 900 * second);
    save();
    EXPECT_EQ(0u, start_cpu_cycles);

    p.cycles.then(2000 * second).always(2000 * second);
    p.forget();
    answer(accepted);
    do_cp_runningtostartup(&row);
    EXPECT_EQ(2000 * second, start_cpu_cycles);
    EXPECT_EQ(1u, p.count("ipcbus_recv"));
}

TEST_F(Save, receiveThatFailsEndsTheWait) {
    for (const int number : {5, 11, 104, 1, 61, 63, 3}) {
        p.forget();
        receive_error(number);
        before = row;
        EXPECT_EQ(0, do_cp_runningtostartup(&row));
        EXPECT_EQ(join({sent, {receive, no_response("ffffffff")}}), story())
            << number;
        expect_row(XF_STATE_RUNNING, false, before.xfCopyFailCause);
    }
}

TEST_F(Save, receiveThatFailsKeepsTheRequest) {
    receive_error(5);
    EXPECT_EQ(0, save());
    EXPECT_TRUE(request_is_kept());
    expect_stored(before);
}

TEST_F(Save, failureAfterSilenceEndsTheWaitToo) {
    receive_error(62);
    receive_error(104);
    EXPECT_EQ(0, save());
    EXPECT_EQ(join({sent,
                    {receive, "procd_heartbeat(0)", receive,
                     no_response("ffffffff")}}),
              story());
}

/* ---- Answers ---------------------------------------------------------------
 */

TEST_F(Save, replyOfAnotherOpcodeIsDroppedAndEndsTheWait) {
    const std::pair<uint32_t, std::string> cases[] = {
        {1380, "1380"}, {1382, "1382"},   {0, "0"},
        {1361, "1361"}, {10277, "10277"}, {0xffffffff, "-1"}};
    for (const auto &[opcode, number] : cases) {
        p.forget();
        struct ipcbus_message *const message = answer(refused);
        message->opcode = opcode;
        before = row;
        EXPECT_EQ(0, do_cp_runningtostartup(&row));
        EXPECT_EQ(join({sent,
                        {receive,
                         info("do_cp_runningtostartup: unknown message " +
                              number + " received, dropping.\n"),
                         drop_answer}}),
                  story());
        expect_row(XF_STATE_RUNNING, false, before.xfCopyFailCause);
    }
}

TEST_F(Save, replyOfAnotherOpcodeKeepsTheRequest) {
    answer(refused)->opcode = 1382;
    EXPECT_EQ(0, save());
    EXPECT_TRUE(request_is_kept());
    expect_stored(before);
}

TEST_F(Save, resultOfTheReceiveAboveZeroIsAMessage) {
    answer(accepted);
    p.to_receive.back().result = 140;
    EXPECT_EQ(0, save());
    EXPECT_EQ(1u, p.count("ipcbus_drop"));
    EXPECT_EQ(drop_answer, p.calls_of("ipcbus_drop")[0].text);
}

TEST_F(Save, replyAcceptedLeavesTheRowRunningAndSendsNoNotification) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    answer(accepted);

    EXPECT_EQ(0, save());
    EXPECT_EQ(join({sent,
                    {receive, copy_state("0x401e0003"),
                     info("do_cp_runningtostartup : copy is initiated\n"),
                     drop_answer}}),
              story());
    expect_row(XF_STATE_RUNNING, false, before.xfCopyFailCause);
    expect_stored(before);
    EXPECT_TRUE(request_is_kept());
}

TEST_F(Save, replyDoneSucceedsInPlaceWithoutStoreOrNotification) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    row.xfCopyFailCause = 4;
    answer(done);

    EXPECT_EQ(0, save());
    EXPECT_EQ(join({sent,
                    {receive, copy_state("0x0"), drop_request(),
                     info("do_cp_runningtostartup : copy is done\n\n"),
                     drop_answer}}),
              story());
    expect_row(XF_STATE_SUCCESSFUL, true, 4);
    expect_stored(before);
    EXPECT_EQ(nullptr, module_state.save_request);
}

TEST_F(Save, immediateFailureWithoutNotification) {
    for (const int32_t asked : {2, 0, 3}) {
        row.xfCopyNotificationOnCompletion = asked;
        answer(refused);
        before = row;
        p.forget();
        if (!stored(5).has_value())
            store(row);
        EXPECT_EQ(0, do_cp_runningtostartup(&row));
        EXPECT_EQ(join({sent,
                        {receive, copy_state("0x40490001"),
                         info("do_cp_runningtostartup : copy failed\n"),
                         "ipcbus_drop(response_q, request" +
                             std::to_string(p.messages.size()) + ")",
                         drop_answer}}),
                  story());
        expect_row(XF_STATE_FAILED, true, XF_FAIL_SAVE_REFUSED);
        expect_stored(row);
        EXPECT_EQ(nullptr, module_state.save_request);
        EXPECT_EQ(0u, p.notifications.size());
        row.xfCopyState = XF_STATE_RUNNING;
        row.xfCopyTimeCompleted = {};
    }
}

namespace {

/* OID of the module, dotted. */
std::string root() {
    std::string text = std::to_string(config_copy_mib_variables_oid[0]);
    for (size_t i = 1; i < 9; i++)
        text += "." + std::to_string(config_copy_mib_variables_oid[i]);
    return text;
}

std::string varbind(int number, int type, size_t length, int column) {
    const std::string previous =
        number == 1 ? "NULL" : "varbind" + std::to_string(number - 1);
    return "build_varbind(" + previous + ", " + std::to_string(type) + ", " +
           std::to_string(length) + ", " + root() + ".1.1.1.1." +
           std::to_string(column) + ".5)";
}

} // namespace

TEST_F(Save, immediateFailureWithNotification) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    row.xfCopyServerAddressType = 1;
    assign(row.xfCopyServerAddressRev1, "192.0.2.7");
    assign(row.xfCopyFileName, "x.cfg");
    answer(refused);

    EXPECT_EQ(0, save());
    EXPECT_EQ(
        join({sent,
              {receive, copy_state("0x40490001"),
               info("do_cp_runningtostartup : copy failed\n"),
               varbind(1, 2, 4, 15), varbind(2, 4, 16, 16), varbind(3, 4, 5, 6),
               varbind(4, 2, 4, 10), varbind(5, 67, 4, 11),
               varbind(6, 67, 4, 12), varbind(7, 2, 4, 13),
               info("build_notification: Sending xfCopyCompletion "
                    "notification : xfCopyServerAddressRev1 = 192.0.2.7, "
                    "xfCopyFileName= x.cfg,xfCopyState=4, "
                    "xfCopyTimeStarted=99000, xfCopyTimeCompleted = 100025, "
                    "xfCopyFailCause=8, xfCopyServerAddressType = 1\n"),
               "enqueue_notification(6, " + root() + ".2.1.2.5, 7 varbinds)",
               drop_request(), drop_answer}}),
        story());
    expect_row(XF_STATE_FAILED, true, XF_FAIL_SAVE_REFUSED);
    expect_stored(row);
}

TEST_F(Save, immediateFailureOfARowThatIsGone) {
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    answer(refused);

    EXPECT_EQ(0, do_cp_runningtostartup(&row));
    const Story whole = story();
    ASSERT_LT(5u, whole.size());
    EXPECT_EQ(error("ERROR  do_cp_runningtostartup : Set to entry (index= 5) "
                    "failed \n"),
              whole.at(5));
    EXPECT_EQ(1u, p.notifications.size());
    EXPECT_EQ(drop_request(), whole.at(whole.size() - 2));
    EXPECT_EQ(drop_answer, whole.back());
    EXPECT_EQ(XF_STATE_FAILED, row.xfCopyState);
}

TEST_F(Save, refusalOfAFabricWideSaveCollectsNoErrors) {
    row.xfCopyDestFileType = XF_FILE_FABRIC_STARTUP;
    answer(refused);
    EXPECT_EQ(0, save());
    EXPECT_EQ(0u, p.count("grove_status_next_get"));
    EXPECT_EQ(0u, p.count("rpcq_req_resp"));
}

/* First four octets of the payload, big-endian, and every result but two a
 * failure. */
TEST_F(Save, resultIsTheFirstWordOfThePayload) {
    struct Case {
        std::string payload, shown;
        int32_t state;
    };
    const Case cases[] = {
        {"\0\0\0\0\xff\xff\xff\xff"s, "0x0", XF_STATE_SUCCESSFUL},
        {accepted + "\0\0\0\0"s, "0x401e0003", XF_STATE_RUNNING},
        {"\x03\x00\x1e\x40"s, "0x3001e40", XF_STATE_FAILED},
        {"\0\0\0\1"s, "0x1", XF_STATE_FAILED},
        {"\1\0\0\0"s, "0x1000000", XF_STATE_FAILED},
        {"\x40\x1e\x00\x02"s, "0x401e0002", XF_STATE_FAILED},
        {"\x40\x1e\x00\x04"s, "0x401e0004", XF_STATE_FAILED},
        {"\xff\xff\xff\xff"s, "0xffffffff", XF_STATE_FAILED},
    };
    for (const Case &c : cases) {
        p.forget();
        row.xfCopyState = XF_STATE_RUNNING;
        answer(c.payload);
        EXPECT_EQ(0, do_cp_runningtostartup(&row));
        EXPECT_EQ(c.state, row.xfCopyState) << c.shown;
        EXPECT_EQ(copy_state(c.shown), story().at(3));
    }
}

TEST_F(Save, answerWithoutAPayloadIsARefusal) {
    struct ipcbus_message *const message = p.message(1381, std::nullopt);
    p.to_receive.push_back({0, 0, message});
    EXPECT_EQ(0, save());
    EXPECT_EQ(XF_STATE_FAILED, row.xfCopyState);
    EXPECT_EQ(XF_FAIL_SAVE_REFUSED, row.xfCopyFailCause);
    EXPECT_EQ(1, message->dropped);
}

/* ---- The request's life ----------------------------------------------------
 */

TEST_F(Save, requestThatIsKeptIsTheOneThatAnAbortNames) {
    p.next_token = 0xa1b2c3d4;
    answer(accepted);
    save();
    const std::string drop = drop_request();
    p.forget();
    EXPECT_EQ(0, handle_abort(&row));
    ASSERT_EQ(1u, p.count("ipcbus_send"));
    EXPECT_EQ("\xa1\xb2\xc3\xd4\0\0\0\0"s, p.calls_of("ipcbus_send")[0].octets);
    EXPECT_EQ(drop, story().back());
}

TEST_F(Save, nothingIsForkedAndTheChildFlagStays) {
    answer(accepted);
    save();
    EXPECT_EQ(0u, p.count("fork"));
    EXPECT_EQ(0u, module_state.copyChildRunning);
}
