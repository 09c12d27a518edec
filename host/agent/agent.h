// The platform's life inside a hosting agent.
//
// It begins with the module's first register_for_notification, while the agent
// reads its configuration: agent_start. Nothing of it runs in a process that
// only links the library.
#ifndef HOST_AGENT_AGENT_H
#define HOST_AGENT_AGENT_H

namespace xfhost {

// Comes alive in the agent, once: the access point, the watches of the main
// loop, the configuration token. False if the agent's access point could not be
// bound; the next call tries again.
bool agent_start();

// Delivers the messages that wait at the agent's access point.
void agent_drain();

// Binds the access point if that has not been done, and makes it anew if its
// socket has gone from the run directory. False if another agent has it: then
// no end of a copy or of a save would be heard of.
bool agent_keep_access_point();

// In a forked child: the access point is the agent's, not ours.
void agent_abandon();

} // namespace xfhost

#endif
