// A message on the wire: one datagram of a fixed header, big-endian, and the
// payload.
//
//   0  4  magic "XFB1"
//   4  4  opcode
//   8  4  token of the request, 0 for a one-way message
//  12  4  kind: 0 one-way, 1 request, 2 response
//  16 32  name of the sender's socket in the run directory, NUL-filled
#ifndef HOST_IPCBUS_WIRE_H
#define HOST_IPCBUS_WIRE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace xfhost {

constexpr size_t wire_name_size = 32;
constexpr size_t wire_header_size = 16 + wire_name_size;
static_assert(wire_header_size == 48);
constexpr size_t wire_largest_payload = 8192;

enum class WireKind : uint32_t { one_way = 0, request = 1, response = 2 };

struct WireMessage {
    uint32_t opcode = 0;
    uint32_t token = 0;
    WireKind kind = WireKind::one_way;
    std::string sender;           // name of the socket to answer to
    std::vector<uint8_t> payload; // at most wire_largest_payload octets
};

void put_be32(uint8_t *octets, uint32_t value);
uint32_t get_be32(const uint8_t *octets);

// The datagram of a message; empty if the message is too large.
std::vector<uint8_t> wire_encode(const WireMessage &message);

// The message of a datagram; nothing if it is malformed.
std::optional<WireMessage> wire_decode(const uint8_t *octets, size_t length);

// A name that can stand in the run directory: letters, digits, dots, hyphens;
// no path.
bool wire_name_valid(const std::string &name);

} // namespace xfhost

#endif
