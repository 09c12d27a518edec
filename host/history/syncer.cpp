#include "host/history/syncer.h"

#include <cerrno>

#include "host/base/aside.h"
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
    if (do_aside([this] { work(); }))
        return true;
    state_ = State::idle;
    return false;
}

} // namespace xfhost
