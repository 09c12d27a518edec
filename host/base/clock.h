// The clock that nobody sets, for deadlines and lengths of time.
#ifndef HOST_BASE_CLOCK_H
#define HOST_BASE_CLOCK_H

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

} // namespace xfhost

#endif
