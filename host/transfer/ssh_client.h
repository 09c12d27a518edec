// OpenSSH's client, logged in with a password, with SFTP at its other end.
#ifndef HOST_TRANSFER_SSH_CLIENT_H
#define HOST_TRANSFER_SSH_CLIENT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "host/base/files.h"
#include "host/base/settings.h"
#include "host/transfer/sftp.h"
#include "host/transfer/transfer.h"

namespace xfhost {

// Moves a file. Throws Failed unless all of it has come or got there.
void copy_over_ssh(const Settings &settings, const Copy &copy);

// The host keys of our own network, or those of a VRF: the same address is
// another server there.
std::string known_hosts_file(const Settings &settings, int32_t vrf);

struct Pipe {
    Fd out, in; // what is written to `in` comes from `out`
};

// The client goes when this object does, with everything that it has started.
// It has `login_seconds` to be let in and `transfer_seconds` from then on,
// whatever the server does. SIGTERM, SIGINT and SIGHUP end a wait.
class SshClient : public Link {
  public:
    // Starts the client. Throws Failed if it cannot be started.
    SshClient(const Settings &settings, const Login &login);
    ~SshClient() override;

    void send(std::string_view octets) override;
    void receive(char *octets, size_t count) override;

  private:
    void start(const Vrf &vrf, std::vector<std::string> words);
    [[noreturn]] void become(const Vrf &vrf, std::vector<char *> &words);
    void set_environment() const;
    int time_left() const;
    void wait(int fd, short events);
    void read_ahead();
    void read_log();
    void was_let_in();
    [[noreturn]] void ended();

    const int login_seconds_, transfer_seconds_;
    int64_t deadline_; // of monotonic_ms
    // `let_in_` has an octet once the login is over; the client takes the
    // password from `password_`, where it is once.
    Pipe to_, from_, log_, let_in_, password_;
    // What the server sent last, as much as one read had, and the part of it
    // that nobody has received yet: it points into `ahead_`.
    std::vector<char> ahead_;
    std::string_view unread_;
    Fd signals_;
    pid_t pid_ = -1;
    bool is_let_in_ = false;
    std::string said_; // the end of the client's log
};

} // namespace xfhost

#endif
