#include "host/transfer/local_file.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/transfer/transfer.h"

namespace xfhost {
namespace {

constexpr const char *not_written = "the local file cannot be written";

bool is_directory(int directory, const std::string &name) {
    struct stat found;
    return fstatat(directory, name.c_str(), &found, 0) == 0 &&
           S_ISDIR(found.st_mode);
}

[[noreturn]] void not_kept() {
    if (errno == ENOSPC || errno == EDQUOT)
        throw Failed(Outcome::no_space, "no space for the file");
    throw Failed(Outcome::other, "the file could not be kept");
}

} // namespace

Fd open_source(const std::string &path) {
    // Not blocking: it may be a pipe, which is then refused.
    Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat found;
    if (!file || fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode))
        throw Failed(Outcome::bad_name, "the local file cannot be read");
    return file;
}

Destination::Destination(const std::string &path)
    : part_(".transfer-" + std::to_string(getpid()) + ".part") {
    size_t slash = path.rfind('/');
    name_ = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string directory =
        slash == std::string::npos ? "." : path.substr(0, slash + 1);
    directory_ =
        Fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory_ || name_.empty() || is_directory(directory_.get(), name_))
        throw Failed(Outcome::bad_name, not_written);
    open_unnamed();
    if (!file_)
        throw Failed(errno == ENOSPC || errno == EDQUOT ? Outcome::no_space
                                                        : Outcome::bad_name,
                     not_written);
}

void Destination::open_unnamed() {
    int flags = O_RDWR | O_CLOEXEC;
    file_ = Fd(openat(directory_.get(), ".", flags | O_TMPFILE, 0600));
    if (file_ || (errno != EOPNOTSUPP && errno != EISDIR))
        return;
    unlinkat(directory_.get(), part_.c_str(), 0);
    file_ = Fd(openat(directory_.get(), part_.c_str(),
                      flags | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
    named_ = static_cast<bool>(file_);
}

Destination::~Destination() {
    if (named_)
        unlinkat(directory_.get(), part_.c_str(), 0);
}

void Destination::keep() {
    // What the file system has put off is refused now, or never.
    if (fsync(file_.get()) != 0)
        not_kept();
    if (!named_) {
        std::string self = "/proc/self/fd/" + std::to_string(file_.get());
        unlinkat(directory_.get(), part_.c_str(), 0);
        if (linkat(AT_FDCWD, self.c_str(), directory_.get(), part_.c_str(),
                   AT_SYMLINK_FOLLOW) != 0)
            not_kept();
        named_ = true;
    }
    if (renameat(directory_.get(), part_.c_str(), directory_.get(),
                 name_.c_str()) != 0)
        not_kept();
    named_ = false;
}

} // namespace xfhost
