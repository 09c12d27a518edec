/*
 * What the hosting SNMP agent offers its MIB modules beyond Net-SNMP itself:
 * platform messages, notifications, and who is asking.
 *
 * The calls about the request in progress also work in a copy child: it is
 * forked while the request is being served, and the request lasts for it.
 */
#ifndef PLATFORM_AGENT_EXT_H
#define PLATFORM_AGENT_EXT_H

#include <stddef.h>
#include <stdint.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "ipcbus.h"
#include "layout.h"
#include "visibility.h"

/* A cross compiler finds the headers of the machine it runs on as well. */
PLATFORM_STATIC_ASSERT(SIZEOF_LONG == sizeof(long),
                       "Net-SNMP's headers are those of another machine");

PLATFORM_BEGIN_DECLS

/*
 * A module's handler of a platform message.
 *
 * message       the message; the agent drops it when the handler has returned.
 * oid_out       room for MAX_OID_LEN sub-identifiers.
 * oid_len_out   on entry, for IPCBUS_OPC_PROCD_COPY_RUN2START_DONE: 0 if the
 *               save ended well, anything else if it failed; 0 for every other
 *               opcode. On return, if a notification is wanted, the length of
 *               the notification OID in oid_out.
 * notify_out    on return 1 if the agent is to send a notification of that
 *               OID with the varbinds returned, else 0.
 *
 * Returns the varbinds, which then belong to the agent, or NULL.
 *
 * Context: agent, from the main loop and never from within a call of the
 * module: what arrives during a SET waits until it is over.
 */
typedef netsnmp_variable_list *
notification_handler(struct ipcbus_message *message, oid *oid_out,
                     size_t *oid_len_out, int *notify_out);

/*
 * Has messages of `opcode` that arrive at the agent's access point given to
 * `handler`; a handler registered earlier for the opcode is replaced.
 * Returns 0; negative if it could not.
 *
 * Context: agent, while the module is initialised. Does not block.
 */
int register_for_notification(uint32_t opcode, notification_handler *handler);

/*
 * Ends that; messages of the opcode are dropped unread from then on. Returns 0;
 * negative if nothing was registered.
 *
 * Context: agent, before the module is unloaded. Does not block.
 */
int unregister_for_notification(uint32_t opcode);

/*
 * Adds a varbind behind `previous`.
 *
 * previous   the last varbind of the list so far, NULL for the first.
 * value      `length` octets, copied: a 32-bit object in native order for the
 *            integer types, octets otherwise.
 * type       ASN_INTEGER, ASN_OCTET_STR or ASN_TIMETICKS.
 * name       `name_len` sub-identifiers, copied.
 *
 * Returns the new varbind, NULL when there is no memory.
 *
 * Context: agent. Does not block.
 */
netsnmp_variable_list *build_varbind(netsnmp_variable_list *previous,
                                     const void *value, int type, size_t length,
                                     const oid *name, size_t name_len);

/*
 * Has the agent send a notification.
 *
 * trap_type   6, enterprise-specific.
 * name        the notification OID, `name_len` sub-identifiers, copied.
 * varbinds    its varbinds; they belong to the agent from here on. May be NULL.
 *
 * Returns 0; negative if the notification is lost.
 *
 * Context: agent. Does not block.
 */
int enqueue_notification(int trap_type, const oid *name, size_t name_len,
                         netsnmp_variable_list *varbinds);

/*
 * Session and user of the request in progress; `which` is 0. Never NULL: empty
 * if there is no request. The text belongs to the agent and lasts until that
 * function's next call.
 *
 * Context: agent, child. Do not block.
 */
const char *get_snmp_sessionid(int which);
const char *get_snmp_username(int which);

/*
 * The VRF that the request in progress came in on, from its context; *error is
 * set to 0, or to something else if it is not known. The text belongs to the
 * agent and lasts until its next call; NULL only together with an error.
 *
 * Context: child. Does not block.
 */
const char *snmp_get_ctx_vrf_for_current_req(int32_t *error);

/*
 * Tells the agent's watchdog that a long operation makes progress.
 *
 * Context: agent. Does not block.
 */
void snmp_heartbeat_send(void);

/*
 * Not 0 as long as no SET has changed the configuration: a module clears it
 * when it commits one that ought to count (here: a row that was created and
 * started, or destroyed). For an agent that tells its managers when that last
 * happened: it sets the flag before a SET and looks at it behind it. Others
 * never look, as the one in host/.
 *
 * Context: agent, phase COMMIT.
 */
extern int32_t change_time_flag;

/*
 * Notes that a configuration changed just now: 2 the running one as seen by
 * management, 3 the startup one.
 *
 * Context: agent. Does not block.
 */
void set_mgmt_conf_last_change_time_extended(int which);

PLATFORM_END_DECLS

#endif
