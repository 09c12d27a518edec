/*
 * SETs: the entry update that every change goes through, the write methods of
 * the columns, the row status with its undo list, the validation of a request
 * and the launch of its copy.
 */
#include "config_copy_mib_private.h"

#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/accounting.h"
#include "platform/errlog.h"

/* ---- Entry update -------------------------------------------------------- */

int32_t setXfCopyEntry(const struct xfCopyEntry *entry,
                       uint32_t collect_fabric_errors) {
    if (ordset_size(module_state.copy_table) == 0)
        return XF_ERR_NO_ENTRY;
    struct xfCopyEntry *const stored = static_cast<struct xfCopyEntry *>(
        ordset_find(module_state.copy_table, entry));
    if (stored == nullptr)
        return XF_ERR_NO_ENTRY;
    discount_row(stored);
    *stored = *entry;
    count_row(stored);
    if (collect_fabric_errors != 0)
        collect_fabric_error_rows(stored);
    return 0;
}

/* What the agent hands to the start-time callback. */
struct starttime_change {
    const uint32_t *seconds;
    int32_t direction; /* 1: forward */
};

int xf_handle_starttime_change(int majorID, int minorID, void *serverarg,
                               void *clientarg) {
    const struct starttime_change *const change =
        static_cast<const struct starttime_change *>(serverarg);
    struct xfCopyEntry row;

    (void)majorID;
    (void)minorID;
    (void)clientarg;
    memset(&row, 0, sizeof(row));
    while (getnextXfCopyEntry(&row) == 0) {
        const uint32_t created = static_cast<uint32_t>(row.entryCreateTime);
        const uint32_t shifted = change->direction == 1
                                     ? created + *change->seconds
                                     : created - *change->seconds;

        row.entryCreateTime = static_cast<int32_t>(shifted);
        setXfCopyEntry(&row, 0);
        snmp_heartbeat_send();
    }
    return 0;
}

/* ---- What a write method is given ---------------------------------------- */

struct set_request {
    const u_char *octets;
    u_char type;
    size_t length;
    int32_t index;
};

static struct set_request request_of(const u_char *var_val, u_char type,
                                     size_t length, const oid *name,
                                     size_t name_len) {
    return {var_val, type, length, static_cast<int32_t>(name[name_len - 1])};
}

/*
 * An integer comes as the agent's own `long`, or as 4 octets; octets that are
 * not there count as zero.
 */
static int32_t request_integer(const struct set_request *request) {
    long native;
    int32_t value = 0;

    if (request->octets == nullptr)
        return 0;
    if (request->length == sizeof(native)) {
        memcpy(&native, request->octets, sizeof(native));
        return static_cast<int32_t>(native);
    }
    memcpy(&value, request->octets,
           request->length < sizeof(value) ? request->length : sizeof(value));
    return value;
}

/* The first octets of the value; those that are not there count as zero. */
static void request_octets(const struct set_request *request, void *to,
                           size_t size) {
    const size_t length = request->length < size ? request->length : size;

    memset(to, 0, size);
    if (length != 0)
        memcpy(to, request->octets, length);
}

static bool integer_length_is_bad(const struct set_request *request) {
    return request->length > 4 && request->length != sizeof(long);
}

/* Private copy of a row; zeroes but for the index if there is none. */
static int32_t fetch_row(int32_t index, struct xfCopyEntry *row) {
    row->xfCopyIndex = index;
    const int32_t status = getXfCopyEntry(row);
    if (status != 0) {
        memset(row, 0, sizeof(*row));
        row->xfCopyIndex = index;
    }
    return status;
}

/* ---- Column write methods ------------------------------------------------ */

/* Phases in which a column traces its entry; and the length it is given. */
enum {
    TRACES_RESERVE2 = 1,
    TRACES_ACTION = 2,
    TRACES_FREE = 4,
    TRACES_PHASES = TRACES_RESERVE2 | TRACES_ACTION | TRACES_FREE,
    TRACES_LENGTH = 8
};

/* How a column differs from the others; what is left out is "none" or "no". */
struct column {
    const char *function;
    const char *object;
    u_char type;
    size_t max_length;
    const char *object_in_bad_length = object;
    int traces = TRACES_FREE;
    const char *reserve1_trace = nullptr; /* of function, index and integer */
    bool traces_refusals = false;         /* instead of standard error */
    bool traces_status_refusal = false;
    bool saves_first = false; /* before the row status is tested */
    void (*not_found)(const char *function, int32_t index) = nullptr;
    int (*test)(const char *function,
                const struct set_request *request) = nullptr;
    uint32_t *saved;
    void (*save)(const struct xfCopyEntry *row) = nullptr;
    int (*write)(const char *function, struct xfCopyEntry *row,
                 const struct set_request *request);
    void (*restore)(struct xfCopyEntry *row);
};

static const char *type_name(u_char type) {
    switch (type) {
    case ASN_INTEGER:
        return "ASN_INTEGER";
    case ASN_IPADDRESS:
        return "ASN_IPADDRESS";
    default:
        return "ASN_OCTET_STR";
    }
}

static int refuse_type(const struct column *column) {
    static const char text[] = "write to %s not %s\n";

    if (column->traces_refusals)
        TRACE_ERROR(text, column->object, type_name(column->type));
    else
        fprintf(stderr, text, column->object, type_name(column->type));
    return SNMP_ERR_WRONGTYPE;
}

static int refuse_length(const struct column *column) {
    static const char text[] = "write to %s: bad length\n";

    if (column->traces_refusals)
        TRACE_ERROR(text, column->object_in_bad_length);
    else
        fprintf(stderr, text, column->object_in_bad_length);
    return SNMP_ERR_WRONGLENGTH;
}

static int column_reserve1(const struct column *column,
                           const struct set_request *request) {
    if (column->reserve1_trace != nullptr)
        TRACE_INFO(column->reserve1_trace, column->function, request->index,
                   request_integer(request));
    *column->saved = 0;
    if (request->type != column->type)
        return refuse_type(column);
    if ((column->traces & TRACES_LENGTH) != 0)
        TRACE_INFO("%s : length of value: %d\n", column->function,
                   static_cast<int>(request->length));
    const bool bad = column->type == ASN_INTEGER
                         ? integer_length_is_bad(request)
                         : request->length > column->max_length;
    if (bad)
        return refuse_length(column);
    if (column->test != nullptr)
        return column->test(column->function, request);
    return SNMP_ERR_NOERROR;
}

static void save_value(const struct column *column,
                       const struct xfCopyEntry *row) {
    *column->saved = 1;
    if (column->save != nullptr)
        column->save(row);
}

/* Columns may change while the row is being created or is not ready. */
static bool row_is_open(const struct xfCopyEntry *row) {
    return row->xfCopyEntryRowStatus == XF_ROW_NOT_READY ||
           row->xfCopyEntryRowStatus == XF_ROW_CREATE_AND_GO ||
           row->xfCopyEntryRowStatus == XF_ROW_CREATE_AND_WAIT;
}

/*
 * The new value goes into the table here; FREE takes it back.
 *
 * KEPT: nothing does after an ACTION that failed: the agent then runs UNDO,
 * which the columns do not act on, and the new values stay.
 */
static int column_reserve2(const struct column *column,
                           const struct set_request *request) {
    struct xfCopyEntry row;

    if ((column->traces & TRACES_RESERVE2) != 0)
        TRACE_INFO("%s : Entering RESERVE2 of entry (index = %d) \n",
                   column->function, request->index);
    if (fetch_row(request->index, &row) != 0) {
        if (column->not_found != nullptr)
            column->not_found(column->function, request->index);
        return SNMP_ERR_NOSUCHNAME;
    }
    if (column->saves_first)
        save_value(column, &row);
    if (!row_is_open(&row)) {
        if (column->traces_status_refusal)
            TRACE_ERROR("%s : The row status is not correctly set for this "
                        "entry (index = %d) \n",
                        column->function, request->index);
        return SNMP_ERR_INCONSISTENTVALUE;
    }
    if (!column->saves_first)
        save_value(column, &row);
    const int error = column->write(column->function, &row, request);
    if (error != SNMP_ERR_NOERROR)
        return error;
    return setXfCopyEntry(&row, 0) == 0 ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR;
}

static int column_action(const struct column *column, int32_t index) {
    if ((column->traces & TRACES_ACTION) != 0)
        TRACE_INFO("%s : Entering ACTION of entry (index = %d) \n",
                   column->function, index);
    return find_copy_row(index) != nullptr ? SNMP_ERR_NOERROR
                                           : SNMP_ERR_NOSUCHNAME;
}

static int column_free(const struct column *column, int32_t index) {
    struct xfCopyEntry row;

    if (*column->saved != 1)
        return SNMP_ERR_NOERROR;
    if ((column->traces & TRACES_FREE) != 0)
        TRACE_INFO("%s : Entering FREE of entry (index = %d) \n",
                   column->function, index);
    else /* KEPT: on standard output */
        printf("DEBUG : %s : Entering FREE of entry (index = %d) \n",
               column->function, index);
    if (fetch_row(index, &row) != 0)
        return SNMP_ERR_NOERROR;
    column->restore(&row);
    return setXfCopyEntry(&row, 0) == 0 ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR;
}

static int set_column(const struct column *column, int action,
                      const struct set_request *request) {
    switch (action) {
    case RESERVE1:
        return column_reserve1(column, request);
    case RESERVE2:
        return column_reserve2(column, request);
    case ACTION:
        return column_action(column, request->index);
    case FREE:
        return column_free(column, request->index);
    default:
        return SNMP_ERR_NOERROR;
    }
}

/* -- Values tested in RESERVE1 -- */

static int test_protocol(const char *, const struct set_request *request) {
    switch (request_integer(request)) {
    case XF_PROTO_TFTP:
    case XF_PROTO_FTP:
    case XF_PROTO_SCP:
    case XF_PROTO_SFTP:
        return SNMP_ERR_NOERROR;
    default:
        return SNMP_ERR_WRONGVALUE;
    }
}

static int test_address_type(const char *function,
                             const struct set_request *request) {
    const int32_t type = request_integer(request);

    if (type == INET_ADDRESS_IPV4 || type == INET_ADDRESS_IPV6)
        return SNMP_ERR_NOERROR;
    TRACE_ERROR("%s: var_val is not INET_ADDRESS_IPV4 or INET_ADDRESS_IPV6- "
                "returning SNMP_ERR_WRONGVALUE",
                function);
    return SNMP_ERR_WRONGVALUE;
}

/* KEPT: refuses nothing: says what was accepted, on standard output. */
static int print_server_address(const char *function,
                                const struct set_request *request) {
    uint8_t octets[4];

    request_octets(request, octets, sizeof(octets));
    printf("DEBUG : %s : Server Address : %u Length %d\n", function,
           get_be32(octets), static_cast<int>(request->length));
    return SNMP_ERR_NOERROR;
}

/* -- Rows not found in RESERVE2 -- */

#define NOT_FOUND_TEXT "ERROR %s: Entry (index = %d) not found  "

static void print_not_found(const char *function, int32_t index) {
    printf(NOT_FOUND_TEXT, function, index);
}

static void trace_not_found(const char *function, int32_t index) {
    TRACE_ERROR(NOT_FOUND_TEXT, function, index);
}

/* -- Values written, saved and restored -- */

template <auto Field>
static int write_integer(const char *, struct xfCopyEntry *row,
                         const struct set_request *request) {
    row->*Field = request_integer(request);
    return SNMP_ERR_NOERROR;
}

/* Never past the field, though RESERVE1 lets nothing longer through. */
template <size_t Size>
static void set_text(char (&field)[Size], const struct set_request *request) {
    const size_t length = request->length < Size ? request->length : Size - 1;

    if (length != 0)
        memcpy(field, request->octets, length);
    field[length] = '\0';
}

template <auto Field>
static int write_text(const char *, struct xfCopyEntry *row,
                      const struct set_request *request) {
    set_text(row->*Field, request);
    return SNMP_ERR_NOERROR;
}

template <auto Field, auto Slot>
static void save_integer(const struct xfCopyEntry *row) {
    (module_state.*Slot).value = row->*Field;
}

template <auto Field, auto Slot>
static void restore_integer(struct xfCopyEntry *row) {
    row->*Field = (module_state.*Slot).value;
}

template <auto Field, auto Slot>
static void save_text(const struct xfCopyEntry *row) {
    copy_text((module_state.*Slot).value, sizeof((module_state.*Slot).value),
              row->*Field);
}

template <auto Field, auto Slot>
static void restore_text(struct xfCopyEntry *row) {
    copy_text(row->*Field, sizeof(row->*Field), (module_state.*Slot).value);
}

/*
 * KEPT: both copies of a file name are bounded by the length of the text, not
 * by the room for it: each loses a character, and with a length of 0 nothing is
 * copied. Stations rely on what they get back.
 */
static void save_file_name(const struct xfCopyEntry *row) {
    copy_text(module_state.file_name.value, strlen(row->xfCopyFileName),
              row->xfCopyFileName);
}

static void restore_file_name(struct xfCopyEntry *row) {
    copy_text(row->xfCopyFileName, strlen(module_state.file_name.value),
              module_state.file_name.value);
}

/* KEPT: the old address is lost, and the address type stays IPv4. */
static void restore_server_address(struct xfCopyEntry *row) {
    row->xfCopyServerAddressRev1[0] = '\0';
}

static int write_address_type(const char *function, struct xfCopyEntry *row,
                              const struct set_request *request) {
    row->xfCopyServerAddressType = request_integer(request);
    TRACE_INFO("%s : Server Address Type: %d\n", function,
               row->xfCopyServerAddressType);
    return SNMP_ERR_NOERROR;
}

/* Octets of an address as the text that they are not, for the trace. */
struct octet_text {
    char text[XF_REV1_OCTETS + 1];
};

static struct octet_text octets_as_text(const void *octets, size_t length) {
    struct octet_text shown;

    if (length > sizeof(shown.text) - 1)
        length = sizeof(shown.text) - 1;
    memset(&shown, 0, sizeof(shown));
    if (length != 0)
        memcpy(shown.text, octets, length);
    return shown;
}

static int store_address(const char *function, struct xfCopyEntry *row,
                         const struct ip_addr *address) {
    if (ip_addr_to_str(address, row->xfCopyServerAddressRev1,
                       sizeof(row->xfCopyServerAddressRev1)) == 0)
        return SNMP_ERR_NOERROR;
    TRACE_ERROR("%s: ip_addr_to_str() failed- returning SNMP_ERR_WRONGVALUE",
                function);
    return SNMP_ERR_WRONGVALUE;
}

static int write_server_address(const char *function, struct xfCopyEntry *row,
                                const struct set_request *request) {
    struct ip_addr address = {};

    address.type = INET_ADDRESS_IPV4;
    request_octets(request, address.octets, 4);
    memcpy(&row->xfCopyServerAddress, address.octets, 4);
    row->xfCopyServerAddressType = INET_ADDRESS_IPV4;
    TRACE_INFO("%s: calling ip_addr_to_str() with addr type: %d, "
               "ip address: %s\n",
               function, address.type, octets_as_text(address.octets, 4).text);
    const int error = store_address(function, row, &address);
    if (error != SNMP_ERR_NOERROR)
        return error;
    TRACE_INFO("%s : Server Address: %s, Server Address Type: %d\n", function,
               row->xfCopyServerAddressRev1, row->xfCopyServerAddressType);
    return SNMP_ERR_NOERROR;
}

static int write_server_address_rev1(const char *function,
                                     struct xfCopyEntry *row,
                                     const struct set_request *request) {
    struct ip_addr address = {};

    address.type = row->xfCopyServerAddressType;
    /* KEPT: the length need not fit the type: cut, or filled with zeroes. */
    switch (address.type) {
    case INET_ADDRESS_IPV4:
        request_octets(request, address.octets, 4);
        TRACE_INFO("%s: value copied into addr: 0x%08X\n", function,
                   get_be32(address.octets));
        break;
    case INET_ADDRESS_IPV6:
        request_octets(request, address.octets, 16);
        break;
    default:
        TRACE_ERROR("%s: error: server address type is: %d, "
                    "returning SNMP_ERR_WRONGVALUE\n",
                    function, address.type);
        return SNMP_ERR_WRONGVALUE;
    }
    TRACE_INFO("%s: calling ip_addr_to_str() with addr type: %d, "
               "ip address: %s, var_val: %s\n",
               function, address.type, octets_as_text(address.octets, 16).text,
               octets_as_text(request->octets, request->length).text);
    const int error = store_address(function, row, &address);
    if (error != SNMP_ERR_NOERROR)
        return error;
    TRACE_INFO("%s : Server Address: %s\n", function,
               row->xfCopyServerAddressRev1);
    return SNMP_ERR_NOERROR;
}

/* -- The columns -- */

static_assert(XF_FILE_NAME_OCTETS < sizeof(xfCopyEntry::xfCopyFileName) &&
                  XF_CREDENTIAL_OCTETS < sizeof(xfCopyEntry::xfCopyUserName) &&
                  XF_CREDENTIAL_OCTETS <
                      sizeof(xfCopyEntry::xfCopyUserPassword) &&
                  XF_VRF_NAME_OCTETS < sizeof(xfCopyEntry::xfCopyVRFName),
              "room for the longest value and a NUL");

/* How the value of a column is saved, written and restored. */
#define OWN_WRITE(kind, field, slot, write_value)                              \
    .saved = &module_state.slot.saved,                                         \
    .save = save_##kind<&xfCopyEntry::field, &config_copy_state::slot>,        \
    .write = (write_value),                                                    \
    .restore = restore_##kind<&xfCopyEntry::field, &config_copy_state::slot>
#define INTEGER_VALUE(field, slot)                                             \
    OWN_WRITE(integer, field, slot, write_integer<&xfCopyEntry::field>)
#define TEXT_VALUE(field, slot)                                                \
    OWN_WRITE(text, field, slot, write_text<&xfCopyEntry::field>)

static const struct column protocol_column = {
    .function = "set_xfCopyProtocol",
    .object = "xfCopyProtocol",
    .type = ASN_INTEGER,
    .max_length = 4,
    .traces = TRACES_PHASES,
    .reserve1_trace = "%s : Entering RESERVE1 of entry (index = %d) : "
                      "The protocol being set = %d\n",
    .traces_status_refusal = true,
    .saves_first = true,
    .test = test_protocol,
    INTEGER_VALUE(xfCopyProtocol, protocol),
};

static const struct column source_file_type_column = {
    .function = "set_xfCopySourceFileType",
    .object = "xfCopySourceFileType",
    .type = ASN_INTEGER,
    .max_length = 4,
    .traces = TRACES_PHASES,
    .reserve1_trace = "%s : Entering RESERVE1 of entry (index = %d) \n",
    .saves_first = true,
    INTEGER_VALUE(xfCopySourceFileType, source_file_type),
};

static const struct column dest_file_type_column = {
    .function = "set_xfCopyDestFileType",
    .object = "xfCopyDestFileType",
    .type = ASN_INTEGER,
    .max_length = 4,
    .saves_first = true,
    INTEGER_VALUE(xfCopyDestFileType, dest_file_type),
};

static const struct column server_address_column = {
    .function = "set_xfCopyServerAddress",
    .object = "xfCopyServerAddress",
    .type = ASN_IPADDRESS,
    .max_length = 4,
    .traces = 0,
    .saves_first = true,
    .test = print_server_address,
    .saved = &module_state.server_address.saved,
    .write = write_server_address,
    .restore = restore_server_address,
};

static const struct column file_name_column = {
    .function = "set_xfCopyFileName",
    .object = "xfCopyFileName",
    .type = ASN_OCTET_STR,
    .max_length = XF_FILE_NAME_OCTETS,
    .traces = TRACES_ACTION | TRACES_FREE,
    .not_found = print_not_found,
    .saved = &module_state.file_name.saved,
    .save = save_file_name,
    .write = write_text<&xfCopyEntry::xfCopyFileName>,
    .restore = restore_file_name,
};

static const struct column user_name_column = {
    .function = "set_xfCopyUserName",
    .object = "xfCopyUserName",
    .type = ASN_OCTET_STR,
    .max_length = XF_CREDENTIAL_OCTETS,
    TEXT_VALUE(xfCopyUserName, user_name),
};

static const struct column user_password_column = {
    .function = "set_xfCopyUserPassword",
    .object = "xfCopyUserPassword",
    .type = ASN_OCTET_STR,
    .max_length = XF_CREDENTIAL_OCTETS,
    TEXT_VALUE(xfCopyUserPassword, user_password),
};

static const struct column notification_column = {
    .function = "set_xfCopyNotificationOnCompletion",
    .object = "xfCopyNotificationOnCompletion",
    .type = ASN_INTEGER,
    .max_length = 4,
    INTEGER_VALUE(xfCopyNotificationOnCompletion, notification),
};

static const struct column server_address_type_column = {
    .function = "set_xfCopyServerAddressType",
    .object = "xfCopyServerAddressType",
    .type = ASN_INTEGER,
    .max_length = 4,
    .object_in_bad_length = "xfCopyServerAddressTypel", /* KEPT: with the l */
    .traces = TRACES_PHASES,
    .reserve1_trace = "%s : Entering RESERVE1 of entry (index = %d) : "
                      "The server address type being set = %d\n",
    .traces_status_refusal = true,
    .saves_first = true,
    .test = test_address_type,
    OWN_WRITE(integer, xfCopyServerAddressType, server_address_type,
              write_address_type),
};

static const struct column server_address_rev1_column = {
    .function = "set_xfCopyServerAddressRev1",
    .object = "xfCopyServerAddressRev1",
    .type = ASN_OCTET_STR,
    .max_length = XF_REV1_OCTETS,
    .traces = TRACES_PHASES | TRACES_LENGTH,
    .reserve1_trace = "%s : Entering RESERVE1 of entry (index = %d)\n",
    OWN_WRITE(text, xfCopyServerAddressRev1, server_address_rev1,
              write_server_address_rev1),
};

static const struct column vrf_name_column = {
    .function = "set_xfCopyVRFName",
    .object = "xfCopyVRFName",
    .type = ASN_OCTET_STR,
    .max_length = XF_VRF_NAME_OCTETS,
    .traces = TRACES_ACTION | TRACES_FREE,
    .traces_refusals = true,
    .not_found = trace_not_found,
    TEXT_VALUE(xfCopyVRFName, vrf_name),
};

/* statP is not used: RESERVE2 looks the row up for itself. */
#define DEFINE_WRITE_METHOD(function, column)                                  \
    int function(int action, u_char *var_val, u_char var_val_type,             \
                 size_t var_val_len, u_char *, oid *name, size_t name_len) {   \
        const struct set_request request =                                     \
            request_of(var_val, var_val_type, var_val_len, name, name_len);    \
        return set_column(&(column), action, &request);                        \
    }

DEFINE_WRITE_METHOD(set_xfCopyProtocol, protocol_column)
DEFINE_WRITE_METHOD(set_xfCopySourceFileType, source_file_type_column)
DEFINE_WRITE_METHOD(set_xfCopyDestFileType, dest_file_type_column)
DEFINE_WRITE_METHOD(set_xfCopyServerAddress, server_address_column)
DEFINE_WRITE_METHOD(set_xfCopyFileName, file_name_column)
DEFINE_WRITE_METHOD(set_xfCopyUserName, user_name_column)
DEFINE_WRITE_METHOD(set_xfCopyUserPassword, user_password_column)
DEFINE_WRITE_METHOD(set_xfCopyNotificationOnCompletion, notification_column)
DEFINE_WRITE_METHOD(set_xfCopyServerAddressType, server_address_type_column)
DEFINE_WRITE_METHOD(set_xfCopyServerAddressRev1, server_address_rev1_column)
DEFINE_WRITE_METHOD(set_xfCopyVRFName, vrf_name_column)

/* ---- Row status ---------------------------------------------------------- */

/*
 * Creating and destroying a row cannot be taken back by restoring a field, so
 * RESERVE1 keeps a copy of a row that exists in the undo list. UNDO uses it;
 * COMMIT and FREE drop it.
 */

/* The phases below speak in the name of the write method. */
static const char row_status_function[] = "set_xfCopyEntryRowStatus";

static bool creates_row(int32_t value) {
    return value == XF_ROW_CREATE_AND_GO || value == XF_ROW_CREATE_AND_WAIT;
}

/* Takes the undo record of an index out of the list; NULL if there is none. */
static struct xfCopyEntry *take_undo_record(int32_t index) {
    struct xfCopyEntry key;

    memset(&key, 0, sizeof(key));
    key.xfCopyIndex = index;
    return static_cast<struct xfCopyEntry *>(
        ordset_remove(module_state.undo_list, &key));
}

/* Keeps a copy of the row that the agent has just read. */
static int keep_undo_record(void) {
    struct xfCopyEntry *const record =
        static_cast<struct xfCopyEntry *>(malloc(sizeof(*record)));

    if (record == nullptr) {
        TRACE_ERROR("%s : Mallocing for entry into undolist failed\n",
                    row_status_function);
        return SNMP_ERR_GENERR;
    }
    *record = module_state.read_row;
    if (ordset_add(module_state.undo_list, record, record) != record) {
        xfCopyEntry_free(record);
        TRACE_ERROR("%s : Adding undolist failed\n", row_status_function);
        return SNMP_ERR_GENERR;
    }
    return SNMP_ERR_NOERROR;
}

/* Adds a row of defaults to the table and copies it to *row. */
static int create_row(int32_t index, struct xfCopyEntry *row) {
    if (index < 1)
        return SNMP_ERR_INCONSISTENTNAME;
    struct xfCopyEntry *const created = createXfCopyEntry();
    if (created == nullptr) {
        TRACE_ERROR("%s : RESERVE1 - Could not malloc for the xfCopyEntry for "
                    " a new entry \n",
                    row_status_function);
        return SNMP_ERR_GENERR;
    }
    created->xfCopyIndex = index;
    TRACE_INFO("%s : Added new entry to xfCopyTable ( index = %d)\n",
               row_status_function, index);
    if (addXfCopyEntry(created) != 0) {
        TRACE_ERROR("%s : Adding a new entry (index = %d) failed\n",
                    row_status_function, index);
        xfCopyEntry_free(created);
        return SNMP_ERR_GENERR;
    }
    *row = *created;
    return SNMP_ERR_NOERROR;
}

static int row_status_reserve1(const struct set_request *request,
                               bool row_exists) {
    const int32_t index = request->index;
    struct xfCopyEntry row;

    DEBUG_LOG_AS(row_status_function,
                 "%s(%d):DEBUG: %s :  Entering RESERVE1\n");
    if (request->type != ASN_INTEGER) {
        fprintf(stderr, "write to xfCopyEntryRowStatus not ASN_INTEGER\n");
        return SNMP_ERR_WRONGTYPE;
    }
    if (integer_length_is_bad(request)) {
        fprintf(stderr, "write to xfCopyEntryRowStatus: bad length\n");
        return SNMP_ERR_WRONGLENGTH;
    }
    const int32_t value = request_integer(request);
    if (value < XF_ROW_ACTIVE || value > XF_ROW_DESTROY ||
        value == XF_ROW_NOT_IN_SERVICE || value == XF_ROW_NOT_READY)
        return SNMP_ERR_INCONSISTENTVALUE;
    if (row_exists && value == XF_ROW_CREATE_AND_GO) {
        TRACE_ERROR("%s : CreateAndGo on a existing row\n",
                    row_status_function);
        return SNMP_ERR_INCONSISTENTVALUE;
    }
    if ((value == XF_ROW_ACTIVE || value == XF_ROW_CREATE_AND_GO) &&
        copy_inprogress() != 0) {
        TRACE_ERROR(": %s : Another Copy is in progress\n",
                    row_status_function);
        log_set_error(0x40490049, XF_LOG_COMPONENT);
        return SNMP_ERR_GENERR;
    }
    if (row_exists) {
        const int error = keep_undo_record();
        if (error != SNMP_ERR_NOERROR)
            return error;
    }
    if (fetch_row(index, &row) != 0) {
        if (value == XF_ROW_DESTROY)
            return SNMP_ERR_NOERROR;
        const int error = create_row(index, &row);
        if (error != SNMP_ERR_NOERROR)
            return error;
    } else if (creates_row(value)) {
        TRACE_ERROR("%s : CREATE on a existing row (index = %d)\n",
                    row_status_function, index);
        return SNMP_ERR_INCONSISTENTVALUE;
    }
    /* KEPT: the status that the row had, in spite of the text. */
    TRACE_INFO("%s : Setting xfCopyEntryRowStatus to %d \n",
               row_status_function, row.xfCopyEntryRowStatus);
    /* KEPT: stored before anything is validated; UNDO puts it back, FREE not.
     */
    row.xfCopyEntryRowStatus = value;
    if (setXfCopyEntry(&row, 0) != 0) { /* KEPT: it was found just above */
        TRACE_ERROR("%s : Setting a new entry (index = %d) failed\n",
                    row_status_function, index);
        if (creates_row(value))
            deleteXfCopyEntry(&row);
        return SNMP_ERR_GENERR;
    }
    return SNMP_ERR_NOERROR;
}

static int row_status_reserve2(int32_t index) {
    struct xfCopyEntry row;

    DEBUG_LOG_AS(row_status_function, "%s(%d):%s :  Entering RESERVE2\n");
    if (fetch_row(index, &row) == 0) {
        row.rowCreatedByRequest = 1; /* KEPT: of rows that were there, too */
        setXfCopyEntry(&row, 0);
    }
    return SNMP_ERR_NOERROR;
}

static int destroy_row(const struct xfCopyEntry *row) {
    if (handle_abort(row) != 0) /* KEPT: it always returns 0 */
        return SNMP_ERR_GENERR;
    deleteXfCopyEntry(row);
    return SNMP_ERR_NOERROR;
}

/* Does to a stored row what was asked for; `row` is a private copy. */
static int act_on_row(struct xfCopyEntry *row, int32_t value) {
    switch (value) {
    case XF_ROW_DESTROY:
        return destroy_row(row);
    case XF_ROW_ACTIVE:
    case XF_ROW_CREATE_AND_GO: {
        const int32_t error = validate_n_start_copy(row, value);
        if (error != 0) {
            /* KEPT: 0 in the place of the code; logs are searched for it. */
            DEBUG_LOG_AS(row_status_function,
                         "%s(%d):%s : Validation failed (ret_code = %d) \n", 0);
            return error;
        }
        break;
    }
    default:
        /* KEPT: RESERVE1 has stored createAndWait: it never stays `value`. */
        row->xfCopyEntryRowStatus =
            row->xfCopyEntryRowStatus == XF_ROW_CREATE_AND_WAIT
                ? XF_ROW_NOT_READY
                : value;
        break;
    }
    if (setXfCopyEntry(row, 0) != 0) {
        DEBUG_LOG_AS(row_status_function, "%s(%d):%s : Set to %d failed \n",
                     value);
        return SNMP_ERR_GENERR;
    }
    return SNMP_ERR_NOERROR;
}

static int row_status_action(int32_t index, int32_t value) {
    struct xfCopyEntry row;

    DEBUG_LOG_AS(row_status_function,
                 "%s(%d):%s : Entering ACTION for index = %d \n", index);
    const int32_t status = fetch_row(index, &row);
    if (status == 0) {
        DEBUG_LOG_AS(row_status_function, "%s(%d):%s : long_ret %d \n", value);
        return act_on_row(&row, value);
    }
    if (status == XF_ERR_NO_ENTRY) {
        DEBUG_LOG_AS(row_status_function, "%s(%d):%s : second long_ret %d \n",
                     value);
        return value == XF_ROW_DESTROY ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR;
    }
    /* KEPT: a lookup has no third result. */
    DEBUG_LOG_AS(
        row_status_function,
        "%s(%d):%s :  Some Generic error while getting the informatiom "
        "for the entry  in ACTION %d \n",
        value);
    return SNMP_ERR_GENERR;
}

static int row_status_commit(int32_t index, int32_t value) {
    /* KEPT: not for active, though it starts a copy as createAndGo does. */
    if (value == XF_ROW_DESTROY || value == XF_ROW_CREATE_AND_GO)
        change_time_flag = 0;
    struct xfCopyEntry *const record = take_undo_record(index);
    if (record != nullptr) {
        DEBUG_LOG_AS(row_status_function,
                     "%s(%d):%s : COMMIT Removing the entry from undo list  "
                     "(index = %d)\n",
                     index);
        xfCopyEntry_free(record);
    }
    return SNMP_ERR_NOERROR;
}

static int row_status_free(int32_t index, int32_t value) {
    struct xfCopyEntry row;

    DEBUG_LOG_AS(row_status_function,
                 "%s(%d):%s : Entering FREE for index = %d\n", index);
    const bool stored = fetch_row(index, &row) == 0;
    /*
     * KEPT: a status that RESERVE1 has stored stays, and so does the undo
     * record. Every later write of the row's status is then refused, because
     * there is a record already, until the row has aged out.
     */
    if (stored && !creates_row(row.xfCopyEntryRowStatus))
        return SNMP_ERR_NOERROR;
    if (!creates_row(value))
        return SNMP_ERR_NOERROR;
    if (row.rowCreatedByRequest == 1)
        deleteXfCopyEntry(&row);
    xfCopyEntry_free(take_undo_record(index));
    return SNMP_ERR_NOERROR;
}

static int undo_activation(struct xfCopyEntry *record, int32_t index) {
    TRACE_INFO("%s : UNDO Setting back the value  (index = %d)\n",
               row_status_function, index);
    if (setXfCopyEntry(record, 0) != 0)
        return SNMP_ERR_GENERR; /* KEPT: the record is not freed */
    xfCopyEntry_free(record);
    return SNMP_ERR_NOERROR;
}

/*
 * KEPT: the answers are the wrong way round, and managers know them so: a row
 * that is back in the table is an error, one that is lost is not.
 */
static int undo_destruction(struct xfCopyEntry *record, int32_t index) {
    TRACE_INFO("%s : UNDO Adding the deleted entry (index = %d)\n",
               row_status_function, index);
    if (addXfCopyEntry(record) == 0)
        return SNMP_ERR_GENERR;
    xfCopyEntry_free(record);
    return SNMP_ERR_NOERROR;
}

static int undo_creation(struct xfCopyEntry *record, int32_t index) {
    struct xfCopyEntry key;

    /* KEPT: one that an earlier FREE has left; the row of this one stays. */
    if (record != nullptr) {
        xfCopyEntry_free(record);
        return SNMP_ERR_NOERROR;
    }
    /* KEPT: "failed" though this is how a row of this request goes. */
    TRACE_INFO("%s : UNDO - Deleting the added entry (index = %d) failed\n",
               row_status_function, index);
    memset(&key, 0, sizeof(key));
    key.xfCopyIndex = index;
    deleteXfCopyEntry(&key);
    return SNMP_ERR_NOERROR;
}

static int row_status_undo(int32_t index, int32_t value) {
    TRACE_INFO("%s : Entering UNDO for index = %d\n", row_status_function,
               index);
    if (creates_row(value))
        return undo_creation(take_undo_record(index), index);
    if (value != XF_ROW_ACTIVE && value != XF_ROW_DESTROY)
        return SNMP_ERR_NOERROR;
    struct xfCopyEntry *const record = take_undo_record(index);
    if (record == nullptr) {
        TRACE_ERROR("%s : Could not get the structure for undo list for UNDO "
                    "(index = %d)\n",
                    row_status_function, index);
        return SNMP_ERR_GENERR;
    }
    return value == XF_ROW_ACTIVE ? undo_activation(record, index)
                                  : undo_destruction(record, index);
}

int set_xfCopyEntryRowStatus(int action, u_char *var_val, u_char var_val_type,
                             size_t var_val_len, u_char *statP, oid *name,
                             size_t name_len) {
    const struct set_request request =
        request_of(var_val, var_val_type, var_val_len, name, name_len);
    const int32_t value = request_integer(&request);
    int32_t index;

    switch (action) {
    case RESERVE1:
        return row_status_reserve1(&request, statP != nullptr);
    case RESERVE2:
        return row_status_reserve2(request.index);
    case ACTION:
        return row_status_action(request.index, value);
    case FREE:
        return row_status_free(request.index, value);
    case COMMIT:
    case UNDO:
        parse_copy_index(name, XF_COLUMN_OID_LENGTH, name, name_len,
                         /* exact= */ 1, &index);
        return action == COMMIT ? row_status_commit(index, value)
                                : row_status_undo(index, value);
    default:
        return SNMP_ERR_NOERROR;
    }
}

/* ---- Validation ---------------------------------------------------------- */

/* The rules speak in the name of the function that the launch called. */
static const char validation_function[] = "validate_entry";

struct validation_result {
    bool valid;
    int32_t error_status;
};

/*
 * The pairs of file types that cannot be.
 *
 * KEPT: not all of them: from the fabric's or all startup configurations (6, 7)
 * to the startup or the running one (3, 4), and to or from a type that is none,
 * passes; see validate_n_start_copy.
 */
static void check_file_types(const struct xfCopyEntry *entry,
                             struct validation_result *result) {
    const int32_t source = entry->xfCopySourceFileType;
    const int32_t dest = entry->xfCopyDestFileType;

    if (dest == XF_FILE_FABRIC_STARTUP && source != XF_FILE_RUNNING) {
        DEBUG_LOG_AS(
            validation_function,
            "%s(%d):%s : only running to fabric_startupconfig allowed\n");
        log_set_error(0x4049004A, XF_LOG_COMPONENT);
        *result = {false, SNMP_ERR_GENERR};
    }
    if (dest == XF_FILE_ALL_STARTUP && source != XF_FILE_RUNNING) {
        DEBUG_LOG_AS(validation_function,
                     "%s(%d):%s : only running to all_startupconfig allowed\n");
        log_set_error(0x4049005B, XF_LOG_COMPONENT);
        *result = {false, SNMP_ERR_GENERR};
    }
    if (source == XF_FILE_TARN || source == XF_FILE_TERMINAL ||
        dest == XF_FILE_TARN || dest == XF_FILE_TERMINAL) {
        DEBUG_LOG_AS(validation_function,
                     "%s(%d):%s : TARN file type is not supported \n");
        *result = {false, SNMP_ERR_WRONGVALUE};
    }
    if (source == XF_FILE_NETWORK && dest == XF_FILE_NETWORK) {
        DEBUG_LOG_AS(validation_function,
                     "%s(%d):%s : Both source (=%d) and destination (=%d) "
                     "cannot be network protocol  \n",
                     source, dest);
        log_set_error(0x4049004B, XF_LOG_COMPONENT);
        *result = {false, SNMP_ERR_GENERR};
    }
    if (source == XF_FILE_NETWORK && dest == XF_FILE_STARTUP) {
        DEBUG_LOG_AS(validation_function,
                     "%s(%d):%s :source cannot be networkfile and destination "
                     "cannot be startup file  \n");
        log_set_error(0x4049004C, XF_LOG_COMPONENT);
        *result = {false, SNMP_ERR_GENERR};
    }
    if (source == dest) {
        DEBUG_LOG_AS(validation_function,
                     "%s(%d):%s : Both source (=%d) and destination (=%d) "
                     "cannot be same  \n",
                     source, dest);
        log_set_error(0x4049004D, XF_LOG_COMPONENT);
        *result = {false, SNMP_ERR_GENERR};
    }
}

/*
 * A missing parameter is an error for a row that is to become active; a row
 * that is being created waits for it.
 */
static void note_missing(struct xfCopyEntry *entry, int32_t mode,
                         struct validation_result *result) {
    result->valid = false;
    if (mode == XF_ROW_ACTIVE)
        result->error_status = SNMP_ERR_INCONSISTENTVALUE;
    else
        entry->xfCopyEntryRowStatus = XF_ROW_NOT_READY;
}

static bool ftp_credentials_missing(const struct xfCopyEntry *entry) {
    if (entry->xfCopyUserName[0] == '\0')
        return true;
    return strncasecmp(entry->xfCopyUserName, "anonymous", 9) != 0 &&
           entry->xfCopyUserPassword[0] == '\0';
}

static bool credentials_or_file_missing(const struct xfCopyEntry *entry) {
    return entry->xfCopyUserName[0] == '\0' ||
           entry->xfCopyUserPassword[0] == '\0' ||
           entry->xfCopyFileName[0] == '\0';
}

static void check_network_parameters(struct xfCopyEntry *entry, int32_t mode,
                                     struct validation_result *result) {
    const int32_t source = entry->xfCopySourceFileType;
    const int32_t dest = entry->xfCopyDestFileType;
    const int32_t protocol = entry->xfCopyProtocol;

    if (protocol != XF_PROTO_TFTP && protocol != XF_PROTO_FTP &&
        protocol != XF_PROTO_SCP && protocol != XF_PROTO_SFTP) {
        entry->xfCopyFailCause = XF_FAIL_UNSUPPORTED_PROTOCOL;
        DEBUG_LOG_AS(validation_function,
                     "%s(%d):%s : The CopyProtocol (=%d) should set if either "
                     "source (=%d)  or destination (=%d) is network \n",
                     protocol, source, dest);
        note_missing(entry, mode, result);
    }
    if (entry->xfCopyServerAddressRev1[0] == '\0') {
        DEBUG_LOG_AS(validation_function,
                     "%s(%d):%s : The CopyServerAddressRev1 should be set if "
                     "either source (=%d)  or destination (=%d) is network \n",
                     source, dest);
        note_missing(entry, mode, result);
    }
    /* KEPT: RCP has failed above; SCP needs neither of the two. */
    if ((protocol == XF_PROTO_RCP || protocol == XF_PROTO_SFTP) &&
        credentials_or_file_missing(entry)) {
        DEBUG_LOG_AS(validation_function,
                     "%s(%d):%s :The Username and password must be set if  "
                     "CopyProtocol ( = %d)  is either SFTP or RCP\n",
                     protocol);
        note_missing(entry, mode, result);
    }
    if (protocol == XF_PROTO_FTP && ftp_credentials_missing(entry)) {
        DEBUG_LOG_AS(validation_function,
                     "%s(%d):%s :The Username and password must be set if  "
                     "CopyProtocol ( = %d)  is FTP\n",
                     protocol);
        note_missing(entry, mode, result);
    }
    if (entry->xfCopyFileName[0] == '\0') {
        DEBUG_LOG_AS(validation_function,
                     "%s(%d):%s : The CopyFileName must be set if  "
                     "CopySourceFileType (=%d) or CopyDestFileType (=%d) is "
                     "NETWORK FILE\n",
                     source, dest);
        note_missing(entry, mode, result);
    }
}

static bool is_network_copy(const struct xfCopyEntry *entry) {
    return entry->xfCopySourceFileType == XF_FILE_NETWORK ||
           entry->xfCopyDestFileType == XF_FILE_NETWORK;
}

int32_t validate_entry(struct xfCopyEntry *entry, int32_t *error_status,
                       int32_t mode) {
    struct validation_result result = {true, 0};

    check_file_types(entry, &result);
    if (is_network_copy(entry))
        check_network_parameters(entry, mode, &result);
    *error_status = result.error_status;
    return result.valid ? 1 : 0;
}

/* ---- Launch -------------------------------------------------------------- */

/*
 * One accounting record for each launch_function, whatever its outcome.
 *
 * KEPT: "r s" (running to startup) whatever is copied to what: the record of
 * the transfer says that.
 */
static void account_launch(bool success) {
    char text[528] = {};

    snprintf(text, sizeof(text), "copy r s %s",
             success ? "(SUCCESS)" : "(FAILURE)");
    const char *const session = get_snmp_sessionid(0);
    const char *const user = get_snmp_username(0);
    account_lib_interim_update(ipcbus_response_q, session, user, text);
}

static int32_t launch_failed(int32_t error) {
    account_launch(false);
    return error;
}

static int32_t launch_succeeded(void) {
    account_launch(true);
    return SNMP_ERR_NOERROR;
}

bool is_running_to_startup(const struct xfCopyEntry *entry) {
    return entry->xfCopySourceFileType == XF_FILE_RUNNING &&
           (entry->xfCopyDestFileType == XF_FILE_STARTUP ||
            entry->xfCopyDestFileType == XF_FILE_FABRIC_STARTUP ||
            entry->xfCopyDestFileType == XF_FILE_ALL_STARTUP);
}

static const char launch_function[] = "validate_n_start_copy";

static int32_t refuse_invalid(struct xfCopyEntry *entry, int32_t error_status) {
    DEBUG_LOG_AS(launch_function,
                 "%s(%d):%s : Validation failed row index = %d \n",
                 entry->xfCopyIndex);
    entry->xfCopyTimeStarted = {0, 0};
    if (setXfCopyEntry(entry, 0) != 0) {
        DEBUG_LOG_AS(launch_function,
                     "%s(%d):%s: Set to entry (index= %d) failed after "
                     "valdation\n",
                     entry->xfCopyIndex);
        return launch_failed(SNMP_ERR_GENERR);
    }
    return launch_failed(error_status);
}

static int32_t launch_save(struct xfCopyEntry *entry) {
    if (setXfCopyEntry(entry, 0) != 0) {
        TRACE_ERROR("%s : Set to entry (index= %d) failed just before"
                    "starting copy running to startup\n",
                    launch_function, entry->xfCopyIndex);
        return launch_failed(SNMP_ERR_GENERR);
    }
    /* KEPT: a success whatever comes of it; the row tells. */
    do_cp_runningtostartup(entry);
    return launch_succeeded();
}

static int32_t launch_copy_child(struct xfCopyEntry *entry) {
    if (setXfCopyEntry(entry, 0) != 0) {
        DEBUG_LOG_AS(launch_function,
                     "%s(%d):%s : Set to entry (index= %d) failed just before "
                     "starting the copy \n",
                     entry->xfCopyIndex);
        return launch_failed(SNMP_ERR_GENERR);
    }
    if (start_copy(entry) != 0)
        return launch_failed(SNMP_ERR_GENERR);
    return launch_succeeded();
}

int32_t validate_n_start_copy(struct xfCopyEntry *entry,
                              int32_t row_status_set) {
    int32_t error_status = 0;

    DEBUG_LOG("%s(%d):%s: Copy requested with: xfCopyServerAddressRev1 = %s,"
              "xfCopyFileName= %s, xfCopyUserName=%s, xfCopyTimeStarted=%d "
              "xfCopyProtocol = %d xfCopySourceFileType = %d, "
              "xfCopyDestFileType= %d, xfCopyServerAddressType= %d, "
              "xfCopyVRFName= %s\n",
              entry->xfCopyServerAddressRev1, entry->xfCopyFileName,
              entry->xfCopyUserName,
              static_cast<int32_t>(timestamp_uptime(&entry->xfCopyTimeStarted)),
              entry->xfCopyProtocol, entry->xfCopySourceFileType,
              entry->xfCopyDestFileType, entry->xfCopyServerAddressType,
              entry->xfCopyVRFName);
    if (validate_entry(entry, &error_status, row_status_set) != 1)
        return refuse_invalid(entry, error_status);

    entry->xfCopyEntryRowStatus = XF_ROW_ACTIVE;
    entry->xfCopyState = XF_STATE_RUNNING;
    timestamp_now(&entry->xfCopyTimeStarted);
    if (is_network_copy(entry)) {
        const char *const server = entry->xfCopyServerAddressRev1;

        /* KEPT: these two texts alone, no other address of this switch. */
        if (strcmp(server, "0.0.0.0") == 0 ||
            strcmp(server, "127.0.0.1") == 0) {
            DEBUG_LOG("%s(%d):%s : Localhost address received (%s).  "
                      "Disallowing this operation.",
                      server);
            return launch_failed(SNMP_ERR_WRONGVALUE);
        }
        return launch_copy_child(entry);
    }
    if (is_running_to_startup(entry))
        return launch_save(entry);
    if (entry->xfCopySourceFileType == XF_FILE_STARTUP &&
        entry->xfCopyDestFileType == XF_FILE_RUNNING)
        return launch_copy_child(entry);
    /*
     * KEPT: a success without a copy for the pairs that no rule refuses and
     * that nobody copies: 6 or 7 to 3 or 4, and those with a type that is none.
     * Such a row stays running and holds every other copy up until it is
     * destroyed.
     */
    return launch_succeeded();
}
