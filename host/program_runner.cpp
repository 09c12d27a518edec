#include "platform/program_runner.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <new>
#include <string>

#include <sys/wait.h>

#include "host/base/spawn.h"
#include "host/history/report.h"

using namespace xfhost;

namespace {

// For a program that had nothing to say itself.
void tell_failure(const char *path, const std::string &what) {
    Report report;
    report.reason = std::string("Running ") + path + ": " + what;
    report.advice =
        "Look whether the programs of the switch are all installed, "
        "and into its log.";
    tell(report);
}

void tell_end(const char *path, int error, int status) {
    if (error != 0)
        tell_failure(path, std::string("it cannot be run: ") + strerror(error));
    else if (WIFSIGNALED(status))
        tell_failure(path, std::string("it was ended by a signal: ") +
                               strsignal(WTERMSIG(status)));
    else if (WEXITSTATUS(status) != 0)
        tell_failure(path, "it ended with status " +
                               std::to_string(WEXITSTATUS(status)));
}

} // namespace

int execute_program_and_wait_redirect(int in, int out, int err,
                                      const char *path, ...) {
    va_list list;
    va_start(list, path);
    int error = ENOMEM;
    int status = 0;
    try {
        SpawnRequest request;
        request.path = path;
        request.in = in;
        request.out = out;
        request.err = err;
        while (const char *argument = va_arg(list, const char *))
            request.arguments.emplace_back(argument);
        pid_t pid;
        error = spawn_program(request, pid);
        if (error == 0)
            error = wait_for(pid, status);
        tell_end(path, error, status);
    } catch (const std::bad_alloc &) {
    }
    va_end(list);
    if (error == 0)
        return status;
    errno = error;
    return -1;
}
