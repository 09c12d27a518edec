/*
 * Rows of docs/faults.md, see tests/faults_table.py.
 */
#ifndef FAULT_ROWS_H
#define FAULT_ROWS_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace scripted {

struct FaultRow {
    std::string fault;
    std::string outcome;
};

/* Writes the rows of the running test, if it has passed so far. */
inline void write_fault_rows(const std::string &area,
                             const std::vector<FaultRow> &rows) {
    const char *const folder = getenv("XF_TEST_FAULTS");
    const testing::TestInfo *const test =
        testing::UnitTest::GetInstance()->current_test_info();
    const std::string name =
        std::string("unit.") + test->test_suite_name() + "." + test->name();

    if (folder == nullptr || *folder == '\0')
        return; /* run by hand */
    std::ofstream file(std::string(folder) + "/" + name);
    if (!testing::Test::HasFailure())
        for (const FaultRow &row : rows)
            file << area << '\t' << row.fault << '\t' << row.outcome << '\t'
                 << name << '\n';
    ASSERT_TRUE(file.flush()) << "no row could be written";
}

} // namespace scripted

#endif
