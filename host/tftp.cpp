// TFTP: the calls of the platform, their files and their time.
#include "platform/tftp.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "host/base/files.h"
#include "host/base/part_file.h"
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

// Of a local file.
int file_error(int number) {
    bool full = number == ENOSPC || number == EDQUOT || number == EFBIG;
    return full ? no_room : system_error(number);
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

// Takes no more than the settings allow, the process may write and, as far as
// the server tells the size, the disk has room for.
class FetchedFile : public LocalFile {
  public:
    explicit FetchedFile(const Fd &file)
        : file_(file),
          most_(static_cast<uint64_t>(settings()->download_octets)) {
        struct rlimit limit;
        if (getrlimit(RLIMIT_FSIZE, &limit) == 0)
            most_ = std::min<uint64_t>(most_, limit.rlim_cur);
    }
    int expect(uint64_t octets) override {
        return octets > std::min(most_, free_octets()) ? no_room : 0;
    }
    int append(std::string_view octets) override {
        if (octets.size() > most_ - size_)
            return no_room;
        size_ += octets.size();
        return write_whole(file_.get(), octets) ? 0 : file_error(errno);
    }
    int next(size_t, std::string &) override {
        return system_error(EPROTO);
    }

  private:
    uint64_t free_octets() const {
        struct statvfs room;
        if (fstatvfs(file_.get(), &room) != 0 || room.f_blocks == 0)
            return std::numeric_limits<uint64_t>::max(); // it does not say
        return uint64_t{room.f_bavail} * room.f_frsize;
    }

    const Fd &file_;
    uint64_t most_;
    uint64_t size_ = 0;
};

// Whether something came until `deadline` that brings the transfer on.
bool listen_once(Channel &channel, Conversation &talk, double deadline) {
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
int converse(Conversation &talk, double end) {
    Channel channel;
    if (!channel.open(server.address, static_cast<uint16_t>(server.port)) ||
        !channel.send(talk.packet()))
        return system_error(errno);
    const double patience = server.packet_seconds;
    const double pause = std::clamp(patience / 4, 1.0, 5.0);
    double now = now_seconds();
    double give_up = std::min(end, now + patience), again = now + pause;
    while (!talk.ended() && now < give_up) {
        bool news = listen_once(channel, talk, std::min(again, give_up));
        now = now_seconds();
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
    double end = now_seconds() + settings()->tftp_total_seconds;
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
    Fd file(open(local, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat st;
    if (!file || fstat(file.get(), &st) != 0)
        return system_error(errno);
    if (!S_ISREG(st.st_mode))
        return system_error(EINVAL);
    SentFile sent(file);
    return transfer({true, remote, static_cast<uint64_t>(st.st_size)}, sent);
}

// The file appears under its name when it is whole.
int get(const char *remote, const std::string &local) {
    size_t slash = local.rfind('/');
    std::string folder =
        slash == std::string::npos ? "" : local.substr(0, slash + 1);
    std::string part = folder + ".tftp-" + std::to_string(getpid()) + ".part";
    Fd file = open_part(folder.empty() ? "." : folder, part);
    if (!file)
        return file_error(errno);
    FetchedFile fetched(file);
    int result = transfer({false, remote}, fetched);
    if (result == 0) {
        int error = keep_part(file, part, local);
        result = error == 0 ? 0 : file_error(error);
    }
    if (result != 0)
        unlink(part.c_str());
    return result;
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
    unsigned char octets[16];
    const Settings *s = settings();
    if (s == nullptr || port < -1 || port == 0 || port > 65535)
        return system_error(EINVAL);
    if (inet_pton(AF_INET, address, octets) != 1 &&
        inet_pton(AF_INET6, address, octets) != 1)
        return system_error(EINVAL);
    try {
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
