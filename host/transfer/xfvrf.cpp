// xfvrf ID PROGRAM [ARGUMENT...]: runs a program in a VRF.
// xfvrf --id NAME: prints the id of a VRF.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "host/base/vrf.h"

using namespace xfhost;

namespace {

constexpr int exit_usage = 125;
constexpr int exit_no_vrf = 126;
constexpr int exit_not_run = 127;

int print_id(const char *name) {
    int32_t id = vrf_id(name);
    if (id == 0) {
        fprintf(stderr, "xfvrf: there is no VRF of that name\n");
        return exit_no_vrf;
    }
    printf("%d\n", id);
    return 0;
}

int usage() {
    fprintf(stderr, "usage: xfvrf ID PROGRAM [ARGUMENT...]\n"
                    "       xfvrf --id NAME\n");
    return exit_usage;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 3 && std::string_view(argv[1]) == "--id")
        return print_id(argv[2]);
    if (argc < 3)
        return usage();
    std::string_view text = argv[1];
    const char *end = text.data() + text.size();
    int32_t id = 0;
    auto [stop, error] = std::from_chars(text.data(), end, id);
    if (error != std::errc() || stop != end)
        return usage();
    Vrf vrf;
    if (!find_vrf(id, vrf)) {
        fprintf(stderr, "xfvrf: there is no VRF with id %d\n", id);
        return exit_no_vrf;
    }
    int reason = run_in_vrf(vrf, argv + 2);
    fprintf(stderr, "xfvrf: %s: %s\n", argv[2], strerror(reason));
    return exit_not_run;
}
