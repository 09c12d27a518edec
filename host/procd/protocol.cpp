#include "host/procd/protocol.h"

#include <cstring>

#include "host/ipcbus/wire.h"

namespace xfhost {
namespace {

constexpr size_t request_size = 140;
constexpr uint32_t action_running_to_startup = 26;
constexpr size_t offset_fabric = 28;
constexpr size_t offset_all = 40;
constexpr size_t offset_user = 44;
constexpr size_t offset_session = 76;
constexpr size_t text_size = 32;
constexpr size_t reserved_size = 32;
static_assert(offset_user + text_size == offset_session);
static_assert(offset_session + text_size + reserved_size == request_size);

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
    request.fabric = get_be32(payload.data() + offset_fabric) != 0;
    request.all = get_be32(payload.data() + offset_all) != 0;
    request.user = text_at(payload, offset_user);
    request.session = text_at(payload, offset_session);
    return request;
}

std::vector<uint8_t> save_end_payload(uint32_t result, uint32_t token) {
    std::vector<uint8_t> payload(8);
    put_be32(payload.data(), result);
    put_be32(payload.data() + 4, token);
    return payload;
}

} // namespace xfhost
