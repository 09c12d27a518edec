#include "host/agent/history_table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <ctime>
#include <memory>
#include <new>
#include <set>
#include <string>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "host/base/log.h"

#include "history_root.h"

namespace xfhost {
namespace {

constexpr oid newest_name[] = {HISTORY_ROOT, 1, 1, 0};
constexpr oid table_name[] = {HISTORY_ROOT, 1, 2};

// The container knows a row by what it begins with.
struct Row {
    explicit Row(const HistoryEntry &of)
        : number(static_cast<oid>(of.number)), entry(of) {}
    netsnmp_index index = {1, &number};
    oid number;
    HistoryEntry entry;
};
static_assert(offsetof(Row, index) == 0);

netsnmp_container *container = nullptr;
std::function<void(HistoryEntry &)> refresh_entry;
uint32_t most_rows = 0;
u_long newest = 0;
std::set<std::string> contexts; // where the objects are

using Number = uint64_t (*)(const HistoryEntry &);
using Text = std::string (*)(const HistoryEntry &);

// A column is a number of that type or, without one, a text.
struct Column {
    u_char type;
    Number number;
    Text text;
};

template <auto Field> uint64_t number_of(const HistoryEntry &entry) {
    return static_cast<uint64_t>(entry.*Field);
}

template <auto Field> std::string text_of(const HistoryEntry &entry) {
    return entry.*Field;
}

template <auto Field> uint64_t told_number(const HistoryEntry &entry) {
    return std::min<uint64_t>(entry.report.*Field, UINT32_MAX);
}

template <auto Field> std::string told_text(const HistoryEntry &entry) {
    return entry.report.*Field;
}

uint64_t octets_of(const HistoryEntry &entry) {
    return entry.report.octets.value_or(0);
}

// A DateAndTime in UTC.
template <auto Field> std::string time_of(const HistoryEntry &entry) {
    const uint64_t tenths = entry.*Field;
    if (tenths == 0)
        return std::string(8, '\0');
    const auto seconds = static_cast<time_t>(tenths / 10);
    struct tm utc = {};
    gmtime_r(&seconds, &utc);
    const int year = utc.tm_year + 1900;
    const int octets[] = {year >> 8,
                          year & 255,
                          utc.tm_mon + 1,
                          utc.tm_mday,
                          utc.tm_hour,
                          utc.tm_min,
                          utc.tm_sec,
                          static_cast<int>(tenths % 10),
                          '+',
                          0,
                          0};
    return {std::begin(octets), std::end(octets)};
}

using H = HistoryEntry;
template <auto Field>
constexpr Column integer = {ASN_INTEGER, number_of<Field>, nullptr};
template <auto Field>
constexpr Column gauge = {ASN_UNSIGNED, number_of<Field>, nullptr};
template <auto Field>
constexpr Column octets = {ASN_OCTET_STR, nullptr, text_of<Field>};
template <auto Field>
constexpr Column moment = {ASN_OCTET_STR, nullptr, time_of<Field>};
template <auto Field>
constexpr Column told = {ASN_OCTET_STR, nullptr, told_text<Field>};
template <auto Field>
constexpr Column count = {ASN_UNSIGNED, told_number<Field>, nullptr};

constexpr unsigned first_column = 2; // the first one is the index
constexpr std::array columns = {integer<&H::row>,
                                octets<&H::asker>,
                                octets<&H::vrf>,
                                integer<&H::source>,
                                integer<&H::destination>,
                                integer<&H::protocol>,
                                integer<&H::server_type>,
                                octets<&H::server>,
                                gauge<&H::port>,
                                octets<&H::file>,
                                octets<&H::user>,
                                moment<&H::asked>,
                                moment<&H::started>,
                                moment<&H::ended>,
                                integer<&H::state>,
                                integer<&H::cause>,
                                told<&Report::reason>,
                                told<&Report::advice>,
                                Column{ASN_COUNTER64, octets_of, nullptr},
                                told<&Report::sha256>,
                                count<&Report::refused>,
                                count<&Report::first_refused>,
                                told<&Report::refusal>};
constexpr unsigned last_column = first_column + columns.size() - 1;

void answer_counter(netsnmp_variable_list *to, uint64_t value) {
    struct counter64 counter = {};
    counter.high = static_cast<u_long>(value >> 32);
    counter.low = static_cast<u_long>(value & UINT32_MAX);
    snmp_set_var_typed_value(to, ASN_COUNTER64, &counter, sizeof counter);
}

void answer(netsnmp_variable_list *to, const Column &column,
            const HistoryEntry &entry) {
    if (column.text != nullptr) {
        const std::string value = column.text(entry);
        snmp_set_var_typed_value(to, column.type, value.data(), value.size());
    } else if (column.type == ASN_COUNTER64) {
        answer_counter(to, column.number(entry));
    } else {
        snmp_set_var_typed_integer(to, column.type,
                                   static_cast<long>(column.number(entry)));
    }
}

void answer_request(netsnmp_agent_request_info *info,
                    netsnmp_request_info *request) {
    auto row = static_cast<Row *>(netsnmp_container_table_row_extract(request));
    netsnmp_table_request_info *place = netsnmp_extract_table_info(request);
    if (row == nullptr || place == nullptr || place->colnum < first_column ||
        place->colnum > last_column) {
        netsnmp_set_request_error(info, request, SNMP_NOSUCHINSTANCE);
        return;
    }
    if (row->entry.state == CopyState::running)
        refresh_entry(row->entry);
    answer(request->requestvb, columns.at(place->colnum - first_column),
           row->entry);
}

int answer_all(netsnmp_mib_handler *, netsnmp_handler_registration *,
               netsnmp_agent_request_info *info,
               netsnmp_request_info *requests) {
    try {
        for (netsnmp_request_info *each = requests; each; each = each->next)
            if (each->processed == 0)
                answer_request(info, each);
    } catch (const std::bad_alloc &) {
        return SNMP_ERR_GENERR;
    }
    return SNMP_ERR_NOERROR;
}

netsnmp_handler_registration *registration(const char *context) {
    netsnmp_handler_registration *made = netsnmp_create_handler_registration(
        "xfHistoryTable", answer_all, table_name, OID_LENGTH(table_name),
        HANDLER_CAN_RONLY);
    if (made != nullptr && *context != '\0')
        made->contextName = strdup(context);
    return made;
}

// All contexts show the rows of one container.
bool register_table(const char *context) {
    netsnmp_table_registration_info *table =
        SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
    netsnmp_handler_registration *made = registration(context);
    if (table == nullptr || made == nullptr) {
        free(table);
        netsnmp_handler_registration_free(made);
        return false;
    }
    netsnmp_table_helper_add_index(table, ASN_UNSIGNED);
    table->min_column = first_column;
    table->max_column = last_column;
    const bool done =
        netsnmp_container_table_register(made, table, container,
                                         TABLE_CONTAINER_KEY_NETSNMP_INDEX) ==
        MIB_REGISTERED_OK;
    if (!done) // all but this has been freed
        netsnmp_table_registration_info_free(table);
    return done;
}

bool register_newest(const char *context) {
    return netsnmp_register_read_only_ulong_instance_context(
               "xfHistoryNewest", newest_name, OID_LENGTH(newest_name), &newest,
               nullptr, context) == MIB_REGISTERED_OK;
}

void unregister_newest(const char *context) {
    oid name[OID_LENGTH(newest_name)];
    std::copy(std::begin(newest_name), std::end(newest_name), name);
    unregister_mib_context(name, OID_LENGTH(name), DEFAULT_MIB_PRIORITY, 0, 0,
                           context);
}

// Both objects or none: it may be tried again.
bool register_both(const char *context) {
    if (!register_newest(context))
        return false;
    const bool both = register_table(context);
    if (!both)
        unregister_newest(context);
    return both;
}

bool register_in(const char *context) {
    const auto [place, is_new] = contexts.insert(context);
    if (!is_new || register_both(context))
        return true;
    contexts.erase(place);
    log_message(LOG_ERR, "the history cannot be registered in context \"%s\"",
                context);
    return false;
}

} // namespace

bool history_table_start(uint32_t limit,
                         std::function<void(HistoryEntry &)> refresh) {
    most_rows = limit;
    refresh_entry = std::move(refresh);
    container = netsnmp_container_find("xfHistoryTable:table_container");
    return container != nullptr && register_in("");
}

void history_table_offer(const char *context) {
    if (container != nullptr)
        register_in(context);
}

HistoryEntry &history_table_add(const HistoryEntry &entry) {
    auto row = std::make_unique<Row>(entry);
    if (CONTAINER_INSERT(container, row.get()) != 0)
        throw std::bad_alloc();
    newest = row->number;
    while (CONTAINER_SIZE(container) > most_rows) {
        auto oldest = static_cast<Row *>(CONTAINER_FIRST(container));
        CONTAINER_REMOVE(container, oldest);
        delete oldest;
    }
    return row.release()->entry;
}

HistoryEntry *history_table_find(uint64_t number) {
    oid key = static_cast<oid>(number);
    netsnmp_index index = {1, &key};
    if (container == nullptr)
        return nullptr;
    auto row = static_cast<Row *>(CONTAINER_FIND(container, &index));
    return row == nullptr ? nullptr : &row->entry;
}

uint64_t history_table_newest() {
    return newest;
}

} // namespace xfhost
