/*
 * Lets a test move the clocks of one agent. Preloaded into it.
 *
 * The timer that the agent waits on for its wall clock to be set is a named
 * pipe here, MOVABLE_CLOCK names it. Two 64-bit numbers of seconds written to
 * it move the wall clock and the monotonic clock: different ones are a clock
 * that was set, equal ones are time that passed.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

static int64_t wall_shift, monotonic_shift;
static int pipe_fd = -1;

int clock_gettime(clockid_t clock, struct timespec *now) {
    int result = (int)syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && clock == CLOCK_REALTIME)
        now->tv_sec += wall_shift;
    if (result == 0 && clock == CLOCK_MONOTONIC)
        now->tv_sec += monotonic_shift;
    return result;
}

time_t time(time_t *out) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (out != NULL)
        *out = now.tv_sec;
    return now.tv_sec;
}

int gettimeofday(struct timeval *out, void *zone) {
    struct timespec now;
    (void)zone;
    clock_gettime(CLOCK_REALTIME, &now);
    out->tv_sec = now.tv_sec;
    out->tv_usec = now.tv_nsec / 1000;
    return 0;
}

int timerfd_create(int clock, int flags) {
    const char *name = getenv("MOVABLE_CLOCK");
    if (clock != CLOCK_REALTIME || name == NULL || pipe_fd >= 0)
        return (int)syscall(SYS_timerfd_create, clock, flags);
    pipe_fd = open(name, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    return pipe_fd;
}

int timerfd_settime(int timer, int flags, const struct itimerspec *value,
                    struct itimerspec *old) {
    if (timer == pipe_fd && timer >= 0)
        return 0;
    return (int)syscall(SYS_timerfd_settime, timer, flags, value, old);
}

/* A clock that was set is a read that fails with ECANCELED. */
ssize_t read(int fd, void *buffer, size_t size) {
    int64_t move[2];
    if (fd < 0 || fd != pipe_fd)
        return syscall(SYS_read, fd, buffer, size);
    if (syscall(SYS_read, fd, move, sizeof move) != (long)sizeof move)
        return -1;
    wall_shift += move[0];
    monotonic_shift += move[1];
    errno = ECANCELED;
    return -1;
}
