// The history of copies, as the agent lives through them: it sees the rows
// whose status is written, their processes, and what the system manager says of
// saves. Nothing here fails a copy: what cannot be noted is logged and missing.
#ifndef HOST_AGENT_HISTORY_H
#define HOST_AGENT_HISTORY_H

#include <cstdint>
#include <vector>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace xfhost {

// Reads the history and shows it, once, unless there is none to be kept. Only
// an agent that has the access point may: the copies of another one would count
// as interrupted.
void history_start();

// At the end of the agent: what it has noted is on the disk.
void history_end();

// The objects of the history are found in this context, too.
void history_offer(const char *context);

// Watches a row status column for copies that are started, if that is not done
// yet. False if there is no memory.
bool history_watch(netsnmp_handler_registration *row_status);

// Around the fork of a copy process: before it; behind it, in the agent; and in
// the process itself, which is told where to report.
void history_forking();
void history_forked();
void history_in_copy_process();

// The copy process has ended without a report, for this reason.
void history_copy_lost(const char *reason);

// The copy has ended with that status, 0 for well.
void history_copy_ended(uint32_t status);

// A save was asked for with this token, and then: answered; told to stop;
// ended, with that payload.
void history_save_sent(uint32_t token);
void history_save_answered(uint32_t token, uint32_t result);
void history_save_stopped(uint32_t token);
void history_save_ended(const std::vector<uint8_t> &payload);

} // namespace xfhost

#endif
