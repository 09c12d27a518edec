// File names that a shell would act on, on the chassis types where one sees
// them: the module builds the command line of its TFTP program there with the
// name between double quotes and nothing more.
#ifndef HOST_AGENT_NAME_GUARD_H
#define HOST_AGENT_NAME_GUARD_H

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace xfhost {

// Puts the guard in front of a file name column, if it is not there yet: a SET
// of such a name is answered with wrongValue and the module never sees it. The
// protocol does not matter, because it may be set later. Nothing is put there
// on other chassis types, or where the setting shell_names allows such names.
// False if there is no memory.
bool guard_names(netsnmp_handler_registration *column);

} // namespace xfhost

#endif
