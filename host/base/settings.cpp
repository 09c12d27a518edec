#include "host/base/settings.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/address.h"
#include "host/base/files.h"
#include "host/base/log.h"
#include "host/history/report.h"

namespace xfhost {

constinit const char *const installed_root = XF_PROGRAM_PREFIX;
constinit const char *const installed_user = XF_AGENT_USER;

namespace {

constexpr const char *default_file = "/etc/xfhost.conf";
constexpr size_t largest_file = 65536;

std::string set_path(std::string &field, std::string_view value) {
    if (value.empty() || value.front() != '/')
        return "is not an absolute path";
    field = value;
    while (field.size() > 1 && field.back() == '/')
        field.pop_back();
    return "";
}

template <typename Number>
std::string set_number(Number &field, std::string_view value, Number low,
                       Number high) {
    Number number = 0;
    const char *end = value.data() + value.size();
    auto [stop, error] = std::from_chars(value.data(), end, number);
    if (error != std::errc() || stop != end || number < low || number > high)
        return "is not a number from " + std::to_string(low) + " to " +
               std::to_string(high);
    field = number;
    return "";
}

std::string set_word(std::string &field, std::string_view value) {
    for (char c : value)
        if (!std::isgraph(static_cast<unsigned char>(c)))
            return "is not one word";
    field = value;
    return "";
}

std::string set_address(std::string &field, std::string_view value) {
    if (!is_address(value))
        return "is not an IPv4 or IPv6 address";
    field = value;
    return "";
}

std::string set_text(std::string &field, std::string_view value) {
    if (value.empty())
        return "is empty";
    field = value;
    return "";
}

std::string set_wwn(std::string &field, std::string_view value) {
    std::string digits = wwn_digits(value);
    if (digits.empty())
        return "is not 8 octets, two hexadecimal digits each, with colons";
    field = digits;
    return "";
}

std::string set_flag(bool &field, std::string_view value) {
    if (value != "yes" && value != "no")
        return "is not yes or no";
    field = value == "yes";
    return "";
}

std::string set_chassis(Settings &s, std::string_view value) {
    int number = 0;
    std::string error = set_number(number, value, 0, 65535);
    if (error.empty())
        s.chassis_type = number;
    return error;
}

std::string set_backend(std::string &field, std::string_view value) {
    if (value != "text" && value != "frr")
        return "is not text or frr";
    field = value;
    return "";
}

struct Key {
    std::string_view name;
    std::string (*set)(Settings &, std::string_view);
};

using V = std::string_view;

constexpr Key keys[] = {
    {"root", [](Settings &s, V v) { return set_path(s.root, v); }},
    {"run_directory",
     [](Settings &s, V v) { return set_path(s.run_directory, v); }},
    {"state_directory",
     [](Settings &s, V v) { return set_path(s.state_directory, v); }},
    {"user", [](Settings &s, V v) { return set_word(s.user, v); }},
    {"management_interface",
     [](Settings &s, V v) { return set_word(s.management_interface, v); }},
    {"management_address",
     [](Settings &s, V v) { return set_address(s.management_address, v); }},
    {"default_vrf",
     [](Settings &s, V v) { return set_word(s.default_vrf, v); }},
    {"chassis_type", set_chassis},
    {"partition_type",
     [](Settings &s, V v) { return set_number(s.partition_type, v, 0, 255); }},
    {"tftp_port",
     [](Settings &s, V v) { return set_number(s.tftp_port, v, 1, 65535); }},
    {"tftp_packet_seconds",
     [](Settings &s, V v) {
         return set_number(s.tftp_packet_seconds, v, 0, 3600);
     }},
    {"tftp_total_seconds",
     [](Settings &s, V v) {
         return set_number(s.tftp_total_seconds, v, 1, 86400);
     }},
    {"tftp_block_octets",
     [](Settings &s, V v) {
         return set_number(s.tftp_block_octets, v, 512, 65464);
     }},
    {"ftp_port",
     [](Settings &s, V v) { return set_number(s.ftp_port, v, 1, 65535); }},
    {"ssh_port",
     [](Settings &s, V v) { return set_number(s.ssh_port, v, 1, 65535); }},
    {"login_seconds",
     [](Settings &s, V v) { return set_number(s.login_seconds, v, 1, 3600); }},
    {"transfer_seconds",
     [](Settings &s, V v) {
         return set_number(s.transfer_seconds, v, 1, 86400);
     }},
    {"known_hosts",
     [](Settings &s, V v) { return set_path(s.known_hosts, v); }},
    {"download_octets",
     [](Settings &s, V v) {
         return set_number(s.download_octets, v, int64_t{1}, int64_t{1} << 40);
     }},
    {"table_rows",
     [](Settings &s, V v) { return set_number(s.table_rows, v, 1, 10000000); }},
    {"history_rows",
     [](Settings &s, V v) { return set_number(s.history_rows, v, 0, 100000); }},
    {"shell_names",
     [](Settings &s, V v) { return set_flag(s.shell_names, v); }},
    {"management_vrf",
     [](Settings &s, V v) { return set_word(s.management_vrf, v); }},
    {"apply_seconds",
     [](Settings &s, V v) { return set_number(s.apply_seconds, v, 1, 86400); }},
    {"backend", [](Settings &s, V v) { return set_backend(s.backend, v); }},
    {"vtysh_program",
     [](Settings &s, V v) { return set_path(s.vtysh_program, v); }},
    {"vtysh_seconds",
     [](Settings &s, V v) { return set_number(s.vtysh_seconds, v, 1, 3600); }},
    {"frr_daemons",
     [](Settings &s, V v) { return set_text(s.frr_daemons, v); }},
    {"frr_directory",
     [](Settings &s, V v) { return set_path(s.frr_directory, v); }},
    {"frr_file_commands",
     [](Settings &s, V v) { return set_flag(s.frr_file_commands, v); }},
    {"apply_atomic",
     [](Settings &s, V v) { return set_flag(s.apply_atomic, v); }},
    {"trace_history",
     [](Settings &s, V v) { return set_flag(s.trace_history, v); }},
    {"switch_wwn", [](Settings &s, V v) { return set_wwn(s.switch_wwn, v); }},
    {"save_delay_seconds",
     [](Settings &s, V v) {
         return set_number(s.save_delay_seconds, v, 0, 3600);
     }},
    {"manager_restart_seconds",
     [](Settings &s, V v) {
         return set_number(s.manager_restart_seconds, v, 0, 3600);
     }},
    {"fabric_file",
     [](Settings &s, V v) { return set_path(s.fabric_file, v); }},
    {"fabric_key_file",
     [](Settings &s, V v) { return set_path(s.fabric_key_file, v); }},
    {"fabric_known_hosts",
     [](Settings &s, V v) { return set_path(s.fabric_known_hosts, v); }},
    {"fabric_command",
     [](Settings &s, V v) { return set_text(s.fabric_command, v); }},
    {"ssh_program",
     [](Settings &s, V v) { return set_path(s.ssh_program, v); }},
    {"fabric_connect_seconds",
     [](Settings &s,
        V v) { return set_number(s.fabric_connect_seconds, v, 1, 600); }},
    {"fabric_switch_seconds",
     [](Settings &s,
        V v) { return set_number(s.fabric_switch_seconds, v, 1, 3600); }},
    {"fabric_parallel",
     [](Settings &s, V v) { return set_number(s.fabric_parallel, v, 1, 64); }},
};

std::string_view trim(std::string_view text) {
    constexpr const char *blanks = " \t\r";
    size_t first = text.find_first_not_of(blanks);
    if (first == V::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string parse_line(Settings &s, std::string_view line) {
    line = trim(line);
    if (line.empty() || line.front() == '#')
        return "";
    size_t end = line.find_first_of(" \t");
    V value = end == V::npos ? V{} : trim(line.substr(end));
    return set_setting(s, line.substr(0, end), value);
}

std::string variable_of(const Key &key) {
    std::string name = "XF_";
    for (char c : key.name)
        name += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return name;
}

bool is_known(const std::string &name) {
    return !name.starts_with("XF_") || name == "XF_CONFIG" ||
           name == report_variable ||
           std::any_of(std::begin(keys), std::end(keys), [&](const Key &key) {
               return variable_of(key) == name;
           });
}

// What the environment of this process has to say, which is nothing where
// secure_getenv is silent.
std::vector<std::string> variables() {
    std::vector<std::string> names;
    for (char **each = environ; each != nullptr && *each != nullptr; each++) {
        std::string name = *each;
        name.erase(std::min(name.find('='), name.size()));
        if (secure_getenv(name.c_str()) != nullptr)
            names.push_back(std::move(name));
    }
    return names;
}

std::string read_environment(Settings &s, const Environment &environment) {
    for (const Key &key : keys) {
        std::string name = variable_of(key);
        const char *value = environment(name.c_str());
        if (value == nullptr)
            continue;
        std::string error = key.set(s, value);
        if (!error.empty())
            return name.append(": \"").append(value).append("\" ").append(
                error);
    }
    return "";
}

} // namespace

// A file that somebody else could have written is not a configuration.
std::string read_trusted_file(const std::string &path, bool must_exist,
                              std::string &text) {
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd) {
        if (errno == ENOENT && !must_exist)
            return "";
        return path + ": " + std::strerror(errno);
    }
    struct stat st;
    if (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode))
        return path + ": not a regular file";
    if ((st.st_uid != 0 && st.st_uid != geteuid()) || (st.st_mode & 022) != 0)
        return path + ": somebody else may write to it";
    if (!read_whole(fd.get(), largest_file, text))
        return path + ": " + std::strerror(errno);
    return "";
}

std::string wwn_digits(std::string_view text) {
    std::string digits;
    for (size_t i = 0; i < text.size(); i++) {
        if (i % 3 == 2 && text[i] == ':')
            continue;
        if (i % 3 == 2 || !std::isxdigit(static_cast<unsigned char>(text[i])))
            return "";
        digits += static_cast<char>(
            std::tolower(static_cast<unsigned char>(text[i])));
    }
    return text.size() == 23 ? digits : "";
}

std::string set_setting(Settings &s, std::string_view key,
                        std::string_view value) {
    // What comes behind a NUL would be checked by some and used by none.
    if (value.find('\0') != V::npos)
        return std::string(key) + ": a NUL in the value";
    for (const Key &known : keys) {
        if (known.name != key)
            continue;
        std::string error = known.set(s, value);
        if (error.empty())
            return "";
        return std::string(key) + ": \"" + std::string(value) + "\" " + error;
    }
    return "unknown key \"" + std::string(key) + "\"";
}

std::string parse_settings(Settings &s, std::string_view text) {
    for (int number = 1; !text.empty(); number++) {
        size_t end = text.find('\n');
        std::string error = parse_line(s, text.substr(0, end));
        if (!error.empty())
            return "line " + std::to_string(number) + ": " + error;
        text.remove_prefix(end == V::npos ? text.size() : end + 1);
    }
    return "";
}

std::string load_settings(Settings &s, const Environment &environment,
                          const std::vector<std::string> &names) {
    for (const std::string &name : names)
        if (!is_known(name))
            return "unknown variable " + name;
    const char *named = environment("XF_CONFIG");
    std::string path = named != nullptr ? named : default_file;
    std::string text;
    std::string error = read_trusted_file(path, named != nullptr, text);
    if (!error.empty())
        return error;
    error = parse_settings(s, text);
    if (!error.empty())
        return path + ", " + error;
    return read_environment(s, environment);
}

const Settings *settings() {
    // Never destroyed: sockets are removed at the very end of the process.
    static Settings &loaded = *new Settings;
    static const bool good = [] {
        std::string error = load_settings(loaded, secure_getenv, variables());
        if (!error.empty())
            log_message(LOG_ERR, "bad configuration: %s", error.c_str());
        return error.empty();
    }();
    return good ? &loaded : nullptr;
}

} // namespace xfhost
