/*
 * Entry points, the MIB variable table and the module state.
 */
#include "config_copy_mib_private.h"

#include <net-snmp/agent/util_funcs/header_generic.h>

#include "module_root.h"
#include "platform/messages.h"

/* Column OIDs below have 14 sub-identifiers: a root of 9, then 1.1.N.1.C. */
static_assert(MODULE_ROOT_LENGTH == 9, "the variable table is built on it");

oid config_copy_mib_variables_oid[9] = {MODULE_ROOT};
uint32_t ageouttimer;
uint32_t is_snmp_debug_enabled;
uint64_t start_cpu_cycles;

struct config_copy_state module_state;

#define COPY_COLUMN(column, type, access)                                      \
    {                                                                          \
        magic_of_column(column), type, access, get_xfCopyTable, 5, {           \
            1, 1, 1, 1, column                                                 \
        }                                                                      \
    }
#define ERROR_COLUMN(column, type)                                             \
    {                                                                          \
        magic_of_error_column(column), type, NETSNMP_OLDAPI_RONLY,             \
            get_xfCopyErrorTable, 5, {                                         \
            1, 1, 2, 1, column                                                 \
        }                                                                      \
    }
#define RWRITE NETSNMP_OLDAPI_RWRITE
#define RONLY NETSNMP_OLDAPI_RONLY

struct variable7 config_copy_mib_variables[20] = {
    COPY_COLUMN(XF_COLUMN_PROTOCOL, ASN_INTEGER, RWRITE),
    COPY_COLUMN(XF_COLUMN_SOURCE_FILE_TYPE, ASN_INTEGER, RWRITE),
    COPY_COLUMN(XF_COLUMN_DEST_FILE_TYPE, ASN_INTEGER, RWRITE),
    COPY_COLUMN(XF_COLUMN_SERVER_ADDRESS, ASN_IPADDRESS, RWRITE),
    COPY_COLUMN(XF_COLUMN_FILE_NAME, ASN_OCTET_STR, RWRITE),
    COPY_COLUMN(XF_COLUMN_USER_NAME, ASN_OCTET_STR, RWRITE),
    COPY_COLUMN(XF_COLUMN_USER_PASSWORD, ASN_OCTET_STR, RWRITE),
    COPY_COLUMN(XF_COLUMN_NOTIFICATION, ASN_INTEGER, RWRITE),
    COPY_COLUMN(XF_COLUMN_STATE, ASN_INTEGER, RONLY),
    COPY_COLUMN(XF_COLUMN_TIME_STARTED, ASN_TIMETICKS, RONLY),
    COPY_COLUMN(XF_COLUMN_TIME_COMPLETED, ASN_TIMETICKS, RONLY),
    COPY_COLUMN(XF_COLUMN_FAIL_CAUSE, ASN_INTEGER, RONLY),
    COPY_COLUMN(XF_COLUMN_ROW_STATUS, ASN_INTEGER, RWRITE),
    COPY_COLUMN(XF_COLUMN_SERVER_ADDRESS_TYPE, ASN_INTEGER, RWRITE),
    COPY_COLUMN(XF_COLUMN_SERVER_ADDRESS_REV1, ASN_OCTET_STR, RWRITE),
    COPY_COLUMN(XF_COLUMN_VRF_NAME, ASN_OCTET_STR, RWRITE),
    ERROR_COLUMN(XF_ERROR_COLUMN_DEVICE_ADDRESS_TYPE, ASN_INTEGER),
    ERROR_COLUMN(XF_ERROR_COLUMN_DEVICE_ADDRESS, ASN_OCTET_STR),
    ERROR_COLUMN(XF_ERROR_COLUMN_DEVICE_WWN, ASN_OCTET_STR),
    ERROR_COLUMN(XF_ERROR_COLUMN_DESCRIPTION, ASN_OCTET_STR),
};

static constexpr uint32_t subscribed_opcodes[] = {
    IPCBUS_OPC_PROCD_COPY_STARTED,
    IPCBUS_OPC_PROCD_COPY_RUN2START_DONE,
    IPCBUS_OPC_CONFIG_COPY_STATUS,
};

static void report_failed_registration(void) {
    static const char header[] = "%s(): %s, %d:\n";
    static const char source[] = "../infra/system_manager/lib/libmib/"
                                 "configcopymib/config_copy_mib";
    static const char text[] = "%s registration failed\n";
    const char *const function = "init_config_copy_mib";

    debugmsgtoken("trace", header, function, source, __LINE__);
    debugmsg("trace", header, function, source, __LINE__);
    debugmsgtoken("register_mib", text, "config_copy_mib");
    debugmsg("register_mib", text, "config_copy_mib");
}

/* A list of requests in progress, in the order of the rows. */
static bool create_request_list(struct ordset **list) {
    return ordset_create(list, 0, 1, xfCopyEntry_comp_func, 1) ==
           ORDSET_CREATED;
}

void init_config_copy_mib(void) {
    const int registered = register_mib(
        "config_copy_mib",
        /* The agent reads as many sub-identifiers as an entry says it has. */
        reinterpret_cast<struct variable *>(config_copy_mib_variables),
        sizeof(config_copy_mib_variables[0]), 20, config_copy_mib_variables_oid,
        9);
    if (registered != 0 && snmp_get_do_debugging() != 0)
        report_failed_registration();

    /* Minor id 9: the agent's start time was shifted. */
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, 9, xf_handle_starttime_change,
                           nullptr);

    /*
     * Both are tried: deinit destroys both.
     *
     * KEPT: without them the start-time callback stays registered; it finds no
     * rows.
     */
    const bool undo_list = create_request_list(&module_state.undo_list);
    const bool second_list = create_request_list(&module_state.second_list);
    if (!undo_list || !second_list) {
        unregister_mib(config_copy_mib_variables_oid, 9);
        return;
    }
    for (const uint32_t opcode : subscribed_opcodes)
        register_for_notification(opcode, handle_notifications);
}

/*
 * KEPT: rows, error rows, the age-out alarm and the start-time callback stay:
 * the rows outlive a reload of the agent's modules.
 */
void deinit_config_copy_mib(void) {
    unregister_mib(config_copy_mib_variables_oid, 9);
    ordset_destroy(&module_state.undo_list);
    ordset_destroy(&module_state.second_list);
    for (const uint32_t opcode : subscribed_opcodes)
        unregister_for_notification(opcode);
}

u_char *get_config_copy_mib(struct variable *vp, oid *name, size_t *length,
                            int exact, size_t *var_len,
                            WriteMethod **write_method) {
    if (header_generic(vp, name, length, exact, var_len, write_method) ==
        MATCH_SUCCEEDED)
        snmp_set_detail("");
    return nullptr;
}
