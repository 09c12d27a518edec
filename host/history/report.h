// What became of a copy, in words: whoever knows something tells it, and the
// agent reads all of it when the copy has ended. The teller may be the copy
// process, a program that it has started, or the system manager.
//
// The environment variable XF_COPY_REPORT names a file. Whoever sets it makes
// the file with begin_report(); a telling adds one record to it with a single
// write, and where there is no variable or no file, nothing is told. A record
// is a line of its own with a checksum in front, so that one that a crash or a
// full disk has cut off spoils no other.
#ifndef HOST_HISTORY_REPORT_H
#define HOST_HISTORY_REPORT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace xfhost {

constexpr const char *report_variable = "XF_COPY_REPORT";

// So many octets of each text are told, and so many are in a file.
constexpr size_t longest_report_text = 255;
constexpr size_t largest_report = 65536;

// Everything may be missing. The texts are printable ASCII once they have been
// told, and never hold a password: who tells sees to that.
struct Report {
    std::string reason; // which step failed, and what the other side said
    std::string advice; // what to do about it
    std::optional<uint64_t> octets; // of the file, moved so far
    std::string sha256;             // of all that was moved, in hexadecimal
    uint64_t refused = 0;           // lines of the configuration
    uint64_t first_refused = 0;     // the number of the first one, from 1
    std::string refusal;            // why it was refused
};

// The names of its texts and numbers in a record, and in the history.
struct ReportText {
    std::string_view name;
    std::string Report::*field;
};
inline constexpr ReportText report_texts[] = {{"reason", &Report::reason},
                                              {"advice", &Report::advice},
                                              {"sha256", &Report::sha256},
                                              {"refusal", &Report::refusal}};
struct ReportNumber {
    std::string_view name;
    uint64_t Report::*field;
};
inline constexpr ReportNumber report_numbers[] = {
    {"refused", &Report::refused}, {"first", &Report::first_refused}};

// Makes `path` an empty file for one copy, 0600, in a directory that is made
// 0700 if it is missing. Some room is kept for it, so that a disk that is full
// later can be told of. False with errno set.
bool begin_report(const std::string &path);

// Adds to the file that XF_COPY_REPORT names, or to the one at `path`. What
// cannot be told is lost: they never fail, do not wait and keep errno.
void tell(const Report &report) noexcept;
void tell_to(const std::string &path, const Report &report) noexcept;

// Everything that was told about one copy; empty if the file cannot be read, or
// is no file of ours. The innermost knows first: what fetches a file tells
// before the one who has started it, which only sees an exit code. So the first
// reason stays, with its own advice, and so do the first digest and the first
// refused line; later tellings fill what is missing. Octets are counted as they
// move, so the largest number counts.
Report read_report(const std::string &path);

// The file about the save that the system manager does or did last. It empties
// it when it takes a request.
std::string save_report_path();

// A text of somebody else's for a report: printable ASCII, one blank where
// blanks and control characters were, '?' for what is neither; at most `most`
// octets, 3 or more, with "..." at the end of one that was cut.
std::string printable(std::string_view text, size_t most = longest_report_text);

} // namespace xfhost

#endif
