// The startup configuration, `<state>/startup/system.cfg`. With FRR behind the
// shell `frr.conf`, which FRR itself starts with, has the same octets.
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
// what was read back differs, EBADMSG if it has lines that must not be run when
// FRR starts.
bool keep_startup(const std::string &text,
                  const std::function<bool()> &proceed = {});

// The same for what the back end itself has shown.
bool keep_shown(const std::string &text,
                const std::function<bool()> &proceed = {});

// What a person is told if `system.cfg` and FRR's own file differ, because the
// machine stopped between the two or somebody else wrote one; empty if they are
// alike, or if there is only one by the settings.
std::string startup_difference();

// While a text is applied all or nothing, the configuration of before is in the
// state directory. It stays there if that was cut off. False with errno set.
bool keep_before(const std::string &text);
void forget_before();

// What a person is told if it was cut off; empty if not.
std::string left_by_apply();

} // namespace xfhost

#endif
