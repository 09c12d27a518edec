// What this switch is, from the configuration.
#include "platform/hwinfo.h"
#include "platform/vrfmgr.h"

#include <new>

#include "host/base/settings.h"
#include "host/base/vrf.h"
#include "host/errors.h"

using namespace xfhost;

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
        return name == nullptr ? 0 : vrf_id(name);
    } catch (const std::bad_alloc &) {
        return 0;
    }
}
