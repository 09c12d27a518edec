// What this library adds to what tests/platform shows of every one.
#include "platform/netaddr.h"

#include <cstdlib>

#include <net/if.h>

#include <gtest/gtest.h>

#include "platform/hwinfo.h"

namespace {

TEST(Address, AnAddressWithMoreBehindItIsNone) {
    for (const char *text : {"192.0.2.1 ", "::1%lo"}) {
        struct ip_addr address = {99, {1, 2, 3}};
        EXPECT_NE(ip_addr_from_str(text, &address), 0) << text;
        EXPECT_EQ(address.type, 99);
        EXPECT_EQ(address.octets[2], 3);
    }
}

// The test's settings name the loopback interface.
TEST(ManagementPort, IsTheConfiguredInterface) {
    uint32_t index = 99;
    ASSERT_EQ(if_index_mgmt_sup_port_init(&index, 0, 0), 0);
    EXPECT_EQ(index, if_nametoindex("lo"));
    struct if_inet_addrs *list = nullptr;
    ASSERT_EQ(ipconf_get_if_inet_addrs(nullptr, index, &list), 0);
    ASSERT_GE(list->count, 1u);
    EXPECT_EQ(list->addrs[0].type, INET_ADDRESS_IPV4);
    EXPECT_EQ(list->addrs[0].octets[0], 127);
    free(list);
}

TEST(Switch, IsWhatTheConfigurationSays) {
    int32_t type = -1;
    EXPECT_EQ(hwinfo_get_chassis_type(&type), 0);
    EXPECT_EQ(type, 40);
    EXPECT_NE(pod_get_type(0), POD_TYPE_STORAGE);
}

} // namespace
