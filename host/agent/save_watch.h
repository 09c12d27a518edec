// The save that the system manager was asked for: the module waits for a
// message at its end, and a system manager that died sends none. The agent side
// watches the process that holds the access point and delivers a failure in its
// place.
#ifndef HOST_AGENT_SAVE_WATCH_H
#define HOST_AGENT_SAVE_WATCH_H

#include <cstdint>
#include <vector>

namespace xfhost {

// Watches every save that this process asks for from now on.
void save_watch_start();

// In a forked child: what is watched is the agent's.
void save_watch_abandon();

// A message with this payload says that a save has ended. False if it speaks of
// a save that nobody waits for any more, by the token in its second word; a
// payload without a token speaks of the one that is waited for.
bool save_watch_ends(const std::vector<uint8_t> &payload);

} // namespace xfhost

#endif
