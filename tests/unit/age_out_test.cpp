/* The age-out alarm: which rows go, and when. */
#include "set_driver.h"

using namespace scripted;

namespace {

constexpr int64_t created = 1'700'000'000;

const std::string entered = info("cfgentry_age_timer_handler : enter...\n");

std::string deleting(int32_t index, int64_t now, int64_t create_time) {
    return info("cfgentry_age_timer_handler: Deleting the aged out entry " +
                std::to_string(index) + " (curtime = " + std::to_string(now) +
                ", entrycreatetetime = " + std::to_string(create_time) + " \n");
}
std::string no_error_rows(int32_t index) {
    return info("deleteXfCopyErrorEntries : xfCopyErrorTable empty forcopy "
                "index: " +
                std::to_string(index) + "\n");
}

class AgeOutTest : public ModuleTest {
  protected:
    void store_row(int32_t index, int32_t state = XF_STATE_WAITING,
                   int32_t row_status = XF_ROW_NOT_READY,
                   int64_t create_time = created) {
        struct xfCopyEntry row = make_row(index, row_status);
        row.xfCopyState = state;
        row.entryCreateTime = static_cast<int32_t>(create_time);
        store(row);
    }
    void run_at(int64_t now) {
        p.forget();
        p.now_seconds = now;
        cfgentry_age_timer_handler(77, nullptr);
    }
};

} // namespace

TEST_F(AgeOutTest, rowIsKeptFor305SecondsAndGoesAfterThem) {
    store_row(7);
    for (const int64_t age : {0, 101, 202, 303, 305}) {
        run_at(created + age);
        EXPECT_EQ(Story{entered}, story());
        EXPECT_TRUE(stored(7).has_value());
    }
    run_at(created + 306);
    EXPECT_EQ((Story{entered, deleting(7, created + 306, created),
                     no_error_rows(7), "snmp_alarm_unregister(77)"}),
              story());
    EXPECT_FALSE(stored(7).has_value());
}

TEST_F(AgeOutTest, emptyTableIsOnlyEntered) {
    run_at(created);
    EXPECT_EQ(Story{entered}, story());
    EXPECT_EQ(0u, p.count("time"));
}

TEST_F(AgeOutTest, rowsGoWhateverTheirStateUnlessTheyRun) {
    int32_t index = 1;
    for (const int32_t state : {0, 1, 3, 4, 5})
        for (const int32_t row_status : {0, 1, 3, 4, 5, 6})
            store_row(index++, state, row_status);
    run_at(created + 306);
    EXPECT_EQ(std::vector<int32_t>{}, stored_indexes());
}

TEST_F(AgeOutTest, runningRowSurvivesEveryRunUntilItsStateChanges) {
    for (const int32_t row_status : {0, 1, 2, 3, 4, 5})
        store_row(row_status + 1, XF_STATE_RUNNING, row_status);
    for (const int64_t age : {306, 1000, 100'000}) {
        run_at(created + age);
        EXPECT_EQ(Story{entered}, story());
    }
    EXPECT_EQ(6u, stored_indexes().size());
    struct xfCopyEntry row = *stored(2);
    row.xfCopyState = XF_STATE_SUCCESSFUL;
    ASSERT_EQ(0, setXfCopyEntry(&row, 0));
    run_at(created + 100'101);
    EXPECT_FALSE(stored(2).has_value());
    EXPECT_EQ(5u, stored_indexes().size());
}

TEST_F(AgeOutTest, runningRowThatIsToBeDestroyedGoes) {
    store_row(7, XF_STATE_RUNNING, XF_ROW_DESTROY);
    run_at(created + 305);
    EXPECT_TRUE(stored(7).has_value());
    EXPECT_EQ(1, copy_inprogress());
    run_at(created + 306);
    EXPECT_FALSE(stored(7).has_value());
    EXPECT_EQ(0u, p.count("ipcbus_send")); /* no abort here */
    EXPECT_EQ(0, copy_inprogress());
}

TEST_F(AgeOutTest, rowsFromTheFutureAreKept) {
    store_row(1, XF_STATE_WAITING, XF_ROW_NOT_READY, created + 1);
    store_row(2, XF_STATE_WAITING, XF_ROW_NOT_READY, created + 100'000);
    store_row(3, XF_STATE_WAITING, XF_ROW_NOT_READY, INT32_MAX);
    run_at(created);
    EXPECT_EQ(Story{entered}, story());
    EXPECT_EQ((std::vector<int32_t>{1, 2, 3}), stored_indexes());
}

/* 32-bit arithmetic, as the record is: half of all differences are negative. */
TEST_F(AgeOutTest, agesWrapAsTheRecordDoes) {
    store_row(1, XF_STATE_WAITING, XF_ROW_NOT_READY, INT32_MIN);
    run_at(created);
    EXPECT_TRUE(stored(1).has_value());
    run_at(-100); /* 2147483548 seconds later, in 32 bits */
    EXPECT_FALSE(stored(1).has_value());
}

TEST_F(AgeOutTest, walkGoesThroughTheWholeTableInOrder) {
    store_row(9);
    store_row(5, XF_STATE_WAITING, XF_ROW_NOT_READY, created + 200);
    store_row(3);
    store_row(7);
    run_at(created + 400);
    EXPECT_EQ(
        (Story{entered, deleting(3, created + 400, created), no_error_rows(3),
               deleting(7, created + 400, created), no_error_rows(7),
               deleting(9, created + 400, created), no_error_rows(9)}),
        story());
    EXPECT_EQ(std::vector<int32_t>{5}, stored_indexes());
}

TEST_F(AgeOutTest, clockIsReadForEachRow) {
    store_row(1);
    store_row(2);
    store_row(3);
    p.hooks["time"] = [&] { p.now_seconds++; };
    run_at(created + 304); /* 305 for the first row, 306 for the second */
    EXPECT_EQ(std::vector<int32_t>{1}, stored_indexes());
    EXPECT_EQ(3u, p.count("time"));
}

TEST_F(AgeOutTest, lastRowEndsTheWalkAndLeavesNoAlarm) {
    store_row(1);
    store_row(2);
    run_at(created + 306);
    EXPECT_EQ("snmp_alarm_unregister(77)", story().back());
    EXPECT_EQ(1u, p.count("snmp_alarm_unregister"));
    EXPECT_EQ(nullptr, module_state.copy_table);
}

TEST_F(AgeOutTest, laterFirstRowRegistersANewAlarm) {
    store_row(1);
    run_at(created + 306);
    p.alarm_ids.always(78);
    store_row(2);
    EXPECT_EQ(78u, ageouttimer);
}

TEST_F(AgeOutTest, deletionThatFailsLeavesTheRowForTheNextRun) {
    store_row(1);
    store_row(2);
    p.fail_ordset_remove_at = 1;
    run_at(created + 306);
    EXPECT_EQ(
        (Story{entered, deleting(1, created + 306, created), no_error_rows(1),
               deleting(2, created + 306, created), no_error_rows(2)}),
        story());
    EXPECT_EQ(std::vector<int32_t>{1}, stored_indexes());
    run_at(created + 407);
    EXPECT_EQ(std::vector<int32_t>{}, stored_indexes());
}

TEST_F(AgeOutTest, errorRowsOfARowGoWithIt) {
    store_row(1);
    {
        const Quiet quiet;
        struct xfCopyErrorEntry error_row = {};
        error_row.xfCopyIndex = 1;
        error_row.xfCopyErrorDeviceIndex = 1;
        ordset_create(&module_state.error_table, 1, 1,
                      xfCopyErrorEntry_comp_func, 1);
        ASSERT_EQ(0, addXfCopyErrorEntry(nullptr, &error_row));
    }
    run_at(created + 306);
    EXPECT_EQ(nullptr, module_state.error_table);
}

TEST_F(AgeOutTest, shiftedClockKeepsTheAgeOfARow) {
    store_row(1);
    const uint32_t seconds = 86'400;
    struct {
        const uint32_t *seconds;
        int32_t direction;
    } step = {&seconds, 1};
    p.now_seconds += seconds;
    xf_handle_starttime_change(0, 9, &step, nullptr);
    run_at(created + seconds + 305);
    EXPECT_TRUE(stored(1).has_value());
    run_at(created + seconds + 306);
    EXPECT_FALSE(stored(1).has_value());
}

TEST_F(AgeOutTest, argumentsAreNotUsed) {
    store_row(1);
    p.forget();
    p.now_seconds = created + 306;
    int anything = 0;
    cfgentry_age_timer_handler(0, &anything);
    EXPECT_FALSE(stored(1).has_value());
}
