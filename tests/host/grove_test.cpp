// What a walk over the failed switches shows.
#include "platform/grove.h"

#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host/fabric/results.h"
#include "platform/netaddr.h"
#include "tests/host/support.h"

namespace {

using namespace xfhost;

struct Record {
    grove_status status;
    std::string text;
};

std::vector<Record> walk(uint32_t limit = 256) {
    const uint8_t local[8] = {};
    std::vector<Record> records;
    grove_status status = {};
    char text[300] = {};
    int result;
    while ((result = grove_status_next_get(&status, text, limit, local)) == 0 &&
           records.size() < 100)
        records.push_back({status, text});
    grove_status_clean(result);
    return records;
}

TEST(Grove, NoFileIsNoFailure) {
    unlink((support::directory() + "/state/fabric-results").c_str());
    EXPECT_TRUE(walk().empty());
}

TEST(Grove, ServesTheFailedOnesInOrder) {
    ASSERT_TRUE(store_results(
        {{"100000051e340102", false, false, "192.0.2.2", ""},
         {"ff00000000000001", false, true, "192.0.2.3", "It is down."},
         {"100000051e340104", true, true, "192.0.2.4", "No room."},
         {"100000051e340105", false, true, "2001:db8::5", "It is late."},
         {"100000051e340106", false, false, "192.0.2.6", ""}}));
    std::vector<Record> records = walk();
    ASSERT_EQ(records.size(), 3u);
    const uint8_t first[8] = {0xff, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_EQ(memcmp(records[0].status.wwn, first, 8), 0);
    EXPECT_EQ(records[0].status.is_local, 0);
    EXPECT_EQ(records[0].status.address.type, INET_ADDRESS_IPV4);
    const uint8_t address[4] = {192, 0, 2, 3};
    EXPECT_EQ(memcmp(records[0].status.address.octets, address, 4), 0);
    EXPECT_EQ(records[0].text, "It is down.");
    EXPECT_EQ(records[1].status.is_local, 1);
    EXPECT_EQ(records[1].text, "No room.");
    EXPECT_EQ(records[2].status.address.type, INET_ADDRESS_IPV6);
    EXPECT_EQ(records[2].text, "It is late.");
    EXPECT_EQ(walk().size(), 3u); // and again
}

TEST(Grove, CutsTheTextAtTheLimit) {
    ASSERT_TRUE(store_results({{"100000051e340102", false, true, "192.0.2.2",
                                std::string(300, 'x')}}));
    EXPECT_EQ(walk().at(0).text, std::string(256, 'x'));
    EXPECT_EQ(walk(5).at(0).text, "xxxxx");
}

TEST(Grove, ALaterSaveDoesNotDisturbAWalk) {
    ASSERT_TRUE(
        store_results({{"100000051e340102", false, true, "192.0.2.2", "one"},
                       {"100000051e340103", false, true, "192.0.2.3", "two"}}));
    const uint8_t local[8] = {};
    grove_status status = {};
    char text[257];
    ASSERT_EQ(grove_status_next_get(&status, text, 256, local), 0);
    ASSERT_TRUE(store_results({}));
    ASSERT_EQ(grove_status_next_get(&status, text, 256, local), 0);
    EXPECT_STREQ(text, "two");
    int result = grove_status_next_get(&status, text, 256, local);
    EXPECT_NE(result, 0);
    grove_status_clean(result);
    EXPECT_TRUE(walk().empty());
}

TEST(FabricResults, AreKeptWhereThereIsRoom) {
    ASSERT_TRUE(store_results({})); // the state directory is there
    std::string file = support::directory() + "/state/fabric-results";
    unlink(file.c_str());
    ASSERT_EQ(mkdir(file.c_str(), 0700), 0); // takes no file of that name
    ASSERT_TRUE(store_results(
        {{"100000051e340102", true, true, "192.0.2.2", "No room."}}));
    ASSERT_EQ(walk().size(), 1u);
    EXPECT_EQ(walk()[0].text, "No room.");
    ASSERT_EQ(rmdir(file.c_str()), 0);
    ASSERT_TRUE(store_results({}));
    EXPECT_TRUE(walk().empty()); // not those of before
}

std::vector<FabricResult> unanswered(size_t count) {
    std::vector<FabricResult> results;
    for (size_t i = 0; i < count; i++)
        results.push_back({"1000000000000" + std::to_string(100 + i), false,
                           true, "192.0.2.2", "No answer."});
    return results;
}

// Whenever the machine stops: all switches are there, and what had been told of
// them.
TEST(FabricResults, ACrashTakesNothingThatWasThere) {
    std::vector<FabricResult> results = unanswered(4);
    GrowingResults growing;
    ASSERT_TRUE(growing.begin(results));
    const std::string file = support::directory() + "/state/fabric-results";
    const size_t first = support::read_file(file).size();
    results[2].failed = false;
    results[2].text = "";
    ASSERT_TRUE(growing.add(results[2]));
    const std::string whole = support::read_file(file);
    for (size_t size = first; size <= whole.size(); size++) {
        support::write_file(file, whole.substr(0, size));
        std::vector<FabricResult> found;
        ASSERT_TRUE(load_results(found));
        ASSERT_EQ(found.size(), 4u) << size;
        for (size_t i = 0; i < found.size(); i++)
            EXPECT_EQ(found[i].failed, i != 2 || size < whole.size()) << size;
    }
    support::write_file(file, whole + std::string(60, '\0') + "\n");
    EXPECT_EQ(walk().size(), 3u);
}

TEST(FabricResults, EachAnswerCostsTheSame) {
    const std::vector<FabricResult> results = unanswered(100);
    GrowingResults growing;
    ASSERT_TRUE(growing.begin(results));
    const std::string file = support::directory() + "/state/fabric-results";
    const size_t line = support::read_file(file).size() / results.size();
    for (const FabricResult &each : results)
        ASSERT_TRUE(growing.add(each));
    EXPECT_EQ(support::read_file(file).size(), 2 * results.size() * line);
    EXPECT_EQ(walk().size(), results.size());
}

TEST(FabricResults, NoTextEndsItsLine) {
    std::string printed = print_results(
        {{"100000051e340102", false, true, "192.0.2.2", "a\nb\x1b[2J\xff"}});
    EXPECT_EQ(printed, "100000051e340102 remote failed 192.0.2.2 a?b?[2J?\n");
    EXPECT_TRUE(parse_results("\nnonsense\n10 local done 1 x\n"
                              "100000051e34010g local done 1 x\n")
                    .empty());
}

} // namespace
