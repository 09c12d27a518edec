#include "tests/fuzz/rows.h"

#include <cstring>

#include "tests/fuzz/check.h"
#include "tests/fuzz/platform.h"

// Net-SNMP exports it without declaring it.
extern "C" struct snmp_alarm *sa_find_specific(unsigned int id);

namespace fuzz {
namespace {

template <typename Record>
std::vector<const Record *> records_of(struct ordset *set) {
    std::vector<const Record *> records;
    for (uint32_t i = 1; i <= ordset_size(set); i++) {
        auto record = static_cast<const Record *>(ordset_find_nth_obj(set, i));
        FUZZ_CHECK(record != nullptr, "nothing at position %u", i);
        records.push_back(record);
    }
    return records;
}

template <size_t Size> bool ends(const char (&field)[Size]) {
    return memchr(field, 0, Size) != nullptr;
}

void check_row(const xfCopyEntry &row) {
    const int32_t index = row.xfCopyIndex;
    FUZZ_CHECK(index >= 1, "a row of index %d", index);
    FUZZ_CHECK(ends(row.xfCopyFileName) && ends(row.xfCopyUserName) &&
                   ends(row.xfCopyUserPassword) &&
                   ends(row.xfCopyServerAddressRev1) && ends(row.xfCopyVRFName),
               "row %d: a text without an end", index);
    FUZZ_CHECK(row.xfCopyState >= XF_STATE_WAITING &&
                   row.xfCopyState <= XF_STATE_FAILED,
               "row %d: state %d", index, row.xfCopyState);
    const int32_t status = row.xfCopyEntryRowStatus;
    FUZZ_CHECK(status >= XF_ROW_ACTIVE && status <= XF_ROW_DESTROY &&
                   status != XF_ROW_NOT_IN_SERVICE,
               "row %d: row status %d", index, status);
    ip_addr address;
    FUZZ_CHECK(row.xfCopyServerAddressRev1[0] == '\0' ||
                   ip_addr_from_str(row.xfCopyServerAddressRev1, &address) == 0,
               "row %d: address \"%s\"", index, row.xfCopyServerAddressRev1);
    FUZZ_CHECK(row.xfCopyServerAddressType >= 0 &&
                   row.xfCopyServerAddressType <= 2,
               "row %d: address type %d", index, row.xfCopyServerAddressType);
}

void check_counts(const uint32_t (&counts)[XF_STATE_FAILED + 1]) {
    for (int state = XF_STATE_WAITING; state <= XF_STATE_FAILED; state++)
        FUZZ_CHECK(module_state.rows_in_state[state].count == counts[state],
                   "%u rows in state %d, counted as %u", counts[state], state,
                   module_state.rows_in_state[state].count);
}

void check_copy_table() {
    int32_t previous = INT32_MIN;
    uint32_t counts[XF_STATE_FAILED + 1] = {};
    for (const xfCopyEntry *row : rows()) {
        FUZZ_CHECK(row->xfCopyIndex > previous, "row %d stands behind row %d",
                   row->xfCopyIndex, previous);
        previous = row->xfCopyIndex;
        check_row(*row);
        counts[row->xfCopyState]++;
    }
    check_counts(counts);
    // The container is there as long as it has rows; the alarm goes with it.
    FUZZ_CHECK((module_state.copy_table != nullptr) ==
                   (ordset_size(module_state.copy_table) != 0),
               "an empty container of rows");
    const bool alarm = sa_find_specific(ageouttimer) != nullptr;
    FUZZ_CHECK(alarm == (module_state.copy_table != nullptr),
               "%zu rows, and %s age-out alarm", rows().size(),
               alarm ? "an" : "no");
}

void check_error_table() {
    const xfCopyErrorEntry *previous = nullptr;
    for (const xfCopyErrorEntry *row :
         records_of<xfCopyErrorEntry>(module_state.error_table)) {
        FUZZ_CHECK(row_exists(row->xfCopyIndex), "error row of no row %d",
                   row->xfCopyIndex);
        FUZZ_CHECK(row->xfCopyErrorDeviceIndex >= 1, "device index %d",
                   row->xfCopyErrorDeviceIndex);
        FUZZ_CHECK(previous == nullptr ||
                       previous->xfCopyIndex < row->xfCopyIndex ||
                       (previous->xfCopyIndex == row->xfCopyIndex &&
                        previous->xfCopyErrorDeviceIndex <
                            row->xfCopyErrorDeviceIndex),
                   "error row %d.%d out of order", row->xfCopyIndex,
                   row->xfCopyErrorDeviceIndex);
        FUZZ_CHECK(ends(row->deviceAddressText) &&
                       ends(row->xfCopyErrorDescription),
                   "error row %d.%d: a text without an end", row->xfCopyIndex,
                   row->xfCopyErrorDeviceIndex);
        previous = row;
    }
}

void empty(struct ordset *set) {
    while (ordset_size(set) != 0) {
        void *record = ordset_find_nth_obj(set, 1);
        ordset_remove(set, record);
        fuzz_free(record);
    }
}

} // namespace

std::vector<const xfCopyEntry *> rows() {
    return records_of<xfCopyEntry>(module_state.copy_table);
}

std::set<int32_t> undo_indexes() {
    std::set<int32_t> indexes;
    for (const xfCopyEntry *each :
         records_of<xfCopyEntry>(module_state.undo_list))
        indexes.insert(each->xfCopyIndex);
    return indexes;
}

bool row_exists(int32_t index) {
    xfCopyEntry key;
    memset(&key, 0, sizeof key);
    key.xfCopyIndex = index;
    return ordset_find(module_state.copy_table, &key) != nullptr;
}

unsigned running_rows() {
    unsigned running = 0;
    for (const xfCopyEntry *row : rows())
        running += row->xfCopyState == XF_STATE_RUNNING ? 1 : 0;
    return running;
}

void check_tables() {
    check_copy_table();
    check_error_table();
    // Keys in order, and none twice.
    FUZZ_CHECK(undo_indexes().size() == ordset_size(module_state.undo_list),
               "two undo records of one index");
    FUZZ_CHECK(ordset_size(module_state.second_list) == 0,
               "something in the list that nobody uses");
}

void start_module() {
    init_config_copy_mib();
    FUZZ_CHECK(module_state.undo_list != nullptr, "no undo list");
}

void remove_everything() {
    while (ordset_size(module_state.copy_table) != 0) {
        auto row = static_cast<const xfCopyEntry *>(
            ordset_find_nth_obj(module_state.copy_table, 1));
        const xfCopyEntry key = *row;
        deleteXfCopyEntry(&key);
    }
    FUZZ_CHECK(module_state.error_table == nullptr ||
                   ordset_size(module_state.error_table) == 0,
               "error rows outlive their rows");
    ordset_destroy(&module_state.error_table);
    empty(module_state.undo_list);
    // As after the start, but for the two lists.
    struct ordset *const undo_list = module_state.undo_list;
    struct ordset *const second_list = module_state.second_list;
    module_state = {};
    module_state.undo_list = undo_list;
    module_state.second_list = second_list;
    ageouttimer = 0;
    start_cpu_cycles = 0;
}

} // namespace fuzz
