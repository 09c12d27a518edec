/*
 * An abort that fails, which the module's own never does: this executable has a
 * handle_abort of its own, in the place of the module's.
 */
#include "set_driver.h"

using namespace scripted;

extern "C" int32_t handle_abort(const struct xfCopyEntry *) {
    return 1;
}

namespace {

class AbortFailureTest : public ModuleTest {};

} // namespace

TEST_F(AbortFailureTest, rowIsNotDestroyed) {
    store(make_row(7, XF_ROW_ACTIVE));
    EXPECT_EQ(SNMP_ERR_GENERR, set_phase(integer(14, 7, 6), ACTION));
    EXPECT_TRUE(stored(7).has_value());
}
