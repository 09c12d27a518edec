// The client's half of SFTP, version 3, for one file. OpenSSH's own client
// takes a file that ends early, and one with a hole in it, for whole; here
// every octet that was announced has to come, and what a server says is a
// number or a length, never a text that is looked at.
#ifndef HOST_TRANSFER_SFTP_H
#define HOST_TRANSFER_SFTP_H

#include <string>
#include <string_view>

#include "host/base/local_file.h"

namespace xfhost {

// Carries octets to a server and back.
class Link {
  public:
    Link() = default;
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;
    virtual ~Link() = default;
    // Sends all of them, or throws Failed.
    virtual void send(std::string_view octets) = 0;
    // Receives exactly `count` octets, or throws Failed.
    virtual void receive(char *octets, size_t count) = 0;
};

// Fetches the file `name` of the server into an empty one. Throws Failed unless
// every octet of it has come: as many as the server has announced, if it does
// announce a size.
void sftp_get(Link &link, const std::string &name, BoundedFile &file);

// Makes the open file `file` the server's file `name`. Throws Failed unless the
// server has taken every octet, has closed the file, and has a file of that
// size then, if it tells a size. `moved` counts what was sent.
void sftp_put(Link &link, const std::string &name, int file, Moved &moved);

} // namespace xfhost

#endif
