// Work beside the main loop.
#ifndef HOST_BASE_ASIDE_H
#define HOST_BASE_ASIDE_H

#include <csignal>
#include <exception>
#include <thread>
#include <utility>

namespace xfhost {

// Has a thread of its own do something, for which nobody waits. Signals are for
// the thread that turns the main loop. False if there is no thread to be had,
// or no memory: then it is not done.
template <typename Work> bool do_aside(Work work) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    bool started = true;
    try {
        std::thread(std::move(work)).detach();
    } catch (const std::exception &) {
        started = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

} // namespace xfhost

#endif
