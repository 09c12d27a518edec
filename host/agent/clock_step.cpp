#include "host/agent/clock_step.h"

#include <algorithm>
#include <ctime>

#include <sys/timerfd.h>
#include <unistd.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "host/agent/event_loop.h"
#include "host/base/clock.h"
#include "host/base/files.h"

namespace xfhost {
namespace {

constexpr int64_t second = 1000000000;
// The two clocks cannot be read at the same instant: a step of an hour may look
// some microseconds shorter.
constexpr int64_t jitter = second / 200;
constexpr int starttime_change = 9; // minor id of the library callback

// What the callback is given.
struct StarttimeRecord {
    uint32_t *seconds;
    int32_t direction;
};

int64_t wall_ns() {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * second + now.tv_nsec;
}

ClockStepDetector &detector() {
    static ClockStepDetector only(wall_ns(), monotonic_ns());
    return only;
}

// Never expires; becomes readable when the clock is set.
bool arm(int timer) {
    struct itimerspec far = {};
    far.it_value.tv_sec = time(nullptr) + 10L * 365 * 86400;
    return timerfd_settime(timer, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET,
                           &far, nullptr) == 0;
}

void clock_was_set(int timer) {
    uint64_t expirations;
    // The result does not matter: the clocks themselves are asked.
    if (read(timer, &expirations, sizeof expirations) < 0)
        arm(timer);
    auto step = detector().look(wall_ns(), monotonic_ns());
    if (!step)
        return;
    snmp_log(LOG_NOTICE, "xfplatform: the clock was set %u s %s\n",
             step->seconds, step->direction == 1 ? "forward" : "back");
    StarttimeRecord record = {&step->seconds, step->direction};
    snmp_call_callbacks(SNMP_CALLBACK_LIBRARY, starttime_change, &record);
}

} // namespace

ClockStepDetector::ClockStepDetector(int64_t wall, int64_t monotonic)
    : offset_(wall - monotonic) {}

std::optional<ClockStep> ClockStepDetector::look(int64_t wall,
                                                 int64_t monotonic) {
    int64_t change = wall - monotonic - offset_;
    int64_t seconds = (change + (change < 0 ? -jitter : jitter)) / second;
    if (seconds == 0)
        return std::nullopt;
    offset_ += seconds * second;
    int64_t size =
        std::min<int64_t>(seconds < 0 ? -seconds : seconds, UINT32_MAX);
    return ClockStep{static_cast<uint32_t>(size), seconds > 0 ? 1 : -1};
}

bool clock_watch() {
    static Fd timer;
    detector();
    timer = Fd(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC));
    return timer && arm(timer.get()) &&
           loop_watch(timer.get(), [] { clock_was_set(timer.get()); });
}

} // namespace xfhost
