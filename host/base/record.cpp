#include "host/base/record.h"

#include <cerrno>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

#include "host/base/files.h"

namespace xfhost {

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
