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
#include "host/tftp/explain.h"

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
    int next(size_t length, std::string &packet) override {
        const size_t before = packet.size();
        const size_t full = before + length;
        size_t filled = before;
        packet.resize(full);
        ssize_t got = 1;
        while (filled < full && got > 0) {
            got = read(file_.get(), packet.data() + filled, full - filled);
            if (got > 0)
                filled += static_cast<size_t>(got);
        }
        int error = got < 0 ? system_error(errno) : 0;
        moved_.take(std::string_view(packet).substr(before, filled - before));
        packet.resize(filled);
        return error;
    }
    int restart() override {
        moved_ = {};
        return lseek(file_.get(), 0, SEEK_SET) == 0 ? 0 : system_error(errno);
    }
    Report moved() const {
        return moved_.report();
    }

  private:
    const Fd &file_;
    Moved moved_;
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
    int restart() override {
        size_ = 0;
        return file_result(file_.restart());
    }
    int next(size_t, std::string &) override {
        return system_error(EPROTO);
    }

  private:
    BoundedFile &file_;
    uint64_t size_ = 0;
};

// The limits of a transfer, in the time of monotonic_ms.
struct Limits {
    int64_t now = monotonic_ms();
    int64_t end = now + settings()->tftp_total_seconds * int64_t{1000};
    int64_t patience = server.packet_seconds * int64_t{1000};
    int64_t give_up = std::min(end, now + patience);
    int64_t pause = std::clamp<int64_t>(patience / 4, 1000, 5000);
    int64_t again = 0; // what was said last is said once more
    int unanswered = 0;

    void said() {
        again = now + pause;
    }
    void heard() {
        give_up = std::min(end, now + patience);
        unanswered = 0;
    }
};

// Whether something came that brings the transfer on.
bool listen_once(Channel &channel, Conversation &talk, Limits &limits) {
    uint16_t port = 0;
    std::string_view datagram;
    const Heard heard =
        channel.receive(std::min(limits.again, limits.give_up), port, datagram);
    limits.now = monotonic_ms();
    if (heard == Heard::lost)
        limits.again = limits.now;
    if (heard != Heard::datagram)
        return false;
    const bool first = talk.port() == 0;
    const bool news = talk.take(port, datagram);
    if (first && talk.port() != 0)
        channel.set_port(talk.port());
    if (news || talk.ended())
        limits.heard();
    return news;
}

End in_time(const Conversation &talk, const Limits &limits) {
    const int seconds = limits.now < limits.end
                            ? server.packet_seconds
                            : settings()->tftp_total_seconds;
    return {system_error(ETIMEDOUT), talk.awaited() + " did not come within " +
                                         std::to_string(seconds) + " seconds"};
}

// Nothing has come for a pause.
void ask_again(Conversation &talk, Limits &limits) {
    limits.unanswered++;
    talk.ask_for_less();
    if (limits.unanswered == 2 && talk.block_size() > safe_block)
        talk.stop_for_less();
}

// Holds the conversation until it has ended.
End converse(Conversation &talk, Limits &limits) {
    Channel channel;
    if (!channel.open(server.address, static_cast<uint16_t>(server.port)) ||
        !channel.send(talk.packet()))
        return local_end(system_error(errno), "the request cannot be sent",
                         errno);
    limits.said();
    while (!talk.ended() && limits.now < limits.give_up) {
        const bool news = listen_once(channel, talk, limits);
        if (!news && (talk.ended() || limits.now < limits.again))
            continue;
        if (!news)
            ask_again(talk, limits);
        if (!channel.send(talk.packet()) && !talk.ended())
            return local_end(system_error(errno), "the request cannot be sent",
                             errno);
        limits.said();
    }
    return talk.ended() ? End{talk.result(), talk.why()}
                        : in_time(talk, limits);
}

size_t first_block() {
    return std::min(block_for(path_mtu(server.address)),
                    static_cast<size_t>(settings()->tftp_block_octets));
}

End transfer(Request request, LocalFile &file) {
    Limits limits;
    for (request.block = first_block();;
         request.block = less_than(request.block)) {
        Conversation talk(request, file);
        End ended = converse(talk, limits);
        if (!talk.less_may_do())
            return ended;
        const int error = file.restart();
        if (error != 0)
            return {error, "the local file cannot be begun again"};
    }
}

// Tells how it ended, and what was moved; gives the result.
int told(const Attempt &attempt, const End &end, const Report &moved) {
    Report report;
    if (end.result != 0)
        report = explain(attempt, end);
    report.octets = moved.octets;
    if (end.result == 0)
        report.sha256 = moved.sha256;
    tell(report);
    return end.result;
}

int refused(const Attempt &attempt, const End &end) {
    return told(attempt, end, {});
}

int put(const Attempt &attempt, const char *local) {
    const Fd file = open_source(local);
    struct stat st;
    if (!file || fstat(file.get(), &st) != 0)
        return refused(attempt,
                       local_end(system_error(errno),
                                 "the local file cannot be read", errno));
    SentFile sent(file);
    const End end = transfer(
        {true, attempt.remote, static_cast<uint64_t>(st.st_size)}, sent);
    return told(attempt, end, sent.moved());
}

int get(const Attempt &attempt, const char *local) {
    FetchedFile fetched(local);
    int error =
        fetched.open(static_cast<uint64_t>(settings()->download_octets));
    if (error != 0)
        return refused(attempt,
                       local_end(file_result(error),
                                 "the local file cannot be written", error));
    ReceivedFile received(fetched.file());
    End end = transfer({false, attempt.remote}, received);
    if (end.result == 0 && (error = fetched.keep()) != 0)
        end =
            local_end(file_result(error), "the file could not be kept", error);
    return told(attempt, end, fetched.file().moved());
}

int invalid(const Attempt &attempt, const char *why) {
    return refused(attempt, {system_error(EINVAL), why});
}

// A call of the platform for one file.
int move(bool send, const char *local, const char *remote) {
    try {
        const Attempt attempt = {send, remote == nullptr ? "" : remote,
                                 server.address, server.port};
        if (settings() == nullptr)
            return invalid(attempt, "the settings cannot be read");
        if (attempt.remote.empty())
            return invalid(attempt, "the file has no name");
        if (server.address.empty())
            return refused(attempt,
                           {system_error(ENOTCONN), "there is no server"});
        return send ? put(attempt, local) : get(attempt, local);
    } catch (const std::bad_alloc &) {
        return system_error(ENOMEM);
    }
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
        if (!is_address(address)) {
            Report report;
            report.reason = "Checking the request: the server is no IPv4 or "
                            "IPv6 address";
            report.advice = "Look at the address of the server and its type.";
            tell(report);
            return system_error(EINVAL);
        }
        server.address = address;
    } catch (const std::bad_alloc &) {
        return system_error(ENOMEM);
    }
    server.port = port == -1 ? s->tftp_port : port;
    return 0;
}

int tftp_put2(const char *local, const char *remote, int) {
    return move(true, local, remote);
}

int tftp_get2(const char *remote, const char *local, int) {
    return move(false, local, remote);
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
