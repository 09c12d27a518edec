/*
 * Runs a program and waits for it.
 */
#ifndef PLATFORM_PROGRAM_RUNNER_H
#define PLATFORM_PROGRAM_RUNNER_H

#include "visibility.h"

PLATFORM_BEGIN_DECLS

/*
 * Runs `path` with the arguments that follow, each a const char *, up to a
 * NULL; no shell is involved. in, out and err become its standard input, output
 * and error; -1 leaves the caller's. SIGCHLD must be at its default action.
 *
 * Returns the wait status; negative if the program could not be run.
 *
 * Context: child. Blocks until the program has ended.
 */
int execute_program_and_wait_redirect(int in, int out, int err,
                                      const char *path, ...)
    __attribute__((sentinel));

PLATFORM_END_DECLS

#endif
