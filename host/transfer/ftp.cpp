// snmp.ftp.expect SERVER LOCAL REMOTE USER PASSWORD put [VRF-ID]
// snmp.ftp.expect SERVER REMOTE LOCAL USER PASSWORD get [VRF-ID]
//
// Copies a file by FTP, on libcurl. The name is the one that the module calls;
// there is no Expect in it. It is judged by its exit code; the line that it
// prints on standard error never has the password or a text of the server in
// it.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include <arpa/inet.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "host/base/files.h"
#include "host/base/part_file.h"
#include "host/base/settings.h"
#include "host/base/vrf.h"
#include "host/transfer/ftp_replies.h"

using namespace xfhost;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

// The library looks at the time once a second; this is for when it does not.
constexpr int watchdog_seconds = 3;
// How long a server may take to close a connection on which all was sent, and
// to say why it has closed one before.
constexpr int settle_seconds = 3;
constexpr size_t longest_line = 4096;

struct Request {
    std::string server, local, remote, user;
    char *password = nullptr; // in the argument list
    bool upload = false;
    Vrf vrf;
};

// What ended a copy from our side.
enum class Stop { none, time, too_large, local_file };

// One copy, as the callbacks of libcurl see it.
struct Copy {
    const Request *request = nullptr;
    Fd file;
    int file_error = 0;
    uint64_t octets = 0;    // moved
    uint64_t file_size = 0; // of an upload
    FtpReplies replies;
    Clock::time_point deadline;
    Stop stop = Stop::none;
    int control = -1;
    bool torn = false; // the connection of an upload was reset
};

int finish(TransferEnd how, const char *text) {
    fprintf(stderr, "snmp.ftp.expect: %s\n", text);
    return static_cast<int>(how);
}

// ---- Being ended ------------------------------------------------------------

// A part that has a name, for where the file system has none without.
char part_path[PATH_MAX];

void end_by_signal(int number) {
    constexpr char late[] =
        "snmp.ftp.expect: the server did not answer in time\n";
    constexpr char ended[] = "snmp.ftp.expect: ended by a signal\n";
    const bool timed_out = number == SIGALRM;
    const ssize_t ignored = timed_out
                                ? write(STDERR_FILENO, late, sizeof late - 1)
                                : write(STDERR_FILENO, ended, sizeof ended - 1);
    static_cast<void>(ignored);
    if (part_path[0] != 0)
        unlink(part_path);
    _exit(static_cast<int>(timed_out ? TransferEnd::timeout
                                     : TransferEnd::other));
}

void catch_signals() {
    for (int number : {SIGTERM, SIGINT, SIGHUP, SIGALRM})
        signal(number, end_by_signal);
    signal(SIGPIPE, SIG_IGN);
}

void allow(Copy &copy, int limit) {
    copy.deadline = Clock::now() + seconds(limit);
    alarm(static_cast<unsigned>(limit + watchdog_seconds));
}

bool late(Copy &copy) {
    if (Clock::now() < copy.deadline)
        return false;
    copy.stop = Stop::time;
    return true;
}

// ---- Room -------------------------------------------------------------------

bool has_room(int file, uint64_t octets) {
    struct statvfs fs;
    if (fstatvfs(file, &fs) != 0 || fs.f_blocks == 0)
        return true; // nobody can tell: the write will
    return octets / fs.f_frsize < fs.f_bavail;
}

bool may_come(Copy &copy, uint64_t octets) {
    const auto limit = static_cast<uint64_t>(settings()->download_octets);
    if (octets <= limit && has_room(copy.file.get(), octets))
        return true;
    copy.stop = Stop::too_large;
    return false;
}

// ---- Callbacks --------------------------------------------------------------

size_t read_file(char *buffer, size_t size, size_t count, void *argument) {
    auto copy = static_cast<Copy *>(argument);
    const ssize_t got = read(copy->file.get(), buffer, size * count);
    if (got >= 0) {
        copy->octets += static_cast<uint64_t>(got);
        return static_cast<size_t>(got);
    }
    copy->file_error = errno;
    copy->stop = Stop::local_file;
    return CURL_READFUNC_ABORT;
}

size_t write_file(char *buffer, size_t size, size_t count, void *argument) {
    auto copy = static_cast<Copy *>(argument);
    copy->octets += size * count;
    if (copy->octets > static_cast<uint64_t>(settings()->download_octets)) {
        copy->stop = Stop::too_large;
        return 0;
    }
    if (write_whole(copy->file.get(), {buffer, size * count}))
        return size * count;
    copy->file_error = errno;
    copy->stop = Stop::local_file;
    return 0;
}

// A line of the server.
size_t take_line(char *line, size_t size, size_t count, void *argument) {
    auto copy = static_cast<Copy *>(argument);
    FtpReplies &replies = copy->replies;
    const bool was_in = replies.logged_in();
    if (!replies.said({line, size * count}) || late(*copy))
        return 0;
    if (!was_in && replies.logged_in())
        allow(*copy, settings()->transfer_seconds);
    const bool asked = !copy->request->upload && !replies.began();
    if (asked && (replies.strange_size() ||
                  (replies.size() && !may_come(*copy, *replies.size()))))
        return 0;
    return size * count;
}

// What libcurl sends.
int take_command(CURL *, curl_infotype type, char *data, size_t size,
                 void *argument) {
    if (type == CURLINFO_HEADER_OUT)
        static_cast<Copy *>(argument)->replies.sent({data, size});
    return 0;
}

// Nobody waits for the answer to the last command.
int watch(void *argument, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    auto copy = static_cast<Copy *>(argument);
    return copy->replies.quitting() || late(*copy) ? 1 : 0;
}

bool is_address(const struct sockaddr &address, const std::string &text) {
    unsigned char octets[sizeof(struct in6_addr)];
    const bool v4 = address.sa_family == AF_INET;
    const void *own =
        &reinterpret_cast<const struct sockaddr_in &>(address).sin_addr;
    if (!v4)
        own = &reinterpret_cast<const struct sockaddr_in6 &>(address).sin6_addr;
    return inet_pton(address.sa_family, text.c_str(), octets) == 1 &&
           memcmp(own, octets, v4 ? sizeof(struct in_addr) : sizeof octets) ==
               0;
}

// Whether a socket is in the VRF. A namespace was entered by the process.
bool enters(int fd, const Vrf &vrf) {
    return vrf.kind != Vrf::Kind::device ||
           setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, vrf.name.c_str(),
                      static_cast<socklen_t>(vrf.name.size() + 1)) == 0;
}

// Every connection goes to the server, whatever it says, and in the VRF.
curl_socket_t open_socket(void *argument, curlsocktype,
                          struct curl_sockaddr *address) {
    auto copy = static_cast<Copy *>(argument);
    if (!is_address(address->addr, copy->request->server))
        return CURL_SOCKET_BAD;
    const int fd = socket(address->family, address->socktype | SOCK_CLOEXEC,
                          address->protocol);
    if (fd >= 0 && !enters(fd, copy->request->vrf)) {
        close(fd);
        return CURL_SOCKET_BAD;
    }
    if (copy->control < 0)
        copy->control = fd;
    return fd;
}

bool readable(int fd, Clock::time_point until) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        until - Clock::now());
    struct pollfd ready = {fd, POLLIN, 0};
    return left.count() > 0 &&
           poll(&ready, 1, static_cast<int>(left.count())) > 0;
}

// Whether the server has taken all that was sent on a connection: it closes it
// then, or at least its kernel has acknowledged it for a while.
bool settled(Copy &copy, int fd) {
    if (shutdown(fd, SHUT_WR) != 0)
        return false;
    char octet;
    int waiting = 0;
    Clock::time_point taken = Clock::now();
    while (!late(copy)) {
        if (readable(fd, Clock::now() + std::chrono::milliseconds(100)))
            return recv(fd, &octet, 1, MSG_DONTWAIT) >= 0;
        if (ioctl(fd, SIOCOUTQ, &waiting) != 0 || waiting != 0)
            taken = Clock::now();
        if (Clock::now() - taken > seconds(settle_seconds))
            return true;
    }
    return false;
}

// libcurl gives up with a connection for data that breaks; the server may have
// said why.
void hear_out(Copy &copy, int fd) {
    const auto until =
        std::min(copy.deadline, Clock::now() + seconds(settle_seconds));
    std::string line;
    char octet;
    while (copy.replies.waiting() && line.size() < longest_line &&
           readable(fd, until) && recv(fd, &octet, 1, MSG_DONTWAIT) == 1) {
        line += octet;
        if (octet != '\n')
            continue;
        copy.replies.said(line);
        line.clear();
    }
}

int close_socket(void *argument, curl_socket_t fd) {
    auto copy = static_cast<Copy *>(argument);
    if (fd == copy->control) {
        if (copy->stop == Stop::none)
            hear_out(*copy, fd);
        copy->control = -1;
    } else if (copy->request->upload && copy->replies.began())
        copy->torn = copy->torn || !settled(*copy, fd);
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
std::string url_of(CURL *curl, const Request &request) {
    char *escaped = curl_easy_escape(curl, request.remote.c_str(), 0);
    if (escaped == nullptr)
        throw std::bad_alloc();
    const std::string name(escaped);
    curl_free(escaped);
    const bool v6 = request.server.find(':') != std::string::npos;
    return "ftp://" + (v6 ? "[" + request.server + "]" : request.server) + ":" +
           std::to_string(settings()->ftp_port) + "/" + name;
}

void set_session(Options &options, const Request &request) {
    const long login = settings()->login_seconds;
    const long all = login + settings()->transfer_seconds;
    options.set(CURLOPT_PROTOCOLS_STR, "ftp");
    options.set(CURLOPT_PROXY, "");
    options.set(CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
    options.set(CURLOPT_FOLLOWLOCATION, 0L);
    options.set(CURLOPT_USE_SSL, long{CURLUSESSL_NONE});
    options.set(CURLOPT_NOSIGNAL, 1L);
    options.set(CURLOPT_CONNECTTIMEOUT, login);
    options.set(CURLOPT_TIMEOUT, all);
    options.set(CURLOPT_SERVER_RESPONSE_TIMEOUT, all);
    options.set(CURLOPT_FORBID_REUSE, 1L);
    options.set(CURLOPT_USERNAME, request.user.c_str());
    options.set(CURLOPT_PASSWORD,
                *request.password == 0 ? "anonymous@" : request.password);
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

void set_callbacks(Options &options, Copy &copy) {
    options.set(CURLOPT_VERBOSE, 1L);
    options.set(CURLOPT_DEBUGFUNCTION, take_command);
    options.set(CURLOPT_DEBUGDATA, &copy);
    options.set(CURLOPT_HEADERFUNCTION, take_line);
    options.set(CURLOPT_HEADERDATA, &copy);
    options.set(CURLOPT_NOPROGRESS, 0L);
    options.set(CURLOPT_XFERINFOFUNCTION, watch);
    options.set(CURLOPT_XFERINFODATA, &copy);
    options.set(CURLOPT_READFUNCTION, read_file);
    options.set(CURLOPT_READDATA, &copy);
    options.set(CURLOPT_WRITEFUNCTION, write_file);
    options.set(CURLOPT_WRITEDATA, &copy);
    options.set(CURLOPT_OPENSOCKETFUNCTION, open_socket);
    options.set(CURLOPT_OPENSOCKETDATA, &copy);
    options.set(CURLOPT_CLOSESOCKETFUNCTION, close_socket);
    options.set(CURLOPT_CLOSESOCKETDATA, &copy);
}

// The size of the file is asked for before it comes, or after it has gone.
void set_direction(Options &options, const Copy &copy,
                   struct curl_slist *size) {
    if (!copy.request->upload) {
        options.set(CURLOPT_PREQUOTE, size);
        return;
    }
    options.set(CURLOPT_UPLOAD, 1L);
    options.set(CURLOPT_INFILESIZE_LARGE,
                static_cast<curl_off_t>(copy.file_size));
    options.set(CURLOPT_POSTQUOTE, size);
}

CURLcode perform(Copy &copy, long &os_error) {
    const Request &request = *copy.request;
    // The asterisk: it is no error that the server does not know that.
    std::unique_ptr<struct curl_slist, CurlEnd> size(
        curl_slist_append(nullptr, ("*SIZE " + request.remote).c_str()));
    if (!size || curl_global_init(CURL_GLOBAL_NOTHING) != CURLE_OK)
        return CURLE_OUT_OF_MEMORY;
    std::unique_ptr<CURL, CurlEnd> curl(curl_easy_init());
    if (!curl)
        return CURLE_OUT_OF_MEMORY;
    const std::string url = url_of(curl.get(), request);
    Options options(curl.get());
    options.set(CURLOPT_URL, url.c_str());
    set_session(options, request);
    set_ftp(options);
    set_callbacks(options, copy);
    set_direction(options, copy, size.get());
    explicit_bzero(request.password, strlen(request.password));
    if (!options.good())
        return CURLE_FAILED_INIT;
    allow(copy, settings()->login_seconds);
    const CURLcode result = curl_easy_perform(curl.get());
    alarm(0);
    curl_easy_getinfo(curl.get(), CURLINFO_OS_ERRNO, &os_error);
    return result;
}

// ---- What came of it --------------------------------------------------------

bool no_room(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

TransferEnd end_of_session(CURLcode result, long os_error) {
    switch (result) {
    case CURLE_OPERATION_TIMEDOUT:
        return TransferEnd::timeout;
    case CURLE_LOGIN_DENIED:
        return TransferEnd::login;
    case CURLE_COULDNT_CONNECT:
        return os_error == ETIMEDOUT ? TransferEnd::timeout
                                     : TransferEnd::connection;
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_GOT_NOTHING:
        return TransferEnd::connection;
    default:
        return TransferEnd::other;
    }
}

TransferEnd end_of(const Copy &copy, CURLcode result, long os_error) {
    const FtpReplies &replies = copy.replies;
    if (copy.stop == Stop::time)
        return TransferEnd::timeout;
    if (copy.stop == Stop::too_large || no_room(copy.file_error))
        return TransferEnd::no_space;
    if (copy.stop == Stop::local_file || !replies.sensible())
        return TransferEnd::other;
    const bool whole = copy.request->upload ? copy.octets == copy.file_size &&
                                                  replies.stored(copy.octets)
                                            : replies.received(copy.octets);
    if (result == CURLE_OK && whole && !copy.torn)
        return TransferEnd::done;
    if (replies.failure() != TransferEnd::done)
        return replies.failure();
    if (copy.torn)
        return TransferEnd::connection;
    return end_of_session(result, os_error);
}

const char *text_of(TransferEnd end) {
    switch (end) {
    case TransferEnd::timeout:
        return "the server did not answer in time";
    case TransferEnd::bad_name:
        return "the server has no such file, or does not take it";
    case TransferEnd::no_space:
        return "no space for the file";
    case TransferEnd::login:
        return "the server refused the login";
    case TransferEnd::connection:
        return "the connection failed or was lost";
    default:
        return "the transfer failed";
    }
}

// Comes back with 0 after a success only.
int run(Copy &copy) {
    long os_error = 0;
    const CURLcode result = perform(copy, os_error);
    const TransferEnd end = end_of(copy, result, os_error);
    return end == TransferEnd::done ? 0 : finish(end, text_of(end));
}

// ---- Local files ------------------------------------------------------------

int put(const Request &request) {
    Copy copy;
    copy.request = &request;
    copy.file = Fd(open(request.local.c_str(),
                        O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat st;
    if (!copy.file || fstat(copy.file.get(), &st) != 0 || !S_ISREG(st.st_mode))
        return finish(TransferEnd::bad_name, "the local file cannot be read");
    copy.file_size = static_cast<uint64_t>(st.st_size);
    return run(copy);
}

bool is_directory(const std::string &path) {
    struct stat st;
    return path.ends_with('/') ||
           (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode));
}

// The file appears under its name when it is whole.
int get(const Request &request) {
    const std::string folder =
        request.local.substr(0, request.local.rfind('/') + 1);
    const std::string part =
        folder + ".transfer-" + std::to_string(getpid()) + ".part";
    Copy copy;
    copy.request = &request;
    errno = EISDIR;
    if (!is_directory(request.local) && part.size() < sizeof part_path)
        copy.file = open_part(folder.empty() ? "." : folder, part);
    if (!copy.file)
        return finish(no_room(errno) ? TransferEnd::no_space
                                     : TransferEnd::bad_name,
                      "the local file cannot be written");
    part.copy(part_path, sizeof part_path - 1);
    int code = run(copy);
    const int error = code == 0 ? keep_part(copy.file, part, request.local) : 0;
    if (error != 0)
        code =
            finish(no_room(error) ? TransferEnd::no_space : TransferEnd::other,
                   "the file could not be kept");
    if (code != 0)
        unlink(part.c_str());
    return code;
}

// ---- Arguments --------------------------------------------------------------

bool has_controls(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
    });
}

// Telnet, which FTP's commands are sent by, has a meaning for octet 255. A name
// that ends with a slash is a directory's.
bool is_remote_name(std::string_view name) {
    return !name.empty() && !has_controls(name) && !name.ends_with('/') &&
           name.find('\xff') == std::string_view::npos;
}

// A remote name that is not taken for an option or somebody's home directory.
std::string remote_path(const std::string &name) {
    return name.starts_with('-') || name.starts_with('~') ? "./" + name : name;
}

bool is_address(const char *text) {
    unsigned char octets[sizeof(struct in6_addr)];
    return inet_pton(AF_INET, text, octets) == 1 ||
           inet_pton(AF_INET6, text, octets) == 1;
}

int usage(const char *text) {
    return finish(TransferEnd::usage, text);
}

// 0, or the exit code. Moves this process into a network namespace; into a VRF
// device the sockets are bound.
int enter(const char *text, Vrf &vrf) {
    const std::string_view word = text;
    int32_t id = 0;
    auto [stop, error] = std::from_chars(text, text + word.size(), id);
    if (error != std::errc() || stop != text + word.size() || id < 1 ||
        word.front() == '0')
        return usage("the VRF is no id");
    if (!find_vrf(id, vrf))
        return finish(TransferEnd::other, "there is no VRF with that id");
    if (vrf.kind == Vrf::Kind::name_space && enter_vrf(vrf) != 0)
        return finish(TransferEnd::other, "the VRF cannot be entered");
    return 0;
}

// 0, or the exit code.
int check(Request &request) {
    if (!is_remote_name(request.remote) || request.local.empty() ||
        has_controls(request.local))
        return finish(TransferEnd::bad_name, "a file name that cannot be sent");
    if (request.user.empty() || has_controls(request.user))
        return finish(TransferEnd::login, "a user name that cannot be sent");
    if (has_controls(request.password))
        return finish(TransferEnd::login, "a password that cannot be sent");
    request.remote = remote_path(request.remote);
    return 0;
}

int copy_file(int argc, char **argv) {
    if (argc != 7 && argc != 8)
        return usage("usage: snmp.ftp.expect SERVER LOCAL REMOTE USER PASSWORD "
                     "put | SERVER REMOTE LOCAL USER PASSWORD get [VRF-ID]");
    const std::string_view direction = argv[6];
    if (direction != "put" && direction != "get")
        return usage("neither put nor get");
    if (settings() == nullptr)
        return usage("the settings cannot be read");
    if (!is_address(argv[1]))
        return usage("the server is no IPv4 or IPv6 address");
    Request request;
    request.server = argv[1];
    request.upload = direction == "put";
    request.local = argv[request.upload ? 2 : 3];
    request.remote = argv[request.upload ? 3 : 2];
    request.user = argv[4];
    request.password = argv[5];
    int code = check(request);
    if (code == 0 && argc == 8)
        code = enter(argv[7], request.vrf);
    if (code != 0)
        return code;
    return request.upload ? put(request) : get(request);
}

} // namespace

int main(int argc, char **argv) {
    catch_signals();
    umask(077);
    try {
        return copy_file(argc, argv);
    } catch (const std::bad_alloc &) {
        return finish(TransferEnd::other, "no memory");
    }
}
