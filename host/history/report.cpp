#include "host/history/report.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <exception>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/files.h"
#include "host/base/record.h"
#include "host/base/settings.h"

namespace xfhost {
namespace {

constexpr off_t kept_room = 4096;
constexpr std::string_view hexadecimal = "0123456789abcdef";

void add(std::string &body, std::string_view name, const std::string &value) {
    if (!value.empty())
        body.append(body.empty() ? "" : "\t")
            .append(name)
            .append("=")
            .append(value);
}

// A newline in front, too: what is there may have been cut off.
std::string record_of(const Report &report) {
    std::string body;
    for (const ReportText &each : report_texts)
        add(body, each.name, printable(report.*each.field));
    if (report.octets)
        add(body, "octets", std::to_string(*report.octets));
    for (const ReportNumber &each : report_numbers)
        if (report.*each.field != 0)
            add(body, each.name, std::to_string(report.*each.field));
    return body.empty() ? "" : "\n" + with_sum(body) + "\n";
}

uint64_t number_of(std::string_view text) {
    uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

void take_field(std::string_view field, Report &report) {
    const size_t end = std::min(field.find('='), field.size() - 1);
    const std::string_view name = field.substr(0, end);
    const std::string_view value = field.substr(end + 1);
    for (const ReportText &each : report_texts)
        if (name == each.name)
            report.*each.field = printable(value);
    for (const ReportNumber &each : report_numbers)
        if (name == each.name)
            report.*each.field = number_of(value);
    if (name == "octets")
        report.octets = number_of(value);
}

// Nothing for a line that is no whole record.
std::optional<Report> parse_record(std::string_view line) {
    line = without_sum(line);
    if (line.empty())
        return {};
    Report report;
    while (!line.empty())
        if (const std::string_view field = cut(line, '\t'); !field.empty())
            take_field(field, report);
    if (report.sha256.size() != 64 ||
        report.sha256.find_first_not_of(hexadecimal) != std::string::npos)
        report.sha256.clear();
    return report;
}

// An advice belongs to its reason, and the first refused line to its number.
void merge(Report &all, Report &&later) {
    if (all.reason.empty()) {
        all.reason = std::move(later.reason);
        all.advice = std::move(later.advice);
    }
    if (all.sha256.empty())
        all.sha256 = std::move(later.sha256);
    if (later.octets)
        all.octets = std::max(all.octets.value_or(0), *later.octets);
    if (all.refused == 0) {
        all.refused = later.refused;
        all.first_refused = later.first_refused;
        all.refusal = std::move(later.refusal);
    }
}

Fd open_report(const std::string &path, int flags) {
    return open_private_file(AT_FDCWD, path.c_str(), flags);
}

void append(const std::string &path, const Report &report) {
    const std::string record = record_of(report);
    Fd file = open_report(path, O_WRONLY | O_APPEND);
    struct stat found;
    if (record.empty() || !file || fstat(file.get(), &found) != 0 ||
        static_cast<size_t>(found.st_size) + record.size() > largest_report)
        return;
    const ssize_t ignored = write(file.get(), record.data(), record.size());
    static_cast<void>(ignored);
}

} // namespace

bool begin_report(const std::string &path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        errno = EINVAL;
        return false;
    }
    const Fd directory = open_private_directory(path.substr(0, slash));
    const Fd file =
        directory ? open_private_file(directory.get(), path.c_str() + slash + 1,
                                      O_WRONLY | O_CREAT)
                  : Fd();
    // Emptied once it is known to be ours.
    if (!file || ftruncate(file.get(), 0) != 0)
        return false;
    const int ignored =
        fallocate(file.get(), FALLOC_FL_KEEP_SIZE, 0, kept_room);
    static_cast<void>(ignored);
    return true;
}

void tell(const Report &report) noexcept {
    if (const char *path = secure_getenv(report_variable))
        tell_to(path, report);
}

void tell_to(const std::string &path, const Report &report) noexcept {
    const int saved = errno;
    try {
        append(path, report);
    } catch (const std::exception &) { // no memory
    }
    errno = saved;
}

Report read_report(const std::string &path) {
    const Fd file = open_report(path, O_RDONLY);
    std::string text;
    if (!file || !read_whole(file.get(), largest_report, text))
        return {};
    Report all;
    for (std::string_view rest = text; !rest.empty();)
        if (auto report = parse_record(cut(rest, '\n')))
            merge(all, std::move(*report));
    return all;
}

std::string save_report_path() {
    const Settings *s = settings();
    return s == nullptr ? "" : s->run_directory + "/save.report";
}

std::string printable(std::string_view text, size_t most) {
    constexpr std::string_view mark = "...";
    std::string result;
    for (char c : text) {
        const auto octet = static_cast<unsigned char>(c);
        if (octet > ' ' && octet != 0x7f)
            result += octet < 0x7f ? c : '?';
        else if (!result.empty() && result.back() != ' ')
            result += ' ';
    }
    if (result.ends_with(' '))
        result.pop_back();
    if (result.size() > most)
        result.replace(most - mark.size(), result.npos, mark);
    return result;
}

} // namespace xfhost
