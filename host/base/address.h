// Addresses as text.
#ifndef HOST_BASE_ADDRESS_H
#define HOST_BASE_ADDRESS_H

#include <string>
#include <string_view>

#include <arpa/inet.h>

namespace xfhost {

// Whether a text is an IPv4 or IPv6 address, without a zone and without
// brackets.
inline bool is_address(std::string_view text) {
    unsigned char octets[sizeof(struct in6_addr)];
    const std::string copy(text);
    return copy.find('\0') == std::string::npos &&
           (inet_pton(AF_INET, copy.c_str(), octets) == 1 ||
            inet_pton(AF_INET6, copy.c_str(), octets) == 1);
}

} // namespace xfhost

#endif
