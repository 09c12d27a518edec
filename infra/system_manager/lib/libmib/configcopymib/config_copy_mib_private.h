/*
 * What the source files of libconfigcopymib share: the records, the values of
 * their columns, the status codes, the module state, and every function.
 *
 * Where things live:
 *   config_copy_mib.cpp   entry points, MIB variable table, module state
 *   copy_table.cpp        rows of xfCopyTable, their read handler, the trace,
 *                         the debug log, age-out
 *   write_path.cpp        SETs: columns, row status, validation, launch
 *   copy_worker.cpp       the copy child: staging, transfers, its report
 *   completion.cpp        the end of a copy and its notification
 *   fabric_errors.cpp     rows of xfCopyErrorTable and how they are collected
 *
 * Rows are changed by private copy: a caller fetches a copy of the row, changes
 * it, and writes it back whole with setXfCopyEntry. Everything in the agent
 * runs on its one thread; nothing is locked.
 */
#ifndef CONFIG_COPY_MIB_PRIVATE_H
#define CONFIG_COPY_MIB_PRIVATE_H

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/agent_ext.h"
#include "platform/ipcbus.h"
#include "platform/layout.h"
#include "platform/netaddr.h"
#include "platform/ordset.h"
#include "platform/trc.h"

/* ---- Columns --------------------------------------------------------------
 */

/*
 * Sub-identifiers of the columns that are registered. Column 1 of xfCopyTable,
 * and the two indexes of xfCopyErrorTable, cannot be read.
 */
enum {
    XF_COLUMN_PROTOCOL = 2,
    XF_COLUMN_SOURCE_FILE_TYPE = 3,
    XF_COLUMN_DEST_FILE_TYPE = 4,
    XF_COLUMN_SERVER_ADDRESS = 5,
    XF_COLUMN_FILE_NAME = 6,
    XF_COLUMN_USER_NAME = 7,
    XF_COLUMN_USER_PASSWORD = 8,
    XF_COLUMN_NOTIFICATION = 9,
    XF_COLUMN_STATE = 10,
    XF_COLUMN_TIME_STARTED = 11,
    XF_COLUMN_TIME_COMPLETED = 12,
    XF_COLUMN_FAIL_CAUSE = 13,
    XF_COLUMN_ROW_STATUS = 14,
    XF_COLUMN_SERVER_ADDRESS_TYPE = 15,
    XF_COLUMN_SERVER_ADDRESS_REV1 = 16,
    XF_COLUMN_VRF_NAME = 17
};
enum {
    XF_ERROR_COLUMN_DEVICE_ADDRESS_TYPE = 2,
    XF_ERROR_COLUMN_DEVICE_ADDRESS = 3,
    XF_ERROR_COLUMN_DEVICE_WWN = 4,
    XF_ERROR_COLUMN_DESCRIPTION = 5
};

/*
 * The variable table tells the read handlers by a magic number which column
 * they are called for: these, one after the other in the order of the columns.
 */
enum { XF_FIRST_MAGIC = 4, XF_FIRST_ERROR_MAGIC = 25 };
constexpr int magic_of_column(int column) {
    return XF_FIRST_MAGIC + column - XF_COLUMN_PROTOCOL;
}
constexpr int magic_of_error_column(int column) {
    return XF_FIRST_ERROR_MAGIC + column - XF_ERROR_COLUMN_DEVICE_ADDRESS_TYPE;
}

/* ---- Values of the columns ---------------------------------------------- */

/* Protocols. */
enum {
    XF_PROTO_TFTP = 1,
    XF_PROTO_FTP = 2,
    XF_PROTO_RCP = 3,
    XF_PROTO_SCP = 4,
    XF_PROTO_SFTP = 5
};

/* File types. */
enum {
    XF_FILE_NETWORK = 1,
    XF_FILE_TARN = 2,
    XF_FILE_STARTUP = 3,
    XF_FILE_RUNNING = 4,
    XF_FILE_TERMINAL = 5,
    XF_FILE_FABRIC_STARTUP = 6,
    XF_FILE_ALL_STARTUP = 7
};

/* Copy states. */
enum {
    XF_STATE_WAITING = 1,
    XF_STATE_RUNNING = 2,
    XF_STATE_SUCCESSFUL = 3,
    XF_STATE_FAILED = 4
};

/* Fail causes. */
enum {
    XF_FAIL_UNKNOWN = 1,
    XF_FAIL_BAD_FILE_NAME = 2,
    XF_FAIL_TIMEOUT = 3,
    XF_FAIL_NO_MEMORY = 4,
    XF_FAIL_NO_CONFIG = 5,
    XF_FAIL_UNSUPPORTED_PROTOCOL = 6,
    XF_FAIL_SOME_CONFIG_APPLY_FAILED = 7,
    XF_FAIL_SAVE_REFUSED = 8,
    XF_FAIL_SAVE_FAILED = 9
};

/* Row status and truth values, under names that no Net-SNMP macro claims. */
enum {
    XF_ROW_ACTIVE = 1,
    XF_ROW_NOT_IN_SERVICE = 2,
    XF_ROW_NOT_READY = 3,
    XF_ROW_CREATE_AND_GO = 4,
    XF_ROW_CREATE_AND_WAIT = 5,
    XF_ROW_DESTROY = 6
};
enum { XF_TRUE = 1, XF_FALSE = 2 };

/* Status codes of the module's own functions, beside 0. */
#define XF_ERR_FAILED 0x40490001
#define XF_ERR_NO_ENTRY 0x40490002
#define XF_ERR_REQUEST_NOT_SENT 0x40490009

/* This module in the platform's error log. */
#define XF_LOG_COMPONENT 584

/* Directions of a transfer. */
enum { XF_DOWNLOAD = 1, XF_UPLOAD = 2 };

/* Largest values that the octet-string columns accept. */
enum {
    XF_FILE_NAME_OCTETS = 128,
    XF_CREDENTIAL_OCTETS = 41,
    XF_REV1_OCTETS = 64,
    XF_VRF_NAME_OCTETS = 32
};

/* ---- Records ------------------------------------------------------------- */

/* A wall-clock moment in 32-bit words, whatever a timeval is here. */
struct xf_timestamp {
    int32_t seconds;
    int32_t microseconds;
};

/*
 * One copy request: a row of xfCopyTable. Flat, without pointers: it is copied
 * whole between the table, the handlers and the copy child. Strings end with a
 * NUL: a name or password has room for the most octets that its column accepts
 * and the NUL, the server address for the text of any address.
 */
struct xfCopyEntry {
    int32_t xfCopyIndex;
    int32_t xfCopyProtocol;
    int32_t xfCopySourceFileType;
    int32_t xfCopyDestFileType;
    uint32_t xfCopyServerAddress; /* octets as received; never read back */
    char xfCopyFileName[256];
    char xfCopySrcFileName[256]; /* local path, set by the copy child */
    char xfCopyUserName[XF_CREDENTIAL_OCTETS + 1];
    char xfCopyUserPassword[XF_CREDENTIAL_OCTETS + 1];
    int32_t xfCopyNotificationOnCompletion;
    int32_t xfCopyState;
    int32_t entryCreateTime; /* seconds of the wall clock */
    struct xf_timestamp xfCopyTimeStarted;
    struct xf_timestamp xfCopyTimeCompleted;
    int32_t xfCopyFailCause;
    int32_t rowCreatedByRequest; /* a row-status write reached RESERVE2 */
    int32_t xfCopyEntryRowStatus;
    int32_t xfCopyServerAddressType;
    char xfCopyServerAddressRev1[64]; /* as text */
    char xfCopyVRFName[XF_VRF_NAME_OCTETS + 1];
};

/* One switch that failed in a fabric-wide copy: a row of xfCopyErrorTable. */
struct xfCopyErrorEntry {
    int32_t xfCopyIndex;
    int32_t xfCopyErrorDeviceIndex;
    int32_t xfCopyErrorDeviceAddressType;
    char deviceAddressText[129];
    uint8_t xfCopyErrorDeviceWwn[8];
    char xfCopyErrorDescription[257];
};

/* The records are copied whole, and are the same for 32 and 64 bits. */
static_assert(std::is_trivial<struct xfCopyEntry>::value, "");
static_assert(std::is_standard_layout<struct xfCopyEntry>::value, "");
PLATFORM_RECORD_SIZE(xf_timestamp, 8);
PLATFORM_RECORD_SIZE(xfCopyEntry, 760);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyIndex, 0);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyProtocol, 4);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopySourceFileType, 8);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyDestFileType, 12);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyServerAddress, 16);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyFileName, 20);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopySrcFileName, 276);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyUserName, 532);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyUserPassword, 574);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyNotificationOnCompletion, 616);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyState, 620);
PLATFORM_FIELD_AT(xfCopyEntry, entryCreateTime, 624);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyTimeStarted, 628);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyTimeCompleted, 636);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyFailCause, 644);
PLATFORM_FIELD_AT(xfCopyEntry, rowCreatedByRequest, 648);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyEntryRowStatus, 652);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyServerAddressType, 656);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyServerAddressRev1, 660);
PLATFORM_FIELD_AT(xfCopyEntry, xfCopyVRFName, 724);

static_assert(std::is_trivial<struct xfCopyErrorEntry>::value, "");
static_assert(std::is_standard_layout<struct xfCopyErrorEntry>::value, "");
PLATFORM_RECORD_SIZE(xfCopyErrorEntry, 408);
PLATFORM_FIELD_AT(xfCopyErrorEntry, xfCopyIndex, 0);
PLATFORM_FIELD_AT(xfCopyErrorEntry, xfCopyErrorDeviceIndex, 4);
PLATFORM_FIELD_AT(xfCopyErrorEntry, xfCopyErrorDeviceAddressType, 8);
PLATFORM_FIELD_AT(xfCopyErrorEntry, deviceAddressText, 12);
PLATFORM_FIELD_AT(xfCopyErrorEntry, xfCopyErrorDeviceWwn, 141);
PLATFORM_FIELD_AT(xfCopyErrorEntry, xfCopyErrorDescription, 149);

/* ---- Module state -------------------------------------------------------- */

#define XF_COLUMN_OID_LENGTH 14
#define XF_VARBIND_OID_LENGTH 15
#define XF_NOTIFICATION_OID_LENGTH 13
#define XF_NOTIFICATION_VARBINDS 7

/*
 * Old value of a column between RESERVE2 and FREE.
 *
 * KEPT: one slot for each column, not for each row: of a request that sets a
 * column of two rows, FREE restores the later one only. Managers set one row.
 */
template <typename Value> struct save_slot {
    uint32_t saved;
    Value value;
};

static_assert(sizeof(struct save_slot<int32_t>) == 8, "");
static_assert(sizeof(struct save_slot<char[32]>) == 36, "");
static_assert(sizeof(struct save_slot<char[41]>) == 48, "");
static_assert(sizeof(struct save_slot<char[64]>) == 68, "");
static_assert(sizeof(struct save_slot<char[256]>) == 260, "");

struct config_copy_state {
    /* Tables and lists; each handle is NULL while there is no container. */
    struct ordset *copy_table;
    struct ordset *error_table;
    struct ordset *undo_list;
    /* KEPT: made and destroyed, never used; init stops without it all the same.
     */
    struct ordset *second_list;

    /* The rows of the copy table in each state, see count_row. */
    struct state_rows {
        uint32_t count;
        int32_t newest; /* index of the row that came into it last */
    } rows_in_state[XF_STATE_FAILED + 1];

    /*
     * Save slots of the column handlers.
     *
     * KEPT: those of user name, password and VRF name have no room for the NUL
     * behind the longest value: FREE restores that without its last character.
     */
    struct save_slot<int32_t> protocol;
    struct save_slot<int32_t> source_file_type;
    struct save_slot<int32_t> dest_file_type;
    struct save_slot<int32_t> server_address; /* KEPT: the flag only */
    struct save_slot<char[256]> file_name;
    struct save_slot<char[41]> user_name;
    struct save_slot<char[41]> user_password;
    struct save_slot<int32_t> notification;
    struct save_slot<int32_t> server_address_type;
    struct save_slot<char[64]> server_address_rev1;
    struct save_slot<char[32]> vrf_name;

    /* What the read handlers serve from. */
    struct xfCopyEntry read_row;
    struct ip_addr read_address;
    uint32_t read_ticks;
    struct xfCopyErrorEntry read_error_row;
    struct ip_addr read_error_address;

    /* The copy child. */
    uint32_t copyChildRunning;
    int32_t copy_child_pid;

    /* The request to the system manager that a save runs under. */
    struct ipcbus_message *save_request;

    /* The server address in a notification. */
    struct ip_addr notification_address;
};

extern struct config_copy_state module_state;

/* ---- Trace and debug log ------------------------------------------------- */

#define XF_TRACE_EVENT 0x730000
enum { XF_TRACE_ERROR = 100, XF_TRACE_INFO = 101 };

/* Formats one event into the history. */
void trace_history(uint32_t level, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

/* Not defined: lets the compiler check a format without a call. */
int trace_format_check(const char *format, ...)
    __attribute__((format(printf, 1, 2)));

/*
 * One trace text: into the history if its type is recorded, and to live output
 * if its level is on. Arguments are evaluated once. errno is not kept.
 */
template <typename... Arguments>
inline void trace_event(uint32_t level, const char *format,
                        Arguments... arguments) {
    if (trc_hist_event_subtype_check(XF_TRACE_EVENT, level) == 0)
        trace_history(level, format, arguments...);
    if (trc_chk_int(level, 0, 0, 1) != 0)
        dprint(1, trc_dbg_modname, 0, format, arguments...);
}

#define TRACE(level, ...)                                                      \
    (static_cast<void>(sizeof(trace_format_check(__VA_ARGS__))),               \
     trace_event(level, __VA_ARGS__))
#define TRACE_ERROR(...) TRACE(XF_TRACE_ERROR, __VA_ARGS__)
#define TRACE_INFO(...) TRACE(XF_TRACE_INFO, __VA_ARGS__)

/* Writes one record to the debug log, see DEBUG_LOG. */
void debug_log(const char *format, ...) __attribute__((format(printf, 1, 2)));

/*
 * One record in the debug log while it is switched on. The format begins with
 * "%s(%d):%s" for function, line and function, which are supplied here. Helpers
 * log in the name of the function that the agent called.
 */
#define DEBUG_LOG_AS(function, format, ...)                                    \
    do {                                                                       \
        if (is_snmp_debug_enabled != 0)                                        \
            debug_log(format, function, __LINE__, function, ##__VA_ARGS__);    \
    } while (0)
#define DEBUG_LOG(format, ...) DEBUG_LOG_AS(__func__, format, ##__VA_ARGS__)

/* ---- Helpers ------------------------------------------------------------- */

/*
 * Index of a copy-table instance. Without `exact`, 0 (before the first row)
 * unless the request lies below the column.
 * Returns 0; XF_ERR_FAILED if an exact request has not the right length.
 */
int32_t parse_copy_index(const oid *column, size_t column_len, const oid *name,
                         size_t name_len, int exact, int32_t *index);

/* Reads the wall clock into a row's time stamp. */
void timestamp_now(struct xf_timestamp *stamp);

/* A time stamp as agent up-time, hundredths of a second. */
uint32_t timestamp_uptime(const struct xf_timestamp *stamp);

/* Copies at most size - 1 characters of `text` and a NUL; with size 0 nothing.
 */
void copy_text(char *to, size_t size, const char *text);

/* snprintf for texts that are to be cut where they do not fit. */
void format_text(char *to, size_t size, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/* Big-endian fields of messages. */
uint32_t get_be32(const void *octets);
void put_be32(void *octets, uint32_t value);

/* Tells whether the pair is one that the system manager copies. */
bool is_running_to_startup(const struct xfCopyEntry *entry);

/*
 * The row of an index where it stands in the table, to look at; NULL if there
 * is none.
 */
const struct xfCopyEntry *find_copy_row(int32_t index);

/*
 * A row comes into the table in the state that it has, or leaves it: rows in a
 * state are then not looked for in the whole table.
 */
void count_row(const struct xfCopyEntry *row);
void discount_row(const struct xfCopyEntry *row);

/* Fills xfCopyErrorTable for the row of a failed fabric-wide copy. */
void collect_fabric_error_rows(const struct xfCopyEntry *copy_entry);

/* ---- Exported ------------------------------------------------------------ */

#pragma GCC visibility push(default)
extern "C" {

extern struct variable7 config_copy_mib_variables[20];
extern oid config_copy_mib_variables_oid[9];
extern uint32_t ageouttimer;           /* alarm id while there are rows */
extern uint32_t is_snmp_debug_enabled; /* set by the hosting agent */
extern uint64_t start_cpu_cycles;      /* when the wait for a save began */

/* Entry points; the hosting agent calls them. */
void init_config_copy_mib(void);
void deinit_config_copy_mib(void);

/*
 * Classic scalar read handler; accepts requests but has no value.
 *
 * KEPT: no variable of the table uses it; it is an export of the module.
 */
u_char *get_config_copy_mib(struct variable *vp, oid *name, size_t *length,
                            int exact, size_t *var_len,
                            WriteMethod **write_method);

/* -- Copy table -- */

/*
 * A new row with its defaults, on the heap and not in the table; NULL when
 * there is no memory. Free it with xfCopyEntry_free.
 */
struct xfCopyEntry *createXfCopyEntry(void);

/*
 * Puts a row into the table, which then owns it; the first one starts the
 * age-out alarm. Returns 0; XF_ERR_FAILED if a row of its index is there, and
 * the row then stays the caller's.
 */
int32_t addXfCopyEntry(struct xfCopyEntry *entry);

/*
 * Copies the row of index buffer->xfCopyIndex over *buffer. Returns 0;
 * XF_ERR_NO_ENTRY if there is none, and *buffer is then untouched.
 */
int32_t getXfCopyEntry(struct xfCopyEntry *buffer);

/*
 * The same for the first row above buffer->xfCopyIndex, or for the first of
 * all if that is 0.
 */
int32_t getnextXfCopyEntry(struct xfCopyEntry *buffer);

/*
 * Deletes the row of entry->xfCopyIndex and its error rows; the last one stops
 * the age-out alarm. Returns 0; XF_ERR_FAILED if there is none.
 */
int32_t deleteXfCopyEntry(const struct xfCopyEntry *entry);

/* Frees a row that is not in a container. */
void xfCopyEntry_free(struct xfCopyEntry *entry);

/* Order of rows by index, in the sign convention of ordset; -1 for a NULL. */
int xfCopyEntry_comp_func(const void *a, const void *b);

/*
 * Copies the first row in the given state over *buffer. Returns 0;
 * XF_ERR_FAILED if there is none: *buffer is then the last row of the table,
 * or zeroes if that is empty.
 */
int32_t get_config_entry_with_status(int32_t state, struct xfCopyEntry *buffer);

/*
 * 1 if a row is running or a copy child is, else 0.
 *
 * KEPT: a running save counts by its row alone: one whose row was destroyed
 * does not hold the next copy up.
 */
int32_t copy_inprogress(void);

/* Read handler of xfCopyTable; the value lasts until the next call. */
u_char *get_xfCopyTable(struct variable *vp, oid *name, size_t *length,
                        int exact, size_t *var_len, WriteMethod **write_method);

/* Stores the write method of a column; nothing for a read-only one. */
void set_xfCopyTable_setmethods(int magic, WriteMethod **write_method);

/* Alarm: deletes the rows that are old and not running. */
void cfgentry_age_timer_handler(unsigned int alarm_id, void *client_argument);

/* -- Writes -- */

/*
 * Writes a private copy back over the stored row, whole. With
 * collect_fabric_errors also fills xfCopyErrorTable for it, whatever comes of
 * that. Returns 0; XF_ERR_NO_ENTRY if the row is not stored.
 */
int32_t setXfCopyEntry(const struct xfCopyEntry *entry,
                       uint32_t collect_fabric_errors);

/*
 * The agent's start time was shifted: moves the creation time of every row.
 * serverarg points to a pointer to the seconds (32-bit unsigned) followed by a
 * 32-bit direction, 1 for forward. Returns 0.
 */
int xf_handle_starttime_change(int majorID, int minorID, void *serverarg,
                               void *clientarg);

/* Write methods of the columns, and that of the row status. */
WriteMethod set_xfCopyProtocol;
WriteMethod set_xfCopySourceFileType;
WriteMethod set_xfCopyDestFileType;
WriteMethod set_xfCopyServerAddress;
WriteMethod set_xfCopyFileName;
WriteMethod set_xfCopyUserName;
WriteMethod set_xfCopyUserPassword;
WriteMethod set_xfCopyNotificationOnCompletion;
WriteMethod set_xfCopyServerAddressType;
WriteMethod set_xfCopyServerAddressRev1;
WriteMethod set_xfCopyVRFName;
WriteMethod set_xfCopyEntryRowStatus;

/*
 * Tells whether a request is complete: 1, or 0 with *error_status an SNMP error
 * or 0. What is missing is an error when `mode` is active (1); otherwise it
 * makes the row notReady.
 *
 * KEPT: every rule is looked at, and the last that fails decides the error.
 */
int32_t validate_entry(struct xfCopyEntry *entry, int32_t *error_status,
                       int32_t mode);

/*
 * Validates the caller's private copy and starts its copy. Returns 0, also if
 * there was nothing to start; otherwise an SNMP error.
 *
 * KEPT: 0 as well for a row that validation made notReady, and for a save that
 * could not be asked for or was refused: the row tells.
 */
int32_t validate_n_start_copy(struct xfCopyEntry *entry, int32_t row_status);

/* -- Copy child -- */

/* Forks the copy child. Returns 0; XF_ERR_FAILED if one is running. */
int32_t start_copy(struct xfCopyEntry *entry);

/* Asks the system manager to abort the save that runs for a row. Returns 0. */
int32_t handle_abort(const struct xfCopyEntry *entry);

/* The work of the copy child; reports one status to the agent. */
void copy_function(struct xfCopyEntry *entry);

/* Moves the file of a copy; returns 0 or a fail cause. */
int32_t do_nw_upload_download(uint32_t direction, char *directory,
                              const struct xfCopyEntry *entry);
int32_t do_nw_upload_download_on_vrf(uint32_t direction, char *directory,
                                     const struct xfCopyEntry *entry);
int32_t do_nw_upload_download_on_storage_pod(uint32_t direction,
                                             char *directory,
                                             const struct xfCopyEntry *entry);

/* Fail cause of a (negative) result of the TFTP library. */
int32_t tftperr2miberr(int32_t err);

/*
 * Sends the copy status message to the agent; the result is of no use.
 *
 * KEPT: after ten handles that could not be bound it gives up; the row stays
 * running unless the platform notices that the child is gone.
 */
int32_t send_status_2_parent(uint32_t status);

/* -- End of a copy -- */

/*
 * Has the system manager save the running configuration and notes its answer in
 * *entry. Blocks for up to 899 seconds and one heartbeat. Returns 0;
 * XF_ERR_REQUEST_NOT_SENT.
 */
int32_t do_cp_runningtostartup(struct xfCopyEntry *entry);

/* Handler of the platform messages, see platform/agent_ext.h. */
netsnmp_variable_list *handle_notifications(struct ipcbus_message *message,
                                            oid *oid_out, size_t *oid_len_out,
                                            int *notify_out);

/* The copy child is done: 0 or a fail cause. */
void handle_copy_done(uint32_t status);

/*
 * Both end the running copy as failed for an unknown cause.
 *
 * KEPT: nothing calls them; they are exports of the module.
 */
void handle_copy_failure(void);
void handle_copy_success(void);

/*
 * Varbinds of xfCopyCompletion for a finished row, for the caller to hand on,
 * and its OID in oid_out (13 sub-identifiers). NULL if no varbind could be
 * made.
 */
netsnmp_variable_list *build_notification(const struct xfCopyEntry *entry,
                                          oid *oid_out, size_t *oid_len_out);

/* -- Fabric error table -- */

/* Order of error rows, in the sign convention of ordset; -1 for a NULL. */
int xfCopyErrorEntry_comp_func(const void *a, const void *b);

/*
 * A comparison by which everything is equal.
 *
 * KEPT: nothing calls it; it is an export of the module.
 */
int search_all_cmp(const void *a, const void *b);

/*
 * Stores a copy of *record. Returns 0; 5 without memory; XF_ERR_FAILED if the
 * container refuses it, as it does a second row of the same key.
 */
int32_t addXfCopyErrorEntry(const struct xfCopyEntry *copy_entry,
                            const struct xfCopyErrorEntry *record);

/* Exact and next lookup by the two indexes of *buffer. Return 0 or
 * XF_ERR_NO_ENTRY, with *buffer then untouched. */
int32_t getXfCopyErrorEntry(struct xfCopyErrorEntry *buffer);
int32_t getnextXfCopyErrorEntry(struct xfCopyErrorEntry *buffer);

/*
 * Deletes the error rows of a copy. Returns 0.
 *
 * KEPT: a row of device index 0 or below stays; devices are numbered from 1.
 */
int32_t deleteXfCopyErrorEntries(const struct xfCopyEntry *copy_entry);

/*
 * First error row of the table, if there is a copy row above
 * buffer->xfCopyIndex. Returns 0 or XF_ERR_NO_ENTRY.
 *
 * KEPT: nothing calls it; it is an export of the module.
 */
int32_t getFirstErrorEntryForNextCopyEntry(struct xfCopyErrorEntry *buffer);

/* Read handler of xfCopyErrorTable; the value lasts until the next call. */
u_char *get_xfCopyErrorTable(struct variable *vp, oid *name, size_t *length,
                             int exact, size_t *var_len,
                             WriteMethod **write_method);
}
#pragma GCC visibility pop

#endif
