#include "host/history/log.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <optional>

#include <fcntl.h>
#include <unistd.h>

namespace xfhost {
namespace {

constexpr const char *file_name = "history";
constexpr const char *old_name = "history.old";
// No entry is as long.
constexpr size_t longest_line = 16384;

using Entries = std::map<uint64_t, HistoryEntry>;

// Calls `take` with every line of a file; one that is too long is passed over.
// Returns whether the file ends in the middle of a line; nothing, with errno
// set, if it could not be read to its end.
std::optional<bool>
read_lines(int fd, const std::function<void(std::string_view)> &take) {
    std::string text;
    char buffer[65536];
    bool too_long = false;
    for (;;) {
        ssize_t count = read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0) {
            if (!too_long) // it may lack the newline alone
                take(text);
            return too_long || !text.empty();
        }
        text.append(buffer, static_cast<size_t>(count));
        size_t start = 0;
        for (size_t end; (end = text.find('\n', start)) != std::string::npos;
             start = end + 1) {
            if (!too_long)
                take(std::string_view(text).substr(start, end - start));
            too_long = false;
        }
        text.erase(0, start);
        too_long = too_long || text.size() > longest_line;
        if (too_long)
            text.clear();
    }
}

void keep(Entries &entries, std::string_view line, uint32_t rows) {
    auto entry = parse_entry(line);
    if (!entry)
        return;
    entries.insert_or_assign(entry->number, std::move(*entry));
    if (entries.size() > rows)
        entries.erase(entries.begin());
}

Fd open_file(int directory) {
    return open_private_file(directory, file_name, O_RDWR | O_APPEND | O_CREAT);
}

} // namespace

bool HistoryLog::open(Fd directory, uint32_t rows,
                      std::vector<HistoryEntry> &entries) {
    directory_ = std::move(directory);
    rows_ = std::max(rows, 1u);
    file_ = open_file(directory_.get());
    if (!file_)
        return false;
    Entries found;
    const auto take = [&](std::string_view line) { keep(found, line, rows_); };
    const Fd old = open_private_file(directory_.get(), old_name, O_RDONLY);
    // Without its numbers some would be given twice.
    if (old ? !read_lines(old.get(), take) : errno != ENOENT)
        return false;
    const uint64_t before = found.empty() ? 0 : found.rbegin()->first;
    const auto cut_off = read_lines(file_.get(), take);
    if (!cut_off)
        return false;
    cut_off_ = *cut_off;
    in_file_ = static_cast<uint32_t>(
        std::distance(found.upper_bound(before), found.end()));
    last_number_ = found.empty() ? 0 : found.rbegin()->first;
    entries.clear();
    for (auto &[number, entry] : found)
        entries.push_back(std::move(entry));
    return true;
}

// If a new file cannot be had, the one that there is goes on growing.
void HistoryLog::rotate() {
    if (renameat(directory_.get(), file_name, directory_.get(), old_name) !=
            0 &&
        errno != ENOENT)
        return;
    Fd fresh = open_file(directory_.get());
    if (!fresh)
        return;
    file_ = std::move(fresh);
    in_file_ = 0;
    cut_off_ = false;
}

bool HistoryLog::append(const HistoryEntry &entry) {
    const bool begins = entry.number > last_number_;
    if (begins && in_file_ >= rows_)
        rotate();
    const std::string line = (cut_off_ ? "\n" : "") + print_entry(entry) + "\n";
    if (begins) {
        last_number_ = entry.number;
        in_file_++;
    }
    const ssize_t written = write(file_.get(), line.data(), line.size());
    if (written == static_cast<ssize_t>(line.size())) {
        cut_off_ = false;
        return true;
    }
    if (written >= 0) {
        cut_off_ = cut_off_ || written > 0;
        errno = ENOSPC;
    }
    return false;
}

bool sync_history(int directory) {
    int error = 0;
    for (const char *name : {file_name, old_name}) {
        const Fd fd(openat(directory, name, O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
        if (fd ? fdatasync(fd.get()) != 0 : errno != ENOENT)
            error = errno;
    }
    if (fsync(directory) != 0)
        error = errno;
    errno = error;
    return error == 0;
}

} // namespace xfhost
