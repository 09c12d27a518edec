#include "xfcopy/location.h"

#include <algorithm>
#include <memory>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace xfcopy {

namespace {

struct Word {
    const char *text;
    FileType type;
};
constexpr Word words[] = {{"running", FileType::running},
                          {"startup", FileType::startup},
                          {"fabric", FileType::fabric},
                          {"all", FileType::all}};

struct Scheme {
    const char *text;
    Protocol protocol;
};
constexpr Scheme schemes[] = {{"tftp", Protocol::tftp},
                              {"ftp", Protocol::ftp},
                              {"scp", Protocol::scp},
                              {"sftp", Protocol::sftp}};

int digit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Undoes the percent signs; returns what is wrong. What has no place in a name
// on any server is told by its number, not printed.
std::string decode(std::string_view text, const char *what, std::string &to) {
    to.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            const int high = i + 1 < text.size() ? digit(text[i + 1]) : -1;
            const int low = i + 2 < text.size() ? digit(text[i + 2]) : -1;
            if (high < 0 || low < 0)
                return std::string("a % in the ") + what +
                       " is not followed by two hexadecimal digits (a "
                       "percent sign itself is %25)";
            c = static_cast<char>(high * 16 + low);
            i += 2;
        }
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            return std::string("the ") + what + " has a control character";
        to += c;
    }
    return "";
}

// ;type=i and ;mode=octet say what is done anyway.
std::string strip_mode(Protocol protocol, std::string_view &path) {
    if (protocol != Protocol::ftp && protocol != Protocol::tftp)
        return "";
    const std::string_view key =
        protocol == Protocol::ftp ? ";type=" : ";mode=";
    const std::string_view binary = protocol == Protocol::ftp ? "i" : "octet";
    const size_t found = path.rfind(key);
    if (found == std::string_view::npos)
        return "";
    if (path.substr(found + key.size()) != binary)
        return "files are transferred as they are: only " + std::string(key) +
               std::string(binary) + " can be asked for";
    path = path.substr(0, found);
    return "";
}

// The path behind the slash that ends the host. As curl has it: relative to
// the login directory with FTP and TFTP unless another slash follows; absolute
// with SFTP and SCP unless it begins with ~/.
std::string take_path(std::string_view path, Location &location) {
    std::string problem = strip_mode(location.protocol, path);
    if (!problem.empty())
        return problem;
    if (location.protocol == Protocol::sftp ||
        location.protocol == Protocol::scp) {
        if (path.starts_with("/~/"))
            path.remove_prefix(3);
    } else if (!path.empty()) {
        path.remove_prefix(1);
    }
    problem = decode(path, "path", location.path);
    if (!problem.empty())
        return problem;
    const std::string name = location.path.substr(location.path.rfind('/') + 1);
    if (name.empty() || name == "." || name == "..")
        return "it names no file";
    if (location.path.size() > most_name_octets)
        return "the file name has more than 128 octets";
    return "";
}

std::string take_user(std::string_view login, Location &location) {
    if (login.find(':') != std::string_view::npos)
        return "a password has no place on a command line: leave it out, and "
               "it is asked for, or use --password-file, --password-fd or "
               "XFCOPY_PASSWORD";
    if (location.protocol == Protocol::tftp)
        return "TFTP knows no users";
    std::string problem = decode(login, "user name", location.user);
    if (!problem.empty())
        return problem;
    if (location.user.empty())
        return "the user name is empty";
    if (location.user.size() > most_user_octets)
        return "the user name has more than 41 octets";
    return "";
}

// Takes the brackets off an IPv6 address; `port` is what stands behind them.
std::string take_brackets(std::string_view &host, std::string_view &port) {
    const size_t end = host.find(']');
    if (end == std::string_view::npos)
        return "the ] behind the address is missing";
    port = host.substr(end + 1);
    host = host.substr(1, end - 1);
    if (host.find('%') != std::string_view::npos)
        return "the agent's table has no room for the zone of an address";
    in6_addr unused;
    if (inet_pton(AF_INET6, std::string(host).c_str(), &unused) != 1)
        return "what stands in the brackets is no IPv6 address";
    if (!port.empty() && port[0] != ':')
        return "something stands behind the ]";
    return "";
}

std::string take_host(std::string_view host, Location &location) {
    std::string problem;
    std::string_view port;
    if (host.starts_with("[")) {
        problem = take_brackets(host, port);
    } else if (const size_t colon = host.find(':');
               colon != std::string_view::npos) {
        port = host.substr(colon);
        host = host.substr(0, colon);
        if (port.find(':', 1) != std::string_view::npos)
            problem = "an IPv6 address has to stand in brackets";
    }
    if (problem.empty() && !port.empty())
        problem = "the agent's table has no room for a port: the server's "
                  "port is a setting of the switch";
    if (problem.empty())
        problem = decode(host, "server", location.host);
    if (problem.empty() && location.host.empty())
        problem = "it names no server";
    return problem;
}

std::string take_scheme(std::string_view scheme, Location &location) {
    std::string lower(scheme);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    });
    for (const Scheme &each : schemes)
        if (lower == each.text) {
            location.protocol = each.protocol;
            return "";
        }
    if (lower == "rcp")
        return "agents refuse rcp: use scp or sftp";
    return "only tftp, ftp, scp and sftp can be used";
}

std::string check_login(const Location &location) {
    if (location.user.empty() && (location.protocol == Protocol::scp ||
                                  location.protocol == Protocol::sftp))
        return std::string("the user is missing: ") +
               protocol_name(location.protocol) + "://USER@SERVER/FILE";
    return "";
}

std::string parse_url(std::string_view scheme, std::string_view rest,
                      Location &location) {
    std::string problem = take_scheme(scheme, location);
    if (!problem.empty())
        return problem;
    if (rest.find_first_of("?#") != std::string_view::npos)
        return "? and # have a meaning in a URL: write %3F or %23";
    const size_t slash = std::min(rest.find('/'), rest.size());
    std::string_view host = rest.substr(0, slash);
    const size_t at = host.rfind('@');
    if (at != std::string_view::npos) {
        problem = take_user(host.substr(0, at), location);
        host.remove_prefix(at + 1);
    }
    if (problem.empty())
        problem = take_host(host, location);
    if (problem.empty())
        problem = take_path(rest.substr(slash), location);
    if (!problem.empty())
        return problem;
    if (location.protocol == Protocol::ftp && location.user.empty())
        location.user = "anonymous";
    return check_login(location);
}

bool is_plain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
           c == '~';
}

std::string encode(std::string_view text, char also) {
    static const char digits[] = "0123456789ABCDEF";
    std::string to;
    for (const char c : text) {
        const unsigned octet = static_cast<unsigned char>(c);
        if (is_plain(c) || c == also)
            to += c;
        else
            to += {'%', digits[octet >> 4], digits[octet & 15]};
    }
    return to;
}

// What stands between the host and the path, which begins with a slash if it
// is absolute.
std::string before_path(const Location &location) {
    if (location.protocol != Protocol::sftp &&
        location.protocol != Protocol::scp)
        return "/";
    return location.path.starts_with("/") ? "" : "/~/";
}

std::string encoded_path(const Location &location) {
    // An absolute path that looks like a relative one.
    if (location.path.starts_with("/~/") && before_path(location).empty())
        return "/%7E" + encode(location.path.substr(2), '/');
    return encode(location.path, '/');
}

const Address *address_of(const sockaddr *from, Address &to) {
    if (from->sa_family == AF_INET) {
        const auto *v4 = reinterpret_cast<const sockaddr_in *>(from);
        to = {1, std::string(reinterpret_cast<const char *>(&v4->sin_addr), 4)};
        return &to;
    }
    const auto *v6 = reinterpret_cast<const sockaddr_in6 *>(from);
    to = {2, std::string(reinterpret_cast<const char *>(&v6->sin6_addr), 16)};
    return &to;
}

} // namespace

const char *protocol_name(Protocol protocol) {
    for (const Scheme &each : schemes)
        if (each.protocol == protocol)
            return each.text;
    return protocol == Protocol::rcp ? "rcp" : "unknown";
}

std::string parse_location(std::string_view word, Location &location) {
    location = {};
    for (const Word &each : words)
        if (word == each.text) {
            location.type = each.type;
            return "";
        }
    const size_t colon = word.find("://");
    if (colon == std::string_view::npos)
        return "it is none of running, startup, fabric, all and no URL such "
               "as tftp://192.0.2.1/switch.cfg";
    return parse_url(word.substr(0, colon), word.substr(colon + 3), location);
}

std::string pair_problem(const Location &source, const Location &destination) {
    const FileType from = source.type;
    const FileType to = destination.type;
    if (from == FileType::network && to == FileType::network)
        return "one of the two has to be on the switch";
    if (from == to)
        return "source and destination are the same";
    if (from == FileType::fabric || from == FileType::all)
        return "fabric and all can only be copied to";
    if (from == FileType::network && to != FileType::running)
        return "a file from a server can only be copied to running: do that, "
               "then copy running to startup";
    if (from == FileType::startup && to != FileType::running &&
        to != FileType::network)
        return "only running can be copied to fabric and all";
    return "";
}

std::string location_text(const Location &location) {
    for (const Word &each : words)
        if (location.type == each.type)
            return each.text;
    if (location.type != FileType::network)
        return "file type " + std::to_string(static_cast<int>(location.type));
    std::string text = std::string(protocol_name(location.protocol)) + "://";
    if (!location.user.empty())
        text += encode(location.user, '-') + "@";
    const bool six = location.host.find(':') != std::string::npos;
    text += six ? "[" + location.host + "]" : encode(location.host, '-');
    return text + before_path(location) + encoded_path(location);
}

std::string find_address(const std::string &host, Address &address) {
    addrinfo wanted = {};
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(host.c_str(), nullptr, &wanted, &found);
    if (error != 0)
        return std::string("no address is known for this name: ") +
               gai_strerror(error);
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owned(
        found, freeaddrinfo);
    for (const addrinfo *each = found; each != nullptr; each = each->ai_next)
        if (each->ai_family == AF_INET || each->ai_family == AF_INET6) {
            address_of(each->ai_addr, address);
            return "";
        }
    return "it has no address of IPv4 or IPv6";
}

std::string address_text(const Address &address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address.type == 1 && address.octets.size() >= 4)
        inet_ntop(AF_INET, address.octets.data(), text, sizeof(text));
    if (address.type == 2 && address.octets.size() >= 16)
        inet_ntop(AF_INET6, address.octets.data(), text, sizeof(text));
    return text;
}

} // namespace xfcopy
