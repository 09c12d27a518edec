#include "host/agent/debug_log.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/files.h"
#include "host/base/log.h"

namespace xfhost {
namespace {

constexpr char directory[] = "/tmp";

std::string file_name() {
    return "cfg_snmp_debug.log." + std::to_string(getpid());
}

// Nobody else can remove or replace a file of ours there.
bool keeps_files(int fd) {
    struct stat st;
    if (fstat(fd, &st) != 0)
        return false;
    if (trusted_owner(st.st_uid) &&
        ((st.st_mode & 022) == 0 || (st.st_mode & S_ISVTX) != 0))
        return true;
    errno = EPERM;
    return false;
}

bool make_private(int fd) {
    struct stat st;
    if (fstat(fd, &st) != 0)
        return false;
    if (!S_ISREG(st.st_mode) || st.st_uid != geteuid() || st.st_nlink != 1) {
        errno = EPERM;
        return false;
    }
    return fchmod(fd, 0600) == 0;
}

} // namespace

std::string debug_log_path() {
    return std::string(directory) + "/" + file_name();
}

bool debug_log_make_private() {
    Fd folder(open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder && keeps_files(folder.get())) {
        // O_NONBLOCK: a FIFO in the file's place must not stop the agent.
        Fd file(openat(folder.get(), file_name().c_str(),
                       O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK |
                           O_CLOEXEC,
                       0600));
        if (file && make_private(file.get()))
            return true;
    }
    log_message(LOG_ERR, "debug log %s: %s; it stays off",
                debug_log_path().c_str(), strerror(errno));
    return false;
}

} // namespace xfhost
