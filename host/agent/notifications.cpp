// Platform messages to the handlers that modules registered, and notifications
// out of the agent.
#include "host/agent/notifications.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <new>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/agent_trap.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "host/agent/agent.h"
#include "host/agent/copy_child.h"
#include "host/agent/history.h"
#include "host/agent/modules.h"
#include "host/agent/save_watch.h"
#include "host/base/log.h"
#include "host/ipcbus/queue.h"
#include "platform/agent_ext.h"
#include "platform/messages.h"

using namespace xfhost;

namespace {

constexpr int enterprise_specific = 6;
constexpr oid trap_oid_name[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};

struct Subscription {
    notification_handler *handler;
    const void *module;
};

std::map<uint32_t, Subscription> subscriptions;

// What the handler is told of the outcome, where the message tells one.
size_t outcome_of(const ipcbus_message *message) {
    if (ipcbus_opc_get(message) != IPCBUS_OPC_PROCD_COPY_RUN2START_DONE)
        return 0;
    const std::vector<uint8_t> &payload = message->wire.payload;
    return payload.size() < SAVE_END_RESULT + 4
               ? 1
               : get_be32(payload.data() + SAVE_END_RESULT);
}

// The history hears of every end, whoever waits for it.
void note_end(const ipcbus_message &message, bool strange) {
    const std::vector<uint8_t> &payload = message.wire.payload;
    const uint32_t opcode = ipcbus_opc_get(&message);
    if (opcode == IPCBUS_OPC_PROCD_COPY_RUN2START_DONE)
        history_save_ended(payload);
    if (opcode == IPCBUS_OPC_CONFIG_COPY_STATUS && !strange)
        history_copy_ended(payload.size() < COPY_STATUS_SIZE
                               ? 1
                               : get_be32(payload.data() + COPY_STATUS_STATUS));
}

bool module_subscribed(const void *module) {
    for (const auto &[opcode, each] : subscriptions)
        if (each.module == module)
            return true;
    return false;
}

netsnmp_variable_list *add_varbind(netsnmp_variable_list *previous,
                                   const void *value, int type, size_t length,
                                   const oid *name, size_t name_len) {
    netsnmp_variable_list *list = previous;
    return snmp_varlist_add_variable(&list, name, name_len,
                                     static_cast<u_char>(type), value, length);
}

int subscribe(uint32_t opcode, notification_handler *handler) {
    bool up = agent_start();
    const void *module = module_loaded(handler);
    if (module == nullptr)
        return -1;
    // Without the access point, too: it may come, and until then each copy is
    // told to have failed.
    subscriptions[opcode] = {handler, module};
    if (opcode == IPCBUS_OPC_CONFIG_COPY_STATUS)
        copy_child_subscribed();
    return up ? 0 : -1;
}

} // namespace

namespace xfhost {

bool deliver(ipcbus_message *message) {
    auto found = subscriptions.find(ipcbus_opc_get(message));
    bool late =
        ipcbus_opc_get(message) == IPCBUS_OPC_PROCD_COPY_RUN2START_DONE &&
        !save_watch_ends(message->wire.payload);
    bool strange = ipcbus_opc_get(message) == IPCBUS_OPC_CONFIG_COPY_STATUS &&
                   !copy_child_reported(message->sender_pid);
    note_end(*message, strange);
    if (found == subscriptions.end() || late || strange) {
        ipcbus_drop(nullptr, message);
        return false;
    }
    oid name[MAX_OID_LEN] = {};
    size_t name_len = outcome_of(message);
    int notify = 0;
    netsnmp_variable_list *varbinds =
        found->second.handler(message, name, &name_len, &notify);
    ipcbus_drop(nullptr, message);
    if (notify == 1)
        enqueue_notification(enterprise_specific, name, name_len, varbinds);
    else
        snmp_free_varbind(varbinds);
    return true;
}

} // namespace xfhost

int register_for_notification(uint32_t opcode, notification_handler *handler) {
    if (handler == nullptr)
        return -1;
    try {
        return subscribe(opcode, handler);
    } catch (const std::bad_alloc &) {
        return -1;
    }
}

int unregister_for_notification(uint32_t opcode) {
    auto found = subscriptions.find(opcode);
    if (found == subscriptions.end())
        return -1;
    const void *module = found->second.module;
    subscriptions.erase(found);
    try {
        if (!module_subscribed(module))
            module_unloaded(module);
    } catch (const std::bad_alloc &) {
        log_message(LOG_ERR, "columns stay registered: no memory");
    }
    return 0;
}

netsnmp_variable_list *build_varbind(netsnmp_variable_list *previous,
                                     const void *value, int type, size_t length,
                                     const oid *name, size_t name_len) {
    // Net-SNMP's integers are longs; the platform's have 32 bits.
    if (type == ASN_INTEGER && length == sizeof(int32_t)) {
        int32_t word;
        memcpy(&word, value, sizeof word);
        long number = word;
        return add_varbind(previous, &number, type, sizeof number, name,
                           name_len);
    }
    if (type == ASN_TIMETICKS && length == sizeof(uint32_t)) {
        uint32_t word;
        memcpy(&word, value, sizeof word);
        u_long number = word;
        return add_varbind(previous, &number, type, sizeof number, name,
                           name_len);
    }
    return add_varbind(previous, value, type, length, name, name_len);
}

int enqueue_notification(int trap_type, const oid *name, size_t name_len,
                         netsnmp_variable_list *varbinds) {
    netsnmp_variable_list *list = nullptr;
    if (trap_type == enterprise_specific && name_len <= MAX_OID_LEN)
        snmp_varlist_add_variable(&list, trap_oid_name,
                                  OID_LENGTH(trap_oid_name), ASN_OBJECT_ID,
                                  name, name_len * sizeof(oid));
    if (list == nullptr) {
        snmp_free_varbind(varbinds);
        return -1;
    }
    list->next_variable = varbinds;
    // -1: a notification of the second version, from its own varbinds; the
    // agent puts sysUpTime in front and translates for older sinks.
    int result = netsnmp_send_traps(-1, -1, name, static_cast<int>(name_len),
                                    list, nullptr, 0);
    snmp_free_varbind(list);
    return result;
}
