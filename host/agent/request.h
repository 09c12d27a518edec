// Who is asking: session, user and context of the request in progress. A child
// that was forked while the request was served has its own copy of all of it.
//
// platform/agent_ext.h has the calls for a module; these are for where no
// handler of a module is running.
#ifndef HOST_AGENT_REQUEST_H
#define HOST_AGENT_REQUEST_H

#include <string>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

namespace xfhost {

// The user of a request: that of SNMPv3, or the name that its community stands
// for. Empty without a request.
std::string request_user(const netsnmp_pdu *pdu);

// The VRF that its context names, or the default one; empty if there is none.
std::string request_vrf(const netsnmp_pdu *pdu);

} // namespace xfhost

#endif
