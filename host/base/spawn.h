// Starts other programs and waits for them.
#ifndef HOST_BASE_SPAWN_H
#define HOST_BASE_SPAWN_H

#include <string>
#include <vector>

#include <sys/types.h>

namespace xfhost {

struct SpawnRequest {
    std::string path; // /brim/... is looked for below the root prefix
    std::vector<std::string> arguments; // without the program's own name
    int in = -1, out = -1, err = -1;    // -1: the caller's
    bool own_session = false; // leads one, so that its group can be killed
};

// Starts a program: no descriptors above 2, all signals at their default and
// none blocked. One of /brim/ tells of a copy what this process tells of it;
// the environment of any other one does not name the report. From then on this
// process does not ignore SIGCHLD, which would lose how the program ends.
// Returns 0 and its process id, or an error number.
int spawn_program(const SpawnRequest &request, pid_t &pid);

// Waits for one child. Returns 0 and its wait status, or an error number.
int wait_for(pid_t pid, int &status);

// Waits at most `seconds`, then kills the child and returns ETIMEDOUT.
int wait_with_limit(pid_t pid, int seconds, int &status);

} // namespace xfhost

#endif
