/*
 * The rows of xfCopyTable: their store, read handler and age-out; and the trace
 * and the debug log, which every source file uses.
 */
#include "config_copy_mib_private.h"

#include <sys/time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

/* ---- Trace --------------------------------------------------------------- */

#define TRACE_TEXT_SIZE 512

struct trace_record {
    uint32_t level;
    char text[TRACE_TEXT_SIZE];
};

PLATFORM_RECORD_SIZE(trace_record, 516);
PLATFORM_FIELD_AT(trace_record, text, 4);

/* Where a text goes: its next character, and the last place, for the NUL. */
struct text_room {
    char *to;
    char *last;
};

static void put_octets(struct text_room *room, const char *octets,
                       size_t length) {
    const size_t left = static_cast<size_t>(room->last - room->to);

    if (length > left)
        length = left;
    memcpy(room->to, octets, length);
    room->to += length;
}

static void put_integer(struct text_room *room, long value) {
    char digits[24];
    char *const end = digits + sizeof(digits);
    char *first = end;
    unsigned long rest = static_cast<unsigned long>(value);

    if (value < 0)
        rest = 0 - rest;
    do
        *--first = static_cast<char>('0' + rest % 10);
    while ((rest /= 10) != 0);
    if (value < 0)
        *--first = '-';
    put_octets(room, first, static_cast<size_t>(end - first));
}

/*
 * Writes a text with %s, %d and %ld only, as almost all are: a SET traces
 * dozens, and would spend most of its time in printf. False if it has more.
 */
static bool put_plain_text(char *to, size_t size, const char *format,
                           va_list arguments) {
    struct text_room room = {to, to + size - 1};

    for (;;) {
        const char *const next = strchrnul(format, '%');

        put_octets(&room, format, static_cast<size_t>(next - format));
        if (*next == '\0')
            break;
        format = next + 2;
        if (next[1] == 'd') {
            put_integer(&room, va_arg(arguments, int));
        } else if (next[1] == 'l' && next[2] == 'd') {
            put_integer(&room, va_arg(arguments, long));
            format++;
        } else if (next[1] == 's') {
            const char *const text = va_arg(arguments, const char *);

            if (text == nullptr)
                return false;
            put_octets(&room, text, strlen(text));
        } else {
            return false;
        }
    }
    *room.to = '\0';
    return true;
}

static bool put_text(char *to, size_t size, const char *format,
                     va_list arguments) {
    va_list again;

    va_copy(again, arguments);
    const bool written = put_plain_text(to, size, format, arguments) ||
                         vsnprintf(to, size, format, again) >= 0;
    va_end(again);
    return written;
}

void trace_history(uint32_t level, const char *format, ...) {
    struct trace_record record;
    va_list arguments;

    va_start(arguments, format);
    const bool written =
        put_text(record.text, sizeof(record.text), format, arguments);
    va_end(arguments);
    if (!written)
        return;
    record.level = level;
    trc_hist_event(
        XF_TRACE_EVENT,
        static_cast<uint32_t>(sizeof(record.level) + strlen(record.text) + 1),
        &record);
}

/* ---- Debug log ----------------------------------------------------------- */

/* The open log; NULL if it cannot be opened: the next use tries again. */
static FILE *debug_log_file(void) {
    static FILE *log;
    char name[128];

    if (log != nullptr)
        return log;
    snprintf(name, sizeof(name), "%s.%d", "/tmp/cfg_snmp_debug.log",
             static_cast<int>(getpid()));
    log = fopen(name, "a");
    if (log == nullptr)
        fprintf(stderr, "Can't open %s", name);
    return log;
}

/*
 * Flushed at once: the copy child inherits the handle, and lines of the two
 * processes must not mix.
 */
void debug_log(const char *format, ...) {
    FILE *const log = debug_log_file();
    const time_t now = time(nullptr);
    va_list arguments;

    if (log == nullptr)
        return;
    fprintf(log, "[%.24s] ", ctime(&now));
    va_start(arguments, format);
    vfprintf(log, format, arguments);
    va_end(arguments);
    /* KEPT: most records end with a newline of their own: a blank line each. */
    fputc('\n', log);
    fflush(log);
}

/* ---- Helpers ------------------------------------------------------------- */

void timestamp_now(struct xf_timestamp *stamp) {
    struct timeval now;

    gettimeofday(&now, nullptr);
    stamp->seconds = static_cast<int32_t>(now.tv_sec);
    stamp->microseconds = static_cast<int32_t>(now.tv_usec);
}

uint32_t timestamp_uptime(const struct xf_timestamp *stamp) {
    struct timeval moment;

    moment.tv_sec = stamp->seconds;
    moment.tv_usec = stamp->microseconds;
    return static_cast<uint32_t>(netsnmp_timeval_uptime(&moment));
}

void copy_text(char *to, size_t size, const char *text) {
    if (size == 0)
        return;
    const size_t length = strnlen(text, size - 1);
    memcpy(to, text, length);
    to[length] = '\0';
}

void format_text(char *to, size_t size, const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    vsnprintf(to, size, format, arguments);
    va_end(arguments);
}

uint32_t get_be32(const void *octets) {
    const uint8_t *const octet = static_cast<const uint8_t *>(octets);

    return static_cast<uint32_t>(octet[0]) << 24 |
           static_cast<uint32_t>(octet[1]) << 16 |
           static_cast<uint32_t>(octet[2]) << 8 | octet[3];
}

void put_be32(void *octets, uint32_t value) {
    uint8_t *const octet = static_cast<uint8_t *>(octets);

    octet[0] = static_cast<uint8_t>(value >> 24);
    octet[1] = static_cast<uint8_t>(value >> 16);
    octet[2] = static_cast<uint8_t>(value >> 8);
    octet[3] = static_cast<uint8_t>(value);
}

/* ---- Store --------------------------------------------------------------- */

struct xfCopyEntry *createXfCopyEntry(void) {
    struct xfCopyEntry *const entry =
        static_cast<struct xfCopyEntry *>(malloc(sizeof(*entry)));

    if (entry == nullptr)
        return nullptr;
    memset(entry, 0, sizeof(*entry));
    entry->xfCopyProtocol = XF_PROTO_TFTP;
    entry->xfCopySourceFileType = XF_FILE_NETWORK;
    entry->xfCopyDestFileType = XF_FILE_STARTUP;
    entry->xfCopyNotificationOnCompletion = XF_FALSE;
    entry->xfCopyState = XF_STATE_WAITING;
    entry->entryCreateTime = static_cast<int32_t>(time(nullptr));
    entry->xfCopyFailCause = XF_FAIL_UNKNOWN;
    return entry;
}

void xfCopyEntry_free(struct xfCopyEntry *entry) {
    free(entry);
}

int xfCopyEntry_comp_func(const void *a, const void *b) {
    if (a == nullptr || b == nullptr)
        return -1;
    const int32_t index_a =
        static_cast<const struct xfCopyEntry *>(a)->xfCopyIndex;
    const int32_t index_b =
        static_cast<const struct xfCopyEntry *>(b)->xfCopyIndex;
    return INTCMP(index_b, index_a);
}

/* NULL for what is no state. */
static struct config_copy_state::state_rows *rows_of_state(int32_t state) {
    if (state < XF_STATE_WAITING || state > XF_STATE_FAILED)
        return nullptr;
    return &module_state.rows_in_state[state];
}

void count_row(const struct xfCopyEntry *row) {
    struct config_copy_state::state_rows *const rows =
        rows_of_state(row->xfCopyState);

    if (rows == nullptr)
        return;
    rows->count++;
    rows->newest = row->xfCopyIndex;
}

void discount_row(const struct xfCopyEntry *row) {
    struct config_copy_state::state_rows *const rows =
        rows_of_state(row->xfCopyState);

    /*
     * A caller that has added a row may have changed its state in place since,
     * and it was counted in another one: a count that wrapped would refuse
     * every later copy.
     */
    if (rows != nullptr && rows->count != 0)
        rows->count--;
}

int32_t addXfCopyEntry(struct xfCopyEntry *entry) {
    struct ordset **const table = &module_state.copy_table;

    if (ordset_size(*table) != 0) {
        if (ordset_add(*table, entry, entry) != entry)
            return XF_ERR_FAILED;
        count_row(entry);
        return 0;
    }
    /* KEPT: its result is not looked at: adding to no set fails as well. */
    ordset_create(table, 1, 1, xfCopyEntry_comp_func, 1);
    if (ordset_add(*table, entry, entry) == nullptr)
        return XF_ERR_FAILED;
    count_row(entry);
    ageouttimer = snmp_alarm_register(101, SA_REPEAT,
                                      cfgentry_age_timer_handler, nullptr);
    return 0;
}

int32_t getXfCopyEntry(struct xfCopyEntry *buffer) {
    if (ordset_size(module_state.copy_table) == 0)
        return XF_ERR_NO_ENTRY;
    const void *const found = ordset_find(module_state.copy_table, buffer);
    if (found == nullptr)
        return XF_ERR_NO_ENTRY;
    memcpy(buffer, found, sizeof(*buffer));
    return 0;
}

int32_t getnextXfCopyEntry(struct xfCopyEntry *buffer) {
    struct ordset *const table = module_state.copy_table;

    if (ordset_size(table) == 0)
        return XF_ERR_NO_ENTRY;
    const void *const found = buffer->xfCopyIndex == 0
                                  ? ordset_find_nth_obj(table, 1)
                                  : ordset_find_nextgreater(table, buffer);
    if (found == nullptr)
        return XF_ERR_NO_ENTRY;
    memcpy(buffer, found, sizeof(*buffer));
    return 0;
}

int32_t deleteXfCopyEntry(const struct xfCopyEntry *entry) {
    struct ordset **const table = &module_state.copy_table;

    if (ordset_size(*table) == 0)
        return XF_ERR_FAILED;
    /* KEPT: they go even if there turns out to be no such row. */
    deleteXfCopyErrorEntries(entry);
    struct xfCopyEntry *const removed =
        static_cast<struct xfCopyEntry *>(ordset_remove(*table, entry));
    if (removed == nullptr)
        return XF_ERR_FAILED;
    discount_row(removed);
    xfCopyEntry_free(removed);
    if (ordset_size(*table) == 0) {
        snmp_alarm_unregister(ageouttimer);
        ordset_destroy(table);
    }
    return 0;
}

const struct xfCopyEntry *find_copy_row(int32_t index) {
    struct xfCopyEntry key;

    key.xfCopyIndex = index;
    return static_cast<const struct xfCopyEntry *>(
        ordset_find(module_state.copy_table, &key));
}

/* The row at a position counted from 1; NULL if there is none. */
static const struct xfCopyEntry *row_at(uint32_t position) {
    return static_cast<const struct xfCopyEntry *>(
        ordset_find_nth_obj(module_state.copy_table, position));
}

static const struct xfCopyEntry *row_behind(const struct xfCopyEntry *key) {
    return static_cast<const struct xfCopyEntry *>(
        ordset_find_nextgreater(module_state.copy_table, key));
}

/* Where to look for the first row in a state, if some row may be in it. */
static const struct xfCopyEntry *
start_of_search(const struct config_copy_state::state_rows *rows) {
    struct xfCopyEntry key;

    if (rows == nullptr || rows->count != 1 || rows->newest == INT32_MIN)
        return row_at(1);
    /* Most likely it is the only one. */
    key.xfCopyIndex = rows->newest - 1;
    return row_behind(&key);
}

/* The first row in a state; NULL if there is none. */
static const struct xfCopyEntry *first_row_in_state(int32_t state) {
    const struct config_copy_state::state_rows *const rows =
        rows_of_state(state);

    if (rows != nullptr && rows->count == 0)
        return nullptr;
    const struct xfCopyEntry *row = start_of_search(rows);
    if (row == nullptr || row->xfCopyState != state)
        row = row_at(1);
    while (row != nullptr && row->xfCopyState != state)
        row = row_behind(row);
    return row;
}

int32_t get_config_entry_with_status(int32_t state,
                                     struct xfCopyEntry *buffer) {
    const struct xfCopyEntry *const found = first_row_in_state(state);
    const struct xfCopyEntry *const visited =
        found != nullptr ? found : row_at(ordset_size(module_state.copy_table));

    if (visited != nullptr)
        *buffer = *visited;
    else
        memset(buffer, 0, sizeof(*buffer));
    return found != nullptr ? 0 : XF_ERR_FAILED;
}

int32_t copy_inprogress(void) {
    if (module_state.rows_in_state[XF_STATE_RUNNING].count != 0)
        return 1;
    return module_state.copyChildRunning == 1 ? 1 : 0;
}

/* ---- Read handler -------------------------------------------------------- */

/* Write methods by column; NULL for the columns that are only read. */
static WriteMethod *const write_methods[] = {
    set_xfCopyProtocol,
    set_xfCopySourceFileType,
    set_xfCopyDestFileType,
    set_xfCopyServerAddress,
    set_xfCopyFileName,
    set_xfCopyUserName,
    set_xfCopyUserPassword,
    set_xfCopyNotificationOnCompletion,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    set_xfCopyEntryRowStatus,
    set_xfCopyServerAddressType,
    set_xfCopyServerAddressRev1,
    set_xfCopyVRFName,
};
static constexpr int last_magic = magic_of_column(XF_COLUMN_VRF_NAME);
static_assert(sizeof(write_methods) / sizeof(write_methods[0]) ==
                  last_magic - XF_FIRST_MAGIC + 1,
              "one for each column");

void set_xfCopyTable_setmethods(int magic, WriteMethod **write_method) {
    if (magic < XF_FIRST_MAGIC || magic > last_magic)
        return;
    if (write_methods[magic - XF_FIRST_MAGIC] != nullptr)
        *write_method = write_methods[magic - XF_FIRST_MAGIC];
}

int32_t parse_copy_index(const oid *column, size_t column_len, const oid *name,
                         size_t name_len, int exact, int32_t *index) {
    *index = 0;
    if (name_len <= column_len)
        return 0;
    if (exact != 0) {
        if (name_len != column_len + 1)
            return XF_ERR_FAILED;
        *index = static_cast<int32_t>(name[name_len - 1]);
        return 0;
    }
    if (snmp_oid_compare(name, column_len, column, column_len) == 0)
        *index = static_cast<int32_t>(name[column_len]);
    return 0;
}

/* Finds the instance asked for and rewrites the request to it. */
static int32_t find_copy_instance(const struct variable *vp, oid *name,
                                  size_t *length, int exact,
                                  struct xfCopyEntry *row) {
    const size_t column_len = vp->namelen;

    /* KEPT: a length that is not right leaves index 0, which no row has. */
    parse_copy_index(vp->name, column_len, name, *length, exact,
                     &row->xfCopyIndex);
    const int32_t status =
        exact != 0 ? getXfCopyEntry(row) : getnextXfCopyEntry(row);
    if (status != 0)
        return status;
    memcpy(name, vp->name, column_len * sizeof(name[0]));
    name[column_len] =
        static_cast<oid>(static_cast<uint32_t>(row->xfCopyIndex));
    *length = column_len + 1;
    return 0;
}

static u_char *value_of(void *value, size_t length, size_t *var_len) {
    *var_len = length;
    return static_cast<u_char *>(value);
}

static u_char *integer_value(void *value, size_t *var_len) {
    return value_of(value, 4, var_len);
}

static u_char *text_value(char *text, size_t *var_len) {
    return value_of(text, strlen(text), var_len);
}

/* A moment as up-time, 0 for one that has not come or was before the start. */
static u_char *ticks_value(const struct xf_timestamp *stamp, size_t *var_len) {
    uint32_t ticks = 0;

    if (stamp->seconds != 0 || stamp->microseconds != 0)
        ticks = timestamp_uptime(stamp);
    if (static_cast<int32_t>(ticks) < 0)
        ticks = 0;
    module_state.read_ticks = ticks;
    return integer_value(&module_state.read_ticks, var_len);
}

/* The address in octets; `ipv4_only` for the column that has no room for more.
 */
static u_char *address_value(const char *text, bool ipv4_only,
                             size_t *var_len) {
    struct ip_addr *const address = &module_state.read_address;

    if (ip_addr_from_str(text, address) != 0 ||
        (ipv4_only && address->type != INET_ADDRESS_IPV4)) {
        *var_len = 0;
        return nullptr;
    }
    return value_of(address->octets,
                    address->type == INET_ADDRESS_IPV4 ? 4 : 16, var_len);
}

u_char *get_xfCopyTable(struct variable *vp, oid *name, size_t *length,
                        int exact, size_t *var_len,
                        WriteMethod **write_method) {
    struct xfCopyEntry *const row = &module_state.read_row;
    static char no_password[] = "";

    const int32_t status = find_copy_instance(vp, name, length, exact, row);

    /* Before the result is looked at: a SET may be about to make the row. */
    set_xfCopyTable_setmethods(vp->magic, write_method);
    if (status != 0)
        return nullptr;

    switch (vp->magic) {
    case magic_of_column(XF_COLUMN_PROTOCOL):
        return integer_value(&row->xfCopyProtocol, var_len);
    case magic_of_column(XF_COLUMN_SOURCE_FILE_TYPE):
        return integer_value(&row->xfCopySourceFileType, var_len);
    case magic_of_column(XF_COLUMN_DEST_FILE_TYPE):
        return integer_value(&row->xfCopyDestFileType, var_len);
    case magic_of_column(XF_COLUMN_SERVER_ADDRESS):
        return address_value(row->xfCopyServerAddressRev1, true, var_len);
    case magic_of_column(XF_COLUMN_FILE_NAME):
        return text_value(row->xfCopyFileName, var_len);
    case magic_of_column(XF_COLUMN_USER_NAME):
        return text_value(row->xfCopyUserName, var_len);
    case magic_of_column(XF_COLUMN_USER_PASSWORD):
        return text_value(no_password, var_len); /* KEPT: never read back */
    case magic_of_column(XF_COLUMN_NOTIFICATION):
        return integer_value(&row->xfCopyNotificationOnCompletion, var_len);
    case magic_of_column(XF_COLUMN_STATE):
        return integer_value(&row->xfCopyState, var_len);
    case magic_of_column(XF_COLUMN_TIME_STARTED):
        return ticks_value(&row->xfCopyTimeStarted, var_len);
    case magic_of_column(XF_COLUMN_TIME_COMPLETED):
        return ticks_value(&row->xfCopyTimeCompleted, var_len);
    case magic_of_column(XF_COLUMN_FAIL_CAUSE):
        return integer_value(&row->xfCopyFailCause, var_len);
    case magic_of_column(XF_COLUMN_ROW_STATUS):
        return integer_value(&row->xfCopyEntryRowStatus, var_len);
    case magic_of_column(XF_COLUMN_SERVER_ADDRESS_TYPE):
        return integer_value(&row->xfCopyServerAddressType, var_len);
    case magic_of_column(XF_COLUMN_SERVER_ADDRESS_REV1):
        return address_value(row->xfCopyServerAddressRev1, false, var_len);
    case magic_of_column(XF_COLUMN_VRF_NAME):
        return text_value(row->xfCopyVRFName, var_len);
    default: /* KEPT: no such variable is registered */
        snmp_set_detail("");
        return nullptr;
    }
}

/* ---- Age-out ------------------------------------------------------------- */

/* Seconds that a row is kept after its creation. */
static constexpr int32_t row_lifetime = 305;

void cfgentry_age_timer_handler(unsigned int alarm_id, void *client_argument) {
    struct xfCopyEntry row;

    (void)alarm_id;
    (void)client_argument;
    TRACE_INFO("%s : enter...\n", __func__);
    memset(&row, 0, sizeof(row));
    while (getnextXfCopyEntry(&row) == 0) {
        const int32_t now = static_cast<int32_t>(time(nullptr));
        const int32_t age =
            static_cast<int32_t>(static_cast<uint32_t>(now) -
                                 static_cast<uint32_t>(row.entryCreateTime));

        if (age <= row_lifetime)
            continue;
        if (row.xfCopyState == XF_STATE_RUNNING &&
            row.xfCopyEntryRowStatus != XF_ROW_DESTROY)
            continue;
        TRACE_INFO("%s: Deleting the aged out entry %d (curtime = %ld, "
                   "entrycreatetetime = %ld \n",
                   __func__, row.xfCopyIndex, static_cast<long>(now),
                   static_cast<long>(row.entryCreateTime));
        deleteXfCopyEntry(&row);
    }
}
