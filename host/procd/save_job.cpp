#include "host/procd/save_job.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <new>
#include <system_error>

#include <sys/wait.h>
#include <unistd.h>

#include "host/base/log.h"
#include "host/base/startup_config.h"
#include "host/errors.h"
#include "host/fabric/results.h"
#include "host/history/moved.h"
#include "host/procd/remote.h"

namespace xfhost {
namespace {

// False if a stop was asked for in that time.
bool pause(int seconds, const std::stop_token &stop) {
    std::mutex mutex; // guards nothing: waiting needs one
    std::condition_variable_any changed;
    std::unique_lock lock(mutex); // cppcheck-suppress localMutex
    changed.wait_for(lock, stop, std::chrono::seconds(seconds),
                     [] { return false; });
    return !stop.stop_requested();
}

// Through the shell: it knows where the running configuration comes from.
int show_running(const Settings &settings, const std::stop_token &stop,
                 std::string &text) {
    SpawnRequest shell;
    shell.path = "/brim/bin/qsh";
    shell.arguments = {"-c", "show running-config"};
    shell.err = STDERR_FILENO; // it says what is wrong
    int status = 0;
    int error = run_and_read(shell, 1, largest_config, settings.apply_seconds,
                             stop, text, status);
    if (error == 0 && (!WIFEXITED(status) || WEXITSTATUS(status) != 0))
        error = EIO;
    return error;
}

// What each switch has to show for the save, kept on the disk as it comes.
class Results {
  public:
    explicit Results(const std::vector<FabricSwitch> &switches) {
        for (const FabricSwitch &each : switches)
            results_.push_back({each.wwn, each.local, true, each.address,
                                "The save ended before this switch answered."});
    }

    // For the report: how many failed, and the first of them.
    void tell_failures() const {
        const auto failed = [](const auto &each) { return each.failed; };
        const auto first =
            std::find_if(results_.begin(), results_.end(), failed);
        const auto count =
            std::count_if(results_.begin(), results_.end(), failed);
        Report report;
        report.reason = "Saving in the fabric: " + std::to_string(count) +
                        " of " + std::to_string(results_.size()) +
                        " switches failed, the first is " + first->address +
                        ": " + first->text;
        report.advice = "The error table has an entry for each of them; mend "
                        "what it says, and save again.";
        tell(report);
    }

    void begin() {
        if (!file_.begin(results_))
            log_message(LOG_ERR, "fabric results: %s", strerror(errno));
    }

    // `why` is empty if all is well.
    void set(size_t which, const std::string &why) {
        std::lock_guard lock(mutex_);
        results_[which].failed = !why.empty();
        results_[which].text = why;
        if (!file_.add(results_[which]))
            begin();
    }

    bool all_done() const {
        return std::none_of(results_.begin(), results_.end(),
                            [](const auto &each) { return each.failed; });
    }

  private:
    std::mutex mutex_;
    std::vector<FabricResult> results_;
    GrowingResults file_;
};

void tell_failure(const std::string &why) {
    Report report;
    report.reason = "Saving on this switch: " + why;
    report.advice = "Look at the disk and the state directory of the switch, "
                    "and into the log of its system manager (procd).";
    tell(report);
}

void save_on_others(const Settings &settings,
                    const std::vector<FabricSwitch> &switches,
                    const std::stop_token &stop, Results &results) {
    std::atomic<size_t> next = 0;
    auto work = [&] {
        for (size_t i = next++; i < switches.size(); i = next++)
            if (!switches[i].local)
                results.set(i, save_on_switch(settings, switches[i], stop));
    };
    std::vector<std::jthread> workers;
    auto most = static_cast<size_t>(settings.fabric_parallel);
    for (size_t i = 1; i < std::min(most, switches.size()); i++)
        workers.emplace_back(work);
    work();
}

} // namespace

uint32_t save_here(const Settings &settings, const std::stop_token &stop,
                   std::string &why) {
    std::string text;
    int error = show_running(settings, stop, text);
    if (error != 0 && error != ECANCELED) {
        why = std::string("The running configuration cannot be read: ") +
              strerror(error);
        log_message(LOG_ERR, "%s", why.c_str());
        return err_startup_not_read;
    }
    auto proceed = [&] { return pause(settings.save_delay_seconds, stop); };
    if (error == 0 && keep_shown(text, proceed)) {
        tell(moved_report(text));
        return 0;
    }
    const int problem = error != 0 ? error : errno;
    if (problem == ECANCELED) {
        why = "The save was aborted.";
        return err_save_aborted;
    }
    why = problem == ENOSPC ? "The disk of this switch is full."
                            : std::string("The startup configuration cannot be "
                                          "kept: ") +
                                  strerror(problem);
    log_message(LOG_ERR, "%s", why.c_str());
    return err_startup_not_kept;
}

uint32_t save_in_fabric(const Settings &settings,
                        const std::vector<FabricSwitch> &switches,
                        const std::stop_token &stop) {
    Results results(switches);
    results.begin();
    for (size_t i = 0; i < switches.size(); i++) {
        if (!switches[i].local)
            continue;
        std::string why;
        save_here(settings, stop, why);
        results.set(i, why);
    }
    save_on_others(settings, switches, stop, results);
    if (results.all_done())
        return 0;
    results.tell_failures();
    return stop.stop_requested() ? err_save_aborted : err_fabric_failed;
}

SaveJob::SaveJob(const Settings &settings, uint32_t token,
                 std::vector<FabricSwitch> switches, int wake)
    : settings_(settings), token_(token), switches_(std::move(switches)),
      wake_(wake), thread_([this](const std::stop_token &stop) { run(stop); }) {
}

SaveJob::~SaveJob() {
    if (thread_.joinable())
        thread_.join();
}

void SaveJob::run(const std::stop_token &stop) {
    try {
        std::string why;
        result_ = switches_.empty()
                      ? save_here(settings_, stop, why)
                      : save_in_fabric(settings_, switches_, stop);
        if (!why.empty())
            tell_failure(why);
    } catch (const std::bad_alloc &) {
        result_ = err_startup_not_kept;
    } catch (const std::system_error &error) {
        log_message(LOG_ERR, "save: %s", error.what());
        result_ = err_startup_not_kept;
    }
    ended_ = true;
    uint64_t one = 1;
    if (write(wake_, &one, sizeof one) != sizeof one)
        log_message(LOG_ERR, "save: %s", strerror(errno));
}

} // namespace xfhost
