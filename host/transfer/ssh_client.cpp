#include "host/transfer/ssh_client.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/base/clock.h"
#include "host/transfer/ssh_failure.h"

namespace xfhost {
namespace {

constexpr size_t most_said = 16384;
// What a pipe holds, unless it is told otherwise.
constexpr size_t pipe_octets = 65536;

Pipe make_pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw Failed(Outcome::other, "there are no descriptors left");
    return {Fd(ends[0]), Fd(ends[1])};
}

void make_nonblocking(const Fd &fd) {
    fcntl(fd.get(), F_SETFL, O_NONBLOCK);
}

// One of our descriptors by a name that our children can open.
std::string path_of(const Fd &fd) {
    return "/proc/" + std::to_string(getpid()) + "/fd/" +
           std::to_string(fd.get());
}

std::string option(std::string_view key, std::string_view value) {
    std::string text(key);
    text += "=\"";
    for (char c : value) {
        if (c == '"' || c == '\\')
            text += '\\';
        text += c;
    }
    return text + "\"";
}

std::string percent_doubled(const std::string &text) {
    std::string doubled;
    for (char c : text)
        doubled.append(c == '%' ? 2 : 1, c);
    return doubled;
}

constexpr const char *fixed_options[] = {
    "LogLevel=ERROR",
    "StrictHostKeyChecking=yes",
    "GlobalKnownHostsFile=/dev/null",
    "UpdateHostKeys=no",
    "CheckHostIP=no",
    "PreferredAuthentications=password,keyboard-interactive",
    "PubkeyAuthentication=no",
    "HostbasedAuthentication=no",
    "GSSAPIAuthentication=no",
    "NumberOfPasswordPrompts=1",
    "IdentityAgent=none",
    "ServerAliveInterval=15",
    "ServerAliveCountMax=2",
    "ClearAllForwardings=yes",
    "ForwardAgent=no",
    "ForwardX11=no",
    "ControlMaster=no",
    "ControlPath=none",
    "RequestTTY=no",
    "PermitLocalCommand=yes"};

std::string program_beside_us(const char *name) {
    char self[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", self, sizeof self);
    std::string path(self, length > 0 ? static_cast<size_t>(length) : 0);
    return path.substr(0, path.rfind('/') + 1) + name;
}

void put(const Settings &settings, const Copy &copy) {
    const Fd source = source_of(copy.local);
    Moved moved;
    try {
        SshClient client(settings, copy.login);
        sftp_put(client, copy.remote, source.get(), moved);
    } catch (const Failed &failed) {
        throw failed.after(moved.octets());
    }
    tell(moved.report());
}

void get(const Settings &settings, const Copy &copy) {
    Destination destination(settings, copy.local);
    try {
        SshClient client(settings, copy.login);
        sftp_get(client, copy.remote, destination.file());
    } catch (const Failed &failed) {
        throw failed.after(destination.file().octets());
    }
    destination.keep();
}

} // namespace

void copy_over_ssh(const Settings &settings, const Copy &copy) {
    if (copy.upload)
        put(settings, copy);
    else
        get(settings, copy);
}

std::string known_hosts_file(const Settings &settings, int32_t vrf) {
    std::string file = settings.known_hosts.empty()
                           ? settings.state_directory + "/known_hosts"
                           : settings.known_hosts;
    return vrf == own_network_id ? file : file + "." + std::to_string(vrf);
}

SshClient::SshClient(const Settings &settings, const Login &login)
    : login_seconds_(settings.login_seconds),
      transfer_seconds_(settings.transfer_seconds),
      deadline_(monotonic_ms() + login_seconds_ * int64_t{1000}),
      to_(make_pipe()), from_(make_pipe()), log_(make_pipe()),
      let_in_(make_pipe()), password_(make_pipe()), ahead_(pipe_octets) {
    make_nonblocking(password_.in);
    if (!write_whole(password_.in.get(), login.password))
        throw Failed(Outcome::login, "a password that cannot be sent");
    password_.in.reset();

    // Nothing but these options: no file of the user's or the machine's.
    std::vector<std::string> words = {"ssh", "-F", "none", "-E",
                                      path_of(log_.in)};
    auto add_option = [&](std::string text) {
        words.emplace_back("-o");
        words.push_back(std::move(text));
    };
    for (const char *each : fixed_options)
        add_option(each);
    add_option(option("User", login.user));
    add_option("Port=" + std::to_string(settings.ssh_port));
    add_option(option("UserKnownHostsFile", percent_doubled(known_hosts_file(
                                                settings, login.vrf.id))));
    // Run once the server has let us in. Nothing that it says is taken for
    // that.
    add_option("LocalCommand=echo >" + path_of(let_in_.in));
    for (const char *each : {"-s", "--"})
        words.emplace_back(each);
    words.push_back(login.server);
    words.emplace_back("sftp");
    start(login.vrf, std::move(words));
}

SshClient::~SshClient() {
    if (pid_ < 0)
        return;
    // It leads a group, and is not waited for before: the number is its own.
    kill(-pid_, SIGKILL);
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void SshClient::start(const Vrf &vrf, std::vector<std::string> words) {
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    sigset_t watched;
    sigemptyset(&watched);
    for (int each : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&watched, each);
    sigprocmask(SIG_BLOCK, &watched, nullptr);
    signals_ = Fd(signalfd(-1, &watched, SFD_CLOEXEC));
    signal(SIGPIPE, SIG_IGN);
    pid_ = fork();
    if (pid_ == 0)
        become(vrf, arguments);
    if (pid_ < 0 || !signals_)
        throw Failed(Outcome::other, "the SSH client cannot be started");
    to_.out.reset();
    from_.in.reset();
    for (const Fd *each : {&to_.in, &from_.out, &log_.out, &let_in_.out})
        make_nonblocking(*each);
}

// In the child: becomes the client.
void SshClient::become(const Vrf &vrf, std::vector<char *> &words) {
    setsid();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    set_environment();
    // What the server prints, before or after the login, goes nowhere.
    Fd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (dup2(to_.out.get(), STDIN_FILENO) < 0 ||
        dup2(from_.in.get(), STDOUT_FILENO) < 0 ||
        dup2(nowhere.get(), STDERR_FILENO) < 0)
        _exit(127);
    run_in_vrf(vrf, words.data());
    _exit(127);
}

// Nothing of the caller's: no proxies, no start-up files, no libraries to load
// first. There is no terminal to ask on, so a program is asked.
void SshClient::set_environment() const {
    // getpid() is the child's here.
    std::string password = "/proc/" + std::to_string(getppid()) + "/fd/" +
                           std::to_string(password_.out.get());
    std::string program = program_beside_us("xfaskpass");
    clearenv();
    setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    setenv("LC_ALL", "C", 1);
    setenv("HOME", "/nonexistent", 1);
    setenv("SHELL", "/bin/sh", 1);
    setenv("TERM", "dumb", 1);
    setenv("SSH_ASKPASS", program.c_str(), 1);
    setenv("SSH_ASKPASS_REQUIRE", "force", 1);
    setenv("XF_PASSWORD_FROM", password.c_str(), 1);
}

// Milliseconds, above 0.
int SshClient::time_left() const {
    const int left = ms_until(deadline_);
    if (left > 0)
        return left;
    throw failure_of(Outcome::timeout)
        .at(is_let_in_ ? Step::transfer : Step::login)
        .because(is_let_in_ ? "the file was not moved within " +
                                  std::to_string(transfer_seconds_) + " seconds"
                            : "the server did not let us in within " +
                                  std::to_string(login_seconds_) + " seconds");
}

void SshClient::read_log() {
    char octets[4096];
    ssize_t count = read(log_.out.get(), octets, sizeof octets);
    if (count <= 0)
        return;
    said_.append(octets, static_cast<size_t>(count));
    if (said_.size() <= most_said)
        return;
    // Whole lines stay: a report may quote one.
    const size_t end = said_.find('\n', said_.size() - most_said);
    said_.erase(0, end == said_.npos ? end : end + 1);
}

// Believed once.
void SshClient::was_let_in() {
    char octet;
    if (read(let_in_.out.get(), &octet, 1) != 1)
        return;
    let_in_.out.reset();
    is_let_in_ = true;
    deadline_ = monotonic_ms() + transfer_seconds_ * int64_t{1000};
}

// Waits until a descriptor is ready.
void SshClient::wait(int fd, short events) {
    for (;;) {
        pollfd watched[] = {{fd, events, 0},
                            {log_.out.get(), POLLIN, 0},
                            {let_in_.out.get(), POLLIN, 0},
                            {signals_.get(), POLLIN, 0}};
        if (poll(watched, std::size(watched), time_left()) < 0 &&
            errno != EINTR)
            throw Failed(Outcome::other, "no memory to wait with");
        if (watched[3].revents != 0)
            throw Failed(Outcome::other, "ended by a signal");
        if (watched[1].revents != 0)
            read_log();
        if (watched[2].revents != 0)
            was_let_in();
        if (watched[0].revents != 0)
            return;
    }
}

// The client has closed its end: tells why, once it is gone.
void SshClient::ended() {
    Fd process(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
    if (process)
        wait(process.get(), POLLIN);
    read_log();
    throw ssh_failure(is_let_in_, said_);
}

void SshClient::send(std::string_view octets) {
    while (!octets.empty()) {
        wait(to_.in.get(), POLLOUT);
        ssize_t count = write(to_.in.get(), octets.data(), octets.size());
        if (count < 0 && (errno == EAGAIN || errno == EINTR))
            continue;
        if (count < 0)
            ended();
        octets.remove_prefix(static_cast<size_t>(count));
    }
}

// Answers are small, and many come at once.
void SshClient::receive(char *octets, size_t count) {
    while (count > 0) {
        while (unread_.empty())
            read_ahead();
        const size_t taken = unread_.copy(octets, count);
        unread_.remove_prefix(taken);
        octets += taken;
        count -= taken;
    }
}

void SshClient::read_ahead() {
    wait(from_.out.get(), POLLIN);
    const ssize_t got = read(from_.out.get(), ahead_.data(), ahead_.size());
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (got <= 0)
        ended();
    unread_ = {ahead_.data(), static_cast<size_t>(got)};
}

} // namespace xfhost
