#include "host/history/syncer.h"

#include <cerrno>
#include <csignal>
#include <exception>
#include <thread>

#include "host/history/log.h"

namespace xfhost {

void Syncer::work() {
    State now;
    do {
        state_ = State::busy;
        if (!sync_history(directory_))
            error_ = errno;
        now = State::busy;
    } while (!state_.compare_exchange_strong(now, State::idle));
}

bool Syncer::ask(int directory) {
    directory_ = directory;
    State now = State::busy;
    if (state_.compare_exchange_strong(now, State::asked_again) ||
        now == State::asked_again)
        return true;
    state_ = State::busy;
    // Signals are for the thread that turns the main loop.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    bool started = true;
    try {
        std::thread([this] { work(); }).detach();
    } catch (const std::exception &) { // no thread, or no memory
        state_ = State::idle;
        started = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

} // namespace xfhost
