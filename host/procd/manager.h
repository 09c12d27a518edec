// The system manager: answers at its two access points, runs one save at a
// time, and tells the agent how it ended.
#ifndef HOST_PROCD_MANAGER_H
#define HOST_PROCD_MANAGER_H

#include <deque>
#include <memory>

#include "host/base/files.h"
#include "host/base/settings.h"
#include "host/ipcbus/queue.h"
#include "host/procd/protocol.h"
#include "host/procd/save_job.h"

namespace xfhost {

class Manager {
  public:
    explicit Manager(const Settings &settings) : settings_(settings) {}
    ~Manager();

    // Takes the access points and fails a save that an earlier system manager
    // left unfinished. False, logged, if that cannot be.
    bool start();

    // Serves until `stop` can be read, then ends a save that runs.
    void serve(int stop);

  private:
    struct End { // of a save, that the agent has not taken yet
        std::vector<uint8_t> payload;
        int64_t deadline;
    };

    void drain(ipcbus_handle queue, void (Manager::*take)(ipcbus_message *));
    void take_request(ipcbus_message *message);
    void take_rpc(ipcbus_message *message);
    void request_save(ipcbus_message *message);
    uint32_t begin_save(const ipcbus_message &message);
    uint32_t choose_switches(const SaveRequest &request,
                             std::vector<FabricSwitch> &switches);
    void abort_save(const ipcbus_message &message);
    void answer(const ipcbus_message *request, uint32_t result);
    void save_ended();
    void report(uint32_t result, uint32_t token);
    void send_ends();

    const Settings &settings_;
    ipcbus_handle requests_ = nullptr, rpc_ = nullptr;
    Fd wake_;
    std::unique_ptr<SaveJob> job_;
    ipcbus_message *waiting_ = nullptr; // a save, until an aborted one is gone
    std::deque<End> ends_;
};

} // namespace xfhost

#endif
