// What is copied and where to, as a person writes it: running, startup, fabric,
// all, or the URL of a file on a server.
#ifndef XFCOPY_LOCATION_H
#define XFCOPY_LOCATION_H

#include <string>
#include <string_view>

namespace xfcopy {

// Numbers of xfCopySourceFileType and xfCopyDestFileType.
enum class FileType { network = 1, startup = 3, running = 4, fabric = 6, all };

// Numbers of xfCopyProtocol.
enum class Protocol { tftp = 1, ftp = 2, rcp = 3, scp = 4, sftp = 5 };

// The sizes that the copy table has room for, in octets.
constexpr size_t most_name_octets = 128;
constexpr size_t most_user_octets = 41;
constexpr size_t most_vrf_octets = 32;

// `host`, `user` and `path` are those of a file on a server, decoded. The path
// is the name that the server gets: relative to the login directory, or
// absolute.
struct Location {
    FileType type = FileType::network;
    Protocol protocol = Protocol::tftp;
    std::string host;
    std::string user;
    std::string path;

    bool operator==(const Location &) const = default;
};

// Takes a word or a URL. Returns what is wrong with it, empty if it was taken.
std::string parse_location(std::string_view word, Location &location);

// Why the system does not copy the one to the other; empty if it does.
std::string pair_problem(const Location &source, const Location &destination);

// The word or the URL that `parse_location` takes for it.
std::string location_text(const Location &location);

const char *protocol_name(Protocol protocol);

// An address as the copy table has it: 4 or 16 octets.
struct Address {
    int type = 0; // 1: IPv4, 2: IPv6
    std::string octets;
};

// The address of a host: the literal one, or the first that this machine knows
// for its name. Returns what is wrong, empty if there is one.
std::string find_address(const std::string &host, Address &address);

// The address as text; empty if it is none.
std::string address_text(const Address &address);

} // namespace xfcopy

#endif
