#include "host/transfer/local_file.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/part_file.h"
#include "host/transfer/transfer.h"

namespace xfhost {
namespace {

[[noreturn]] void not_written(int error, Outcome usual, const char *text) {
    if (error == ENOSPC || error == EDQUOT)
        throw Failed(Outcome::no_space, "no space for the file");
    throw Failed(usual, text);
}

bool is_directory(const std::string &path) {
    struct stat found;
    return stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
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

Destination::Destination(const std::string &path) : path_(path) {
    size_t slash = path.rfind('/');
    std::string directory =
        slash == std::string::npos ? "./" : path.substr(0, slash + 1);
    part_ = directory + ".transfer-" + std::to_string(getpid()) + ".part";
    errno = EISDIR;
    if (!is_directory(path))
        file_ = open_part(directory, part_);
    if (!file_)
        not_written(errno, Outcome::bad_name,
                    "the local file cannot be written");
}

Destination::~Destination() {
    unlink(part_.c_str());
}

void Destination::keep() {
    // What the file system has put off is refused now, or never.
    int error =
        fsync(file_.get()) == 0 ? keep_part(file_, part_, path_) : errno;
    if (error != 0)
        not_written(error, Outcome::other, "the file could not be kept");
}

} // namespace xfhost
