/*
 * vrfmgr: virtual routing and forwarding contexts.
 */
#ifndef PLATFORM_VRFMGR_H
#define PLATFORM_VRFMGR_H

#include <stdint.h>

#include "visibility.h"

PLATFORM_BEGIN_DECLS

/*
 * Id of the context of that name, above 0; 0 if there is none.
 *
 * Context: child. Does not block.
 */
int32_t vrfmgr_get_context_id(const char *name);

PLATFORM_END_DECLS

#endif
