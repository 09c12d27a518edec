#include "host/ipcbus/wire.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace xfhost {
namespace {

constexpr uint32_t magic = 0x58464231; // "XFB1"

} // namespace

void put_be32(uint8_t *octets, uint32_t value) {
    octets[0] = static_cast<uint8_t>(value >> 24);
    octets[1] = static_cast<uint8_t>(value >> 16);
    octets[2] = static_cast<uint8_t>(value >> 8);
    octets[3] = static_cast<uint8_t>(value);
}

uint32_t get_be32(const uint8_t *octets) {
    return static_cast<uint32_t>(octets[0]) << 24 |
           static_cast<uint32_t>(octets[1]) << 16 |
           static_cast<uint32_t>(octets[2]) << 8 | octets[3];
}

bool wire_name_valid(const std::string &name) {
    if (name.empty() || name.size() >= wire_name_size || name.front() == '.')
        return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '.' ||
               c == '-';
    });
}

std::vector<uint8_t> wire_encode(const WireMessage &message) {
    if (message.payload.size() > wire_largest_payload ||
        message.sender.size() >= wire_name_size)
        return {};
    std::vector<uint8_t> octets(wire_header_size);
    put_be32(&octets[0], magic);
    put_be32(&octets[4], message.opcode);
    put_be32(&octets[8], message.token);
    put_be32(&octets[12], static_cast<uint32_t>(message.kind));
    std::copy(message.sender.begin(), message.sender.end(),
              octets.begin() + 16);
    octets.insert(octets.end(), message.payload.begin(), message.payload.end());
    return octets;
}

std::optional<WireMessage> wire_decode(const uint8_t *octets, size_t length) {
    if (length < wire_header_size ||
        length > wire_header_size + wire_largest_payload ||
        get_be32(octets) != magic || get_be32(octets + 12) > 2)
        return std::nullopt;
    const char *name = reinterpret_cast<const char *>(octets + 16);
    WireMessage message;
    message.opcode = get_be32(octets + 4);
    message.token = get_be32(octets + 8);
    message.kind = static_cast<WireKind>(get_be32(octets + 12));
    message.sender.assign(name, strnlen(name, wire_name_size));
    if (!wire_name_valid(message.sender) ||
        (message.token == 0) != (message.kind == WireKind::one_way))
        return std::nullopt;
    message.payload.assign(octets + wire_header_size, octets + length);
    return message;
}

} // namespace xfhost
