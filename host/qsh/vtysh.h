// FRR's vtysh, run so that it cannot hang the caller, write a history or show
// its words on the wrong stream.
#ifndef HOST_QSH_VTYSH_H
#define HOST_QSH_VTYSH_H

#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "host/base/files.h"
#include "host/base/settings.h"

namespace xfhost {

struct VtyshEnd {
    int error = 0;   // it could not be run, or ETIMEDOUT
    int status = 0;  // exit status; 128 and a signal's number
    std::string out; // standard output
    std::string err; // standard error

    bool good() const {
        return error == 0 && status == 0;
    }
};

// One that runs. It has a fixed environment, and it dies, with its process
// group, at the latest when this object does.
class Vtysh {
  public:
    // `input` is its standard input. Whether it could be started is told by
    // finish().
    Vtysh(const Settings &settings, const std::vector<std::string> &arguments,
          std::string_view input);
    ~Vtysh();
    Vtysh(const Vtysh &) = delete;
    Vtysh &operator=(const Vtysh &) = delete;

    // Waits for its end, at most `seconds`; to be called once.
    VtyshEnd finish(int seconds);

  private:
    Fd in_, out_, err_;
    pid_t pid_ = -1;
    int error_ = 0;
};

// Runs it from beginning to end.
VtyshEnd run_vtysh(const Settings &settings,
                   const std::vector<std::string> &arguments,
                   std::string_view input, int seconds);

// What a person is told of a vtysh that failed.
std::string vtysh_failure(const Settings &settings, const VtyshEnd &end);

// Of `daemons`, those that do not answer within a few seconds each, with blanks
// between.
std::string silent_daemons(const Settings &settings,
                           const std::vector<std::string> &daemons);

} // namespace xfhost

#endif
