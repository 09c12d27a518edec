/* The entry update that every change goes through, and the shifted clock. */
#include "set_driver.h"

using namespace scripted;

namespace {

struct Step {
    const uint32_t *seconds;
    int32_t direction;
};

class EntryUpdateTest : public ModuleTest {
  protected:
    int shift(uint32_t seconds, int32_t direction) {
        Step step = {&seconds, direction};
        return xf_handle_starttime_change(0, 9, &step, nullptr);
    }
    void store_created_at(int32_t index, int32_t seconds) {
        struct xfCopyEntry row = make_row(index);
        row.entryCreateTime = seconds;
        row.xfCopyTimeStarted = {1000, 2000};
        row.xfCopyTimeCompleted = {3000, 4000};
        store(row);
    }
};

} // namespace

TEST_F(EntryUpdateTest, updateOfAnEmptyTableIsNoEntry) {
    struct xfCopyEntry row = make_row(1);
    EXPECT_EQ(XF_ERR_NO_ENTRY, setXfCopyEntry(&row, 0));
    EXPECT_EQ(XF_ERR_NO_ENTRY, setXfCopyEntry(&row, 1));
    EXPECT_EQ(Story{}, story());
    EXPECT_EQ(0x40490002, XF_ERR_NO_ENTRY);
}

TEST_F(EntryUpdateTest, updateOfAnIndexThatIsNotStoredAddsNoRow) {
    store(make_row(1));
    struct xfCopyEntry row = make_row(2);
    EXPECT_EQ(XF_ERR_NO_ENTRY, setXfCopyEntry(&row, 1));
    EXPECT_EQ(std::vector<int32_t>{1}, stored_indexes());
    EXPECT_EQ("", difference(make_row(1), *stored(1)));
    EXPECT_EQ(Story{}, story());
}

TEST_F(EntryUpdateTest, updateCopiesEveryOctetIntoTheStoredRow) {
    store(make_row(5));
    struct xfCopyEntry row;
    memset(&row, 0x5A, sizeof(row));
    row.xfCopyIndex = 5;
    const void *const storage = ordset_find(module_state.copy_table, &row);
    p.forget();

    EXPECT_EQ(0, setXfCopyEntry(&row, 0));
    EXPECT_EQ(storage, ordset_find(module_state.copy_table, &row));
    EXPECT_EQ(0, memcmp(storage, &row, sizeof(row)));
    EXPECT_EQ(Story{}, story());
    EXPECT_EQ(0u, p.mallocs);
    EXPECT_EQ(1u, size_of(module_state.copy_table));
}

TEST_F(EntryUpdateTest, updateLooksAtOneRowOnly) {
    for (int32_t index = 1; index <= 3; index++)
        store(make_row(index));
    struct xfCopyEntry row = make_row(2);
    row.xfCopyState = XF_STATE_FAILED;
    EXPECT_EQ(0, setXfCopyEntry(&row, 0));
    EXPECT_EQ(XF_STATE_WAITING, stored(1)->xfCopyState);
    EXPECT_EQ(XF_STATE_FAILED, stored(2)->xfCopyState);
    EXPECT_EQ(XF_STATE_WAITING, stored(3)->xfCopyState);
}

TEST_F(EntryUpdateTest, updateWithoutTheFlagNeverTouchesTheErrorTable) {
    store(make_row(5));
    p.grove_records.push_back({"12345678", 0, {1, {192, 0, 2, 1}}, "failed"});
    struct xfCopyEntry row = make_row(5);
    EXPECT_EQ(0, setXfCopyEntry(&row, 0));
    EXPECT_EQ(Story{}, story());
    EXPECT_EQ(nullptr, module_state.error_table);
    EXPECT_EQ(1u, p.grove_records.size());
}

TEST_F(EntryUpdateTest, updateWithTheFlagCollectsForTheStoredRow) {
    for (const uint32_t flag : {1u, 2u, 0x80000000u}) {
        const int32_t index = static_cast<int32_t>(flag >> 28) + 5;
        if (!stored(index).has_value())
            store(make_row(index));
        p.grove_records.push_back(
            {"12345678", 0, {1, {192, 0, 2, 1}}, "failed"});
        struct xfCopyEntry row = make_row(index);
        row.xfCopyState = XF_STATE_FAILED;
        int state_at_collection = 0;
        p.hooks["rpcq_req_resp"] = [&] {
            state_at_collection = stored(index)->xfCopyState;
        };
        EXPECT_EQ(0, setXfCopyEntry(&row, flag));
        EXPECT_EQ(XF_STATE_FAILED, state_at_collection);
        EXPECT_EQ(0u, p.grove_records.size());
        EXPECT_EQ(index, stored_error_rows().back().xfCopyIndex);
        if (flag == 1) { /* the next one would be a second row of its key */
            const Quiet quiet;
            deleteXfCopyErrorEntries(&row);
        }
    }
}

TEST_F(EntryUpdateTest, updateReturnsZeroWhateverTheCollectionComesTo) {
    store(make_row(5));
    struct xfCopyEntry row = make_row(5);
    row.xfCopyState = XF_STATE_FAILED;
    p.rpcq_results.then(-1);
    EXPECT_EQ(0, setXfCopyEntry(&row, 1));
    p.fail_ordset_create_at = 1;
    EXPECT_EQ(0, setXfCopyEntry(&row, 1));
    EXPECT_EQ(XF_STATE_FAILED, stored(5)->xfCopyState);
    EXPECT_EQ(0u, p.count("grove_status_next_get"));
}

/* ---- The clock -------------------------------------------------------------
 */

TEST_F(EntryUpdateTest, clockStepMovesTheCreationTimeOfEveryRow) {
    store_created_at(3, 1000);
    store_created_at(1, 2000);
    EXPECT_EQ(0, shift(50, 1));
    EXPECT_EQ(2050, stored(1)->entryCreateTime);
    EXPECT_EQ(1050, stored(3)->entryCreateTime);
    EXPECT_EQ((Story{"snmp_heartbeat_send()", "snmp_heartbeat_send()"}),
              story());
}

TEST_F(EntryUpdateTest, anyDirectionButOneIsBackward) {
    store_created_at(1, 2000);
    for (const int32_t direction : {0, 2, -1, 256})
        EXPECT_EQ(0, shift(10, direction));
    EXPECT_EQ(1960, stored(1)->entryCreateTime);
}

TEST_F(EntryUpdateTest, clockStepMovesNothingElse) {
    store_created_at(1, 2000);
    struct xfCopyEntry expected = *stored(1);
    expected.entryCreateTime = 2007;
    EXPECT_EQ(0, shift(7, 1));
    EXPECT_EQ("", difference(expected, *stored(1)));
}

TEST_F(EntryUpdateTest, clockStepWrapsInsteadOfStoppingAtZero) {
    store_created_at(1, 100);
    EXPECT_EQ(0, shift(101, 0));
    EXPECT_EQ(-1, stored(1)->entryCreateTime);
    EXPECT_EQ(0, shift(0xFFFFFFFFu, 0));
    EXPECT_EQ(0, stored(1)->entryCreateTime);
    EXPECT_EQ(0, shift(0x80000000u, 1));
    EXPECT_EQ(INT32_MIN, stored(1)->entryCreateTime);
    EXPECT_EQ(0, shift(1, 0));
    EXPECT_EQ(INT32_MAX, stored(1)->entryCreateTime);
}

TEST_F(EntryUpdateTest, clockStepOfAnEmptyTableSendsNoHeartbeat) {
    EXPECT_EQ(0, shift(10, 1));
    EXPECT_EQ(Story{}, story());
}

TEST_F(EntryUpdateTest, heartbeatComesBehindEachWriteBack) {
    store_created_at(1, 100);
    store_created_at(2, 200);
    EXPECT_EQ(0, shift(5, 1));
    Story steps;
    for (const Event &event : p.journal)
        if (event.kind == Kind::Call || event.function == "ordset_find")
            steps.push_back(event.text);
    EXPECT_EQ((Story{"ordset_find(1)", "snmp_heartbeat_send()",
                     "ordset_find(2)", "snmp_heartbeat_send()"}),
              steps);
}

TEST_F(EntryUpdateTest, aWriteBackThatFailsDoesNotEndTheWalk) {
    store_created_at(1, 100);
    store_created_at(2, 200);
    p.fail_ordset_find_at = 1;
    EXPECT_EQ(0, shift(5, 1));
    EXPECT_EQ(100, stored(1)->entryCreateTime);
    EXPECT_EQ(205, stored(2)->entryCreateTime);
    EXPECT_EQ(2u, p.count("snmp_heartbeat_send"));
}
