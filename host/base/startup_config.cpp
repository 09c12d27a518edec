#include "host/base/startup_config.h"

#include <cerrno>

#include <fcntl.h>

namespace xfhost {

Fd open_startup_directory() {
    Fd state = open_state_directory();
    return state ? open_private_directory_at(state.get(), "startup") : Fd();
}

bool keep_startup(const std::string &text,
                  const std::function<bool()> &proceed) {
    Fd directory = open_startup_directory();
    if (!directory)
        return false;
    Fd lock = lock_file(directory.get(), "system.cfg.lock", true);
    if (!lock || !replace_durably(directory.get(), "system.cfg", text, proceed))
        return false;
    Fd kept = open_private_file(directory.get(), "system.cfg", O_RDONLY);
    std::string again;
    if (!kept || !read_whole(kept.get(), largest_config, again))
        return false;
    if (again != text)
        errno = EIO;
    return again == text;
}

} // namespace xfhost
