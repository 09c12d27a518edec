// What the module is measured against: the columns of xfCopyTable on the
// helpers that Net-SNMP has for tables, written as the code that its own
// generator (mib2c) makes for them, and the least that an agent can do:
//
//   1.3.6.1.4.1.32473.2   table_container
//   1.3.6.1.4.1.32473.3   table_tdata
//   1.3.6.1.4.1.32473.4   the floor: a constant, whatever the instance; it is
//                         accepted by a SET and changes nothing
//
// A dlmod of its own; its OIDs are as long as the module's.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/table_container.h>
#include <net-snmp/agent/table_tdata.h>

namespace {

enum { FIRST_COLUMN = 2, FILE_NAME = 6, ROW_STATUS = 14, LAST_COLUMN = 17 };
constexpr size_t columns = LAST_COLUMN - FIRST_COLUMN + 1;

struct Column {
    u_char type;
    size_t size; // 0: an integer
    bool settable;
};

constexpr Column column_table[columns] = {
    {ASN_INTEGER, 0, true},     {ASN_INTEGER, 0, true},
    {ASN_INTEGER, 0, true},     {ASN_IPADDRESS, 4, true},
    {ASN_OCTET_STR, 128, true}, {ASN_OCTET_STR, 41, true},
    {ASN_OCTET_STR, 41, true},  {ASN_INTEGER, 0, true},
    {ASN_INTEGER, 0, false},    {ASN_TIMETICKS, 0, false},
    {ASN_TIMETICKS, 0, false},  {ASN_INTEGER, 0, false},
    {ASN_INTEGER, 0, true},     {ASN_INTEGER, 0, true},
    {ASN_OCTET_STR, 64, true},  {ASN_OCTET_STR, 32, true},
};

constexpr size_t place_of(size_t column) {
    size_t place = 0;
    for (size_t i = 0; i < column; i++)
        place += column_table[i].size;
    return place;
}

struct Places {
    size_t of[columns + 1];
};
constexpr Places places = [] {
    Places made = {};
    for (size_t i = 0; i <= columns; i++)
        made.of[i] = place_of(i);
    return made;
}();

struct Values {
    long integers[columns];
    size_t lengths[columns];
    u_char octets[places.of[columns]];
};

struct Row {
    netsnmp_index index; // first: what table_container compares
    oid number;
    Values now;
    Values old; // of the request in progress
    bool valid;
};

Row *new_row(oid number) {
    auto row = static_cast<Row *>(calloc(1, sizeof(Row)));
    if (row == nullptr)
        return nullptr;
    row->number = number;
    row->index.oids = &row->number;
    row->index.len = 1;
    // The defaults of a row.
    row->now.integers[0] = 1;
    row->now.integers[1] = 1;
    row->now.integers[2] = 3;
    row->now.integers[7] = 2;
    row->now.integers[8] = 1;
    row->now.integers[11] = 1;
    return row;
}

size_t column_of(netsnmp_request_info *request) {
    return netsnmp_extract_table_info(request)->colnum - FIRST_COLUMN;
}

long number_of(netsnmp_request_info *request) {
    return *netsnmp_extract_table_info(request)->indexes->val.integer;
}

bool is_status(netsnmp_request_info *request) {
    return column_of(request) == ROW_STATUS - FIRST_COLUMN;
}

// How the two helpers find, make and remove a row.

struct Container {
    static Row *find(netsnmp_request_info *request) {
        return static_cast<Row *>(netsnmp_container_table_row_extract(request));
    }
    static netsnmp_container *table(netsnmp_request_info *request) {
        return netsnmp_container_table_container_extract(request);
    }
    static Row *create(netsnmp_request_info *request, oid number) {
        Row *row = new_row(number);
        if (row == nullptr)
            return nullptr;
        if (CONTAINER_INSERT(table(request), row) != 0) {
            free(row);
            return nullptr;
        }
        netsnmp_container_table_row_insert(request, &row->index);
        return row;
    }
    static void remove(netsnmp_request_info *request) {
        Row *row = find(request);
        if (row == nullptr)
            return;
        CONTAINER_REMOVE(table(request), row);
        free(row);
    }
};

struct Tdata {
    static Row *find(netsnmp_request_info *request) {
        return static_cast<Row *>(netsnmp_tdata_extract_entry(request));
    }
    static Row *create(netsnmp_request_info *request, oid number) {
        Row *data = new_row(number);
        netsnmp_tdata_row *row = netsnmp_tdata_create_row();
        if (data == nullptr || row == nullptr) {
            free(data);
            free(row);
            return nullptr;
        }
        row->data = data;
        auto index = static_cast<long>(number);
        netsnmp_tdata_row_add_index(row, ASN_INTEGER, &index, sizeof index);
        netsnmp_tdata_add_row(netsnmp_tdata_extract_table(request), row);
        netsnmp_insert_tdata_row(request, row);
        return data;
    }
    static void remove(netsnmp_request_info *request) {
        Row *data = find(request);
        if (data == nullptr)
            return;
        netsnmp_tdata_remove_and_delete_row(
            netsnmp_tdata_extract_table(request),
            netsnmp_tdata_extract_row(request));
        free(data);
    }
};

// One phase of a request for one instance; an error, or SNMP_ERR_NOERROR.

int get(netsnmp_request_info *request, const Row *row) {
    if (row == nullptr)
        return SNMP_NOSUCHINSTANCE;
    size_t i = column_of(request);
    if (column_table[i].size == 0)
        snmp_set_var_typed_integer(request->requestvb, column_table[i].type,
                                   row->now.integers[i]);
    else
        snmp_set_var_typed_value(request->requestvb, column_table[i].type,
                                 row->now.octets + places.of[i],
                                 row->now.lengths[i]);
    return SNMP_ERR_NOERROR;
}

int check(netsnmp_request_info *request, const Row *row) {
    const netsnmp_variable_list *value = request->requestvb;
    const Column &column = column_table[column_of(request)];
    if (!column.settable)
        return SNMP_ERR_NOTWRITABLE;
    if (is_status(request))
        return netsnmp_check_vb_rowstatus(
            value, row != nullptr ? RS_ACTIVE : RS_NONEXISTENT);
    if (row == nullptr)
        return SNMP_ERR_NOSUCHNAME;
    if (column.size == 0)
        return netsnmp_check_vb_int(value);
    return netsnmp_check_vb_type_and_max_size(value, column.type, column.size);
}

bool creates(netsnmp_request_info *request) {
    long value = *request->requestvb->val.integer;
    return is_status(request) &&
           (value == RS_CREATEANDGO || value == RS_CREATEANDWAIT);
}

template <typename Helper> int reserve(netsnmp_request_info *request) {
    if (creates(request) &&
        Helper::create(request, static_cast<oid>(number_of(request))) ==
            nullptr)
        return SNMP_ERR_RESOURCEUNAVAILABLE;
    return SNMP_ERR_NOERROR;
}

template <typename Helper> void drop_new_row(netsnmp_request_info *request) {
    Row *row = Helper::find(request);
    if (creates(request) && row != nullptr && !row->valid)
        Helper::remove(request);
}

void copy(Values *to, const Values &from, size_t i) {
    to->integers[i] = from.integers[i];
    to->lengths[i] = from.lengths[i];
    memcpy(to->octets + places.of[i], from.octets + places.of[i],
           column_table[i].size);
}

void write(netsnmp_request_info *request, Row *row) {
    const netsnmp_variable_list *value = request->requestvb;
    size_t i = column_of(request);
    copy(&row->old, row->now, i);
    if (column_table[i].size == 0) {
        row->now.integers[i] = *value->val.integer;
        return;
    }
    u_char *octets = row->now.octets + places.of[i];
    memset(octets, 0, column_table[i].size);
    memcpy(octets, value->val.string, value->val_len);
    row->now.lengths[i] = value->val_len;
}

// A row is complete if it has a file name.
int act(netsnmp_request_info *request, Row *row) {
    if (!is_status(request)) {
        write(request, row);
        return SNMP_ERR_NOERROR;
    }
    long value = *request->requestvb->val.integer;
    bool starts = value == RS_ACTIVE || value == RS_CREATEANDGO;
    return starts && row->now.lengths[FILE_NAME - FIRST_COLUMN] == 0
               ? SNMP_ERR_INCONSISTENTVALUE
               : SNMP_ERR_NOERROR;
}

template <typename Helper> void undo(netsnmp_request_info *request) {
    if (is_status(request))
        drop_new_row<Helper>(request);
    else if (Row *row = Helper::find(request))
        copy(&row->now, row->old, column_of(request));
}

template <typename Helper> void commit(netsnmp_request_info *request) {
    Row *row = Helper::find(request);
    if (!is_status(request) || row == nullptr)
        return;
    long value = *request->requestvb->val.integer;
    if (value == RS_DESTROY) {
        Helper::remove(request);
        return;
    }
    row->valid = true;
    row->now.integers[ROW_STATUS - FIRST_COLUMN] =
        value == RS_CREATEANDWAIT ? RS_NOTREADY : RS_ACTIVE;
}

template <typename Helper>
int run_phase(int mode, netsnmp_request_info *request) {
    Row *row = Helper::find(request);
    switch (mode) {
    case MODE_GET:
        return get(request, row);
    case MODE_SET_RESERVE1:
        return check(request, row);
    case MODE_SET_RESERVE2:
        return reserve<Helper>(request);
    case MODE_SET_ACTION:
        return row == nullptr ? SNMP_ERR_NOERROR : act(request, row);
    case MODE_SET_FREE:
        drop_new_row<Helper>(request);
        break;
    case MODE_SET_UNDO:
        undo<Helper>(request);
        break;
    case MODE_SET_COMMIT:
        commit<Helper>(request);
        break;
    default:
        break;
    }
    return SNMP_ERR_NOERROR;
}

template <typename Helper>
int handle_table(netsnmp_mib_handler *, netsnmp_handler_registration *,
                 netsnmp_agent_request_info *info,
                 netsnmp_request_info *requests) {
    for (auto request = requests; request != nullptr; request = request->next) {
        if (request->processed != 0)
            continue;
        int error = run_phase<Helper>(info->mode, request);
        if (error != SNMP_ERR_NOERROR) {
            netsnmp_set_request_error(info, request, error);
            if (info->mode != MODE_GET)
                break;
        }
    }
    return SNMP_ERR_NOERROR;
}

// 1.3.6.1.4.1.32473.T.1.1.1.1: an entry below it is as deep as the module's.
struct Root {
    oid name[12];
};
Root root_of(oid table) {
    return {{1, 3, 6, 1, 4, 1, 32473, table, 1, 1, 1, 1}};
}

netsnmp_handler_registration *registration(const char *name, oid table,
                                           Netsnmp_Node_Handler *handler) {
    return netsnmp_create_handler_registration(
        name, handler, root_of(table).name, 12, HANDLER_CAN_RWRITE);
}

netsnmp_table_registration_info *table_info() {
    auto info = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
    if (info == nullptr)
        abort();
    netsnmp_table_helper_add_indexes(info, ASN_INTEGER, 0);
    info->min_column = FIRST_COLUMN;
    info->max_column = LAST_COLUMN;
    return info;
}

// The floor is written as the module is, for the agent's oldest interface: it
// costs least. A value for every number behind a column.
u_char *read_floor(variable *vp, oid *name, size_t *length, int exact,
                   size_t *value_length, WriteMethod **write_method) {
    static long constant = 1;
    size_t column_length = vp->namelen;
    size_t octets = column_length * sizeof name[0];
    if (exact == 0) {
        bool below =
            *length > column_length && memcmp(name, vp->name, octets) == 0;
        oid number = below ? name[column_length] : 0;
        memcpy(name, vp->name, octets);
        name[column_length] = number + 1;
        *length = column_length + 1;
    }
    *value_length = sizeof constant;
    *write_method = [](int, u_char *, u_char, size_t, u_char *, oid *, size_t) {
        return SNMP_ERR_NOERROR;
    };
    return reinterpret_cast<u_char *>(&constant);
}

void register_floor() {
    static variable4 variables[columns];
    for (size_t i = 0; i < columns; i++)
        variables[i] = {static_cast<u_char>(i + 1),
                        ASN_INTEGER,
                        NETSNMP_OLDAPI_RWRITE,
                        read_floor,
                        2,
                        {1, static_cast<oid>(i + FIRST_COLUMN)}};
    register_mib("bench_floor", reinterpret_cast<variable *>(variables),
                 sizeof variables[0], columns, root_of(4).name, 12);
}

} // namespace

extern "C" void init_bench_peers();

extern "C" __attribute__((visibility("default"))) void init_bench_peers() {
    netsnmp_container_table_register(
        registration("bench_container", 2, handle_table<Container>),
        table_info(), netsnmp_container_find("bench:table_container"),
        TABLE_CONTAINER_KEY_NETSNMP_INDEX);
    netsnmp_tdata_register(registration("bench_tdata", 3, handle_table<Tdata>),
                           netsnmp_tdata_create_table("bench_tdata", 0),
                           table_info());
    register_floor(); // NOLINT(clang-analyzer-unix.Malloc): the agent's now
}
