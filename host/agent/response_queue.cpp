#include "host/agent/response_queue.h"

#include <unistd.h>

#include "host/agent/save_watch.h"

using namespace xfhost;

namespace {

__attribute__((destructor)) void remove_socket() {
    const ResponseQueue &queue = response_queue();
    if (queue.socket && queue.owner == getpid())
        ipcbus_remove_name(queue);
}

} // namespace

namespace xfhost {

bool ResponseQueue::ready() {
    if (socket && owner == getpid())
        return true;
    abandon();
    if (bind())
        return true;
    socket.reset();
    return false;
}

bool ResponseQueue::send(const WireMessage &message, uint32_t to) {
    if (message.kind == WireKind::request && !ipcbus_reachable(this) &&
        !ipcbus_rebind(this))
        return false;
    if (!save_watch_permits(message, to) || !ipcbus_queue::send(message, to))
        return false;
    save_watch_sent(message, to);
    return true;
}

ipcbus_message *ResponseQueue::receive(int64_t deadline) {
    for (;;) {
        ipcbus_message *message = receive_from(answerer_.get(), deadline);
        if (message == nullptr || save_watch_awaits(message->wire))
            return message;
        ipcbus_drop(this, message);
    }
}

void ResponseQueue::abandon() {
    answerer_.reset();
    ipcbus_disown(this);
}

// Never destroyed, so that its socket can be removed at the very end.
ResponseQueue &response_queue() {
    static ResponseQueue &only = *new ResponseQueue;
    return only;
}

} // namespace xfhost

ipcbus_handle ipcbus_response_q = &response_queue();
