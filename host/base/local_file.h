// The local end of a copy. What fails gives an error number: TFTP has them in
// its results.
#ifndef HOST_BASE_LOCAL_FILE_H
#define HOST_BASE_LOCAL_FILE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "host/base/files.h"
#include "host/history/moved.h"

namespace xfhost {

// Whether an error number says that a file has no room.
bool is_no_room(int error);

// A file to send, open for reading. Empty with errno set if it cannot be read:
// ELOOP for a symbolic link, EINVAL for what is no regular file.
Fd open_source(const std::string &path);

// An open file that is written to, no larger than it may become.
class BoundedFile {
  public:
    BoundedFile() = default;
    // An empty file, at most `most` octets. Nor does it become larger than this
    // process may write: the kernel would end it.
    BoundedFile(Fd file, uint64_t most);

    const Fd &fd() const {
        return file_;
    }
    // Whether so many octets fit, as far as anybody can tell. Returns 0 or an
    // error number.
    int expect(uint64_t octets) const;
    // Writes all of them at an offset. Returns 0 or an error number.
    int write_at(uint64_t offset, std::string_view octets);
    // Empties it again. Returns 0 or an error number.
    int restart();
    // All that was written so far.
    uint64_t octets() const {
        return octets_;
    }
    // The same with its digest, once there is no hole in the file.
    Report moved();

  private:
    Fd file_;
    uint64_t most_ = 0;
    Moved moved_; // what was written in its order
    uint64_t octets_ = 0;
};

// A file to fetch. It gets its name when it is whole, so that a process that is
// killed before leaves nothing behind.
class FetchedFile {
  public:
    explicit FetchedFile(const std::string &path);
    ~FetchedFile(); // without keep() there is no new file
    FetchedFile(const FetchedFile &) = delete;
    FetchedFile &operator=(const FetchedFile &) = delete;

    // Makes it, empty, 0600 and at most `most` octets. Returns 0 or an error
    // number.
    int open(uint64_t most);
    BoundedFile &file() {
        return file_;
    }
    // The path that the file has where a file system has none without a name.
    const std::string &part() const {
        return part_;
    }
    // Gives it its name, in the place of a file that had it. Returns 0 or an
    // error number; then there is no new file.
    int keep();

  private:
    std::string path_, folder_, part_;
    BoundedFile file_;
};

} // namespace xfhost

#endif
