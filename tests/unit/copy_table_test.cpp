/* The table store: rows, their order, what is created and deleted when. */
#include "set_driver.h"

#include <climits>

using namespace scripted;

namespace {

const std::string alarm_registered =
    "snmp_alarm_register(101, SA_REPEAT, cfgentry_age_timer_handler, NULL)";
const std::string alarm_unregistered = "snmp_alarm_unregister(77)";

std::string no_error_rows(int32_t index) {
    return info("deleteXfCopyErrorEntries : xfCopyErrorTable empty forcopy "
                "index: " +
                std::to_string(index) + "\n");
}

class CopyTableTest : public ModuleTest {
  protected:
    struct xfCopyEntry *create(int32_t index) {
        struct xfCopyEntry *const entry = createXfCopyEntry();
        entry->xfCopyIndex = index;
        return entry;
    }
    int32_t remove(int32_t index) {
        struct xfCopyEntry key = {};
        key.xfCopyIndex = index;
        return deleteXfCopyEntry(&key);
    }
    void store_state(int32_t index, int32_t state) {
        struct xfCopyEntry row = make_row(index);
        row.xfCopyState = state;
        store(row);
    }
    void store_error_row(int32_t copy, int32_t device) {
        const Quiet quiet;
        struct xfCopyErrorEntry row = {};
        row.xfCopyIndex = copy;
        row.xfCopyErrorDeviceIndex = device;
        if (module_state.error_table == nullptr)
            ordset_create(&module_state.error_table, 1, 1,
                          xfCopyErrorEntry_comp_func, 1);
        ASSERT_EQ(0, addXfCopyErrorEntry(nullptr, &row));
    }
    /* Index of the first row that runs, which is `visited`; 0 if none does. */
    int32_t running() {
        const bool found =
            get_config_entry_with_status(XF_STATE_RUNNING, &visited) == 0;
        EXPECT_EQ(found ? 1 : 0, copy_inprogress());
        return found ? visited.xfCopyIndex : 0;
    }
    Story steps() {
        return p.events(Kind::Call | Kind::Set);
    }
    struct xfCopyEntry visited = {};
};

} // namespace

/* ---- Creation --------------------------------------------------------------
 */

TEST_F(CopyTableTest, newRowHasItsDefaults) {
    p.now_seconds = 1'234'567'890;
    struct xfCopyEntry *const entry = createXfCopyEntry();
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ(0, entry->xfCopyIndex);
    EXPECT_EQ(1, entry->xfCopyProtocol);
    EXPECT_EQ(1, entry->xfCopySourceFileType);
    EXPECT_EQ(3, entry->xfCopyDestFileType);
    EXPECT_EQ(std::string(256, '\0'), std::string(entry->xfCopyFileName, 256));
    EXPECT_EQ(std::string(41, '\0'), std::string(entry->xfCopyUserName, 41));
    EXPECT_EQ(std::string(41, '\0'),
              std::string(entry->xfCopyUserPassword, 41));
    EXPECT_EQ(2, entry->xfCopyNotificationOnCompletion);
    EXPECT_EQ(1, entry->xfCopyState);
    EXPECT_EQ(1'234'567'890, entry->entryCreateTime);
    EXPECT_EQ(0, entry->xfCopyTimeStarted.seconds);
    EXPECT_EQ(0, entry->xfCopyTimeStarted.microseconds);
    EXPECT_EQ(0, entry->xfCopyTimeCompleted.seconds);
    EXPECT_EQ(0, entry->xfCopyTimeCompleted.microseconds);
    EXPECT_EQ(1, entry->xfCopyFailCause);
    EXPECT_EQ(0, entry->rowCreatedByRequest);
    EXPECT_EQ(0, entry->xfCopyEntryRowStatus);
    EXPECT_EQ(0, entry->xfCopyServerAddressType);
    EXPECT_EQ(std::string(64, '\0'),
              std::string(entry->xfCopyServerAddressRev1, 64));
    EXPECT_EQ(std::string(32, '\0'), std::string(entry->xfCopyVRFName, 32));
    xfCopyEntry_free(entry);
}

TEST_F(CopyTableTest, newRowIsOneAllocationAndNotInTheTable) {
    struct xfCopyEntry *const entry = createXfCopyEntry();
    EXPECT_EQ(1u, p.mallocs);
    EXPECT_EQ(nullptr, module_state.copy_table);
    EXPECT_EQ(Story{}, steps());
    EXPECT_EQ(Story{}, texts());
    xfCopyEntry_free(entry);
    EXPECT_EQ(1u, p.count("free"));
}

TEST_F(CopyTableTest, newRowWithoutMemoryIsNullAndNothingElseIsDone) {
    p.fail_malloc_at = 1;
    EXPECT_EQ(nullptr, createXfCopyEntry());
    EXPECT_EQ(0u, p.count("time"));
    EXPECT_EQ(Story{}, story());
}

/* ---- Insertion -------------------------------------------------------------
 */

TEST_F(CopyTableTest, firstRowMakesTheContainerAndStartsTheAlarm) {
    struct xfCopyEntry *const entry = create(5);
    p.forget();
    EXPECT_EQ(0, addXfCopyEntry(entry));
    EXPECT_EQ((Story{"ordset_create(1, 1, xfCopyEntry_comp_func, 1)",
                     "ordset_add(5)", alarm_registered}),
              steps());
    EXPECT_EQ(77u, ageouttimer);
    EXPECT_EQ(Story{}, texts());
    EXPECT_EQ(0u, p.mallocs);
}

TEST_F(CopyTableTest, furtherRowsAreOnlyAdded) {
    store(make_row(5));
    p.alarm_ids.always(78);
    struct xfCopyEntry *const entry = create(6);
    p.forget();
    EXPECT_EQ(0, addXfCopyEntry(entry));
    EXPECT_EQ(Story{"ordset_add(6)"}, steps());
    EXPECT_EQ(77u, ageouttimer);
    EXPECT_EQ((std::vector<int32_t>{5, 6}), stored_indexes());
}

TEST_F(CopyTableTest, firstRowThatIsRefusedStartsNoAlarm) {
    struct xfCopyEntry *const entry = create(5);
    p.fail_ordset_add_at = 1;
    EXPECT_EQ(XF_ERR_FAILED, addXfCopyEntry(entry));
    EXPECT_EQ(0u, p.count("snmp_alarm_register"));
    EXPECT_EQ(0u, ageouttimer);
    xfCopyEntry_free(entry); /* still the caller's */
    EXPECT_EQ(0x40490001, XF_ERR_FAILED);
}

/* What the creation of the container returns is not looked at. */
TEST_F(CopyTableTest, containerThatCannotBeMadeFailsTheInsertion) {
    struct xfCopyEntry *const entry = create(5);
    p.fail_ordset_create_at = 1;
    p.forget();
    EXPECT_EQ(XF_ERR_FAILED, addXfCopyEntry(entry));
    EXPECT_EQ((Story{"ordset_create(1, 1, xfCopyEntry_comp_func, 1)",
                     "ordset_add(5)"}),
              steps());
    EXPECT_EQ(0, addXfCopyEntry(entry)); /* and the next one is made again */
    EXPECT_EQ(77u, ageouttimer);
}

TEST_F(CopyTableTest, secondRowOfAnIndexIsRefusedAndReplacesNothing) {
    struct xfCopyEntry first = make_row(5);
    first.xfCopyFailCause = 8;
    store(first);
    store(make_row(6));
    struct xfCopyEntry *const entry = create(5);
    EXPECT_EQ(XF_ERR_FAILED, addXfCopyEntry(entry));
    EXPECT_EQ("", difference(first, *stored(5)));
    EXPECT_EQ((std::vector<int32_t>{5, 6}), stored_indexes());
    xfCopyEntry_free(entry);
    EXPECT_EQ(Story{}, story());
}

/* ---- Lookup ----------------------------------------------------------------
 */

TEST_F(CopyTableTest, exactLookupCopiesTheWholeRow) {
    struct xfCopyEntry row;
    memset(&row, 0x33, sizeof(row));
    row.xfCopyIndex = 5;
    store(row);
    store(make_row(6));
    struct xfCopyEntry buffer;
    memset(&buffer, 0, sizeof(buffer));
    buffer.xfCopyIndex = 5;
    EXPECT_EQ(0, getXfCopyEntry(&buffer));
    EXPECT_EQ(0, memcmp(&row, &buffer, sizeof(row)));
    EXPECT_EQ(Story{}, story());
    EXPECT_EQ(0u, p.mallocs);
}

TEST_F(CopyTableTest, exactLookupThatFindsNothingLeavesTheBuffer) {
    struct xfCopyEntry buffer;
    memset(&buffer, 0x44, sizeof(buffer));
    buffer.xfCopyIndex = 5;
    const struct xfCopyEntry before = buffer;
    EXPECT_EQ(XF_ERR_NO_ENTRY, getXfCopyEntry(&buffer)); /* an empty table */
    store(make_row(4));
    store(make_row(6));
    EXPECT_EQ(XF_ERR_NO_ENTRY, getXfCopyEntry(&buffer));
    EXPECT_EQ(0, memcmp(&before, &buffer, sizeof(before)));
}

TEST_F(CopyTableTest, whatIsHandedOutIsACopy) {
    store(make_row(5));
    struct xfCopyEntry buffer = make_row(5);
    EXPECT_EQ(0, getXfCopyEntry(&buffer));
    buffer.xfCopyState = XF_STATE_FAILED;
    EXPECT_EQ(XF_STATE_WAITING, stored(5)->xfCopyState);
}

TEST_F(CopyTableTest, nextLookupGivesTheSmallestGreaterIndex) {
    for (const int32_t index : {9, 3, 7})
        store(make_row(index));
    const struct {
        int32_t from, to;
    } cases[] = {{0, 3}, {1, 3}, {2, 3},  {3, 7},        {6, 7},
                 {7, 9}, {8, 9}, {-1, 3}, {INT32_MIN, 3}};
    for (const auto &each : cases) {
        struct xfCopyEntry buffer = make_row(each.from);
        EXPECT_EQ(0, getnextXfCopyEntry(&buffer)) << each.from;
        EXPECT_EQ(each.to, buffer.xfCopyIndex) << each.from;
    }
    for (const int32_t from : {9, 10, INT32_MAX}) {
        struct xfCopyEntry buffer = make_row(from);
        EXPECT_EQ(XF_ERR_NO_ENTRY, getnextXfCopyEntry(&buffer));
        EXPECT_EQ("", difference(make_row(from), buffer));
    }
}

TEST_F(CopyTableTest, nextLookupOnAnEmptyTableIsNoEntry) {
    struct xfCopyEntry buffer = make_row(0);
    EXPECT_EQ(XF_ERR_NO_ENTRY, getnextXfCopyEntry(&buffer));
    buffer.xfCopyIndex = 4;
    EXPECT_EQ(XF_ERR_NO_ENTRY, getnextXfCopyEntry(&buffer));
}

TEST_F(CopyTableTest, nextLookupFromZeroGivesTheLowestRowEvenIfThatIsZero) {
    store(make_row(5));
    store(make_row(0));
    struct xfCopyEntry buffer = make_row(0);
    EXPECT_EQ(0, getnextXfCopyEntry(&buffer));
    EXPECT_EQ(0, buffer.xfCopyIndex);
    store(make_row(-3));
    buffer.xfCopyIndex = 0;
    EXPECT_EQ(0, getnextXfCopyEntry(&buffer));
    EXPECT_EQ(-3, buffer.xfCopyIndex);
}

TEST_F(CopyTableTest, walkSurvivesDeletionOfTheRowItStandsOn) {
    for (const int32_t index : {1, 2, 3, 4, 5})
        store(make_row(index));
    std::vector<int32_t> seen;
    struct xfCopyEntry buffer = make_row(0);
    while (getnextXfCopyEntry(&buffer) == 0) {
        seen.push_back(buffer.xfCopyIndex);
        EXPECT_EQ(0, remove(buffer.xfCopyIndex));
        if (buffer.xfCopyIndex == 2) {
            EXPECT_EQ(0, remove(3));
        }
    }
    EXPECT_EQ((std::vector<int32_t>{1, 2, 4, 5}), seen);
}

/* ---- Deletion --------------------------------------------------------------
 */

TEST_F(CopyTableTest, deletionOfAnEmptyTableFails) {
    EXPECT_EQ(XF_ERR_FAILED, remove(1));
    EXPECT_EQ(Story{}, story());
}

TEST_F(CopyTableTest, deletionOfAMissingRowFailsButItsErrorRowsAreGone) {
    store(make_row(1));
    store_error_row(2, 1);
    store_error_row(3, 1);
    EXPECT_EQ(XF_ERR_FAILED, remove(2));
    EXPECT_EQ(std::vector<int32_t>{1}, stored_indexes());
    ASSERT_EQ(1u, stored_error_rows().size());
    EXPECT_EQ(3, stored_error_rows()[0].xfCopyIndex);
    EXPECT_EQ(0u, p.count("snmp_alarm_unregister"));
}

TEST_F(CopyTableTest, deletionTakesTheErrorRowsFirst) {
    store(make_row(1));
    store(make_row(2));
    store_error_row(1, 1);
    store_error_row(2, 1);
    EXPECT_EQ(0, remove(1));
    Story removals;
    for (const Event &event : p.calls_of("ordset_remove"))
        removals.push_back(event.text);
    EXPECT_EQ(2u, removals.size());
    EXPECT_EQ(2u, p.count("free"));
    EXPECT_EQ(std::vector<int32_t>{2}, stored_indexes());
    ASSERT_EQ(1u, stored_error_rows().size());
    EXPECT_EQ(2, stored_error_rows()[0].xfCopyIndex);
}

TEST_F(CopyTableTest, deletionOfTheLastRowStopsTheAlarmAndDropsTheContainer) {
    store(make_row(1));
    store(make_row(2));
    EXPECT_EQ(0, remove(1));
    EXPECT_EQ(Story{no_error_rows(1)}, story());
    EXPECT_NE(nullptr, module_state.copy_table);
    p.forget();
    EXPECT_EQ(0, remove(2));
    EXPECT_EQ((Story{no_error_rows(2), alarm_unregistered}), story());
    EXPECT_EQ(nullptr, module_state.copy_table);
    EXPECT_EQ(
        (Story{"ordset_remove(2)", alarm_unregistered, "ordset_destroy(set)"}),
        steps());
}

TEST_F(CopyTableTest, aRowBehindTheLastOneStartsANewAlarm) {
    store(make_row(1));
    EXPECT_EQ(0, remove(1));
    p.alarm_ids.always(78);
    store(make_row(2));
    EXPECT_EQ(78u, ageouttimer);
    p.forget();
    EXPECT_EQ(0, remove(2));
    EXPECT_EQ("snmp_alarm_unregister(78)", calls().back());
}

/* ---- Order -----------------------------------------------------------------
 */

TEST_F(CopyTableTest, comparisonPutsTheSmallerIndexFirst) {
    const int32_t indexes[] = {INT32_MIN, -1, 0, 1, 7, INT32_MAX};
    for (const int32_t left : indexes)
        for (const int32_t right : indexes) {
            const struct xfCopyEntry a = make_row(left);
            const struct xfCopyEntry b = make_row(right);
            EXPECT_EQ(left < right ? 1 : (left > right ? -1 : 0),
                      xfCopyEntry_comp_func(&a, &b))
                << left << " " << right;
        }
}

TEST_F(CopyTableTest, comparisonWithNullIsMinusOne) {
    const struct xfCopyEntry row = make_row(1);
    EXPECT_EQ(-1, xfCopyEntry_comp_func(nullptr, &row));
    EXPECT_EQ(-1, xfCopyEntry_comp_func(&row, nullptr));
    EXPECT_EQ(-1, xfCopyEntry_comp_func(nullptr, nullptr));
}

/* ---- Queries ---------------------------------------------------------------
 */

TEST_F(CopyTableTest, stateQueryGivesTheLowestOfSeveralRows) {
    store_state(9, XF_STATE_FAILED);
    store_state(5, XF_STATE_FAILED);
    store_state(3, XF_STATE_RUNNING);
    struct xfCopyEntry buffer = make_row(100);
    EXPECT_EQ(0, get_config_entry_with_status(XF_STATE_FAILED, &buffer));
    EXPECT_EQ("", difference(*stored(5), buffer));
    EXPECT_EQ(0, get_config_entry_with_status(XF_STATE_RUNNING, &buffer));
    EXPECT_EQ(3, buffer.xfCopyIndex);
    EXPECT_EQ(Story{}, story());
}

/* The completion of a copy looks at what is left in the buffer. */
TEST_F(CopyTableTest, stateQueryThatFindsNoneLeavesTheLastRowVisited) {
    struct xfCopyEntry buffer;
    memset(&buffer, 0x77, sizeof(buffer));
    EXPECT_EQ(XF_ERR_FAILED,
              get_config_entry_with_status(XF_STATE_RUNNING, &buffer));
    const struct xfCopyEntry zero = {};
    EXPECT_EQ("", difference(zero, buffer));

    store_state(3, XF_STATE_FAILED);
    store_state(9, XF_STATE_SUCCESSFUL);
    for (const int32_t state : {2, 0x33 /* none that there is */}) {
        buffer = zero;
        EXPECT_EQ(XF_ERR_FAILED, get_config_entry_with_status(state, &buffer));
        EXPECT_EQ("", difference(*stored(9), buffer));
    }
}

TEST_F(CopyTableTest, stateQueryFollowsRowsThatChangeAndGo) {
    for (const int32_t index : {3, 5, 7, 9})
        store_state(index, XF_STATE_RUNNING);
    EXPECT_EQ(3, running());
    EXPECT_EQ(0, remove(3));
    EXPECT_EQ(5, running());
    struct xfCopyEntry row = make_row(9);
    EXPECT_EQ(0, setXfCopyEntry(&row, 0));
    EXPECT_EQ(0, remove(7));
    EXPECT_EQ(5, running());
    row.xfCopyState = 0x33; /* none that there is */
    EXPECT_EQ(0, setXfCopyEntry(&row, 0));
    EXPECT_EQ(0, get_config_entry_with_status(0x33, &visited));
    EXPECT_EQ(9, visited.xfCopyIndex);
    EXPECT_EQ(0, remove(5));
    EXPECT_EQ(0, running());
    EXPECT_EQ(9, visited.xfCopyIndex); /* the last row visited */
}

/* It is not the one that came into its state last. */
TEST_F(CopyTableTest, stateQueryFindsTheOnlyRowThatIsLeft) {
    for (const int32_t index : {5, 3}) { /* nothing is behind the newest */
        store_state(index, XF_STATE_RUNNING);
        store_state(9, XF_STATE_RUNNING);
        EXPECT_EQ(0, remove(9));
        EXPECT_EQ(index, running());
        EXPECT_EQ(0, remove(index));
    }
    for (const int32_t index : {3, 9, 5}) /* a row in another state is */
        store_state(index, XF_STATE_RUNNING);
    struct xfCopyEntry row = make_row(9);
    row.xfCopyState = XF_STATE_SUCCESSFUL;
    EXPECT_EQ(0, setXfCopyEntry(&row, 0));
    EXPECT_EQ(0, remove(5));
    EXPECT_EQ(3, running());
}

TEST_F(CopyTableTest, stateQueryFindsARowOfAnyIndex) {
    for (const int32_t index : {INT32_MIN, -1, 0, 1, INT32_MAX}) {
        store_state(index, XF_STATE_RUNNING);
        EXPECT_EQ(index, running());
        EXPECT_EQ(index, visited.xfCopyIndex);
        EXPECT_EQ(0, remove(index));
    }
}

TEST_F(CopyTableTest, rowThatIsRefusedIsNotCounted) {
    struct xfCopyEntry *const entry = create(5);
    entry->xfCopyState = XF_STATE_RUNNING;
    p.fail_ordset_add_at = 1;
    EXPECT_EQ(XF_ERR_FAILED, addXfCopyEntry(entry));
    EXPECT_EQ(0, running());
    store(make_row(5));
    EXPECT_EQ(XF_ERR_FAILED, addXfCopyEntry(entry));
    EXPECT_EQ(0, running());
    xfCopyEntry_free(entry);
}

/* The module does not do that: its users may. */
TEST_F(CopyTableTest, rowWhoseStateChangedInPlaceHoldsNoLaterCopyUp) {
    struct xfCopyEntry *const entry = create(5);
    EXPECT_EQ(0, addXfCopyEntry(entry));
    entry->xfCopyState = XF_STATE_RUNNING;
    EXPECT_EQ(0, remove(5));
    EXPECT_EQ(0, running());
}

/* What a state has no row of is known, and where its only row is. */
TEST_F(CopyTableTest, stateQueryDoesNotLookAtEveryRow) {
    for (int32_t index = 1; index <= 1000; index++)
        store(make_row(index));
    struct xfCopyEntry row = make_row(900);
    struct xfCopyEntry buffer;
    for (const int32_t state : {XF_STATE_RUNNING, XF_STATE_WAITING}) {
        row.xfCopyState = state;
        EXPECT_EQ(0, setXfCopyEntry(&row, 0));
        p.forget();
        EXPECT_EQ(state == XF_STATE_RUNNING ? 0 : XF_ERR_FAILED,
                  get_config_entry_with_status(XF_STATE_RUNNING, &buffer));
        EXPECT_EQ(state == XF_STATE_RUNNING ? 900 : 1000, buffer.xfCopyIndex);
        EXPECT_LE(p.comparisons, 30u);
    }
}

TEST_F(CopyTableTest, aCopyIsInProgressWhileARowRuns) {
    EXPECT_EQ(0, copy_inprogress());
    store_state(3, XF_STATE_WAITING);
    store_state(4, XF_STATE_SUCCESSFUL);
    store_state(5, XF_STATE_FAILED);
    EXPECT_EQ(0, copy_inprogress());
    store_state(6, XF_STATE_RUNNING);
    EXPECT_EQ(1, copy_inprogress());
    EXPECT_EQ(Story{}, story());
}

TEST_F(CopyTableTest, aCopyIsInProgressWhileTheChildRuns) {
    module_state.copyChildRunning = 1;
    EXPECT_EQ(1, copy_inprogress());
    store_state(3, XF_STATE_WAITING);
    EXPECT_EQ(1, copy_inprogress());
    module_state.copyChildRunning = 0;
    EXPECT_EQ(0, copy_inprogress());
}

/* The read handler's row must survive from the read to RESERVE1. */
TEST_F(CopyTableTest, walksDoNotTouchTheReadHandlersRow) {
    store_state(3, XF_STATE_WAITING);
    store_state(5, XF_STATE_RUNNING);
    memset(&module_state.read_row, 0x66, sizeof(module_state.read_row));
    const struct xfCopyEntry before = module_state.read_row;
    copy_inprogress();
    struct xfCopyEntry buffer;
    get_config_entry_with_status(XF_STATE_FAILED, &buffer);
    cfgentry_age_timer_handler(77, nullptr);
    const uint32_t seconds = 5;
    struct {
        const uint32_t *seconds;
        int32_t direction;
    } step = {&seconds, 1};
    xf_handle_starttime_change(0, 9, &step, nullptr);
    EXPECT_EQ(0, memcmp(&before, &module_state.read_row, sizeof(before)));
}

/* ---- Cost ------------------------------------------------------------------
 */

/* Each store operation is a fixed number of container operations, so that it
 * costs what those do: their comparisons are counted. */
TEST_F(CopyTableTest, everyStoreOperationIsLogarithmic) {
    constexpr int32_t rows = 4096;
    constexpr size_t limit = size_t{3} * 3 * 14; /* operations, deepest path */

    for (int32_t index = 1; index <= rows; index++)
        store(make_row(index * 2));
    const auto cost_of = [&](const auto &operation) {
        p.forget();
        operation();
        size_t operations = 0;
        for (const Event &event : p.journal)
            operations += event.kind == Kind::Set ? 1 : 0;
        EXPECT_LE(operations, 3u);
        EXPECT_LE(p.comparisons, limit);
    };
    struct xfCopyEntry row = make_row(rows);
    cost_of([&] { EXPECT_EQ(0, getXfCopyEntry(&row)); });
    cost_of([&] { EXPECT_EQ(0, getnextXfCopyEntry(&row)); });
    cost_of([&] { EXPECT_EQ(0, setXfCopyEntry(&row, 0)); });
    row.xfCopyIndex = 0;
    cost_of([&] { EXPECT_EQ(0, getnextXfCopyEntry(&row)); });
    struct xfCopyEntry *const entry = create(rows + 1);
    cost_of([&] { EXPECT_EQ(0, addXfCopyEntry(entry)); });
    cost_of([&] { EXPECT_EQ(0, remove(rows)); });
    cost_of([&] { EXPECT_EQ(XF_ERR_FAILED, remove(rows)); });
    cost_of([&] { get(4, copy_column(2, {static_cast<oid>(rows)})); });
    cost_of([&] { get_next(4, copy_column(2, {static_cast<oid>(rows)})); });
}
