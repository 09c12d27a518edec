// Descriptors that snmpd's main loop watches for the platform. All of them hang
// on one epoll descriptor: the agent has room for a few dozen only.
#ifndef HOST_AGENT_EVENT_LOOP_H
#define HOST_AGENT_EVENT_LOOP_H

#include <functional>

namespace xfhost {

// Calls `handler` in the main loop whenever `fd` can be read or its other end
// is gone. False if it cannot be watched.
bool loop_watch(int fd, std::function<void()> handler);

// Ends that; before the descriptor is closed.
void loop_unwatch(int fd);

// In a forked child: forgets everything, without touching the parent's set.
void loop_abandon();

} // namespace xfhost

#endif
