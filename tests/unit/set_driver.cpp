#include "set_driver.h"

#include <cstring>

namespace scripted {

/* ---- Instances -------------------------------------------------------------
 */

std::vector<oid> below_root(std::initializer_list<oid> tail) {
    std::vector<oid> name(config_copy_mib_variables_oid,
                          config_copy_mib_variables_oid + 9);

    name.insert(name.end(), tail);
    return name;
}

static std::vector<oid> with_instance(std::vector<oid> name,
                                      const std::vector<oid> &instance) {
    name.insert(name.end(), instance.begin(), instance.end());
    return name;
}

std::vector<oid> copy_column(oid column, const std::vector<oid> &instance) {
    return with_instance(below_root({1, 1, 1, 1, column}), instance);
}

std::vector<oid> error_column(oid column, const std::vector<oid> &instance) {
    return with_instance(below_root({1, 1, 2, 1, column}), instance);
}

struct variable variable_of(int magic) {
    struct variable whole = {};

    whole.magic = static_cast<u_char>(magic);
    memcpy(whole.name, config_copy_mib_variables_oid,
           sizeof(config_copy_mib_variables_oid));
    whole.namelen = 9;
    for (const struct variable7 &entry : config_copy_mib_variables) {
        if (entry.magic != magic)
            continue;
        whole.type = entry.type;
        whole.acl = entry.acl;
        whole.findVar = entry.findVar;
        memcpy(whole.name + 9, entry.name, entry.namelen * sizeof(oid));
        whole.namelen = static_cast<u_char>(9 + entry.namelen);
    }
    return whole;
}

ReadResult read_instance(int magic, const std::vector<oid> &name, bool exact) {
    struct variable variable = variable_of(magic);
    oid request[MAX_OID_LEN] = {};
    size_t length = name.size();
    size_t var_len = SIZE_MAX;
    WriteMethod *write = nullptr;
    FindVarMethod *const handler =
        variable.findVar != nullptr ? variable.findVar : get_xfCopyTable;

    memcpy(request, name.data(), name.size() * sizeof(oid));
    const u_char *const value =
        handler(&variable, request, &length, exact ? 1 : 0, &var_len, &write);
    ReadResult result = {value != nullptr,
                         {request, request + length},
                         {},
                         var_len,
                         write,
                         value};
    if (value != nullptr)
        result.octets.assign(reinterpret_cast<const char *>(value), var_len);
    return result;
}

ReadResult get(int magic, const std::vector<oid> &name) {
    return read_instance(magic, name, true);
}

ReadResult get_next(int magic, const std::vector<oid> &name) {
    return read_instance(magic, name, false);
}

int32_t integer_of(const ReadResult &result) {
    int32_t value = 0;

    EXPECT_EQ(sizeof(value), result.octets.size());
    if (result.octets.size() == sizeof(value))
        memcpy(&value, result.octets.data(), sizeof(value));
    return value;
}

/* ---- Values ----------------------------------------------------------------
 */

template <typename Value> static std::string octets_of(Value value) {
    return {reinterpret_cast<const char *>(&value), sizeof(value)};
}

Binding integer(oid column, int32_t index, long value) {
    return {column, index, ASN_INTEGER, octets_of(value)};
}

Binding integer4(oid column, int32_t index, int32_t value) {
    return {column, index, ASN_INTEGER, octets_of(value)};
}

Binding octets(oid column, int32_t index, std::string_view value) {
    return {column, index, ASN_OCTET_STR, std::string(value)};
}

Binding ip_address(oid column, int32_t index, std::string_view four_octets) {
    return {column, index, ASN_IPADDRESS, std::string(four_octets)};
}

/* ---- Phases ----------------------------------------------------------------
 */

static constexpr oid row_status_column = 14;

static int magic_of(oid column) {
    return static_cast<int>(column) + 2;
}

static std::vector<oid> instance_of(const Binding &binding) {
    return copy_column(
        binding.column,
        {static_cast<oid>(static_cast<uint32_t>(binding.index))});
}

WriteMethod *write_method_of(oid column) {
    WriteMethod *write = nullptr;

    set_xfCopyTable_setmethods(magic_of(column), &write);
    return write;
}

bool read_before_set(const Binding &binding) {
    const Quiet quiet;

    return get(magic_of(binding.column), instance_of(binding)).found;
}

int set_phase(const Binding &binding, int phase, std::optional<bool> exists) {
    std::vector<oid> name = instance_of(binding);
    const auto value = std::make_unique<u_char[]>(binding.octets.size());
    u_char found = 1;
    bool row_exists = exists.value_or(false);
    WriteMethod *const write = write_method_of(binding.column);

    if (!exists.has_value() && phase == RESERVE1)
        row_exists = read_before_set(binding);
    if (binding.column != row_status_column)
        row_exists = row_exists || exists.value_or(true);
    if (write == nullptr) {
        ADD_FAILURE() << "column " << binding.column << " is read-only";
        return -1;
    }
    binding.octets.copy(reinterpret_cast<char *>(value.get()),
                        binding.octets.size());
    return write(phase, value.get(), binding.type, binding.octets.size(),
                 row_exists ? &found : nullptr, name.data(), name.size());
}

std::string phases_seen;

static int run_phase(const std::vector<Binding> &bindings, int phase,
                     const std::vector<bool> &exists) {
    int first_error = SNMP_ERR_NOERROR;

    phases_seen += (phases_seen.empty() ? "" : " ") + std::to_string(phase);
    for (size_t i = 0; i < bindings.size(); i++) {
        if (phase == RESERVE1)
            read_before_set(bindings[i]);
        const int error = set_phase(bindings[i], phase, exists[i]);
        if (first_error == SNMP_ERR_NOERROR)
            first_error = error;
    }
    return first_error;
}

int set_request(const std::vector<Binding> &bindings) {
    std::vector<bool> exists;

    phases_seen.clear();
    for (const Binding &binding : bindings)
        exists.push_back(read_before_set(binding));
    for (const int phase : {RESERVE1, RESERVE2, ACTION, COMMIT}) {
        const int error = run_phase(bindings, phase, exists);
        if (error == SNMP_ERR_NOERROR)
            continue;
        run_phase(bindings, phase == ACTION || phase == COMMIT ? UNDO : FREE,
                  exists);
        return error;
    }
    return SNMP_ERR_NOERROR;
}

} // namespace scripted
