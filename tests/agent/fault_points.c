/*
 * Kills a copy process at a chosen step, and lets it pause for a tenth of the
 * time only. Preloaded into the agent.
 *
 * FAULT_POINT names a file with a step and a moment in it, "before" or "after".
 * Only a process that the agent forked and that runs no other program obeys:
 * the copy process.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/ipcbus.h"
#include "platform/messages.h"
#include "platform/program_runner.h"
#include "platform/qsh.h"
#include "platform/tftp.h"

#define MOST_ARGUMENTS 10

static pid_t agent;

static void reach(const char *step, const char *moment) {
    const char *name = getenv("FAULT_POINT");
    char here[64], wanted[64];
    int saved = errno;

    if (agent == 0 || getpid() == agent || name == NULL)
        return;
    /* Without the C library's calls, which are looked at here too. */
    int fd = (int)syscall(SYS_openat, AT_FDCWD, name, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        errno = saved;
        return;
    }
    ssize_t length = syscall(SYS_read, fd, wanted, sizeof wanted - 1);
    syscall(SYS_close, fd);
    wanted[length > 0 ? length : 0] = 0;
    snprintf(here, sizeof here, "%s %s", step, moment);
    if (strcmp(here, wanted) == 0)
        kill(getpid(), SIGKILL);
    errno = saved;
}

/* The original is not in sight of a library that was loaded before it. */
static void *platform_call(const char *name) {
    void *platform = dlopen("libxfplatform.so.1", RTLD_LAZY | RTLD_NOLOAD);
    void *call = platform == NULL ? NULL : dlsym(platform, name);

    if (call == NULL)
        abort();
    dlclose(platform);
    return call;
}

#define PLATFORM(name) ((__typeof__(&name))platform_call(#name))
#define C_LIBRARY(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

#define STEP(step, type, call)                                                 \
    reach(step, "before");                                                     \
    type result = (call);                                                      \
    reach(step, "after");                                                      \
    return result

unsigned sleep(unsigned seconds) {
    usleep(seconds * 100000);
    return 0;
}

/* Before what the platform has a new process do: it is loaded later. */
static void be_born(void) {
    reach("birth", "before");
}

__attribute__((constructor)) static void remember_agent(void) {
    agent = getpid();
    if (pthread_atfork(NULL, NULL, be_born) != 0)
        abort();
}

/* The first thing that a new process does is to close what is the agent's. */
int close(int fd) {
    STEP("start", int, (int)syscall(SYS_close, fd));
}

FILE *fopen(const char *path, const char *mode) {
    STEP("stage", FILE *, C_LIBRARY(fopen)(path, mode));
}

int unlink(const char *path) {
    STEP("remove", int, C_LIBRARY(unlink)(path));
}

int ipcbus_bind(int kind, int sap, ipcbus_handle *handle, const char *name) {
    STEP(kind == IPCBUS_KIND_DATAGRAM ? "bind-report" : "bind", int,
         PLATFORM(ipcbus_bind)(kind, sap, handle, name));
}

int ipcbus_send(ipcbus_handle handle, const struct ipcbus_address *destination,
                uint32_t opcode, const void *payload, uint32_t length,
                uint32_t flags, uint32_t priority,
                struct ipcbus_message **request) {
    STEP(opcode == IPCBUS_OPC_CONFIG_COPY_STATUS ? "report" : "tell", int,
         PLATFORM(ipcbus_send)(handle, destination, opcode, payload, length,
                               flags, priority, request));
}

int qsh_execute_cfg_file2(const struct qsh_cfg_file_request *request) {
    STEP("apply", int, PLATFORM(qsh_execute_cfg_file2)(request));
}

int tftp_get2(const char *remote, const char *local, int flags) {
    STEP("fetch", int, PLATFORM(tftp_get2)(remote, local, flags));
}

int tftp_put2(const char *local, const char *remote, int flags) {
    STEP("send", int, PLATFORM(tftp_put2)(local, remote, flags));
}

int execute_program_and_wait_redirect(int in, int out, int err,
                                      const char *path, ...) {
    const char *given[MOST_ARGUMENTS] = {NULL};
    va_list list;

    va_start(list, path);
    for (int i = 0; i < MOST_ARGUMENTS; i++)
        if ((given[i] = va_arg(list, const char *)) == NULL)
            break;
    va_end(list);
    STEP("show", int,
         PLATFORM(execute_program_and_wait_redirect)(
             in, out, err, path, given[0], given[1], given[2], given[3],
             given[4], given[5], given[6], given[7], given[8], given[9], NULL));
}
