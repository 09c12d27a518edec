// grove: the switches at which the last fabric-wide save failed. The system
// manager keeps the results in a file; a walk reads it once.
#include "platform/grove.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "host/base/log.h"
#include "host/fabric/results.h"
#include "platform/netaddr.h"

using namespace xfhost;

namespace {

// Of the walk in progress; the caller has one at a time. The status of the one
// at `position` was given last.
std::vector<FabricResult> failures;
size_t position;

bool fresh(const grove_status &status) {
    const uint8_t none[sizeof status.wwn] = {};
    return memcmp(status.wwn, none, sizeof none) == 0;
}

bool start_walk() {
    if (!load_results(failures)) {
        log_message(LOG_ERR, "fabric results: %s", strerror(errno));
        return false;
    }
    std::erase_if(failures, [](const auto &each) { return !each.failed; });
    return true;
}

void fill(const FabricResult &from, grove_status &status) {
    status = {};
    for (size_t i = 0; i < sizeof status.wwn; i++)
        status.wwn[i] = static_cast<uint8_t>(
            strtoul(from.wwn.substr(2 * i, 2).c_str(), nullptr, 16));
    status.is_local = from.local ? 1 : 0;
    if (!from.local)
        ip_addr_from_str(from.address.c_str(), &status.address);
}

bool is_of(const FabricResult &result, const grove_status &status) {
    grove_status other;
    fill(result, other);
    return memcmp(other.wwn, status.wwn, sizeof other.wwn) == 0;
}

// Where the switch of a status is, the number of all if it is none of them.
size_t position_of(const grove_status &status) {
    if (position < failures.size() && is_of(failures[position], status))
        return position;
    auto found =
        std::find_if(failures.begin(), failures.end(),
                     [&](const auto &each) { return is_of(each, status); });
    return static_cast<size_t>(found - failures.begin());
}

int next(grove_status &status, char *text, uint32_t limit) {
    if (!fresh(status))
        position = position_of(status) + 1;
    else if (start_walk())
        position = 0;
    else
        return -1;
    if (position >= failures.size())
        return -1;
    const FabricResult *found = &failures[position];
    fill(*found, status);
    size_t length = std::min<size_t>(found->text.size(), limit);
    memcpy(text, found->text.data(), length);
    text[length] = 0;
    return 0;
}

} // namespace

int grove_status_next_get(struct grove_status *status, char *text,
                          uint32_t limit, const uint8_t *) {
    try {
        return next(*status, text, limit);
    } catch (const std::bad_alloc &) {
        return -1;
    }
}

void grove_status_clean(int) {
    std::vector<FabricResult>().swap(failures);
}
