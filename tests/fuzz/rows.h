// The module's tables and lists, looked at without the module.
#ifndef TESTS_FUZZ_ROWS_H
#define TESTS_FUZZ_ROWS_H

#include <cstdint>
#include <set>
#include <vector>

#include "config_copy_mib_private.h"

namespace fuzz {

// The rows in the order of the table; NULL is never among them.
std::vector<const xfCopyEntry *> rows();
std::set<int32_t> undo_indexes();
bool row_exists(int32_t index);
unsigned running_rows();

// Every table in order, every row as a row may be and counted in its state, the
// alarm there with the first row, no error row without its copy row.
void check_tables();

// Registers the module with the agent libraries of this process, once.
void start_module();

// Every row, error row, undo record and saved value goes.
void remove_everything();

} // namespace fuzz

#endif
