/*
 * For LD_PRELOAD: lets a test set the wall clock of one process without
 * touching the machine's.
 *
 * The wall clock is shifted by the seconds in the file that CLOCK_SHIFT_FILE
 * names (0 without a file). A timer that waits for the clock to be set expires
 * ten times a second instead, so that the process looks at its clocks.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <time.h>

static long shift(void) {
    const char *name = getenv("CLOCK_SHIFT_FILE");
    FILE *file = name != NULL ? fopen(name, "r") : NULL;
    long seconds = 0;
    if (file == NULL)
        return 0;
    if (fscanf(file, "%ld", &seconds) != 1)
        seconds = 0;
    fclose(file);
    return seconds;
}

int clock_gettime(clockid_t clock, struct timespec *now) {
    static int (*real)(clockid_t, struct timespec *);
    if (real == NULL)
        *(void **)&real = dlsym(RTLD_NEXT, "clock_gettime");
    int result = real(clock, now);
    if (result == 0 && clock == CLOCK_REALTIME)
        now->tv_sec += shift();
    return result;
}

time_t time(time_t *out) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (out != NULL)
        *out = now.tv_sec;
    return now.tv_sec;
}

int gettimeofday(struct timeval *restrict out, void *restrict zone) {
    struct timespec now;
    (void)zone;
    clock_gettime(CLOCK_REALTIME, &now);
    out->tv_sec = now.tv_sec;
    out->tv_usec = now.tv_nsec / 1000;
    return 0;
}

int timerfd_settime(int fd, int flags, const struct itimerspec *wanted,
                    struct itimerspec *old) {
    static int (*real)(int, int, const struct itimerspec *,
                       struct itimerspec *);
    const struct itimerspec often = {{0, 100000000}, {0, 100000000}};
    if (real == NULL)
        *(void **)&real = dlsym(RTLD_NEXT, "timerfd_settime");
    if ((flags & TFD_TIMER_CANCEL_ON_SET) != 0)
        return real(fd, 0, &often, old);
    return real(fd, flags, wanted, old);
}
