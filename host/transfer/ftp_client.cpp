#include "host/transfer/ftp_client.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <arpa/inet.h>
#include <curl/curl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/clock.h"
#include "host/transfer/ftp_replies.h"

namespace xfhost {
namespace {

// The library looks at the time once a second; this is for when it does not: at
// the end of a file, as long as something comes that is no whole line.
constexpr int watchdog_seconds = 3;
// How long a server may take to close a connection on which all was sent, and
// to say why it has closed one before.
constexpr int settle_ms = 3000;
constexpr int glance_ms = 100;
constexpr size_t longest_line = 4096;

// One copy, as the callbacks of libcurl see it. They must not throw.
struct Session {
    Session(const Settings &its_settings, const Copy &its_copy,
            std::string its_remote)
        : settings(its_settings), copy(its_copy),
          remote(std::move(its_remote)) {}

    const Settings &settings;
    const Copy &copy;
    const std::string remote;
    int source = -1;                    // of an upload
    uint64_t source_size = 0;           // its octets
    BoundedFile *destination = nullptr; // of a download
    Moved sent;                         // by an upload
    uint64_t received = 0;              // octets of a download
    FtpReplies replies;
    int64_t deadline = 0;          // of monotonic_ms
    std::optional<Failed> stopped; // from our side
    int control = -1;
    bool torn = false; // the connection of an upload was reset
};

// ---- Being ended ------------------------------------------------------------

// The part of a download, for where the file system has no files without a
// name.
const char *part_path;

// The control connection, while there is one, and whether the watchdog has
// ended it.
volatile sig_atomic_t control_fd = -1;
volatile sig_atomic_t hung_up = 0;

struct PartPath {
    explicit PartPath(const char *path) {
        part_path = path;
    }
    ~PartPath() {
        part_path = nullptr;
    }
    PartPath(const PartPath &) = delete;
    PartPath &operator=(const PartPath &) = delete;
};

void end_by_signal(int number) {
    constexpr char late[] =
        "snmp.ftp.expect: the server did not answer in time\n";
    constexpr char ended[] = "snmp.ftp.expect: ended by a signal\n";
    const bool timed_out = number == SIGALRM;
    const ssize_t ignored = timed_out
                                ? write(STDERR_FILENO, late, sizeof late - 1)
                                : write(STDERR_FILENO, ended, sizeof ended - 1);
    static_cast<void>(ignored);
    if (part_path != nullptr)
        unlink(part_path);
    _exit(static_cast<int>(timed_out ? Outcome::timeout : Outcome::other));
}

// The library hears that the server has gone, and the copy ends with a reason.
// If it does not hear it, the process is ended the next time.
void hang_up(int number) {
    const int error = errno;
    signal(SIGALRM, end_by_signal);
    if (control_fd < 0)
        end_by_signal(number);
    hung_up = 1;
    shutdown(control_fd, SHUT_RDWR);
    alarm(watchdog_seconds);
    errno = error;
}

void catch_signals() {
    for (int number : {SIGTERM, SIGINT, SIGHUP})
        signal(number, end_by_signal);
    signal(SIGALRM, hang_up);
    signal(SIGPIPE, SIG_IGN);
}

// What stopped it first counts. Gives false.
bool stop(Session &session, const Failed &why) {
    if (!session.stopped)
        session.stopped = why;
    return false;
}

void allow(Session &session, int seconds) {
    session.deadline = monotonic_ms() + seconds * int64_t{1000};
    alarm(static_cast<unsigned>(seconds + watchdog_seconds));
}

bool late(Session &session) {
    if (monotonic_ms() < session.deadline)
        return false;
    const Settings &limits = session.settings;
    const bool in = session.replies.logged_in();
    stop(session,
         failure_of(Outcome::timeout)
             .because(
                 in ? "the file was not moved within " +
                          std::to_string(limits.transfer_seconds) + " seconds"
                    : "the server did not let us in within " +
                          std::to_string(limits.login_seconds) + " seconds"));
    return true;
}

// ---- Callbacks --------------------------------------------------------------

size_t read_file(char *buffer, size_t size, size_t count, void *argument) {
    auto session = static_cast<Session *>(argument);
    const ssize_t got = read(session->source, buffer, size * count);
    if (got >= 0) {
        session->sent.take({buffer, static_cast<size_t>(got)});
        return static_cast<size_t>(got);
    }
    stop(*session, source_failure(Outcome::other));
    return CURL_READFUNC_ABORT;
}

// Whether the local file took something; ends the copy otherwise.
bool taken(Session &session, int error) {
    return error == 0 ||
           stop(session, file_failure(error, Outcome::other,
                                      "the local file cannot be written"));
}

size_t write_file(char *buffer, size_t size, size_t count, void *argument) {
    auto session = static_cast<Session *>(argument);
    const std::string_view octets(buffer, size * count);
    if (!taken(*session,
               session->destination->write_at(session->received, octets)))
        return 0;
    session->received += octets.size();
    return octets.size();
}

// Whether a file may come of which the server has told the size.
bool may_come(Session &session) {
    const FtpReplies &replies = session.replies;
    if (session.copy.upload || replies.began())
        return true;
    return !replies.strange_size() &&
           (!replies.size() ||
            taken(session, session.destination->expect(*replies.size())));
}

// A line of the server.
size_t take_line(char *line, size_t size, size_t count, void *argument) {
    auto session = static_cast<Session *>(argument);
    FtpReplies &replies = session->replies;
    const bool was_in = replies.logged_in();
    if (!replies.said({line, size * count}) || late(*session))
        return 0;
    if (!was_in && replies.logged_in())
        allow(*session, session->settings.transfer_seconds);
    return may_come(*session) ? size * count : 0;
}

// What libcurl sends.
int take_command(CURL *, curl_infotype type, char *data, size_t size,
                 void *argument) {
    if (type == CURLINFO_HEADER_OUT)
        static_cast<Session *>(argument)->replies.sent({data, size});
    return 0;
}

// Nobody waits for the answer to the last command.
int watch(void *argument, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    auto session = static_cast<Session *>(argument);
    return session->replies.quitting() || late(*session) ? 1 : 0;
}

// ---- Connections ------------------------------------------------------------

bool is_server(const struct sockaddr &address, const std::string &server) {
    unsigned char octets[sizeof(struct in6_addr)];
    const bool v4 = address.sa_family == AF_INET;
    const void *own =
        &reinterpret_cast<const struct sockaddr_in &>(address).sin_addr;
    if (!v4)
        own = &reinterpret_cast<const struct sockaddr_in6 &>(address).sin6_addr;
    return inet_pton(address.sa_family, server.c_str(), octets) == 1 &&
           memcmp(own, octets, v4 ? sizeof(struct in_addr) : sizeof octets) ==
               0;
}

// A namespace was entered by the process; into a device its sockets are bound.
bool enters(int fd, const Vrf &vrf) {
    return vrf.kind != Vrf::Kind::device ||
           setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, vrf.name.c_str(),
                      static_cast<socklen_t>(vrf.name.size() + 1)) == 0;
}

// Every connection goes to the server, whatever it says, and in the VRF.
curl_socket_t open_socket(void *argument, curlsocktype,
                          struct curl_sockaddr *address) {
    auto session = static_cast<Session *>(argument);
    const Login &login = session->copy.login;
    if (!is_server(address->addr, login.server))
        return CURL_SOCKET_BAD;
    const int fd = socket(address->family, address->socktype | SOCK_CLOEXEC,
                          address->protocol);
    if (fd >= 0 && !enters(fd, login.vrf)) {
        close(fd);
        return CURL_SOCKET_BAD;
    }
    if (session->control < 0)
        control_fd = session->control = fd;
    return fd;
}

bool readable(int fd, int64_t until) {
    const int left = ms_until(until);
    struct pollfd ready = {fd, POLLIN, 0};
    return left > 0 && poll(&ready, 1, left) > 0;
}

// Whether the server has taken all that was sent on a connection: it closes it
// then, or at least its kernel has acknowledged it for a while.
bool settled(Session &session, int fd) {
    if (shutdown(fd, SHUT_WR) != 0)
        return false;
    char octet;
    int waiting = 0;
    int64_t taken_at = monotonic_ms();
    while (!late(session)) {
        if (readable(fd, monotonic_ms() + glance_ms))
            return recv(fd, &octet, 1, MSG_DONTWAIT) >= 0;
        if (ioctl(fd, SIOCOUTQ, &waiting) != 0 || waiting != 0)
            taken_at = monotonic_ms();
        if (monotonic_ms() - taken_at > settle_ms)
            return true;
    }
    return false;
}

// libcurl gives up with a connection for data that breaks; the server may have
// said why.
void hear_out(Session &session, int fd) {
    const int64_t until =
        std::min(session.deadline, monotonic_ms() + settle_ms);
    char line[longest_line];
    size_t length = 0;
    while (session.replies.waiting() && length < sizeof line &&
           readable(fd, until) &&
           recv(fd, line + length, 1, MSG_DONTWAIT) == 1) {
        if (line[length++] != '\n')
            continue;
        session.replies.said({line, length});
        length = 0;
    }
}

int close_socket(void *argument, curl_socket_t fd) {
    auto session = static_cast<Session *>(argument);
    if (fd == session->control) {
        if (!session->stopped)
            hear_out(*session, fd);
        control_fd = session->control = -1;
    } else if (session->copy.upload && session->replies.began())
        session->torn = session->torn || !settled(*session, fd);
    return close(fd);
}

// ---- libcurl ----------------------------------------------------------------

struct CurlEnd {
    void operator()(CURL *curl) const {
        curl_easy_cleanup(curl);
    }
    void operator()(struct curl_slist *list) const {
        curl_slist_free_all(list);
    }
};

// Sets options until one is refused.
class Options {
  public:
    explicit Options(CURL *curl) : curl_(curl) {}
    template <typename Value> void set(CURLoption option, Value value) {
        good_ = good_ && curl_easy_setopt(curl_, option, value) == CURLE_OK;
    }
    bool good() const {
        return good_;
    }

  private:
    CURL *curl_;
    bool good_ = true;
};

// The remote name must arrive as it is: every octet that means something in a
// URL is escaped, slashes included.
std::string url_of(CURL *curl, const Session &session) {
    char *escaped = curl_easy_escape(curl, session.remote.c_str(), 0);
    if (escaped == nullptr)
        throw std::bad_alloc();
    const std::string name(escaped);
    curl_free(escaped);
    const std::string &server = session.copy.login.server;
    const bool v6 = server.find(':') != std::string::npos;
    return "ftp://" + (v6 ? "[" + server + "]" : server) + ":" +
           std::to_string(session.settings.ftp_port) + "/" + name;
}

void set_session(Options &options, const Session &session) {
    const Login &who = session.copy.login;
    const Settings &limits = session.settings;
    const long all = long{limits.login_seconds} + limits.transfer_seconds;
    options.set(CURLOPT_PROTOCOLS_STR, "ftp");
    options.set(CURLOPT_PROXY, "");
    options.set(CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
    options.set(CURLOPT_FOLLOWLOCATION, 0L);
    options.set(CURLOPT_USE_SSL, long{CURLUSESSL_NONE});
    options.set(CURLOPT_NOSIGNAL, 1L);
    // The limits are kept here: libcurl counts a command behind the login as
    // part of it, and does not say which limit was passed.
    options.set(CURLOPT_CONNECTTIMEOUT, all);
    options.set(CURLOPT_TIMEOUT, all);
    options.set(CURLOPT_SERVER_RESPONSE_TIMEOUT, all);
    // There is one address. After this long, libcurl would try another one, and
    // now and then looks at a new connection no earlier.
    options.set(CURLOPT_HAPPY_EYEBALLS_TIMEOUT_MS, 1L);
    options.set(CURLOPT_FORBID_REUSE, 1L);
    options.set(CURLOPT_USERNAME, who.user.c_str());
    options.set(CURLOPT_PASSWORD,
                who.password.empty() ? "anonymous@" : who.password.c_str());
}

void set_ftp(Options &options) {
    options.set(CURLOPT_PATH_AS_IS, 1L);
    options.set(CURLOPT_FTP_FILEMETHOD, long{CURLFTPMETHOD_NOCWD});
    options.set(CURLOPT_FTP_CREATE_MISSING_DIRS, long{CURLFTP_CREATE_DIR_NONE});
    options.set(CURLOPT_FTP_SKIP_PASV_IP, 1L);
    options.set(CURLOPT_FTP_USE_EPSV, 1L);
    options.set(CURLOPT_FTPPORT, static_cast<const char *>(nullptr));
    options.set(CURLOPT_TRANSFERTEXT, 0L);
    // The size is asked for and judged here: libcurl would stop there, and not
    // see what comes behind.
    options.set(CURLOPT_IGNORE_CONTENT_LENGTH, 1L);
}

void set_callbacks(Options &options, Session &session) {
    options.set(CURLOPT_VERBOSE, 1L);
    options.set(CURLOPT_DEBUGFUNCTION, take_command);
    options.set(CURLOPT_DEBUGDATA, &session);
    options.set(CURLOPT_HEADERFUNCTION, take_line);
    options.set(CURLOPT_HEADERDATA, &session);
    options.set(CURLOPT_NOPROGRESS, 0L);
    options.set(CURLOPT_XFERINFOFUNCTION, watch);
    options.set(CURLOPT_XFERINFODATA, &session);
    options.set(CURLOPT_READFUNCTION, read_file);
    options.set(CURLOPT_READDATA, &session);
    options.set(CURLOPT_WRITEFUNCTION, write_file);
    options.set(CURLOPT_WRITEDATA, &session);
    options.set(CURLOPT_OPENSOCKETFUNCTION, open_socket);
    options.set(CURLOPT_OPENSOCKETDATA, &session);
    options.set(CURLOPT_CLOSESOCKETFUNCTION, close_socket);
    options.set(CURLOPT_CLOSESOCKETDATA, &session);
}

// The size of the file is asked for before it comes, or after it has gone.
void set_direction(Options &options, const Session &session,
                   struct curl_slist *size) {
    if (!session.copy.upload) {
        options.set(CURLOPT_PREQUOTE, size);
        return;
    }
    options.set(CURLOPT_UPLOAD, 1L);
    options.set(CURLOPT_INFILESIZE_LARGE,
                static_cast<curl_off_t>(session.source_size));
    options.set(CURLOPT_POSTQUOTE, size);
}

CURLcode perform(Session &session, long &os_error) {
    // The asterisk: it is no error that the server does not know that.
    std::unique_ptr<struct curl_slist, CurlEnd> size(
        curl_slist_append(nullptr, ("*SIZE " + session.remote).c_str()));
    if (!size || curl_global_init(CURL_GLOBAL_NOTHING) != CURLE_OK)
        return CURLE_OUT_OF_MEMORY;
    std::unique_ptr<CURL, CurlEnd> curl(curl_easy_init());
    if (!curl)
        return CURLE_OUT_OF_MEMORY;
    const std::string url = url_of(curl.get(), session);
    Options options(curl.get());
    options.set(CURLOPT_URL, url.c_str());
    set_session(options, session);
    set_ftp(options);
    set_callbacks(options, session);
    set_direction(options, session, size.get());
    if (!options.good())
        return CURLE_FAILED_INIT;
    allow(session, session.settings.login_seconds);
    const CURLcode result = curl_easy_perform(curl.get());
    alarm(0);
    curl_easy_getinfo(curl.get(), CURLINFO_OS_ERRNO, &os_error);
    return result;
}

// ---- What came of it --------------------------------------------------------

Outcome end_of_session(CURLcode result, long os_error) {
    switch (result) {
    case CURLE_OPERATION_TIMEDOUT:
        return Outcome::timeout;
    case CURLE_LOGIN_DENIED:
        return Outcome::login;
    case CURLE_COULDNT_CONNECT:
        return os_error == ETIMEDOUT ? Outcome::timeout : Outcome::connection;
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_GOT_NOTHING:
        return Outcome::connection;
    default:
        return Outcome::other;
    }
}

uint64_t moved(const Session &session) {
    return session.copy.upload ? session.sent.octets() : session.received;
}

bool is_whole(const Session &session) {
    const FtpReplies &replies = session.replies;
    if (!session.copy.upload)
        return replies.received(moved(session));
    return moved(session) == session.source_size &&
           replies.stored(moved(session)) && !session.torn;
}

// Where it was when it ended.
Step step_of(const Session &session, CURLcode result) {
    if (session.replies.logged_in())
        return Step::transfer;
    return result == CURLE_COULDNT_CONNECT ? Step::connection : Step::login;
}

// Why a file is not whole though nobody has said that something failed.
std::string what_is_missing(const Session &session) {
    const FtpReplies &replies = session.replies;
    if (replies.strange_size())
        return "the server told a size that is no number of octets";
    if (replies.size() && *replies.size() != moved(session))
        return "the server told a size of " + std::to_string(*replies.size()) +
               " octets, and " + std::to_string(moved(session)) + " were moved";
    return "the server did not show that it had the whole file";
}

std::string reason_of(const Session &session, CURLcode result, long os_error) {
    if (session.torn)
        return "the connection broke before the server had taken everything";
    if (result == CURLE_OK)
        return what_is_missing(session);
    return os_error != 0 ? strerror(static_cast<int>(os_error))
                         : curl_easy_strerror(result);
}

Failed failure(const Session &session, CURLcode result, long os_error) {
    if (session.stopped)
        return *session.stopped;
    const FtpReplies &replies = session.replies;
    if (!replies.sensible())
        return failure_of(Outcome::other)
            .because("the server said what is no reply, or too much")
            .quote(replies.last());
    if (replies.failure() != Outcome::done)
        return failure_of(replies.failure()).quote(replies.last());
    return failure_of(session.torn ? Outcome::connection
                                   : end_of_session(result, os_error))
        .because(reason_of(session, result, os_error));
}

// Throws Failed unless the file has been moved whole.
void run(Session &session) {
    long os_error = 0;
    const CURLcode result = perform(session, os_error);
    const FtpReplies &replies = session.replies;
    if (hung_up != 0)
        late(session);
    if (!session.stopped && replies.sensible() && result == CURLE_OK &&
        is_whole(session))
        return;
    throw failure(session, result, os_error)
        .at(step_of(session, result))
        .after(moved(session));
}

void put(Session &session) {
    const Fd source = source_of(session.copy.local);
    struct stat found;
    if (fstat(source.get(), &found) != 0)
        throw source_failure(Outcome::bad_name);
    session.source = source.get();
    session.source_size = static_cast<uint64_t>(found.st_size);
    run(session);
    tell(session.sent.report());
}

void get(Session &session) {
    Destination destination(session.settings, session.copy.local);
    const PartPath path(destination.part());
    session.destination = &destination.file();
    run(session);
    destination.keep();
}

// ---- Arguments --------------------------------------------------------------

// Telnet, which FTP's commands are sent by, has a meaning for octet 255. A name
// that ends with a slash is a directory's. One must not be taken for an option
// or somebody's home directory.
std::string remote_path(const std::string &name) {
    if (name.ends_with('/') || name.find('\xff') != std::string::npos)
        throw Failed(Outcome::bad_name, "a file name that cannot be sent")
            .at(Step::request);
    return name.starts_with('-') || name.starts_with('~') ? "./" + name : name;
}

} // namespace

void copy_over_ftp(const Settings &settings, const Copy &copy) {
    const Vrf &vrf = copy.login.vrf;
    Session session(settings, copy, remote_path(copy.remote));
    if (vrf.kind == Vrf::Kind::name_space)
        if (const int error = enter_vrf(vrf); error != 0)
            throw vrf_failure(vrf.name, error);
    catch_signals();
    if (copy.upload)
        put(session);
    else
        get(session);
}

} // namespace xfhost
