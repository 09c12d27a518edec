// The agent side in this process, with the test in the place of the main loop.
#include "platform/agent_ext.h"

#include <cstring>
#include <vector>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/library/fd_event_manager.h>

#include <gtest/gtest.h>

#include "host/ipcbus/queue.h"

namespace {

struct Seen {
    uint32_t opcode;
    size_t outcome;
    std::vector<uint8_t> payload;
};

std::vector<Seen> seen;
int notify_wanted;

netsnmp_variable_list *record(struct ipcbus_message *message, oid *oid_out,
                              size_t *oid_len_out, int *notify_out) {
    seen.push_back(
        {ipcbus_opc_get(message), *oid_len_out, message->wire.payload});
    *notify_out = notify_wanted;
    if (!notify_wanted)
        return nullptr;
    const oid name[] = {1, 3, 6, 1, 4, 1, 32473, 9, 1};
    memcpy(oid_out, name, sizeof name);
    *oid_len_out = OID_LENGTH(name);
    int32_t value = -5;
    return build_varbind(nullptr, &value, ASN_INTEGER, 4, name,
                         OID_LENGTH(name));
}

// One round of the main loop.
void turn() {
    fd_set read_set, write_set, except_set;
    FD_ZERO(&read_set);
    FD_ZERO(&write_set);
    FD_ZERO(&except_set);
    int limit = 0;
    netsnmp_external_event_info(&limit, &read_set, &write_set, &except_set);
    struct timeval at_most = {1, 0};
    int count = select(limit, &read_set, &write_set, &except_set, &at_most);
    if (count > 0)
        netsnmp_dispatch_external_events(&count, &read_set, &write_set,
                                         &except_set);
}

void send_to_agent(uint32_t opcode, const std::vector<uint8_t> &payload) {
    ipcbus_handle handle = nullptr;
    ASSERT_EQ(ipcbus_bind(IPCBUS_KIND_DATAGRAM, IPCBUS_SAP_ANY, &handle, "t"),
              0);
    const ipcbus_address agent = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_SNMP_AGENT};
    EXPECT_EQ(ipcbus_send(handle, &agent, opcode, payload.data(),
                          static_cast<uint32_t>(payload.size()), 0, 0, nullptr),
              0);
    ipcbus_unbind(handle, 0);
}

class Agent : public testing::Test {
  protected:
    void SetUp() override {
        netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_APPTYPE,
                              "host_tests");
        seen.clear();
        notify_wanted = 0;
        for (uint32_t opcode : {1361u, 10277u})
            ASSERT_EQ(register_for_notification(opcode, record), 0);
    }
    void TearDown() override {
        for (uint32_t opcode : {1361u, 10277u})
            unregister_for_notification(opcode);
    }
};

TEST_F(Agent, DeliversAMessage) {
    send_to_agent(10277, {0, 0, 0, 7});
    turn();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].opcode, 10277u);
    EXPECT_EQ(seen[0].outcome, 0u);
    EXPECT_EQ(seen[0].payload, (std::vector<uint8_t>{0, 0, 0, 7}));
}

TEST_F(Agent, TellsTheOutcomeOfASave) {
    send_to_agent(1361, {0, 0, 0, 0});
    send_to_agent(1361, {0x40, 0x1E, 0, 1, 9});
    send_to_agent(1361, {});
    turn();
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].outcome, 0u);
    EXPECT_EQ(seen[1].outcome, 0x401E0001u);
    EXPECT_NE(seen[2].outcome, 0u); // no outcome is no success
}

TEST_F(Agent, DropsWhatNobodyWants) {
    unregister_for_notification(10277);
    send_to_agent(10277, {0, 0, 0, 0});
    send_to_agent(1391, {});
    send_to_agent(1361, {0, 0, 0, 0});
    turn();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].opcode, 1361u);
    EXPECT_LT(unregister_for_notification(1391), 0);
}

struct Notification {
    std::vector<oid> names; // of the varbinds, one behind the other
    std::vector<oid> trap;
    long value = 0;
};

int catch_notification(int, int, void *argument, void *mine) {
    auto pdu = static_cast<netsnmp_pdu *>(argument);
    auto caught = static_cast<Notification *>(mine);
    netsnmp_variable_list *trap = pdu->variables->next_variable;
    caught->names.assign(pdu->variables->name,
                         pdu->variables->name + pdu->variables->name_length);
    caught->trap.assign(trap->val.objid,
                        trap->val.objid + trap->val_len / sizeof(oid));
    if (trap->next_variable != nullptr)
        caught->value = *trap->next_variable->val.integer;
    return 0;
}

TEST_F(Agent, SendsTheNotificationThatTheHandlerReturns) {
    static Notification caught;
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_SEND_TRAP2,
                           catch_notification, &caught);
    notify_wanted = 1;
    send_to_agent(1361, {0, 0, 0, 0});
    turn();
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION,
                             SNMPD_CALLBACK_SEND_TRAP2, catch_notification,
                             &caught, 1);
    EXPECT_EQ(caught.names, (std::vector<oid>{1, 3, 6, 1, 2, 1, 1, 3, 0}));
    EXPECT_EQ(caught.trap, (std::vector<oid>{1, 3, 6, 1, 4, 1, 32473, 9, 1}));
    EXPECT_EQ(caught.value, -5);
}

TEST(Varbind, ChainsAndWidensIntegers) {
    const oid name[] = {1, 3, 9};
    int32_t minus = -1;
    uint32_t ticks = 0xFFFFFFFF;
    auto *first = build_varbind(nullptr, &minus, ASN_INTEGER, 4, name, 3);
    auto *second = build_varbind(first, &ticks, ASN_TIMETICKS, 4, name, 3);
    auto *third = build_varbind(second, "abc", ASN_OCTET_STR, 3, name, 3);
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(first->next_variable, second);
    EXPECT_EQ(second->next_variable, third);
    EXPECT_EQ(third->next_variable, nullptr);
    EXPECT_EQ(*first->val.integer, -1);
    EXPECT_EQ(static_cast<u_long>(*second->val.integer), 0xFFFFFFFFul);
    EXPECT_EQ(third->val_len, 3u);
    EXPECT_EQ(memcmp(third->val.string, "abc", 3), 0);
    snmp_free_varbind(first);
}

TEST(Varbind, AnEmptyStringIsOne) {
    const oid name[] = {1, 3, 9};
    auto *empty = build_varbind(nullptr, "", ASN_OCTET_STR, 0, name, 3);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->val_len, 0u);
    snmp_free_varbind(empty);
}

TEST(Request, NobodyAsksOutsideOfARequest) {
    EXPECT_STREQ(get_snmp_sessionid(0), "");
    EXPECT_STREQ(get_snmp_username(0), "");
    int32_t error = 0;
    EXPECT_EQ(snmp_get_ctx_vrf_for_current_req(&error), nullptr);
    EXPECT_NE(error, 0);
}

TEST(Enqueue, OnlyEnterpriseSpecific) {
    const oid name[] = {1, 3, 9};
    EXPECT_LT(enqueue_notification(3, name, 3, nullptr), 0);
}

} // namespace
