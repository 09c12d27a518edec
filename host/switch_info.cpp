// What this switch is, from the configuration.
#include "platform/hwinfo.h"
#include "platform/vrfmgr.h"

#include <new>
#include <string>

#include "host/base/settings.h"
#include "host/base/vrf.h"
#include "host/errors.h"
#include "host/history/report.h"

using namespace xfhost;

namespace {

void tell_missing(const std::string &vrf) {
    Report report;
    report.reason = "Looking for the VRF \"" + printable(vrf, 64) +
                    "\": the switch has none of that name";
    report.advice = "Look at the name of the VRF in the request, and at the "
                    "network namespaces and VRF devices of the switch.";
    tell(report);
}

} // namespace

int hwinfo_get_chassis_type(int32_t *type) {
    const Settings *s = settings();
    if (s == nullptr || !s->chassis_type)
        return static_cast<int>(err_no_chassis_type);
    *type = *s->chassis_type;
    return 0;
}

int pod_get_type(int) {
    const Settings *s = settings();
    return s == nullptr ? 0 : s->partition_type;
}

int32_t vrfmgr_get_context_id(const char *name) {
    try {
        const int32_t id = name == nullptr ? 0 : vrf_id(name);
        if (id == 0)
            tell_missing(name == nullptr ? "" : name);
        return id;
    } catch (const std::bad_alloc &) {
        return 0;
    }
}
