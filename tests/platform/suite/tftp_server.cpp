#include "tftp_server.h"

#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr size_t block_size = 512;

std::string word(unsigned value) {
    return {static_cast<char>(value >> 8 & 0xff),
            static_cast<char>(value & 0xff)};
}

uint16_t word_at(const std::string &packet, size_t offset) {
    if (packet.size() < offset + 2)
        return 0;
    return static_cast<uint16_t>(
        static_cast<unsigned char>(packet[offset]) << 8 |
        static_cast<unsigned char>(packet[offset + 1]));
}

std::string text_at(const std::string &packet, size_t offset) {
    return offset < packet.size() ? std::string(packet.c_str() + offset) : "";
}

bool readable(int socket, int milliseconds) {
    struct pollfd watched = {socket, POLLIN, 0};
    return poll(&watched, 1, milliseconds) == 1;
}

int bound_socket(const char *address, int &family) {
    struct sockaddr_in v4 = {};
    struct sockaddr_in6 v6 = {};
    v4.sin_family = AF_INET;
    v6.sin6_family = AF_INET6;
    bool is_v4 = inet_pton(AF_INET, address, &v4.sin_addr) == 1;
    inet_pton(AF_INET6, address, &v6.sin6_addr);
    family = is_v4 ? AF_INET : AF_INET6;
    int fd = socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    auto name = is_v4 ? reinterpret_cast<struct sockaddr *>(&v4)
                      : reinterpret_cast<struct sockaddr *>(&v6);
    if (bind(fd, name, is_v4 ? sizeof v4 : sizeof v6) == 0)
        return fd;
    close(fd);
    return -1;
}

} // namespace

TftpServer::TftpServer(Manner manner, const char *address) : manner_(manner) {
    socket_ = bound_socket(address, family_);
    struct sockaddr_in6 own = {};
    socklen_t length = sizeof own;
    getsockname(socket_, reinterpret_cast<struct sockaddr *>(&own), &length);
    port_ = ntohs(own.sin6_port); // at the same place in both families
    thread_ = std::thread([this] { run(); });
}

TftpServer::~TftpServer() {
    stop_ = true;
    thread_.join();
    close(socket_);
}

void TftpServer::run() {
    while (!stop_) {
        if (!readable(socket_, 50))
            continue;
        std::string packet(2048, 0);
        struct sockaddr_storage peer = {};
        socklen_t length = sizeof peer;
        ssize_t size =
            recvfrom(socket_, packet.data(), packet.size(), 0,
                     reinterpret_cast<struct sockaddr *>(&peer), &length);
        if (size < 4)
            continue;
        packet.resize(static_cast<size_t>(size));
        name = text_at(packet, 2);
        mode = text_at(packet, 3 + name.size());
        if (manner_ == Manner::silent)
            continue;
        // Answers come from a port of their own, on the same address.
        struct sockaddr_storage own = {};
        socklen_t own_length = sizeof own;
        getsockname(socket_, reinterpret_cast<struct sockaddr *>(&own),
                    &own_length);
        reinterpret_cast<struct sockaddr_in *>(&own)->sin_port = 0;
        int answer = socket(family_, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (bind(answer, reinterpret_cast<struct sockaddr *>(&own),
                 own_length) != 0 ||
            connect(answer, reinterpret_cast<struct sockaddr *>(&peer),
                    length) != 0) {
            close(answer);
            continue;
        }
        if (manner_ == Manner::error) {
            std::string error = word(5) + word(code) + "refused" + '\0';
            send(answer, error.data(), error.size(), 0);
        } else if (word_at(packet, 0) == 1) {
            give(answer);
        } else {
            take(answer);
        }
        close(answer);
    }
}

// The packet with this opcode and block number; false if it does not come.
bool TftpServer::answered(int socket, uint16_t opcode, uint16_t block,
                          std::string &packet) {
    while (!stop_ && readable(socket, 1500)) {
        packet.resize(2048);
        ssize_t size = recv(socket, packet.data(), packet.size(), 0);
        if (size < 4)
            return false;
        packet.resize(static_cast<size_t>(size));
        if (word_at(packet, 0) == opcode && word_at(packet, 2) == block)
            return true;
    }
    return false;
}

void TftpServer::give(int socket) {
    std::string packet;
    for (unsigned block = 1; !stop_; block++) {
        if (manner_ == Manner::stops && block > blocks)
            return;
        size_t offset = (block - 1) * block_size;
        std::string data = content.substr(offset, block_size);
        std::string sent = word(3) + word(block) + data;
        send(socket, sent.data(), sent.size(), 0);
        if (!answered(socket, 4, static_cast<uint16_t>(block), packet) ||
            data.size() < block_size)
            return;
    }
}

void TftpServer::take(int socket) {
    std::string packet, received;
    for (unsigned block = 0; !stop_; block++) {
        std::string ack = word(4) + word(block);
        send(socket, ack.data(), ack.size(), 0);
        if (manner_ == Manner::stops && block >= blocks)
            return;
        if (!answered(socket, 3, static_cast<uint16_t>(block + 1), packet))
            return;
        received.append(packet, 4);
        if (packet.size() - 4 == block_size)
            continue;
        content = received;
        ack = word(4) + word(block + 1);
        send(socket, ack.data(), ack.size(), 0);
        return;
    }
}
