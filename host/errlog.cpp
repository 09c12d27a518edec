// Error log and the texts of the platform's error codes.
#include "platform/errlog.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include <syslog.h>

#include "host/base/log.h"
#include "host/base/record.h"
#include "host/errors.h"

using namespace xfhost;

namespace {

struct Text {
    uint32_t code;
    const char *text;
};

constexpr Text texts[] = {
    {0, "success"},
    {PROCD_CFG_ACTION_ACCEPTED, "accepted, the result follows"},
    {QSH_ERR_CFG_LINES_REFUSED, "some lines of the configuration failed"},
    {QSH_ERR_CFG_EMPTY, "no configuration in the file"},
    {QSH_ERR_CFG_LINES_SKIPPED, "too many lines failed, the rest was skipped"},
    {err_apply_failed, "the configuration could not be applied"},
    {err_apply_time_limit, "applying the configuration took too long"},
    {err_shell_not_run, "the command shell could not be run"},
    {err_startup_not_read, "the configuration could not be read"},
    {err_startup_not_kept, "the startup configuration could not be kept"},
    {err_save_busy, "another save is running"},
    {err_save_request, "not a request to save the running configuration"},
    {err_save_aborted, "the save was aborted"},
    {err_save_interrupted, "the system manager ended during the save"},
    {err_manager_gone, "the system manager ended and was not restarted"},
    {err_no_fabric, "there is no usable list of the fabric's switches"},
    {err_fabric_failed, "not every switch of the fabric kept its startup "
                        "configuration"},
    {err_address_type, "unknown address type"},
    {err_address_text, "not an address, or no room for its text"},
    {err_no_chassis_type, "the chassis type is not configured"},
    {err_no_management_port, "there is no management port"},
};

} // namespace

void log_set_error(uint32_t code, uint32_t component) {
    try {
        char record[64];
        snprintf(record, sizeof record,
                 "component=%u code=0x%08X text=", component, code);
        std::string line = record + quoted(syserr2str(code));
        syslog(LOG_AUTHPRIV | LOG_ERR, "%s", line.c_str());
        if (append_record("errors.log", timestamp() + " " + line))
            return;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
    log_message(LOG_ERR, "error record 0x%08X lost: %s", code, strerror(errno));
}

const char *syserr2str(uint32_t code) {
    for (const Text &known : texts)
        if (known.code == code)
            return known.text;
    return "unknown error";
}

const char *syserr_format(uint32_t code) {
    static char text[128];
    snprintf(text, sizeof text, "0x%08X: %s", code, syserr2str(code));
    return text;
}
