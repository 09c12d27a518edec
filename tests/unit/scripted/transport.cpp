#include "scripted/note.h"

using namespace scripted;

extern "C" {

ipcbus_handle ipcbus_response_q;

int ipcbus_bind(int kind, int sap, ipcbus_handle *handle, const char *name) {
    Platform &p = platform();

    called(__func__, print("%s(%d, %d, %s)", __func__, kind, sap,
                           text_or_null(name).c_str()))
        .strings = {copy_or_empty(name)};
    hook(__func__);
    if (no_memory(__func__))
        return -1;
    const int result = p.bind_results.take();
    if (result < 0)
        return result;
    const std::string queue = "handle" + std::to_string(p.queues.size() + 1);
    p.queues.push_back(
        std::make_unique<ipcbus_queue>(ipcbus_queue{queue, kind, sap, 0}));
    *handle = p.queues.back().get();
    return result;
}

int ipcbus_unbind(ipcbus_handle handle, uint32_t flags) {
    called(__func__, print("%s(%s, %u)", __func__, name_of(handle), flags));
    EXPECT_NE(nullptr, handle);
    EXPECT_NE(ipcbus_response_q, handle);
    if (handle != nullptr) {
        EXPECT_EQ(1, ++handle->unbound) << handle->name << " given back twice";
    }
    return platform().unbind_results.take();
}

int ipcbus_send(ipcbus_handle handle, const struct ipcbus_address *destination,
                uint32_t opcode, const void *payload, uint32_t length,
                uint32_t flags, uint32_t priority,
                struct ipcbus_message **request) {
    Platform &p = platform();
    const std::string octets =
        payload == nullptr
            ? std::string()
            : std::string(static_cast<const char *>(payload), length);

    called(__func__, print("%s(%s, {0x%08x, %u}, %u, %u octets, %u, %u, %s)",
                           __func__, name_of(handle), destination->node,
                           destination->sap, opcode, length, flags, priority,
                           request == nullptr ? "NULL" : "request"))
        .octets = octets;
    if (handle != nullptr) {
        EXPECT_EQ(0, handle->unbound) << handle->name << " was given back";
    }
    hook(__func__);
    if (request != nullptr)
        *request = nullptr;
    if (no_memory(__func__))
        return -1;
    const int result = p.send_results.take();
    if (request == nullptr)
        return result;
    if (result < 0)
        return result;
    *request = p.message(opcode, octets);
    (*request)->name = "request" + std::to_string(p.messages.size());
    (*request)->token = p.next_token++;
    return result;
}

int ipcbus_recv(ipcbus_handle handle, struct ipcbus_message **message,
                const struct ipcbus_recv_options *options) {
    Platform &p = platform();

    called(__func__, print("%s(%s, {%u, %u})", __func__, name_of(handle),
                           options->mode, options->timeout));
    hook(__func__);
    Received received = p.receive_otherwise;
    if (!p.to_receive.empty()) {
        received = p.to_receive.front();
        p.to_receive.pop_front();
    }
    if (received.result >= 0)
        *message = received.message;
    else
        errno = received.error;
    return received.result;
}

void ipcbus_drop(ipcbus_handle handle, struct ipcbus_message *message) {
    called(__func__,
           print("%s(%s, %s)", __func__, name_of(handle), name_of(message)));
    if (message != nullptr) {
        EXPECT_EQ(1, ++message->dropped) << message->name << " dropped twice";
    }
}

static void expect_alive(const struct ipcbus_message *message) {
    if (message != nullptr) {
        EXPECT_EQ(0, message->dropped) << message->name << " was dropped";
    }
}

uint32_t ipcbus_opc_get(const struct ipcbus_message *message) {
    asked(__func__, print("%s(%s)", __func__, name_of(message)));
    expect_alive(message);
    return message->opcode;
}

const void *ipcbus_payload_get(const struct ipcbus_message *message) {
    asked(__func__, print("%s(%s)", __func__, name_of(message)));
    expect_alive(message);
    if (!message->payload.has_value())
        return nullptr;
    /* At least 16 octets can be read, and no more than promised. */
    static std::unique_ptr<char[]> octets;
    const size_t size = std::max<size_t>(16, message->payload->size());
    octets = std::make_unique<char[]>(size);
    message->payload->copy(octets.get(), message->payload->size());
    return octets.get();
}

uint32_t ipcbus_rr_token_get(const struct ipcbus_message *request) {
    asked(__func__, print("%s(%s)", __func__, name_of(request)));
    expect_alive(request);
    return request == nullptr ? 0 : request->token;
}

} // extern "C"
