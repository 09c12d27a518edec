#include "scripted/note.h"

#include <net-snmp/agent/util_funcs/header_generic.h>

using namespace scripted;

extern "C" {

int32_t change_time_flag;

int register_for_notification(uint32_t opcode, notification_handler *handler) {
    called(
        __func__,
        print("%s(%u, %s)", __func__, opcode,
              handler == handle_notifications ? "handle_notifications" : "?"));
    if (no_memory(__func__))
        return -1;
    platform().subscriptions[opcode] = handler;
    return platform().subscribe_results.take();
}

int unregister_for_notification(uint32_t opcode) {
    called(__func__, print("%s(%u)", __func__, opcode));
    platform().subscriptions.erase(opcode);
    return 0;
}

netsnmp_variable_list *build_varbind(netsnmp_variable_list *previous,
                                     const void *value, int type, size_t length,
                                     const oid *name, size_t name_len) {
    Platform &p = platform();
    const char *after = "NULL";
    std::string previous_name;

    for (size_t i = 0; i < p.varbinds.size(); i++)
        if (p.varbinds[i] == previous) {
            previous_name = "varbind" + std::to_string(i + 1);
            after = previous_name.c_str();
        }
    called(__func__, print("%s(%s, %d, %zu, %s)", __func__, after, type, length,
                           dotted(name, name_len).c_str()))
        .octets = std::string(static_cast<const char *>(value), length);
    hook(__func__);
    if (fails_now(&p.fail_varbind_at) || no_memory(__func__))
        return nullptr;
    netsnmp_variable_list *head = nullptr;
    netsnmp_variable_list *const varbind = snmp_varlist_add_variable(
        &head, name, name_len, static_cast<u_char>(type), nullptr, 0);
    snmp_set_var_value(varbind, value, length);
    varbind->type = static_cast<u_char>(type);
    if (previous != nullptr)
        previous->next_variable = varbind;
    p.varbinds.push_back(varbind);
    return varbind;
}

int enqueue_notification(int trap_type, const oid *name, size_t name_len,
                         netsnmp_variable_list *list) {
    Platform &p = platform();

    p.notifications.push_back(
        {trap_type, oids(name, name_len), p.varbinds_of(list)});
    called(__func__,
           print("%s(%d, %s, %zu varbinds)", __func__, trap_type,
                 dotted(name, name_len).c_str(), p.varbinds_of(list).size()));
    if (no_memory(__func__)) {
        p.notifications.pop_back();
        return -1;
    }
    return p.enqueue_results.take();
}

const char *get_snmp_sessionid(int which) {
    static std::string place;

    asked(__func__, print("%s(%d)", __func__, which));
    return lasting(place, platform().session_id);
}

const char *get_snmp_username(int which) {
    static std::string place;

    asked(__func__, print("%s(%d)", __func__, which));
    return lasting(place, platform().user_name);
}

const char *snmp_get_ctx_vrf_for_current_req(int32_t *problem) {
    static std::string place;

    asked(__func__, print("%s()", __func__));
    *problem = platform().request_vrf_error;
    if (*problem != 0)
        return nullptr;
    return lasting(place, platform().request_vrf);
}

void snmp_heartbeat_send(void) {
    called(__func__, print("%s()", __func__));
}

void set_mgmt_conf_last_change_time_extended(int which) {
    called(__func__, print("%s(%d)", __func__, which));
}

/* ---- Intercepted: Net-SNMP -------------------------------------------------
 */

int intercept_register_mib(const char *name, const struct variable *variables,
                           size_t variable_size, size_t count, const oid *root,
                           size_t root_length) {
    Platform &p = platform();

    p.registrations.push_back(
        {name, variables, variable_size, count, oids(root, root_length)});
    called("register_mib",
           print("register_mib(%s, %zu, %s)", text_or_null(name).c_str(), count,
                 dotted(root, root_length).c_str()));
    return p.register_results.take();
}

int intercept_unregister_mib(oid *root, size_t root_length) {
    called("unregister_mib",
           print("unregister_mib(%s)", dotted(root, root_length).c_str()));
    return 0;
}

int intercept_snmp_register_callback(int major, int minor,
                                     SNMPCallback *callback, void *argument) {
    called("snmp_register_callback",
           print("snmp_register_callback(%d, %d, %s, %s)", major, minor,
                 callback == xf_handle_starttime_change
                     ? "xf_handle_starttime_change"
                     : "?",
                 argument == nullptr ? "NULL" : "?"));
    return 0;
}

unsigned intercept_snmp_alarm_register(unsigned when, unsigned flags,
                                       SNMPAlarmCallback *callback,
                                       void *argument) {
    called(
        "snmp_alarm_register",
        print("snmp_alarm_register(%u, %s, %s, %s)", when,
              flags == SA_REPEAT ? "SA_REPEAT" : std::to_string(flags).c_str(),
              callback == cfgentry_age_timer_handler
                  ? "cfgentry_age_timer_handler"
                  : "?",
              argument == nullptr ? "NULL" : "?"));
    return no_memory("snmp_alarm_register") ? 0 : platform().alarm_ids.take();
}

void intercept_snmp_alarm_unregister(unsigned id) {
    called("snmp_alarm_unregister", print("snmp_alarm_unregister(%u)", id));
}

/* Unsigned, and wrapping for a moment before the agent's start, as the agent's
 * own. */
u_long intercept_netsnmp_timeval_uptime(struct timeval *moment) {
    const int64_t hundredths = (static_cast<int64_t>(moment->tv_sec) -
                                platform().agent_start_seconds) *
                                   100 +
                               static_cast<int64_t>(moment->tv_usec) / 10'000;

    asked("netsnmp_timeval_uptime", print("netsnmp_timeval_uptime({%ld, %ld})",
                                          static_cast<long>(moment->tv_sec),
                                          static_cast<long>(moment->tv_usec)));
    return static_cast<u_long>(hundredths);
}

void intercept_snmp_set_detail(const char *detail) {
    called("snmp_set_detail",
           print("snmp_set_detail(%s)", text_or_null(detail).c_str()));
}

int intercept_snmp_log(int priority, const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    called("snmp_log",
           print("snmp_log(%s, %s)",
                 priority == LOG_ERR ? "LOG_ERR"
                                     : std::to_string(priority).c_str(),
                 quote(text).c_str()))
        .octets = text;
    return 0;
}

int intercept_snmp_get_do_debugging(void) {
    asked("snmp_get_do_debugging", "snmp_get_do_debugging()");
    return platform().do_debugging.take();
}

static void debug_call(const char *function, const char *token,
                       const char *format, va_list arguments) {
    const std::string text = formatted(format, arguments);
    Event &event = called(function, print("%s(%s, %s)", function,
                                          text_or_null(token).c_str(),
                                          quote(text).c_str()));

    event.strings = {token, format};
    event.octets = text;
}

void intercept_debugmsgtoken(const char *token, const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    debug_call("debugmsgtoken", token, format, arguments);
    va_end(arguments);
}

void intercept_debugmsg(const char *token, const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    debug_call("debugmsg", token, format, arguments);
    va_end(arguments);
}

int intercept_header_generic(struct variable *, oid *, size_t *, int exact,
                             size_t *, WriteMethod **) {
    called("header_generic", print("header_generic(%d)", exact));
    return platform().header_generic_results.take();
}

} // extern "C"
