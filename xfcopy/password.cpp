#include "xfcopy/password.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "xfcopy/signals.h"
#include "xfcopy/text.h"

namespace xfcopy {

namespace {

// A prompt may be left alone for a day, but not for ever.
constexpr auto patience = std::chrono::hours(24);

constexpr const char *too_long = "the password has more than 41 octets";

std::string append_to(Secret &secret, char octet) {
    if (static_cast<unsigned char>(octet) < 0x20 || octet == 0x7f)
        return "the password has a control character";
    return secret.append(octet) ? "" : too_long;
}

// Octet by octet: what follows the line is not ours. An error text does not
// end it early, or the rest would be typed into somebody's shell.
std::string read_line(int fd, const char *what, Secret &secret) {
    std::string problem;
    for (;;) {
        char octet = 0;
        if (wait_for(fd, patience) != Wait::ready)
            return "interrupted";
        const ssize_t got = read(fd, &octet, 1);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::string(what) + ": " + strerror(errno);
        if (got == 0 || octet == '\n')
            break;
        if (problem.empty())
            problem = append_to(secret, octet);
        explicit_bzero(&octet, sizeof(octet));
    }
    if (problem.empty() && secret.text().empty())
        return "the password is empty";
    return problem;
}

std::string read_file(const std::string &name, Secret &secret,
                      std::string &note) {
    const std::string what = "--password-file " + shown(name);
    const int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    struct stat st = {};
    if (fd < 0)
        return what + ": " + strerror(errno);
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && (st.st_mode & 077) != 0)
        note = what + ": others than its owner have access to it";
    std::string problem = read_line(fd, what.c_str(), secret);
    close(fd);
    return problem;
}

std::string take_environment(char *text, Secret &secret) {
    std::string problem;
    for (const char *each = text; *each != '\0' && problem.empty(); ++each)
        problem = append_to(secret, *each);
    explicit_bzero(text, strlen(text));
    return problem.empty() && secret.text().empty() ? "XFCOPY_PASSWORD is empty"
                                                    : problem;
}

// A terminal that shows nothing of what is typed.
class SilentTerminal {
  public:
    explicit SilentTerminal(int fd) : fd_(fd) {
        silent_ = tcgetattr(fd, &before_) == 0;
        if (!silent_)
            return;
        sigset_t stop;
        sigemptyset(&stop);
        sigaddset(&stop, SIGTSTP);
        sigprocmask(SIG_BLOCK, &stop, nullptr);
        termios now = before_;
        now.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
        silent_ = tcsetattr(fd, TCSAFLUSH, &now) == 0;
    }
    SilentTerminal(const SilentTerminal &) = delete;
    SilentTerminal &operator=(const SilentTerminal &) = delete;
    ~SilentTerminal() {
        if (silent_)
            tcsetattr(fd_, TCSAFLUSH, &before_);
        sigset_t stop;
        sigemptyset(&stop);
        sigaddset(&stop, SIGTSTP);
        sigprocmask(SIG_UNBLOCK, &stop, nullptr);
    }
    explicit operator bool() const {
        return silent_;
    }

  private:
    int fd_;
    bool silent_ = false;
    termios before_ = {};
};

std::string ask(const std::string &whose, Secret &secret) {
    const SilentTerminal terminal(STDIN_FILENO);
    if (!terminal)
        return std::string("the terminal cannot be silenced: ") +
               strerror(errno);
    fprintf(stderr, "Password of %s: ", whose.c_str());
    fflush(stderr);
    std::string problem = read_line(STDIN_FILENO, "the terminal", secret);
    fputs("\n", stderr);
    return problem;
}

} // namespace

bool Secret::append(char octet) {
    if (size_ == sizeof(octets_))
        return false;
    octets_[size_++] = octet;
    return true;
}

void Secret::clear() {
    explicit_bzero(octets_, sizeof(octets_));
    size_ = 0;
}

std::string read_password(const PasswordSource &source,
                          const std::string &whose, Secret &secret,
                          std::string &note) {
    if (source.fd >= 0)
        return read_line(source.fd, "--password-fd", secret);
    if (!source.file.empty())
        return read_file(source.file, secret, note);
    if (char *const text = getenv("XFCOPY_PASSWORD"); text != nullptr)
        return take_environment(text, secret);
    if (isatty(STDIN_FILENO) == 0)
        return "the password of " + whose +
               " is missing: use --password-file, --password-fd or "
               "XFCOPY_PASSWORD, or a terminal";
    return ask(whose, secret);
}

} // namespace xfcopy
