// What the programs that move files over SSH have in common. They are judged by
// their exit code; the line that they print on standard error never has the
// password or a text of the server in it.
#ifndef HOST_TRANSFER_TRANSFER_H
#define HOST_TRANSFER_TRANSFER_H

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/settings.h"

namespace xfhost {

// The exit codes.
enum class Outcome {
    done = 0,
    timeout = 1,
    bad_name = 2,
    no_space = 3,
    login = 4,
    host_key = 5,
    connection = 6,
    usage = 7,
    other = 8
};

// How a transfer failed. `text` lives for ever.
class Failed : public std::exception {
  public:
    Failed(Outcome outcome, const char *text)
        : outcome_(outcome), text_(text) {}
    Outcome outcome() const {
        return outcome_;
    }
    const char *what() const noexcept override {
        return text_;
    }

  private:
    Outcome outcome_;
    const char *text_;
};

// Who logs in where. The VRF is an id; the password may be empty.
struct Login {
    std::string server, user, password;
    int32_t vrf = 1;
};

// One file to move.
struct Copy {
    Login login;
    bool upload = false;
    std::string local, remote;
};

// user@address:name in its three parts, the address without brackets. The
// address begins behind the first @ that one follows. An IPv6 address is as
// long as it can be: of fe80::1:2:name, fe80::1:2.
struct Target {
    std::string user, server, name;
};

// Throws Failed if the text is no target.
Target split_target(std::string_view text);

// The host keys of our own network, or those of a VRF: the same address is
// another server there.
std::string known_hosts_file(const Settings &settings, int32_t vrf);

// What a program does: `parse` makes a copy of its `count` arguments, without
// its own name and without the id of a VRF that may stand behind them. Prints
// at most one line. Returns the exit code.
using ParseCopy = Copy (*)(const std::vector<std::string> &arguments);
int run_copy(int argc, char **argv, size_t count, const char *usage,
             ParseCopy parse);

} // namespace xfhost

#endif
