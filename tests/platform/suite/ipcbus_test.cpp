#include "platform/ipcbus.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "suite.h"

namespace {

constexpr ipcbus_address service = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_PROCD};
constexpr ipcbus_recv_options at_once = {1, 0};
constexpr ipcbus_recv_options two_seconds = {1, 2};
constexpr ipcbus_recv_options for_ever = {0, 0};

// The test in the place of the system manager.
class Ipcbus : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_GE(ipcbus_bind(IPCBUS_KIND_DATAGRAM, IPCBUS_SAP_PROCD, &server,
                              "server"),
                  0)
            << strerror(errno);
        ASSERT_GE(ipcbus_bind(IPCBUS_KIND_REQ_RESP, IPCBUS_SAP_ANY, &client,
                              "client"),
                  0)
            << strerror(errno);
    }
    void TearDown() override {
        if (client != nullptr) {
            EXPECT_GE(ipcbus_unbind(client, 0), 0);
        }
        if (server != nullptr) {
            EXPECT_GE(ipcbus_unbind(server, 0), 0);
        }
    }
    int send(uint32_t opcode, const void *payload = nullptr,
             uint32_t length = 0) {
        return ipcbus_send(client, &service, opcode, payload, length, 0, 0,
                           nullptr);
    }
    ipcbus_message *receive() {
        ipcbus_message *message = nullptr;
        EXPECT_GE(ipcbus_recv(server, &message, &two_seconds), 0)
            << strerror(errno);
        return message;
    }
    ipcbus_handle server = nullptr;
    ipcbus_handle client = nullptr;
};

TEST_F(Ipcbus, CarriesTheOpcode) {
    for (uint32_t opcode : {1361u, 10277u, UINT32_MAX}) {
        ASSERT_EQ(send(opcode), 0);
        ipcbus_message *message = receive();
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(ipcbus_opc_get(message), opcode);
        EXPECT_EQ(ipcbus_rr_token_get(message), 0u);
        ipcbus_drop(server, message);
    }
}

// A payload is octets: no word of it is turned, whatever the machine's order.
TEST_F(Ipcbus, CarriesOctetsAsTheyAre) {
    std::vector<uint8_t> payload(140);
    for (size_t i = 0; i < payload.size(); i++)
        payload[i] = static_cast<uint8_t>(0xff - i);
    ASSERT_EQ(send(1381, payload.data(), 140), 0);
    ipcbus_message *message = receive();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(memcmp(ipcbus_payload_get(message), payload.data(), 140), 0);
    ipcbus_drop(server, message);
}

TEST_F(Ipcbus, AShortPayloadIsFollowedByZeroes) {
    ASSERT_EQ(send(1, "\xff", 1), 0);
    ipcbus_message *message = receive();
    ASSERT_NE(message, nullptr);
    const uint8_t expected[16] = {0xff};
    EXPECT_EQ(memcmp(ipcbus_payload_get(message), expected, 16), 0);
    ipcbus_drop(server, message);
}

TEST_F(Ipcbus, NoPayloadIsNull) {
    ASSERT_EQ(send(1), 0);
    ipcbus_message *message = receive();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(ipcbus_payload_get(message), nullptr);
    ipcbus_drop(server, message);
}

// An abort must not come before the save that it is about.
TEST_F(Ipcbus, KeepsTheOrderOfOneSender) {
    for (uint32_t opcode : {11u, 12u, 13u})
        ASSERT_EQ(send(opcode), 0);
    for (uint32_t opcode : {11u, 12u, 13u}) {
        ipcbus_message *message = receive();
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(ipcbus_opc_get(message), opcode);
        ipcbus_drop(server, message);
    }
}

TEST_F(Ipcbus, ARequestIsNamedByItsToken) {
    ipcbus_message *requests[2] = {};
    for (ipcbus_message *&each : requests)
        ASSERT_EQ(
            ipcbus_send(ipcbus_response_q, &service, 1282, "x", 1, 0, 0, &each),
            0)
            << strerror(errno);
    EXPECT_NE(ipcbus_rr_token_get(requests[0]), 0u);
    EXPECT_NE(ipcbus_rr_token_get(requests[0]),
              ipcbus_rr_token_get(requests[1]));
    for (ipcbus_message *each : requests) {
        ipcbus_message *message = receive();
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(ipcbus_rr_token_get(message), ipcbus_rr_token_get(each));
        ipcbus_drop(server, message);
        ipcbus_drop(ipcbus_response_q, each);
    }
}

TEST_F(Ipcbus, NobodyThereIsAFailure) {
    ASSERT_GE(ipcbus_unbind(server, 0), 0);
    server = nullptr;
    ipcbus_message *request = reinterpret_cast<ipcbus_message *>(1);
    errno = 0;
    EXPECT_LT(ipcbus_send(client, &service, 1, nullptr, 0, 0, 0, &request), 0);
    EXPECT_NE(errno, 0);
    EXPECT_EQ(request, nullptr);
}

TEST_F(Ipcbus, AFullQueueIsAFailureAndDoesNotBlock) {
    const double begun = suite::now();
    int sent = 0;
    errno = 0;
    while (sent < 100000 && send(1, "x", 1) == 0)
        sent++;
    EXPECT_NE(errno, 0);
    EXPECT_GT(sent, 0);
    EXPECT_LT(sent, 100000);
    EXPECT_LT(suite::now() - begun, 10);
}

TEST_F(Ipcbus, ATimeoutIsETIME) {
    const ipcbus_recv_options a_second = {1, 1};
    ipcbus_message *message = nullptr;
    const double begun = suite::now();
    EXPECT_EQ(ipcbus_recv(server, &message, &a_second), -1);
    EXPECT_EQ(errno, ETIME);
    EXPECT_GE(suite::now() - begun, 0.9);
    EXPECT_LT(suite::now() - begun, 5);
    EXPECT_EQ(ipcbus_recv(server, &message, &at_once), -1);
    EXPECT_EQ(errno, ETIME);
}

void nothing(int) {}

TEST_F(Ipcbus, ASignalIsEINTR) {
    struct sigaction action = {}, old = {};
    action.sa_handler = nothing;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, &old);
    alarm(1);
    ipcbus_message *message = nullptr;
    EXPECT_EQ(ipcbus_recv(server, &message, &for_ever), -1);
    EXPECT_EQ(errno, EINTR);
    sigaction(SIGALRM, &old, nullptr);
}

TEST_F(Ipcbus, AChildSendsOnAHandleOfItsOwn) {
    const pid_t child = fork();
    if (child == 0) {
        ipcbus_handle own = nullptr;
        const bool done =
            ipcbus_bind(IPCBUS_KIND_REQ_RESP, IPCBUS_SAP_ANY, &own, "child") >=
                0 &&
            ipcbus_send(own, &service, 77, nullptr, 0, 0, 0, nullptr) == 0 &&
            ipcbus_unbind(own, 0) >= 0;
        _exit(done ? 0 : 1);
    }
    EXPECT_EQ(suite::exit_status(child), 0);
    ipcbus_message *message = receive();
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(ipcbus_opc_get(message), 77u);
    ipcbus_drop(server, message);
    // What the child has done was not done to the handles of its parent.
    ASSERT_EQ(send(78), 0);
    ipcbus_drop(server, receive());
}

TEST(IpcbusQueue, IsThereFromTheStart) {
    EXPECT_NE(ipcbus_response_q, nullptr);
}

TEST(IpcbusQueue, NullIsAllowed) {
    ipcbus_drop(nullptr, nullptr);
    EXPECT_EQ(ipcbus_rr_token_get(nullptr), 0u);
}

} // namespace
