/*
 * TFTP client library. One server at a time in a process: it is the one that
 * tftp_connect named last, until the process ends.
 *
 * Context of all of it: child. Both transfers block until the file is through
 * or the time is up, the other calls do not.
 *
 * Results are 0 or more for success: every octet has come, or the server has
 * acknowledged every octet. Otherwise negative: down to -TFTP_LARGEST_CODE
 * minus an error code of the protocol (3 also for no room here, or a file
 * larger than is taken), below that -(TFTP_LARGEST_CODE + errno), so that -210
 * is a timeout.
 */
#ifndef PLATFORM_TFTP_H
#define PLATFORM_TFTP_H

#include "visibility.h"

/* Error codes of the protocol, and the largest that a result can be. */
#define TFTP_CODE_NOT_FOUND 1
#define TFTP_CODE_ACCESS_VIOLATION 2
#define TFTP_CODE_DISK_FULL 3
#define TFTP_LARGEST_CODE 100

PLATFORM_BEGIN_DECLS

/* Seconds to wait for each answer of the server, above 0. */
int tftp_timeout_set(int seconds);

/* Names the server, an address as text; `port` -1 is the service's own. */
int tftp_connect(const char *server, int port);

/* Sends the local file as `remote`; `flags` is 0. */
int tftp_put2(const char *local, const char *remote, int flags);

/* Fetches `remote` into the local file; `flags` is 0. After a failure there is
 * no partial file. */
int tftp_get2(const char *remote, const char *local, int flags);

/* Text of a result; belongs to the library, lasts until the next call. */
const char *tftp_strerror(int code);

PLATFORM_END_DECLS

#endif
