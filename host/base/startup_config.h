// The startup configuration, `<state>/startup/system.cfg`.
#ifndef HOST_BASE_STARTUP_CONFIG_H
#define HOST_BASE_STARTUP_CONFIG_H

#include <functional>
#include <string>

#include "host/base/files.h"

namespace xfhost {

constexpr size_t largest_config = size_t{256} << 20;

// The directory of the startup configuration. Empty with errno set.
Fd open_startup_directory();

// Makes `text` the startup configuration and reads it back; writers exclude
// each other. `proceed` as for replace_durably. False with errno set: EIO if
// what was read back differs.
bool keep_startup(const std::string &text,
                  const std::function<bool()> &proceed = {});

} // namespace xfhost

#endif
