// Steps of the wall clock: the agent tells its modules when somebody sets it.
#ifndef HOST_AGENT_CLOCK_STEP_H
#define HOST_AGENT_CLOCK_STEP_H

#include <cstdint>
#include <optional>

namespace xfhost {

struct ClockStep {
    uint32_t seconds;
    int32_t direction; // 1 forward, -1 backward
};

// Tells steps from the passing of time by comparing the wall clock with the
// monotonic one. Both are given in nanoseconds.
class ClockStepDetector {
  public:
    ClockStepDetector(int64_t wall, int64_t monotonic);

    // The step since the last one told, in whole seconds. What is below a
    // second is kept, so that small steps count once they add up to one.
    std::optional<ClockStep> look(int64_t wall, int64_t monotonic);

  private:
    int64_t offset_;
};

// Raises library callback 9 in the main loop for each step from now on. False
// with errno set if the clock cannot be watched.
bool clock_watch();

} // namespace xfhost

#endif
