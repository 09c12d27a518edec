// The system manager's calls. There is no system manager yet: what it would do
// with startup configurations is done here, in the caller's process; what needs
// it fails.
#include "platform/procd.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "host/base/files.h"
#include "host/base/log.h"
#include "host/base/settings.h"
#include "host/errors.h"

using namespace xfhost;

namespace {

constexpr size_t largest_config = size_t{256} << 20;
constexpr int directory_startup = 2;

Fd open_startup_directory() {
    Fd state = open_state_directory();
    return state ? open_private_directory_at(state.get(), "startup") : Fd();
}

bool keep(const std::string &text) {
    Fd directory = open_startup_directory();
    if (!directory)
        return false;
    Fd lock = lock_file(directory.get(), "system.cfg.lock", true);
    if (!lock || !replace_durably(directory.get(), "system.cfg", text))
        return false;
    Fd kept = open_private_file(directory.get(), "system.cfg", O_RDONLY);
    std::string again;
    if (!kept || !read_whole(kept.get(), largest_config, again))
        return false;
    if (again != text)
        errno = EIO;
    return again == text;
}

int write_startup(const char *path) {
    Fd file(open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    std::string text;
    if (!file || !read_whole(file.get(), largest_config, text)) {
        log_message(LOG_ERR, "%s: %s", path, strerror(errno));
        return static_cast<int>(err_startup_not_read);
    }
    if (keep(text))
        return 0;
    log_message(LOG_ERR, "startup configuration: %s", strerror(errno));
    return static_cast<int>(err_startup_not_kept);
}

} // namespace

const char *procd_cli_dir_get(ipcbus_handle, int which) {
    static std::string directory;
    const Settings *s = settings();
    if (s == nullptr || which != directory_startup)
        return "";
    try {
        directory = s->state_directory + "/startup";
    } catch (const std::bad_alloc &) {
        return "";
    }
    return directory.c_str();
}

int procd_cli_write_ascii_cfg(ipcbus_handle, const char *path) {
    try {
        return write_startup(path);
    } catch (const std::bad_alloc &) {
        return static_cast<int>(err_startup_not_kept);
    }
}

void procd_heartbeat(int) {
    // Nobody watches over the agent yet.
}

uint32_t procd_heartbeat_timeout_get(void) {
    return 10000;
}

int rpcq_req_resp(uint32_t, uint32_t, uint32_t, const void *, uint32_t,
                  uint32_t, ipcbus_handle, uint32_t, void **response) {
    *response = nullptr;
    errno = ENOSYS;
    return -1;
}
