#include "host/qsh/vtysh.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <sstream>

#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/base/files.h"
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

// setsid: a group that can be killed as one. setpriv: it does not outlive this
// process. env: VTYSH_PAGER, VTYSH_LOG and HOME would be used.
SpawnRequest request_for(const Settings &settings,
                         const std::vector<std::string> &arguments) {
    SpawnRequest request;
    request.path = "/usr/bin/setsid";
    request.arguments = {"/usr/bin/setpriv",
                         "--pdeathsig",
                         "KILL",
                         "--",
                         "/usr/bin/env",
                         "-i",
                         "PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                         "HOME=/nonexistent",
                         "LC_ALL=C",
                         settings.vtysh_program};
    request.arguments.insert(request.arguments.end(), arguments.begin(),
                             arguments.end());
    return request;
}

// 0, ETIMEDOUT or another error number; the process is gone afterwards.
int await(pid_t pid, int seconds, int &status) {
    Fd watch(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    struct pollfd watched = {watch.get(), POLLIN, 0};
    int count = watch ? poll(&watched, 1, seconds * 1000) : -1;
    int error = count > 0 ? 0 : count == 0 ? ETIMEDOUT : errno;
    if (error != 0) {
        kill(-pid, SIGKILL);
        kill(pid, SIGKILL);
    }
    int failed = wait_for(pid, status);
    return error != 0 ? error : failed;
}

int exit_status(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

VtyshEnd run_vtysh(const Settings &settings,
                   const std::vector<std::string> &arguments,
                   std::string_view input, int seconds) {
    VtyshEnd end;
    Fd in = memory_file(input), out = memory_file(""), err = memory_file("");
    SpawnRequest request = request_for(settings, arguments);
    request.in = in.get();
    request.out = out.get();
    request.err = err.get();
    pid_t pid = 0;
    end.error = in && out && err ? spawn_program(request, pid) : errno;
    if (end.error != 0)
        return end;
    int status = 0;
    end.error = await(pid, seconds, status);
    end.status = exit_status(status);
    if (!read_back(out, end.out) || !read_back(err, end.err))
        end.error = errno;
    return end;
}

std::string vtysh_failure(const Settings &settings, const VtyshEnd &end) {
    if (end.error == ETIMEDOUT)
        return settings.vtysh_program + " did not end in time";
    if (end.error != 0)
        return settings.vtysh_program + ": " + strerror(end.error);
    std::string words = end.err.empty() ? end.out : end.err;
    words.resize(std::min(words.size(),
                          words.find('\n', words.find_first_not_of('\n'))));
    return settings.vtysh_program + " ended with status " +
           std::to_string(end.status) + ": " + quoted(words.substr(0, 200));
}

std::vector<std::string> answering_daemons(const Settings &settings,
                                           std::string &why) {
    std::vector<std::string> daemons;
    VtyshEnd end =
        run_vtysh(settings, {"-c", "show daemons"}, "", settings.vtysh_seconds);
    if (!end.good())
        why = vtysh_failure(settings, end);
    std::istringstream words(end.good() ? end.out : "");
    for (std::string word; words >> word;)
        daemons.push_back(word);
    if (end.good() && daemons.empty())
        why = "no daemon of FRR answers";
    return daemons;
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
