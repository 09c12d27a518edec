#include "host/base/record.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

#include "host/base/files.h"

namespace xfhost {
namespace {

constexpr size_t sum_size = 8;

} // namespace

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (char c : text) {
        auto octet = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (octet < 0x20 || octet > 0x7e) {
            char hex[5];
            snprintf(hex, sizeof hex, "\\x%02x", octet);
            result += hex;
        } else {
            result += c;
        }
    }
    return result + '"';
}

std::string line_sum(std::string_view line) {
    uint32_t hash = 2166136261u; // FNV-1a
    for (char c : line)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    char sum[sum_size + 1];
    snprintf(sum, sizeof sum, "%08x", hash);
    return sum;
}

std::string with_sum(std::string_view line) {
    return line_sum(line).append(" ").append(line);
}

std::string_view without_sum(std::string_view text) {
    if (text.size() <= sum_size + 1 || text[sum_size] != ' ' ||
        line_sum(text.substr(sum_size + 1)) != text.substr(0, sum_size))
        return {};
    return text.substr(sum_size + 1);
}

std::string_view cut(std::string_view &rest, char separator) {
    const std::string_view part = rest.substr(0, rest.find(separator));
    rest.remove_prefix(std::min(rest.size(), part.size() + 1));
    return part;
}

std::string timestamp() {
    time_t now = time(nullptr);
    struct tm utc;
    char text[32];
    gmtime_r(&now, &utc);
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

bool append_record(const char *file, const std::string &line) {
    Fd directory = open_state_directory();
    if (!directory)
        return false;
    Fd fd =
        open_private_file(directory.get(), file, O_WRONLY | O_APPEND | O_CREAT);
    if (!fd)
        return false;
    std::string whole = line + '\n';
    ssize_t written = write(fd.get(), whole.data(), whole.size());
    if (written >= 0 && static_cast<size_t>(written) != whole.size())
        errno = ENOSPC;
    return static_cast<size_t>(written) == whole.size();
}

} // namespace xfhost
