/* The copy status message: the last thing that the copy child says. */
#include "scripted_platform.h"

#include <utility>

using namespace scripted;
using namespace std::string_literals;

namespace {

class StatusReport : public ModuleTest {};

const std::string bind_call = "ipcbus_bind(1, -1, \"config_copy_task\")";

std::string send_call(int handle = 1) {
    return "ipcbus_send(handle" + std::to_string(handle) +
           ", {0xfe000000, 28}, 10277, 4 octets, 0, 0, NULL)";
}

std::string bind_failed(int error_number) {
    return error("send_status_2_parent: ipcbus_bind failed. errno " +
                 std::to_string(error_number) + "\n");
}

} // namespace

TEST_F(StatusReport, bindsSendsAndUnbinds) {
    send_status_2_parent(3);
    EXPECT_EQ((Story{
                  error("send_status_2_parent: status is 3\n"),
                  bind_call,
                  send_call(),
                  "ipcbus_unbind(handle1, 0)",
              }),
              story());
}

TEST_F(StatusReport, statusZeroIsFourZeroOctets) {
    send_status_2_parent(0);
    ASSERT_EQ(1u, p.count("ipcbus_send"));
    EXPECT_EQ("\0\0\0\0"s, p.calls_of("ipcbus_send")[0].octets);
    EXPECT_EQ(error("send_status_2_parent: status is 0\n"), story().front());
}

TEST_F(StatusReport, statusIsBigEndian) {
    const std::pair<uint32_t, std::string> cases[] = {
        {1, "\0\0\0\1"s},
        {5, "\0\0\0\5"s},
        {7, "\0\0\0\7"s},
        {0x100, "\0\0\1\0"s},
        {0x01020304, "\1\2\3\4"s},
        {0x80000000, "\x80\0\0\0"s},
        {0xffffffff, "\xff\xff\xff\xff"s},
    };
    for (const auto &[status, octets] : cases) {
        p.forget();
        send_status_2_parent(status);
        ASSERT_EQ(1u, p.count("ipcbus_send"));
        EXPECT_EQ(octets, p.calls_of("ipcbus_send")[0].octets) << status;
    }
}

TEST_F(StatusReport, resultIsThatOfTheUnbind) {
    p.unbind_results.then(-7).then(3);
    EXPECT_EQ(-7, send_status_2_parent(0));
    EXPECT_EQ(3, send_status_2_parent(0));
}

TEST_F(StatusReport, anyResultOfTheBindButANegativeOneIsSuccess) {
    p.bind_results.then(9);
    send_status_2_parent(0);
    EXPECT_EQ((Story{
                  error("send_status_2_parent: status is 0\n"),
                  bind_call,
                  send_call(),
                  "ipcbus_unbind(handle1, 0)",
              }),
              story());
}

TEST_F(StatusReport, failedBindIsTriedAgainTwoSecondsLater) {
    p.bind_results.then(-1, 111).then(-22, 11);
    send_status_2_parent(1);
    EXPECT_EQ((Story{
                  error("send_status_2_parent: status is 1\n"),
                  bind_call,
                  bind_failed(111),
                  "sleep(2)",
                  bind_call,
                  bind_failed(11),
                  "sleep(2)",
                  bind_call,
                  send_call(),
                  "ipcbus_unbind(handle1, 0)",
              }),
              story());
}

TEST_F(StatusReport, tenthAttemptStillReports) {
    for (int i = 0; i < 9; i++)
        p.bind_results.then(-1, 111);
    send_status_2_parent(1);
    EXPECT_EQ(10u, p.count("ipcbus_bind"));
    EXPECT_EQ(9u, p.count("sleep"));
    EXPECT_EQ(1u, p.count("ipcbus_send"));
    EXPECT_EQ(1u, p.count("ipcbus_unbind"));
}

TEST_F(StatusReport, tenFailedBindsTakeTwentySecondsAndSendNothing) {
    const int64_t began = p.now_seconds;
    Story expected = {error("send_status_2_parent: status is 1\n")};

    p.bind_results.always(-1, 111);
    for (int i = 0; i < 10; i++) {
        expected.push_back(bind_call);
        expected.push_back(bind_failed(111));
        expected.push_back("sleep(2)");
    }
    expected.push_back(bind_failed(111));

    send_status_2_parent(1);
    EXPECT_EQ(expected, story());
    EXPECT_EQ(20, p.now_seconds - began);
}

TEST_F(StatusReport, failedSendIsTracedAndNotRepeated) {
    for (const int result : {-1, 1, 105}) {
        p.forget();
        p.send_results.then(result, 105);
        send_status_2_parent(1);
        const std::string handle = "handle" + std::to_string(p.queues.size());
        EXPECT_EQ(
            (Story{
                error("send_status_2_parent: status is 1\n"),
                bind_call,
                send_call(static_cast<int>(p.queues.size())),
                error("send_status_2_parent: ipcbus_send failed. errno 105\n"),
                "ipcbus_unbind(" + handle + ", 0)",
            }),
            story())
            << result;
    }
}

/* A trace may change errno: history and live output still show the same. */
TEST_F(StatusReport, errnoIsTheSameInHistoryAndLiveOutput) {
    p.live_check.always(1);
    p.bind_results.then(-1, 111);
    p.send_results.then(-1, 105);
    send_status_2_parent(1);
    EXPECT_EQ(
        (Story{
            error("send_status_2_parent: status is 1\n"),
            live("send_status_2_parent: status is 1\n"),
            bind_call,
            bind_failed(111),
            live("send_status_2_parent: ipcbus_bind failed. errno 111\n"),
            "sleep(2)",
            bind_call,
            send_call(),
            error("send_status_2_parent: ipcbus_send failed. errno 105\n"),
            live("send_status_2_parent: ipcbus_send failed. errno 105\n"),
            "ipcbus_unbind(handle1, 0)",
        }),
        story());
}
