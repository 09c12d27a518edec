/*
 * Addresses and the management port.
 *
 * Context of all of it: agent. Nothing of it blocks.
 */
#ifndef PLATFORM_NETADDR_H
#define PLATFORM_NETADDR_H

#include <stdint.h>

#include "ipcbus.h"
#include "layout.h"
#include "visibility.h"

/* InetAddressType. */
#define INET_ADDRESS_UNKNOWN 0
#define INET_ADDRESS_IPV4 1
#define INET_ADDRESS_IPV6 2

struct ip_addr {
    int32_t type;       /* INET_ADDRESS_* */
    uint8_t octets[16]; /* network order; IPv4 uses the first 4 */
};

/* Addresses of an interface. */
struct if_inet_addrs {
    uint32_t count;
    struct ip_addr addrs[1]; /* `count` of them */
};

PLATFORM_RECORD_SIZE(ip_addr, 20);
PLATFORM_FIELD_AT(ip_addr, octets, 4);
PLATFORM_RECORD_SIZE(if_inet_addrs, 24);
PLATFORM_FIELD_AT(if_inet_addrs, addrs, 4);

PLATFORM_BEGIN_DECLS

/*
 * Writes an address as text, dotted or with colons, into `text` of `size`
 * octets. Returns 0; an error code if the type is not known or the text does
 * not fit. The address is read completely before the text is written.
 */
int ip_addr_to_str(const struct ip_addr *address, char *text, uint32_t size);

/*
 * Parses dotted IPv4 or IPv6 text; octets not used are set to zero. Returns 0;
 * an error code if the text is neither, with *address then unchanged.
 */
int ip_addr_from_str(const char *text, struct ip_addr *address);

/*
 * Interface index of the switch's management port; both numbers are 0.
 * Returns 0, else an error code; *if_index is 0 after a failure, and the module
 * asks for the addresses of that.
 */
int if_index_mgmt_sup_port_init(uint32_t *if_index, int module, int port);

/*
 * Addresses of an interface, the primary one first. `queue` is
 * ipcbus_response_q, for platforms that ask another process. Returns 0 and a
 * list that was allocated with malloc, for the caller to free; an error code
 * otherwise, for interface 0 as well.
 */
int ipconf_get_if_inet_addrs(ipcbus_handle queue, uint32_t if_index,
                             struct if_inet_addrs **addresses);

PLATFORM_END_DECLS

#endif
