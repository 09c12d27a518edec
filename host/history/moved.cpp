#include "host/history/moved.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "host/base/clock.h"

namespace xfhost {
namespace {

// Of a transfer that takes T seconds fewer than 20 + 16 ln(T) tellings come.
constexpr int64_t first_interval_ms = 1000;
constexpr int64_t interval_part = 16;

} // namespace

Moved::Moved()
    : began_ms_(monotonic_ms()), next_ms_(began_ms_ + first_interval_ms) {
    sha256_init(&digest_);
}

void Moved::take(std::string_view octets) {
    sha256_update(&digest_, octets.size(),
                  reinterpret_cast<const uint8_t *>(octets.data()));
    octets_ += octets.size();
    const int64_t now = monotonic_ms();
    if (now < next_ms_)
        return;
    next_ms_ =
        now + std::max(first_interval_ms, (now - began_ms_) / interval_part);
    Report so_far;
    so_far.octets = octets_;
    tell(so_far);
}

Report Moved::report() const {
    struct sha256_ctx copy = digest_;
    std::array<uint8_t, SHA256_DIGEST_SIZE> digest;
    sha256_digest(&copy, digest.size(), digest.data());
    Report report;
    report.octets = octets_;
    for (uint8_t octet : digest) {
        char text[3];
        snprintf(text, sizeof text, "%02x", octet);
        report.sha256 += text;
    }
    return report;
}

Report moved_report(std::string_view octets) {
    Moved moved;
    moved.take(octets);
    return moved.report();
}

} // namespace xfhost
