/*
 * The rows of xfCopyErrorTable: one for each switch that failed in a copy to
 * the startup configuration of every switch of the fabric. How they are
 * collected, kept and read.
 */
#include "config_copy_mib_private.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/grove.h"
#include "platform/messages.h"
#include "platform/netaddr.h"
#include "platform/procd.h"

/* ---- Store --------------------------------------------------------------- */

int xfCopyErrorEntry_comp_func(const void *a, const void *b) {
    if (a == nullptr || b == nullptr)
        return -1;
    const struct xfCopyErrorEntry *const row_a =
        static_cast<const struct xfCopyErrorEntry *>(a);
    const struct xfCopyErrorEntry *const row_b =
        static_cast<const struct xfCopyErrorEntry *>(b);
    const int by_copy = INTCMP(row_b->xfCopyIndex, row_a->xfCopyIndex);
    if (by_copy != 0)
        return by_copy;
    return INTCMP(row_b->xfCopyErrorDeviceIndex, row_a->xfCopyErrorDeviceIndex);
}

int search_all_cmp(const void *, const void *) {
    return 0;
}

/* Result of addXfCopyErrorEntry when there is no memory. */
#define NO_MEMORY_RESULT 5

/* KEPT: the copy row is not used: the record has its index. */
int32_t addXfCopyErrorEntry(const struct xfCopyEntry *,
                            const struct xfCopyErrorEntry *record) {
    struct xfCopyErrorEntry *const stored =
        static_cast<struct xfCopyErrorEntry *>(malloc(sizeof(*stored)));

    if (stored == nullptr) {
        TRACE_ERROR("%s : Mallocing for xfCopyErrorEntryFailed\n", __func__);
        return NO_MEMORY_RESULT;
    }
    *stored = *record;
    if (ordset_add(module_state.error_table, stored, stored) == nullptr) {
        /* KEPT: not freed; the row of an earlier save is in its place. */
        TRACE_ERROR("%s : failed to add to index object\n", __func__);
        return XF_ERR_FAILED;
    }
    return 0;
}

int32_t getXfCopyErrorEntry(struct xfCopyErrorEntry *buffer) {
    if (ordset_size(module_state.error_table) == 0) {
        TRACE_INFO("%s : xfCopyErrorTable empty\n", __func__);
        return XF_ERR_NO_ENTRY;
    }
    const void *const found = ordset_find(module_state.error_table, buffer);
    if (found == nullptr)
        return XF_ERR_NO_ENTRY;
    memcpy(buffer, found, sizeof(*buffer));
    TRACE_INFO("%s : found entry in xfCopyErrorTable\n", __func__);
    return 0;
}

int32_t getnextXfCopyErrorEntry(struct xfCopyErrorEntry *buffer) {
    if (ordset_size(module_state.error_table) == 0) {
        /* KEPT: the text names the other table. */
        TRACE_INFO("%s : xfCopyTable empty\n", __func__);
        return XF_ERR_NO_ENTRY;
    }
    const void *const found =
        ordset_find_nextgreater(module_state.error_table, buffer);
    if (found == nullptr)
        return XF_ERR_NO_ENTRY;
    memcpy(buffer, found, sizeof(*buffer));
    TRACE_INFO("%s :found entry in xfCopyErrorTable\n", __func__);
    return 0;
}

int32_t deleteXfCopyErrorEntries(const struct xfCopyEntry *copy_entry) {
    struct ordset **const table = &module_state.error_table;
    struct xfCopyErrorEntry key;

    if (copy_entry == nullptr) {
        TRACE_INFO("%s : entry provided is NULL\n", __func__);
        return 0;
    }
    if (ordset_size(*table) == 0) {
        TRACE_INFO("%s : xfCopyErrorTable empty forcopy index: %d\n", __func__,
                   copy_entry->xfCopyIndex);
        return 0;
    }
    memset(&key, 0, sizeof(key));
    key.xfCopyIndex = copy_entry->xfCopyIndex;
    for (;;) {
        const struct xfCopyErrorEntry *const next =
            static_cast<const struct xfCopyErrorEntry *>(
                ordset_find_nextgreater(*table, &key));
        if (next == nullptr || next->xfCopyIndex != copy_entry->xfCopyIndex)
            break;
        key = *next;
        free(ordset_remove(*table, &key));
    }
    if (ordset_size(*table) == 0)
        ordset_destroy(table);
    return 0;
}

int32_t getFirstErrorEntryForNextCopyEntry(struct xfCopyErrorEntry *buffer) {
    struct xfCopyEntry copy_row;

    memset(&copy_row, 0, sizeof(copy_row));
    copy_row.xfCopyIndex = buffer->xfCopyIndex;
    while (getnextXfCopyEntry(&copy_row) == 0) {
        TRACE_INFO("%s : found copyIndex: %d\n", __func__,
                   copy_row.xfCopyIndex);
        if (ordset_size(module_state.error_table) == 0) {
            TRACE_INFO("%s : xfCopyErrorTable empty forxfCopyIndex: %d\n ",
                       __func__, copy_row.xfCopyIndex);
            continue;
        }
        /* KEPT: of the whole table, whichever copy it belongs to. */
        const void *const first =
            ordset_find_nth_obj(module_state.error_table, 1);
        if (first != nullptr) {
            TRACE_INFO("%s : found entry\n", __func__);
            memcpy(buffer, first, sizeof(*buffer));
            return 0;
        }
        /* KEPT: never reached: a table that is not empty has a first row. */
        TRACE_INFO("%s : no entrys in xfCopyErrorTablefor copyIndex: %d, "
                   "continue to next\n",
                   __func__, copy_row.xfCopyIndex);
    }
    return XF_ERR_NO_ENTRY;
}

/* ---- Read handler -------------------------------------------------------- */

/*
 * Sub-identifiers that an exact request may have beyond the column.
 *
 * KEPT: the row has two indexes; what follows them is ignored.
 */
#define MAX_EXACT_EXTRA 11

/* Both indexes of the request; 0 where it has none. */
static void parse_error_indexes(const struct variable *vp, const oid *name,
                                size_t name_len, struct xfCopyErrorEntry *row) {
    const size_t column_len = vp->namelen;

    if (name_len <= column_len ||
        snmp_oid_compare(name, column_len, vp->name, column_len) != 0)
        return;
    row->xfCopyIndex = static_cast<int32_t>(name[column_len]);
    if (name_len > column_len + 1)
        row->xfCopyErrorDeviceIndex =
            static_cast<int32_t>(name[column_len + 1]);
}

static void rewrite_error_instance(const struct variable *vp, oid *name,
                                   size_t *length,
                                   const struct xfCopyErrorEntry *row) {
    const size_t column_len = vp->namelen;

    memcpy(name, vp->name, column_len * sizeof(name[0]));
    name[column_len] = static_cast<uint32_t>(row->xfCopyIndex);
    name[column_len + 1] = static_cast<uint32_t>(row->xfCopyErrorDeviceIndex);
    *length = column_len + 2;
}

static u_char *device_address_value(const char *function,
                                    const struct xfCopyErrorEntry *row,
                                    size_t *var_len) {
    struct ip_addr *const address = &module_state.read_error_address;

    if (ip_addr_from_str(row->deviceAddressText, address) != 0) {
        *var_len = 0;
        return nullptr;
    }
    TRACE_INFO("%s: GET FUNCTION: returning device ip addr: %s (0x%08x), "
               "device ip addr type: %d\n",
               function, row->deviceAddressText, get_be32(address->octets),
               row->xfCopyErrorDeviceAddressType);
    *var_len = address->type == INET_ADDRESS_IPV4 ? 4 : 16;
    return address->octets;
}

u_char *get_xfCopyErrorTable(struct variable *vp, oid *name, size_t *length,
                             int exact, size_t *var_len, WriteMethod **) {
    struct xfCopyErrorEntry *const row = &module_state.read_error_row;

    TRACE_INFO("%s \n", __func__);
    memset(row, 0, sizeof(*row));
    if (exact != 0 &&
        *length > static_cast<size_t>(vp->namelen) + MAX_EXACT_EXTRA)
        return nullptr;
    parse_error_indexes(vp, name, *length, row);
    const int32_t status =
        exact != 0 ? getXfCopyErrorEntry(row) : getnextXfCopyErrorEntry(row);
    if (status != 0)
        return nullptr;
    rewrite_error_instance(vp, name, length, row);

    switch (vp->magic) {
    case magic_of_error_column(XF_ERROR_COLUMN_DEVICE_ADDRESS_TYPE):
        *var_len = 4;
        return reinterpret_cast<u_char *>(&row->xfCopyErrorDeviceAddressType);
    case magic_of_error_column(XF_ERROR_COLUMN_DEVICE_ADDRESS):
        return device_address_value(__func__, row, var_len);
    case magic_of_error_column(XF_ERROR_COLUMN_DEVICE_WWN):
        *var_len = sizeof(row->xfCopyErrorDeviceWwn);
        return row->xfCopyErrorDeviceWwn;
    case magic_of_error_column(XF_ERROR_COLUMN_DESCRIPTION):
        *var_len = strlen(row->xfCopyErrorDescription);
        return reinterpret_cast<u_char *>(row->xfCopyErrorDescription);
    default: /* KEPT: no such variable is registered */
        snmp_set_detail("");
        return nullptr;
    }
}

/* ---- Collection ---------------------------------------------------------- */

/* Characters of a status text and of an address. */
#define STATUS_TEXT_LENGTH 256
#define ADDRESS_TEXT_SIZE 128
#define WWN_TEXT_SIZE 24

static const char collect_function[] = "collect_fabric_error_rows";

/* Goes to the trace and to the agent's log. */
#define REPORT_ERROR(...)                                                      \
    do {                                                                       \
        TRACE_ERROR(__VA_ARGS__);                                              \
        snmp_log(LOG_ERR, __VA_ARGS__);                                        \
    } while (0)

static bool make_error_table(void) {
    if (ordset_size(module_state.error_table) != 0)
        return true;
    if (ordset_create(&module_state.error_table, 1, 1,
                      xfCopyErrorEntry_comp_func, 1) == ORDSET_CREATED)
        return true;
    TRACE_ERROR("%s: failed to createxfCopyErrorTable indx obj\n",
                collect_function);
    snmp_log(LOG_ERR, "%s: failed to create xfCopyErrorTable indx obj\n",
             collect_function);
    return false;
}

static bool ask_local_wwn(uint8_t *wwn) {
    void *response = nullptr;

    TRACE_INFO("%s: get switch wwn\n", collect_function);
    const int result = rpcq_req_resp(
        PROCD_RPC_SWITCH_WWN, SWITCH_WWN_ARG1, SWITCH_WWN_ARG2, nullptr, 0,
        IPCBUS_SAP_PROCD_RPC, ipcbus_response_q, SWITCH_WWN_SECONDS, &response);
    const bool answered = result == 0 && response != nullptr;
    if (answered)
        memcpy(wwn, response, SWITCH_WWN_SIZE);
    free(response);
    if (!answered)
        REPORT_ERROR("%s: unable to get local switch wwn\n", collect_function);
    return answered;
}

static void set_device_address(struct xfCopyErrorEntry *row,
                               const struct ip_addr *address) {
    const int result =
        ip_addr_to_str(address, row->deviceAddressText, ADDRESS_TEXT_SIZE);

    if (result != 0)
        REPORT_ERROR("%s: ip_addr_to_str() failed with error: %d\n",
                     collect_function, result);
    else
        TRACE_INFO("%s: device ip addr: %s, device ip addr type: %d\n",
                   collect_function, row->deviceAddressText,
                   row->xfCopyErrorDeviceAddressType);
}

/* The status record of this switch has no address: its management port has. */
static void set_local_address(struct xfCopyErrorEntry *row) {
    struct if_inet_addrs *addresses = nullptr;
    uint32_t if_index = 0;

    /* KEPT: its result is not looked at: interface 0 has no addresses. */
    if_index_mgmt_sup_port_init(&if_index, 0, 0);
    if (ipconf_get_if_inet_addrs(ipcbus_response_q, if_index, &addresses) !=
        0) {
        /* KEPT: in the agent's log only. */
        snmp_log(LOG_ERR, "%s: Failed to get ip address of local switch\n",
                 collect_function);
    } else if (addresses == nullptr || addresses->count == 0) {
        REPORT_ERROR("%s: no inet ip address for local switch\n",
                     collect_function);
    } else {
        row->xfCopyErrorDeviceAddressType = addresses->addrs[0].type;
        set_device_address(row, &addresses->addrs[0]);
    }
    free(addresses);
}

static void trace_status(const struct grove_status *status, const char *text,
                         const struct xfCopyErrorEntry *row) {
    char wwn[WWN_TEXT_SIZE] = "11:22:33:44:55:66:77:88";
    const uint8_t *octet = status->wwn;

    snprintf(wwn, sizeof(wwn), "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x",
             octet[0], octet[1], octet[2], octet[3], octet[4], octet[5],
             octet[6], octet[7]);
    TRACE_INFO("%s: curr_entry contents: %s : %s\n", collect_function, wwn,
               text);
    octet = row->xfCopyErrorDeviceWwn;
    /* KEPT: decimal, and cut to the room that the other form takes. */
    format_text(wwn, sizeof(wwn), "%d:%d:%d:%d:%d:%d:%d:%d", octet[0], octet[1],
                octet[2], octet[3], octet[4], octet[5], octet[6], octet[7]);
    TRACE_INFO("%s:adding errorentry to errortable index object %s : %s\n",
               collect_function, wwn, row->xfCopyErrorDescription);
}

static void add_device(const struct xfCopyEntry *copy_entry,
                       int32_t device_index, const struct grove_status *status,
                       const char *text) {
    struct xfCopyErrorEntry row;

    memset(&row, 0, sizeof(row));
    row.xfCopyIndex = copy_entry->xfCopyIndex;
    row.xfCopyErrorDeviceIndex = device_index;
    row.xfCopyErrorDeviceAddressType = status->address.type;
    memcpy(row.xfCopyErrorDeviceWwn, status->wwn, SWITCH_WWN_SIZE);
    copy_text(row.xfCopyErrorDescription, sizeof(row.xfCopyErrorDescription),
              text);
    if (status->is_local == 1)
        set_local_address(&row);
    else
        set_device_address(&row, &status->address);
    trace_status(status, text, &row);
    /* KEPT: one that cannot be added is left out, the walk goes on. */
    addXfCopyErrorEntry(copy_entry, &row);
}

void collect_fabric_error_rows(const struct xfCopyEntry *copy_entry) {
    struct grove_status status;
    char text[STATUS_TEXT_LENGTH + 1];
    uint8_t local_wwn[SWITCH_WWN_SIZE];
    int32_t device_index = 1;
    int result;

    TRACE_INFO("%s: filling up xfCopyErrorTable\n", collect_function);
    if (!make_error_table() || !ask_local_wwn(local_wwn))
        return;
    TRACE_INFO("%s: calling grove_status_next_get(..)\n", collect_function);
    memset(&status, 0, sizeof(status));
    memset(text, 0, sizeof(text));
    while ((result = grove_status_next_get(&status, text, STATUS_TEXT_LENGTH,
                                           local_wwn)) == 0)
        add_device(copy_entry, device_index++, &status, text);
    grove_status_clean(result);
}
