// The write methods themselves, called phase by phase as an agent calls them,
// with what Net-SNMP would never let through: any type and any length of value,
// which is then all the memory that there is. Octets: requests, each a few
// writes and where it is to fail.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "tests/fuzz/check.h"
#include "tests/fuzz/platform.h"
#include "tests/fuzz/rows.h"

using namespace fuzz;

namespace {

constexpr size_t most_requests = 40;
constexpr u_char types[] = {ASN_INTEGER, ASN_OCTET_STR, ASN_IPADDRESS,
                            ASN_NULL,    ASN_OBJECT_ID, ASN_OPAQUE};
constexpr int row_status_magic = 16, password_magic = 10;

struct Write {
    struct variable vp;
    oid name[MAX_OID_LEN];
    size_t name_length;
    u_char type;
    std::unique_ptr<u_char[]> value;
    size_t length;
    u_char *found; // what the agent read before
    WriteMethod *method;
};

void set_value(Input &input, Write &write) {
    const bool natural = input.choice(4) != 0;
    write.type = natural ? static_cast<u_char>(write.vp.type)
                         : types[input.choice(std::size(types))];
    std::string octets;
    if (write.type == ASN_INTEGER && natural) {
        // As the agent gives it, or as the target's does.
        const bool wide = input.choice(2) == 0;
        const long value = static_cast<signed char>(input.octet());
        const auto narrow = static_cast<int32_t>(value);
        octets = wide ? std::string(reinterpret_cast<const char *>(&value),
                                    sizeof value)
                      : std::string(reinterpret_cast<const char *>(&narrow),
                                    sizeof narrow);
    } else {
        octets =
            without_password(input.octets(input.choice(natural ? 140 : 12)));
        if (write.vp.magic == password_magic && input.choice(4) != 0)
            octets.insert(0, password_mark);
    }
    write.length = octets.size();
    write.value = std::make_unique<u_char[]>(octets.size());
    memcpy(write.value.get(), octets.data(), octets.size());
}

Write write_of(Input &input) {
    Write write = {};
    const variable7 &column = config_copy_mib_variables[input.choice(16)];
    write.vp.magic = column.magic;
    write.vp.type = static_cast<char>(column.type);
    write.vp.namelen = XF_COLUMN_OID_LENGTH;
    memcpy(write.vp.name, config_copy_mib_variables_oid, 9 * sizeof(oid));
    memcpy(write.vp.name + 9, column.name, 5 * sizeof(oid));
    memcpy(write.name, write.vp.name, sizeof(oid) * XF_COLUMN_OID_LENGTH);
    const unsigned extra = input.choice(8);
    write.name_length =
        XF_COLUMN_OID_LENGTH + (extra < 6 ? 1 : 2 * (extra - 6));
    for (size_t i = XF_COLUMN_OID_LENGTH; i < write.name_length; i++)
        write.name[i] = input.octet();
    set_value(input, write);
    return write;
}

int call(Write &write, int action) {
    return write.method(action, write.length == 0 ? nullptr : write.value.get(),
                        write.type, write.length, write.found, write.name,
                        write.name_length);
}

// The agent reads, right before RESERVE1, what is to be written.
int reserve1(Write &write) {
    size_t value_length = 0, name_length = write.name_length;
    oid name[MAX_OID_LEN];
    memcpy(name, write.name, sizeof name);
    write.method = nullptr;
    write.found = get_xfCopyTable(&write.vp, name, &name_length, 1,
                                  &value_length, &write.method);
    if (write.method == nullptr)
        return SNMP_ERR_NOTWRITABLE;
    return call(write, RESERVE1);
}

int32_t integer_of(const Write &write) {
    long native;
    int32_t value = 0;
    if (write.length == sizeof native) {
        memcpy(&native, write.value.get(), sizeof native);
        return static_cast<int32_t>(native);
    }
    memcpy(&value, write.value.get(), std::min(write.length, sizeof value));
    return value;
}

bool writes_row_status(const Write &write) {
    return write.vp.magic == row_status_magic &&
           write.name_length == XF_VARBIND_OID_LENGTH;
}

int32_t index_of(const Write &write) {
    return static_cast<int32_t>(write.name[write.name_length - 1]);
}

// UNDO of an activation whose row is gone answers genErr and loses the record.
void note_undo(const Write &write) {
    if (writes_row_status(write) && integer_of(write) == XF_ROW_ACTIVE &&
        undo_indexes().count(index_of(write)) != 0 &&
        !row_exists(index_of(write)))
        platform().allowed_leaks++;
}

size_t most_octets(int magic) {
    switch (magic) {
    case 8:
        return 128; // file name
    case 9:
    case 10:
        return 41; // user and password
    case 18:
        return 64; // typed address
    default:
        return 32; // VRF
    }
}

void check_error(const Write &write, int action, int error) {
    FUZZ_CHECK(error >= 0 && error <= SNMP_ERR_INCONSISTENTNAME,
               "magic %d: error %d", write.vp.magic, error);
    if (action != RESERVE1 || error != SNMP_ERR_NOERROR)
        return;
    FUZZ_CHECK(write.type == static_cast<u_char>(write.vp.type),
               "magic %d: type %u taken", write.vp.magic, write.type);
    FUZZ_CHECK(write.type != ASN_INTEGER || write.length <= 4 ||
                   write.length == sizeof(long),
               "magic %d: an integer of %zu octets taken", write.vp.magic,
               write.length);
    FUZZ_CHECK(write.type != ASN_OCTET_STR ||
                   write.length <= most_octets(write.vp.magic),
               "magic %d: %zu octets taken", write.vp.magic, write.length);
}

// One phase of every write, up to the first that refuses. RESERVE1 and RESERVE2
// may be told to fail behind the last one, as for a column of another module.
bool phase(std::vector<Write> &writes, int action) {
    for (Write &each : writes) {
        const int error =
            action == RESERVE1 ? reserve1(each) : call(each, action);
        check_error(each, action, error);
        if (error != SNMP_ERR_NOERROR)
            return false;
    }
    return true;
}

void finish(std::vector<Write> &writes, int action) {
    for (Write &each : writes) {
        if (each.method == nullptr)
            continue;
        if (action == UNDO)
            note_undo(each);
        call(each, action);
    }
}

// The rows that a request is to make, and that nothing else in it is about.
std::vector<int32_t> rows_to_make(const std::vector<Write> &writes) {
    std::vector<int32_t> made;
    for (const Write &each : writes) {
        const int32_t value = integer_of(each);
        const auto about = std::count_if(
            writes.begin(), writes.end(), [&](const Write &other) {
                return other.vp.magic == row_status_magic &&
                       index_of(other) == index_of(each);
            });
        if (writes_row_status(each) && about == 1 &&
            !row_exists(index_of(each)) &&
            (value == XF_ROW_CREATE_AND_GO || value == XF_ROW_CREATE_AND_WAIT))
            made.push_back(index_of(each));
    }
    return made;
}

void check_unmade(const std::vector<int32_t> &made) {
    for (int32_t index : made)
        FUZZ_CHECK(!row_exists(index), "row %d outlived its creation", index);
}

void request(Input &input) {
    std::vector<Write> writes;
    const unsigned fails_after = input.choice(8);
    for (unsigned left = input.choice(4) + 1; left > 0; left--)
        writes.push_back(write_of(input));
    const std::vector<int32_t> made = rows_to_make(writes);
    if (!phase(writes, RESERVE1) || fails_after == 1)
        return finish(writes, FREE);
    const bool reserved = phase(writes, RESERVE2);
    if (!reserved || fails_after == 2) {
        finish(writes, FREE);
        if (reserved)
            check_unmade(made);
        return;
    }
    if (!phase(writes, ACTION) || fails_after == 3) {
        finish(writes, UNDO);
        return check_unmade(made);
    }
    finish(writes, COMMIT);
    for (const Write &each : writes)
        if (writes_row_status(each))
            FUZZ_CHECK(undo_indexes().count(index_of(each)) == 0,
                       "an undo record outlived the request");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    start_platform();
    snmp_disable_log();
    start_module();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size) {
    Input input(octets, size);
    begin_input(input);
    for (size_t count = 0; !input.empty() && count < most_requests; count++) {
        if (input.choice(8) == 7) // the copy child is done
            handle_copy_done(input.choice(2));
        else
            request(input);
        check_tables();
    }
    end_input();
    return 0;
}
