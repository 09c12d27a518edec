// Addresses and their texts, and the management port.
#include "platform/netaddr.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include "host/base/settings.h"
#include "host/errors.h"

using namespace xfhost;

namespace {

using Interfaces = std::unique_ptr<struct ifaddrs, decltype(&freeifaddrs)>;

Interfaces interfaces() {
    struct ifaddrs *list = nullptr;
    return {getifaddrs(&list) == 0 ? list : nullptr, freeifaddrs};
}

bool same(const ip_addr &a, const ip_addr &b) {
    return a.type == b.type && memcmp(a.octets, b.octets, 16) == 0;
}

// False if the socket address is of no family that we know.
bool from_socket(const struct sockaddr *from, ip_addr &to) {
    to = {};
    if (from != nullptr && from->sa_family == AF_INET) {
        struct sockaddr_in v4;
        memcpy(&v4, from, sizeof v4);
        to.type = INET_ADDRESS_IPV4;
        memcpy(to.octets, &v4.sin_addr, 4);
    } else if (from != nullptr && from->sa_family == AF_INET6) {
        struct sockaddr_in6 v6;
        memcpy(&v6, from, sizeof v6);
        to.type = INET_ADDRESS_IPV6;
        memcpy(to.octets, &v6.sin6_addr, 16);
    }
    return to.type != INET_ADDRESS_UNKNOWN;
}

uint32_t interface_with(const ip_addr &address) {
    Interfaces list = interfaces();
    for (struct ifaddrs *each = list.get(); each; each = each->ifa_next) {
        ip_addr found;
        if (from_socket(each->ifa_addr, found) && same(found, address))
            return if_nametoindex(each->ifa_name);
    }
    return 0;
}

// IPv4 before IPv6, link-local addresses last.
int rank(const ip_addr &address) {
    if (address.type == INET_ADDRESS_IPV4)
        return 0;
    bool link_local =
        address.octets[0] == 0xfe && (address.octets[1] & 0xc0) == 0x80;
    return link_local ? 2 : 1;
}

std::vector<ip_addr> addresses_of(uint32_t if_index) {
    std::vector<ip_addr> result;
    Interfaces list = interfaces();
    for (struct ifaddrs *each = list.get(); each; each = each->ifa_next) {
        ip_addr found;
        if (if_nametoindex(each->ifa_name) == if_index &&
            from_socket(each->ifa_addr, found))
            result.push_back(found);
    }
    std::stable_sort(
        result.begin(), result.end(),
        [](const auto &a, const auto &b) { return rank(a) < rank(b); });
    return result;
}

void put_first(std::vector<ip_addr> &list, const ip_addr &address) {
    std::erase_if(list, [&](const auto &each) { return same(each, address); });
    list.insert(list.begin(), address);
}

// NULL when there is no memory.
if_inet_addrs *as_list(const std::vector<ip_addr> &addresses) {
    size_t size = offsetof(if_inet_addrs, addrs) +
                  std::max<size_t>(addresses.size(), 1) * sizeof(ip_addr);
    auto list = static_cast<if_inet_addrs *>(calloc(1, size));
    if (list == nullptr)
        return nullptr;
    list->count = static_cast<uint32_t>(addresses.size());
    std::copy(addresses.begin(), addresses.end(), list->addrs);
    return list;
}

} // namespace

int ip_addr_to_str(const struct ip_addr *address, char *text, uint32_t size) {
    ip_addr copy = *address; // the text may lie where the address does
    if (copy.type != INET_ADDRESS_IPV4 && copy.type != INET_ADDRESS_IPV6)
        return static_cast<int>(err_address_type);
    int family = copy.type == INET_ADDRESS_IPV4 ? AF_INET : AF_INET6;
    if (inet_ntop(family, copy.octets, text, size) == nullptr)
        return static_cast<int>(err_address_text);
    return 0;
}

int ip_addr_from_str(const char *text, struct ip_addr *address) {
    ip_addr parsed = {};
    if (inet_pton(AF_INET, text, parsed.octets) == 1)
        parsed.type = INET_ADDRESS_IPV4;
    else if (inet_pton(AF_INET6, text, parsed.octets) == 1)
        parsed.type = INET_ADDRESS_IPV6;
    else
        return static_cast<int>(err_address_text);
    *address = parsed;
    return 0;
}

int if_index_mgmt_sup_port_init(uint32_t *if_index, int, int) {
    *if_index = 0;
    const Settings *s = settings();
    if (s != nullptr && !s->management_interface.empty()) {
        *if_index = if_nametoindex(s->management_interface.c_str());
    } else if (s != nullptr && !s->management_address.empty()) {
        ip_addr address;
        if (ip_addr_from_str(s->management_address.c_str(), &address) == 0)
            *if_index = interface_with(address);
    }
    return *if_index != 0 ? 0 : static_cast<int>(err_no_management_port);
}

int ipconf_get_if_inet_addrs(ipcbus_handle, uint32_t if_index,
                             struct if_inet_addrs **addresses) {
    *addresses = nullptr;
    const Settings *s = settings();
    if (s == nullptr || if_index == 0)
        return static_cast<int>(err_no_management_port);
    try {
        std::vector<ip_addr> list = addresses_of(if_index);
        ip_addr primary;
        if (!s->management_address.empty() &&
            ip_addr_from_str(s->management_address.c_str(), &primary) == 0)
            put_first(list, primary);
        *addresses = as_list(list);
    } catch (const std::bad_alloc &) {
    }
    return *addresses != nullptr ? 0 : static_cast<int>(err_no_management_port);
}
