// What the programs that move files have in common. They are judged by their
// exit code; the line that they print on standard error never has the password
// or a text of the server in it. A report may quote the server.
#ifndef HOST_TRANSFER_TRANSFER_H
#define HOST_TRANSFER_TRANSFER_H

#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/base/local_file.h"
#include "host/base/settings.h"
#include "host/base/vrf.h"
#include "host/history/report.h"

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

// What a program was doing when it failed.
enum class Step {
    request, // looking at its arguments
    vrf,
    source, // reading the local file
    connection,
    host_key,
    login,
    transfer,
    storing // of the local file
};

// How a transfer failed. `text` lives for ever and is what the program prints;
// everything else is for the report alone.
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

    // The same with where it failed, unless that is known already.
    Failed at(Step step) const {
        return with([step](Details &more) {
            if (!more.step)
                more.step = step;
        });
    }
    // With what exactly went wrong, instead of the text.
    Failed because(const std::string &words) const {
        return with([&](Details &more) { more.because = words; });
    }
    // With what the server said, or the client that spoke with it, as it came.
    Failed quote(std::string_view words) const {
        return with([words](Details &more) { more.quote = words; });
    }
    // With what to do about it, if that is something special.
    Failed advise(const std::string &words) const {
        return with([&](Details &more) { more.advice = words; });
    }
    // With how much had been moved by then.
    Failed after(uint64_t octets) const {
        return with([octets](Details &more) { more.octets = octets; });
    }

    // For the report. A quotation that holds the password is left out.
    Report report(const struct Attempt &attempt) const;

  private:
    struct Details {
        std::optional<Step> step;
        std::optional<uint64_t> octets;
        std::string because, quote, advice;
    };
    template <typename Add> Failed with(Add add) const {
        Failed failed = *this;
        auto more = std::make_shared<Details>(details_ ? *details_ : Details());
        add(*more);
        failed.details_ = std::move(more);
        return failed;
    }

    Outcome outcome_;
    const char *text_;
    std::shared_ptr<const Details> details_; // what is thrown is copied
};

// The failures that every protocol has, each with its text. Any other outcome
// is "the transfer failed".
Failed failure_of(Outcome outcome);

// What an error number of a local file means: no_space, or else `usual`.
Failed file_failure(int error, Outcome usual, const char *text);

// A VRF that cannot be entered for this error number.
Failed vrf_failure(const std::string &name, int error);

// A local file that is sent and cannot be read, for the reason in errno.
Failed source_failure(Outcome outcome);

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
    // Gives it its name and tells what has come. Throws Failed if that cannot
    // be done; then there is no new file.
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

// What a report says of a copy beside its failure; empty before it is known.
struct Attempt {
    const char *protocol = "";
    int port = 0;
    Copy copy;
};

// A program that moves a file.
struct Program {
    const char *protocol;
    int Settings::*port;
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
// line, and a report about the attempt. Returns the exit code.
int run_program(const char *self, const Attempt &attempt,
                const std::function<void()> &what);

} // namespace xfhost

#endif
