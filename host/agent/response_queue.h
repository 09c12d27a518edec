// The response queue of this process: ipcbus_response_q. Bound by its first
// use, in each process anew; nobody gives it back.
//
// A request to save goes out on it and its first answer comes in on it: it
// tells save_watch, and leaves to that which answers the module gets to see.
#ifndef HOST_AGENT_RESPONSE_QUEUE_H
#define HOST_AGENT_RESPONSE_QUEUE_H

#include "host/ipcbus/queue.h"

namespace xfhost {

class ResponseQueue final : public ipcbus_queue {
  public:
    ResponseQueue() : ipcbus_queue(IPCBUS_KIND_REQ_RESP, IPCBUS_SAP_ANY) {}

    bool ready() override;
    // A request has a socket for its answer behind it, even if somebody has
    // removed that from the run directory.
    bool send(const WireMessage &message, uint32_t to) override;
    ipcbus_message *receive(int64_t deadline) override;
    bool can_be_unbound() const override {
        return false;
    }

    // Waits only as long as `answerer` cannot be read: whoever is to answer has
    // ended then. Empty: for as long as it takes.
    void wait_for(Fd answerer) {
        answerer_ = std::move(answerer);
    }

    // In a forked child: lets go of what is the agent's.
    void abandon();

  private:
    Fd answerer_;
};

// The one that ipcbus_response_q is.
ResponseQueue &response_queue();

} // namespace xfhost

#endif
