// What the agent offers, with the test in the place of its main loop.
#include "platform/agent_ext.h"

#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "main_loop.h"
#include "platform/messages.h"
#include "suite.h"

namespace {

// Its payload is not read, and nobody waits for it: a message like any other.
constexpr uint32_t started = IPCBUS_OPC_PROCD_COPY_STARTED;

struct Seen {
    uint32_t opcode;
    size_t outcome;
    size_t room;
    std::string handler;
};

std::vector<Seen> seen;

netsnmp_variable_list *note(const char *handler, struct ipcbus_message *message,
                            const size_t *oid_len, int *notify) {
    seen.push_back({ipcbus_opc_get(message), *oid_len, 0, handler});
    *notify = 0;
    return nullptr;
}

netsnmp_variable_list *first(struct ipcbus_message *message, oid *,
                             size_t *oid_len, int *notify) {
    return note("first", message, oid_len, notify);
}

netsnmp_variable_list *second(struct ipcbus_message *message, oid *name,
                              size_t *oid_len, int *notify) {
    memset(name, 0, MAX_OID_LEN * sizeof *name);
    return note("second", message, oid_len, notify);
}

class AgentExt : public testing::Test {
  protected:
    void SetUp() override {
        netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_APPTYPE,
                              "platform_tests");
        seen.clear();
        ASSERT_EQ(register_for_notification(started, first), 0);
        ASSERT_GE(ipcbus_bind(IPCBUS_KIND_DATAGRAM, IPCBUS_SAP_ANY, &handle,
                              "sender"),
                  0);
    }
    void TearDown() override {
        unregister_for_notification(started);
        ipcbus_unbind(handle, 0);
    }
    void send(uint32_t opcode) {
        const ipcbus_address agent = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_SNMP_AGENT};
        ASSERT_EQ(
            ipcbus_send(handle, &agent, opcode, nullptr, 0, 0, 0, nullptr), 0);
    }
    ipcbus_handle handle = nullptr;
};

bool something_came() {
    return !seen.empty();
}

TEST_F(AgentExt, DeliversAMessageFromTheMainLoopAlone) {
    send(started);
    get_snmp_username(0);
    EXPECT_TRUE(seen.empty());
    ASSERT_TRUE(turn_until(something_came));
    EXPECT_EQ(seen[0].opcode, started);
    EXPECT_EQ(seen[0].outcome, 0u);
}

TEST_F(AgentExt, ALaterHandlerTakesTheFirstOnesPlace) {
    ASSERT_EQ(register_for_notification(started, second), 0);
    send(started);
    ASSERT_TRUE(turn_until(something_came));
    EXPECT_EQ(seen[0].handler, "second");
    suite::turn();
    EXPECT_EQ(seen.size(), 1u);
}

TEST_F(AgentExt, DropsWhatNobodyWants) {
    send(IPCBUS_OPC_CONFIG_COPY_STATUS);
    send(started);
    ASSERT_TRUE(turn_until(something_came));
    EXPECT_EQ(seen[0].opcode, started);
    ASSERT_EQ(unregister_for_notification(started), 0);
    EXPECT_LT(unregister_for_notification(started), 0);
    send(started);
    suite::turn();
    EXPECT_EQ(seen.size(), 1u);
}

TEST_F(AgentExt, VarbindsAreCopiedAndChained) {
    oid name[] = {1, 3, 9};
    int32_t minus = -1;
    const uint32_t ticks = 0xFFFFFFFF;
    char text[] = "abc";
    auto *one = build_varbind(nullptr, &minus, ASN_INTEGER, 4, name, 3);
    auto *two = build_varbind(one, &ticks, ASN_TIMETICKS, 4, name, 3);
    auto *three = build_varbind(two, text, ASN_OCTET_STR, 3, name, 3);
    name[2] = 8;
    minus = 5;
    text[0] = 'x';
    ASSERT_NE(three, nullptr);
    EXPECT_EQ(one->next_variable, two);
    EXPECT_EQ(two->next_variable, three);
    EXPECT_EQ(three->next_variable, nullptr);
    EXPECT_EQ(one->name[2], 9u);
    EXPECT_EQ(*one->val.integer, -1);
    EXPECT_EQ(static_cast<u_long>(*two->val.integer), 0xFFFFFFFFul);
    EXPECT_EQ(three->val_len, 3u);
    EXPECT_EQ(memcmp(three->val.string, "abc", 3), 0);
    snmp_free_varbind(one);
}

TEST_F(AgentExt, AnEmptyStringIsAVarbind) {
    const oid name[] = {1, 3, 9};
    auto *empty = build_varbind(nullptr, "", ASN_OCTET_STR, 0, name, 3);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->val_len, 0u);
    snmp_free_varbind(empty);
}

TEST_F(AgentExt, TakesANotificationWithItsVarbinds) {
    const oid name[] = {1, 3, 6, 1, 4, 1, 32473, 9, 1};
    const int32_t value = 5;
    enqueue_notification(
        6, name, 9, build_varbind(nullptr, &value, ASN_INTEGER, 4, name, 9));
    enqueue_notification(6, name, 9, nullptr);
}

TEST_F(AgentExt, NobodyAsksOutsideOfARequest) {
    EXPECT_STREQ(get_snmp_sessionid(0), "");
    EXPECT_STREQ(get_snmp_username(0), "");
    int32_t error = 0;
    if (snmp_get_ctx_vrf_for_current_req(&error) == nullptr) {
        EXPECT_NE(error, 0);
    }
}

TEST_F(AgentExt, WhoAsksInARequest) {
    GTEST_SKIP() << "needs an agent that serves one: load the module and look "
                    "at the accounting records of a copy";
}

TEST_F(AgentExt, TakesNoteOfChanges) {
    change_time_flag = 0;
    EXPECT_EQ(change_time_flag, 0);
    snmp_heartbeat_send();
    set_mgmt_conf_last_change_time_extended(2);
    set_mgmt_conf_last_change_time_extended(3);
}

} // namespace
