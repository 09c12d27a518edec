// Accounting: syslog, and a file that says who did what, one line a record.
#include "platform/accounting.h"

#include <cerrno>
#include <cstring>
#include <new>

#include <syslog.h>

#include "host/base/log.h"
#include "host/base/record.h"

using namespace xfhost;

int account_lib_interim_update(ipcbus_handle, const char *session,
                               const char *user, const char *text) {
    try {
        std::string record = "session=" + quoted(session ? session : "") +
                             " user=" + quoted(user ? user : "") +
                             " text=" + quoted(text ? text : "");
        syslog(LOG_AUTHPRIV | LOG_INFO, "%s", record.c_str());
        if (append_record("accounting.log", timestamp() + " " + record))
            return 0;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
    log_message(LOG_ERR, "accounting record lost: %s", strerror(errno));
    return -1;
}
