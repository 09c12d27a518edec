// The system manager's calls. A text is made the startup configuration in the
// caller's process, under the lock that the daemon uses too: that works without
// it. Everything else is asked of the daemon.
#include "platform/procd.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "host/base/clock.h"
#include "host/base/files.h"
#include "host/base/log.h"
#include "host/base/settings.h"
#include "host/base/startup_config.h"
#include "host/errors.h"
#include "host/fabric/fabric.h"
#include "host/ipcbus/queue.h"
#include "host/procd/protocol.h"

using namespace xfhost;

namespace {

constexpr int directory_startup = 2;

// What a request and a few signs of life take up until they are read. A system
// manager's socket holds few messages, and an abort has to find room.
constexpr int most_unread = 4096;

int write_startup(const char *path) {
    Fd file(open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    std::string text;
    if (!file || !read_whole(file.get(), largest_config, text)) {
        log_message(LOG_ERR, "%s: %s", path, strerror(errno));
        return static_cast<int>(err_startup_not_read);
    }
    if (keep_startup(text))
        return 0;
    log_message(LOG_ERR, "startup configuration: %s", strerror(errno));
    return static_cast<int>(err_startup_not_kept);
}

std::vector<uint8_t> rpc_payload(uint32_t arg1, uint32_t arg2,
                                 const void *request, uint32_t length) {
    std::vector<uint8_t> payload(8);
    put_be32(&payload[0], arg1);
    put_be32(&payload[4], arg2);
    if (length > 0) {
        auto octets = static_cast<const uint8_t *>(request);
        payload.insert(payload.end(), octets, octets + length);
    }
    return payload;
}

// Late answers to earlier requests may come first. NULL with errno set.
ipcbus_message *await_response(ipcbus_handle queue, uint32_t token,
                               uint32_t limit) {
    int64_t deadline = monotonic_ms() / 1000 + limit;
    for (;;) {
        int64_t left = std::max<int64_t>(deadline - monotonic_ms() / 1000, 0);
        const ipcbus_recv_options options = {1, static_cast<uint32_t>(left)};
        ipcbus_message *message = nullptr;
        int result = ipcbus_recv(queue, &message, &options);
        if (result < 0 && errno == EINTR)
            continue;
        if (result < 0)
            return nullptr;
        if (message->wire.kind == WireKind::response &&
            message->wire.token == token)
            return message;
        ipcbus_drop(queue, message);
    }
}

// What of this process nobody has read yet, in the kernel's octets.
int unread() {
    int octets = 0;
    if (!ipcbus_response_q->socket ||
        ioctl(ipcbus_response_q->socket.get(), SIOCOUTQ, &octets) != 0)
        return 0;
    return octets;
}

// The name of this switch needs no system manager: the failure of a save is
// asked about after its death, too.
void *own_wwn() {
    const Settings *s = settings();
    std::vector<uint8_t> octets =
        s == nullptr ? std::vector<uint8_t>() : wwn_octets(local_wwn(*s));
    void *copy = octets.empty() ? nullptr : calloc(1, octets.size());
    if (copy != nullptr)
        memcpy(copy, octets.data(), octets.size());
    return copy;
}

// NULL with errno set if the answer says nothing.
void *copy_payload(const ipcbus_message &message) {
    errno = ENODATA;
    const std::vector<uint8_t> &payload = message.wire.payload;
    if (payload.empty())
        return nullptr;
    void *copy = calloc(1, std::max<size_t>(payload.size(), 8));
    if (copy != nullptr)
        memcpy(copy, payload.data(), payload.size());
    return copy;
}

// NULL with errno set if there is no answer.
void *ask(uint32_t code, const std::vector<uint8_t> &payload, uint32_t service,
          ipcbus_handle queue, uint32_t limit) {
    const ipcbus_address to = {IPCBUS_NODE_LOCAL, service};
    ipcbus_message *record = nullptr;
    if (ipcbus_send(queue, &to, code, payload.data(),
                    static_cast<uint32_t>(payload.size()), 0, 0, &record) != 0)
        return nullptr;
    ipcbus_message *answer =
        await_response(queue, ipcbus_rr_token_get(record), limit);
    ipcbus_drop(queue, record);
    void *copy = answer == nullptr ? nullptr : copy_payload(*answer);
    ipcbus_drop(queue, answer);
    return copy;
}

} // namespace

const char *procd_cli_dir_get(ipcbus_handle, int which) {
    static std::string directory;
    const Settings *s = settings();
    if (s == nullptr || which != directory_startup)
        return "";
    try {
        directory = s->state_directory + "/startup";
    } catch (const std::bad_alloc &) {
        return "";
    }
    return directory.c_str();
}

int procd_cli_write_ascii_cfg(ipcbus_handle, const char *path) {
    try {
        return write_startup(path);
    } catch (const std::bad_alloc &) {
        return static_cast<int>(err_startup_not_kept);
    }
}

void procd_heartbeat(int state) {
    if (unread() > most_unread)
        return;
    uint8_t payload[4];
    put_be32(payload, static_cast<uint32_t>(state));
    const ipcbus_address procd = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_PROCD};
    // One that is lost does not matter: the next one follows.
    ipcbus_send(ipcbus_response_q, &procd, opcode_heartbeat, payload,
                sizeof payload, 0, 0, nullptr);
}

uint32_t procd_heartbeat_timeout_get(void) {
    return 10000;
}

int rpcq_req_resp(uint32_t code, uint32_t arg1, uint32_t arg2,
                  const void *request, uint32_t request_length,
                  uint32_t service, ipcbus_handle queue, uint32_t limit,
                  void **response) {
    *response = nullptr;
    try {
        *response = ask(code, rpc_payload(arg1, arg2, request, request_length),
                        service, queue, limit);
        if (*response == nullptr && code == PROCD_RPC_SWITCH_WWN)
            *response = own_wwn();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
    return *response != nullptr ? 0 : -1;
}
