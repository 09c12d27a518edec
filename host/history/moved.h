// What a copy has moved: how many octets, and their SHA-256.
#ifndef HOST_HISTORY_MOVED_H
#define HOST_HISTORY_MOVED_H

#include <cstdint>
#include <string_view>

#include <nettle/sha2.h>

#include "host/history/report.h"

namespace xfhost {

class Moved {
  public:
    Moved();

    // Takes the next octets of the file. Now and then it is told how many there
    // have been: seldom enough to leave room for everything else.
    void take(std::string_view octets);

    uint64_t octets() const {
        return octets_;
    }
    // Of all that was taken.
    Report report() const;

  private:
    struct sha256_ctx digest_;
    uint64_t octets_ = 0;
    int64_t began_ms_, next_ms_;
};

// What is moved as one.
Report moved_report(std::string_view octets);

} // namespace xfhost

#endif
