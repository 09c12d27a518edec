// Whole requests against the module in an agent, between them the messages, the
// clock steps and the ages that a life brings. Each step is an octet and what
// it needs; seeds.py writes inputs.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/messages.h"
#include "tests/fuzz/agent.h"
#include "tests/fuzz/check.h"
#include "tests/fuzz/platform.h"
#include "tests/fuzz/rows.h"

using namespace fuzz;

namespace {

constexpr size_t most_steps = 40;

// ---- Requests ---------------------------------------------------------------

constexpr uint8_t natural_types[] = {
    ASN_INTEGER,   ASN_INTEGER,   ASN_INTEGER,   ASN_IPADDRESS,
    ASN_OCTET_STR, ASN_OCTET_STR, ASN_OCTET_STR, ASN_INTEGER,
    ASN_INTEGER,   ASN_TIMETICKS, ASN_TIMETICKS, ASN_INTEGER,
    ASN_INTEGER,   ASN_INTEGER,   ASN_OCTET_STR, ASN_OCTET_STR};
constexpr uint8_t other_types[] = {
    ASN_INTEGER, ASN_OCTET_STR, ASN_NULL,   ASN_OBJECT_ID, ASN_IPADDRESS,
    ASN_COUNTER, ASN_GAUGE,     ASN_OPAQUE, ASN_COUNTER64, ASN_TIMETICKS};
constexpr uint32_t password_column = 8;

// A column of the copy table (2 to 17), of the error table, or anything.
Oid column_of(Input &input) {
    const unsigned which = input.choice(32);
    if (which < 16)
        return below_root({1, 1, 1, 1, which + 2});
    if (which < 20)
        return below_root({1, 1, 2, 1, which - 14});
    Oid name = root();
    name.resize(std::min<size_t>(name.size(), 2 + input.choice(9)));
    for (unsigned left = input.choice(8); left > 0; left--)
        name.push_back(input.octet());
    return name;
}

// 1 to 200 as they are, and those that are near a limit.
void add_index(Input &input, Oid &name) {
    constexpr uint32_t limits[] = {0,           0x7ffffffe,  0x7fffffff,
                                   0x80000000u, 0xfffffffeu, 0xffffffffu};
    const unsigned which = input.octet();
    if (which >= 1 && which <= 200)
        name.push_back(which);
    else if (which < 230)
        name.push_back(limits[input.choice(std::size(limits))]);
    else if (which < 240)
        name.push_back(input.word());
    else if (which < 250)
        for (unsigned left = which - 238; left > 0; left--)
            name.push_back(input.octet());
    // Else none.
}

std::string marked_password(std::string octets, Input &input) {
    // One in eight is shorter than the mark and is not looked for.
    if (input.choice(8) == 7)
        return octets.substr(0, password_mark.size() - 1);
    return std::string(password_mark) + octets;
}

void add_value(Input &input, uint32_t column, bool copy_table, Varbind &to) {
    const unsigned form = input.choice(16);
    if (form == 15) {
        to.type = other_types[input.choice(std::size(other_types))];
        to.value = without_password(input.octets(input.choice(20)));
        if (to.type == ASN_NULL)
            to.value.clear();
        return;
    }
    to.type = copy_table ? natural_types[column - 2] : uint8_t{ASN_INTEGER};
    if (to.type == ASN_OCTET_STR) {
        to.value = without_password(input.octets(input.octet()));
        if (column == password_column)
            to.value = marked_password(to.value, input);
    } else if (to.type == ASN_IPADDRESS) {
        to.value = input.octets(4);
        to.value.resize(4);
        to.value = without_password(to.value);
    } else if (form == 14) {
        to.value = integer_octets(static_cast<int32_t>(input.word()));
    } else {
        to.value = integer_octets(static_cast<int8_t>(input.octet()));
    }
}

Varbind varbind_of(Input &input, bool with_value) {
    Varbind varbind;
    varbind.name = column_of(input);
    const bool copy_table =
        varbind.name.size() == XF_COLUMN_OID_LENGTH &&
        std::equal(varbind.name.begin(), varbind.name.end() - 1,
                   below_root({1, 1, 1, 1}).begin()) &&
        varbind.name.back() >= 2 && varbind.name.back() <= 17;
    const uint32_t column = varbind.name.back();
    add_index(input, varbind.name);
    if (with_value)
        add_value(input, column, copy_table, varbind);
    return varbind;
}

Request request_of(Input &input, uint8_t command) {
    Request request;
    request.command = command;
    if (command == SNMP_MSG_GETBULK) {
        request.non_repeaters = static_cast<int8_t>(input.octet());
        request.repetitions = static_cast<int8_t>(input.octet());
    }
    for (unsigned left = input.choice(8) + 1; left > 0; left--)
        request.varbinds.push_back(varbind_of(input, command == SNMP_MSG_SET));
    return request;
}

// ---- What must hold ---------------------------------------------------------

bool is_value(const Varbind &varbind) {
    return varbind.type < SNMP_NOSUCHOBJECT || varbind.type > SNMP_ENDOFMIBVIEW;
}

void read(const Request &request) {
    const Response response = ask(request);
    search_for_password(response.octets, "the answer to a read");
    if (response.error_status != 0)
        return;
    if (request.command != SNMP_MSG_GETBULK)
        FUZZ_CHECK(response.varbinds.size() == request.varbinds.size(),
                   "%zu varbinds in answer to %zu", response.varbinds.size(),
                   request.varbinds.size());
    if (request.command != SNMP_MSG_GET)
        return;
    for (size_t i = 0; i < response.varbinds.size(); i++)
        FUZZ_CHECK(response.varbinds[i].name == request.varbinds[i].name,
                   "the answer %zu to a GET is another object", i + 1);
}

// What there was before a SET.
struct Before {
    std::set<int32_t> undo = undo_indexes();
    unsigned running = running_rows();
    bool in_progress = copy_inprogress() != 0;
    Counters done = platform().done;
};

bool activates(const RowStatusWrite &write) {
    return write.value == XF_ROW_ACTIVE || write.value == XF_ROW_CREATE_AND_GO;
}

// COMMIT and UNDO drop the records of a request; FREE leaves that of a row that
// stood before, for the next one.
void check_undo_list(const Before &before) {
    const Phases &phase = phases();
    const std::set<int32_t> after = undo_indexes();
    for (const RowStatusWrite &each : phase.row_status)
        FUZZ_CHECK(!each.exact || !(phase.commit || phase.undo) ||
                       after.count(each.index) == 0,
                   "row %d: an undo record outlived the request", each.index);
    for (int32_t index : after) {
        if (before.undo.count(index) != 0)
            continue;
        const bool left = std::any_of(
            phase.row_status.begin(), phase.row_status.end(),
            [&](auto &each) { return each.exact && each.index == index; });
        FUZZ_CHECK(left && phase.free, "row %d: an undo record for nothing",
                   index);
    }
}

void check_copies(const Before &before) {
    const auto &writes = phases().row_status;
    const auto wanted = static_cast<unsigned>(
        std::count_if(writes.begin(), writes.end(), activates));
    const Counters &done = platform().done;
    const unsigned forks = done.forks - before.done.forks;
    const unsigned saves = done.saves - before.done.saves;

    FUZZ_CHECK(forks + saves <= wanted, "%u copies for %u requests",
               forks + saves, wanted);
    if (before.in_progress)
        FUZZ_CHECK(forks + saves == 0 && running_rows() <= before.running,
                   "a copy was started while one runs");
    // Several activations in one request all pass the test before the first.
    if (wanted <= 1)
        FUZZ_CHECK(running_rows() <= std::max(before.running, wanted),
                   "%u running rows", running_rows());
}

void set(const Request &request) {
    const Before before;
    const std::optional<Response> response = ask_anything(request);
    check_undo_list(before);
    check_copies(before);
    if (!response)
        return;
    FUZZ_CHECK(response->varbinds.size() == request.varbinds.size(),
               "%zu varbinds in answer to %zu", response->varbinds.size(),
               request.varbinds.size());
    FUZZ_CHECK(!phases().commit || !phases().free, "both COMMIT and FREE");
    FUZZ_CHECK((response->error_status == 0) ==
                       (!phases().free && !phases().undo) ||
                   phases().row_status.empty(),
               "error %d after %s", response->error_status,
               phases().free ? "FREE" : "no FREE");
}

// Every column of every table from the root on: names ascend, and each column
// without gaps has every row.
void walk() {
    Oid name = root();
    std::vector<unsigned> rows_in_column(20);
    Request request{SNMP_MSG_GETBULK, 0, 40, {}};
    const Oid last = below_root({2});
    while (name < last) {
        request.varbinds = {{name, ASN_NULL, ""}};
        const Response response = ask(request);
        search_for_password(response.octets, "a walk");
        FUZZ_CHECK(response.error_status == 0 && !response.varbinds.empty(),
                   "a walk ends with error %d", response.error_status);
        for (const Varbind &each : response.varbinds) {
            if (!is_value(each))
                return;
            FUZZ_CHECK(each.name > name, "a walk goes back");
            name = each.name;
            if (name.size() == XF_VARBIND_OID_LENGTH && name < last &&
                name[11] == 1 && name[13] < rows_in_column.size())
                rows_in_column[name[13]]++;
        }
    }
    // An address that is none ends the walk of its column.
    for (uint32_t column = 2; column <= 17; column++)
        if (column != 5 && column != 16)
            FUZZ_CHECK(rows_in_column[column] == rows().size(),
                       "%u of %zu rows in a walk of column %u",
                       rows_in_column[column], rows().size(), column);
}

// ---- What happens between requests ------------------------------------------

void deliver(Input &input, uint32_t opcode) {
    const unsigned kind = input.choice(4);
    const std::string octets =
        kind == 3 ? std::string() : input.octets(kind == 2 ? 9 : 4);
    ipcbus_message *message =
        new_message(opcode, kind == 3 ? nullptr : &octets);
    oid name[MAX_OID_LEN];
    size_t length =
        opcode == IPCBUS_OPC_PROCD_COPY_RUN2START_DONE ? kind % 2 : 0;
    int notify = -1;
    handle_notifications(message, name, &length, &notify);
    FUZZ_CHECK(notify == 0 || notify == 1, "notification %d", notify);
    ipcbus_drop(ipcbus_response_q, message);
}

void shift_clock(uint32_t seconds, int32_t direction) {
    struct {
        const uint32_t *seconds;
        int32_t direction;
    } change = {&seconds, direction};
    xf_handle_starttime_change(SNMP_CALLBACK_LIBRARY, 9, &change, nullptr);
}

void step(Input &input) {
    const unsigned kind = input.choice(16);
    switch (kind) {
    default:
        return set(request_of(input, SNMP_MSG_SET));
    case 5:
        return read(request_of(input, SNMP_MSG_GET));
    case 6:
        return read(request_of(input, SNMP_MSG_GETNEXT));
    case 7:
        return read(request_of(input, SNMP_MSG_GETBULK));
    case 8:
        return deliver(input, IPCBUS_OPC_CONFIG_COPY_STATUS);
    case 9:
        return deliver(input, IPCBUS_OPC_PROCD_COPY_RUN2START_DONE);
    case 10:
        return deliver(input, IPCBUS_OPC_PROCD_COPY_STARTED);
    case 11:
        return shift_clock(input.choice(2) == 0 ? 306 : input.word(),
                           static_cast<int32_t>(input.choice(2)));
    case 12:
        return cfgentry_age_timer_handler(ageouttimer, nullptr);
    case 13:
        platform().malloc_fails_in = 1 + input.choice(3);
        return;
    case 14:
        return walk();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    start_platform();
    start_agent();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size) {
    Input input(octets, size);
    begin_input(input);
    for (size_t steps = 0; !input.empty() && steps < most_steps; steps++) {
        step(input);
        check_tables();
    }
    walk();
    end_input();
    return 0;
}
