/*
 * Accounting log: who did what.
 */
#ifndef PLATFORM_ACCOUNTING_H
#define PLATFORM_ACCOUNTING_H

#include "ipcbus.h"
#include "visibility.h"

PLATFORM_BEGIN_DECLS

/*
 * Records `text` against a session and a user; all three are copied. `queue` is
 * ipcbus_response_q, for platforms that keep their records in another process.
 * Returns 0; failures are of no consequence to the caller.
 *
 * Context: agent, once for each launch; child, once for each transfer. Does not
 * block.
 */
int account_lib_interim_update(ipcbus_handle queue, const char *session,
                               const char *user, const char *text);

PLATFORM_END_DECLS

#endif
