// The read handlers themselves, as an agent would never call them: names of any
// length and content, exact and next, every magic number, over tables of any
// content. Octets: rows, then reads.
#include <cstring>
#include <memory>

#include "tests/fuzz/check.h"
#include "tests/fuzz/platform.h"
#include "tests/fuzz/rows.h"

using namespace fuzz;

namespace {

constexpr size_t most_rows = 12, most_reads = 40;

template <size_t Size> void fill(char (&field)[Size], std::string octets) {
    octets = without_password(octets).substr(0, Size - 1);
    memcpy(field, octets.data(), octets.size());
}

int32_t index_of(Input &input) {
    const unsigned which = input.octet();
    if (which >= 1 && which <= 250)
        return static_cast<int32_t>(which);
    return static_cast<int32_t>(input.word() >> 1 | 1);
}

void add_row(Input &input) {
    xfCopyEntry *row = createXfCopyEntry();
    FUZZ_CHECK(row != nullptr, "no row");
    row->xfCopyIndex = index_of(input);
    row->xfCopyEntryRowStatus = XF_ROW_NOT_READY;
    fill(row->xfCopyFileName, input.octets(input.octet()));
    fill(row->xfCopyUserName, input.octets(input.choice(48)));
    fill(row->xfCopyUserPassword, "");
    memcpy(row->xfCopyUserPassword, password_mark.data(), password_mark.size());
    fill(row->xfCopyVRFName, input.octets(input.choice(40)));
    // Whatever text: the handlers must not rely on its being an address.
    constexpr const char *addresses[] = {"", "192.0.2.1", "2001:db8::1"};
    const unsigned kind = input.choice(4);
    fill(row->xfCopyServerAddressRev1,
         kind < 3 ? addresses[kind] : input.octets(input.choice(70)));
    row->xfCopyTimeStarted = {static_cast<int32_t>(input.word()),
                              static_cast<int32_t>(input.octet())};
    row->xfCopyTimeCompleted = {static_cast<int32_t>(input.octet()), 0};
    if (addXfCopyEntry(row) != 0)
        xfCopyEntry_free(row);
}

void add_error_row(Input &input) {
    xfCopyErrorEntry record;
    memset(&record, 0, sizeof record);
    record.xfCopyIndex = index_of(input);
    record.xfCopyErrorDeviceIndex = index_of(input);
    if (!row_exists(record.xfCopyIndex))
        return;
    if (module_state.error_table == nullptr)
        ordset_create(&module_state.error_table, 1, 1,
                      xfCopyErrorEntry_comp_func, 1);
    fill(record.deviceAddressText, input.octets(input.octet()));
    fill(record.xfCopyErrorDescription, input.octets(input.octet()));
    addXfCopyErrorEntry(nullptr, &record);
}

// A read: what it is given, and what came out.
struct Read {
    struct variable vp;
    oid name[MAX_OID_LEN];
    size_t length;
    int exact;
    std::string value;
    bool found;
    WriteMethod *write_method;
    FindVarMethod *handler;
};

void run(Read &read) {
    // A block of its own, so that a sanitizer sees what is beyond it.
    auto name = std::make_unique<oid[]>(MAX_OID_LEN);
    memcpy(name.get(), read.name, sizeof read.name);
    size_t value_length = 0;
    read.write_method = nullptr;
    const u_char *value =
        read.handler(&read.vp, name.get(), &read.length, read.exact,
                     &value_length, &read.write_method);
    memcpy(read.name, name.get(), sizeof read.name);
    read.found = value != nullptr;
    if (value != nullptr)
        read.value.assign(reinterpret_cast<const char *>(value), value_length);
}

bool of_copy_table(const Read &read) {
    return read.handler == get_xfCopyTable;
}

// Sub-identifiers beyond the column of a name that begins with it, all of them
// below 2^31: such a name has its place among those of the rows.
bool ordered_name(const Read &read) {
    if (read.length < read.vp.namelen ||
        memcmp(read.name, read.vp.name, read.vp.namelen * sizeof(oid)) != 0)
        return false;
    for (size_t i = read.vp.namelen; i < read.length; i++)
        if (read.name[i] > INT32_MAX)
            return false;
    return true;
}

bool begins_with_column(const Read &read) {
    return read.length > read.vp.namelen &&
           memcmp(read.name, read.vp.name, read.vp.namelen * sizeof(oid)) == 0;
}

// A name that is not below the column stands before its first row.
void check_first(const Read &before, const Read &after) {
    FUZZ_CHECK(before.exact == 0 || of_copy_table(before),
               "an error row for a name of another column");
    if (before.exact != 0)
        return;
    const void *first =
        ordset_find_nth_obj(of_copy_table(before) ? module_state.copy_table
                                                  : module_state.error_table,
                            1);
    // Both records begin with their index.
    FUZZ_CHECK(first != nullptr &&
                   *static_cast<const int32_t *>(first) ==
                       static_cast<int32_t>(after.name[after.vp.namelen]),
               "next of another column is not the first row");
}

void check_found(const Read &before, const Read &after) {
    const size_t indexes = of_copy_table(after) ? 1 : 2;
    search_for_password(after.value, "a value");
    FUZZ_CHECK(after.length == after.vp.namelen + indexes,
               "a name of %zu for a column of %d", after.length,
               after.vp.namelen);
    FUZZ_CHECK(
        memcmp(after.name, after.vp.name, after.vp.namelen * sizeof(oid)) == 0,
        "a name outside of its column");
    const auto index = static_cast<int32_t>(after.name[after.vp.namelen]);
    FUZZ_CHECK(row_exists(index), "a value of no row %d", index);
    FUZZ_CHECK(after.value.size() <= 256, "a value of %zu octets",
               after.value.size());
    if (!begins_with_column(before))
        check_first(before, after);
    if (after.exact == 0 && ordered_name(before))
        FUZZ_CHECK(snmp_oid_compare(after.name, after.length, before.name,
                                    before.length) > 0,
                   "next is not behind");
    if (after.exact != 0 && of_copy_table(after))
        FUZZ_CHECK(static_cast<uint32_t>(index) ==
                       static_cast<uint32_t>(before.name[before.length - 1]),
                   "a GET of another row");
}

void check(const Read &before, const Read &after) {
    if (after.found)
        check_found(before, after);
    const bool writable = of_copy_table(after) &&
                          ((after.vp.magic >= 4 && after.vp.magic <= 11) ||
                           (after.vp.magic >= 16 && after.vp.magic <= 19));
    FUZZ_CHECK((after.write_method != nullptr) == writable,
               "magic %d: %s write method", after.vp.magic,
               writable ? "no" : "a");
}

void read(Input &input) {
    Read first = {};
    const unsigned which = input.choice(24);
    const variable7 &column = config_copy_mib_variables[which % 20];
    first.handler = column.findVar;
    first.vp.magic = which < 20 ? column.magic : input.octet();
    first.vp.type = static_cast<char>(column.type);
    first.vp.namelen = XF_COLUMN_OID_LENGTH;
    memcpy(first.vp.name, config_copy_mib_variables_oid, 9 * sizeof(oid));
    memcpy(first.vp.name + 9, column.name, 5 * sizeof(oid));
    memcpy(first.name, first.vp.name, first.vp.namelen * sizeof(oid));
    first.exact = static_cast<int>(input.choice(2));
    // The length first: it may be less than the column's, or much more.
    first.length = input.choice(8) == 0 ? input.choice(MAX_OID_LEN + 1)
                                        : 14 + input.choice(4);
    for (size_t i = first.vp.namelen; i < first.length; i++)
        first.name[i] = input.choice(4) == 0 ? input.word() : input.octet();
    if (input.choice(8) == 0) // not this column's
        first.name[input.choice(14)] += input.octet();
    if (input.choice(8) == 0) // wider than 32 bits
        first.name[input.choice(MAX_OID_LEN)] += oid{input.octet()} << 32;

    // What is behind the name must not matter.
    Read second = first;
    for (size_t i = first.length; i < MAX_OID_LEN; i++) {
        first.name[i] = 1;
        second.name[i] = 0xfffffffe;
    }
    const Read before = first;
    run(first);
    run(second);
    check(before, first);
    FUZZ_CHECK(
        first.found == second.found && first.value == second.value &&
            first.length == second.length &&
            memcmp(first.name, second.name, first.length * sizeof(oid)) == 0,
        "octets behind the name were read");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    start_platform();
    snmp_disable_log();
    start_module();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size) {
    Input input(octets, size);
    begin_input(input);
    for (unsigned left = input.choice(most_rows + 1); left > 0; left--)
        add_row(input);
    for (unsigned left = input.choice(most_rows + 1); left > 0; left--)
        add_error_row(input);
    for (size_t reads = 0; !input.empty() && reads < most_reads; reads++)
        read(input);
    end_input();
    return 0;
}
