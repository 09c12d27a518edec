/*
 * grove: the results of the last configuration change that was sent to every
 * switch of the fabric.
 */
#ifndef PLATFORM_GROVE_H
#define PLATFORM_GROVE_H

#include <stdint.h>

#include "layout.h"
#include "netaddr.h"
#include "visibility.h"

struct grove_status {
    uint8_t wwn[8];         /* world wide name of the switch */
    int32_t is_local;       /* 1: this switch; `address` is then not filled */
    struct ip_addr address; /* how the switch is reached */
};

PLATFORM_RECORD_SIZE(grove_status, 32);
PLATFORM_FIELD_AT(grove_status, is_local, 8);
PLATFORM_FIELD_AT(grove_status, address, 12);

PLATFORM_BEGIN_DECLS

/*
 * The result of one switch. The caller zeroes the record before the first
 * call and hands the last one back for the next switch.
 *
 * status      in: the record of the last call; out: that of the next switch.
 * text        receives at most `limit` characters and, behind them, a NUL: what
 *             went wrong there.
 * local_wwn   8 octets, the world wide name of this switch, as
 *             PROCD_RPC_SWITCH_WWN gave it: for a platform whose records do not
 *             say which of them is this switch, and has to fill in is_local by
 *             it. One whose records say so need not look at it.
 *
 * Returns 0; anything else at the end, or when the results cannot be had.
 *
 * Context: agent. Does not block.
 */
int grove_status_next_get(struct grove_status *status, char *text,
                          uint32_t limit, const uint8_t *local_wwn);

/*
 * Ends the walk; `result` is the last result of grove_status_next_get.
 *
 * Context: agent. Does not block.
 */
void grove_status_clean(int result);

PLATFORM_END_DECLS

#endif
