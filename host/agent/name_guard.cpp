#include "host/agent/name_guard.h"

#include <algorithm>
#include <string_view>

#include "host/base/log.h"
#include "host/base/settings.h"

namespace xfhost {
namespace {

// Those on which a server is reached through a VRF; the storage pod is one.
constexpr int types_with_shell[] = {10, 11, 22, 28, 29, 30, 31, 33};

bool shell_sees_names() {
    const Settings *s = settings();
    return s != nullptr && !s->shell_names &&
           std::find(std::begin(types_with_shell), std::end(types_with_shell),
                     s->chassis_type) != std::end(types_with_shell);
}

// What means something between double quotes.
bool is_for_shell(const netsnmp_variable_list *value) {
    if (value->type != ASN_OCTET_STR)
        return false;
    std::string_view name(reinterpret_cast<const char *>(value->val.string),
                          value->val_len);
    return name.find_first_of("\"$`\\\n") != std::string_view::npos;
}

// RESERVE2 is where the module would store the name, and where a refusal leaves
// no row behind that the request was to create. What was not stored must not be
// put back by FREE either.
int pass_by_one(netsnmp_mib_handler *handler,
                netsnmp_handler_registration *column,
                netsnmp_agent_request_info *info,
                netsnmp_request_info *requests) {
    int result = SNMP_ERR_NOERROR;
    for (netsnmp_request_info *each = requests; each; each = each->next) {
        if (!is_for_shell(each->requestvb)) {
            int one = netsnmp_call_next_handler_one_request(handler, column,
                                                            info, each);
            result = result == SNMP_ERR_NOERROR ? one : result;
        } else if (info->mode == MODE_SET_RESERVE2) {
            log_message(LOG_NOTICE, "a file name that a shell would act on is "
                                    "refused; see shell_names");
            netsnmp_set_request_error(info, each, SNMP_ERR_WRONGVALUE);
        }
    }
    return result;
}

int guard(netsnmp_mib_handler *handler, netsnmp_handler_registration *column,
          netsnmp_agent_request_info *info, netsnmp_request_info *requests) {
    if (info->mode == MODE_SET_RESERVE2 || info->mode == MODE_SET_FREE)
        return pass_by_one(handler, column, info, requests);
    return netsnmp_call_next_handler(handler, column, info, requests);
}

} // namespace

bool guard_names(netsnmp_handler_registration *column) {
    if (!shell_sees_names())
        return true;
    for (netsnmp_mib_handler *each = column->handler; each; each = each->next)
        if (each->access_method == guard)
            return true;
    netsnmp_mib_handler *handler = netsnmp_create_handler("xf_names", guard);
    return handler != nullptr &&
           netsnmp_inject_handler(column, handler) == SNMPERR_SUCCESS;
}

} // namespace xfhost
