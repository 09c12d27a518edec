// Where copies are staged: `staging/` in the state directory holds a directory
// for each copy process, which is made empty, is nobody else's, and goes when
// its process has gone. The name of a file comes from a station, so nothing
// else may be in reach of it.
#ifndef HOST_AGENT_STAGING_H
#define HOST_AGENT_STAGING_H

#include <cstddef>

namespace xfhost {

// In a new copy process: makes its directory and enters it. The directory is
// this process's until it ends, however it does. False with errno set.
bool staging_enter();

// Removes the directories whose processes have ended, with all that they hold.
// Returns how many are left, because their processes live; not 0 either if it
// cannot be told for want of memory or descriptors.
size_t staging_sweep();

} // namespace xfhost

#endif
