// A row of a module's copy table, read through the module's own columns.
#ifndef HOST_AGENT_COPY_ROW_H
#define HOST_AGENT_COPY_ROW_H

#include <optional>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "host/history/entry.h"

namespace xfhost {

// The row behind an instance of the row status column. `state` and `cause` are
// those of the row.
struct CopyRow {
    HistoryEntry asked; // what is asked for; nothing of what becomes of it
    long state = 0;
    long cause = 0;

    // Whether the system manager does this copy.
    bool is_save() const;
};

// Reads the row of a request about its row status. Nothing if there is none.
std::optional<CopyRow> read_copy_row(const netsnmp_handler_registration &column,
                                     const netsnmp_variable_list &instance);

} // namespace xfhost

#endif
