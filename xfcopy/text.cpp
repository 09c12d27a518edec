#include "xfcopy/text.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include <wchar.h>
#include <wctype.h>

namespace xfcopy {

namespace {

__attribute__((format(printf, 1, 2))) std::string format(const char *text,
                                                         ...) {
    char buffer[64];
    va_list arguments;
    va_start(arguments, text);
    vsnprintf(buffer, sizeof(buffer), text, arguments);
    va_end(arguments);
    return buffer;
}

// The octets of the character that begins with this one; 0 if none does.
size_t length_of(unsigned char first) {
    if (first < 0x80)
        return 1;
    if (first >= 0xc2 && first < 0xe0)
        return 2;
    if (first >= 0xe0 && first < 0xf0)
        return 3;
    return first >= 0xf0 && first < 0xf5 ? 4 : 0;
}

bool is_code(char32_t code, size_t octets) {
    static const char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    return code >= least[octets] && code <= 0x10ffff &&
           (code < 0xd800 || code > 0xdfff);
}

// Characters that nobody sees, but that move or hide others.
bool is_invisible(char32_t code) {
    return (code >= 0x200b && code <= 0x200f) ||
           (code >= 0x2028 && code <= 0x202e) ||
           (code >= 0x2060 && code <= 0x206f) || code == 0xfeff ||
           code == 0x61c || (code >= 0xe0000 && code <= 0xe0fff);
}

bool is_control(char32_t code) {
    return code < 0x20 || (code >= 0x7f && code < 0xa0) || is_invisible(code);
}

std::string shown_character(const Character &c, std::string_view octets) {
    const unsigned first = static_cast<unsigned char>(octets[0]);
    if (!c.valid || (is_control(c.code) && c.code < 0x80))
        return format("\\x%02x", first);
    if (c.code == '\\')
        return "\\\\";
    if (is_control(c.code) || iswprint(static_cast<wint_t>(c.code)) == 0)
        return format("\\u{%" PRIx32 "}", static_cast<uint32_t>(c.code));
    return std::string(octets);
}

std::string json_escape(char32_t code) {
    if (code < 0x10000)
        return format("\\u%04" PRIx32, static_cast<uint32_t>(code));
    const uint32_t rest = static_cast<uint32_t>(code) - 0x10000;
    return format("\\u%04" PRIx32 "\\u%04" PRIx32, 0xd800 + (rest >> 10),
                  0xdc00 + (rest & 0x3ff));
}

std::string json_character(const Character &c, std::string_view octets) {
    if (!c.valid)
        return "\\ufffd";
    if (c.code == '"' || c.code == '\\')
        return "\\" + std::string(octets);
    return is_control(c.code) ? json_escape(c.code) : std::string(octets);
}

template <typename Made> std::string each(std::string_view text, Made made) {
    std::string all;
    while (!text.empty()) {
        const Character c = first_character(text);
        all += made(c, text.substr(0, c.octets));
        text.remove_prefix(c.octets);
    }
    return all;
}

size_t width_of(const Character &c) {
    const int columns = c.valid ? wcwidth(static_cast<wchar_t>(c.code)) : 1;
    return columns < 0 ? 1 : static_cast<size_t>(columns);
}

} // namespace

Character first_character(std::string_view text) {
    const unsigned char first = static_cast<unsigned char>(text[0]);
    const size_t octets = length_of(first);
    const Character none = {first, 1, false};
    if (octets == 0 || text.size() < octets)
        return none;
    char32_t code = octets == 1 ? first : first & (0x7fU >> octets);
    for (size_t i = 1; i < octets; ++i) {
        const unsigned char next = static_cast<unsigned char>(text[i]);
        if ((next & 0xc0) != 0x80)
            return none;
        code = code << 6 | (next & 0x3f);
    }
    return is_code(code, octets) ? Character{code, octets, true} : none;
}

std::string shown(std::string_view text) {
    return each(text, shown_character);
}

size_t width(std::string_view text) {
    size_t columns = 0;
    while (!text.empty()) {
        const Character c = first_character(text);
        columns += width_of(c);
        text.remove_prefix(c.octets);
    }
    return columns;
}

std::string fitted(std::string_view text, size_t columns) {
    static const std::string_view dots = "...";
    if (width(text) <= columns)
        return std::string(text);
    if (columns < dots.size())
        return std::string(dots.substr(0, columns));
    size_t left = columns - dots.size();
    std::string kept;
    while (!text.empty()) {
        const Character c = first_character(text);
        if (width_of(c) > left)
            break;
        left -= width_of(c);
        kept += text.substr(0, c.octets);
        text.remove_prefix(c.octets);
    }
    return kept + std::string(dots);
}

std::string aligned(const TableLines &lines) {
    std::vector<size_t> widths;
    return aligned(lines, widths);
}

std::string aligned(const TableLines &lines, std::vector<size_t> &widths) {
    for (const auto &line : lines)
        for (size_t i = 0; i < line.size(); ++i) {
            if (widths.size() <= i)
                widths.push_back(0);
            widths[i] = std::max(widths[i], width(line[i]));
        }
    std::string all;
    for (const auto &line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            all += line[i];
            if (i + 1 < line.size())
                all += std::string(widths[i] - width(line[i]) + 2, ' ');
        }
        all += "\n";
    }
    return all;
}

std::string seconds_text(uint64_t hundredths) {
    return format("%" PRIu64 ".%u s", hundredths / 100,
                  static_cast<unsigned>(hundredths / 10 % 10));
}

std::string json_string(std::string_view text) {
    return "\"" + each(text, json_character) + "\"";
}

JsonObject &JsonObject::member(const char *key, const std::string &value) {
    if (!members_.empty())
        members_ += ",";
    members_ += json_string(key) + ":" + value;
    return *this;
}

JsonObject &JsonObject::text(const char *key, std::string_view value) {
    return member(key, json_string(value));
}

JsonObject &JsonObject::number(const char *key, int64_t value) {
    return member(key, std::to_string(value));
}

JsonObject &JsonObject::seconds(const char *key, uint64_t hundredths) {
    return member(key, format("%" PRIu64 ".%02u", hundredths / 100,
                              static_cast<unsigned>(hundredths % 100)));
}

JsonObject &JsonObject::boolean(const char *key, bool value) {
    return member(key, value ? "true" : "false");
}

JsonObject &JsonObject::null(const char *key) {
    return member(key, "null");
}

} // namespace xfcopy
