// SIGINT, SIGTERM and SIGHUP: noticed while the program waits, and nowhere
// else.
#ifndef XFCOPY_SIGNALS_H
#define XFCOPY_SIGNALS_H

#include <chrono>

#include <signal.h>

namespace xfcopy {

// Holds the signals back from now on; one that was ignored stays ignored.
// SIGPIPE is ignored: an end of the output is no reason to leave a row behind.
void hold_signals();

// The signal mask to wait with.
const sigset_t &waiting_mask();

// The signal that came, 0 if none did.
int interrupting_signal();
void forget_signal();

enum class Wait { ready, time_is_up, interrupted };

// Waits until there is something to read from `fd`; with -1 only for the time.
Wait wait_for(int fd, std::chrono::milliseconds time);

} // namespace xfcopy

#endif
