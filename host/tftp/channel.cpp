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

} // namespace

bool Channel::open(const std::string &address, uint16_t port) {
    bool is_v4 =
        inet_pton(AF_INET, address.c_str(), &v4(server_).sin_addr) == 1;
    if (!is_v4 &&
        inet_pton(AF_INET6, address.c_str(), &v6(server_).sin6_addr) != 1) {
        errno = EINVAL;
        return false;
    }
    server_.ss_family = is_v4 ? AF_INET : AF_INET6;
    length_ = is_v4 ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    put_port(server_, port);
    socket_ = Fd(socket(server_.ss_family,
                        SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return static_cast<bool>(socket_);
}

bool Channel::send(std::string_view packet) {
    for (int tries = 0; tries < 2; tries++)
        if (sendto(socket_.get(), packet.data(), packet.size(), 0,
                   reinterpret_cast<const sockaddr *>(&server_), length_) >= 0)
            return true;
    return port_set_;
}

void Channel::set_port(uint16_t port) {
    put_port(server_, port);
    port_set_ = true;
    // The kernel drops everybody else's from here on, so that they do not fill
    // the socket's queue. What is queued already is looked at all the same.
    (void)connect(socket_.get(), reinterpret_cast<const sockaddr *>(&server_),
                  length_);
}

bool Channel::from_server(const sockaddr_storage &sender) const {
    if (sender.ss_family != server_.ss_family ||
        (port_set_ && port_of(sender) != port_of(server_)))
        return false;
    if (sender.ss_family == AF_INET)
        return v4(sender).sin_addr.s_addr == v4(server_).sin_addr.s_addr;
    return IN6_ARE_ADDR_EQUAL(&v6(sender).sin6_addr, &v6(server_).sin6_addr);
}

bool Channel::receive(int64_t deadline, uint16_t &port, std::string &datagram) {
    for (int left = 0; (left = ms_until(deadline)) > 0;) {
        struct pollfd watched = {socket_.get(), POLLIN, 0};
        poll(&watched, 1, left);
        datagram.resize(buffer_size);
        sockaddr_storage sender = {};
        socklen_t length = sizeof sender;
        ssize_t size =
            recvfrom(socket_.get(), datagram.data(), datagram.size(), 0,
                     reinterpret_cast<sockaddr *>(&sender), &length);
        if (size < 0 || !from_server(sender))
            continue;
        datagram.resize(static_cast<size_t>(size));
        port = port_of(sender);
        return true;
    }
    return false;
}

} // namespace xfhost::tftp
