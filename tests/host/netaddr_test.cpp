#include "platform/netaddr.h"

#include <cstdlib>
#include <cstring>

#include <net/if.h>

#include <gtest/gtest.h>

#include "platform/hwinfo.h"

namespace {

TEST(Address, TextAndBack) {
    for (const char *text : {"192.0.2.1", "0.0.0.0", "2001:db8::1", "::"}) {
        struct ip_addr address;
        char again[64];
        ASSERT_EQ(ip_addr_from_str(text, &address), 0) << text;
        ASSERT_EQ(ip_addr_to_str(&address, again, sizeof again), 0);
        EXPECT_STREQ(again, text);
    }
}

TEST(Address, UnusedOctetsAreZero) {
    struct ip_addr address;
    memset(&address, 0xff, sizeof address);
    ASSERT_EQ(ip_addr_from_str("192.0.2.1", &address), 0);
    const uint8_t expected[16] = {192, 0, 2, 1};
    EXPECT_EQ(address.type, INET_ADDRESS_IPV4);
    EXPECT_EQ(memcmp(address.octets, expected, 16), 0);
}

TEST(Address, ABadTextChangesNothing) {
    for (const char *text : {"", "192.0.2", "192.0.2.1 ", "host", "1:2",
                             "192.0.2.256", "::1%lo"}) {
        struct ip_addr address = {99, {1, 2, 3}};
        EXPECT_NE(ip_addr_from_str(text, &address), 0) << text;
        EXPECT_EQ(address.type, 99);
        EXPECT_EQ(address.octets[2], 3);
    }
}

TEST(Address, UnknownTypeOrNoRoom) {
    struct ip_addr address = {0, {}};
    char text[16];
    EXPECT_NE(ip_addr_to_str(&address, text, sizeof text), 0);
    address.type = 3;
    EXPECT_NE(ip_addr_to_str(&address, text, sizeof text), 0);
    ASSERT_EQ(ip_addr_from_str("192.168.100.200", &address), 0);
    EXPECT_EQ(ip_addr_to_str(&address, text, 16), 0);
    EXPECT_NE(ip_addr_to_str(&address, text, 15), 0);
}

TEST(Address, TextMayLieWhereTheAddressDoes) {
    union {
        struct ip_addr address;
        char text[64];
    } both;
    ASSERT_EQ(ip_addr_from_str("2001:db8:1:2:3:4:5:6", &both.address), 0);
    ASSERT_EQ(ip_addr_to_str(&both.address, both.text, sizeof both.text), 0);
    EXPECT_STREQ(both.text, "2001:db8:1:2:3:4:5:6");
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

TEST(ManagementPort, NoInterfaceHasNoAddresses) {
    struct if_inet_addrs *list = nullptr;
    EXPECT_NE(ipconf_get_if_inet_addrs(nullptr, 0, &list), 0);
    EXPECT_EQ(list, nullptr);
}

TEST(Switch, IsWhatTheConfigurationSays) {
    int32_t type = -1;
    EXPECT_EQ(hwinfo_get_chassis_type(&type), 0);
    EXPECT_EQ(type, 40);
    EXPECT_NE(pod_get_type(0), POD_TYPE_STORAGE);
}

} // namespace
