// TFTP: the calls of the platform, their files and their time.
#include "platform/tftp.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "host/base/address.h"
#include "host/base/clock.h"
#include "host/base/local_file.h"
#include "host/base/settings.h"
#include "host/tftp/channel.h"
#include "host/tftp/conversation.h"

using namespace xfhost;
using namespace xfhost::tftp;

namespace {

struct Server {
    std::string address;
    int port = 0;
    int packet_seconds = 20;
} server;

int file_result(int error) {
    if (error == 0)
        return 0;
    return is_no_room(error) ? no_room : system_error(error);
}

class SentFile : public LocalFile {
  public:
    explicit SentFile(const Fd &file) : file_(file) {}

    int expect(uint64_t) override {
        return system_error(EPROTO);
    }
    int append(std::string_view) override {
        return system_error(EPROTO);
    }
    int next(size_t length, std::string &octets) override {
        octets.resize(length);
        size_t filled = 0;
        ssize_t got = 1;
        while (filled < length && got > 0) {
            got = read(file_.get(), octets.data() + filled, length - filled);
            if (got > 0)
                filled += static_cast<size_t>(got);
        }
        int error = got < 0 ? system_error(errno) : 0;
        octets.resize(filled);
        return error;
    }

  private:
    const Fd &file_;
};

class ReceivedFile : public LocalFile {
  public:
    explicit ReceivedFile(BoundedFile &file) : file_(file) {}

    int expect(uint64_t octets) override {
        return file_result(file_.expect(octets));
    }
    int append(std::string_view octets) override {
        const int result = file_result(file_.write_at(size_, octets));
        size_ += octets.size();
        return result;
    }
    int next(size_t, std::string &) override {
        return system_error(EPROTO);
    }

  private:
    BoundedFile &file_;
    uint64_t size_ = 0;
};

// Whether something came until `deadline` that brings the transfer on.
bool listen_once(Channel &channel, Conversation &talk, int64_t deadline) {
    uint16_t port = 0;
    std::string datagram;
    if (!channel.receive(deadline, port, datagram))
        return false;
    bool first = talk.port() == 0;
    bool news = talk.take(port, datagram);
    if (first && talk.port() != 0)
        channel.set_port(talk.port());
    return news;
}

// Holds the conversation until it has ended. `end` bounds all of it, the wait
// for each answer that brings it on is packet_seconds.
int converse(Conversation &talk, int64_t end) {
    Channel channel;
    if (!channel.open(server.address, static_cast<uint16_t>(server.port)) ||
        !channel.send(talk.packet()))
        return system_error(errno);
    const int64_t patience = server.packet_seconds * int64_t{1000};
    const int64_t pause = std::clamp<int64_t>(patience / 4, 1000, 5000);
    int64_t now = monotonic_ms();
    int64_t give_up = std::min(end, now + patience), again = now + pause;
    while (!talk.ended() && now < give_up) {
        bool news = listen_once(channel, talk, std::min(again, give_up));
        now = monotonic_ms();
        if (news)
            give_up = std::min(end, now + patience);
        if (!news && (talk.ended() || now < again))
            continue;
        if (!channel.send(talk.packet()) && !talk.ended())
            return system_error(errno);
        again = now + pause;
    }
    return talk.ended() ? talk.result() : system_error(ETIMEDOUT);
}

int transfer(Request request, LocalFile &file) {
    const int64_t end =
        monotonic_ms() + settings()->tftp_total_seconds * int64_t{1000};
    request.options = true;
    Conversation talk(request, file);
    int result = converse(talk, end);
    if (!talk.options_refused())
        return result;
    request.options = false; // nothing has moved so far
    Conversation plain(request, file);
    return converse(plain, end);
}

int check_call(const char *remote) {
    if (settings() == nullptr || remote == nullptr || *remote == 0)
        return system_error(EINVAL);
    return server.address.empty() ? system_error(ENOTCONN) : 0;
}

int put(const char *local, const char *remote) {
    const Fd file = open_source(local);
    struct stat st;
    if (!file || fstat(file.get(), &st) != 0)
        return system_error(errno);
    SentFile sent(file);
    return transfer({true, remote, static_cast<uint64_t>(st.st_size)}, sent);
}

int get(const char *remote, const char *local) {
    FetchedFile fetched(local);
    const int error =
        fetched.open(static_cast<uint64_t>(settings()->download_octets));
    if (error != 0)
        return file_result(error);
    ReceivedFile received(fetched.file());
    const int result = transfer({false, remote}, received);
    return result == 0 ? file_result(fetched.keep()) : result;
}

} // namespace

int tftp_timeout_set(int seconds) {
    const Settings *s = settings();
    if (s == nullptr || seconds <= 0)
        return system_error(EINVAL);
    server.packet_seconds = seconds;
    if (s->tftp_packet_seconds > 0)
        server.packet_seconds = std::min(seconds, s->tftp_packet_seconds);
    return 0;
}

int tftp_connect(const char *address, int port) {
    const Settings *s = settings();
    if (s == nullptr || port < -1 || port == 0 || port > 65535)
        return system_error(EINVAL);
    try {
        if (!is_address(address))
            return system_error(EINVAL);
        server.address = address;
    } catch (const std::bad_alloc &) {
        return system_error(ENOMEM);
    }
    server.port = port == -1 ? s->tftp_port : port;
    return 0;
}

int tftp_put2(const char *local, const char *remote, int) {
    int error = check_call(remote);
    if (error != 0)
        return error;
    try {
        return put(local, remote);
    } catch (const std::bad_alloc &) {
        return system_error(ENOMEM);
    }
}

int tftp_get2(const char *remote, const char *local, int) {
    int error = check_call(remote);
    if (error != 0)
        return error;
    try {
        return get(remote, local);
    } catch (const std::bad_alloc &) {
        return system_error(ENOMEM);
    }
}

const char *tftp_strerror(int code) {
    static char text[64];
    constexpr const char *protocol[] = {
        "success",         "file not found",     "access violation",
        "disk full",       "illegal operation",  "unknown transfer id",
        "the file exists", "no such user there",
    };
    if (code >= 0)
        return protocol[0];
    if (code > -8)
        return protocol[-code];
    if (code < -100)
        return strerror(-code - 100);
    snprintf(text, sizeof text, "TFTP error %d", -code);
    return text;
}
