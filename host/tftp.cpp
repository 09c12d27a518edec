// TFTP on libcurl: octet mode, with the block size negotiated.
#include "platform/tftp.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>

#include <arpa/inet.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/files.h"
#include "host/base/part_file.h"
#include "host/base/settings.h"

using namespace xfhost;

namespace {

constexpr long block_size = 1428; // an Ethernet frame with IPv6 holds it

struct Server {
    std::string address;
    int port = 0;
    int packet_seconds = 20;
} server;

int system_error(int number) {
    return -(100 + number);
}

double now_seconds() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) +
           static_cast<double>(now.tv_nsec) / 1e9;
}

// One transfer, as the callbacks see it.
struct Transfer {
    Fd file;
    int file_error = 0; // of the local file
    bool stalled = false;
    curl_off_t moved = 0;
    double moved_at = 0;
};

size_t read_file(char *buffer, size_t size, size_t count, void *argument) {
    auto transfer = static_cast<Transfer *>(argument);
    ssize_t got = read(transfer->file.get(), buffer, size * count);
    if (got >= 0)
        return static_cast<size_t>(got);
    transfer->file_error = errno;
    return CURL_READFUNC_ABORT;
}

size_t write_file(char *buffer, size_t size, size_t count, void *argument) {
    auto transfer = static_cast<Transfer *>(argument);
    if (write_whole(transfer->file.get(), {buffer, size * count}))
        return size * count;
    transfer->file_error = errno;
    return size * count == 0 ? 1 : 0;
}

// libcurl bounds the whole transfer; this bounds the wait for each answer, also
// in the middle.
int watch_progress(void *argument, curl_off_t, curl_off_t down, curl_off_t,
                   curl_off_t up) {
    auto transfer = static_cast<Transfer *>(argument);
    double now = now_seconds();
    if (down + up != transfer->moved || transfer->moved_at <= 0) {
        transfer->moved = down + up;
        transfer->moved_at = now;
    }
    transfer->stalled = now - transfer->moved_at > server.packet_seconds;
    return transfer->stalled ? 1 : 0;
}

int code_of(CURLcode result, const Transfer &transfer, long os_error) {
    if (result == CURLE_OK)
        return 0;
    if (transfer.file_error != 0)
        return system_error(transfer.file_error);
    if (transfer.stalled)
        return system_error(ETIMEDOUT);
    switch (result) {
    case CURLE_TFTP_NOTFOUND:
        return -1;
    case CURLE_TFTP_PERM:
        return -2;
    case CURLE_REMOTE_DISK_FULL:
        return -3;
    case CURLE_TFTP_ILLEGAL:
        return -4;
    case CURLE_TFTP_UNKNOWNID:
        return -5;
    case CURLE_REMOTE_FILE_EXISTS:
        return -6;
    case CURLE_TFTP_NOSUCHUSER:
        return -7;
    case CURLE_OPERATION_TIMEDOUT:
        return system_error(ETIMEDOUT);
    case CURLE_OUT_OF_MEMORY:
        return system_error(ENOMEM);
    default:
        break;
    }
    if (os_error > 0)
        return system_error(static_cast<int>(os_error));
    return system_error(result == CURLE_COULDNT_CONNECT ? ETIMEDOUT : EPROTO);
}

// The remote name must arrive as it is: every octet that means something in a
// URL is escaped, the slashes and the start of a ";mode=" included.
std::string url_of(CURL *curl, const char *remote) {
    char *escaped = curl_easy_escape(curl, remote, 0);
    if (escaped == nullptr)
        throw std::bad_alloc();
    std::string name(escaped);
    curl_free(escaped);
    bool v6 = server.address.find(':') != std::string::npos;
    return "tftp://" + (v6 ? "[" + server.address + "]" : server.address) +
           ":" + std::to_string(server.port) + "/" + name;
}

void set_common(CURL *curl, const std::string &url, Transfer &transfer) {
    const Settings *s = settings();
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "tftp");
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(curl, CURLOPT_TFTP_BLKSIZE, block_size);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, long{server.packet_seconds});
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, long{s->tftp_total_seconds});
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, watch_progress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);
}

using Setup = void(CURL *curl, Transfer &transfer);

void set_upload(CURL *curl, Transfer &transfer) {
    struct stat st = {};
    fstat(transfer.file.get(), &st);
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, read_file);
    curl_easy_setopt(curl, CURLOPT_READDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE,
                     static_cast<curl_off_t>(st.st_size));
}

void set_download(CURL *curl, Transfer &transfer) {
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, write_file);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
}

CURLcode perform_once(CURL *curl, const char *remote, Transfer &transfer,
                      Setup *setup, bool options) {
    set_common(curl, url_of(curl, remote), transfer);
    curl_easy_setopt(curl, CURLOPT_TFTP_NO_OPTIONS, options ? 0L : 1L);
    setup(curl, transfer);
    return curl_easy_perform(curl);
}

// A server may dislike options, and libcurl dislikes one answer to them: that a
// file to fetch is empty. Both end before anything has moved.
bool worth_without_options(CURLcode result, const Transfer &transfer) {
    return (result == CURLE_TFTP_ILLEGAL ||
            (result == CURLE_ABORTED_BY_CALLBACK && !transfer.stalled)) &&
           transfer.moved == 0 && transfer.file_error == 0;
}

int perform(const char *remote, Transfer &transfer, Setup *setup) {
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_NOTHING);
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(
        ready == CURLE_OK ? curl_easy_init() : nullptr, curl_easy_cleanup);
    if (!curl)
        return system_error(ENOMEM);
    CURLcode result = perform_once(curl.get(), remote, transfer, setup, true);
    if (worth_without_options(result, transfer))
        result = perform_once(curl.get(), remote, transfer, setup, false);
    long os_error = 0;
    curl_easy_getinfo(curl.get(), CURLINFO_OS_ERRNO, &os_error);
    return code_of(result, transfer, os_error);
}

int check_call(const char *remote) {
    if (settings() == nullptr || remote == nullptr || *remote == 0)
        return system_error(EINVAL);
    return server.address.empty() ? system_error(ENOTCONN) : 0;
}

int put(const char *local, const char *remote) {
    Transfer transfer;
    transfer.file =
        Fd(open(local, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat st;
    if (!transfer.file || fstat(transfer.file.get(), &st) != 0)
        return system_error(errno);
    if (!S_ISREG(st.st_mode))
        return system_error(EINVAL);
    return perform(remote, transfer, set_upload);
}

// The file appears under its name when it is whole.
int get(const char *remote, const std::string &local) {
    size_t slash = local.rfind('/');
    std::string folder =
        slash == std::string::npos ? "" : local.substr(0, slash + 1);
    std::string part = folder + ".tftp-" + std::to_string(getpid()) + ".part";
    Transfer transfer;
    transfer.file = open_part(folder.empty() ? "." : folder, part);
    if (!transfer.file)
        return system_error(errno);
    int result = perform(remote, transfer, set_download);
    if (result == 0) {
        int error = keep_part(transfer.file, part, local);
        result = error == 0 ? 0 : system_error(error);
    }
    if (result != 0)
        unlink(part.c_str());
    return result;
}

} // namespace

int tftp_timeout_set(int seconds) {
    const Settings *s = settings();
    if (s == nullptr || seconds <= 0)
        return system_error(EINVAL);
    server.packet_seconds = seconds;
    if (s->tftp_packet_seconds > 0)
        server.packet_seconds = std::min(seconds, s->tftp_packet_seconds);
    return 0;
}

int tftp_connect(const char *address, int port) {
    unsigned char octets[16];
    const Settings *s = settings();
    if (s == nullptr || port < -1 || port == 0 || port > 65535)
        return system_error(EINVAL);
    if (inet_pton(AF_INET, address, octets) != 1 &&
        inet_pton(AF_INET6, address, octets) != 1)
        return system_error(EINVAL);
    try {
        server.address = address;
    } catch (const std::bad_alloc &) {
        return system_error(ENOMEM);
    }
    server.port = port == -1 ? s->tftp_port : port;
    return 0;
}

int tftp_put2(const char *local, const char *remote, int) {
    int error = check_call(remote);
    if (error != 0)
        return error;
    try {
        return put(local, remote);
    } catch (const std::bad_alloc &) {
        return system_error(ENOMEM);
    }
}

int tftp_get2(const char *remote, const char *local, int) {
    int error = check_call(remote);
    if (error != 0)
        return error;
    try {
        return get(remote, local);
    } catch (const std::bad_alloc &) {
        return system_error(ENOMEM);
    }
}

const char *tftp_strerror(int code) {
    static char text[64];
    constexpr const char *protocol[] = {
        "success",         "file not found",     "access violation",
        "disk full",       "illegal operation",  "unknown transfer id",
        "the file exists", "no such user there",
    };
    if (code >= 0)
        return protocol[0];
    if (code > -8)
        return protocol[-code];
    if (code < -100)
        return strerror(-code - 100);
    snprintf(text, sizeof text, "TFTP error %d", -code);
    return text;
}
