// What the tests of the suite share.
#ifndef TESTS_PLATFORM_SUITE_H
#define TESTS_PLATFORM_SUITE_H

#include <string>

#include <sys/types.h>

namespace suite {

// What the suite was told about the platform; empty if it was not.
struct Options {
    std::string manager;  // program that is the system manager
    std::string accepted; // line of configuration that the shell takes
    std::string refused;  // and one that it does not
    std::string vrf;      // name of a VRF that there is
    int failed_switches;  // of the last save in the fabric; -1: not known
};

const Options &options();

// The library that is tested, as dlopen opened it.
void *library();

// Seconds of the monotonic clock.
double now();

// Exit status of a process; -1 if a signal has ended it.
int exit_status(pid_t child);

} // namespace suite

#endif
