#include "scripted/note.h"

namespace scripted {

struct xfCopyEntry make_row(int32_t index, int32_t row_status) {
    struct xfCopyEntry row = {};

    row.xfCopyIndex = index;
    row.xfCopyProtocol = 1;
    row.xfCopySourceFileType = 1;
    row.xfCopyDestFileType = 3;
    row.xfCopyNotificationOnCompletion = 2;
    row.xfCopyState = 1;
    row.entryCreateTime = static_cast<int32_t>(platform().now_seconds);
    row.xfCopyFailCause = 1;
    row.xfCopyEntryRowStatus = row_status;
    return row;
}

void store(const struct xfCopyEntry &row) {
    const Quiet quiet;
    struct xfCopyEntry *const entry = createXfCopyEntry();

    *entry = row;
    ASSERT_EQ(0, addXfCopyEntry(entry));
}

template <typename Row> static std::vector<Row> rows_of(const ordset *set) {
    std::vector<Row> rows;

    for (const void *const object : objects_of(set))
        rows.push_back(*static_cast<const Row *>(object));
    return rows;
}

static std::optional<struct xfCopyEntry> row_of(const ordset *set,
                                                int32_t index) {
    for (const struct xfCopyEntry &row : rows_of<struct xfCopyEntry>(set))
        if (row.xfCopyIndex == index)
            return row;
    return std::nullopt;
}

static std::vector<int32_t> indexes_of(const ordset *set) {
    std::vector<int32_t> indexes;

    for (const struct xfCopyEntry &row : rows_of<struct xfCopyEntry>(set))
        indexes.push_back(row.xfCopyIndex);
    return indexes;
}

std::optional<struct xfCopyEntry> stored(int32_t index) {
    return row_of(module_state.copy_table, index);
}
std::vector<int32_t> stored_indexes() {
    return indexes_of(module_state.copy_table);
}
std::optional<struct xfCopyEntry> undo_record(int32_t index) {
    return row_of(module_state.undo_list, index);
}
std::vector<int32_t> undo_indexes() {
    return indexes_of(module_state.undo_list);
}
std::vector<struct xfCopyErrorEntry> stored_error_rows() {
    return rows_of<struct xfCopyErrorEntry>(module_state.error_table);
}

static void compare(std::string &differences, const char *field, int64_t a,
                    int64_t b) {
    if (a != b)
        differences +=
            print("%s: %lld, %lld; ", field, static_cast<long long>(a),
                  static_cast<long long>(b));
}

template <size_t Size>
static void compare(std::string &differences, const char *field,
                    const char (&a)[Size], const char (&b)[Size]) {
    const std::string text_a(a, strnlen(a, Size));
    const std::string text_b(b, strnlen(b, Size));

    if (text_a != text_b)
        differences += print("%s: %s, %s; ", field, quote(text_a).c_str(),
                             quote(text_b).c_str());
}

std::string difference(const struct xfCopyEntry &a,
                       const struct xfCopyEntry &b) {
    std::string found;

#define COMPARE(field) compare(found, #field, a.field, b.field)
    COMPARE(xfCopyIndex);
    COMPARE(xfCopyProtocol);
    COMPARE(xfCopySourceFileType);
    COMPARE(xfCopyDestFileType);
    COMPARE(xfCopyServerAddress);
    COMPARE(xfCopyFileName);
    COMPARE(xfCopySrcFileName);
    COMPARE(xfCopyUserName);
    COMPARE(xfCopyUserPassword);
    COMPARE(xfCopyNotificationOnCompletion);
    COMPARE(xfCopyState);
    COMPARE(entryCreateTime);
    COMPARE(xfCopyTimeStarted.seconds);
    COMPARE(xfCopyTimeStarted.microseconds);
    COMPARE(xfCopyTimeCompleted.seconds);
    COMPARE(xfCopyTimeCompleted.microseconds);
    COMPARE(xfCopyFailCause);
    COMPARE(rowCreatedByRequest);
    COMPARE(xfCopyEntryRowStatus);
    COMPARE(xfCopyServerAddressType);
    COMPARE(xfCopyServerAddressRev1);
    COMPARE(xfCopyVRFName);
#undef COMPARE
    return found;
}

} // namespace scripted
