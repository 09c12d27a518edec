// The local end of a copy.
#ifndef HOST_TRANSFER_LOCAL_FILE_H
#define HOST_TRANSFER_LOCAL_FILE_H

#include <string>

#include "host/base/files.h"

namespace xfhost {

// The file to send, open for reading. Throws Failed if it is no regular file or
// cannot be read.
Fd open_source(const std::string &path);

// A file to fetch into. It gets its name when it is whole, see part_file.h.
class Destination {
  public:
    // Throws Failed if a file of that path cannot be written.
    explicit Destination(const std::string &path);
    ~Destination();
    Destination(const Destination &) = delete;
    Destination &operator=(const Destination &) = delete;

    int fd() const {
        return file_.get();
    }
    // Gives it its name, in place of a file that had it. Throws Failed if that
    // cannot be done; then there is no new file.
    void keep();

  private:
    std::string path_, part_;
    Fd file_;
};

} // namespace xfhost

#endif
