// The processes that a module forks while it serves a SET. The module neither
// waits for them nor hears of one that dies without a report; the agent side
// does both.
#ifndef HOST_AGENT_COPY_CHILD_H
#define HOST_AGENT_COPY_CHILD_H

#include <sys/types.h>

namespace xfhost {

// Watches every fork() of this process from now on; false if it cannot.
bool copy_child_watch_forks();

// A copy status message of that process has come. False if the process is not
// ours, but for example a copy process of an agent that was killed: what it
// says is about no copy of ours.
bool copy_child_reported(pid_t pid);

// There is a handler for copy status messages: a failure that came while there
// was none is delivered soon.
void copy_child_subscribed();

} // namespace xfhost

#endif
