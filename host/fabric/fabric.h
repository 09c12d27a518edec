// The switches of the fabric, from the operator's file. One switch a line:
//
//   switch NAME wwn 10:00:00:05:1e:34:01:02 address ADDRESS
//          [local | [port N] [user NAME]]
//
// all in one line; # begins a comment. Exactly one of them is local.
#ifndef HOST_FABRIC_FABRIC_H
#define HOST_FABRIC_FABRIC_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/settings.h"

namespace xfhost {

struct FabricSwitch {
    std::string name;
    std::string wwn;     // 16 hexadecimal digits, lower case
    std::string address; // IPv4 or IPv6, as text
    bool local = false;
    int port = 22;
    std::string user; // empty: that of the system manager
};

// Takes the lines of the file. Returns an error text that names the line, empty
// if all was taken.
std::string parse_fabric(std::string_view text,
                         std::vector<FabricSwitch> &switches);

// Reads the file that the settings name. Returns an error text or an empty one.
std::string load_fabric(const Settings &settings,
                        std::vector<FabricSwitch> &switches);

// The world wide name of this switch as 16 digits: from the settings, else from
// the file. Empty if it is not known.
std::string local_wwn(const Settings &settings);

// The octets of such a name; none of an empty one.
std::vector<uint8_t> wwn_octets(const std::string &digits);

} // namespace xfhost

#endif
