#include "host/procd/protocol.h"

#include <cstring>

#include "host/ipcbus/wire.h"

namespace xfhost {
namespace {

constexpr size_t request_size = 140;
constexpr uint32_t action_running_to_startup = 26;
constexpr size_t text_size = 32;

std::string text_at(const std::vector<uint8_t> &payload, size_t offset) {
    auto start = reinterpret_cast<const char *>(payload.data() + offset);
    return {start, strnlen(start, text_size)};
}

} // namespace

std::optional<SaveRequest>
parse_save_request(const std::vector<uint8_t> &payload) {
    if (payload.size() != request_size ||
        get_be32(payload.data()) != action_running_to_startup)
        return std::nullopt;
    SaveRequest request;
    request.fabric = get_be32(payload.data() + 28) != 0;
    request.all = get_be32(payload.data() + 40) != 0;
    request.user = text_at(payload, 44);
    request.session = text_at(payload, 76);
    return request;
}

std::vector<uint8_t> save_end_payload(uint32_t result, uint32_t token) {
    std::vector<uint8_t> payload(8);
    put_be32(payload.data(), result);
    put_be32(payload.data() + 4, token);
    return payload;
}

} // namespace xfhost
