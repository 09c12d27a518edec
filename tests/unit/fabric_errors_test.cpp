/* Rows of xfCopyErrorTable: how they are kept, read and deleted. */
#include "scripted_platform.h"
#include "set_driver.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

using namespace scripted;
using namespace std::string_literals;

namespace {

constexpr int32_t failed = 0x40490001;
constexpr int32_t no_entry = 0x40490002;

using Keys = std::vector<std::pair<int32_t, int32_t>>;

class FabricErrors : public ModuleTest {
  protected:
    void create_table() {
        const Quiet quiet;
        ASSERT_EQ(ORDSET_CREATED, ordset_create(&module_state.error_table, 1, 1,
                                                xfCopyErrorEntry_comp_func, 1));
    }
    static struct xfCopyErrorEntry make_error(int32_t copy, int32_t device) {
        struct xfCopyErrorEntry error_row = {};
        error_row.xfCopyIndex = copy;
        error_row.xfCopyErrorDeviceIndex = device;
        error_row.xfCopyErrorDeviceAddressType = 1;
        assign(error_row.deviceAddressText, "192.0.2.7");
        memcpy(error_row.xfCopyErrorDeviceWwn, "\x20\0\0\1\2\3\4\5", 8);
        assign(error_row.xfCopyErrorDescription,
               std::to_string(copy) + "/" + std::to_string(device));
        return error_row;
    }
    void add(int32_t copy, int32_t device) {
        add(make_error(copy, device));
    }
    void add(const struct xfCopyErrorEntry &error_row) {
        if (module_state.error_table == nullptr)
            create_table();
        const Quiet quiet;
        const struct xfCopyEntry copy = make_row(error_row.xfCopyIndex);
        ASSERT_EQ(0, addXfCopyErrorEntry(&copy, &error_row));
    }
    static Keys kept() {
        Keys keys;
        for (const struct xfCopyErrorEntry &error_row : stored_error_rows())
            keys.emplace_back(error_row.xfCopyIndex,
                              error_row.xfCopyErrorDeviceIndex);
        return keys;
    }
    static bool same(const struct xfCopyErrorEntry &a,
                     const struct xfCopyErrorEntry &b) {
        return memcmp(&a, &b, sizeof(a)) == 0;
    }
    int32_t remove(int32_t copy_index) {
        const struct xfCopyEntry copy = make_row(copy_index);
        p.forget();
        return deleteXfCopyErrorEntries(&copy);
    }
};

} // namespace

/* ---- Comparison ------------------------------------------------------------
 */

TEST_F(FabricErrors, comparisonOfANullPointerIsMinusOne) {
    const struct xfCopyErrorEntry row = make_error(1, 1);
    EXPECT_EQ(-1, xfCopyErrorEntry_comp_func(nullptr, &row));
    EXPECT_EQ(-1, xfCopyErrorEntry_comp_func(&row, nullptr));
    EXPECT_EQ(-1, xfCopyErrorEntry_comp_func(nullptr, nullptr));
}

TEST_F(FabricErrors, comparisonIsByCopyThenDeviceSignedAndReversed) {
    const int32_t values[] = {INT_MIN, -2, -1, 0, 1, 2, INT_MAX};
    for (const int32_t copy_a : values)
        for (const int32_t device_a : values)
            for (const int32_t copy_b : values)
                for (const int32_t device_b : values) {
                    const struct xfCopyErrorEntry a =
                        make_error(copy_a, device_a);
                    const struct xfCopyErrorEntry b =
                        make_error(copy_b, device_b);
                    const auto key_a = std::pair(copy_a, device_a);
                    const auto key_b = std::pair(copy_b, device_b);
                    const int expected = key_b > key_a   ? 1
                                         : key_b < key_a ? -1
                                                         : 0;
                    ASSERT_EQ(expected, xfCopyErrorEntry_comp_func(&a, &b));
                }
}

TEST_F(FabricErrors, comparisonLooksAtTheKeyAlone) {
    struct xfCopyErrorEntry other = make_error(1, 1);
    other.xfCopyErrorDeviceAddressType = 2;
    assign(other.xfCopyErrorDescription, "zzz");
    const struct xfCopyErrorEntry row = make_error(1, 1);
    EXPECT_EQ(0, xfCopyErrorEntry_comp_func(&row, &other));
}

TEST_F(FabricErrors, searchForAllMatchesEverything) {
    const struct xfCopyErrorEntry a = make_error(1, 1);
    const struct xfCopyErrorEntry b = make_error(2, 2);
    EXPECT_EQ(0, search_all_cmp(&a, &b));
    EXPECT_EQ(0, search_all_cmp(&b, &a));
    EXPECT_EQ(0, search_all_cmp(nullptr, &b));
    EXPECT_EQ(0, search_all_cmp(nullptr, nullptr));
}

/* ---- Add -------------------------------------------------------------------
 */

TEST_F(FabricErrors, addStoresACopy) {
    struct xfCopyErrorEntry row = make_error(5, 1);
    const struct xfCopyErrorEntry before = row;

    create_table();
    EXPECT_EQ(0, addXfCopyErrorEntry(nullptr, &row));
    EXPECT_EQ(Story{}, story());
    EXPECT_EQ(1u, p.mallocs);
    row.xfCopyErrorDeviceAddressType = 2;
    ASSERT_EQ(1u, stored_error_rows().size());
    EXPECT_TRUE(same(before, stored_error_rows()[0]));
}

TEST_F(FabricErrors, addWithoutMemory) {
    const struct xfCopyErrorEntry row = make_error(5, 1);

    create_table();
    p.fail_malloc_at = 1;
    EXPECT_EQ(5, addXfCopyErrorEntry(nullptr, &row));
    EXPECT_EQ(Story{error("addXfCopyErrorEntry : Mallocing for "
                          "xfCopyErrorEntryFailed\n")},
              story());
    EXPECT_EQ(Keys{}, kept());
}

TEST_F(FabricErrors, addOfADuplicateKeyIsRefusedAndItsCopyNotReleased) {
    struct xfCopyErrorEntry row = make_error(5, 1);
    const struct xfCopyErrorEntry first = row;

    add(row);
    assign(row.xfCopyErrorDescription, "another");
    p.forget();
    EXPECT_EQ(failed, addXfCopyErrorEntry(nullptr, &row));
    EXPECT_EQ(Story{error("addXfCopyErrorEntry : failed to add to index "
                          "object\n")},
              story());
    ASSERT_EQ(1u, stored_error_rows().size());
    EXPECT_TRUE(same(first, stored_error_rows()[0]));
    EXPECT_EQ(0u, p.count("free"));
    p.expected_leaks = 1;
}

TEST_F(FabricErrors, addThatTheContainerRefuses) {
    const struct xfCopyErrorEntry row = make_error(5, 1);

    create_table();
    p.fail_ordset_add_at = 1;
    EXPECT_EQ(failed, addXfCopyErrorEntry(nullptr, &row));
    EXPECT_EQ(Story{error("addXfCopyErrorEntry : failed to add to index "
                          "object\n")},
              story());
    EXPECT_EQ(Keys{}, kept());
    p.expected_leaks = 1;
}

/* ---- Lookup ----------------------------------------------------------------
 */

TEST_F(FabricErrors, exactLookup) {
    for (const auto &[copy, device] : Keys{{5, 1}, {5, 2}, {7, 1}})
        add(copy, device);
    p.forget();

    struct xfCopyErrorEntry buffer = {};
    buffer.xfCopyIndex = 5;
    buffer.xfCopyErrorDeviceIndex = 2;
    EXPECT_EQ(0, getXfCopyErrorEntry(&buffer));
    EXPECT_TRUE(same(make_error(5, 2), buffer));
    EXPECT_EQ(Story{info("getXfCopyErrorEntry : found entry in "
                         "xfCopyErrorTable\n")},
              story());
}

TEST_F(FabricErrors, exactLookupOfARowThatIsNotThere) {
    add(5, 1);
    p.forget();
    for (const auto &[copy, device] :
         Keys{{5, 2}, {5, 0}, {4, 1}, {6, 1}, {0, 0}, {-5, 1}}) {
        struct xfCopyErrorEntry buffer = make_error(copy, device);
        const struct xfCopyErrorEntry before = buffer;
        EXPECT_EQ(no_entry, getXfCopyErrorEntry(&buffer));
        EXPECT_TRUE(same(before, buffer));
    }
    EXPECT_EQ(Story{}, story());
}

TEST_F(FabricErrors, exactLookupInAnEmptyTable) {
    struct xfCopyErrorEntry buffer = make_error(5, 1);
    const Story expected = {
        info("getXfCopyErrorEntry : xfCopyErrorTable empty\n")};

    EXPECT_EQ(no_entry, getXfCopyErrorEntry(&buffer));
    EXPECT_EQ(expected, story());
    create_table();
    p.forget();
    EXPECT_EQ(no_entry, getXfCopyErrorEntry(&buffer));
    EXPECT_EQ(expected, story());
}

TEST_F(FabricErrors, nextLookupWalksTheWholeTable) {
    const Keys keys = {{1, 1}, {1, 2}, {1, 10}, {3, 1}, {INT_MAX, INT_MAX}};
    for (const auto &[copy, device] : Keys{keys.rbegin(), keys.rend()})
        add(copy, device);

    struct xfCopyErrorEntry buffer = {};
    for (const auto &[copy, device] : keys) {
        p.forget();
        ASSERT_EQ(0, getnextXfCopyErrorEntry(&buffer));
        EXPECT_TRUE(same(make_error(copy, device), buffer));
        EXPECT_EQ(Story{info("getnextXfCopyErrorEntry :found entry in "
                             "xfCopyErrorTable\n")},
                  story());
    }
    const struct xfCopyErrorEntry last = buffer;
    p.forget();
    EXPECT_EQ(no_entry, getnextXfCopyErrorEntry(&buffer));
    EXPECT_TRUE(same(last, buffer));
    EXPECT_EQ(Story{}, story());
}

TEST_F(FabricErrors, nextLookupFromBetweenRows) {
    add(3, 2);
    add(5, 1);
    for (const auto &[from, found] :
         std::initializer_list<std::pair<std::pair<int32_t, int32_t>,
                                         std::pair<int32_t, int32_t>>>{
             {{0, 0}, {3, 2}},
             {{3, 0}, {3, 2}},
             {{3, 1}, {3, 2}},
             {{3, 2}, {5, 1}},
             {{3, INT_MAX}, {5, 1}},
             {{4, 9}, {5, 1}},
             {{5, -1}, {5, 1}},
             {{-1, 7}, {3, 2}}}) {
        struct xfCopyErrorEntry buffer = {};
        buffer.xfCopyIndex = from.first;
        buffer.xfCopyErrorDeviceIndex = from.second;
        ASSERT_EQ(0, getnextXfCopyErrorEntry(&buffer));
        EXPECT_EQ(found.first, buffer.xfCopyIndex);
        EXPECT_EQ(found.second, buffer.xfCopyErrorDeviceIndex);
    }
}

TEST_F(FabricErrors, nextLookupInAnEmptyTableNamesTheCopyTable) {
    struct xfCopyErrorEntry buffer = {};
    const Story expected = {
        info("getnextXfCopyErrorEntry : xfCopyTable empty\n")};

    EXPECT_EQ(no_entry, getnextXfCopyErrorEntry(&buffer));
    EXPECT_EQ(expected, story());
    create_table();
    p.forget();
    EXPECT_EQ(no_entry, getnextXfCopyErrorEntry(&buffer));
    EXPECT_EQ(expected, story());
}

/* ---- Deletion --------------------------------------------------------------
 */

TEST_F(FabricErrors, deletionWithoutACopyRow) {
    add(5, 1);
    p.forget();
    EXPECT_EQ(0, deleteXfCopyErrorEntries(nullptr));
    EXPECT_EQ(
        Story{info("deleteXfCopyErrorEntries : entry provided is NULL\n")},
        story());
    EXPECT_EQ((Keys{{5, 1}}), kept());
}

TEST_F(FabricErrors, deletionInAnEmptyTable) {
    const Story expected = {info("deleteXfCopyErrorEntries : xfCopyErrorTable "
                                 "empty forcopy index: 5\n")};
    EXPECT_EQ(0, remove(5));
    EXPECT_EQ(expected, story());
    create_table();
    EXPECT_EQ(0, remove(5));
    EXPECT_EQ(expected, story());
}

TEST_F(FabricErrors, deletionRemovesExactlyTheRowsOfItsCopy) {
    for (const auto &[copy, device] :
         Keys{{4, 1}, {5, 1}, {5, 2}, {5, INT_MAX}, {6, 1}, {-5, 1}})
        add(copy, device);
    EXPECT_EQ(0, remove(5));
    EXPECT_EQ((Keys{{-5, 1}, {4, 1}, {6, 1}}), kept());
    EXPECT_EQ(Story{}, story());
    EXPECT_EQ(3u, p.count("free"));
    EXPECT_EQ(0u, p.count("ordset_destroy"));

    EXPECT_EQ(0, remove(7));
    EXPECT_EQ((Keys{{-5, 1}, {4, 1}, {6, 1}}), kept());
}

TEST_F(FabricErrors, deletionOfTheLastRowsDestroysTheContainer) {
    add(5, 1);
    add(5, 2);
    EXPECT_EQ(0, remove(5));
    EXPECT_EQ(nullptr, module_state.error_table);
    EXPECT_EQ(1u, p.count("ordset_destroy"));
    EXPECT_EQ(2u, p.count("free"));
}

TEST_F(FabricErrors, deletionOfACopyRowTakesItsErrorRowsAlong) {
    store(make_row(5));
    store(make_row(6));
    add(5, 1);
    add(6, 1);
    const struct xfCopyEntry copy = make_row(5);
    EXPECT_EQ(0, deleteXfCopyEntry(&copy));
    EXPECT_EQ((Keys{{6, 1}}), kept());
}

TEST_F(FabricErrors, rowsWithDeviceIndex0OrLowerSurviveTheDeletion) {
    for (const int32_t device : {INT_MIN, -1, 0, 1, 2})
        add(5, device);
    EXPECT_EQ(0, remove(5));
    EXPECT_EQ((Keys{{5, INT_MIN}, {5, -1}, {5, 0}}), kept());
    EXPECT_NE(nullptr, module_state.error_table);
}

TEST_F(FabricErrors, laterCollectionCreatesANewContainer) {
    add(5, 1);
    remove(5);
    p.grove_records = {{"12345678", 0, {1, {192, 0, 2, 9}}, "text"}};
    store(make_row(9));
    p.forget();
    const struct xfCopyEntry copy = make_row(9);
    EXPECT_EQ(0, setXfCopyEntry(&copy, 1));
    EXPECT_EQ(1u, p.count("ordset_create"));
    EXPECT_EQ((Keys{{9, 1}}), kept());
}

/* ---- First error row after a copy row --------------------------------------
 */

namespace {

class FirstError : public FabricErrors {
  protected:
    struct xfCopyErrorEntry buffer = {};

    int32_t look(int32_t copy_index) {
        buffer = {};
        buffer.xfCopyIndex = copy_index;
        p.forget();
        return getFirstErrorEntryForNextCopyEntry(&buffer);
    }
    static std::string found_copy(int32_t index) {
        return info("getFirstErrorEntryForNextCopyEntry : found copyIndex: " +
                    std::to_string(index) + "\n");
    }
};

} // namespace

TEST_F(FirstError, isTheFirstOfTheTableWhateverItsCopy) {
    store(make_row(3));
    store(make_row(8));
    add(5, 2);
    add(4, 7);
    for (const auto &[from, next] : Keys{{0, 3}, {1, 3}, {3, 8}, {7, 8}}) {
        EXPECT_EQ(0, look(from));
        EXPECT_TRUE(same(make_error(4, 7), buffer));
        EXPECT_EQ((Story{
                      found_copy(next),
                      info("getFirstErrorEntryForNextCopyEntry : found "
                           "entry\n"),
                  }),
                  story());
    }
}

TEST_F(FirstError, withoutAFurtherCopyRowThereIsNone) {
    add(4, 7);
    EXPECT_EQ(no_entry, look(0));
    EXPECT_EQ(Story{}, story());

    store(make_row(8));
    EXPECT_EQ(no_entry, look(8));
    EXPECT_EQ(no_entry, look(9));
    EXPECT_EQ(Story{}, story());
}

TEST_F(FirstError, emptyTableIsTracedForEachCopyRow) {
    store(make_row(3));
    store(make_row(8));
    EXPECT_EQ(no_entry, look(0));
    EXPECT_EQ((Story{
                  found_copy(3),
                  info("getFirstErrorEntryForNextCopyEntry : xfCopyErrorTable "
                       "empty forxfCopyIndex: 3\n "),
                  found_copy(8),
                  info("getFirstErrorEntryForNextCopyEntry : xfCopyErrorTable "
                       "empty forxfCopyIndex: 8\n "),
              }),
              story());
    EXPECT_EQ(no_entry, look(3));
    EXPECT_EQ((Story{
                  found_copy(8),
                  info("getFirstErrorEntryForNextCopyEntry : xfCopyErrorTable "
                       "empty forxfCopyIndex: 8\n "),
              }),
              story());
}

/* A container that has rows but does not give its first one. */
TEST_F(FirstError, firstRowThatIsNotFoundIsTracedAndTheNextCopyTried) {
    for (const int32_t index : {3, 8, 9})
        store(make_row(index));
    add(4, 7);
    p.fail_ordset_nth_at = 1;
    EXPECT_EQ(0, look(3));
    EXPECT_EQ((Story{
                  found_copy(8),
                  info("getFirstErrorEntryForNextCopyEntry : no entrys in "
                       "xfCopyErrorTablefor copyIndex: 8, continue to next\n"),
                  found_copy(9),
                  info("getFirstErrorEntryForNextCopyEntry : found entry\n"),
              }),
              story());
    EXPECT_TRUE(same(make_error(4, 7), buffer));
}

/* ---- Reads -----------------------------------------------------------------
 */

namespace {

class FabricErrorReads : public FabricErrors {
  protected:
    ReadResult get_row(int magic, std::vector<oid> instance) {
        p.forget();
        return get(magic, error_column(column_of(magic), instance));
    }
    ReadResult next_row(int magic, std::vector<oid> instance) {
        p.forget();
        return get_next(magic, error_column(column_of(magic), instance));
    }
    static oid column_of(int magic) {
        return static_cast<oid>(magic - 23);
    }
    static Story read_story(bool exact) {
        return {info("get_xfCopyErrorTable \n"),
                exact ? info("getXfCopyErrorEntry : found entry in "
                             "xfCopyErrorTable\n")
                      : info("getnextXfCopyErrorEntry :found entry in "
                             "xfCopyErrorTable\n")};
    }
};

const int magics[] = {25, 26, 27, 28};

} // namespace

TEST_F(FabricErrorReads, values) {
    add(5, 1);
    const ReadResult type = get_row(25, {5, 1});
    ASSERT_TRUE(type.found);
    EXPECT_EQ(4u, type.length);
    EXPECT_EQ(1, integer_of(type));
    EXPECT_EQ(read_story(true), story());

    const ReadResult wwn = get_row(27, {5, 1});
    EXPECT_EQ("\x20\0\0\1\2\3\4\5"s, wwn.octets);
    EXPECT_EQ(8u, wwn.length);
    EXPECT_EQ(read_story(true), story());

    const ReadResult description = get_row(28, {5, 1});
    EXPECT_EQ("5/1", description.octets);
    EXPECT_EQ(3u, description.length);
    EXPECT_EQ(read_story(true), story());
}

TEST_F(FabricErrorReads, addressOfIpv4) {
    add(5, 1);
    const ReadResult address = get_row(26, {5, 1});
    EXPECT_EQ("\xc0\x00\x02\x07"s, address.octets);
    EXPECT_EQ(4u, address.length);
    Story expected = read_story(true);
    expected.push_back(
        info("get_xfCopyErrorTable: GET FUNCTION: returning device ip addr: "
             "192.0.2.7 (0xc0000207), device ip addr type: 1\n"));
    EXPECT_EQ(expected, story());
}

TEST_F(FabricErrorReads, addressOfIpv6) {
    struct xfCopyErrorEntry row = make_error(5, 1);
    row.xfCopyErrorDeviceAddressType = 2;
    assign(row.deviceAddressText, "fe80::a1");
    add(row);
    const ReadResult address = next_row(26, {});
    EXPECT_EQ("\xfe\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\xa1"s, address.octets);
    EXPECT_EQ(16u, address.length);
    Story expected = read_story(false);
    expected.push_back(
        info("get_xfCopyErrorTable: GET FUNCTION: returning device ip addr: "
             "fe80::a1 (0xfe800000), device ip addr type: 2\n"));
    EXPECT_EQ(expected, story());
}

TEST_F(FabricErrorReads, addressWordShowsEightDigits) {
    struct xfCopyErrorEntry row = make_error(5, 1);
    assign(row.deviceAddressText, "1.2.3.4");
    add(row);
    get_row(26, {5, 1});
    EXPECT_EQ(
        info("get_xfCopyErrorTable: GET FUNCTION: returning device ip addr: "
             "1.2.3.4 (0x01020304), device ip addr type: 1\n"),
        story().back());
}

/* The type in the trace is the stored one, whatever the text is. */
TEST_F(FabricErrorReads, addressTraceShowsTheStoredType) {
    struct xfCopyErrorEntry row = make_error(5, 1);
    row.xfCopyErrorDeviceAddressType = 77;
    add(row);
    get_row(26, {5, 1});
    EXPECT_TRUE(story().back().ends_with("device ip addr type: 77\n"));
}

TEST_F(FabricErrorReads, addressThatCannotBeParsedIsNullWithLength0) {
    struct xfCopyErrorEntry row = make_error(5, 1);
    for (const char *const text : {"", "switch7", "192.0.2"}) {
        row.xfCopyErrorDeviceIndex++;
        assign(row.deviceAddressText, text);
        add(row);
        const std::vector<oid> instance = {
            5, static_cast<oid>(row.xfCopyErrorDeviceIndex)};
        const ReadResult address = get_row(26, instance);
        EXPECT_FALSE(address.found);
        EXPECT_EQ(0u, address.length);
        EXPECT_EQ(read_story(true), story());
        EXPECT_EQ(error_column(3, instance), address.name);
    }
}

TEST_F(FabricErrorReads, descriptionMayBeEmptyOr256Octets) {
    struct xfCopyErrorEntry row = make_error(5, 1);
    for (const size_t length : {0u, 1u, 255u, 256u}) {
        row.xfCopyErrorDeviceIndex++;
        assign(row.xfCopyErrorDescription, std::string(length, 'd'));
        add(row);
        const ReadResult description =
            get_row(28, {5, static_cast<oid>(row.xfCopyErrorDeviceIndex)});
        EXPECT_TRUE(description.found);
        EXPECT_EQ(std::string(length, 'd'), description.octets);
        EXPECT_EQ(length, description.length);
    }
}

TEST_F(FabricErrorReads, otherMagicNumbersHaveNoValue) {
    add(5, 1);
    for (const int magic : {24, 29, 4, 0, 255}) {
        struct variable variable = variable_of(25);
        oid name[MAX_OID_LEN] = {};
        const std::vector<oid> request = error_column(2, {5, 1});
        size_t length = request.size();
        size_t var_len = 3;
        WriteMethod *write = nullptr;
        memcpy(name, request.data(), length * sizeof(oid));
        variable.magic = static_cast<u_char>(magic);
        p.forget();
        EXPECT_EQ(nullptr, get_xfCopyErrorTable(&variable, name, &length, 1,
                                                &var_len, &write));
        Story expected = read_story(true);
        expected.push_back("snmp_set_detail(\"\")");
        EXPECT_EQ(expected, story());
    }
}

TEST_F(FabricErrorReads, noWriteMethodIsEverHandedOut) {
    add(5, 1);
    for (const int magic : magics) {
        EXPECT_EQ(nullptr, get_row(magic, {5, 1}).write);
        EXPECT_EQ(nullptr, get_row(magic, {6, 1}).write);
        EXPECT_EQ(nullptr, next_row(magic, {}).write);
    }
}

TEST_F(FabricErrorReads, readsAllocateNothing) {
    add(5, 1);
    for (const int magic : magics) {
        get_row(magic, {5, 1});
        EXPECT_EQ(0u, p.mallocs);
        next_row(magic, {});
        EXPECT_EQ(0u, p.mallocs);
    }
}

TEST_F(FabricErrorReads, rowThatIsNotThereIsNull) {
    const Story empty = {
        info("get_xfCopyErrorTable \n"),
        info("getXfCopyErrorEntry : xfCopyErrorTable empty\n")};
    const Story empty_next = {
        info("get_xfCopyErrorTable \n"),
        info("getnextXfCopyErrorEntry : xfCopyTable empty\n")};
    for (const int magic : magics) {
        EXPECT_FALSE(get_row(magic, {5, 1}).found);
        EXPECT_EQ(empty, story());
        EXPECT_FALSE(next_row(magic, {}).found);
        EXPECT_EQ(empty_next, story());
    }
    add(5, 1);
    for (const int magic : magics) {
        const ReadResult missing = get_row(magic, {5, 2});
        EXPECT_FALSE(missing.found);
        EXPECT_EQ(Story{info("get_xfCopyErrorTable \n")}, story());
        EXPECT_EQ(error_column(column_of(magic), {5, 2}), missing.name);
        EXPECT_FALSE(next_row(magic, {5, 1}).found);
        EXPECT_EQ(Story{info("get_xfCopyErrorTable \n")}, story());
    }
}

TEST_F(FabricErrorReads, valueDoesNotComeFromTheStoredRow) {
    add(5, 1);
    const ReadResult wwn = get_row(27, {5, 1});
    remove(5);
    EXPECT_EQ(0, memcmp(wwn.address, "\x20\0\0\1\2\3\4\5", 8));
}

/* -- GETNEXT -- */

TEST_F(FabricErrorReads, getnextOnABareColumnReturnsTheLowestRow) {
    for (const auto &[copy, device] : Keys{{7, 1}, {5, 3}, {5, 2}})
        add(copy, device);
    for (const int magic : magics) {
        const ReadResult first = next_row(magic, {});
        EXPECT_TRUE(first.found);
        EXPECT_EQ(error_column(column_of(magic), {5, 2}), first.name);
    }
}

TEST_F(FabricErrorReads, getnextOnOneIndexReturnsItsDevice1OrALaterCopy) {
    for (const auto &[copy, device] : Keys{{5, 1}, {5, 2}, {7, 3}})
        add(copy, device);
    EXPECT_EQ(error_column(2, {5, 1}), next_row(25, {5}).name);
    EXPECT_EQ(error_column(2, {7, 3}), next_row(25, {6}).name);
    EXPECT_EQ(error_column(2, {7, 3}), next_row(25, {7}).name);
    EXPECT_FALSE(next_row(25, {8}).found);
}

TEST_F(FabricErrorReads, getnextWalksEveryRow) {
    const Keys keys = {{1, 1}, {1, 2}, {3, 1}, {3, 9}, {INT_MAX, INT_MAX}};
    for (const auto &[copy, device] : keys)
        add(copy, device);
    std::vector<oid> name = error_column(5);
    for (const auto &[copy, device] : keys) {
        const ReadResult row = get_next(28, name);
        ASSERT_TRUE(row.found);
        EXPECT_EQ(
            error_column(5, {static_cast<oid>(copy), static_cast<oid>(device)}),
            row.name);
        EXPECT_EQ(std::to_string(copy) + "/" + std::to_string(device),
                  row.octets);
        name = row.name;
    }
    EXPECT_FALSE(get_next(28, name).found);
}

TEST_F(FabricErrorReads, getnextIgnoresFurtherSubIdentifiersAtAnyLength) {
    add(5, 1);
    add(5, 2);
    std::vector<oid> instance = {5, 1};
    for (int more = 0; more < 20; more++) {
        EXPECT_EQ(error_column(2, {5, 2}), next_row(25, instance).name);
        instance.push_back(9);
    }
}

TEST_F(FabricErrorReads, requestOutsideTheColumnHasNoIndexes) {
    add(5, 1);
    add(7, 1);
    const std::vector<oid> before_column = below_root({1, 1, 1, 1, 17, 9, 9});
    EXPECT_EQ(error_column(2, {5, 1}), get_next(25, before_column).name);
    EXPECT_EQ(error_column(2, {5, 1}), get_next(25, below_root({1})).name);
    EXPECT_EQ(error_column(3, {5, 1}),
              get_next(26, error_column(2, {7, 1})).name);
}

/* For GET too: indexes 0 and 0 are then looked up. */
TEST_F(FabricErrorReads, getOutsideTheColumnLooksUpTheRowOfIndexes0And0) {
    add(5, 1);
    EXPECT_FALSE(get(25, below_root({1, 1, 1, 1, 17, 5, 1})).found);
    EXPECT_FALSE(get(25, error_column(2)).found);
    add(0, 0);
    const ReadResult row = get(25, below_root({1, 1, 1, 1, 17, 5, 1}));
    EXPECT_TRUE(row.found);
    EXPECT_EQ(error_column(2, {0, 0}), row.name);
    EXPECT_TRUE(get(25, error_column(2)).found);
}

/* -- GET -- */

TEST_F(FabricErrorReads, getWithOneIndexLooksUpDevice0) {
    add(5, 1);
    EXPECT_FALSE(get_row(25, {5}).found);
    add(5, 0);
    const ReadResult row = get_row(28, {5});
    EXPECT_TRUE(row.found);
    EXPECT_EQ("5/0", row.octets);
    EXPECT_EQ(error_column(5, {5, 0}), row.name);
}

TEST_F(FabricErrorReads, getWithAtMost11SubIdentifiersBeyondTheColumn) {
    add(5, 1);
    std::vector<oid> instance = {5, 1};
    for (int more = 0; more <= 20; more++) {
        const bool allowed = instance.size() <= 11;
        for (const int magic : magics) {
            const ReadResult row = get_row(magic, instance);
            EXPECT_EQ(allowed, row.found) << instance.size();
            EXPECT_EQ(error_column(column_of(magic),
                                   allowed ? std::vector<oid>{5, 1} : instance),
                      row.name);
            if (!allowed) {
                EXPECT_EQ(Story{info("get_xfCopyErrorTable \n")}, story());
            }
        }
        instance.push_back(static_cast<oid>(more));
    }
}

TEST_F(FabricErrorReads, instanceIsRewritten) {
    add(5, 1);
    EXPECT_EQ(error_column(4, {5, 1}), get_row(27, {5, 1, 3, 4}).name);
    EXPECT_EQ(error_column(4, {5, 1}), next_row(27, {4, 9, 9, 9}).name);
}

/* What lies behind the request's length is not part of it. */
TEST_F(FabricErrorReads, onlySubIdentifiersWithinTheLengthCount) {
    add(5, 1);
    add(5, 2);
    add(7, 2);
    for (const std::vector<oid> &instance :
         {std::vector<oid>{}, std::vector<oid>{5}}) {
        struct variable variable = variable_of(25);
        const std::vector<oid> request = error_column(2, instance);
        oid name[MAX_OID_LEN];
        size_t length = request.size();
        size_t var_len = 0;
        WriteMethod *write = nullptr;

        std::fill(std::begin(name), std::end(name), oid{6});
        std::copy(request.begin(), request.end(), name);
        EXPECT_NE(nullptr, get_xfCopyErrorTable(&variable, name, &length, 0,
                                                &var_len, &write));
        EXPECT_EQ(error_column(2, {5, 1}),
                  std::vector<oid>(name, name + length));
    }
}

/* Sub-identifiers have 32 bits: what is above is not there on the target. */
TEST_F(FabricErrorReads, subIdentifiersAreNarrowedBeforeTheLookup) {
    constexpr oid high = static_cast<oid>(uint64_t{1} << 32);
    add(5, 1);
    const ReadResult row = get_row(28, {high + 5, high + 1});
    EXPECT_TRUE(row.found);
    EXPECT_EQ(error_column(5, {5, 1}), row.name);
    EXPECT_EQ(error_column(5, {5, 1}), next_row(28, {0xfffffffe, 7}).name)
        << "negative, and so before every row";
}
