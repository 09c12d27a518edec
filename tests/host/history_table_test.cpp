#include "host/agent/history_table.h"

#include <iterator>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <gtest/gtest.h>

#include "history_root.h"

namespace {

oid newest_name[] = {HISTORY_ROOT, 1, 1, 0};
oid table_name[] = {HISTORY_ROOT, 1, 2};
constexpr const char *context = "red";
u_long value = 7;

// Something of somebody else's.
template <size_t Size> bool take(oid (&name)[Size]) {
    return netsnmp_register_read_only_ulong_instance_context(
               "somebody", name, Size, &value, nullptr, context) ==
           MIB_REGISTERED_OK;
}

template <size_t Size> bool leave(oid (&name)[Size]) {
    return unregister_mib_context(name, Size, DEFAULT_MIB_PRIORITY, 0, 0,
                                  context) == MIB_UNREGISTERED_OK;
}

template <size_t Size> bool is_free(oid (&name)[Size]) {
    return take(name) && leave(name);
}

TEST(HistoryTable, IsOfferedAgainWhereItCouldNotBeRegistered) {
    setenv("MIBS", "", 1);
    snmp_disable_log();
    ASSERT_EQ(init_agent("history_table_test"), 0);
    ASSERT_TRUE(xfhost::history_table_start(10, [](auto &) {}));
    ASSERT_TRUE(take(table_name));
    xfhost::history_table_offer(context);
    EXPECT_TRUE(is_free(newest_name)); // both objects or none
    ASSERT_TRUE(leave(table_name));
    xfhost::history_table_offer(context);
    EXPECT_FALSE(is_free(table_name));
    EXPECT_FALSE(is_free(newest_name));
}

} // namespace
