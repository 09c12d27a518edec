/*
 * What this switch is.
 */
#ifndef PLATFORM_HWINFO_H
#define PLATFORM_HWINFO_H

#include <stdint.h>

#include "visibility.h"

/* Result of pod_get_type: the switch runs as the storage pod. */
#define POD_TYPE_STORAGE 2

PLATFORM_BEGIN_DECLS

/*
 * Stores the number of the chassis model in *type. Returns 0; else an error
 * code, with *type unchanged.
 *
 * Context: child. Does not block.
 */
int hwinfo_get_chassis_type(int32_t *type);

/*
 * Type of a partition, POD_TYPE_STORAGE or another number; `partition` 0 is the
 * one that the caller runs in.
 *
 * Context: child. Does not block.
 */
int pod_get_type(int partition);

PLATFORM_END_DECLS

#endif
