/*
 * procd: the system manager. It makes the running configuration the startup
 * configuration when it is asked to, and watches over the processes of the
 * switch. The startup configuration itself is nobody's: it is written by
 * whoever holds its lock, this process among others
 * (procd_cli_write_ascii_cfg).
 */
#ifndef PLATFORM_PROCD_H
#define PLATFORM_PROCD_H

#include <stdint.h>

#include "ipcbus.h"
#include "messages.h"
#include "visibility.h"

PLATFORM_BEGIN_DECLS

/*
 * Directory of a configuration; `which` 2 is that of the startup configuration,
 * whose text is the file "system.cfg" in it. `handle` is of kind
 * IPCBUS_KIND_REQ_RESP. Never NULL: empty if it is not known. The text belongs
 * to the platform and lasts until the next call.
 *
 * Context: child. Does not block.
 */
const char *procd_cli_dir_get(ipcbus_handle handle, int which);

/*
 * Makes the text configuration in the file `path` the startup configuration.
 * Returns 0, else an error code for syserr_format.
 *
 * Context: child. Blocks until it is kept, and for as long as another writer
 * holds the lock.
 */
int procd_cli_write_ascii_cfg(ipcbus_handle handle, const char *path);

/*
 * Tells the system manager that this process is alive; `state` is 0. One that
 * is lost does not matter, the next one follows.
 *
 * Context: agent, while it waits for the answer to a save. Does not block.
 */
void procd_heartbeat(int state);

/*
 * How often it wants to hear that, in milliseconds, at least 1000.
 *
 * Context: agent. Does not block.
 */
uint32_t procd_heartbeat_timeout_get(void);

/*
 * One request to a service of the system manager and its response.
 *
 * code             the request: PROCD_RPC_SWITCH_WWN, see messages.h for its
 *                  arguments and its answer.
 * arg1, arg2       the arguments of that code.
 * request          `request_length` octets of payload; NULL if 0.
 * service          access point of the service, IPCBUS_SAP_PROCD_RPC.
 * queue            the queue that receives the response, ipcbus_response_q.
 * limit            seconds to wait for it.
 * response         receives the payload of the response, zero-filled to at
 *                  least 8 octets and allocated with malloc, for the caller to
 *                  free whatever the result; NULL if there is none.
 *
 * Returns 0; anything else is a failure.
 *
 * Context: agent. Blocks for up to `limit` seconds.
 */
int rpcq_req_resp(uint32_t code, uint32_t arg1, uint32_t arg2,
                  const void *request, uint32_t request_length,
                  uint32_t service, ipcbus_handle queue, uint32_t limit,
                  void **response);

PLATFORM_END_DECLS

#endif
