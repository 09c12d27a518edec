// Included in front of the module's sources: a fork that makes no process, and
// memory that is counted and can run out.
#ifndef TESTS_FUZZ_MODULE_CALLS_H
#define TESTS_FUZZ_MODULE_CALLS_H

// Their own uses of the names come before they are others.
#include <cstdlib>

#include <stdlib.h>
#include <unistd.h>

#include "config_copy_mib_private.h"

extern "C" {
pid_t fuzz_fork(void);
void *fuzz_malloc(size_t size);
void fuzz_free(void *block);
}

#define fork fuzz_fork
#define malloc fuzz_malloc
#define free fuzz_free

#endif
