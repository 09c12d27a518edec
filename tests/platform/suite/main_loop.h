// The test in the place of the agent's main loop.
#ifndef TESTS_PLATFORM_MAIN_LOOP_H
#define TESTS_PLATFORM_MAIN_LOOP_H

#include "platform/agent_ext.h"

namespace suite {

// One turn; waits at most a tenth of a second for something to do.
void turn();

} // namespace suite

// Turns until `done` says so, for ten seconds at most; false if it never did.
template <typename Done> bool turn_until(Done done) {
    for (int i = 0; i < 100 && !done(); i++)
        suite::turn();
    return done();
}

#endif
