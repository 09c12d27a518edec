/*
 * trc: the event-history trace. Every process keeps a bounded history of
 * events; live output of them can be switched on besides.
 *
 * Context of all of it: agent, child. Nothing of it blocks or fails: an event
 * that cannot be kept is lost.
 */
#ifndef PLATFORM_TRC_H
#define PLATFORM_TRC_H

#include <stdint.h>

#include "visibility.h"

PLATFORM_BEGIN_DECLS

/* Name under which this process prints live output. */
extern const char *const trc_dbg_modname;

/* 0 if events of this type and level are kept in the history. */
int trc_hist_event_subtype_check(uint32_t type, uint32_t level);

/*
 * Keeps one event: `size` octets of `record`, which start with the level as a
 * 32-bit word in native order, followed by NUL-terminated text.
 */
void trc_hist_event(uint32_t type, uint32_t size, const void *record);

/*
 * Non-zero if live output of this level is on. The other arguments narrow the
 * question down on a platform whose operators can filter live output:
 * `instance` 0 is all of the module, `filter` 0 is no filter besides, `enabled`
 * 1 asks for what is on now. The module passes 0, 0 and 1; a platform without
 * filters need not look at them.
 */
int trc_chk_int(uint32_t level, int instance, int filter, int enabled);

/*
 * Prints live output: `destination` 1 is the log, `flags` is 0, the rest is
 * printf's.
 */
void dprint(int destination, const char *module, int flags, const char *format,
            ...) __attribute__((format(printf, 4, 5)));

PLATFORM_END_DECLS

#endif
