#include "host/base/local_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace xfhost {
namespace {

constexpr int new_file = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

bool is_directory(const std::string &path) {
    struct stat found;
    return stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

// A file cannot be given a name that is taken, so it goes through `part`.
int link_and_rename(const Fd &file, const std::string &part,
                    const std::string &path) {
    const std::string open_file = "/proc/self/fd/" + std::to_string(file.get());
    if (access(part.c_str(), F_OK) != 0 &&
        linkat(AT_FDCWD, open_file.c_str(), AT_FDCWD, part.c_str(),
               AT_SYMLINK_FOLLOW) != 0)
        return errno;
    return rename(part.c_str(), path.c_str()) == 0 ? 0 : errno;
}

} // namespace

bool is_no_room(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

Fd open_source(const std::string &path) {
    // Not blocking: it may be a pipe, which is then refused.
    Fd file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat found;
    if (!file || fstat(file.get(), &found) != 0)
        return Fd();
    if (S_ISREG(found.st_mode))
        return file;
    errno = EINVAL;
    return Fd();
}

BoundedFile::BoundedFile(Fd file, uint64_t most)
    : file_(std::move(file)), most_(most) {
    struct rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0)
        most_ = std::min<uint64_t>(most_, limit.rlim_cur);
}

int BoundedFile::expect(uint64_t octets) const {
    if (octets > most_)
        return EFBIG;
    struct statvfs room;
    if (fstatvfs(file_.get(), &room) != 0 || room.f_blocks == 0)
        return 0; // it does not say: the write will
    return octets > uint64_t{room.f_bavail} * room.f_frsize ? ENOSPC : 0;
}

int BoundedFile::write_at(uint64_t offset, std::string_view octets) {
    if (offset > most_ || octets.size() > most_ - offset)
        return EFBIG;
    const std::string_view all = octets;
    while (!octets.empty()) {
        const ssize_t count = pwrite(file_.get(), octets.data(), octets.size(),
                                     static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return errno;
        octets.remove_prefix(static_cast<size_t>(count));
        offset += static_cast<uint64_t>(count);
    }
    octets_ += all.size();
    if (offset - all.size() == moved_.octets())
        moved_.take(all);
    return 0;
}

int BoundedFile::restart() {
    octets_ = 0;
    moved_ = {};
    return ftruncate(file_.get(), 0) == 0 ? 0 : errno;
}

// What came before its turn is read again.
Report BoundedFile::moved() {
    char octets[65536];
    while (moved_.octets() < octets_) {
        const ssize_t count = pread(file_.get(), octets, sizeof octets,
                                    static_cast<off_t>(moved_.octets()));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return {};
        moved_.take({octets, static_cast<size_t>(count)});
    }
    return moved_.report();
}

FetchedFile::FetchedFile(const std::string &path)
    : path_(path), folder_(path.substr(0, path.rfind('/') + 1)) {
    if (folder_.empty())
        folder_ = "./";
    part_ = folder_ + ".transfer-" + std::to_string(getpid()) + ".part";
}

FetchedFile::~FetchedFile() {
    unlink(part_.c_str());
}

int FetchedFile::open(uint64_t most) {
    if (is_directory(path_))
        return EISDIR;
    unlink(part_.c_str()); // of an earlier process of this id
    Fd fd(::open(folder_.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0600));
    if (!fd && (errno == EOPNOTSUPP || errno == EISDIR))
        fd = Fd(::open(part_.c_str(), new_file, 0600));
    if (!fd)
        return errno;
    file_ = BoundedFile(std::move(fd), most);
    return 0;
}

int FetchedFile::keep() {
    // What the file system has put off is refused now, or never.
    if (fsync(file_.fd().get()) != 0)
        return errno;
    return link_and_rename(file_.fd(), part_, path_);
}

} // namespace xfhost
