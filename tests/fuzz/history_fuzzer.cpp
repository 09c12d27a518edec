// The history of copies as a crash, a full disk or somebody has left it. The
// first octet says how many entries are kept, and whether each line is given
// its checksum, so that what is behind that is reached; the second one where
// the file is divided into the old and the new one.
#include <algorithm>
#include <string>
#include <vector>

#include "host/base/record.h"
#include "host/history/log.h"
#include "tests/fuzz/check.h"
#include "tests/fuzz/directory.h"
#include "tests/fuzz/input.h"

using namespace xfhost;
using fuzz::directory;

namespace {

std::string with_sums(std::string_view text) {
    std::string result;
    while (!text.empty())
        result += with_sum(cut(text, '\n')) + "\n";
    return result;
}

void check_text(const std::string &text) {
    FUZZ_CHECK(text.size() <= longest_report_text, "%zu octets", text.size());
    for (char each : text)
        FUZZ_CHECK(each >= ' ' && each <= '~', "octet %d in a text", each);
}

// What the columns of the history rely on.
void check_entry(const HistoryEntry &entry) {
    FUZZ_CHECK(entry.number >= 1 && entry.number <= UINT32_MAX, "number");
    for (uint64_t each : {entry.row, entry.source, entry.destination,
                          entry.protocol, entry.server_type, entry.cause})
        FUZZ_CHECK(each <= INT32_MAX, "a number out of its column");
    FUZZ_CHECK(entry.port <= 65535, "port");
    FUZZ_CHECK(entry.state >= CopyState::running &&
                   entry.state <= CopyState::interrupted,
               "state");
    for (const std::string *each :
         {&entry.asker, &entry.vrf, &entry.server, &entry.file, &entry.user})
        FUZZ_CHECK(each->size() <= 255, "%zu octets", each->size());
    for (const std::string *each :
         {&entry.report.reason, &entry.report.advice, &entry.report.sha256,
          &entry.report.refusal})
        check_text(*each);
    const std::string line = print_entry(entry);
    FUZZ_CHECK(line.find('\n') == std::string::npos, "two lines");
    const auto again = parse_entry(line);
    FUZZ_CHECK(again && print_entry(*again) == line, "read back: %.200s",
               line.c_str());
}

std::vector<HistoryEntry> load(HistoryLog &log, uint32_t rows) {
    std::vector<HistoryEntry> entries;
    FUZZ_CHECK(
        log.open(open_private_directory(directory().path(".")), rows, entries),
        "the history is not opened");
    FUZZ_CHECK(entries.size() <= rows, "%zu entries", entries.size());
    for (size_t i = 1; i < entries.size(); i++)
        FUZZ_CHECK(entries[i - 1].number < entries[i].number, "the order");
    return entries;
}

// Whatever was there, it goes on.
void add_one(uint32_t rows, const std::vector<HistoryEntry> &before) {
    HistoryLog log;
    load(log, rows);
    HistoryEntry next;
    next.number = log.next_number();
    if (next.number > UINT32_MAX)
        return;
    FUZZ_CHECK(log.append(next), "nothing can be added");
    const std::vector<HistoryEntry> after = load(log, rows);
    const size_t lost = before.size() == rows ? 1 : 0;
    FUZZ_CHECK(after.size() == before.size() - lost + 1, "%zu, then %zu",
               before.size(), after.size());
    FUZZ_CHECK(after.back().number == next.number, "the new one is not last");
    for (size_t i = lost; i < before.size(); i++)
        FUZZ_CHECK(print_entry(after[i - lost]) == print_entry(before[i]),
                   "entry %zu is another one", i);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    clearenv();
    directory().write("none", "");
    setenv("XF_CONFIG", directory().path("none").c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size) {
    fuzz::Input input(octets, size);
    const uint8_t first = input.octet();
    const uint32_t rows = first % 8 + 1;
    const size_t share = input.octet();
    std::string text = input.rest();
    if (first >= 128)
        text = with_sums(text);
    const size_t middle = text.size() * share / 255;
    directory().write("history.old", std::string_view(text).substr(0, middle));
    directory().write("history", std::string_view(text).substr(middle));
    HistoryLog log;
    const std::vector<HistoryEntry> entries = load(log, rows);
    for (const HistoryEntry &each : entries)
        check_entry(each);
    add_one(rows, entries);
    return 0;
}
