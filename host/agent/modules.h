// The MIB modules that subscribed to messages, and what a stock agent leaves
// undone for them when it unloads and loads them again.
#ifndef HOST_AGENT_MODULES_H
#define HOST_AGENT_MODULES_H

#include <optional>
#include <string>
#include <vector>

#include "platform/agent_ext.h"

namespace xfhost {

// A module has subscribed: keeps it mapped for good, because its alarms and
// callbacks outlive its unloading, and leaves it exactly one start-time
// callback. Returns a name for the module, NULL if it cannot be told.
const void *module_loaded(notification_handler *handler);

// A module's last subscription has ended: the columns that it left registered
// are unregistered.
void module_unloaded(const void *module);

// The octets of an instance of a module's column, as the module has them in
// memory; nothing if there is none. For use while a module serves a SET, too.
std::optional<std::string> read_instance(const std::vector<oid> &column,
                                         oid index);

// Whether the request in progress is a SET that a module which subscribed has
// a part in.
bool module_serves_set();

// From now on, a request whose context is the name of a VRF finds the modules'
// objects there: a stock agent knows no context that nothing is registered in.
// Names that are no VRF stay unknown to it.
bool modules_watch_contexts();

// Switches the debug log of every module that has one.
void modules_set_debug(bool on);

} // namespace xfhost

#endif
