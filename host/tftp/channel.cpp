#include "host/tftp/channel.h"

#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include "host/base/clock.h"
#include "host/tftp/conversation.h"

namespace xfhost::tftp {
namespace {

// One octet more than any packet may have shows that one has too many.
constexpr size_t buffer_size = largest_block + 4 + 1;
constexpr uint16_t discard_port = 9;

sockaddr_in &v4(sockaddr_storage &address) {
    return reinterpret_cast<sockaddr_in &>(address);
}

sockaddr_in6 &v6(sockaddr_storage &address) {
    return reinterpret_cast<sockaddr_in6 &>(address);
}

const sockaddr_in &v4(const sockaddr_storage &address) {
    return reinterpret_cast<const sockaddr_in &>(address);
}

const sockaddr_in6 &v6(const sockaddr_storage &address) {
    return reinterpret_cast<const sockaddr_in6 &>(address);
}

uint16_t port_of(const sockaddr_storage &address) {
    return ntohs(address.ss_family == AF_INET ? v4(address).sin_port
                                              : v6(address).sin6_port);
}

void put_port(sockaddr_storage &address, uint16_t port) {
    if (address.ss_family == AF_INET)
        v4(address).sin_port = htons(port);
    else
        v6(address).sin6_port = htons(port);
}

// The length of the address, 0 for a text that is none.
socklen_t parse(const std::string &text, uint16_t port,
                sockaddr_storage &address) {
    if (inet_pton(AF_INET, text.c_str(), &v4(address).sin_addr) == 1)
        address.ss_family = AF_INET;
    else if (inet_pton(AF_INET6, text.c_str(), &v6(address).sin6_addr) == 1)
        address.ss_family = AF_INET6;
    else
        return 0;
    put_port(address, port);
    return address.ss_family == AF_INET ? sizeof(sockaddr_in)
                                        : sizeof(sockaddr_in6);
}

} // namespace

size_t path_mtu(const std::string &address) {
    sockaddr_storage server = {};
    const socklen_t length = parse(address, discard_port, server);
    const Fd probe(socket(server.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    int mtu = 0;
    socklen_t size = sizeof mtu;
    // Nothing is sent by it.
    if (length == 0 || !probe ||
        connect(probe.get(), reinterpret_cast<const sockaddr *>(&server),
                length) != 0)
        return 0;
    const int asked =
        server.ss_family == AF_INET
            ? getsockopt(probe.get(), IPPROTO_IP, IP_MTU, &mtu, &size)
            : getsockopt(probe.get(), IPPROTO_IPV6, IPV6_MTU, &mtu, &size);
    return asked == 0 && mtu > 0 ? static_cast<size_t>(mtu) : 0;
}

bool Channel::open(const std::string &address, uint16_t port) {
    length_ = parse(address, port, server_);
    if (length_ == 0) {
        errno = EINVAL;
        return false;
    }
    buffer_.resize(buffer_size);
    socket_ = Fd(socket(server_.ss_family,
                        SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return static_cast<bool>(socket_);
}

bool Channel::send(std::string_view packet) {
    // A socket that is connected knows where to.
    const auto *to =
        connected_ ? nullptr : reinterpret_cast<const sockaddr *>(&server_);
    for (int tries = 0; tries < 2; tries++)
        if (sendto(socket_.get(), packet.data(), packet.size(), 0, to,
                   connected_ ? 0 : length_) >= 0)
            return true;
    return port_set_;
}

void Channel::set_port(uint16_t port) {
    put_port(server_, port);
    port_set_ = true;
    // The kernel drops everybody else's from here on, so that they do not fill
    // the socket's queue. What is queued already is looked at all the same.
    connected_ =
        connect(socket_.get(), reinterpret_cast<const sockaddr *>(&server_),
                length_) == 0;
}

bool Channel::from_server(const sockaddr_storage &sender) const {
    if (sender.ss_family != server_.ss_family ||
        (port_set_ && port_of(sender) != port_of(server_)))
        return false;
    if (sender.ss_family == AF_INET)
        return v4(sender).sin_addr.s_addr == v4(server_).sin_addr.s_addr;
    return IN6_ARE_ADDR_EQUAL(&v6(sender).sin6_addr, &v6(server_).sin6_addr);
}

Heard Channel::receive(int64_t deadline, uint16_t &port,
                       std::string_view &datagram) {
    for (int left = 0; (left = ms_until(deadline)) > 0;) {
        struct pollfd watched = {socket_.get(), POLLIN, 0};
        poll(&watched, 1, left);
        sockaddr_storage sender = {};
        socklen_t length = sizeof sender;
        ssize_t size =
            recvfrom(socket_.get(), buffer_.data(), buffer_.size(), 0,
                     reinterpret_cast<sockaddr *>(&sender), &length);
        if (size < 0 && errno == EMSGSIZE)
            return Heard::lost;
        if (size < 0 || !from_server(sender))
            continue;
        datagram = {buffer_.data(), static_cast<size_t>(size)};
        port = port_of(sender);
        return Heard::datagram;
    }
    return Heard::nothing;
}

} // namespace xfhost::tftp
