#include "host/procd/manager.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "host/base/clock.h"
#include "host/base/log.h"
#include "host/base/record.h"
#include "host/errors.h"
#include "host/history/report.h"
#include "host/procd/save_journal.h"
#include "platform/messages.h"

namespace xfhost {
namespace {

// The agent may be busy for a while, or find its socket gone and make a new
// one, but not for ever.
constexpr int64_t report_ms = 60000;
constexpr int retry_ms = 100;

bool bind_point(int sap, ipcbus_handle &handle) {
    if (ipcbus_bind(IPCBUS_KIND_REQ_RESP, sap, &handle, "procd") >= 0)
        return true;
    log_message(LOG_ERR, "access point %d: %s", sap, strerror(errno));
    return false;
}

} // namespace

Manager::~Manager() {
    ipcbus_drop(requests_, waiting_);
    if (requests_ != nullptr)
        ipcbus_unbind(requests_, 0);
    if (rpc_ != nullptr)
        ipcbus_unbind(rpc_, 0);
}

bool Manager::start() {
    if (!bind_point(IPCBUS_SAP_PROCD, requests_) ||
        !bind_point(IPCBUS_SAP_PROCD_RPC, rpc_))
        return false;
    wake_ = Fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake_) {
        log_message(LOG_ERR, "eventfd: %s", strerror(errno));
        return false;
    }
    // Only now: the access points are ours, no other system manager works.
    if (uint32_t token = noted_save()) {
        log_message(LOG_WARNING, "an earlier save was not finished");
        Report interrupted;
        interrupted.reason = "Saving on this switch: the system manager ended "
                             "in the middle, and was started again.";
        interrupted.advice =
            "Save again; the log of procd may tell why it ended.";
        tell(interrupted);
        report(err_save_interrupted, token);
    }
    return true;
}

void Manager::serve(int stop) {
    for (;;) {
        struct pollfd watched[] = {{stop, POLLIN, 0},
                                   {requests_->socket.get(), POLLIN, 0},
                                   {rpc_->socket.get(), POLLIN, 0},
                                   {wake_.get(), POLLIN, 0}};
        int count = poll(watched, 4, ends_.empty() ? -1 : retry_ms);
        send_ends();
        if (count <= 0)
            continue;
        if (watched[0].revents != 0)
            break;
        if (watched[3].revents != 0)
            save_ended();
        drain(rpc_, &Manager::take_rpc);
        drain(requests_, &Manager::take_request);
    }
    if (!job_)
        return;
    job_->stop();
    job_->wait();
    report(job_->result(), job_->token());
    job_.reset();
}

void Manager::drain(ipcbus_handle queue,
                    void (Manager::*take)(ipcbus_message *)) {
    while (ipcbus_message *message = ipcbus_take(queue))
        (this->*take)(message);
}

void Manager::take_request(ipcbus_message *message) {
    switch (ipcbus_opc_get(message)) {
    case IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION:
        request_save(message);
        return;
    case IPCBUS_OPC_PROCD_COPY_ABORT:
        abort_save(*message);
        break;
    case opcode_heartbeat:
        break; // nothing here acts on a client that falls silent
    case opcode_config_event:
        log_message(LOG_INFO, "process %d copied a configuration",
                    message->sender_pid);
        break;
    default:
        log_message(LOG_WARNING, "unknown message %u", ipcbus_opc_get(message));
    }
    ipcbus_drop(requests_, message);
}

void Manager::take_rpc(ipcbus_message *message) {
    std::vector<uint8_t> octets;
    if (ipcbus_opc_get(message) == PROCD_RPC_SWITCH_WWN)
        octets = wwn_octets(local_wwn(settings_));
    // No octets are an answer too: the caller need not wait.
    if (message->wire.kind == WireKind::request &&
        ipcbus_respond(rpc_, message, octets.data(), octets.size()) != 0)
        log_message(LOG_WARNING, "answer lost: %s", strerror(errno));
    ipcbus_drop(rpc_, message);
}

// Takes the message over.
void Manager::request_save(ipcbus_message *message) {
    if (message->wire.kind != WireKind::request) {
        ipcbus_drop(requests_, message);
        return;
    }
    if (job_ && job_->stopping() && waiting_ == nullptr) {
        waiting_ = message;
        return;
    }
    answer(message, begin_save(*message));
    ipcbus_drop(requests_, message);
}

uint32_t Manager::begin_save(const ipcbus_message &message) {
    auto request = parse_save_request(message.wire.payload);
    if (job_)
        return request ? err_save_busy : err_save_request;
    // Also for a request that is refused: what an earlier save told must not
    // pass for this one's.
    if (!begin_report(save_report_path()))
        log_message(LOG_WARNING, "%s: %s", save_report_path().c_str(),
                    strerror(errno));
    if (!request)
        return err_save_request;
    std::vector<FabricSwitch> switches;
    uint32_t error = choose_switches(*request, switches);
    if (error != 0)
        return error;
    // Without the note a restarted system manager knows nothing of this save;
    // the agent side still does. The save itself tells what is wrong.
    if (!note_save(message.wire.token))
        log_message(LOG_WARNING, "the save is not noted: %s", strerror(errno));
    log_message(LOG_INFO, "save for user=%s session=%s fabric=%d",
                quoted(request->user).c_str(), quoted(request->session).c_str(),
                request->fabric);
    job_ = std::make_unique<SaveJob>(settings_, message.wire.token,
                                     std::move(switches), wake_.get());
    return PROCD_CFG_ACTION_ACCEPTED;
}

// This switch has one startup configuration, so "all" of them is the same as
// "the" startup configuration.
uint32_t Manager::choose_switches(const SaveRequest &request,
                                  std::vector<FabricSwitch> &switches) {
    if (!request.fabric)
        return 0;
    std::string error = load_fabric(settings_, switches);
    if (error.empty() && (settings_.fabric_key_file.empty() ||
                          settings_.fabric_known_hosts.empty()))
        error = "fabric_key_file and fabric_known_hosts must be set";
    // ssh would go on without them, and be refused for another reason.
    for (const std::string *file :
         {&settings_.fabric_key_file, &settings_.fabric_known_hosts})
        if (error.empty() && access(file->c_str(), R_OK) != 0)
            error = *file + ": " + strerror(errno);
    if (error.empty())
        return 0;
    log_message(LOG_ERR, "fabric: %s", error.c_str());
    Report none;
    none.reason = "Looking for the switches of the fabric: " + error;
    none.advice = "Look at the settings fabric_file, fabric_key_file and "
                  "fabric_known_hosts of the switch.";
    tell(none);
    return err_no_fabric;
}

void Manager::abort_save(const ipcbus_message &message) {
    const std::vector<uint8_t> &payload = message.wire.payload;
    if (payload.size() < SAVE_ABORT_TOKEN + 4)
        return;
    uint32_t token = get_be32(payload.data() + SAVE_ABORT_TOKEN);
    if (job_ && token == job_->token()) {
        log_message(LOG_INFO, "the save is aborted");
        job_->stop();
    }
}

void Manager::answer(const ipcbus_message *request, uint32_t result) {
    uint8_t payload[SAVE_ANSWER_SIZE];
    put_be32(payload + SAVE_ANSWER_RESULT, result);
    if (ipcbus_respond(requests_, request, payload, sizeof payload) != 0)
        log_message(LOG_WARNING, "answer lost: %s", strerror(errno));
}

void Manager::save_ended() {
    uint64_t count;
    if (read(wake_.get(), &count, sizeof count) < 0 || !job_ || !job_->ended())
        return;
    report(job_->result(), job_->token());
    job_.reset();
    if (waiting_ != nullptr)
        request_save(std::exchange(waiting_, nullptr));
}

void Manager::report(uint32_t result, uint32_t token) {
    ends_.push_back(
        {save_end_payload(result, token), monotonic_ms() + report_ms});
    send_ends();
    forget_save();
}

void Manager::send_ends() {
    const ipcbus_address agent = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_SNMP_AGENT};
    while (!ends_.empty()) {
        const End &end = ends_.front();
        int result = ipcbus_send(
            requests_, &agent, IPCBUS_OPC_PROCD_COPY_RUN2START_DONE,
            end.payload.data(), static_cast<uint32_t>(end.payload.size()), 0, 0,
            nullptr);
        bool later = result != 0 && (errno == EAGAIN || errno == ENOBUFS ||
                                     errno == ENOENT || errno == ECONNREFUSED);
        if (later && monotonic_ms() < end.deadline)
            return;
        if (result != 0)
            log_message(LOG_WARNING,
                        "the agent is not told of the end of a "
                        "save: %s",
                        strerror(errno));
        ends_.pop_front();
    }
}

} // namespace xfhost
