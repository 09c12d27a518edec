/*
 * ipcbus: the message transport between the processes of a switch.
 *
 * A process binds handles. A message goes to a service access point of a node
 * and carries an opcode and a payload of octets; multi-octet fields of a
 * payload are big-endian. messages.h has the opcodes and the payloads.
 */
#ifndef PLATFORM_IPCBUS_H
#define PLATFORM_IPCBUS_H

#include <stdint.h>

#include "layout.h"
#include "visibility.h"

/* The node that the caller runs on. */
#define IPCBUS_NODE_LOCAL 0xFE000000u

/* Service access points. */
#define IPCBUS_SAP_ANY (-1)      /* bind: the transport chooses a free one */
#define IPCBUS_SAP_PROCD 3       /* the system manager */
#define IPCBUS_SAP_SNMP_AGENT 28 /* the hosting SNMP agent */
#define IPCBUS_SAP_PROCD_RPC 46  /* the system manager's request service */

/* Kinds of handle that ipcbus_bind makes. */
#define IPCBUS_KIND_DATAGRAM 1 /* one-way messages */
#define IPCBUS_KIND_REQ_RESP 4 /* requests and their responses */

struct ipcbus_queue;   /* a bound handle */
struct ipcbus_message; /* a message received, or the record of a request sent */

typedef struct ipcbus_queue *ipcbus_handle;

struct ipcbus_address {
    uint32_t node;
    uint32_t sap;
};

struct ipcbus_recv_options {
    uint32_t mode;    /* 1: wait at most `timeout`; 0: wait for ever */
    uint32_t timeout; /* seconds */
};

PLATFORM_RECORD_SIZE(ipcbus_address, 8);
PLATFORM_FIELD_AT(ipcbus_address, sap, 4);
PLATFORM_RECORD_SIZE(ipcbus_recv_options, 8);
PLATFORM_FIELD_AT(ipcbus_recv_options, timeout, 4);

PLATFORM_BEGIN_DECLS

/*
 * The response queue of this process: the handle on which answers to its
 * requests arrive. It exists before the module is initialised, is not unbound
 * by the module, and is NULL only if the transport could not be reached.
 *
 * Context: agent, to send and to receive. A child inherits the handle and only
 * hands it on to account_lib_interim_update.
 */
extern ipcbus_handle ipcbus_response_q;

/*
 * Binds a handle.
 *
 * kind     IPCBUS_KIND_*.
 * sap      the access point to receive on, or IPCBUS_SAP_ANY.
 * handle   where the new handle goes; unbind it with ipcbus_unbind.
 * name     the caller's name in the transport's own listings; copied.
 *
 * Returns 0 or more; negative with errno set when it failed.
 *
 * Context: child. Does not block.
 */
int ipcbus_bind(int kind, int sap, ipcbus_handle *handle, const char *name);

/*
 * Gives a handle back; messages waiting on it are lost. `flags` is 0.
 * Returns 0; negative with errno set when it failed.
 *
 * Context: child. Does not block.
 */
int ipcbus_unbind(ipcbus_handle handle, uint32_t flags);

/*
 * Sends one message. Does not block: a receiver that is not there, or whose
 * queue is full, is a failure.
 *
 * handle        the sender's handle; answers come back to it.
 * destination   where to.
 * opcode        what it is.
 * payload       `length` octets, copied; may be NULL if length is 0.
 * flags         0.
 * priority      0.
 * request       NULL for a one-way message. Otherwise the message is a
 *               request: *request receives its record, which names it by a
 *               token (ipcbus_rr_token_get) and belongs to the caller until
 *               ipcbus_drop; NULL after a failure.
 *
 * Returns 0; negative with errno set when it failed: nothing was sent then.
 *
 * Context: agent, child. Does not block.
 */
int ipcbus_send(ipcbus_handle handle, const struct ipcbus_address *destination,
                uint32_t opcode, const void *payload, uint32_t length,
                uint32_t flags, uint32_t priority,
                struct ipcbus_message **request);

/*
 * Waits for the next message on a handle.
 *
 * message   receives the message, which belongs to the caller until
 *           ipcbus_drop.
 *
 * Returns 0 or more when a message arrived. Otherwise -1 with errno set: EINTR
 * (4) a signal came, ETIME (62) the timeout ran out, anything else a failure
 * of the transport.
 *
 * Context: agent. Blocks for as long as the options say, signals aside.
 */
int ipcbus_recv(ipcbus_handle handle, struct ipcbus_message **message,
                const struct ipcbus_recv_options *options);

/*
 * Releases a message or a request's record; NULL is allowed.
 *
 * Context of this and of those below: agent. They do not block and cannot fail.
 */
void ipcbus_drop(ipcbus_handle handle, struct ipcbus_message *message);

/* The opcode of a message. */
uint32_t ipcbus_opc_get(const struct ipcbus_message *message);

/*
 * The payload of a message; NULL if it has none. It belongs to the message.
 * At least 16 octets can be read: a shorter payload is followed by zeroes.
 */
const void *ipcbus_payload_get(const struct ipcbus_message *message);

/* The token that names a request to its receiver; 0 for NULL. */
uint32_t ipcbus_rr_token_get(const struct ipcbus_message *request);

PLATFORM_END_DECLS

#endif
