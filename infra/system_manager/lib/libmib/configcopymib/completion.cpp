/*
 * The end of a copy: the save that the system manager does, the messages that
 * finish a row, and the completion notification.
 */
#include "config_copy_mib_private.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "module_root.h"
#include "platform/cycles.h"
#include "platform/errlog.h"
#include "platform/messages.h"
#include "platform/procd.h"

/* Notifications are enterprise-specific traps. */
#define TRAP_ENTERPRISE_SPECIFIC 6

/* ---- Completion notification --------------------------------------------- */

/*
 * OID templates; each notification writes its row's index into the last
 * sub-identifier.
 *
 * KEPT: into that of the notification itself, too: managers tell by it which
 * row has ended.
 */
#define COLUMN_TEMPLATE(column)                                                \
    { MODULE_ROOT, 1, 1, 1, 1, column, 0 }
static oid varbind_oids[XF_NOTIFICATION_VARBINDS][XF_VARBIND_OID_LENGTH] = {
    COLUMN_TEMPLATE(XF_COLUMN_SERVER_ADDRESS_TYPE),
    COLUMN_TEMPLATE(XF_COLUMN_SERVER_ADDRESS_REV1),
    COLUMN_TEMPLATE(XF_COLUMN_FILE_NAME),
    COLUMN_TEMPLATE(XF_COLUMN_STATE),
    COLUMN_TEMPLATE(XF_COLUMN_TIME_STARTED),
    COLUMN_TEMPLATE(XF_COLUMN_TIME_COMPLETED),
    COLUMN_TEMPLATE(XF_COLUMN_FAIL_CAUSE),
};
static oid notification_oid[XF_NOTIFICATION_OID_LENGTH] = {MODULE_ROOT, 2, 1, 2,
                                                           0};

static void set_notification_index(int32_t row_index) {
    const oid index = static_cast<oid>(static_cast<uint32_t>(row_index));

    for (oid *const varbind_oid : varbind_oids)
        varbind_oid[XF_VARBIND_OID_LENGTH - 1] = index;
    notification_oid[XF_NOTIFICATION_OID_LENGTH - 1] = index;
}

/* A varbind of the notification, before it is one. */
struct varbind_source {
    const void *value;
    int type;
    size_t length;
    const char *failure_trace;
};

netsnmp_variable_list *build_notification(const struct xfCopyEntry *entry,
                                          oid *oid_out, size_t *oid_len_out) {
    struct ip_addr *const address = &module_state.notification_address;
    const uint32_t started = timestamp_uptime(&entry->xfCopyTimeStarted);
    const uint32_t completed = timestamp_uptime(&entry->xfCopyTimeCompleted);
    /* KEPT: always 16 octets of address; an IPv4 one is followed by zeroes. */
    const struct varbind_source sources[XF_NOTIFICATION_VARBINDS] = {
        {&entry->xfCopyServerAddressType, ASN_INTEGER, 4,
         "%s Could not add xfcopy_serveraddresstype_oid\n"},
        {address->octets, ASN_OCTET_STR, 16,
         "%s Could not add xfcopy_serveraddressrev1_oid\n"},
        {entry->xfCopyFileName, ASN_OCTET_STR, strlen(entry->xfCopyFileName),
         "%s Could not add xfcopy_filename_oid\n"},
        {&entry->xfCopyState, ASN_INTEGER, 4,
         "%s Could not add xfcopy_state_oid\n"},
        {&started, ASN_TIMETICKS, 4,
         "%s Could not add xfcopy_timestarted_oid\n"},
        {&completed, ASN_TIMETICKS, 4,
         "%s Could not add xfcopy_timecompleted_oid\n"},
        {&entry->xfCopyFailCause, ASN_INTEGER, 4,
         "%s Could not add xfcopy_failcause_oid\n"},
    };
    netsnmp_variable_list *head = nullptr;
    netsnmp_variable_list *previous = nullptr;

    set_notification_index(entry->xfCopyIndex);
    /* No address, no octets: not those of an earlier notification. */
    memset(address, 0, sizeof(*address));
    ip_addr_from_str(entry->xfCopyServerAddressRev1, address);
    for (size_t i = 0; i < XF_NOTIFICATION_VARBINDS; i++) {
        /*
         * KEPT: one that cannot be added ends the chain; the next one starts
         * another that nobody gets: without memory, part of it is still sent.
         */
        previous = build_varbind(previous, sources[i].value, sources[i].type,
                                 sources[i].length, varbind_oids[i],
                                 XF_VARBIND_OID_LENGTH);
        if (previous == nullptr)
            TRACE_ERROR(sources[i].failure_trace, __func__);
        else if (head == nullptr)
            head = previous;
    }
    memcpy(oid_out, notification_oid, sizeof(notification_oid));
    *oid_len_out = XF_NOTIFICATION_OID_LENGTH;
    TRACE_INFO("%s: Sending xfCopyCompletion notification : "
               "xfCopyServerAddressRev1 = %s, xfCopyFileName= %s,"
               "xfCopyState=%d, xfCopyTimeStarted=%d, "
               "xfCopyTimeCompleted = %d, xfCopyFailCause=%d, "
               "xfCopyServerAddressType = %d\n",
               __func__, entry->xfCopyServerAddressRev1, entry->xfCopyFileName,
               entry->xfCopyState, static_cast<int32_t>(started),
               static_cast<int32_t>(completed), entry->xfCopyFailCause,
               entry->xfCopyServerAddressType);
    return head;
}

static void notify_if_asked(const struct xfCopyEntry *entry) {
    oid name[MAX_OID_LEN];
    size_t name_len = 0;

    if (entry->xfCopyNotificationOnCompletion != XF_TRUE)
        return;
    netsnmp_variable_list *const varbinds =
        build_notification(entry, name, &name_len);
    enqueue_notification(TRAP_ENTERPRISE_SPECIFIC, name, name_len, varbinds);
}

/* ---- Running to startup through the system manager ----------------------- */

/* The system manager answers within this time, or later by message. */
#define SAVE_WAIT_SECONDS 899

/* The steps below speak in the name of the function that the launch called. */
static const char save_function[] = "do_cp_runningtostartup";

static void fill_save_request(const struct xfCopyEntry *entry,
                              uint8_t *payload) {
    memset(payload, 0, SAVE_REQUEST_SIZE);
    put_be32(payload + SAVE_REQUEST_ACTION, SAVE_ACTION_RUNNING_TO_STARTUP);
    put_be32(payload + SAVE_REQUEST_WORD_4, 1);
    payload[SAVE_REQUEST_OCTET_10] = 1;
    put_be32(payload + SAVE_REQUEST_FABRIC,
             entry->xfCopyDestFileType == XF_FILE_FABRIC_STARTUP ? 1 : 0);
    put_be32(payload + SAVE_REQUEST_ALL,
             entry->xfCopyDestFileType == XF_FILE_ALL_STARTUP ? 1 : 0);
    copy_text(reinterpret_cast<char *>(payload + SAVE_REQUEST_USER),
              SAVE_REQUEST_TEXT_SIZE, get_snmp_username(0));
    copy_text(reinterpret_cast<char *>(payload + SAVE_REQUEST_SESSION),
              SAVE_REQUEST_TEXT_SIZE, get_snmp_sessionid(0));
}

static void drop_save_request(void) {
    ipcbus_drop(ipcbus_response_q, module_state.save_request);
    module_state.save_request = nullptr;
}

static int send_save_request(const struct xfCopyEntry *entry) {
    static const struct ipcbus_address procd = {IPCBUS_NODE_LOCAL,
                                                IPCBUS_SAP_PROCD};
    uint8_t payload[SAVE_REQUEST_SIZE];

    fill_save_request(entry, payload);
    return ipcbus_send(ipcbus_response_q, &procd,
                       IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION, payload,
                       sizeof(payload), 0, 0, &module_state.save_request);
}

/* True when the wait began more than SAVE_WAIT_SECONDS ago. */
static bool save_wait_is_over(void) {
    if (start_cpu_cycles == 0)
        return false;
    const uint64_t seconds =
        timer_diff_cycle_in_msec(timer_get_cycles(), start_cpu_cycles) / 1000;
    if (static_cast<uint32_t>(seconds) <= SAVE_WAIT_SECONDS)
        return false;
    start_cpu_cycles = 0;
    return true;
}

/*
 * Waits for a message, with a sign of life to the system manager each time that
 * nothing comes. NULL when none came; *result is then the last receive's.
 */
static struct ipcbus_message *wait_for_answer(int *result) {
    struct ipcbus_message *message = nullptr;
    struct ipcbus_recv_options options;

    memset(&options, 0, sizeof(options));
    options.mode = 1;
    options.timeout = procd_heartbeat_timeout_get() / 1000;
    start_cpu_cycles = timer_get_cycles();
    *result = 0;
    while (!save_wait_is_over()) {
        /* A signal neither counts as time passed nor as silence. */
        do {
            *result = ipcbus_recv(ipcbus_response_q, &message, &options);
        } while (*result == -1 && errno == EINTR);
        if (*result >= 0)
            return message;
        if (errno != ETIME)
            return nullptr;
        procd_heartbeat(0);
    }
    return nullptr;
}

static void note_refusal(struct xfCopyEntry *entry) {
    TRACE_INFO("%s : %s\n", save_function, "copy failed");
    timestamp_now(&entry->xfCopyTimeCompleted);
    entry->xfCopyState = XF_STATE_FAILED;
    entry->xfCopyFailCause = XF_FAIL_SAVE_REFUSED;
    if (setXfCopyEntry(entry, 0) != 0)
        TRACE_ERROR("ERROR  %s : Set to entry (index= %d) failed \n",
                    save_function, entry->xfCopyIndex);
    notify_if_asked(entry);
    drop_save_request();
}

static void note_answer(struct xfCopyEntry *entry, uint32_t answer) {
    TRACE_INFO("%s : copy state : %s\n", save_function, syserr2str(answer));
    switch (answer) {
    case PROCD_CFG_ACTION_ACCEPTED:
        TRACE_INFO("%s : copy is initiated\n", save_function);
        break;
    case PROCD_CFG_ACTION_DONE:
        /* KEPT: nobody is notified; the row status handler stores the row. */
        timestamp_now(&entry->xfCopyTimeCompleted);
        entry->xfCopyState = XF_STATE_SUCCESSFUL;
        drop_save_request();
        TRACE_INFO("%s : %s\n", save_function, "copy is done\n");
        break;
    default:
        note_refusal(entry);
        break;
    }
}

int32_t do_cp_runningtostartup(struct xfCopyEntry *entry) {
    int result;

    TRACE_INFO("Sending request to procd to start copy running to startup");
    if (send_save_request(entry) < 0) {
        const int error = errno;
        TRACE_ERROR("%s :  Unable to send message "
                    "IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION: %s (%d).\n",
                    save_function, strerror(error), error);
        /* KEPT: nobody is notified; the row status handler stores the row. */
        timestamp_now(&entry->xfCopyTimeCompleted);
        entry->xfCopyState = XF_STATE_FAILED;
        drop_save_request();
        return XF_ERR_REQUEST_NOT_SENT;
    }
    struct ipcbus_message *const message = wait_for_answer(&result);
    if (message == nullptr) {
        /* KEPT: a receive that failed, too: the end may still be told. */
        TRACE_INFO("%s : no response from procd (error id %x). may be copy is "
                   "progress\n",
                   save_function, static_cast<unsigned>(result));
        return 0;
    }
    const uint32_t opcode = ipcbus_opc_get(message);
    if (opcode != IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION) {
        /* KEPT: it ends the wait all the same, with the row running. */
        TRACE_INFO("%s: unknown message %d received, dropping.\n",
                   save_function, static_cast<int>(opcode));
    } else {
        const uint8_t *const payload =
            static_cast<const uint8_t *>(ipcbus_payload_get(message));
        /* An answer that says nothing is no success. */
        note_answer(entry, payload != nullptr
                               ? get_be32(payload + SAVE_ANSWER_RESULT)
                               : uint32_t{XF_ERR_FAILED});
    }
    ipcbus_drop(ipcbus_response_q, message);
    return 0;
}

/* ---- Messages ------------------------------------------------------------ */

/* Handlers speak in the name of the callback that the agent called. */
static const char callback_function[] = "handle_notifications";

static void store_row(const struct xfCopyEntry *entry,
                      uint32_t collect_fabric_errors) {
    if (setXfCopyEntry(entry, collect_fabric_errors) != 0)
        TRACE_ERROR("ERROR  %s : Set to entry (index= %d) failed \n",
                    callback_function, entry->xfCopyIndex);
}

/* KEPT: any row that waits will do; the message does not say which. */
static void handle_copy_started(void) {
    struct xfCopyEntry row;

    if (get_config_entry_with_status(XF_STATE_WAITING, &row) != 0)
        return;
    row.xfCopyState = XF_STATE_RUNNING;
    store_row(&row, 0);
}

static void handle_copy_status(const struct ipcbus_message *message) {
    const uint8_t *const payload =
        static_cast<const uint8_t *>(ipcbus_payload_get(message));

    if (payload == nullptr) {
        TRACE_ERROR("%s: IPCBUS Payload NULL\n", callback_function);
        handle_copy_done(XF_FAIL_UNKNOWN);
        return;
    }
    handle_copy_done(get_be32(payload + COPY_STATUS_STATUS));
}

/* Marks a save as ended; tells whether to collect the fabric's errors. */
static uint32_t note_save_end(struct xfCopyEntry *row, bool failed) {
    timestamp_now(&row->xfCopyTimeCompleted);
    if (failed) {
        TRACE_INFO("%s: COPY failed\n", callback_function);
        row->xfCopyState = XF_STATE_FAILED;
        row->xfCopyFailCause = XF_FAIL_SAVE_FAILED;
        return row->xfCopyDestFileType == XF_FILE_FABRIC_STARTUP ? 1 : 0;
    }
    TRACE_INFO("%s: COPY SUCCESSFULL trap enabled %d\n", callback_function,
               row->xfCopyNotificationOnCompletion == XF_TRUE ? 1 : 0);
    row->xfCopyState = XF_STATE_SUCCESSFUL;
    set_mgmt_conf_last_change_time_extended(2);
    set_mgmt_conf_last_change_time_extended(3);
    return 0;
}

static netsnmp_variable_list *handle_save_end(bool failed, oid *oid_out,
                                              size_t *oid_len_out,
                                              int *notify_out) {
    struct xfCopyEntry row;

    if (get_config_entry_with_status(XF_STATE_RUNNING, &row) != 0)
        return nullptr;
    if (!is_running_to_startup(&row)) {
        TRACE_INFO("%s: copy run2start not initiated by us. ignore it\n",
                   callback_function);
        return nullptr;
    }
    const uint32_t collect_fabric_errors = note_save_end(&row, failed);
    store_row(&row, collect_fabric_errors);
    drop_save_request();
    if (row.xfCopyNotificationOnCompletion != XF_TRUE)
        return nullptr;
    *notify_out = 1;
    return build_notification(&row, oid_out, oid_len_out);
}

netsnmp_variable_list *handle_notifications(struct ipcbus_message *message,
                                            oid *oid_out, size_t *oid_len_out,
                                            int *notify_out) {
    *notify_out = 0;
    switch (ipcbus_opc_get(message)) {
    case IPCBUS_OPC_PROCD_COPY_STARTED:
        handle_copy_started();
        return nullptr;
    case IPCBUS_OPC_CONFIG_COPY_STATUS:
        handle_copy_status(message);
        return nullptr;
    case IPCBUS_OPC_PROCD_COPY_RUN2START_DONE:
        /*
         * KEPT: the caller says in the length how the save ended, 0 for well;
         * the payload is the agent's to read.
         */
        return handle_save_end(*oid_len_out != 0, oid_out, oid_len_out,
                               notify_out);
    default:
        return nullptr;
    }
}

void handle_copy_done(uint32_t status) {
    struct xfCopyEntry row;

    module_state.copyChildRunning = 0;
    TRACE_INFO("%s : Copy is done with status %d\n", __func__,
               static_cast<int32_t>(status));
    if (get_config_entry_with_status(XF_STATE_RUNNING, &row) != 0) {
        TRACE_INFO("%s : No copy is running... %d \n", __func__,
                   static_cast<int32_t>(status));
    } else {
        timestamp_now(&row.xfCopyTimeCompleted);
        row.xfCopyState = status != 0 ? XF_STATE_FAILED : XF_STATE_SUCCESSFUL;
        /* KEPT: a cause after a success, too: it has no value for none. */
        row.xfCopyFailCause =
            status != 0 ? static_cast<int32_t>(status) : XF_FAIL_UNKNOWN;
        if (setXfCopyEntry(&row, 0) != 0)
            TRACE_ERROR("%s : Set to entry (index= %d) failed \n", __func__,
                        row.xfCopyIndex);
    }
    /*
     * KEPT: without a running row this is the last one of the table, which is
     * notified of once more if it asks for that.
     */
    notify_if_asked(&row);
}

void handle_copy_failure(void) {
    handle_copy_done(XF_FAIL_UNKNOWN);
}

/* KEPT: 1 as well: the copy's own message is what reports a success. */
void handle_copy_success(void) {
    handle_copy_done(XF_FAIL_UNKNOWN);
}
