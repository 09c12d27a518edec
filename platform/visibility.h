/*
 * Linkage of the platform services: C linkage, visible to whoever loads the
 * platform library, whatever the visibility the including code is built with.
 */
#ifndef PLATFORM_VISIBILITY_H
#define PLATFORM_VISIBILITY_H

#ifdef __cplusplus
#define PLATFORM_BEGIN_DECLS                                                   \
    extern "C" {                                                               \
    _Pragma("GCC visibility push(default)")
#define PLATFORM_END_DECLS                                                     \
    _Pragma("GCC visibility pop")                                              \
    }
#else
#define PLATFORM_BEGIN_DECLS _Pragma("GCC visibility push(default)")
#define PLATFORM_END_DECLS _Pragma("GCC visibility pop")
#endif

#endif
