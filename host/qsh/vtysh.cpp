#include "host/qsh/vtysh.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/base/record.h"
#include "host/base/spawn.h"
#include "host/base/startup_config.h"

namespace xfhost {
namespace {

constexpr int probe_seconds = 2;

// Memory that looks like a file: whole or not at all, and nobody else's.
Fd memory_file(std::string_view content) {
    Fd fd(memfd_create("vtysh", MFD_CLOEXEC));
    if (!fd || !write_whole(fd.get(), content) ||
        lseek(fd.get(), 0, SEEK_SET) != 0)
        return Fd();
    return fd;
}

bool read_back(const Fd &fd, std::string &text) {
    return lseek(fd.get(), 0, SEEK_SET) == 0 &&
           read_whole(fd.get(), largest_config, text);
}

// setpriv: it does not outlive this process. env: VTYSH_PAGER, VTYSH_LOG and
// HOME would be used.
SpawnRequest request_for(const Settings &settings,
                         const std::vector<std::string> &arguments) {
    SpawnRequest request;
    request.path = "/usr/bin/setpriv";
    request.arguments = {
        "--pdeathsig",       "KILL",     "--",
        "/usr/bin/env",      "-i",       "PATH=/usr/sbin:/usr/bin:/sbin:/bin",
        "HOME=/nonexistent", "LC_ALL=C", settings.vtysh_program};
    request.arguments.insert(request.arguments.end(), arguments.begin(),
                             arguments.end());
    request.own_session = true;
    return request;
}

// What it prints stays in memory: only so much of it.
int spawn_limited(const SpawnRequest &request, pid_t &pid) {
    struct rlimit before = {};
    if (getrlimit(RLIMIT_FSIZE, &before) != 0)
        return errno;
    struct rlimit limited = before;
    limited.rlim_cur = std::min<rlim_t>(largest_config, before.rlim_cur);
    if (setrlimit(RLIMIT_FSIZE, &limited) != 0)
        return errno;
    int error = spawn_program(request, pid);
    return setrlimit(RLIMIT_FSIZE, &before) != 0 ? errno : error;
}

// Its number is its own until it has been waited for.
int end_group(pid_t pid, int &status) {
    kill(-pid, SIGKILL);
    kill(pid, SIGKILL);
    return wait_for(pid, status);
}

// 0, ETIMEDOUT or another error number; the process and what it started are
// gone afterwards.
int await(pid_t pid, int seconds, int &status) {
    Fd watch(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    struct pollfd watched = {watch.get(), POLLIN, 0};
    int count = watch ? poll(&watched, 1, seconds * 1000) : -1;
    int error = count > 0 ? 0 : count == 0 ? ETIMEDOUT : errno;
    int failed = end_group(pid, status);
    return error != 0 ? error : failed;
}

int exit_status(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

Vtysh::Vtysh(const Settings &settings,
             const std::vector<std::string> &arguments, std::string_view input)
    : in_(memory_file(input)), out_(memory_file("")), err_(memory_file("")) {
    SpawnRequest request = request_for(settings, arguments);
    request.in = in_.get();
    request.out = out_.get();
    request.err = err_.get();
    error_ = in_ && out_ && err_ ? spawn_limited(request, pid_) : errno;
}

Vtysh::~Vtysh() {
    if (error_ != 0 || pid_ < 0)
        return;
    int status = 0;
    end_group(pid_, status);
}

VtyshEnd Vtysh::finish(int seconds) {
    VtyshEnd end;
    end.error = error_;
    if (end.error != 0)
        return end;
    int status = 0;
    end.error = await(pid_, seconds, status);
    pid_ = -1;
    end.status = exit_status(status);
    if (!read_back(out_, end.out) || !read_back(err_, end.err))
        end.error = errno;
    return end;
}

VtyshEnd run_vtysh(const Settings &settings,
                   const std::vector<std::string> &arguments,
                   std::string_view input, int seconds) {
    return Vtysh(settings, arguments, input).finish(seconds);
}

std::string vtysh_failure(const Settings &settings, const VtyshEnd &end) {
    if (end.error == ETIMEDOUT)
        return settings.vtysh_program + " did not end in time";
    if (end.error != 0)
        return settings.vtysh_program + ": " + strerror(end.error);
    if (end.status > 128)
        return settings.vtysh_program + " was ended by signal " +
               std::to_string(end.status - 128);
    std::string words = end.err.empty() ? end.out : end.err;
    words.resize(std::min(words.size(),
                          words.find('\n', words.find_first_not_of('\n'))));
    return settings.vtysh_program + " ended with status " +
           std::to_string(end.status) + ": " + quoted(words.substr(0, 200));
}

std::string silent_daemons(const Settings &settings,
                           const std::vector<std::string> &daemons) {
    std::string silent;
    for (const std::string &each : daemons) {
        VtyshEnd end =
            run_vtysh(settings, {"-d", each, "-c", "show version"}, "",
                      std::min(probe_seconds, settings.vtysh_seconds));
        if (!end.good())
            silent.append(silent.empty() ? "" : " ").append(each);
    }
    return silent;
}

} // namespace xfhost
