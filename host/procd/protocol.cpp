#include "host/procd/protocol.h"

#include <cstring>

#include "host/ipcbus/wire.h"
#include "platform/messages.h"

namespace xfhost {
namespace {

std::string text_at(const std::vector<uint8_t> &payload, size_t offset) {
    auto start = reinterpret_cast<const char *>(payload.data() + offset);
    return {start, strnlen(start, SAVE_REQUEST_TEXT_SIZE)};
}

} // namespace

std::optional<SaveRequest>
parse_save_request(const std::vector<uint8_t> &payload) {
    if (payload.size() != SAVE_REQUEST_SIZE ||
        get_be32(payload.data() + SAVE_REQUEST_ACTION) !=
            SAVE_ACTION_RUNNING_TO_STARTUP)
        return std::nullopt;
    SaveRequest request;
    request.fabric = get_be32(payload.data() + SAVE_REQUEST_FABRIC) != 0;
    request.all = get_be32(payload.data() + SAVE_REQUEST_ALL) != 0;
    request.user = text_at(payload, SAVE_REQUEST_USER);
    request.session = text_at(payload, SAVE_REQUEST_SESSION);
    return request;
}

std::vector<uint8_t> save_end_payload(uint32_t result, uint32_t token) {
    std::vector<uint8_t> payload(SAVE_END_SIZE);
    put_be32(payload.data() + SAVE_END_RESULT, result);
    put_be32(payload.data() + SAVE_END_TOKEN, token);
    return payload;
}

} // namespace xfhost
