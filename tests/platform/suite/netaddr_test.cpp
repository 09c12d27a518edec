#include "platform/netaddr.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

std::string text_of(const struct ip_addr &address) {
    char text[64] = {};
    EXPECT_EQ(ip_addr_to_str(&address, text, sizeof text), 0);
    return text;
}

TEST(Netaddr, TextAndBack) {
    for (const char *text :
         {"192.0.2.1", "0.0.0.0", "255.255.255.255", "2001:db8::1", "::"}) {
        struct ip_addr address;
        ASSERT_EQ(ip_addr_from_str(text, &address), 0) << text;
        EXPECT_EQ(text_of(address), text);
    }
}

TEST(Netaddr, OctetsAreInNetworkOrderAndTheRestIsZero) {
    struct ip_addr address;
    memset(&address, 0xff, sizeof address);
    ASSERT_EQ(ip_addr_from_str("192.0.2.1", &address), 0);
    const uint8_t four[16] = {192, 0, 2, 1};
    EXPECT_EQ(address.type, INET_ADDRESS_IPV4);
    EXPECT_EQ(memcmp(address.octets, four, 16), 0);
    ASSERT_EQ(ip_addr_from_str("2001:db8::f", &address), 0);
    const uint8_t six[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0,
                             0,    0,    0,    0,    0, 0, 0, 15};
    EXPECT_EQ(address.type, INET_ADDRESS_IPV6);
    EXPECT_EQ(memcmp(address.octets, six, 16), 0);
}

TEST(Netaddr, ABadTextChangesNothing) {
    for (const char *text :
         {"", "192.0.2", "host", "1:2", "192.0.2.256", "192.0.2.1.5"}) {
        struct ip_addr address = {99, {1, 2, 3}};
        EXPECT_NE(ip_addr_from_str(text, &address), 0) << text;
        EXPECT_EQ(address.type, 99);
        EXPECT_EQ(address.octets[2], 3);
    }
}

TEST(Netaddr, AnUnknownTypeHasNoText) {
    struct ip_addr address = {INET_ADDRESS_UNKNOWN, {}};
    char text[64];
    EXPECT_NE(ip_addr_to_str(&address, text, sizeof text), 0);
    address.type = 99;
    EXPECT_NE(ip_addr_to_str(&address, text, sizeof text), 0);
}

TEST(Netaddr, ATextThatDoesNotFitIsAnError) {
    struct ip_addr address;
    ASSERT_EQ(ip_addr_from_str("192.168.100.200", &address), 0);
    char text[18];
    memset(text, '#', sizeof text);
    EXPECT_NE(ip_addr_to_str(&address, text, 15), 0);
    EXPECT_EQ(text[15], '#');
    EXPECT_EQ(ip_addr_to_str(&address, text, 16), 0);
    EXPECT_STREQ(text, "192.168.100.200");
    EXPECT_EQ(text[16], '#');
}

TEST(Netaddr, TheTextMayLieWhereTheAddressDoes) {
    union {
        struct ip_addr address;
        char text[64];
    } both;
    ASSERT_EQ(ip_addr_from_str("2001:db8:1:2:3:4:5:6", &both.address), 0);
    ASSERT_EQ(ip_addr_to_str(&both.address, both.text, sizeof both.text), 0);
    EXPECT_STREQ(both.text, "2001:db8:1:2:3:4:5:6");
}

TEST(Netaddr, TheManagementPortHasAddresses) {
    uint32_t index = 99;
    if (if_index_mgmt_sup_port_init(&index, 0, 0) != 0) {
        EXPECT_EQ(index, 0u);
        GTEST_SKIP() << "this machine has no management port";
    }
    struct if_inet_addrs *list = nullptr;
    ASSERT_EQ(ipconf_get_if_inet_addrs(ipcbus_response_q, index, &list), 0);
    ASSERT_NE(list, nullptr);
    for (uint32_t i = 0; i < list->count; i++)
        EXPECT_NE(text_of(list->addrs[i]), "");
    free(list);
}

TEST(Netaddr, InterfaceZeroHasNoAddresses) {
    struct if_inet_addrs *list = nullptr;
    EXPECT_NE(ipconf_get_if_inet_addrs(ipcbus_response_q, 0, &list), 0);
}

} // namespace
