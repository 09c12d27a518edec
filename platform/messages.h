/*
 * The messages that copies cause between the processes of a switch: who sends
 * which to whom and when, and what stands in it, octet by octet.
 *
 *                 opcode  sender      receiver   when
 *   COPY_STATUS    10277  copy child  agent      a copy has ended
 *   SAVE            1381  agent       procd      a row asks for a save
 *                   1381  procd       agent      at once, to answer it
 *   SAVE_END        1361  procd       agent      an accepted save has ended
 *   SAVE_ABORT      1383  agent       procd      the row of a save goes
 *   COPY_STARTED    1391  procd       agent      a copy that waited begins
 *   SWITCH_WWN      1282  agent       procd      a save in the fabric failed
 *
 * The agent receives at IPCBUS_SAP_SNMP_AGENT, what procd is asked goes to
 * IPCBUS_SAP_PROCD, and answers come to the handle that a request was sent on:
 * the agent's is ipcbus_response_q. Every message to the agent but an answer is
 * one that a module has to be registered for, see register_for_notification in
 * agent_ext.h.
 *
 * Words are unsigned, of 32 bits and big-endian. Offsets and sizes are in
 * octets. Texts end with a NUL and are filled up with NULs. A receiver looks at
 * the fields named here and lets a longer payload pass, but where a size is
 * said to be exact.
 */
#ifndef PLATFORM_MESSAGES_H
#define PLATFORM_MESSAGES_H

#include "layout.h"

/*
 * Copy status, 10277. The last thing that a copy child sends, one-way.
 *
 * STATUS   0 if the copy succeeded, else the fail cause of the row.
 *
 * Nobody answers. A platform that notices the end of a child which reported
 * nothing hands the agent's modules one of these itself; without a payload it
 * means a failure for an unknown cause.
 */
#define IPCBUS_OPC_CONFIG_COPY_STATUS 10277
enum { COPY_STATUS_STATUS = 0, COPY_STATUS_SIZE = 4 };

/*
 * Save request, 1381. The agent has procd make the running configuration the
 * startup configuration. A request: its record's token names the save in the
 * messages below. Its size is exact.
 *
 * ACTION    26, running to startup; 1381 carries other actions, too, which
 *           copies have no use for.
 * WORD_4    1     } options of the action, procd's own; all that is not
 * OCTET_10  1     } named here is 0
 * FABRIC    1: on every switch of the fabric, else 0.
 * ALL       1: every startup configuration of this switch, else 0.
 * USER      who asked, at most 31 characters.
 * SESSION   the session that it was asked in, at most 31 characters.
 */
#define IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION 1381
enum {
    SAVE_REQUEST_ACTION = 0,
    SAVE_REQUEST_WORD_4 = 4,
    SAVE_REQUEST_OCTET_10 = 10,
    SAVE_REQUEST_FABRIC = 28,
    SAVE_REQUEST_ALL = 40,
    SAVE_REQUEST_USER = 44,
    SAVE_REQUEST_SESSION = 76,
    SAVE_REQUEST_RESERVED = 108,
    SAVE_REQUEST_SIZE = 140
};
#define SAVE_REQUEST_TEXT_SIZE 32
#define SAVE_REQUEST_RESERVED_SIZE 32
#define SAVE_ACTION_RUNNING_TO_STARTUP 26

PLATFORM_STATIC_ASSERT(SAVE_REQUEST_USER + SAVE_REQUEST_TEXT_SIZE ==
                           SAVE_REQUEST_SESSION,
                       "user");
PLATFORM_STATIC_ASSERT(SAVE_REQUEST_SESSION + SAVE_REQUEST_TEXT_SIZE ==
                           SAVE_REQUEST_RESERVED,
                       "session");
PLATFORM_STATIC_ASSERT(SAVE_REQUEST_RESERVED + SAVE_REQUEST_RESERVED_SIZE ==
                           SAVE_REQUEST_SIZE,
                       "reserved");

/*
 * Its answer, 1381 again, to the handle of the request and with its token. The
 * agent's only thread waits for it: it has to come at once, long saves are
 * accepted and end with SAVE_END.
 *
 * RESULT   PROCD_CFG_ACTION_*, or an error code for syserr2str: refused.
 */
enum { SAVE_ANSWER_RESULT = 0, SAVE_ANSWER_SIZE = 4 };
#define PROCD_CFG_ACTION_DONE 0u              /* saved; no SAVE_END follows */
#define PROCD_CFG_ACTION_ACCEPTED 0x401E0003u /* SAVE_END will follow */

/*
 * End of a save, 1361. One-way, once for each save that was accepted, an
 * aborted one included.
 *
 * RESULT   0 if the startup configuration is kept, else an error code.
 * TOKEN    of the request, so that the end of an earlier save is not taken for
 *          that of a later one. A platform whose procd does not know it leaves
 *          it out: the payload is then 4 octets long and means the save that
 *          is waited for.
 *
 * The module reads no payload: the agent tells it RESULT in *oid_len_out, see
 * notification_handler in agent_ext.h.
 */
#define IPCBUS_OPC_PROCD_COPY_RUN2START_DONE 1361
enum { SAVE_END_RESULT = 0, SAVE_END_TOKEN = 4, SAVE_END_SIZE = 8 };

/*
 * Abort of a save, 1383. One-way, when a row is destroyed whose save has not
 * ended; the agent does not wait for what comes of it.
 *
 * TOKEN    of the request.
 * WORD_4   0.
 */
#define IPCBUS_OPC_PROCD_COPY_ABORT 1383
enum { SAVE_ABORT_TOKEN = 0, SAVE_ABORT_WORD_4 = 4, SAVE_ABORT_SIZE = 8 };

/*
 * Copy started, 1391. One-way; the payload is not read. The module marks the
 * waiting row of the lowest index as running. For a platform whose procd begins
 * copies itself, in a window of its own, and for rows that wait for that: a row
 * that is only being filled in is waiting too, so send it to an agent that has
 * none. Nothing in host/ sends it.
 */
#define IPCBUS_OPC_PROCD_COPY_STARTED 1391

/*
 * World wide name of this switch, 1282: the request code that rpcq_req_resp
 * (procd.h) takes to the service IPCBUS_SAP_PROCD_RPC, with ARG1, ARG2 and no
 * payload. The message that carries it is the platform's own; what the caller
 * is handed is the name, raw, in the first SWITCH_WWN_SIZE octets.
 *
 * ARG1   1 } which name is meant: this one alone is asked for, and a service
 * ARG2   0 } need not look at them
 *
 * The agent asks once for each failed save in the fabric, on its only thread,
 * with SWITCH_WWN_SECONDS to wait.
 */
#define PROCD_RPC_SWITCH_WWN 1282
#define SWITCH_WWN_ARG1 1
#define SWITCH_WWN_ARG2 0
#define SWITCH_WWN_SECONDS 5
#define SWITCH_WWN_SIZE 8

#endif
