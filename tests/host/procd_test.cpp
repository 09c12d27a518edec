// The daemon itself, asked octet by octet, with this process in the agent's
// place.
#include "platform/procd.h"

#include <csignal>
#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/library/fd_event_manager.h>

#include <gtest/gtest.h>

#include "host/agent/save_watch.h"
#include "host/base/spawn.h"
#include "host/ipcbus/queue.h"
#include "host/procd/protocol.h"
#include "host/procd/save_journal.h"
#include "platform/agent_ext.h"
#include "platform/qsh.h"
#include "tests/host/support.h"

namespace {

using namespace xfhost;
using Octets = std::vector<uint8_t>;

// Of opcode 1361: the outcome that the handler was told, and the payload.
struct End {
    size_t outcome;
    Octets payload;
};
std::vector<End> ends;

netsnmp_variable_list *note_end(struct ipcbus_message *message, oid *,
                                size_t *oid_len_out, int *notify_out) {
    ends.push_back({*oid_len_out, message->wire.payload});
    *notify_out = 0;
    return nullptr;
}

// A request as the module sends it.
Octets save_request(uint8_t fabric = 0, uint8_t all = 0) {
    Octets payload(140);
    payload[3] = 26;
    payload[7] = 1;
    payload[10] = 1;
    payload[31] = fabric;
    payload[43] = all;
    memcpy(&payload[44], "alice", 5);
    memcpy(&payload[76], "192.0.2.9", 9);
    return payload;
}

const Octets accepted = {0x40, 0x1E, 0x00, 0x03};
const Octets busy = {0x40, 0x1E, 0x00, 0x12};
const Octets malformed = {0x40, 0x1E, 0x00, 0x13};
const Octets no_fabric = {0x40, 0x1E, 0x00, 0x17};

class Procd : public testing::Test {
  protected:
    void SetUp() override {
        netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_APPTYPE,
                              "host_tests");
        ends.clear();
        ASSERT_EQ(register_for_notification(1361, note_end), 0);
        save_watch_start();
        state_ = support::directory() + "/state";
        support::write_file(state_ + "/running-config", "hostname new\n");
        ASSERT_EQ(chmod((state_ + "/running-config").c_str(), 0600), 0);
        std::string old = support::directory() + "/old";
        support::write_file(old, "hostname old\n");
        ASSERT_EQ(procd_cli_write_ascii_cfg(nullptr, old.c_str()), 0);
    }

    void TearDown() override {
        if (pid_ > 0)
            end(SIGTERM);
        unregister_for_notification(1361);
        EXPECT_EQ(noted_save(), 0u);
    }

    void start(int delay = 0) {
        setenv("XF_SAVE_DELAY_SECONDS", std::to_string(delay).c_str(), 1);
        SpawnRequest request;
        request.path = "/brim/bin/procd";
        ASSERT_EQ(spawn_program(request, pid_), 0);
        const ipcbus_address to = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_PROCD_RPC};
        for (int i = 0; i < 500; i++) {
            if (ipcbus_send(ipcbus_response_q, &to, 1, nullptr, 0, 0, 0,
                            nullptr) == 0)
                return;
            usleep(10000);
        }
        FAIL() << "procd does not come";
    }

    int end(int signal) {
        int status = -1;
        kill(pid_, signal);
        EXPECT_EQ(wait_for(pid_, status), 0);
        pid_ = 0;
        return status;
    }

    // Sends one and returns the first answer.
    Octets ask(const Octets &payload) {
        const ipcbus_address to = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_PROCD};
        ipcbus_message *record = nullptr, *answer = nullptr;
        if (ipcbus_send(ipcbus_response_q, &to, 1381, payload.data(),
                        static_cast<uint32_t>(payload.size()), 0, 0,
                        &record) != 0)
            return {};
        token_ = ipcbus_rr_token_get(record);
        ipcbus_drop(nullptr, record);
        const ipcbus_recv_options options = {1, 5};
        if (ipcbus_recv(ipcbus_response_q, &answer, &options) < 0)
            return {};
        EXPECT_EQ(ipcbus_opc_get(answer), 1381u);
        Octets result = answer->wire.payload;
        ipcbus_drop(nullptr, answer);
        return result;
    }

    void abort(uint32_t token) {
        uint8_t payload[8] = {};
        put_be32(payload, token);
        const ipcbus_address to = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_PROCD};
        EXPECT_EQ(ipcbus_send(ipcbus_response_q, &to, 1383, payload, 8, 0, 0,
                              nullptr),
                  0);
    }

    // The main loop of an agent, until an end comes or the time is over.
    void turn(int milliseconds) {
        for (int i = 0; i < milliseconds / 10 && ends.empty(); i++) {
            fd_set sets[3];
            for (fd_set &each : sets)
                FD_ZERO(&each);
            int limit = 0;
            netsnmp_external_event_info(&limit, &sets[0], &sets[1], &sets[2]);
            struct timeval at_most = {0, 10000};
            int count = select(limit, &sets[0], &sets[1], &sets[2], &at_most);
            if (count > 0)
                netsnmp_dispatch_external_events(&count, &sets[0], &sets[1],
                                                 &sets[2]);
            run_alarms();
        }
    }

    std::string startup() {
        return support::read_file(state_ + "/startup/system.cfg");
    }

    bool in_the_middle() {
        for (int i = 0; i < 500; i++) {
            if (support::exists(state_ + "/startup/.system.cfg.new"))
                return true;
            usleep(10000);
        }
        return false;
    }

    pid_t pid_ = 0;
    uint32_t token_ = 0;
    std::string state_;
};

TEST(SaveRequest, IsReadOctetByOctet) {
    auto request = parse_save_request(save_request());
    ASSERT_TRUE(request);
    EXPECT_FALSE(request->fabric);
    EXPECT_FALSE(request->all);
    EXPECT_EQ(request->user, "alice");
    EXPECT_EQ(request->session, "192.0.2.9");
    EXPECT_TRUE(parse_save_request(save_request(1, 0))->fabric);
    EXPECT_TRUE(parse_save_request(save_request(0, 1))->all);
    Octets full = save_request();
    memset(&full[44], 'x', 64);
    EXPECT_EQ(parse_save_request(full)->user, std::string(32, 'x'));
    Octets other = save_request();
    other[3] = 27;
    EXPECT_FALSE(parse_save_request(other));
    other.pop_back();
    other[3] = 26;
    EXPECT_FALSE(parse_save_request(other));
    EXPECT_FALSE(parse_save_request({}));
}

TEST(SaveEnd, CarriesResultAndToken) {
    EXPECT_EQ(save_end_payload(0x401E0011, 0x01020304),
              (Octets{0x40, 0x1E, 0x00, 0x11, 1, 2, 3, 4}));
}

TEST_F(Procd, SavesAndTells) {
    start();
    EXPECT_EQ(ask(save_request()), accepted);
    turn(5000);
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0].outcome, 0u);
    EXPECT_EQ(ends[0].payload, save_end_payload(0, token_));
    EXPECT_EQ(startup(), "hostname new\n");
    EXPECT_EQ(support::mode_of(state_ + "/startup/system.cfg"), 0600u);
}

TEST_F(Procd, RefusesWhatIsNoSave) {
    start();
    EXPECT_EQ(ask({}), malformed);
    EXPECT_EQ(ask(Octets(140)), malformed);
    EXPECT_EQ(ask(save_request(1)), no_fabric);
    turn(200);
    EXPECT_TRUE(ends.empty());
    EXPECT_EQ(startup(), "hostname old\n");
}

TEST_F(Procd, SavesOneAtATime) {
    start(1);
    EXPECT_EQ(ask(save_request()), accepted);
    EXPECT_EQ(ask(save_request()), busy);
    for (int i = 0; i < 200 && startup() != "hostname new\n"; i++)
        usleep(20000);
    EXPECT_EQ(startup(), "hostname new\n");
    // Nobody waits for that end any more: the second request took its place.
    turn(300);
    EXPECT_TRUE(ends.empty());
}

TEST_F(Procd, AbortsByTokenOnly) {
    start(60);
    EXPECT_EQ(ask(save_request()), accepted);
    ASSERT_TRUE(in_the_middle());
    abort(token_ + 1);
    usleep(300000);
    EXPECT_EQ(noted_save(), token_);
    abort(token_);
    EXPECT_EQ(ask(save_request()), accepted); // once the other one is gone
    EXPECT_EQ(startup(), "hostname old\n");
    EXPECT_EQ(noted_save(), token_);
    turn(300);
    EXPECT_TRUE(ends.empty()); // the aborted one is not this one
    abort(token_);
}

TEST_F(Procd, AnswersWhileItSaves) {
    start(60);
    EXPECT_EQ(ask(save_request()), accepted);
    void *wwn = nullptr;
    ASSERT_EQ(
        rpcq_req_resp(1282, 1, 0, nullptr, 0, 46, ipcbus_response_q, 5, &wwn),
        0);
    const uint8_t expected[8] = {0x10, 0, 0, 5, 0x1e, 0x34, 1, 0xff};
    EXPECT_EQ(memcmp(wwn, expected, 8), 0);
    free(wwn);
    abort(token_);
}

TEST_F(Procd, RequestServiceKnowsNothingElse) {
    start();
    void *response = &response;
    EXPECT_NE(
        rpcq_req_resp(1283, 0, 0, "x", 1, 46, ipcbus_response_q, 5, &response),
        0);
    EXPECT_EQ(response, nullptr);
    procd_heartbeat(0);
    EXPECT_EQ(qsh_notify_cfg_update(ipcbus_response_q, 1, 2, 3), 0);
    EXPECT_EQ(ask(save_request()), accepted);
    turn(5000);
    EXPECT_EQ(ends.size(), 1u);
}

TEST(ProcdGone, NameOfThisSwitchIsStillKnown) {
    void *wwn = nullptr;
    ASSERT_EQ(
        rpcq_req_resp(1282, 1, 0, nullptr, 0, 46, ipcbus_response_q, 60, &wwn),
        0);
    const uint8_t expected[8] = {0x10, 0, 0, 5, 0x1e, 0x34, 1, 0xff};
    EXPECT_EQ(memcmp(wwn, expected, 8), 0);
    free(wwn);
}

TEST(ProcdGone, CallsFailAtOnce) {
    void *response = &response;
    EXPECT_NE(rpcq_req_resp(1283, 1, 0, nullptr, 0, 46, ipcbus_response_q, 60,
                            &response),
              0);
    EXPECT_EQ(response, nullptr);
    EXPECT_NE(qsh_notify_cfg_update(ipcbus_response_q, 1, 2, 3), 0);
    procd_heartbeat(0);
}

TEST_F(Procd, EndedByASignalItTellsAFailure) {
    start(60);
    EXPECT_EQ(ask(save_request()), accepted);
    ASSERT_TRUE(in_the_middle());
    EXPECT_EQ(end(SIGTERM), 0);
    turn(500);
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0].outcome, 0x401E0014u);
    EXPECT_EQ(startup(), "hostname old\n");
}

TEST_F(Procd, RestartedItTellsAFailure) {
    start(60);
    EXPECT_EQ(ask(save_request()), accepted);
    ASSERT_TRUE(in_the_middle());
    end(SIGKILL);
    start();
    turn(900);
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0].outcome, 0x401E0015u);
    EXPECT_EQ(startup(), "hostname old\n");
    ends.clear();
    turn(1500); // the agent side has nothing to add
    EXPECT_TRUE(ends.empty());
}

TEST_F(Procd, NotRestartedTheAgentSideTellsIt) {
    start(60);
    EXPECT_EQ(ask(save_request()), accepted);
    ASSERT_TRUE(in_the_middle());
    end(SIGKILL);
    turn(5000);
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0].outcome, 0x401E0016u);
    ends.clear();
    start(); // its own message about that save comes too late
    turn(500);
    EXPECT_TRUE(ends.empty());
}

TEST_F(Procd, AWaitEndsWithTheOneThatIsWaitedFor) {
    start();
    kill(pid_, SIGSTOP);
    const ipcbus_address to = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_PROCD};
    Octets payload = save_request();
    ipcbus_message *record = nullptr, *answer = nullptr;
    ASSERT_EQ(ipcbus_send(ipcbus_response_q, &to, 1381, payload.data(), 140, 0,
                          0, &record),
              0);
    const ipcbus_recv_options second = {1, 1}, minute = {1, 60};
    EXPECT_EQ(ipcbus_recv(ipcbus_response_q, &answer, &second), -1);
    EXPECT_EQ(errno, ETIME);
    end(SIGKILL);
    EXPECT_EQ(ipcbus_recv(ipcbus_response_q, &answer, &minute), -1);
    EXPECT_EQ(errno, EPIPE);
    ipcbus_drop(nullptr, record);
    turn(5000);
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0].outcome, 0x401E0016u);
}

TEST_F(Procd, ThereIsOnlyOne) {
    start();
    SpawnRequest request;
    request.path = "/brim/bin/procd";
    pid_t second;
    ASSERT_EQ(spawn_program(request, second), 0);
    int status = 0;
    EXPECT_EQ(wait_with_limit(second, 5, status), 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_NE(WEXITSTATUS(status), 0);
}

} // namespace
