// procd, the system manager. Runs in the foreground until SIGTERM or SIGINT.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <pthread.h>
#include <sys/signalfd.h>

#ifdef XF_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

#include "host/base/log.h"
#include "host/base/startup_config.h"
#include "host/history/report.h"
#include "host/procd/manager.h"

using namespace xfhost;

namespace {

// Blocked before any thread is made, so that none of them is interrupted.
Fd stop_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    if (pthread_sigmask(SIG_BLOCK, &set, nullptr) != 0)
        return Fd();
    return Fd(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

// Whoever started this and waits for it hears that requests are answered.
void tell_ready() {
#ifdef XF_SYSTEMD
    int result = sd_notify(0, "READY=1");
    if (result < 0)
        log_message(LOG_WARNING, "readiness: %s", strerror(-result));
#endif
    log_message(LOG_INFO, "ready");
}

} // namespace

int main(int count, char **) {
    if (count != 1) {
        fputs("usage: procd\n", stderr);
        return 64;
    }
    const Settings *s = settings();
    if (s == nullptr)
        return 78;
    // What it tells of a save, and what the shell does that it runs.
    setenv(report_variable, save_report_path().c_str(), 1);
    Fd stop = stop_signals();
    if (!stop) {
        log_message(LOG_ERR, "signals: %s", strerror(errno));
        return 71;
    }
    Manager manager(*s);
    if (!manager.start())
        return 71;
    if (std::string differs = startup_difference(); !differs.empty())
        log_message(LOG_WARNING, "%s", differs.c_str());
    tell_ready();
    manager.serve(stop.get());
    return 0;
}
