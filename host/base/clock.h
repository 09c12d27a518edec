// The clock that nobody sets, for deadlines and lengths of time.
#ifndef HOST_BASE_CLOCK_H
#define HOST_BASE_CLOCK_H

#include <algorithm>
#include <climits>
#include <cstdint>
#include <ctime>

namespace xfhost {

// Since some moment before the process began, the same one for every process of
// a machine until it is restarted.
inline int64_t monotonic_ns() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

inline int64_t monotonic_ms() {
    return monotonic_ns() / 1000000;
}

// What is left until a time of monotonic_ms(), as poll() takes it: 0 if it is
// over.
inline int ms_until(int64_t deadline) {
    return static_cast<int>(
        std::clamp<int64_t>(deadline - monotonic_ms(), 0, INT_MAX));
}

} // namespace xfhost

#endif
