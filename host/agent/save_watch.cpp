#include "host/agent/save_watch.h"

#include <cerrno>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "host/agent/agent.h"
#include "host/agent/event_loop.h"
#include "host/agent/history.h"
#include "host/agent/notifications.h"
#include "host/agent/response_queue.h"
#include "host/base/log.h"
#include "host/base/settings.h"
#include "host/errors.h"
#include "host/fabric/fabric.h"
#include "host/fabric/results.h"
#include "host/ipcbus/queue.h"
#include "host/procd/protocol.h"
#include "platform/messages.h"

namespace xfhost {
namespace {

bool started = false; // in an agent: nothing is watched elsewhere
uint32_t token = 0;   // of the save that is waited for; 0: none
bool fabric = false;  // whether it is one in the fabric
Fd manager;           // readable once the system manager has ended
unsigned alarm_id = 0;
unsigned keep_id = 0;

constexpr unsigned keep_seconds = 5;

// Not fork-safe by itself: what a copy process forgets is only its own.
void forget() {
    if (manager)
        loop_unwatch(manager.get());
    manager.reset();
    response_queue().wait_for(Fd());
    if (alarm_id != 0)
        snmp_alarm_unregister(alarm_id);
    alarm_id = 0;
    if (keep_id != 0)
        snmp_alarm_unregister(keep_id);
    keep_id = 0;
    token = 0;
}

// A save that never began has left no results: each switch gets one that says
// so.
void explain_to_fabric() {
    std::vector<FabricResult> results;
    std::vector<FabricSwitch> switches;
    const Settings *s = settings();
    if (!load_results(results) || !results.empty() || s == nullptr ||
        !load_fabric(*s, switches).empty())
        return;
    for (const FabricSwitch &each : switches)
        results.push_back({each.wwn, each.local, true, each.address,
                           "The system manager ended before it began to "
                           "save."});
    if (!store_results(results))
        log_message(LOG_ERR, "fabric results: %s", strerror(errno));
}

void try_to_explain() {
    try {
        explain_to_fabric();
    } catch (const std::bad_alloc &) {
        log_message(LOG_ERR, "fabric results: no memory");
    }
}

// The system manager tries for a while to tell the end of a save.
void keep_access_point(unsigned, void *) {
    agent_keep_access_point();
}

ipcbus_message *make_failure() {
    try {
        auto payload = save_end_payload(err_manager_gone, token);
        return ipcbus_make(IPCBUS_OPC_PROCD_COPY_RUN2START_DONE, payload.data(),
                           payload.size());
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void deliver_failure(unsigned, void *) {
    alarm_id = 0;
    agent_drain(); // the restarted one may have spoken
    if (token == 0)
        return;
    ipcbus_message *failure = make_failure();
    if (failure == nullptr) {
        alarm_id = snmp_alarm_register(1, 0, deliver_failure, nullptr);
        return;
    }
    log_message(LOG_WARNING, "%s", "the system manager ended during a save");
    if (fabric)
        try_to_explain();
    deliver(failure);
    forget();
}

// One that is restarted tells the end of the save itself, and then answers the
// questions that follow a failure.
void manager_ended() {
    loop_unwatch(manager.get());
    manager.reset();
    const Settings *s = settings();
    unsigned grace =
        s == nullptr ? 0 : static_cast<unsigned>(s->manager_restart_seconds);
    if (grace == 0)
        deliver_failure(0, nullptr);
    else
        alarm_id = snmp_alarm_register(grace, 0, deliver_failure, nullptr);
}

// A descriptor that is readable once the process has ended.
Fd watch_process(pid_t pid) {
    if (pid > 0) {
        Fd fd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
        if (fd || errno != ESRCH)
            return fd;
    }
    return Fd(eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)); // it is gone already
}

void watch_save(uint32_t request) {
    forget();
    token = request; // first of all: no other answer is let through
    fabric = false;
    agent_keep_access_point();
    keep_id = snmp_alarm_register(keep_seconds, SA_REPEAT, keep_access_point,
                                  nullptr);
    manager = watch_process(ipcbus_holder(IPCBUS_SAP_PROCD));
    // While the module waits for the first answer, the main loop stands still.
    if (manager)
        response_queue().wait_for(Fd(fcntl(manager.get(), F_DUPFD_CLOEXEC, 3)));
    if (!manager || !loop_watch(manager.get(), manager_ended)) {
        log_message(LOG_ERR, "a save goes unwatched: %s", strerror(errno));
        manager.reset();
    }
}

bool saves_in_fabric(const WireMessage &message) {
    auto request = parse_save_request(message.payload);
    return request && request->fabric;
}

bool asks_for_save(const WireMessage &message, uint32_t sap) {
    return sap == IPCBUS_SAP_PROCD &&
           message.opcode == IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION;
}

bool ends_early(const WireMessage &message, uint32_t sap) {
    return sap == IPCBUS_SAP_PROCD &&
           message.opcode == IPCBUS_OPC_PROCD_COPY_ABORT &&
           message.payload.size() >= SAVE_ABORT_TOKEN + 4 &&
           get_be32(message.payload.data() + SAVE_ABORT_TOKEN) == token;
}

} // namespace

void save_watch_start() {
    started = true;
}

bool save_watch_permits(const WireMessage &message, uint32_t sap) {
    if (!started || !asks_for_save(message, sap))
        return true;
    if (!agent_keep_access_point()) { // its end would be told to another agent
        errno = EADDRINUSE;
        return false;
    }
    // What an earlier save has left must not pass for this one's.
    if (saves_in_fabric(message) && !clear_results())
        log_message(LOG_ERR, "fabric results: %s", strerror(errno));
    return true;
}

void save_watch_sent(const WireMessage &message, uint32_t sap) {
    if (!started)
        return;
    if (ends_early(message, sap)) {
        history_save_stopped(token);
        forget();
    }
    if (!asks_for_save(message, sap) || message.token == 0)
        return;
    history_save_sent(message.token);
    try {
        watch_save(message.token);
        fabric = saves_in_fabric(message);
    } catch (const std::bad_alloc &) {
        log_message(LOG_ERR, "a save goes unwatched: no memory");
    }
}

bool save_watch_awaits(const WireMessage &answer) {
    if (!started || answer.opcode != IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION)
        return true;
    if (answer.token != token)
        return false;
    response_queue().wait_for(Fd());
    const uint32_t result =
        answer.payload.size() < SAVE_ANSWER_SIZE
            ? err_save_request
            : get_be32(answer.payload.data() + SAVE_ANSWER_RESULT);
    history_save_answered(token, result);
    if (result != PROCD_CFG_ACTION_ACCEPTED)
        forget();
    return true;
}

void save_watch_abandon() {
    manager.reset();
    response_queue().abandon();
}

bool save_watch_ends(const std::vector<uint8_t> &payload) {
    if (payload.size() >= SAVE_END_SIZE &&
        get_be32(payload.data() + SAVE_END_TOKEN) != token)
        return false;
    forget();
    return true;
}

} // namespace xfhost
