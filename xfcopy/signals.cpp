#include "xfcopy/signals.h"

#include <cerrno>

#include <poll.h>

namespace xfcopy {

namespace {

volatile sig_atomic_t came = 0;
sigset_t open_mask;

void note(int number) {
    came = number;
}

void hold(int number, sigset_t &held) {
    struct sigaction action = {};
    if (sigaction(number, nullptr, &action) != 0 ||
        action.sa_handler == SIG_IGN)
        return;
    action = {};
    action.sa_handler = note;
    sigaction(number, &action, nullptr);
    sigaddset(&held, number);
}

} // namespace

void hold_signals() {
    sigset_t held;
    sigemptyset(&held);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        hold(number, held);
    sigprocmask(SIG_BLOCK, &held, &open_mask);
    signal(SIGPIPE, SIG_IGN);
}

const sigset_t &waiting_mask() {
    return open_mask;
}

int interrupting_signal() {
    return came;
}

void forget_signal() {
    came = 0;
}

Wait wait_for(int fd, std::chrono::milliseconds time) {
    pollfd wanted = {fd, POLLIN, 0};
    const timespec limit = {time.count() / 1000,
                            time.count() % 1000 * 1'000'000};
    if (came != 0)
        return Wait::interrupted;
    const int ready = ppoll(&wanted, 1, &limit, &open_mask);
    if (came != 0)
        return Wait::interrupted;
    return ready > 0 ? Wait::ready : Wait::time_is_up;
}

} // namespace xfcopy
