/*
 * Error log and error texts.
 */
#ifndef PLATFORM_ERRLOG_H
#define PLATFORM_ERRLOG_H

#include <stdint.h>

#include "visibility.h"

PLATFORM_BEGIN_DECLS

/*
 * Records the last error of a component; 584 is this module's.
 *
 * Context: agent. Does not block.
 */
void log_set_error(uint32_t code, uint32_t component);

/*
 * Text of an error code; never NULL, belongs to the platform, lasts until the
 * next call. syserr_format adds the code itself.
 *
 * Context: agent, child. Do not block.
 */
const char *syserr2str(uint32_t code);
const char *syserr_format(uint32_t code);

PLATFORM_END_DECLS

#endif
