// What the system manager is asked and tells, as platform/messages.h lays it
// out, and the messages that only this platform has.
#ifndef HOST_PROCD_PROTOCOL_H
#define HOST_PROCD_PROTOCOL_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace xfhost {

// Of this platform alone, both one-way, to the system manager from whoever
// calls procd_heartbeat (one word, the state) or qsh_notify_cfg_update (its
// three numbers, a word each).
constexpr uint32_t opcode_heartbeat = 1370;
constexpr uint32_t opcode_config_event = 1371;

struct SaveRequest {
    bool fabric = false; // every switch of the fabric
    bool all = false;    // every startup configuration of this switch
    std::string user, session;
};

// The payload of a save request; nothing if it asks for anything else than a
// save of the running configuration.
std::optional<SaveRequest>
parse_save_request(const std::vector<uint8_t> &payload);

// The payload of the end of a save: how the save that the token names ended.
std::vector<uint8_t> save_end_payload(uint32_t result, uint32_t token);

} // namespace xfhost

#endif
