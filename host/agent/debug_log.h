// The module's debug log stands in a directory that everybody writes to, under
// a name that everybody can guess. The module opens it by that name; before it
// is told to, the file is made ours, or the log stays off.
#ifndef HOST_AGENT_DEBUG_LOG_H
#define HOST_AGENT_DEBUG_LOG_H

#include <string>

namespace xfhost {

// Where the module of this process writes its debug log.
std::string debug_log_path();

// Makes the file, 0600, or accepts one that is a regular file of ours without
// further names, and takes other people's access to it away. False, with the
// reason in the agent's log, if somebody else's is in its place, or could be
// put there.
bool debug_log_make_private();

} // namespace xfhost

#endif
