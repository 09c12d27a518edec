#include "host/agent/agent.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>

#include <unistd.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "host/agent/clock_step.h"
#include "host/agent/copy_child.h"
#include "host/agent/debug_log.h"
#include "host/agent/event_loop.h"
#include "host/agent/history.h"
#include "host/agent/modules.h"
#include "host/agent/notifications.h"
#include "host/agent/save_watch.h"
#include "host/base/log.h"
#include "host/ipcbus/queue.h"
#include "platform/agent_ext.h"

using namespace xfhost;

int32_t change_time_flag = 0;

namespace {

ipcbus_handle access_point = nullptr;
constexpr struct timeval soon = {0, 1000}; // once the main loop turns
time_t configuration_changed[2]; // running as seen by management, startup

void log_to_agent(int priority, const char *text) {
    snmp_log(priority, "xfplatform: %s\n", text);
}

// The debug log is wanted; and whether this is the process that will write it,
// under the user that it keeps: an agent forks and gives up its rights after it
// has read its configuration.
bool debug_wanted = false;
bool settled = false;

void apply_debug() {
    modules_set_debug(debug_wanted && settled && debug_log_make_private());
}

void settle(unsigned, void *) {
    settled = true;
    apply_debug();
}

void parse_debug(const char *, char *value) {
    if (strcmp(value, "yes") == 0)
        debug_wanted = true;
    else if (strcmp(value, "no") == 0)
        debug_wanted = false;
    else
        config_perror("xfSnmpDebug: yes or no expected");
    apply_debug();
}

// The line may be gone when the configuration is read again.
void forget_debug() {
    debug_wanted = false;
    apply_debug();
}

void start_once() {
    static bool started = false;
    if (started)
        return;
    started = true;
    set_log_sink(log_to_agent);
    register_app_config_handler("xfSnmpDebug", parse_debug, forget_debug,
                                "yes|no");
    snmp_alarm_register_hr(soon, 0, settle, nullptr);
    // Now, because the agent may give up its rights later.
    if (!open_state_directory())
        log_message(LOG_ERR, "state directory: %s", strerror(errno));
    if (!copy_child_watch_forks())
        log_message(LOG_ERR, "forks cannot be watched");
    save_watch_start();
    if (!modules_watch_contexts())
        log_message(LOG_ERR, "requests in a VRF cannot be served");
    if (!clock_watch())
        log_message(LOG_ERR, "the clock cannot be watched: %s",
                    strerror(errno));
}

// The configuration is read before an agent goes to the background by forking:
// the process that turns the main loop is the one that the socket belongs to.
void claim(unsigned, void *) {
    if (access_point != nullptr)
        access_point->owner = getpid();
}

bool bind_access_point() {
    if (ipcbus_bind(IPCBUS_KIND_DATAGRAM, IPCBUS_SAP_SNMP_AGENT, &access_point,
                    "snmp-agent") < 0)
        return false;
    ipcbus_sweep(); // an agent before us may have been killed
    access_point->owner = 0;
    snmp_alarm_register_hr(soon, 0, claim, nullptr);
    return loop_watch(access_point->socket.get(), agent_drain);
}

pid_t holder() {
    try {
        return ipcbus_holder(IPCBUS_SAP_SNMP_AGENT);
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

bool try_to_bind() {
    if (bind_access_point()) {
        history_start();
        return true;
    }
    if (errno == EADDRINUSE)
        log_message(LOG_ERR,
                    "access point %d: process %d has it; there are no copies",
                    IPCBUS_SAP_SNMP_AGENT, holder());
    else
        log_message(LOG_ERR, "access point %d: %s", IPCBUS_SAP_SNMP_AGENT,
                    strerror(errno));
    if (access_point != nullptr)
        ipcbus_unbind(access_point, 0);
    access_point = nullptr;
    return false;
}

__attribute__((destructor)) void leave() {
    history_end();
    if (access_point != nullptr)
        ipcbus_unbind(access_point, 0);
}

} // namespace

namespace xfhost {

bool agent_start() {
    start_once();
    return access_point != nullptr || try_to_bind();
}

void agent_drain() {
    if (access_point == nullptr)
        return;
    while (ipcbus_message *message = ipcbus_take(access_point))
        deliver(message);
}

bool agent_keep_access_point() {
    if (access_point == nullptr)
        return try_to_bind();
    if (ipcbus_reachable(access_point))
        return true;
    log_message(LOG_WARNING, "access point %d was gone", IPCBUS_SAP_SNMP_AGENT);
    agent_drain();
    if (access_point->socket)
        loop_unwatch(access_point->socket.get());
    if (!ipcbus_rebind(access_point) ||
        !loop_watch(access_point->socket.get(), agent_drain))
        log_message(LOG_ERR, "access point %d: %s", IPCBUS_SAP_SNMP_AGENT,
                    strerror(errno));
    return true; // another try follows
}

void agent_abandon() {
    if (access_point != nullptr)
        ipcbus_disown(access_point);
}

} // namespace xfhost

void snmp_heartbeat_send(void) {
    // A stock agent has no watchdog to satisfy.
}

void set_mgmt_conf_last_change_time_extended(int which) {
    if (which == 2 || which == 3)
        configuration_changed[which - 2] = time(nullptr);
}
