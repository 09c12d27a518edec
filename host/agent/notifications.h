// Delivery of platform messages inside the agent.
#ifndef HOST_AGENT_NOTIFICATIONS_H
#define HOST_AGENT_NOTIFICATIONS_H

struct ipcbus_message;

namespace xfhost {

// Gives a message to the handler of its opcode, drops it, and sends the
// notification that the handler asks for. False if there is no handler.
bool deliver(ipcbus_message *message);

} // namespace xfhost

#endif
