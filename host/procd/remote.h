// One switch of the fabric, told over OpenSSH to save its configuration.
#ifndef HOST_PROCD_REMOTE_H
#define HOST_PROCD_REMOTE_H

#include <stop_token>
#include <string>
#include <vector>

#include <sys/types.h>

#include "host/base/settings.h"
#include "host/base/spawn.h"
#include "host/fabric/fabric.h"

namespace xfhost {

// Runs a program until it ends, `seconds` have passed (ETIMEDOUT) or a stop is
// asked for (ECANCELED); it is killed in the latter cases. `output` receives
// what it wrote to the descriptor `from` (1 or 2), at most `limit` octets, with
// the rest of it EFBIG. The other one leads nowhere, unless the request has a
// standard error of its own. Returns 0 and its wait status, or an error number.
int run_and_read(SpawnRequest request, int from, size_t limit, int seconds,
                 const std::stop_token &stop, std::string &output, int &status);

// The arguments of ssh: strict host keys, one key, no question ever asked.
std::vector<std::string> ssh_arguments(const Settings &settings,
                                       const FabricSwitch &to);

// What a person is told of an ssh that ended with this wait status and left
// these words on standard error; empty if all is well.
std::string explain_ssh(int status, const std::string &words);

// Has one switch save its configuration. Blocks for at most the time limit of a
// switch. Returns what went wrong, for a person; empty if all is well.
std::string save_on_switch(const Settings &settings, const FabricSwitch &to,
                           const std::stop_token &stop);

} // namespace xfhost

#endif
