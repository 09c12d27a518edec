// ovan-tftp 1|0 SERVER PORT LOCAL REMOTE 1 [VRF]: sends (1) or fetches (0) a
// file. Port 69 is the configured port of servers. The 1 behind the names asks
// for octet mode, the only one there is. The VRF is a name, its default the
// network of the caller. Exit codes as those of the transfer scripts.
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <unistd.h>

#include "host/base/vrf.h"
#include "platform/tftp.h"

using namespace xfhost;

namespace {

enum {
    exit_timeout = 1,
    exit_bad_name = 2,
    exit_no_space = 3,
    exit_usage = 7,
    exit_failed = 8
};

constexpr int answer_seconds = 20;
constexpr int standard_port = 69;

int exit_code(int result) {
    switch (result) {
    case -1:
    case -2:
    case -(100 + ENOENT):
        return exit_bad_name;
    case -3:
        return exit_no_space;
    case -(100 + ETIMEDOUT):
        return exit_timeout;
    default:
        return exit_failed;
    }
}

int failed(const char *what, const char *why, int code) {
    fprintf(stderr, "ovan-tftp: %s: %s\n", what, why);
    return code;
}

int usage() {
    fprintf(stderr,
            "usage: ovan-tftp 1|0 SERVER PORT LOCAL REMOTE 1 [VRF]\n");
    return exit_usage;
}

bool parse_port(std::string_view text, int &port) {
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end || port < 1 || port > 65535)
        return false;
    if (port == standard_port)
        port = -1;
    return true;
}

// 0, or the exit code. Comes back in a new process image, without the VRF's
// name, if the VRF is a device.
int enter(char **argv) {
    char *name = argv[7];
    Vrf vrf;
    int32_t id = vrf_id(name);
    if (id == 0 || !find_vrf(id, vrf))
        return failed("VRF", "there is none of that name", exit_failed);
    int error = enter_vrf(vrf);
    if (error == ENOTSUP) {
        char self[PATH_MAX];
        ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
        if (length < 0)
            return failed("VRF", strerror(errno), exit_failed);
        self[length] = 0;
        argv[0] = self;
        argv[7] = nullptr;
        error = run_in_vrf(vrf, argv);
    }
    return error == 0 ? 0 : failed("VRF", strerror(error), exit_failed);
}

int transfer(bool send, const char *server, int port, const char *local,
             const char *remote) {
    int result = tftp_timeout_set(answer_seconds);
    if (result >= 0)
        result = tftp_connect(server, port);
    if (result >= 0)
        result = send ? tftp_put2(local, remote, 0)
                      : tftp_get2(remote, local, 0);
    if (result >= 0)
        return 0;
    return failed(server, tftp_strerror(result), exit_code(result));
}

} // namespace

int main(int argc, char **argv) {
    int port = 0;
    if ((argc != 7 && argc != 8) || !parse_port(argv[3], port) ||
        std::string_view(argv[6]) != "1")
        return usage();
    std::string_view direction = argv[1];
    if (direction != "0" && direction != "1")
        return usage();
    if (argc == 8) {
        int code = enter(argv);
        if (code != 0)
            return code;
    }
    return transfer(direction == "1", argv[2], port, argv[4], argv[5]);
}
