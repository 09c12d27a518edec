/*
 * Records that a module and a platform built apart from each other share, and
 * that are the same for 32 and 64 bits.
 */
#ifndef PLATFORM_LAYOUT_H
#define PLATFORM_LAYOUT_H

#include <stddef.h>

#ifdef __cplusplus
#define PLATFORM_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define PLATFORM_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

#define PLATFORM_RECORD_SIZE(record, size)                                     \
    PLATFORM_STATIC_ASSERT(sizeof(struct record) == (size), #record)
#define PLATFORM_FIELD_AT(record, field, offset)                               \
    PLATFORM_STATIC_ASSERT(offsetof(struct record, field) == (offset), #field)

#endif
