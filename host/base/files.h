// Files and directories that belong to the platform alone: 0600 and 0700,
// never reached through somebody else's symbolic link.
#ifndef HOST_BASE_FILES_H
#define HOST_BASE_FILES_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include <sys/types.h>

namespace xfhost {

// Owns a file descriptor; closing keeps errno.
class Fd {
  public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd &operator=(Fd &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Fd() {
        reset();
    }
    void reset();
    int get() const {
        return fd_;
    }
    explicit operator bool() const {
        return fd_ >= 0;
    }

  private:
    int fd_ = -1;
};

// Accepts what this process, root, or the configured user of the agent own.
bool trusted_owner(uid_t uid);

// The path of a file below the root prefix: only /brim/... moves there.
std::string program_path(std::string_view path);

// The directory `path`, made if it is missing. Empty with errno set if it
// cannot be had, or is somebody else's to write to (EPERM).
Fd open_private_directory(const std::string &path);
Fd open_private_directory_at(int directory, const char *name);

// The state directory; the run directory.
Fd open_state_directory();
Fd open_run_directory();

// A regular file in a directory, 0600 if `flags` make it. Empty with errno set:
// ELOOP for a symbolic link, EPERM for somebody else's file.
Fd open_private_file(int directory, const char *name, int flags);

// Gives a new file to the configured user, if there is one. `directory` and
// `name` as in fchownat.
void adopt(int fd);
void adopt_at(int directory, const char *name);

// A lock file, locked by this process until the result is closed. `wait` false
// fails with EWOULDBLOCK if another process has it.
Fd lock_file(int directory, const char *name, bool wait);

// Reads from a descriptor to its end. False with errno set, EFBIG above
// `limit` octets.
bool read_whole(int fd, size_t limit, std::string &data);

// Writes everything. False with errno set.
bool write_whole(int fd, std::string_view data);

// Makes `data` the file `name`: readers see the old file or the new one, whole,
// and after success the new one survives a power failure. False with errno set;
// the old file is then still there, or there again; a power failure may show
// that it was not, which is logged. `proceed`, if given, is asked once the new
// file is on the disk and before it takes its place; no is ECANCELED.
bool replace_durably(int directory, const char *name, std::string_view data,
                     const std::function<bool()> &proceed = {});

} // namespace xfhost

#endif
