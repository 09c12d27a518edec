// The system manager's calls, without it and with it, and saves by message.
#include "platform/procd.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "files.h"
#include "main_loop.h"
#include "platform/errlog.h"
#include "platform/qsh.h"
#include "suite.h"

namespace {

constexpr ipcbus_address manager = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_PROCD};
constexpr ipcbus_recv_options ten_seconds = {1, 10};

class Procd : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_GE(
            ipcbus_bind(IPCBUS_KIND_REQ_RESP, IPCBUS_SAP_ANY, &handle, "child"),
            0);
    }
    void TearDown() override {
        ipcbus_unbind(handle, 0);
    }
    std::string startup_file() const {
        return std::string(procd_cli_dir_get(handle, 2)) + "/system.cfg";
    }
    ipcbus_handle handle = nullptr;
};

TEST_F(Procd, ATextBecomesTheStartupConfiguration) {
    ASSERT_NE(procd_cli_dir_get(handle, 2), nullptr);
    const std::string path = support::directory() + "/startup.cfg";
    for (const char *text : {"first\n", "second, longer\n", "3\n"}) {
        support::write_file(path, text);
        EXPECT_EQ(procd_cli_write_ascii_cfg(handle, path.c_str()), 0);
        EXPECT_EQ(support::read_file(startup_file()), text);
    }
}

TEST_F(Procd, AMissingTextLeavesTheStartupConfiguration) {
    const std::string path = support::directory() + "/startup.cfg";
    support::write_file(path, "kept\n");
    ASSERT_EQ(procd_cli_write_ascii_cfg(handle, path.c_str()), 0);
    const int result = procd_cli_write_ascii_cfg(handle, "/no/such/file");
    EXPECT_NE(result, 0);
    EXPECT_NE(syserr_format(static_cast<uint32_t>(result)), nullptr);
    EXPECT_EQ(support::read_file(startup_file()), "kept\n");
}

TEST_F(Procd, SignsOfLifeDoNotBlockAndAreASecondApart) {
    EXPECT_GE(procd_heartbeat_timeout_get(), 1000u);
    const double begun = suite::now();
    for (int i = 0; i < 1000; i++)
        procd_heartbeat(0);
    EXPECT_LT(suite::now() - begun, 5);
}

TEST_F(Procd, ARequestThatNobodyAnswersEndsInTime) {
    ipcbus_handle deaf = nullptr;
    ASSERT_GE(
        ipcbus_bind(IPCBUS_KIND_DATAGRAM, IPCBUS_SAP_PROCD_RPC, &deaf, "deaf"),
        0);
    const double begun = suite::now();
    void *response = &deaf;
    constexpr uint32_t unknown_request = 9999;
    EXPECT_NE(rpcq_req_resp(unknown_request, 0, 0, nullptr, 0,
                            IPCBUS_SAP_PROCD_RPC, ipcbus_response_q, 1,
                            &response),
              0);
    EXPECT_EQ(response, nullptr);
    EXPECT_LT(suite::now() - begun, 5);
    ipcbus_unbind(deaf, 0);
}

// A save request, and in it what differs.
std::vector<uint8_t> save_request(uint8_t action) {
    std::vector<uint8_t> octets(SAVE_REQUEST_SIZE);
    octets[SAVE_REQUEST_ACTION + 3] = action;
    octets[SAVE_REQUEST_WORD_4 + 3] = 1;
    octets[SAVE_REQUEST_OCTET_10] = 1;
    memcpy(&octets[SAVE_REQUEST_USER], "admin", 5);
    memcpy(&octets[SAVE_REQUEST_SESSION], "[192.0.2.1]:4711", 16);
    return octets;
}

uint32_t word_at(const ipcbus_message *message) {
    auto octets = static_cast<const uint8_t *>(ipcbus_payload_get(message));
    return uint32_t{octets[0]} << 24 | uint32_t{octets[1]} << 16 |
           uint32_t{octets[2]} << 8 | octets[3];
}

std::vector<size_t> ends; // outcomes of saves

netsnmp_variable_list *save_ended(struct ipcbus_message *, oid *,
                                  size_t *outcome, int *notify) {
    ends.push_back(*outcome);
    *notify = 0;
    return nullptr;
}

// With the platform's own system manager.
class Manager : public Procd {
  protected:
    void SetUp() override {
        Procd::SetUp();
        ends.clear();
        const std::string &program = suite::options().manager;
        if (program.empty())
            GTEST_SKIP() << "no --manager was named";
        char *const arguments[] = {const_cast<char *>(program.c_str()),
                                   nullptr};
        ASSERT_EQ(posix_spawn(&child, program.c_str(), nullptr, nullptr,
                              arguments, environ),
                  0);
        bool there = false;
        for (int i = 0; i < 1000 && !there; i++) {
            usleep(10000);
            there = qsh_notify_cfg_update(handle, 1, 2, 3) == 0;
        }
        ASSERT_TRUE(there) << program << " takes no messages";
    }
    void TearDown() override {
        if (child > 0) {
            kill(child, SIGTERM);
            waitpid(child, nullptr, 0);
        }
        Procd::TearDown();
    }
    // The answer to a request to save; its token is compared, too.
    uint32_t ask(const std::vector<uint8_t> &request) {
        ipcbus_message *sent = nullptr, *answer = nullptr;
        EXPECT_EQ(
            ipcbus_send(ipcbus_response_q, &manager,
                        IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION, request.data(),
                        static_cast<uint32_t>(request.size()), 0, 0, &sent),
            0)
            << strerror(errno);
        if (ipcbus_recv(ipcbus_response_q, &answer, &ten_seconds) < 0) {
            ADD_FAILURE() << "no answer: " << strerror(errno);
            return UINT32_MAX;
        }
        EXPECT_EQ(ipcbus_rr_token_get(answer), ipcbus_rr_token_get(sent));
        EXPECT_EQ(ipcbus_opc_get(answer),
                  IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION + 0u);
        const uint32_t result = word_at(answer);
        ipcbus_drop(ipcbus_response_q, answer);
        ipcbus_drop(ipcbus_response_q, sent);
        return result;
    }
    pid_t child = 0;
};

TEST_F(Manager, SavesTheRunningConfigurationAndTellsTheEnd) {
    ASSERT_EQ(register_for_notification(IPCBUS_OPC_PROCD_COPY_RUN2START_DONE,
                                        save_ended),
              0);
    const std::string path = support::directory() + "/before.cfg";
    support::write_file(path, "before the save\n");
    ASSERT_EQ(procd_cli_write_ascii_cfg(handle, path.c_str()), 0);
    const double begun = suite::now();
    const uint32_t result = ask(save_request(SAVE_ACTION_RUNNING_TO_STARTUP));
    EXPECT_LT(suite::now() - begun, 5);
    if (result != PROCD_CFG_ACTION_DONE) {
        EXPECT_EQ(result, PROCD_CFG_ACTION_ACCEPTED);
        EXPECT_TRUE(turn_until([] { return !ends.empty(); }));
        EXPECT_EQ(ends, std::vector<size_t>{0});
    }
    EXPECT_NE(support::read_file(startup_file()), "before the save\n");
    unregister_for_notification(IPCBUS_OPC_PROCD_COPY_RUN2START_DONE);
}

TEST_F(Manager, RefusesARequestOfAnotherSizeOrAction) {
    std::vector<uint8_t> request = save_request(SAVE_ACTION_RUNNING_TO_STARTUP);
    request.pop_back();
    for (const auto &each : {request, save_request(99)}) {
        const uint32_t result = ask(each);
        EXPECT_NE(result, PROCD_CFG_ACTION_DONE);
        EXPECT_NE(result, PROCD_CFG_ACTION_ACCEPTED);
        EXPECT_NE(syserr2str(result), nullptr);
    }
}

TEST_F(Manager, TellsTheNameOfTheSwitch) {
    uint8_t names[2][SWITCH_WWN_SIZE] = {};
    for (auto &name : names) {
        void *response = nullptr;
        ASSERT_EQ(rpcq_req_resp(PROCD_RPC_SWITCH_WWN, SWITCH_WWN_ARG1,
                                SWITCH_WWN_ARG2, nullptr, 0,
                                IPCBUS_SAP_PROCD_RPC, ipcbus_response_q,
                                SWITCH_WWN_SECONDS, &response),
                  0);
        ASSERT_NE(response, nullptr);
        memcpy(name, response, SWITCH_WWN_SIZE);
        free(response);
    }
    EXPECT_EQ(memcmp(names[0], names[1], SWITCH_WWN_SIZE), 0);
}

} // namespace
