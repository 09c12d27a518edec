// ovan-tftp 1|0 SERVER PORT LOCAL REMOTE 1 [VRF]: sends (1) or fetches (0) a
// file. Port 69 is the configured port of servers. The 1 behind the names asks
// for octet mode, the only one there is. The VRF is a name, its default the
// network of the caller.
#include <cerrno>
#include <charconv>
#include <climits>
#include <string_view>

#include <unistd.h>

#include "host/transfer/transfer.h"
#include "platform/tftp.h"

using namespace xfhost;

namespace {

constexpr int answer_seconds = 20;
constexpr int standard_port = 69;

Outcome outcome_of(int result) {
    switch (result) {
    case -1:
    case -2:
    case -(100 + ENOENT):
        return Outcome::bad_name;
    case -3:
        return Outcome::no_space;
    case -(100 + ETIMEDOUT):
        return Outcome::timeout;
    default:
        return Outcome::other;
    }
}

[[noreturn]] void usage() {
    throw Failed(Outcome::usage,
                 "usage: ovan-tftp 1|0 SERVER PORT LOCAL REMOTE 1 [VRF]");
}

int parse_port(std::string_view text) {
    int port = 0;
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end || port < 1 || port > 65535)
        usage();
    return port == standard_port ? -1 : port;
}

// Becomes this program once more, in the device and without its name. Returns
// only to tell an error number.
int start_again(const Vrf &vrf, char **argv) {
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length < 0)
        return errno;
    self[length] = 0;
    argv[0] = self;
    argv[7] = nullptr;
    return run_in_vrf(vrf, argv);
}

void enter(char **argv) {
    Vrf vrf;
    const int32_t id = vrf_id(argv[7]);
    if (id == 0 || !find_vrf(id, vrf))
        throw Failed(Outcome::other, "there is no VRF of that name")
            .at(Step::vrf)
            .because(printable(argv[7]) + ": there is no VRF of that name");
    int error =
        vrf.kind == Vrf::Kind::device ? start_again(vrf, argv) : enter_vrf(vrf);
    if (error == EPERM && vrf.kind == Vrf::Kind::name_space)
        error = start_again_in_vrf(vrf, argv);
    if (error != 0)
        throw vrf_failure(argv[7], error);
}

void check(int result) {
    if (result < 0)
        throw Failed(outcome_of(result), tftp_strerror(result));
}

void run(int argc, char **argv) {
    if ((argc != 7 && argc != 8) || std::string_view(argv[6]) != "1")
        usage();
    const int port = parse_port(argv[3]);
    const std::string_view direction = argv[1];
    if (direction != "0" && direction != "1")
        usage();
    if (argc == 8)
        enter(argv);
    check(tftp_timeout_set(answer_seconds));
    check(tftp_connect(argv[2], port));
    check(direction == "1" ? tftp_put2(argv[4], argv[5], 0)
                           : tftp_get2(argv[5], argv[4], 0));
}

} // namespace

int main(int argc, char **argv) {
    return run_program("ovan-tftp", {}, [&] { run(argc, argv); });
}
