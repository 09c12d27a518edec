// How the end of a copy child is noticed:
//
// - fork() handlers open a pipe whose write end only the child keeps, for as
//   long as it lives; the kernel closes it however the child ends. Without
//   descriptors for a pipe the child is looked at every some milliseconds.
// - The first thing that a child does is to say its process id, in a page that
//   both have. None is said by a child that was never made, nor by one that was
//   killed before: that one is found among the processes that end.
// - A child that starts another program loses its end too (close on exec); it
//   is the agent's own business and is left alone. The kernel knows the
//   difference: the "forked but never executed" flag of the process.
// - The pipe closes a moment before the process can be waited for, so the end
//   is looked at again after some milliseconds instead of blocking the agent.
#include "host/agent/copy_child.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <new>
#include <optional>

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "host/agent/agent.h"
#include "host/agent/descriptors.h"
#include "host/agent/event_loop.h"
#include "host/agent/history.h"
#include "host/agent/modules.h"
#include "host/agent/notifications.h"
#include "host/agent/save_watch.h"
#include "host/agent/staging.h"
#include "host/base/files.h"
#include "host/base/log.h"
#include "host/history/report.h"
#include "host/ipcbus/queue.h"
#include "platform/messages.h"

namespace xfhost {
namespace {

struct Child {
    Fd pipe;       // read end, until the child's end is closed
    pid_t pid = 0; // 0: not known yet
    bool reported = false;
    int looks = 0; // without a pipe, for one that has not said its id
};

constexpr int most_looks = 500; // ten seconds
constexpr unsigned sweep_seconds = 5;

using Children = std::list<Child>;

Children children;
Children spare; // the next one: nothing is allocated between two forks
std::atomic<pid_t> *newborn = nullptr; // what the latest child says
bool forking = false;                  // a child to be watched
bool heard = false;                    // its report will reach us
Fd next_pipe[2];                       // of that one
int held_end = -1; // in a child: its write end, open as long as it lives
bool in_child = false;
bool owed_failure = false;

// Flags of a process, as the kernel shows them.
constexpr unsigned long ending = 0x4;
constexpr unsigned long forked_not_executed = 0x40;

struct ProcessStat {
    pid_t parent = 0;
    unsigned long flags = 0;
};

// From /proc/<pid>/stat; nothing if there is no such process.
std::optional<ProcessStat> stat_of(pid_t pid) {
    char path[32], text[1024];
    snprintf(path, sizeof path, "/proc/%d/stat", pid);
    Fd fd(open(path, O_RDONLY | O_CLOEXEC));
    ssize_t length = fd ? read(fd.get(), text, sizeof text - 1) : -1;
    if (length <= 0)
        return std::nullopt;
    text[length] = 0;
    // The name before the last parenthesis may hold anything. The parent is the
    // second word behind it, the flags are the seventh.
    ProcessStat found;
    const char *rest = strrchr(text, ')');
    for (int word = 1; word <= 7 && rest != nullptr; word++) {
        rest = strchr(rest + 1, ' ');
        if (word == 2 && rest != nullptr)
            found.parent = static_cast<pid_t>(strtol(rest, nullptr, 10));
    }
    if (rest == nullptr)
        return std::nullopt;
    found.flags = strtoul(rest, nullptr, 10);
    return found;
}

bool runs_other_program(pid_t pid) {
    auto found = stat_of(pid);
    return found && (found->flags & forked_not_executed) == 0;
}

bool is_known(pid_t pid) {
    return std::any_of(children.begin(), children.end(),
                       [pid](const Child &child) { return child.pid == pid; });
}

// One that has ended, or is about to, before it could say its id. 0: none.
pid_t silent_child() {
    constexpr unsigned long dead = ending | forked_not_executed;
    std::unique_ptr<DIR, int (*)(DIR *)> processes(opendir("/proc"), closedir);
    while (processes) {
        const dirent *entry = readdir(processes.get());
        if (entry == nullptr)
            break;
        // 0 for what is no number.
        auto pid = static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));
        auto found = pid > 0 ? stat_of(pid) : std::nullopt;
        if (found && found->parent == getpid() &&
            (found->flags & dead) == dead && !is_known(pid))
            return pid;
    }
    return 0;
}

void pay_failure(unsigned, void *);

// Delivered later if nobody takes it now, or if there is no memory.
void deliver_failure() {
    constexpr uint8_t failed[COPY_STATUS_SIZE] = {0, 0, 0, 1};
    owed_failure = true;
    try {
        owed_failure = !deliver(
            ipcbus_make(IPCBUS_OPC_CONFIG_COPY_STATUS, failed, sizeof failed));
    } catch (const std::bad_alloc &) {
        snmp_alarm_register(1, 0, pay_failure, nullptr);
    }
}

// Again later if something is left: copy processes of an agent that was killed
// may still work, and the agent may be out of descriptors.
void sweep(unsigned, void *) {
    static unsigned again = 0;
    if (again != 0)
        snmp_alarm_unregister(again);
    again = staging_sweep() == 0
                ? 0
                : snmp_alarm_register(sweep_seconds, 0, sweep, nullptr);
}

void forget(Children::iterator child) {
    if (child->pipe)
        loop_unwatch(child->pipe.get());
    *child = {};
    spare.splice(spare.end(), children, child);
}

bool make_spare() {
    try {
        if (spare.empty())
            spare.emplace_back();
    } catch (const std::bad_alloc &) {
    }
    return !spare.empty();
}

void note_end(const siginfo_t &how) {
    if (how.si_code != CLD_KILLED && how.si_code != CLD_DUMPED) {
        history_copy_lost("The copy process ended without a report.");
        return;
    }
    char text[128];
    snprintf(text, sizeof text, "The copy process was ended by a signal: %s.",
             strsignal(how.si_status));
    history_copy_lost(text);
}

// The child is gone and reaped, or was never made. `how` it ended, if that is
// known.
void finish(Children::iterator child, const siginfo_t &how = {}) {
    agent_drain(); // its report may wait in the socket
    pid_t pid = child->pid;
    bool reported = child->reported;
    forget(child);
    if (pid != 0)
        ipcbus_sweep(); // it may leave handles to its end
    if (reported)
        return;
    if (pid != 0) {
        log_message(LOG_WARNING, "copy process %d ended without a report", pid);
        note_end(how);
    } else {
        log_message(LOG_ERR, "a copy process could not be started");
        history_copy_lost("The copy process could not be started.");
    }
    deliver_failure();
}

void look_again_soon();

void learn_pid() {
    if (!children.empty() && children.back().pid == 0)
        children.back().pid = newborn->load();
}

// The child's end of the pipe is closed: by its death, or by its exec. Or there
// is no pipe.
void look_at(Children::iterator child) {
    learn_pid();
    if (child->pid == 0 && ++child->looks == most_looks)
        child->pid = silent_child();
    if (child->pid == 0) {
        if (child->looks < most_looks)
            look_again_soon();
        else
            finish(child);
        return;
    }
    siginfo_t info = {};
    int result = waitid(P_PID, static_cast<id_t>(child->pid), &info,
                        WEXITED | WNOHANG | WNOWAIT);
    bool waitable = result == 0 && info.si_pid == child->pid;
    bool gone = result != 0 && errno == ECHILD;
    if (!gone && runs_other_program(child->pid)) {
        forget(child);
    } else if (waitable) {
        sweep(0, nullptr); // first: a process that is gone leaves nothing
        waitpid(child->pid, nullptr, WNOHANG);
        finish(child, info);
    } else if (gone) {
        sweep(0, nullptr);
        finish(child);
    } else {
        look_again_soon();
    }
}

void look_again(unsigned, void *) {
    for (auto child = children.begin(); child != children.end();) {
        auto each = child++;
        if (!each->pipe)
            look_at(each);
    }
}

void look_again_soon() {
    struct timeval delay = {0, 20000};
    snmp_alarm_register_hr(delay, 0, look_again, nullptr);
}

void pipe_readable(Children::iterator child) {
    loop_unwatch(child->pipe.get());
    child->pipe.reset();
    learn_pid();
    if (child->pid == 0)
        child->pid = silent_child();
    if (child->pid == 0)
        finish(child);
    else
        look_at(child);
}

void before_fork() {
    forking = !in_child && module_serves_set();
    if (!forking)
        return;
    forking = make_spare();
    if (!forking) {
        log_message(LOG_ERR, "a copy goes unwatched: no memory");
        return;
    }
    staging_sweep();
    learn_pid();
    newborn->store(0);
    heard = agent_keep_access_point();
    history_forking();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    next_pipe[0] = Fd(ends[0]);
    next_pipe[1] = Fd(ends[1]);
}

void in_parent() {
    if (!forking)
        return;
    int saved = errno; // fork's own
    forking = false;
    history_forked();
    next_pipe[1].reset();
    auto child = spare.begin();
    children.splice(children.end(), spare, child);
    child->pipe = std::move(next_pipe[0]);
    if (!child->pipe ||
        !loop_watch(child->pipe.get(), [child] { pipe_readable(child); })) {
        child->pipe.reset();
        look_again_soon();
    }
    errno = saved;
}

// Lets go of all that is the agent's, as long as it is known what that is; the
// rest is then closed.
void leave_agent() {
    agent_abandon();
    save_watch_abandon();
    loop_abandon();
    children.clear();
    next_pipe[0].reset();
    if (next_pipe[1])
        held_end = fcntl(next_pipe[1].get(), F_DUPFD_CLOEXEC, 3);
    next_pipe[1].reset();
}

bool settle_in() {
    if (!shed_descriptors(held_end)) {
        log_message(LOG_ERR, "the agent's descriptors: %s", strerror(errno));
        return false;
    }
    umask(077); // a configuration on its way is for nobody else
    if (staging_enter())
        return true;
    log_message(LOG_ERR, "no directory to stage a copy in: %s",
                strerror(errno));
    Report none;
    none.reason =
        std::string("Staging the copy: no directory to stage it in: ") +
        strerror(errno);
    none.advice = "Look at the disk and at the state directory of the switch.";
    tell(none);
    return false;
}

// Only in a child that the agent side watches. Other children go on to run
// another program, or are the agent itself on its way to the background.
void in_new_process() {
    if (in_child || !forking)
        return;
    newborn->store(getpid());
    in_child = true;
    leave_agent();
    history_in_copy_process();
    // Its end is a failed copy, which the agent sees.
    if (!heard || !settle_in())
        _exit(1);
}

void pay_failure(unsigned, void *) {
    if (owed_failure)
        deliver_failure();
}

} // namespace

bool copy_child_watch_forks() {
    void *page = mmap(nullptr, sizeof *newborn, PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED)
        return false;
    newborn = new (page) std::atomic<pid_t>(0);
    sweep(0, nullptr);
    return make_spare() &&
           pthread_atfork(before_fork, in_parent, in_new_process) == 0;
}

bool copy_child_reported(pid_t pid) {
    learn_pid(); // the report may be seen before the pipe is
    for (Child &child : children)
        if (child.pid == pid)
            return child.reported = true;
    // What this process tells itself, and one that goes unwatched.
    siginfo_t info = {};
    if (pid == getpid() || waitid(P_PID, static_cast<id_t>(pid), &info,
                                  WEXITED | WNOHANG | WNOWAIT) == 0)
        return true;
    log_message(LOG_WARNING, "a report of process %d, which is none of ours",
                pid);
    return false;
}

void copy_child_subscribed() {
    struct timeval delay = {0, 1000};
    if (owed_failure)
        snmp_alarm_register_hr(delay, 0, pay_failure, nullptr);
}

} // namespace xfhost
