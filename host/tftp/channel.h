// A UDP socket that hears one TFTP server and nobody else.
#ifndef HOST_TFTP_CHANNEL_H
#define HOST_TFTP_CHANNEL_H

#include <cstdint>
#include <string>
#include <string_view>

#include <netinet/in.h>

#include "host/base/files.h"

namespace xfhost::tftp {

// Of the way to an IPv4 or IPv6 address, in octets, as far as this machine
// knows; 0 if it does not.
size_t path_mtu(const std::string &address);

// What a wait has brought. `lost`: the path cannot carry what was sent, which
// is to be sent again; from then on it goes in fragments.
enum class Heard { nothing, datagram, lost };

class Channel {
  public:
    // `address` is an IPv4 or IPv6 address as text, `port` that of requests.
    // False with errno set.
    bool open(const std::string &address, uint16_t port);

    // Sends to the port that is set. False with errno set. Once the server has
    // answered, a failure counts as a packet that was lost: it may be what ICMP
    // told about the one before, and that may be forged.
    bool send(std::string_view packet);

    // Hears and talks to this port of the server alone from now on.
    void set_port(uint16_t port);

    // Waits until `deadline` (of monotonic_ms) for a datagram from the server's
    // address, and from its port if one is set; whatever else comes is dropped.
    // One that is too long for a packet is cut off, but stays too long. It is
    // good until the next call.
    Heard receive(int64_t deadline, uint16_t &port, std::string_view &datagram);

  private:
    bool from_server(const sockaddr_storage &sender) const;

    Fd socket_;
    std::string buffer_;
    sockaddr_storage server_ = {};
    socklen_t length_ = 0;
    bool port_set_ = false;
    bool connected_ = false;
};

} // namespace xfhost::tftp

#endif
