// A file that gets its name when it is whole, so that a process that is killed
// before leaves nothing behind.
#ifndef HOST_BASE_PART_FILE_H
#define HOST_BASE_PART_FILE_H

#include <string>

#include "host/base/files.h"

namespace xfhost {

// A new file of `directory`, 0600 and open for writing. It has no name yet, or
// `part`, a path in that directory, where the file system has no files without
// one; what an earlier process left there is removed. Empty with errno set.
Fd open_part(const std::string &directory, const std::string &part);

// Puts the file in the place of `local`, a path in the same directory. A file
// cannot be given a name that is taken, so it goes through `part`. Returns 0 or
// an error number; the caller then unlinks `part`.
int keep_part(const Fd &file, const std::string &part,
              const std::string &local);

} // namespace xfhost

#endif
