#include "host/base/spawn.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <string_view>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/base/clock.h"
#include "host/base/files.h"
#include "host/history/report.h"

namespace xfhost {
namespace {

// posix_spawn does not run the handlers of fork, which the agent side uses to
// tell a copy's own fork from others.
class Attributes {
  public:
    explicit Attributes(bool own_session) {
        posix_spawnattr_init(&attributes_);
        sigset_t all, none;
        sigfillset(&all);
        sigemptyset(&none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        int flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK |
                    (own_session ? POSIX_SPAWN_SETSID : 0);
        posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
    }
    ~Attributes() {
        posix_spawnattr_destroy(&attributes_);
    }
    const posix_spawnattr_t *get() const {
        return &attributes_;
    }

  private:
    posix_spawnattr_t attributes_;
};

class Actions {
  public:
    Actions() {
        posix_spawn_file_actions_init(&actions_);
    }
    ~Actions() {
        posix_spawn_file_actions_destroy(&actions_);
    }
    // A copy above 2 first: the three may be given in each other's places.
    int redirect(int from, int to, Fd &copy) {
        if (from < 0)
            return 0;
        copy = Fd(fcntl(from, F_DUPFD_CLOEXEC, 3));
        if (!copy)
            return errno;
        return posix_spawn_file_actions_adddup2(&actions_, copy.get(), to);
    }
    int close_rest() {
        return posix_spawn_file_actions_addclosefrom_np(&actions_, 3);
    }
    const posix_spawn_file_actions_t *get() const {
        return &actions_;
    }

  private:
    posix_spawn_file_actions_t actions_;
};

// Whoever ignores that a child ends is not told how, and may have been started
// like that.
int await_children() {
    struct sigaction action;
    if (sigaction(SIGCHLD, nullptr, &action) != 0)
        return errno;
    if (action.sa_handler != SIG_IGN && (action.sa_flags & SA_NOCLDWAIT) == 0)
        return 0;
    if (action.sa_handler == SIG_IGN)
        action.sa_handler = SIG_DFL;
    action.sa_flags &= ~SA_NOCLDWAIT;
    return sigaction(SIGCHLD, &action, nullptr) == 0 ? 0 : errno;
}

// For as long as this process does not change its own.
std::vector<char *> environment_for(const std::string &path) {
    const std::string report = std::string(report_variable) + "=";
    std::vector<char *> variables;
    for (char **each = environ; *each != nullptr; each++)
        if (path.starts_with("/brim/") ||
            !std::string_view(*each).starts_with(report))
            variables.push_back(*each);
    variables.push_back(nullptr);
    return variables;
}

} // namespace

int spawn_program(const SpawnRequest &request, pid_t &pid) {
    Attributes attributes(request.own_session);
    Actions actions;
    Fd copies[3];
    int error = await_children();
    if (error == 0)
        error = actions.redirect(request.in, 0, copies[0]);
    if (error == 0)
        error = actions.redirect(request.out, 1, copies[1]);
    if (error == 0)
        error = actions.redirect(request.err, 2, copies[2]);
    if (error == 0)
        error = actions.close_rest();
    if (error != 0)
        return error;

    std::vector<char *> arguments;
    arguments.push_back(const_cast<char *>(request.path.c_str()));
    for (const std::string &argument : request.arguments)
        arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    return posix_spawn(&pid, program_path(request.path).c_str(), actions.get(),
                       attributes.get(), arguments.data(),
                       environment_for(request.path).data());
}

int wait_for(pid_t pid, int &status) {
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR)
            return errno;
    return 0;
}

int wait_with_limit(pid_t pid, int seconds, int &status) {
    int64_t deadline = monotonic_ms() + int64_t{seconds} * 1000;
    struct timespec pause = {0, 100000};
    for (;;) {
        pid_t ended = waitpid(pid, &status, WNOHANG);
        if (ended == pid)
            return 0;
        if (ended < 0 && errno != EINTR)
            return errno;
        if (monotonic_ms() > deadline)
            break;
        nanosleep(&pause, nullptr);
        if (pause.tv_nsec < 50000000)
            pause.tv_nsec *= 2;
    }
    kill(pid, SIGKILL);
    int error = wait_for(pid, status);
    return error != 0 ? error : ETIMEDOUT;
}

} // namespace xfhost
