#include "host/agent/copy_row.h"

#include <cstring>
#include <vector>

#include "host/agent/modules.h"

namespace xfhost {
namespace {

enum Column : oid {
    protocol = 2,
    source = 3,
    destination = 4,
    file_name = 6,
    user_name = 7,
    state = 10,
    fail_cause = 13,
    server_type = 15,
    server = 16,
    vrf = 17
};

enum FileType { network = 1, startup = 3, running, fabric = 6, all = 7 };

class Reader {
  public:
    Reader(const netsnmp_handler_registration &column,
           const netsnmp_variable_list &instance)
        : name_(column.rootoid, column.rootoid + column.rootoid_len),
          place_(name_.size() - 1), index_(instance.name[name_.size()]) {}

    std::optional<std::string> octets(Column column) {
        name_[place_] = column;
        return read_instance(name_, index_);
    }
    std::string text(Column column) {
        return octets(column).value_or("");
    }
    // A module's numbers have 32 bits.
    uint64_t number(Column column) {
        int32_t value = 0;
        const std::string found = text(column);
        if (found.size() == sizeof value)
            memcpy(&value, found.data(), sizeof value);
        return value < 0 ? 0 : static_cast<uint64_t>(value);
    }
    oid index() const {
        return index_;
    }

  private:
    std::vector<oid> name_;
    size_t place_; // of the column in it
    oid index_;
};

void read_server(Reader &reader, HistoryEntry &entry) {
    entry.protocol = reader.number(protocol);
    entry.server_type = reader.number(server_type);
    entry.server = reader.text(server);
    entry.file = reader.text(file_name);
    entry.user = reader.text(user_name);
}

} // namespace

bool CopyRow::is_save() const {
    return asked.source == running &&
           (asked.destination == startup || asked.destination == fabric ||
            asked.destination == all);
}

std::optional<CopyRow> read_copy_row(const netsnmp_handler_registration &column,
                                     const netsnmp_variable_list &instance) {
    if (instance.name_length != column.rootoid_len + 1)
        return std::nullopt;
    Reader reader(column, instance);
    if (!reader.octets(state))
        return std::nullopt;
    CopyRow row;
    row.state = static_cast<long>(reader.number(state));
    row.cause = static_cast<long>(reader.number(fail_cause));
    row.asked.row = reader.index();
    row.asked.source = reader.number(source);
    row.asked.destination = reader.number(destination);
    row.asked.vrf = reader.text(vrf);
    if (row.asked.source == network || row.asked.destination == network)
        read_server(reader, row.asked);
    return row;
}

} // namespace xfhost
