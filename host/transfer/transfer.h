// What the programs that move files have in common. They are judged by their
// exit code; the line that they print on standard error never has the password
// or a text of the server in it.
#ifndef HOST_TRANSFER_TRANSFER_H
#define HOST_TRANSFER_TRANSFER_H

#include <cstddef>
#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/local_file.h"
#include "host/base/settings.h"
#include "host/base/vrf.h"

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

// The failures that every protocol has, each with its text. Any other outcome
// is "the transfer failed".
Failed failure_of(Outcome outcome);

// What an error number of a local file means: no_space, or else `usual`.
Failed file_failure(int error, Outcome usual, const char *text);

// As open_source, but throws Failed.
Fd source_of(const std::string &path);

// A file to fetch into, see FetchedFile; at most download_octets large.
class Destination {
  public:
    // Throws Failed if a file of that path cannot be written.
    Destination(const Settings &settings, const std::string &path);
    BoundedFile &file() {
        return fetched_.file();
    }
    // The path that it may have before it is whole; good as long as this is.
    const char *part() const {
        return fetched_.part().c_str();
    }
    // Gives it its name. Throws Failed if that cannot be done; then there is no
    // new file.
    void keep();

  private:
    FetchedFile fetched_;
};

// Who logs in where. The password may be empty.
struct Login {
    std::string server, user, password;
    Vrf vrf;
};

// One file to move.
struct Copy {
    Login login;
    bool upload = false;
    std::string local, remote;
};

// A copy whose arguments tell the direction by a word, "put" or "get", and give
// the file that is read before the one that is written. Throws Failed if it is
// neither.
Copy copy_of(Login login, const std::string &direction, const std::string &from,
             const std::string &to);

// A program that moves a file.
struct Program {
    size_t arguments; // without its own name, and without the id of a VRF,
                      // which may stand behind them
    size_t password;  // which of them that is, from 0
    const char *usage;
    Copy (*parse)(const std::vector<std::string> &arguments);
    void (*move)(const Settings &settings, const Copy &copy);
};

// Overwrites the password among the arguments, checks them and moves the file.
// Prints at most one line. Returns the exit code.
int run_copy(int argc, char **argv, const Program &program);

// Runs `what` of a program whose argv[0] is `self`; a Failed becomes the one
// line. Returns the exit code.
int run_program(const char *self, const std::function<void()> &what);

} // namespace xfhost

#endif
