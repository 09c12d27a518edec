// What the switch is, its VRFs, its time, and the walk over its fabric.
#include "platform/cycles.h"
#include "platform/grove.h"
#include "platform/hwinfo.h"
#include "platform/vrfmgr.h"

#include <cstring>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "suite.h"

namespace {

TEST(Cycles, CountTime) {
    const uint64_t earlier = timer_get_cycles();
    const double begun = suite::now();
    usleep(50000);
    const uint64_t later = timer_get_cycles();
    const double milliseconds = (suite::now() - begun) * 1000;
    EXPECT_GT(later, earlier);
    EXPECT_GE(timer_diff_cycle_in_msec(later, earlier), 45u);
    EXPECT_LE(static_cast<double>(timer_diff_cycle_in_msec(later, earlier)),
              milliseconds + 5);
    EXPECT_EQ(timer_diff_cycle_in_msec(later, later), 0u);
}

TEST(Hwinfo, TheChassisTypeIsSetOnlyIfItIsKnown) {
    int32_t type = -77;
    if (hwinfo_get_chassis_type(&type) != 0) {
        EXPECT_EQ(type, -77);
        GTEST_SKIP() << "the chassis type is not known";
    }
    int32_t again = -77;
    EXPECT_EQ(hwinfo_get_chassis_type(&again), 0);
    EXPECT_EQ(again, type);
}

TEST(Hwinfo, ThePartitionTypeStays) {
    EXPECT_EQ(pod_get_type(0), pod_get_type(0));
}

TEST(Vrfmgr, AnUnknownNameHasNoId) {
    EXPECT_EQ(vrfmgr_get_context_id("no-such-vrf"), 0);
    EXPECT_EQ(vrfmgr_get_context_id(""), 0);
}

TEST(Vrfmgr, AKnownNameHasAnIdThatStays) {
    const std::string &name = suite::options().vrf;
    if (name.empty())
        GTEST_SKIP() << "no --vrf was named";
    const int32_t id = vrfmgr_get_context_id(name.c_str());
    EXPECT_GT(id, 0);
    EXPECT_EQ(vrfmgr_get_context_id(name.c_str()), id);
}

constexpr size_t most_switches = 10000;

// The texts of one walk, each of them at most `limit` long.
std::vector<std::string> walk(uint32_t limit) {
    const uint8_t local[8] = {};
    std::vector<std::string> texts;
    struct grove_status status = {};
    int result = 0;
    while (texts.size() < most_switches) {
        std::vector<char> text(limit + 2, '#');
        result = grove_status_next_get(&status, text.data(), limit, local);
        if (result != 0)
            break;
        EXPECT_NE(memchr(text.data(), 0, limit + 1), nullptr);
        EXPECT_EQ(text[limit + 1], '#');
        if (status.is_local != 1) {
            EXPECT_TRUE(status.address.type == INET_ADDRESS_IPV4 ||
                        status.address.type == INET_ADDRESS_IPV6);
        }
        text[limit] = 0;
        texts.emplace_back(text.data());
    }
    grove_status_clean(result);
    return texts;
}

TEST(Grove, AWalkEndsAndCanBeRepeated) {
    const std::vector<std::string> texts = walk(255);
    EXPECT_LT(texts.size(), most_switches);
    EXPECT_EQ(walk(255), texts);
}

TEST(Grove, TextsAreCutAtTheLimit) {
    const std::vector<std::string> whole = walk(255), cut = walk(3);
    ASSERT_EQ(whole.size(), cut.size());
    if (whole.empty())
        GTEST_SKIP() << "no save in the fabric has failed";
    for (size_t i = 0; i < whole.size(); i++)
        EXPECT_EQ(cut[i], whole[i].substr(0, 3));
}

TEST(Grove, AWalkCanBeGivenUpAndBegunAgain) {
    const std::vector<std::string> texts = walk(255);
    if (texts.empty())
        GTEST_SKIP() << "no save in the fabric has failed";
    const uint8_t local[8] = {};
    struct grove_status status = {};
    char text[256];
    grove_status_clean(grove_status_next_get(&status, text, 255, local));
    EXPECT_EQ(walk(255), texts);
}

TEST(Grove, ShowsEverySwitchThatFailed) {
    if (suite::options().failed_switches < 0)
        GTEST_SKIP() << "no --failed-switches was named";
    EXPECT_EQ(walk(255).size(),
              static_cast<size_t>(suite::options().failed_switches));
}

} // namespace
