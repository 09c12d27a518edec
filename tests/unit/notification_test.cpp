/* The completion notification, varbind by varbind. */
#include "scripted_platform.h"

#include <cstring>

using namespace scripted;
using namespace std::string_literals;

namespace {

/* Columns of the varbinds in their order, and what a failed add is traced as.
 */
constexpr size_t varbind_count = 7;
constexpr oid columns[varbind_count] = {15, 16, 6, 10, 11, 12, 13};
const char *const failure_texts[varbind_count] = {
    "build_notification Could not add xfcopy_serveraddresstype_oid\n",
    "build_notification Could not add xfcopy_serveraddressrev1_oid\n",
    "build_notification Could not add xfcopy_filename_oid\n",
    "build_notification Could not add xfcopy_state_oid\n",
    "build_notification Could not add xfcopy_timestarted_oid\n",
    "build_notification Could not add xfcopy_timecompleted_oid\n",
    "build_notification Could not add xfcopy_failcause_oid\n",
};

const std::string ipv4_octets = "\xc0\x00\x02\x07"s + std::string(12, '\0');

/* A 32-bit object in this machine's order. */
std::string word(uint32_t value) {
    std::string octets(4, '\0');
    memcpy(octets.data(), &value, 4);
    return octets;
}

std::string dotted(const std::vector<oid> &name) {
    std::string text;
    for (const oid sub : name)
        text += (text.empty() ? "" : ".") + std::to_string(sub);
    return text;
}

std::vector<oid> below(std::initializer_list<oid> tail) {
    std::vector<oid> name(config_copy_mib_variables_oid,
                          config_copy_mib_variables_oid + 9);
    name.insert(name.end(), tail);
    return name;
}

class BuildNotification : public ModuleTest {
  protected:
    struct xfCopyEntry row = make_row(5, XF_ROW_ACTIVE);
    oid name[MAX_OID_LEN] = {};
    size_t name_len = 77;
    netsnmp_variable_list *head = nullptr;
    int adds = 0;
    std::set<int> failing; /* numbers of the adds that fail, from 1 */

    BuildNotification() {
        row.xfCopyServerAddressType = 1;
        assign(row.xfCopyServerAddressRev1, "192.0.2.7");
        assign(row.xfCopyFileName, "/a/x.cfg");
        row.xfCopyState = XF_STATE_FAILED;
        row.xfCopyTimeStarted = {1'699'999'010, 120'000};
        row.xfCopyTimeCompleted = {1'699'999'025, 999'999};
        row.xfCopyFailCause = 3;
        p.hooks["build_varbind"] = [this] {
            if (failing.contains(++adds))
                p.fail_varbind_at = 1;
        };
    }
    void build() {
        adds = 0;
        name_len = 77;
        p.forget();
        head = build_notification(&row, name, &name_len);
    }
    std::string value(size_t number) const {
        return p.calls_of("build_varbind").at(number).octets;
    }
    /* The adds of one notification; `previous` by number of the add, 0: none.
     */
    static Story adds_with(const std::vector<int> &previous, oid index,
                           size_t first_varbind = 1) {
        const int types[varbind_count] = {2, 4, 4, 2, 67, 67, 2};
        const size_t lengths[varbind_count] = {4, 16, 8, 4, 4, 4, 4};
        Story found;
        for (size_t i = 0; i < varbind_count; i++) {
            const int made = previous.at(i);
            found.push_back(
                "build_varbind(" +
                (made == 0
                     ? std::string("NULL")
                     : "varbind" + std::to_string(static_cast<size_t>(made) -
                                                  1 + first_varbind)) +
                ", " + std::to_string(types[i]) + ", " +
                std::to_string(lengths[i]) + ", " +
                dotted(below({1, 1, 1, 1, columns[i], index})) + ")");
        }
        return found;
    }
};

const std::string sending = info(
    "build_notification: Sending xfCopyCompletion notification : "
    "xfCopyServerAddressRev1 = 192.0.2.7, xfCopyFileName= "
    "/a/x.cfg,xfCopyState=4, xfCopyTimeStarted=1012, xfCopyTimeCompleted = "
    "2599, xfCopyFailCause=3, xfCopyServerAddressType = 1\n");

} // namespace

TEST_F(BuildNotification, sevenVarbindsInOrderEachBehindTheLast) {
    build();
    Story expected = adds_with({0, 1, 2, 3, 4, 5, 6}, 5);
    expected.push_back(sending);
    EXPECT_EQ(expected, story());
    ASSERT_EQ(7u, p.varbinds.size());
    EXPECT_EQ(p.varbinds[0], head);
    EXPECT_EQ(7u, p.varbinds_of(head).size());
}

TEST_F(BuildNotification, valuesOfTheVarbinds) {
    build();
    EXPECT_EQ(word(1), value(0));
    EXPECT_EQ(ipv4_octets, value(1));
    EXPECT_EQ("/a/x.cfg", value(2));
    EXPECT_EQ(word(4), value(3));
    EXPECT_EQ(word(1012), value(4));
    EXPECT_EQ(word(2599), value(5));
    EXPECT_EQ(word(3), value(6));
}

TEST_F(BuildNotification, notificationOidEndsInTheIndex) {
    build();
    EXPECT_EQ(13u, name_len);
    EXPECT_EQ(below({2, 1, 2, 5}), std::vector<oid>(name, name + name_len));
}

TEST_F(BuildNotification, indexGoesIntoEveryTemplateEachTime) {
    size_t first = 1;
    for (const int32_t index : {5, 6, 1, INT32_MAX, 5}) {
        row.xfCopyIndex = index;
        build();
        Story expected =
            adds_with({0, 1, 2, 3, 4, 5, 6}, static_cast<oid>(index), first);
        expected.push_back(sending);
        EXPECT_EQ(expected, story());
        EXPECT_EQ(below({2, 1, 2, static_cast<oid>(index)}),
                  std::vector<oid>(name, name + name_len));
        first += varbind_count;
    }
}

TEST_F(BuildNotification, addressIsAlways16Octets) {
    assign(row.xfCopyServerAddressRev1, "2001:db8::a1");
    build();
    EXPECT_EQ("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\xa1"s, value(1));

    /* Nothing of the longer address stays behind the shorter one. */
    assign(row.xfCopyServerAddressRev1, "192.0.2.7");
    build();
    EXPECT_EQ(ipv4_octets, value(1));
}

TEST_F(BuildNotification, addressThatIsNoneIs16OctetsToo) {
    build();
    for (const char *const text : {"", "server", "192.0.2"}) {
        assign(row.xfCopyServerAddressRev1, text);
        build();
        EXPECT_EQ(std::string(16, '\0'), value(1)) << "not that of another row";
    }
}

TEST_F(BuildNotification, addressIsConvertedOnceBeforeTheFirstVarbind) {
    build();
    EXPECT_EQ(1u, p.count("ip_addr_from_str"));
    for (const Event &event : p.journal) {
        if (event.function == "ip_addr_from_str")
            break;
        EXPECT_NE("build_varbind", event.function);
    }
    EXPECT_EQ("ip_addr_from_str(\"192.0.2.7\")",
              p.calls_of("ip_addr_from_str").at(0).text);
}

TEST_F(BuildNotification, fileNameIsWithoutItsNul) {
    for (const size_t length : {0u, 1u, 128u, 255u}) {
        const std::string file(length, 'n');
        assign(row.xfCopyFileName, file);
        build();
        EXPECT_EQ(file, value(2));
    }
}

TEST_F(BuildNotification, timesAreUptimesIn32Bits) {
    row.xfCopyTimeStarted = {1'699'998'999, 0};
    row.xfCopyTimeCompleted = {1'699'998'999, 500'000};
    build();
    EXPECT_EQ(word(0xffffff9c), value(4)) << "100 before the agent's start";
    EXPECT_EQ(word(0xffffffce), value(5));
    EXPECT_NE(std::string::npos,
              story().back().find(
                  "xfCopyTimeStarted=-100, xfCopyTimeCompleted = -50,"));
}

TEST_F(BuildNotification, negativeIntegersStay32Bits) {
    row.xfCopyServerAddressType = -1;
    row.xfCopyFailCause = -2;
    build();
    EXPECT_EQ(word(0xffffffff), value(0));
    EXPECT_EQ(word(0xfffffffe), value(6));
}

/* ---- Varbinds that cannot be added -----------------------------------------
 */

TEST_F(BuildNotification, addThatFailsIsTracedAndStartsAFreshChain) {
    for (size_t lost = 0; lost < varbind_count; lost++) {
        SCOPED_TRACE(lost + 1);
        const size_t already = p.varbinds.size();
        std::vector<int> previous;
        int made = 0;
        for (size_t i = 0; i < varbind_count; i++) {
            previous.push_back(i == 0 || i == lost + 1 ? 0 : made);
            made += i == lost ? 0 : 1;
        }
        failing = {static_cast<int>(lost) + 1};
        build();

        Story expected = adds_with(previous, 5, already + 1);
        expected.insert(expected.begin() + static_cast<long>(lost) + 1,
                        error(failure_texts[lost]));
        expected.push_back(sending);
        EXPECT_EQ(expected, story());

        ASSERT_EQ(already + 6, p.varbinds.size());
        EXPECT_EQ(p.varbinds[already], head) << "the first one that was added";
        EXPECT_EQ(lost == 0 ? 6u : lost, p.varbinds_of(head).size())
            << "what comes behind the gap is not linked";
        EXPECT_EQ(13u, name_len);
    }
}

TEST_F(BuildNotification, headIsTheFirstOfSeveralChains) {
    failing = {1, 2, 5};
    build();
    ASSERT_EQ(4u, p.varbinds.size());
    EXPECT_EQ(p.varbinds[0], head);
    EXPECT_EQ(2u, p.varbinds_of(head).size());
    EXPECT_EQ(below({1, 1, 1, 1, 6, 5}), p.varbinds_of(head).at(0).name);
}

TEST_F(BuildNotification, withoutAnyVarbindThereIsNoHead) {
    failing = {1, 2, 3, 4, 5, 6, 7};
    build();
    EXPECT_EQ(nullptr, head);
    Story expected = adds_with({0, 0, 0, 0, 0, 0, 0}, 5);
    for (size_t i = 0; i < varbind_count; i++)
        expected.insert(expected.begin() + 2 * static_cast<long>(i) + 1,
                        error(failure_texts[i]));
    expected.push_back(sending);
    EXPECT_EQ(expected, story());
    EXPECT_EQ(13u, name_len);
    EXPECT_EQ(below({2, 1, 2, 5}), std::vector<oid>(name, name + name_len));
}

TEST_F(BuildNotification, rowAndTableAreLeftAlone) {
    const struct xfCopyEntry before = row;
    store(row);
    build();
    EXPECT_EQ("", difference(before, row));
    EXPECT_EQ("", difference(before, *stored(5)));
}
