// The write methods themselves, called phase by phase as an agent calls them,
// with what Net-SNMP would never let through: any type and any length of value,
// which is then all the memory that there is. Octets: requests, each a few
// writes and where it is to fail.
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

// UNDO of an activation whose row is gone answers genErr and loses the record.
void note_undo(const Write &write) {
    const auto index = static_cast<int32_t>(write.name[write.name_length - 1]);
    if (write.vp.magic == row_status_magic &&
        write.name_length == XF_VARBIND_OID_LENGTH &&
        integer_of(write) == XF_ROW_ACTIVE &&
        undo_indexes().count(index) != 0 && !row_exists(index))
        platform().allowed_leaks++;
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
    FUZZ_CHECK(write.length <= 128, "magic %d: %zu octets taken",
               write.vp.magic, write.length);
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

void request(Input &input) {
    std::vector<Write> writes;
    const unsigned fails_after = input.choice(8);
    for (unsigned left = input.choice(4) + 1; left > 0; left--)
        writes.push_back(write_of(input));
    if (!phase(writes, RESERVE1) || fails_after == 1 ||
        !phase(writes, RESERVE2) || fails_after == 2)
        return finish(writes, FREE);
    if (!phase(writes, ACTION) || fails_after == 3)
        return finish(writes, UNDO);
    finish(writes, COMMIT);
    for (const Write &each : writes)
        if (each.vp.magic == row_status_magic &&
            each.name_length == XF_VARBIND_OID_LENGTH)
            FUZZ_CHECK(undo_indexes().count(static_cast<int32_t>(
                           each.name[XF_COLUMN_OID_LENGTH])) == 0,
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
