#include "host/procd/remote.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/base/clock.h"
#include "host/base/files.h"

namespace xfhost {
namespace {

constexpr size_t most_words = 8192;
constexpr int poll_ms = 50; // how soon a stop is seen

// 1 at the end of the pipe, 0 if there is more to come, else minus an error.
int read_some(int fd, size_t limit, std::string &output) {
    char buffer[65536];
    ssize_t count = read(fd, buffer, sizeof buffer);
    if (count < 0)
        return errno == EINTR || errno == EAGAIN ? 0 : -errno;
    output.append(buffer, static_cast<size_t>(count));
    if (output.size() > limit)
        return -EFBIG;
    return count == 0 ? 1 : 0;
}

int read_to_end(int fd, size_t limit, int64_t deadline,
                const std::stop_token &stop, std::string &output) {
    for (;;) {
        if (stop.stop_requested())
            return ECANCELED;
        if (monotonic_ms() > deadline)
            return ETIMEDOUT;
        struct pollfd watched = {fd, POLLIN, 0};
        if (poll(&watched, 1, poll_ms) <= 0)
            continue;
        int result = read_some(fd, limit, output);
        if (result != 0)
            return result > 0 ? 0 : -result;
    }
}

// A program may close its output long before it ends; most end a moment later.
int await_end(pid_t pid, int64_t deadline, const std::stop_token &stop,
              int &status) {
    struct timespec pause = {0, 50000};
    for (;;) {
        pid_t ended = waitpid(pid, &status, WNOHANG);
        if (ended == pid)
            return 0;
        if (ended < 0 && errno != EINTR)
            return errno;
        if (stop.stop_requested())
            return ECANCELED;
        if (monotonic_ms() > deadline)
            return ETIMEDOUT;
        nanosleep(&pause, nullptr);
        pause.tv_nsec = std::min(pause.tv_nsec * 2, 5000000L);
    }
}

// As a value of ssh's options, where % begins a placeholder.
std::string path_value(const std::string &path) {
    std::string value = "\"";
    for (char c : path)
        value += c == '%' ? "%%" : c == '"' ? "\\\"" : std::string(1, c);
    return value + "\"";
}

std::string last_line(const std::string &words) {
    size_t end = words.find_last_not_of("\r\n ");
    if (end == std::string::npos)
        return "";
    size_t start = words.find_last_of("\r\n", end);
    start = start == std::string::npos ? 0 : start + 1;
    return words.substr(start, end + 1 - start);
}

bool has(const std::string &words, const char *part) {
    return words.find(part) != std::string::npos;
}

std::string explain_connection(const std::string &words) {
    if (has(words, "Host key verification failed"))
        return "The switch is not the known one: its host key is unknown or "
               "has changed.";
    if (has(words, "Permission denied"))
        return "The switch refused the key of this switch.";
    if (has(words, "Connection refused") || has(words, "timed out") ||
        has(words, "No route to host") || has(words, "unreachable"))
        return "The switch cannot be reached: " + last_line(words);
    return "The connection to the switch failed: " + last_line(words);
}

} // namespace

int run_and_read(SpawnRequest request, int from, size_t limit, int seconds,
                 const std::stop_token &stop, std::string &output,
                 int &status) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return errno;
    Fd reading(ends[0]), writing(ends[1]);
    Fd null(open("/dev/null", O_RDWR | O_CLOEXEC));
    request.in = request.out = null.get();
    if (request.err < 0)
        request.err = null.get();
    (from == 1 ? request.out : request.err) = writing.get();
    pid_t pid;
    int error = spawn_program(request, pid);
    if (error != 0)
        return error;
    writing.reset();
    int64_t deadline = monotonic_ms() + int64_t{seconds} * 1000;
    error = read_to_end(reading.get(), limit, deadline, stop, output);
    if (error == 0)
        error = await_end(pid, deadline, stop, status);
    if (error != 0) {
        kill(pid, SIGKILL);
        wait_for(pid, status);
    }
    return error;
}

std::vector<std::string> ssh_arguments(const Settings &settings,
                                       const FabricSwitch &to) {
    std::vector<std::string> arguments = {"-F", "none", "-T", "-n", "-x", "-a"};
    auto option = [&](const std::string &text) {
        arguments.insert(arguments.end(), {"-o", text});
    };
    option("BatchMode=yes");
    option("StrictHostKeyChecking=yes");
    option("UserKnownHostsFile=" + path_value(settings.fabric_known_hosts));
    option("GlobalKnownHostsFile=/dev/null");
    option("UpdateHostKeys=no");
    option("PreferredAuthentications=publickey");
    option("IdentitiesOnly=yes");
    option("IdentityAgent=none");
    option("IdentityFile=" + path_value(settings.fabric_key_file));
    option("ClearAllForwardings=yes");
    option("ConnectionAttempts=1");
    option("ConnectTimeout=" + std::to_string(settings.fabric_connect_seconds));
    option("LogLevel=ERROR");
    arguments.insert(arguments.end(), {"-p", std::to_string(to.port)});
    if (!to.user.empty())
        arguments.insert(arguments.end(), {"-l", to.user});
    arguments.insert(arguments.end(),
                     {"--", to.address, settings.fabric_command});
    return arguments;
}

std::string explain_ssh(int status, const std::string &words) {
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return "";
    if (!WIFEXITED(status))
        return "The connection to the switch was ended by a signal.";
    if (WEXITSTATUS(status) == 255)
        return explain_connection(words);
    if (WEXITSTATUS(status) == 126 || WEXITSTATUS(status) == 127)
        return "The switch could not run the command to save: " +
               last_line(words);
    if (has(words, "No space left on device"))
        return "The disk of the switch is full: it kept its old startup "
               "configuration.";
    std::string why = last_line(words);
    return "The switch could not save: " +
           (why.empty() ? "exit status " + std::to_string(WEXITSTATUS(status))
                        : why);
}

std::string save_on_switch(const Settings &settings, const FabricSwitch &to,
                           const std::stop_token &stop) {
    // No connection outlives a system manager that was killed.
    SpawnRequest request;
    request.path = "/usr/bin/setpriv";
    request.arguments = {"--pdeathsig", "KILL", "--", settings.ssh_program};
    std::vector<std::string> rest = ssh_arguments(settings, to);
    request.arguments.insert(request.arguments.end(), rest.begin(), rest.end());
    std::string words;
    int status = 0;
    int error =
        run_and_read(request, 2, most_words, settings.fabric_switch_seconds,
                     stop, words, status);
    if (error == ETIMEDOUT)
        return "The switch did not finish within " +
               std::to_string(settings.fabric_switch_seconds) + " seconds.";
    if (error == ECANCELED)
        return "The save was aborted before the switch had finished.";
    if (error != 0)
        return std::string("The connection to the switch could not be made: ") +
               strerror(error);
    return explain_ssh(status, words);
}

} // namespace xfhost
