#include "host/agent/event_loop.h"

#include <cerrno>
#include <map>
#include <new>

#include <sys/epoll.h>
#include <unistd.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/library/fd_event_manager.h>

#include "host/base/files.h"
#include "host/base/log.h"

namespace xfhost {
namespace {

Fd set;
std::map<int, std::function<void()>> handlers;

void dispatch(int, void *) {
    struct epoll_event events[16];
    int count = epoll_wait(set.get(), events, 16, 0);
    for (int i = 0; i < count; i++) {
        // One handler may have ended the watch of another.
        auto found = handlers.find(events[i].data.fd);
        if (found == handlers.end())
            continue;
        try {
            auto handler = found->second;
            handler();
        } catch (const std::bad_alloc &) {
            log_message(LOG_ERR, "an event is lost: no memory");
        }
    }
}

bool open_set() {
    if (set)
        return true;
    set = Fd(epoll_create1(EPOLL_CLOEXEC));
    if (set &&
        register_readfd(set.get(), dispatch, nullptr) == FD_REGISTERED_OK)
        return true;
    set.reset();
    return false;
}

} // namespace

bool loop_watch(int fd, std::function<void()> handler) {
    struct epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = fd;
    try {
        handlers[fd] = std::move(handler);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return false;
    }
    if (open_set() && epoll_ctl(set.get(), EPOLL_CTL_ADD, fd, &event) == 0)
        return true;
    handlers.erase(fd);
    return false;
}

void loop_unwatch(int fd) {
    // Explicitly: a child may hold the descriptor open.
    epoll_ctl(set.get(), EPOLL_CTL_DEL, fd, nullptr);
    handlers.erase(fd);
}

void loop_abandon() {
    set.reset();
    handlers.clear();
}

} // namespace xfhost
