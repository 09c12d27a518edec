/*
 * A lookup that fails in a way that the table itself never does: this
 * executable has a getXfCopyEntry of its own, in the place of the module's.
 */
#include "set_driver.h"

using namespace scripted;

static int32_t lookup_result;

extern "C" int32_t getXfCopyEntry(struct xfCopyEntry *) {
    return lookup_result;
}

namespace {

class LookupFailureTest : public ModuleTest {
  protected:
    LookupFailureTest() {
        is_snmp_debug_enabled = 1;
    }
    std::string log_line(const std::string &text) {
        return log("set_xfCopyEntryRowStatus(#):set_xfCopyEntryRowStatus" +
                   text);
    }
};

} // namespace

TEST_F(LookupFailureTest, actionIsGenErrEvenForDestroy) {
    for (const int32_t result : {XF_ERR_FAILED, 5, -1})
        for (const long value : {1L, 4L, 5L, 6L}) {
            p.forget();
            lookup_result = result;
            EXPECT_EQ(SNMP_ERR_GENERR,
                      set_phase(integer(14, 7, value), ACTION));
            EXPECT_EQ(
                (Story{log_line(" : Entering ACTION for index = 7 \n"),
                       log_line(" :  Some Generic error while getting the "
                                "informatiom for the entry  in ACTION " +
                                std::to_string(value) + " \n")}),
                story());
        }
}

TEST_F(LookupFailureTest, tablesOwnNotFoundIsNoneOfThese) {
    lookup_result = XF_ERR_NO_ENTRY;
    EXPECT_EQ(SNMP_ERR_NOERROR, set_phase(integer(14, 7, 6), ACTION));
    EXPECT_EQ(log_line(" : second long_ret 6 \n"), story().back());
}

TEST_F(LookupFailureTest, withTheLogOffItIsGenErrInSilence) {
    is_snmp_debug_enabled = 0;
    lookup_result = 5;
    EXPECT_EQ(SNMP_ERR_GENERR, set_phase(integer(14, 7, 6), ACTION));
    EXPECT_EQ(Story{}, story());
}
