// What a handle and a message are made of, for the other parts of the platform:
// the agent side watches its handle's socket, a service answers requests.
#ifndef HOST_IPCBUS_QUEUE_H
#define HOST_IPCBUS_QUEUE_H

#include <string>
#include <vector>

#include <sys/types.h>

#include "host/base/files.h"
#include "host/ipcbus/wire.h"
#include "platform/ipcbus.h"

// A bound handle. What differs for the response queue of an agent overrides
// this, see host/agent/response_queue.h.
struct ipcbus_queue {
    int kind = 0;
    int sap = IPCBUS_SAP_ANY;
    std::string name; // of the socket in the run directory, once bound
    xfhost::Fd socket;
    xfhost::Fd lock; // held while an access point is bound
    pid_t owner = 0; // the process that bound it

    ipcbus_queue(int of_kind, int at_sap) : kind(of_kind), sap(at_sap) {}
    virtual ~ipcbus_queue() = default;
    ipcbus_queue(const ipcbus_queue &) = delete;
    ipcbus_queue &operator=(const ipcbus_queue &) = delete;

    // Makes and binds the socket for this process. False with errno set.
    bool bind();

    // Whether this process can use it. False with errno set.
    virtual bool ready();

    // Sends to an access point. False with errno set.
    virtual bool send(const xfhost::WireMessage &message, uint32_t to);

    // Waits for the next message until `deadline` of the monotonic clock in
    // milliseconds; -1 is for ever. NULL with errno set.
    virtual ipcbus_message *receive(int64_t deadline);

    // Whether whoever has the handle may unbind it.
    virtual bool can_be_unbound() const {
        return true;
    }

  protected:
    // The same until `peer` can be read as well, which nobody answers behind:
    // NULL with EPIPE then, if nothing has come before. -1: there is none.
    ipcbus_message *receive_from(int peer, int64_t deadline);
};

struct ipcbus_message {
    xfhost::WireMessage wire;
    pid_t sender_pid = 0;
    std::vector<uint8_t> padded; // the payload, followed by zeroes
};

namespace xfhost {

// The process that has an access point bound; 0 if it cannot be told. To be
// asked after a message was sent there: then somebody has it, or has just died.
pid_t ipcbus_holder(uint32_t sap);

// Takes the next message that waits on a queue, without waiting for one.
// NULL if there is none (errno EAGAIN), if the transport failed, or if there is
// no memory for it (ENOMEM): it then waits on.
ipcbus_message *ipcbus_take(ipcbus_handle queue);

// A message that no other process sent, for the same handlers.
ipcbus_message *ipcbus_make(uint32_t opcode, const void *payload,
                            size_t length);

// Answers a request. Returns 0; -1 with errno set.
int ipcbus_respond(ipcbus_handle queue, const ipcbus_message *request,
                   const void *payload, size_t length);

// Whether somebody listens under the name of the queue; false only if that is
// certain.
bool ipcbus_reachable(ipcbus_handle queue);

// Makes the socket of a queue that is bound anew, under the same name. What
// waited in the old one is lost. False with errno set.
bool ipcbus_rebind(ipcbus_handle queue);

// Removes the socket of a queue from the run directory.
void ipcbus_remove_name(const ipcbus_queue &queue);

// In a child process: lets go of a queue that is its parent's, without
// touching its name.
void ipcbus_disown(ipcbus_handle queue);

// Removes the sockets that processes which are gone have left behind, those of
// access points aside.
void ipcbus_sweep();

} // namespace xfhost

#endif
