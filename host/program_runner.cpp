#include "platform/program_runner.h"

#include <cerrno>
#include <cstdarg>
#include <new>

#include "host/base/spawn.h"

using namespace xfhost;

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
    } catch (const std::bad_alloc &) {
    }
    va_end(list);
    if (error == 0)
        return status;
    errno = error;
    return -1;
}
