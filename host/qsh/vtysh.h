// FRR's vtysh, run so that it cannot hang the caller, write a history or show
// its words on the wrong stream.
#ifndef HOST_QSH_VTYSH_H
#define HOST_QSH_VTYSH_H

#include <string>
#include <string_view>
#include <vector>

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

// Runs it with `input` as its standard input, for at most `seconds`: then its
// process group is killed. It has a fixed environment, and dies with this
// process.
VtyshEnd run_vtysh(const Settings &settings,
                   const std::vector<std::string> &arguments,
                   std::string_view input, int seconds);

// What a person is told of a vtysh that failed.
std::string vtysh_failure(const Settings &settings, const VtyshEnd &end);

// The words of "show daemons".
std::vector<std::string> answering_daemons(const Settings &settings,
                                           std::string &why);

// Of `daemons`, those that do not answer within a few seconds each, with blanks
// between.
std::string silent_daemons(const Settings &settings,
                           const std::vector<std::string> &daemons);

} // namespace xfhost

#endif
