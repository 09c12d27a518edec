// The history of copies as stations see it: a scalar and a table, on Net-SNMP's
// table_container helper. The rows are kept by the container that the helper
// searches, in the order of their numbers; there is no second store to keep in
// step with it.
#ifndef HOST_AGENT_HISTORY_TABLE_H
#define HOST_AGENT_HISTORY_TABLE_H

#include <cstdint>
#include <functional>

#include "host/history/entry.h"

namespace xfhost {

// Registers the objects. `limit` is how many rows there are at most; `refresh`
// is called with a running entry before it is shown. False if they cannot be
// registered.
bool history_table_start(uint32_t limit,
                         std::function<void(HistoryEntry &)> refresh);

// The objects in a context, too, if they are not there yet. What cannot be
// registered is logged, and tried again by the next call.
void history_table_offer(const char *context);

// Adds an entry with a number above all others; the oldest one makes room. The
// result is the table's own. std::bad_alloc leaves the table as it was.
HistoryEntry &history_table_add(const HistoryEntry &entry);

// The entry of that number; NULL if there is none (any more).
HistoryEntry *history_table_find(uint64_t number);

// The number of the newest entry; 0 if there is none.
uint64_t history_table_newest();

} // namespace xfhost

#endif
