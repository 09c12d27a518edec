/*
 * Lets a test move the clocks of one agent. Preloaded into it.
 *
 * The timer that the agent waits on for its wall clock to be set is a named
 * pipe here, MOVABLE_CLOCK names it. Two 64-bit numbers of seconds written to
 * it move the wall clock and the monotonic clock: different ones are a clock
 * that was set, equal ones are time that passed.
 *
 * With MOVABLE_CLOCK_SPEED time runs that many times faster while the agent
 * waits in poll(), which it does for answers only; its main loop waits in
 * select(). A wait that nothing ends takes exactly the time asked for.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#define SECOND INT64_C(1000000000)

/* In nanoseconds. */
static int64_t wall_shift, monotonic_shift;
static int pipe_fd = -1;

static void shift(struct timespec *at, int64_t by) {
    int64_t sum = (int64_t)at->tv_sec * SECOND + at->tv_nsec + by;
    at->tv_sec = sum / SECOND;
    at->tv_nsec = sum % SECOND;
}

int clock_gettime(clockid_t clock, struct timespec *now) {
    int result = (int)syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && clock == CLOCK_REALTIME)
        shift(now, wall_shift);
    if (result == 0 && clock == CLOCK_MONOTONIC)
        shift(now, monotonic_shift);
    return result;
}

static int64_t monotonic_now(void) {
    struct timespec now = {0, 0};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * SECOND + now.tv_nsec;
}

int poll(struct pollfd *watched, nfds_t count, int timeout) {
    const char *text = getenv("MOVABLE_CLOCK_SPEED");
    int64_t speed = text != NULL ? atoi(text) : 1;
    if (timeout <= 0 || speed <= 1)
        return (int)syscall(SYS_poll, watched, count, timeout);
    int64_t asked = timeout * (SECOND / 1000), start = monotonic_now();
    struct timespec limit = {asked / speed / SECOND, asked / speed % SECOND};
    int result = (int)syscall(SYS_ppoll, watched, count, &limit, NULL, 8);
    int64_t took = monotonic_now() - start;
    int64_t passed = took * speed < asked && result != 0 ? took * speed : asked;
    if (passed > took) {
        wall_shift += passed - took;
        monotonic_shift += passed - took;
    }
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
    wall_shift += move[0] * SECOND;
    monotonic_shift += move[1] * SECOND;
    errno = ECANCELED;
    return -1;
}
