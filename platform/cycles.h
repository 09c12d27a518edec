/*
 * CPU cycle timers.
 *
 * Context of both: agent. They do not block.
 */
#ifndef PLATFORM_CYCLES_H
#define PLATFORM_CYCLES_H

#include <stdint.h>

#include "visibility.h"

PLATFORM_BEGIN_DECLS

/* Cycles counted so far; monotonic. */
uint64_t timer_get_cycles(void);

/* Milliseconds between two counts, `later` first. */
uint64_t timer_diff_cycle_in_msec(uint64_t later, uint64_t earlier);

PLATFORM_END_DECLS

#endif
