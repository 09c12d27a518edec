// Questions to one agent, over Net-SNMP's library.
#ifndef XFCOPY_SESSION_H
#define XFCOPY_SESSION_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <net-snmp/net-snmp-config.h>
// Before the other headers of the library.
#include <net-snmp/net-snmp-includes.h>

namespace xfcopy {

using Oid = std::vector<oid>;

// A value that an agent sent: `number` of whole numbers and times, `octets`
// of strings; one that is not there has neither.
struct Value {
    Oid name;
    u_char type = SNMP_NOSUCHINSTANCE;
    int64_t number = 0;
    std::string octets;

    bool is_number() const {
        return type == ASN_INTEGER || type == ASN_TIMETICKS ||
               type == ASN_UNSIGNED || type == ASN_COUNTER64;
    }
    bool is_octets() const {
        return type == ASN_OCTET_STR;
    }
};

// A value to be written. The octets stay the caller's.
struct Binding {
    Oid name;
    u_char type;
    long number;
    std::string_view octets;
};

// values       the agent's answer
// refused      its answer is an error about the varbind `position`, from 1
// lost         no answer that can be used: `error` is the library's, `text` its
//              words; whether the agent did what it was asked is not known
// interrupted  a signal came first
struct Answer {
    enum Kind { values, refused, lost, interrupted } kind = lost;
    std::vector<Value> found;
    long error = 0;
    long position = 0;
    std::string text;
};

class Session {
  public:
    // Takes Net-SNMP's options and the agent's address, and opens a session.
    // Empty with an answer that says why if that fails; `usage` is then whether
    // the options are what is wrong. Configuration files are read.
    static std::unique_ptr<Session> open(const std::vector<std::string> &words,
                                         Answer &why, bool &usage);
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
    ~Session();

    // GET: a value for each name. It is repeated as the library's options say,
    // and ended by a signal.
    Answer get(const std::vector<Oid> &names);

    // GETNEXT of one name.
    Answer next(const Oid &name);

    // SET, sent once and not ended by a signal; its answer has no values.
    // Copies of the octets that the library made for it are overwritten; those
    // in its packet buffer by later questions.
    Answer set(const std::vector<Binding> &bindings);

    // Why a secret that is sent to the agent can be read on its way; empty if
    // it is encrypted.
    std::string clear_text_reason() const;

    // Called several times a second while an answer is waited for.
    std::function<void()> while_waiting = [] {};

  private:
    struct Exchange;
    explicit Session(void *handle);
    netsnmp_session &settings() const;
    Answer ask(int command, const std::vector<Binding> &bindings, int retries,
               bool interruptible);
    Answer ask_for(const std::vector<Oid> &names);
    bool wait(const Exchange &exchange, bool interruptible);
    static Answer answer_to(const Exchange &exchange, netsnmp_pdu &pdu);
    static int on_event(int operation, netsnmp_session *session, int request,
                        netsnmp_pdu *pdu, void *magic);

    void *handle_;
    int retries_;
    // Answers to abandoned questions may still come.
    std::vector<std::unique_ptr<Exchange>> exchanges_;
};

} // namespace xfcopy

#endif
