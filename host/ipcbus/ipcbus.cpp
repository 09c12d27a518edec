// ipcbus on Unix datagram sockets in the run directory: "sap.28" is access
// point 28, "q.<pid>.<n>" a handle on any free one. Only the same user and root
// are heard. Paths go through the directory's descriptor, so that a run
// directory may have a longer name than a socket address holds.
#include "platform/ipcbus.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "host/base/clock.h"
#include "host/base/files.h"
#include "host/base/settings.h"
#include "host/ipcbus/queue.h"
#include "host/ipcbus/wire.h"

using namespace xfhost;

namespace {

constexpr size_t readable_octets = 16; // of every payload

uint32_t fresh_token() {
    static uint32_t next = 0;
    static pid_t owner = 0;
    if (owner != getpid()) { // a child must not reuse its parent's tokens
        owner = getpid();
        if (getrandom(&next, sizeof next, GRND_NONBLOCK) != sizeof next)
            next = static_cast<uint32_t>(owner) << 16;
    }
    // cppcheck-suppress knownConditionTrueFalse; getrandom has set it
    if (++next == 0)
        next = 1;
    return next;
}

std::string sap_name(int sap) {
    return "sap." + std::to_string(sap);
}

std::string free_name() {
    static int count = 0;
    return "q." + std::to_string(getpid()) + "." + std::to_string(++count);
}

// False with errno set.
bool socket_address(int directory, const char *name,
                    struct sockaddr_un &address) {
    address = {};
    address.sun_family = AF_UNIX;
    int length = snprintf(address.sun_path, sizeof address.sun_path,
                          "/proc/self/fd/%d/%s", directory, name);
    bool fits =
        length > 0 && static_cast<size_t>(length) < sizeof address.sun_path;
    if (!fits)
        errno = ENAMETOOLONG;
    return fits;
}

// An access point is taken while its lock is held; a socket without a holder
// was left by a process that died. The lock file holds the holder's process id.
bool take_access_point(ipcbus_queue &queue, int directory) {
    queue.lock = lock_file(directory, (queue.name + ".lock").c_str(), false);
    if (!queue.lock) {
        if (errno == EWOULDBLOCK)
            errno = EADDRINUSE;
        return false;
    }
    unlinkat(directory, queue.name.c_str(), 0);
    // Before the socket is there: who can send to us can tell who we are.
    std::string holder = std::to_string(getpid()) + "\n";
    return ftruncate(queue.lock.get(), 0) == 0 &&
           write_whole(queue.lock.get(), holder);
}

// A new socket under the name of the queue, in the place of whatever is there.
bool make_socket(ipcbus_queue &queue, int directory) {
    unlinkat(directory, queue.name.c_str(), 0);
    queue.socket =
        Fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    struct sockaddr_un address;
    int on = 1;
    mode_t mask = umask(0177);
    bool bound =
        queue.socket &&
        setsockopt(queue.socket.get(), SOL_SOCKET, SO_PASSCRED, &on,
                   sizeof on) == 0 &&
        socket_address(directory, queue.name.c_str(), address) &&
        bind(queue.socket.get(), reinterpret_cast<struct sockaddr *>(&address),
             sizeof address) == 0;
    umask(mask);
    if (bound)
        adopt_at(directory, queue.name.c_str());
    queue.owner = getpid();
    return bound;
}

// False with errno set.
bool ready(ipcbus_handle queue) {
    if (queue != nullptr)
        return queue->ready();
    errno = EBADF;
    return false;
}

int send_to(const ipcbus_queue *queue, const std::string &name,
            const WireMessage &message) {
    std::vector<uint8_t> octets = wire_encode(message);
    if (octets.empty()) {
        errno = EMSGSIZE;
        return -1;
    }
    Fd directory = open_run_directory();
    struct sockaddr_un address;
    if (!directory || !socket_address(directory.get(), name.c_str(), address))
        return -1;
    ssize_t sent =
        sendto(queue->socket.get(), octets.data(), octets.size(),
               MSG_DONTWAIT | MSG_NOSIGNAL,
               reinterpret_cast<struct sockaddr *>(&address), sizeof address);
    return sent < 0 ? -1 : 0;
}

ipcbus_message *new_message(WireMessage &&wire, pid_t sender) {
    auto message = std::make_unique<ipcbus_message>();
    message->wire = std::move(wire);
    message->sender_pid = sender;
    message->padded = message->wire.payload;
    if (!message->padded.empty() && message->padded.size() < readable_octets)
        message->padded.resize(readable_octets);
    return message.release();
}

const struct ucred *credentials(struct msghdr &header) {
    for (struct cmsghdr *part = CMSG_FIRSTHDR(&header); part != nullptr;
         part = CMSG_NXTHDR(&header, part))
        if (part->cmsg_level == SOL_SOCKET &&
            part->cmsg_type == SCM_CREDENTIALS)
            return reinterpret_cast<const struct ucred *>(CMSG_DATA(part));
    return nullptr;
}

// Takes a datagram that was looked at.
void consume(int socket) {
    char octet;
    if (recv(socket, &octet, 1, MSG_DONTWAIT) < 0)
        return;
}

// One datagram: a message, NULL with errno 0 for one that is dropped, NULL
// with errno set if there was none. It stays where it is if there is no memory
// for the message.
ipcbus_message *receive_one(int socket) {
    uint8_t octets[wire_header_size + wire_largest_payload + 1];
    struct iovec vector = {octets, sizeof octets};
    alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(struct ucred))];
    struct msghdr header = {};
    header.msg_iov = &vector;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    ssize_t length =
        recvmsg(socket, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC | MSG_PEEK);
    if (length < 0)
        return nullptr;
    const struct ucred *sender = credentials(header);
    ipcbus_message *message = nullptr;
    if (sender != nullptr && trusted_owner(sender->uid) &&
        (header.msg_flags & MSG_TRUNC) == 0)
        if (auto wire = wire_decode(octets, static_cast<size_t>(length)))
            message = new_message(std::move(*wire), sender->pid);
    consume(socket);
    errno = 0;
    return message;
}

// Waits until the socket can be read; `deadline` -1 is never. 0, or -1 with
// errno set: EPIPE if the peer is gone and has left nothing to read.
int wait_readable(int socket, int peer, int64_t deadline) {
    const int timeout = deadline >= 0 ? ms_until(deadline) : -1;
    struct pollfd watched[] = {{socket, POLLIN, 0}, {peer, POLLIN, 0}};
    int count = poll(watched, 2, timeout);    // a peer of -1 is passed over
    if (count > 0 && watched[0].revents == 0) // it may have spoken before
        count = poll(watched, 1, 0);
    else if (count == 0)
        errno = ETIME;
    if (count == 0 && watched[1].revents != 0)
        errno = EPIPE;
    return count > 0 ? 0 : -1;
}

bool somebody_listens(int directory, const char *name) {
    Fd probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    struct sockaddr_un address;
    if (!probe || !socket_address(directory, name, address))
        return true; // who knows
    return connect(probe.get(), reinterpret_cast<struct sockaddr *>(&address),
                   sizeof address) == 0 ||
           (errno != ENOENT && errno != ECONNREFUSED);
}

// Whether a socket was left by a process that was killed. A name alone may be
// that of a socket which is just being bound; a process alone, that of another
// one with the same id.
bool left_behind(int directory, const char *name) {
    if (strncmp(name, "q.", 2) != 0)
        return false;
    long pid = strtol(name + 2, nullptr, 10);
    return pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH &&
           !somebody_listens(directory, name);
}

WireMessage outgoing(ipcbus_handle queue, uint32_t opcode, const void *payload,
                     size_t length) {
    WireMessage message;
    message.opcode = opcode;
    message.sender = queue->name;
    if (length > 0) {
        auto octets = static_cast<const uint8_t *>(payload);
        message.payload.assign(octets, octets + length);
    }
    return message;
}

} // namespace

bool ipcbus_queue::bind() {
    Fd directory = open_run_directory();
    if (!directory)
        return false;
    name = sap == IPCBUS_SAP_ANY ? free_name() : sap_name(sap);
    if (sap != IPCBUS_SAP_ANY && !take_access_point(*this, directory.get()))
        return false;
    return make_socket(*this, directory.get());
}

bool ipcbus_queue::ready() {
    bool ours = socket && owner == getpid();
    if (!ours)
        errno = EBADF;
    return ours;
}

bool ipcbus_queue::send(const WireMessage &message, uint32_t to) {
    return send_to(this, "sap." + std::to_string(to), message) == 0;
}

ipcbus_message *ipcbus_queue::receive(int64_t deadline) {
    return receive_from(-1, deadline);
}

ipcbus_message *ipcbus_queue::receive_from(int peer, int64_t deadline) {
    for (;;) {
        if (wait_readable(socket.get(), peer, deadline) != 0)
            return nullptr;
        ipcbus_message *message = ipcbus_take(this);
        if (message != nullptr || errno != EAGAIN)
            return message;
    }
}

int ipcbus_bind(int kind, int sap, ipcbus_handle *handle, const char *) {
    *handle = nullptr;
    if ((kind != IPCBUS_KIND_DATAGRAM && kind != IPCBUS_KIND_REQ_RESP) ||
        sap < IPCBUS_SAP_ANY) {
        errno = EINVAL;
        return -1;
    }
    try {
        auto queue = std::make_unique<ipcbus_queue>(kind, sap);
        if (!queue->bind())
            return -1;
        *handle = queue.release();
        return 0;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

int ipcbus_unbind(ipcbus_handle handle, uint32_t) {
    if (handle == nullptr || !handle->can_be_unbound()) {
        errno = EBADF;
        return -1;
    }
    // The name goes first and the lock last: nobody else binds in between.
    if (handle->owner == getpid())
        ipcbus_remove_name(*handle);
    delete handle;
    return 0;
}

int ipcbus_send(ipcbus_handle handle, const struct ipcbus_address *destination,
                uint32_t opcode, const void *payload, uint32_t length, uint32_t,
                uint32_t, struct ipcbus_message **request) {
    if (request != nullptr)
        *request = nullptr;
    if (length > wire_largest_payload) {
        errno = EMSGSIZE;
        return -1;
    }
    if (destination->node != IPCBUS_NODE_LOCAL) {
        errno = EHOSTUNREACH;
        return -1;
    }
    try {
        if (!ready(handle))
            return -1;
        WireMessage message = outgoing(handle, opcode, payload, length);
        if (request != nullptr) {
            message.token = fresh_token();
            message.kind = WireKind::request;
        }
        // Before the message is out: it cannot be taken back.
        std::unique_ptr<ipcbus_message> record;
        if (request != nullptr)
            record.reset(new_message(WireMessage(message), getpid()));
        if (!handle->send(message, destination->sap))
            return -1;
        if (request != nullptr)
            *request = record.release();
        return 0;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

int ipcbus_recv(ipcbus_handle handle, struct ipcbus_message **message,
                const struct ipcbus_recv_options *options) {
    *message = nullptr;
    try {
        if (!ready(handle))
            return -1;
        int64_t deadline = -1;
        if (options != nullptr && options->mode == 1)
            deadline = monotonic_ms() + int64_t{options->timeout} * 1000;
        *message = handle->receive(deadline);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
    return *message != nullptr ? 0 : -1;
}

void ipcbus_drop(ipcbus_handle, struct ipcbus_message *message) {
    delete message;
}

uint32_t ipcbus_opc_get(const struct ipcbus_message *message) {
    return message->wire.opcode;
}

const void *ipcbus_payload_get(const struct ipcbus_message *message) {
    return message->padded.empty() ? nullptr : message->padded.data();
}

uint32_t ipcbus_rr_token_get(const struct ipcbus_message *request) {
    return request == nullptr ? 0 : request->wire.token;
}

namespace xfhost {

pid_t ipcbus_holder(uint32_t sap) {
    Fd directory = open_run_directory();
    if (!directory)
        return 0;
    std::string name = "sap." + std::to_string(sap) + ".lock";
    Fd lock = open_private_file(directory.get(), name.c_str(), O_RDONLY);
    std::string text;
    if (!lock || !read_whole(lock.get(), 32, text))
        return 0;
    return static_cast<pid_t>(strtol(text.c_str(), nullptr, 10));
}

ipcbus_message *ipcbus_take(ipcbus_handle queue) {
    try {
        for (;;) {
            ipcbus_message *message = receive_one(queue->socket.get());
            if (message != nullptr || errno != 0)
                return message;
        }
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

ipcbus_message *ipcbus_make(uint32_t opcode, const void *payload,
                            size_t length) {
    WireMessage wire;
    wire.opcode = opcode;
    auto octets = static_cast<const uint8_t *>(payload);
    wire.payload.assign(octets, octets + length);
    return new_message(std::move(wire), getpid());
}

int ipcbus_respond(ipcbus_handle queue, const ipcbus_message *request,
                   const void *payload, size_t length) {
    if (!ready(queue))
        return -1;
    WireMessage message =
        outgoing(queue, request->wire.opcode, payload, length);
    message.token = request->wire.token;
    message.kind = WireKind::response;
    return send_to(queue, request->wire.sender, message);
}

bool ipcbus_reachable(ipcbus_handle queue) {
    try {
        Fd directory = open_run_directory();
        return !directory ||
               somebody_listens(directory.get(), queue->name.c_str());
    } catch (const std::bad_alloc &) {
        return true;
    }
}

bool ipcbus_rebind(ipcbus_handle queue) {
    try {
        Fd directory = open_run_directory();
        return directory && make_socket(*queue, directory.get());
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return false;
    }
}

// A run directory that is gone by now is not made again for it.
void ipcbus_remove_name(const ipcbus_queue &queue) {
    const Settings *s = settings();
    if (s == nullptr)
        return;
    Fd directory(open(s->run_directory.c_str(),
                      O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (directory)
        unlinkat(directory.get(), queue.name.c_str(), 0);
}

void ipcbus_disown(ipcbus_handle queue) {
    queue->socket.reset();
    queue->lock.reset();
}

void ipcbus_sweep() {
    try {
        Fd directory = open_run_directory();
        if (!directory)
            return;
        DIR *listing = fdopendir(fcntl(directory.get(), F_DUPFD_CLOEXEC, 3));
        if (listing == nullptr)
            return;
        while (const struct dirent *entry = readdir(listing))
            if (left_behind(directory.get(), entry->d_name))
                unlinkat(directory.get(), entry->d_name, 0);
        closedir(listing);
    } catch (const std::bad_alloc &) {
        // The next sweep finds them too.
    }
}

} // namespace xfhost
