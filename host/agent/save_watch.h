// The save that the system manager was asked for: the module waits for a
// message at its end, and a system manager that died sends none. The agent side
// watches the process that holds the access point and delivers a failure in its
// place.
#ifndef HOST_AGENT_SAVE_WATCH_H
#define HOST_AGENT_SAVE_WATCH_H

#include <cstdint>
#include <vector>

#include "host/ipcbus/wire.h"

namespace xfhost {

// Watches every save that this process asks for from now on.
void save_watch_start();

// The response queue tells what goes out on it and what comes in; other
// messages than those of a save mean nothing here.
//
// Before a message is sent to an access point. False with errno set if it must
// not be: the end of that save would not come to this agent.
bool save_watch_permits(const WireMessage &message, uint32_t sap);

// After it was sent.
void save_watch_sent(const WireMessage &message, uint32_t sap);

// Whether an answer is for the save that is waited for: one that came after the
// module gave up must not answer its next request. Any other answer than
// "accepted" is the end of the save.
bool save_watch_awaits(const WireMessage &answer);

// In a forked child: what is watched is the agent's.
void save_watch_abandon();

// A message with this payload says that a save has ended. False if it speaks of
// a save that nobody waits for any more, by the token in its second word; a
// payload without a token speaks of the one that is waited for.
bool save_watch_ends(const std::vector<uint8_t> &payload);

} // namespace xfhost

#endif
