#include "host/agent/descriptors.h"

#include <cstdio>
#include <cstdlib>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace xfhost {
namespace {

// A file with a name may be a log that the agent or a module goes on writing
// to: its number must not become that of another file.
bool has_name(int fd) {
    char path[32], target[2];
    snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    return readlink(path, target, sizeof target) > 0 && target[0] == '/';
}

bool same_file(int one, int other) {
    struct stat a, b;
    return fstat(one, &a) == 0 && fstat(other, &b) == 0 &&
           a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// A log may also be where the standard output or error is.
bool may_be_log(int fd) {
    return has_name(fd) || same_file(fd, 1) || same_file(fd, 2);
}

void shed(int fd) {
    if (may_be_log(fd))
        fcntl(fd, F_SETFD, FD_CLOEXEC);
    else
        close(fd);
}

bool empty_standard_input() {
    int null = open("/dev/null", O_RDONLY);
    if (null < 0)
        return false;
    if (null == 0)
        return true;
    bool done = dup2(null, 0) == 0;
    close(null);
    return done;
}

} // namespace

bool shed_descriptors(int kept) {
    closelog(); // the C library's own, which it opens again
    DIR *listing = opendir("/proc/self/fd");
    if (listing == nullptr)
        return false;
    while (const struct dirent *entry = readdir(listing)) {
        int fd = static_cast<int>(strtol(entry->d_name, nullptr, 10));
        if (fd > 2 && fd != kept && fd != dirfd(listing))
            shed(fd);
    }
    closedir(listing);
    return empty_standard_input();
}

} // namespace xfhost
