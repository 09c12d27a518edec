/* Reads of xfCopyTable: one table of expected instances, GET and GETNEXT. */
#include "set_driver.h"

#include <cstring>

using namespace scripted;

namespace {

std::string four_octets(int32_t value) {
    return {reinterpret_cast<const char *>(&value), sizeof(value)};
}

/* An instance in the order of a walk. */
struct Instance {
    int magic;
    int32_t index;
    u_char type;
    std::string octets;
};

const std::string ipv6_octets("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x05", 16);

/* Rows 3, 7 and 9; 7 has an IPv6 address, 9 none and was never started. */
const std::vector<Instance> instances = {
    {4, 3, ASN_INTEGER, four_octets(2)},
    {4, 7, ASN_INTEGER, four_octets(5)},
    {4, 9, ASN_INTEGER, four_octets(1)},
    {5, 3, ASN_INTEGER, four_octets(4)},
    {5, 7, ASN_INTEGER, four_octets(3)},
    {5, 9, ASN_INTEGER, four_octets(1)},
    {6, 3, ASN_INTEGER, four_octets(1)},
    {6, 7, ASN_INTEGER, four_octets(-4)},
    {6, 9, ASN_INTEGER, four_octets(3)},
    {7, 3, ASN_IPADDRESS, std::string("\xC0\x00\x02\x21", 4)},
    {8, 3, ASN_OCTET_STR, "file-3"},
    {8, 7, ASN_OCTET_STR, std::string(128, 'f')},
    {8, 9, ASN_OCTET_STR, ""},
    {9, 3, ASN_OCTET_STR, "user-3"},
    {9, 7, ASN_OCTET_STR, std::string(41, 'u')},
    {9, 9, ASN_OCTET_STR, ""},
    {10, 3, ASN_OCTET_STR, ""},
    {10, 7, ASN_OCTET_STR, ""},
    {10, 9, ASN_OCTET_STR, ""},
    {11, 3, ASN_INTEGER, four_octets(1)},
    {11, 7, ASN_INTEGER, four_octets(2)},
    {11, 9, ASN_INTEGER, four_octets(2)},
    {12, 3, ASN_INTEGER, four_octets(4)},
    {12, 7, ASN_INTEGER, four_octets(2)},
    {12, 9, ASN_INTEGER, four_octets(1)},
    {13, 3, ASN_TIMETICKS, four_octets(100 * 60 + 25)},
    {13, 7, ASN_TIMETICKS, four_octets(0)},
    {13, 9, ASN_TIMETICKS, four_octets(0)},
    {14, 3, ASN_TIMETICKS, four_octets(100 * 90)},
    {14, 7, ASN_TIMETICKS, four_octets(0)},
    {14, 9, ASN_TIMETICKS, four_octets(0)},
    {15, 3, ASN_INTEGER, four_octets(3)},
    {15, 7, ASN_INTEGER, four_octets(9)},
    {15, 9, ASN_INTEGER, four_octets(1)},
    {16, 3, ASN_INTEGER, four_octets(1)},
    {16, 7, ASN_INTEGER, four_octets(6)},
    {16, 9, ASN_INTEGER, four_octets(3)},
    {17, 3, ASN_INTEGER, four_octets(1)},
    {17, 7, ASN_INTEGER, four_octets(2)},
    {17, 9, ASN_INTEGER, four_octets(0)},
    {18, 3, ASN_OCTET_STR, std::string("\xC0\x00\x02\x21", 4)},
    {18, 7, ASN_OCTET_STR, ipv6_octets},
    {19, 3, ASN_OCTET_STR, "vrf-3"},
    {19, 7, ASN_OCTET_STR, std::string(32, 'v')},
    {19, 9, ASN_OCTET_STR, ""},
};

std::vector<oid> name_of(int magic, std::vector<oid> instance = {}) {
    return copy_column(static_cast<oid>(magic) - 2, std::move(instance));
}

std::vector<oid> name_of(const Instance &instance) {
    return name_of(instance.magic, {static_cast<oid>(instance.index)});
}

class ReadHandlerTest : public ModuleTest {
  protected:
    void store_rows() {
        struct xfCopyEntry row = make_row(3, XF_ROW_ACTIVE);
        row.xfCopyProtocol = 2;
        row.xfCopySourceFileType = 4;
        row.xfCopyDestFileType = 1;
        row.xfCopyServerAddress = 0xDEADBEEF; /* never read back */
        assign(row.xfCopyFileName, "file-3");
        assign(row.xfCopyUserName, "user-3");
        assign(row.xfCopyUserPassword, "password-3");
        row.xfCopyNotificationOnCompletion = 1;
        row.xfCopyState = 4;
        row.xfCopyTimeStarted = {1'699'999'060, 250'000};
        row.xfCopyTimeCompleted = {1'699'999'090, 9'999};
        row.xfCopyFailCause = 3;
        row.xfCopyServerAddressType = 1;
        assign(row.xfCopyServerAddressRev1, "192.0.2.33");
        assign(row.xfCopyVRFName, "vrf-3");
        store(row);

        row = make_row(7, XF_ROW_DESTROY);
        row.xfCopyProtocol = 5;
        row.xfCopySourceFileType = 3;
        row.xfCopyDestFileType = -4;
        memset(row.xfCopyFileName, 'f', 128);
        memset(row.xfCopyUserName, 'u', 41);
        memset(row.xfCopyUserPassword, 'p', 41);
        row.xfCopyState = 2;
        /* Before the agent was started. */
        row.xfCopyTimeStarted = {1'699'998'999, 0};
        row.xfCopyTimeCompleted = {1'699'990'000, 1};
        row.xfCopyFailCause = 9;
        row.xfCopyServerAddressType = 2;
        assign(row.xfCopyServerAddressRev1, "2001:db8::5");
        memset(row.xfCopyVRFName, 'v', 32);
        store(row);

        store(make_row(9));
    }
};

} // namespace

/* ---- The table of instances ------------------------------------------------
 */

TEST_F(ReadHandlerTest, getFindsEveryInstance) {
    store_rows();
    for (const Instance &expected : instances) {
        const ReadResult result = get(expected.magic, name_of(expected));
        EXPECT_TRUE(result.found) << expected.magic << "." << expected.index;
        EXPECT_EQ(name_of(expected), result.name);
        EXPECT_EQ(expected.octets, result.octets)
            << expected.magic << "." << expected.index;
        EXPECT_EQ(expected.type, variable_of(expected.magic).type);
    }
}

TEST_F(ReadHandlerTest, getNextWalksEachColumnInOrder) {
    store_rows();
    for (int magic = 4; magic <= 19; magic++) {
        std::vector<oid> name = name_of(magic);
        for (const Instance &expected : instances) {
            if (expected.magic != magic)
                continue;
            const ReadResult result = get_next(magic, name);
            EXPECT_TRUE(result.found) << magic << "." << expected.index;
            EXPECT_EQ(name_of(expected), result.name);
            EXPECT_EQ(expected.octets, result.octets)
                << magic << "." << expected.index;
            name = result.name;
        }
        EXPECT_FALSE(get_next(magic, name).found) << magic;
    }
}

TEST_F(ReadHandlerTest, readsAllocateNothingAndSayNothing) {
    store_rows();
    is_snmp_debug_enabled = 1;
    p.forget();
    for (int magic = 4; magic <= 19; magic++)
        for (const oid index : {0, 3, 4, 7, 9, 10}) {
            get(magic, name_of(magic, {index}));
            get_next(magic, name_of(magic, {index}));
        }
    EXPECT_EQ(Story{}, p.events(static_cast<unsigned>(Kind::Memory)));
    EXPECT_EQ(Story{}, story());
}

/* The value must stay where it is until the next call. */
TEST_F(ReadHandlerTest, valuesAreServedFromTheModulesOwnStorage) {
    store_rows();
    const auto *const state = reinterpret_cast<const char *>(&module_state);
    for (int magic = 4; magic <= 19; magic++) {
        const ReadResult first = get(magic, name_of(magic, {3}));
        const ReadResult again = get(magic, name_of(magic, {3}));
        EXPECT_EQ(first.address, again.address) << magic;
        if (magic == 10)
            continue; /* a constant */
        EXPECT_GE(first.address, state) << magic;
        EXPECT_LT(first.address, state + sizeof(module_state)) << magic;
    }
}

TEST_F(ReadHandlerTest, aReadDoesNotChangeTheRow) {
    store_rows();
    const struct xfCopyEntry before = *stored(3);
    for (int magic = 4; magic <= 19; magic++)
        get(magic, name_of(magic, {3}));
    EXPECT_EQ("", difference(before, *stored(3)));
}

TEST_F(ReadHandlerTest, integersHaveFourOctetsNegativesIncluded) {
    store_rows();
    EXPECT_EQ(4u, get(6, name_of(6, {7})).length);
    EXPECT_EQ(-4, integer_of(get(6, name_of(6, {7}))));
}

/* ---- Which row -------------------------------------------------------------
 */

TEST_F(ReadHandlerTest, getNextOnTheBareColumnIsTheLowestRow) {
    store_rows();
    EXPECT_EQ(name_of(4, {3}), get_next(4, name_of(4)).name);
}

TEST_F(ReadHandlerTest, getNextGoesOnBehindTheIndexAndIgnoresWhatFollows) {
    store_rows();
    EXPECT_EQ(name_of(4, {9}), get_next(4, name_of(4, {7})).name);
    EXPECT_EQ(name_of(4, {9}), get_next(4, name_of(4, {7, 1})).name);
    EXPECT_EQ(name_of(4, {9}), get_next(4, name_of(4, {7, 9, 9, 9})).name);
    EXPECT_EQ(name_of(4, {7}), get_next(4, name_of(4, {4})).name);
    EXPECT_FALSE(get_next(4, name_of(4, {9})).found);
    EXPECT_FALSE(get_next(4, name_of(4, {9, 1})).found);
}

TEST_F(ReadHandlerTest, getNextFromElsewhereStartsAtTheLowestRow) {
    store_rows();
    EXPECT_EQ(name_of(5, {3}), get_next(5, below_root({})).name);
    EXPECT_EQ(name_of(5, {3}), get_next(5, name_of(4, {9})).name);
    EXPECT_EQ(name_of(5, {3}), get_next(5, {1, 3}).name);
}

TEST_F(ReadHandlerTest, getWantsExactlyOneSubIdentifierBehindTheColumn) {
    store_rows();
    EXPECT_FALSE(get(4, name_of(4, {7, 0})).found);
    EXPECT_FALSE(get(4, name_of(4)).found);
    EXPECT_FALSE(get(4, below_root({})).found);
    EXPECT_FALSE(get(4, name_of(4, {8})).found);
    EXPECT_FALSE(get(4, name_of(4, {0})).found);
}

/* The agent has compared the prefix: it is not looked at again. */
TEST_F(ReadHandlerTest, getTakesTheLastSubIdentifierAndRewritesTheRest) {
    store_rows();
    const ReadResult result = get(4, name_of(6, {7}));
    EXPECT_TRUE(result.found);
    EXPECT_EQ(name_of(4, {7}), result.name);
    EXPECT_EQ(four_octets(5), result.octets);
}

TEST_F(ReadHandlerTest, subIdentifiersAreThirtyTwoBitSignedNumbers) {
    constexpr oid seven = static_cast<oid>(0x100000007ull);

    store_rows();
    EXPECT_TRUE(get(4, name_of(4, {seven})).found);
    EXPECT_EQ(name_of(4, {7}), get(4, name_of(4, {seven})).name);
    /* Above the highest index that there can be is below the lowest. */
    EXPECT_EQ(name_of(4, {3}), get_next(4, name_of(4, {0xFFFFFFFFul})).name);
    EXPECT_FALSE(get_next(4, name_of(4, {0x7FFFFFFFul})).found);
}

TEST_F(ReadHandlerTest, indexBeyondAllOthersIsAnInstanceOfItsOwn) {
    store(make_row(INT32_MAX));
    EXPECT_EQ(name_of(4, {0x7FFFFFFFul}), get_next(4, name_of(4)).name);
}

TEST_F(ReadHandlerTest, aLookupThatFailsLeavesTheRequestAsItWas) {
    store_rows();
    for (const bool exact : {true, false})
        for (const std::vector<oid> &name :
             {name_of(4, {77}), name_of(4, {9, 9})}) {
            if (!exact && name.size() == 15 && name.back() == 9)
                continue;
            const ReadResult result = read_instance(4, name, exact);
            EXPECT_FALSE(result.found);
            EXPECT_EQ(name, result.name);
        }
}

TEST_F(ReadHandlerTest, emptyTableHasNoInstance) {
    for (int magic = 4; magic <= 19; magic++) {
        EXPECT_FALSE(get(magic, name_of(magic, {1})).found);
        EXPECT_FALSE(get_next(magic, name_of(magic)).found);
    }
    EXPECT_EQ(Story{}, story());
}

/* ---- Columns with a way of their own ---------------------------------------
 */

TEST_F(ReadHandlerTest, passwordIsNeverReadBack) {
    store_rows();
    for (const oid index : {3, 7, 9}) {
        const ReadResult result = get(10, name_of(10, {index}));
        EXPECT_TRUE(result.found);
        EXPECT_EQ(0u, result.length);
    }
}

TEST_F(ReadHandlerTest, ipv6AddressHasNoValueInColumnFiveAndSixteenOctets) {
    store_rows();
    for (const ReadResult &result :
         {get(7, name_of(7, {7})), get_next(7, name_of(7, {3}))}) {
        EXPECT_FALSE(result.found);
        EXPECT_EQ(0u, result.length);
    }
    const ReadResult result = get(18, name_of(18, {7}));
    EXPECT_TRUE(result.found);
    EXPECT_EQ(ipv6_octets, result.octets);
}

/* The handler does not look for a later row that has one. */
TEST_F(ReadHandlerTest, noValueInColumnFiveEndsTheWalkOfTheColumn) {
    store_rows();
    struct xfCopyEntry row = make_row(8);
    assign(row.xfCopyServerAddressRev1, "192.0.2.1");
    store(row);
    EXPECT_FALSE(get_next(7, name_of(7, {3})).found);
    EXPECT_TRUE(get_next(7, name_of(7, {7})).found);
}

TEST_F(ReadHandlerTest, addressThatIsNoneHasNoValue) {
    struct xfCopyEntry row = make_row(1);
    for (const char *const text : {"", "no address", "1.2.3", "::zz"}) {
        assign(row.xfCopyServerAddressRev1, text);
        store(row);
        for (const int magic : {7, 18}) {
            const ReadResult result = get(magic, name_of(magic, {1}));
            EXPECT_FALSE(result.found) << text;
            EXPECT_EQ(0u, result.length);
        }
        const Quiet quiet;
        deleteXfCopyEntry(&row);
    }
}

/* The text decides, not the type beside it. */
TEST_F(ReadHandlerTest, addressFollowsItsTextWhateverTypeIsStored) {
    struct xfCopyEntry row = make_row(1);
    row.xfCopyServerAddressType = 2;
    assign(row.xfCopyServerAddressRev1, "192.0.2.1");
    store(row);
    EXPECT_EQ(4u, get(7, name_of(7, {1})).length);
    EXPECT_EQ(4u, get(18, name_of(18, {1})).length);
}

TEST_F(ReadHandlerTest, rowThatWasNeverStartedReadsZeroTimes) {
    store(make_row(1));
    EXPECT_EQ(0, integer_of(get(13, name_of(13, {1}))));
    EXPECT_EQ(0, integer_of(get(14, name_of(14, {1}))));
    EXPECT_EQ(0u, p.count("netsnmp_timeval_uptime"));
}

TEST_F(ReadHandlerTest, timesAreUpTimeAndNeverNegative) {
    const struct {
        struct xf_timestamp stamp;
        int32_t ticks;
    } cases[] = {
        {{1'699'999'000, 0}, 0},
        {{1'699'999'000, 10'000}, 1},
        {{1'699'999'001, 0}, 100},
        {{1'699'998'999, 990'000}, 0}, /* just before the start */
        {{0, 1}, 1'798'791'840},       /* set; and wraps, as 32 bits do */
        {{1'699'999'000 + 21'474'836, 470'000}, 2'147'483'647},
        {{1'699'999'000 + 21'474'836, 480'000}, 0}, /* 32 bits and a sign */
    };
    for (const auto &each : cases) {
        struct xfCopyEntry row = make_row(1);
        row.xfCopyTimeStarted = each.stamp;
        row.xfCopyTimeCompleted = each.stamp;
        store(row);
        for (const int magic : {13, 14}) {
            const ReadResult result = get(magic, name_of(magic, {1}));
            EXPECT_EQ(each.ticks, integer_of(result));
        }
        const Quiet quiet;
        deleteXfCopyEntry(&row);
    }
    EXPECT_EQ(14u, p.count("netsnmp_timeval_uptime"));
}

TEST_F(ReadHandlerTest, theTwoTimesAreNotMixedUp) {
    struct xfCopyEntry row = make_row(1);
    row.xfCopyTimeStarted = {1'699'999'001, 0};
    store(row);
    EXPECT_EQ(100, integer_of(get(13, name_of(13, {1}))));
    EXPECT_EQ(0, integer_of(get(14, name_of(14, {1}))));
}

TEST_F(ReadHandlerTest, unknownMagicHasNoValueAndNoDetail) {
    store_rows();
    for (const int magic : {0, 3, 20, 24, 29, 99}) {
        p.forget();
        const ReadResult result = get(magic, below_root({3}));
        EXPECT_FALSE(result.found) << magic;
        EXPECT_EQ(Story{"snmp_set_detail(\"\")"}, story());
        EXPECT_EQ(nullptr, result.write);
    }
    p.forget();
    EXPECT_FALSE(get(99, below_root({4})).found); /* no row: no detail */
    EXPECT_EQ(Story{}, story());
}

/* ---- Write methods ---------------------------------------------------------
 */

TEST_F(ReadHandlerTest, everyWritableColumnHandsOutItsWriteMethod) {
    const std::map<int, WriteMethod *> expected = {
        {4, set_xfCopyProtocol},
        {5, set_xfCopySourceFileType},
        {6, set_xfCopyDestFileType},
        {7, set_xfCopyServerAddress},
        {8, set_xfCopyFileName},
        {9, set_xfCopyUserName},
        {10, set_xfCopyUserPassword},
        {11, set_xfCopyNotificationOnCompletion},
        {16, set_xfCopyEntryRowStatus},
        {17, set_xfCopyServerAddressType},
        {18, set_xfCopyServerAddressRev1},
        {19, set_xfCopyVRFName}};

    for (const bool with_rows : {false, true}) {
        if (with_rows)
            store_rows();
        /* Row 5 is not there: a SET may be about to make it. */
        for (const oid index : {3, 5})
            for (int magic = 4; magic <= 19; magic++) {
                const auto method = expected.find(magic);
                EXPECT_EQ(method == expected.end() ? nullptr : method->second,
                          get(magic, name_of(magic, {index})).write)
                    << magic;
                EXPECT_EQ(method == expected.end() ? nullptr : method->second,
                          get_next(magic, name_of(magic, {index})).write)
                    << magic;
            }
    }
}

TEST_F(ReadHandlerTest, readOnlyColumnsLeaveTheAgentsWriteMethod) {
    for (const int magic : {12, 13, 14, 15, 0, 3, 20, 25, 28, -1, 255}) {
        WriteMethod *write = set_xfCopyVRFName;
        set_xfCopyTable_setmethods(magic, &write);
        EXPECT_EQ(set_xfCopyVRFName, write) << magic;
    }
}

/* ---- Index parser ----------------------------------------------------------
 */

TEST_F(ReadHandlerTest, exactParserFailsOnAnotherLengthWithIndexZero) {
    const std::vector<oid> column = name_of(4);
    const auto parse = [&](std::vector<oid> name, int exact, int32_t *index) {
        *index = 4711;
        return parse_copy_index(column.data(), column.size(), name.data(),
                                name.size(), exact, index);
    };
    int32_t index = 0;
    EXPECT_EQ(0, parse(name_of(4), 1, &index));
    EXPECT_EQ(0, index);
    EXPECT_EQ(0, parse(name_of(4, {7}), 1, &index));
    EXPECT_EQ(7, index);
    EXPECT_EQ(XF_ERR_FAILED, parse(name_of(4, {7, 8}), 1, &index));
    EXPECT_EQ(0, index);
    EXPECT_EQ(0, parse(name_of(4, {7, 8}), 0, &index));
    EXPECT_EQ(7, index);
    EXPECT_EQ(0, parse(name_of(5, {7}), 0, &index));
    EXPECT_EQ(0, index);
}
