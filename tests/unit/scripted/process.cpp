#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <sys/time.h>
#include <unistd.h>

#include "scripted/note.h"

using namespace scripted;

static jmp_buf after_child;
static bool child_runs;
static int child_status;

namespace scripted {

/*
 * _exit cannot return, and an exception cannot pass the module, which is built
 * without them: a jump is left. It passes the frames of `body` and of the
 * module, of which neither may own anything: the module is plain records and
 * free functions, and what a test owns lies outside of `body`.
 */
int run_as_child(const std::function<void()> &body) {
    child_runs = true;
    child_status = -1;
    if (setjmp(after_child) == 0) {
        body();
        ADD_FAILURE() << "the child returned instead of leaving with _exit";
    }
    child_runs = false;
    return child_status;
}

} // namespace scripted

extern "C" {

pid_t intercept_fork(void) {
    called("fork", "fork()");
    hook("fork");
    if (no_memory("fork"))
        return -1;
    return platform().fork_results.take();
}

[[noreturn]] void intercept__exit(int status) {
    called("_exit", print("_exit(%d)", status));
    if (!child_runs) {
        fprintf(stderr, "the module called _exit(%d) outside of a child\n",
                status);
        abort();
    }
    child_status = status;
    longjmp(after_child, 1);
}

int intercept_system(const char *command) {
    called("system", print("system(%s)", text_or_null(command).c_str()))
        .strings = {copy_or_empty(command)};
    hook("system");
    return platform().system_results.take();
}

Handler intercept_signal(int number, Handler action) {
    Platform &p = platform();
    const Handler before = p.sigchld;

    called("signal",
           print("signal(%s, %s)", number == SIGCHLD ? "SIGCHLD" : "?",
                 action == SIG_DFL                  ? "SIG_DFL"
                 : action == SIG_IGN                ? "SIG_IGN"
                 : action == agents_sigchld_handler ? "agent's"
                                                    : "?"));
    EXPECT_EQ(SIGCHLD, number);
    p.sigchld = action;
    spoil_errno();
    return before;
}

time_t intercept_time(time_t *place) {
    asked("time", "time()");
    hook("time");
    const auto now = static_cast<time_t>(platform().now_seconds);
    if (place != nullptr)
        *place = now;
    return now;
}

int intercept_gettimeofday(struct timeval *now, void *) {
    asked("gettimeofday", "gettimeofday()");
    hook("gettimeofday");
    now->tv_sec = static_cast<time_t>(platform().now_seconds);
    now->tv_usec = static_cast<suseconds_t>(platform().now_microseconds);
    return 0;
}

unsigned intercept_sleep(unsigned seconds) {
    called("sleep", print("sleep(%u)", seconds));
    hook("sleep");
    platform().now_seconds += seconds;
    return 0;
}

pid_t intercept_getpid(void) {
    asked("getpid", "getpid()");
    return platform().pid.take();
}

} // extern "C"
