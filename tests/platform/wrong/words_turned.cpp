// A transport that takes a payload for words and turns them on their way.
#include "platform/ipcbus.h"

#include <cstring>
#include <vector>

#include "right.h"

int ipcbus_send(ipcbus_handle handle, const struct ipcbus_address *destination,
                uint32_t opcode, const void *payload, uint32_t length,
                uint32_t flags, uint32_t priority,
                struct ipcbus_message **request) {
    const auto octets = static_cast<const uint8_t *>(payload);
    std::vector<uint8_t> turned(octets, octets + length);
    for (size_t i = 0; i + sizeof(uint32_t) <= turned.size();
         i += sizeof(uint32_t)) {
        uint32_t word;
        memcpy(&word, &turned[i], sizeof word);
        word = __builtin_bswap32(word);
        memcpy(&turned[i], &word, sizeof word);
    }
    return RIGHT(ipcbus_send)(handle, destination, opcode, turned.data(),
                              length, flags, priority, request);
}
