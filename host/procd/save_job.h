// One save of the running configuration, in a thread of its own.
#ifndef HOST_PROCD_SAVE_JOB_H
#define HOST_PROCD_SAVE_JOB_H

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "host/base/settings.h"
#include "host/fabric/fabric.h"

namespace xfhost {

class SaveJob {
  public:
    // Begins at once. `token` names the request. With `switches` the save goes
    // to each of them, else to this switch alone. `wake` is an eventfd that is
    // written to at the end.
    SaveJob(const Settings &settings, uint32_t token,
            std::vector<FabricSwitch> switches, int wake);

    // Waits for the end.
    ~SaveJob();

    uint32_t token() const {
        return token_;
    }

    // Asks for an early end. What is not done yet stays undone.
    void stop() {
        thread_.request_stop();
    }

    // Waits for the end.
    void wait() {
        thread_.join();
    }

    bool stopping() const {
        return thread_.get_stop_token().stop_requested();
    }

    bool ended() const {
        return ended_;
    }

    // 0 or an error code; once it has ended.
    uint32_t result() const {
        return result_;
    }

  private:
    void run(const std::stop_token &stop);

    const Settings &settings_;
    const uint32_t token_;
    const std::vector<FabricSwitch> switches_;
    const int wake_;
    uint32_t result_ = 0;
    std::atomic<bool> ended_ = false;
    std::jthread thread_; // last: it uses the others
};

// Saves on this switch alone. Returns 0 or an error code; `why` tells a person
// what went wrong.
uint32_t save_here(const Settings &settings, const std::stop_token &stop,
                   std::string &why);

// Saves on this switch and then on every other one, several at a time, and
// stores what became of it. Returns 0 or an error code.
uint32_t save_in_fabric(const Settings &settings,
                        const std::vector<FabricSwitch> &switches,
                        const std::stop_token &stop);

} // namespace xfhost

#endif
