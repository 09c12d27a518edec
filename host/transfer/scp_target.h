// The arguments of SCP.
#ifndef HOST_TRANSFER_SCP_TARGET_H
#define HOST_TRANSFER_SCP_TARGET_H

#include <string>
#include <string_view>

namespace xfhost {

// user@address:name in its three parts, the address without brackets. The
// address begins behind the first @ that one follows. An IPv6 address is as
// long as it can be: of fe80::1:2:name, fe80::1:2.
struct Target {
    std::string user, server, name;
};

// Throws Failed if the text is no target.
Target split_target(std::string_view text);

// Which of two arguments is the target is told by a local path's slash, or else
// by the target's own form.
bool is_target(std::string_view text);

} // namespace xfhost

#endif
