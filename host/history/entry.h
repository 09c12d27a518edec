// One copy in the history: what was asked for, and what became of it.
#ifndef HOST_HISTORY_ENTRY_H
#define HOST_HISTORY_ENTRY_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/history/report.h"

namespace xfhost {

// Where a copy stands. Interrupted: its agent ended before it did.
enum class CopyState : uint64_t {
    running = 2,
    successful = 3,
    failed = 4,
    interrupted = 5
};

// A number of 0 and an empty text mean that there is none. Types, protocols and
// causes are those of the copy table. Times are tenths of a second since 1970.
struct HistoryEntry {
    uint64_t number = 0; // in the history, from 1
    uint64_t row = 0;    // the index of the request
    std::string asker;   // who asked for it, as the agent knows him
    std::string vrf;
    uint64_t source = 0;
    uint64_t destination = 0;
    uint64_t protocol = 0;
    uint64_t server_type = 0; // an InetAddressType
    std::string server;       // its octets
    uint64_t port = 0;
    std::string file;
    std::string user; // who logs in to the server
    uint64_t asked = 0;
    uint64_t started = 0;
    uint64_t ended = 0;
    CopyState state = CopyState::running;
    uint64_t cause = 0; // of a failure
    uint64_t token = 0; // of the request to the system manager
    Report report;
};

// The entry as one line without its newline, with a checksum: printable ASCII,
// whatever the texts hold.
std::string print_entry(const HistoryEntry &entry);

// The entry of such a line; nothing if the line is not whole, or says what no
// entry can: every value fits the type of its column.
std::optional<HistoryEntry> parse_entry(std::string_view line);

// Now, in tenths of a second since 1970.
uint64_t tenths_now();

} // namespace xfhost

#endif
