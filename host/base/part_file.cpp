#include "host/base/part_file.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace xfhost {
namespace {

constexpr int new_file = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

} // namespace

Fd open_part(const std::string &directory, const std::string &part) {
    unlink(part.c_str()); // of an earlier process of this id
    Fd file(open(directory.c_str(), O_WRONLY | O_TMPFILE | O_CLOEXEC, 0600));
    if (!file && (errno == EOPNOTSUPP || errno == EISDIR))
        file = Fd(open(part.c_str(), new_file, 0600));
    return file;
}

int keep_part(const Fd &file, const std::string &part,
              const std::string &local) {
    std::string open_file = "/proc/self/fd/" + std::to_string(file.get());
    if (access(part.c_str(), F_OK) != 0 &&
        linkat(AT_FDCWD, open_file.c_str(), AT_FDCWD, part.c_str(),
               AT_SYMLINK_FOLLOW) != 0)
        return errno;
    return rename(part.c_str(), local.c_str()) == 0 ? 0 : errno;
}

} // namespace xfhost
