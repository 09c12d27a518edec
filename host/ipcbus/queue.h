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

struct ipcbus_queue {
    int kind = 0;
    int sap = IPCBUS_SAP_ANY;
    std::string name; // of the socket in the run directory, once bound
    xfhost::Fd socket;
    xfhost::Fd lock;   // held while an access point is bound
    pid_t owner = 0;   // the process that bound it
    bool lazy = false; // bound by the first use, in each process anew
    xfhost::Fd peer;   // readable once nobody is left to answer; or empty
};

struct ipcbus_message {
    xfhost::WireMessage wire;
    pid_t sender_pid = 0;
    std::vector<uint8_t> padded; // the payload, followed by zeroes
};

namespace xfhost {

// What the agent side wants to know of the response queue of its process.
struct IpcbusHooks {
    // A message is about to be sent to an access point. False with errno set:
    // it is not.
    bool (*sending)(const WireMessage &message, uint32_t sap) = nullptr;
    // It was sent.
    void (*sent)(const WireMessage &message, uint32_t sap) = nullptr;
    // Whether somebody still waits for a message that was received; if not, it
    // is dropped unseen.
    bool (*wanted)(const ipcbus_message &message) = nullptr;
};
void ipcbus_set_hooks(const IpcbusHooks &hooks);

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

// In a child process: lets go of a queue that is its parent's, without
// touching its name.
void ipcbus_disown(ipcbus_handle queue);

// Removes the sockets that processes which are gone have left behind, those of
// access points aside.
void ipcbus_sweep();

} // namespace xfhost

#endif
