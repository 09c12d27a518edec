/*
 * procd: the system manager. It owns the startup configurations and watches
 * over the processes of the switch.
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
 */
const char *procd_cli_dir_get(ipcbus_handle handle, int which);

/*
 * Makes the text configuration in the file `path` the startup configuration.
 * Blocks until it is kept. Returns 0, else an error code for syserr_format.
 */
int procd_cli_write_ascii_cfg(ipcbus_handle handle, const char *path);

/* Tells the system manager that this process is alive; `state` is 0. */
void procd_heartbeat(int state);

/* How often it wants to hear that, in milliseconds. */
uint32_t procd_heartbeat_timeout_get(void);

/*
 * One request to a service of the system manager and its response.
 *
 * code             the request, for example PROCD_RPC_SWITCH_WWN.
 * arg1, arg2       its arguments.
 * request          `request_length` octets of payload; NULL if 0.
 * service          access point of the service.
 * queue            the queue that receives the response.
 * limit            seconds to wait for it.
 * response         receives the payload of the response, zero-filled to at
 *                  least 8 octets and allocated with malloc, for the caller to
 *                  free whatever the result; NULL if there is none.
 *
 * Blocks for up to `limit` seconds. Returns 0; anything else is a failure.
 */
int rpcq_req_resp(uint32_t code, uint32_t arg1, uint32_t arg2,
                  const void *request, uint32_t request_length,
                  uint32_t service, ipcbus_handle queue, uint32_t limit,
                  void **response);

PLATFORM_END_DECLS

#endif
