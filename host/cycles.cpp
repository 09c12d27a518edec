// Cycles are nanoseconds of the monotonic clock: a counter of the processor
// would have to be calibrated and may differ between processors.
#include "platform/cycles.h"

#include "host/base/clock.h"

uint64_t timer_get_cycles(void) {
    return static_cast<uint64_t>(xfhost::monotonic_ns());
}

uint64_t timer_diff_cycle_in_msec(uint64_t later, uint64_t earlier) {
    return later < earlier ? 0 : (later - earlier) / 1000000u;
}
