#include "suite.h"
#include "files.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include <getopt.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

suite::Options given = {"", "", "", "", -1};
void *tested = nullptr;

constexpr const char *usage =
    "usage: platform_tests [--library=FILE] [OPTION...] [--gtest_...]\n"
    "  --library=FILE       the library to test; otherwise libxfplatform.so.1\n"
    "                       from where LD_LIBRARY_PATH says\n"
    "  --manager=PROGRAM    starts the system manager\n"
    "  --accepted=LINE      of configuration that the shell takes\n"
    "  --refused=LINE       and one that it refuses\n"
    "  --vrf=NAME           of a VRF that there is\n"
    "  --failed-switches=N  in the last save of the fabric\n"
    "What was not told is not tested: those tests are skipped.\n";

bool parse(int count, char **arguments) {
    const struct option known[] = {
        {"library", required_argument, nullptr, 'l'},
        {"manager", required_argument, nullptr, 'm'},
        {"accepted", required_argument, nullptr, 'a'},
        {"refused", required_argument, nullptr, 'r'},
        {"vrf", required_argument, nullptr, 'v'},
        {"failed-switches", required_argument, nullptr, 'f'},
        {}};
    int option;
    while ((option = getopt_long(count, arguments, "", known, nullptr)) != -1)
        switch (option) {
        case 'l':
            break; // loaded already
        case 'm':
            given.manager = optarg;
            break;
        case 'a':
            given.accepted = optarg;
            break;
        case 'r':
            given.refused = optarg;
            break;
        case 'v':
            given.vrf = optarg;
            break;
        case 'f':
            given.failed_switches = atoi(optarg);
            break;
        default:
            return false;
        }
    return optind == count;
}

} // namespace

namespace suite {

const Options &options() {
    return given;
}

void *library() {
    return tested;
}

double now() {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) +
           static_cast<double>(time.tv_nsec) / 1e9;
}

int exit_status(pid_t child) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace suite

// Called by the program, behind the library.
extern "C" __attribute__((visibility("default"))) int
run_suite(int count, char **arguments, void *library) {
    testing::InitGoogleTest(&count, arguments);
    tested = library;
    if (!parse(count, arguments)) {
        fputs(usage, stderr);
        return 2;
    }
    const std::string &directory = support::directory();
    const pid_t self = getpid();
    const int result = RUN_ALL_TESTS();
    if (self == getpid())
        std::filesystem::remove_all(directory);
    return result;
}
