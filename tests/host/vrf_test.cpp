#include "platform/vrfmgr.h"

#include <gtest/gtest.h>

#include "host/base/vrf.h"

using namespace xfhost;

namespace {

TEST(Vrf, ManagementIsTheOwnNetworkIfThereIsNoOther) {
    EXPECT_EQ(vrfmgr_get_context_id("management"), own_network_id);
}

TEST(Vrf, WhatIsNotThereHasNoId) {
    EXPECT_EQ(vrfmgr_get_context_id("no-such-vrf"), 0);
    EXPECT_EQ(vrfmgr_get_context_id(""), 0);
    EXPECT_EQ(vrfmgr_get_context_id(nullptr), 0);
}

TEST(Vrf, AnOrdinaryInterfaceIsNone) {
    EXPECT_EQ(vrfmgr_get_context_id("lo"), 0);
}

TEST(Vrf, NamesAreWords) {
    for (const char *name : {"a", "red", "_x", "9", "a.b:c-d_e"})
        EXPECT_TRUE(valid_vrf_name(name)) << name;
    for (const char *name :
         {"", ".", "..", "-a", "a/b", "../x", "a b", "a\n", "a;b", "\xe4"})
        EXPECT_FALSE(valid_vrf_name(name)) << name;
    EXPECT_TRUE(valid_vrf_name(std::string(32, 'x')));
    EXPECT_FALSE(valid_vrf_name(std::string(33, 'x')));
    EXPECT_FALSE(valid_vrf_name(std::string_view("a\0b", 3)));
}

TEST(Vrf, NamesLeadNowhereElse) {
    EXPECT_EQ(vrfmgr_get_context_id("../../proc/self/ns/net"), 0);
    EXPECT_EQ(vrfmgr_get_context_id("/proc/self/ns/net"), 0);
}

TEST(Vrf, TheOwnNetworkNeedsNoEntering) {
    Vrf vrf;
    ASSERT_TRUE(find_vrf(own_network_id, vrf));
    EXPECT_EQ(vrf.kind, Vrf::Kind::own_network);
    EXPECT_EQ(enter_vrf(vrf), 0);
}

TEST(Vrf, IdsThatNobodyHas) {
    Vrf vrf;
    for (int32_t id : {-1, 0, 2000000, 1 << 30, INT32_MAX})
        EXPECT_FALSE(find_vrf(id, vrf)) << id;
}

} // namespace
