/* The scripted platform itself: what later tests lean on. */
#include "scripted_platform.h"
#include "set_driver.h"

#include <gmock/gmock.h>

using namespace scripted;

namespace {
class SmokeTest : public ModuleTest {};
} // namespace

TEST_F(SmokeTest, moduleStartsWithoutRowsAndWithAnEmptyUndoList) {
    EXPECT_EQ(nullptr, module_state.copy_table);
    EXPECT_NE(nullptr, module_state.undo_list);
    EXPECT_EQ(0u, size_of(module_state.undo_list));
    EXPECT_EQ(Story{}, story());
    EXPECT_EQ(3u, p.subscriptions.size());
}

TEST_F(SmokeTest, wholeRequestCreatesARowThatWaits) {
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({integer(14, 5, 5)}));
    EXPECT_EQ("0 1 2 3", phases_seen);
    ASSERT_TRUE(stored(5).has_value());
    EXPECT_EQ(XF_ROW_NOT_READY, stored(5)->xfCopyEntryRowStatus);
    EXPECT_EQ((Story{
                  info("set_xfCopyEntryRowStatus : Added new entry to "
                       "xfCopyTable ( index = 5)\n"),
                  "snmp_alarm_register(101, SA_REPEAT, "
                  "cfgentry_age_timer_handler, NULL)",
                  info("set_xfCopyEntryRowStatus : Setting "
                       "xfCopyEntryRowStatus to 0 \n"),
              }),
              story());
}

TEST_F(SmokeTest, childLeavesThroughExit) {
    struct xfCopyEntry row = make_row(1, XF_ROW_ACTIVE);
    row.xfCopySourceFileType = XF_FILE_RUNNING;
    row.xfCopyDestFileType = XF_FILE_TARN;
    p.fork_results.then(0);

    EXPECT_EQ(0, run_as_child([&] { start_copy(&row); }));
    EXPECT_EQ("_exit(0)", story().back());
    const std::vector<Event> sent = p.calls_of("ipcbus_send");
    ASSERT_EQ(1u, sent.size());
    EXPECT_EQ(std::string(4, '\0'), sent[0].octets);
}

TEST_F(SmokeTest, debugLogRecordsAreInTheStory) {
    is_snmp_debug_enabled = 1;
    EXPECT_EQ(0, set_phase(integer(14, 9, 6), RESERVE2));
    EXPECT_EQ(Story{log("set_xfCopyEntryRowStatus(#):set_xfCopyEntryRowStatus "
                        ":  Entering RESERVE2\n")},
              story());
}
