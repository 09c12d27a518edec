#include "host/history/entry.h"

#include <algorithm>
#include <charconv>
#include <ctime>

#include "host/base/record.h"

namespace xfhost {
namespace {

constexpr uint64_t most_signed = 0x7fffffff;
constexpr uint64_t most_unsigned = 0xffffffff;
constexpr uint64_t most_time = 2534023007999; // the end of the year 9999
constexpr size_t longest_text = 255;

// The names of the numbers and texts in a line.
struct Number {
    std::string_view name;
    uint64_t HistoryEntry::*field;
    uint64_t most;
};
constexpr Number numbers[] = {
    {"number", &HistoryEntry::number, most_unsigned},
    {"row", &HistoryEntry::row, most_signed},
    {"source", &HistoryEntry::source, most_signed},
    {"destination", &HistoryEntry::destination, most_signed},
    {"protocol", &HistoryEntry::protocol, most_signed},
    {"type", &HistoryEntry::server_type, most_signed},
    {"port", &HistoryEntry::port, 65535},
    {"asked", &HistoryEntry::asked, most_time},
    {"started", &HistoryEntry::started, most_time},
    {"ended", &HistoryEntry::ended, most_time},
    {"cause", &HistoryEntry::cause, most_signed},
    {"token", &HistoryEntry::token, most_unsigned}};

struct Text {
    std::string_view name;
    std::string HistoryEntry::*field;
};
constexpr Text texts[] = {{"asker", &HistoryEntry::asker},
                          {"vrf", &HistoryEntry::vrf},
                          {"server", &HistoryEntry::server},
                          {"file", &HistoryEntry::file},
                          {"user", &HistoryEntry::user}};

// Octets that are not printable, and '%', as '%' and two hexadecimal digits.
void add_escaped(std::string &line, std::string_view text) {
    constexpr char digits[] = "0123456789abcdef";
    for (char c : text) {
        auto octet = static_cast<unsigned char>(c);
        if (octet >= ' ' && octet <= '~' && c != '%')
            line += c;
        else
            line.append({'%', digits[octet >> 4], digits[octet & 15]});
    }
}

std::string unescaped(std::string_view text) {
    std::string result;
    for (size_t i = 0; i < text.size(); i++) {
        unsigned octet = 0;
        const char *code = text.data() + i + 1;
        bool escape =
            text[i] == '%' && text.size() - i > 2 &&
            std::from_chars(code, code + 2, octet, 16).ptr == code + 2;
        result += escape ? static_cast<char>(octet) : text[i];
        i += escape ? 2 : 0;
    }
    return result;
}

void add(std::string &line, std::string_view name, std::string_view value) {
    if (value.empty())
        return;
    line.append(line.empty() ? "" : "\t").append(name).append("=");
    add_escaped(line, value);
}

void add(std::string &line, std::string_view name, uint64_t value) {
    if (value != 0)
        add(line, name, std::to_string(value));
}

bool take(uint64_t &field, std::string_view value, uint64_t most) {
    const char *end = value.data() + value.size();
    auto [stop, error] = std::from_chars(value.data(), end, field);
    return error == std::errc() && stop == end && field <= most;
}

bool take(std::string &field, std::string_view value) {
    field = unescaped(value);
    return field.size() <= longest_text;
}

bool take_state(HistoryEntry &entry, std::string_view value) {
    uint64_t number = 0;
    bool good = take(number, value, 5) && number >= 2;
    entry.state = static_cast<CopyState>(number);
    return good;
}

bool take_octets(Report &report, std::string_view value) {
    uint64_t number = 0;
    bool good = take(number, value, UINT64_MAX);
    report.octets = number;
    return good;
}

bool take_report(Report &report, std::string_view name,
                 std::string_view value) {
    for (const ReportNumber &each : report_numbers)
        if (each.name == name)
            return take(report.*each.field, value, most_unsigned);
    for (const ReportText &each : report_texts)
        if (each.name == name) {
            report.*each.field = printable(unescaped(value));
            return true;
        }
    return name != "octets" || take_octets(report, value);
}

// A name that is not known is that of a later version.
bool take_field(HistoryEntry &entry, std::string_view name,
                std::string_view value) {
    for (const Number &each : numbers)
        if (each.name == name)
            return take(entry.*each.field, value, each.most);
    for (const Text &each : texts)
        if (each.name == name)
            return take(entry.*each.field, value);
    if (name == "state")
        return take_state(entry, value);
    return take_report(entry.report, name, value);
}

} // namespace

std::string print_entry(const HistoryEntry &entry) {
    std::string line;
    for (const Number &each : numbers)
        add(line, each.name, entry.*each.field);
    for (const Text &each : texts)
        add(line, each.name, entry.*each.field);
    add(line, "state", static_cast<uint64_t>(entry.state));
    for (const ReportText &each : report_texts)
        add(line, each.name, entry.report.*each.field);
    for (const ReportNumber &each : report_numbers)
        add(line, each.name, std::min(entry.report.*each.field, most_unsigned));
    if (entry.report.octets)
        add(line, "octets", std::to_string(*entry.report.octets));
    return with_sum(line);
}

std::optional<HistoryEntry> parse_entry(std::string_view line) {
    HistoryEntry entry;
    for (line = without_sum(line); !line.empty();) {
        std::string_view value = cut(line, '\t');
        std::string_view name = cut(value, '=');
        if (!take_field(entry, name, value))
            return std::nullopt;
    }
    if (entry.number == 0)
        return std::nullopt;
    return entry;
}

uint64_t tenths_now() {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 10 +
           static_cast<uint64_t>(now.tv_nsec) / 100000000;
}

} // namespace xfhost
