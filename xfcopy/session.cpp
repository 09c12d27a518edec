#include "xfcopy/session.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/select.h>

#include "xfcopy/signals.h"

namespace xfcopy {

struct Session::Exchange {
    netsnmp_pdu *sent = nullptr; // the library's
    bool reads = true;           // its answer has values that are wanted
    bool done = false;
    Answer answer;
};

namespace {

constexpr long tick_microseconds = 200'000;

void wipe(netsnmp_pdu *pdu) {
    for (netsnmp_variable_list *each = pdu == nullptr ? nullptr
                                                      : pdu->variables;
         each != nullptr; each = each->next_variable)
        if (each->type == ASN_OCTET_STR && each->val.string != nullptr)
            explicit_bzero(each->val.string, each->val_len);
}

Value value_of(const netsnmp_variable_list &variable) {
    Value value;
    value.name.assign(variable.name, variable.name + variable.name_length);
    value.type = variable.type;
    if (value.type == ASN_COUNTER64 && variable.val.counter64 != nullptr)
        value.number =
            static_cast<int64_t>(uint64_t{variable.val.counter64->high} << 32 |
                                 variable.val.counter64->low);
    else if (value.is_number() && variable.val.integer != nullptr)
        value.number = *variable.val.integer;
    else if (value.is_octets() && variable.val.string != nullptr)
        value.octets.assign(reinterpret_cast<const char *>(variable.val.string),
                            variable.val_len);
    return value;
}

Answer lost(int error) {
    Answer answer;
    answer.error = error;
    answer.text = snmp_api_errstring(error);
    return answer;
}

bool asks_once_more(int operation, netsnmp_pdu *pdu) {
    return operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE &&
           pdu != nullptr && pdu->command == SNMP_MSG_REPORT &&
           snmpv3_get_report_type(pdu) == SNMPERR_NOT_IN_TIME_WINDOW;
}

// The answer's values, in the order of the names that were asked for.
Answer in_order(Answer answer, const std::vector<Oid> &names) {
    std::vector<Value> all(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        all[i].name = names[i];
        for (const Value &each : answer.found)
            if (each.name == names[i])
                all[i] = each;
    }
    answer.found = std::move(all);
    return answer;
}

Answer answer_of(const netsnmp_pdu &pdu, bool with_values) {
    Answer answer;
    if (pdu.errstat != SNMP_ERR_NOERROR) {
        answer.kind = Answer::refused;
        answer.error = pdu.errstat;
        answer.position = pdu.errindex;
        return answer;
    }
    answer.kind = Answer::values;
    const netsnmp_variable_list *each = with_values ? pdu.variables : nullptr;
    for (; each != nullptr; each = each->next_variable)
        answer.found.push_back(value_of(*each));
    return answer;
}

bool names_match(const std::vector<Value> &found,
                 const std::vector<Oid> &names) {
    return std::equal(
        found.begin(), found.end(), names.begin(), names.end(),
        [](const Value &value, const Oid &name) { return value.name == name; });
}

bool is_value_type(u_char type) {
    return type == ASN_INTEGER || type == ASN_OCTET_STR;
}

netsnmp_pdu *make_pdu(int command, const std::vector<Binding> &bindings) {
    netsnmp_pdu *const pdu = snmp_pdu_create(command);
    if (pdu == nullptr)
        return nullptr;
    for (const Binding &each : bindings) {
        const bool number = each.type == ASN_INTEGER;
        const void *const data =
            number ? static_cast<const void *>(&each.number)
                   : static_cast<const void *>(each.octets.data());
        snmp_pdu_add_variable(
            pdu, each.name.data(), each.name.size(), each.type,
            is_value_type(each.type) ? data : nullptr,
            number ? sizeof(each.number) : each.octets.size());
    }
    return pdu;
}

std::vector<Binding> without_values(const std::vector<Oid> &names) {
    std::vector<Binding> bindings;
    bindings.reserve(names.size());
    for (const Oid &name : names)
        bindings.push_back({name, ASN_NULL, 0, {}});
    return bindings;
}

// Net-SNMP's options and the agent's address as an argument list. A session
// that is to be opened points into it; passphrases are overwritten at the end.
class Arguments {
  public:
    explicit Arguments(std::vector<std::string> words)
        : words_(std::move(words)) {
        list_.push_back(name_.data());
        for (std::string &each : words_)
            list_.push_back(each.data());
        list_.push_back(nullptr);
    }
    Arguments(const Arguments &) = delete;
    Arguments &operator=(const Arguments &) = delete;
    ~Arguments() {
        for (std::string &each : words_)
            explicit_bzero(each.data(), each.size());
    }
    // The result of netsnmp_parse_args, which prints what is wrong.
    int parse(netsnmp_session &wanted) {
        optind = 1;
        return netsnmp_parse_args(static_cast<int>(list_.size()) - 1,
                                  list_.data(), &wanted, "", nullptr, 0);
    }

  private:
    std::string name_ = "xfcopy";
    std::vector<std::string> words_;
    std::vector<char *> list_;
};

} // namespace

Session::Session(void *handle)
    : handle_(handle), retries_(settings().retries) {}

Session::~Session() {
    snmp_sess_close(handle_);
}

netsnmp_session &Session::settings() const {
    return *snmp_sess_session(handle_);
}

std::unique_ptr<Session> Session::open(const std::vector<std::string> &words,
                                       Answer &why, bool &usage) {
    setenv("MIBS", "", 1); // names are of no use here, nor is what is missing
    netsnmp_session wanted;
    snmp_sess_init(&wanted);
    Arguments arguments(words);
    const int parsed = arguments.parse(wanted);
    usage = parsed < 0;
    why = {};
    if (parsed < 0) {
        why.error = parsed;
        return nullptr;
    }
    void *const handle = snmp_sess_open(&wanted);
    free(wanted.community); // the session has its own
    if (handle != nullptr)
        return std::unique_ptr<Session>(new Session(handle));
    int system_error = 0;
    int library_error = 0;
    char *text = nullptr;
    snmp_error(&wanted, &system_error, &library_error, &text);
    why = lost(library_error != 0 ? library_error : snmp_errno);
    if (text != nullptr)
        why.text = text;
    free(text);
    return nullptr;
}

Answer Session::answer_to(const Exchange &exchange, netsnmp_pdu &pdu) {
    if (pdu.command == SNMP_MSG_REPORT)
        return lost(snmpv3_get_report_type(&pdu));
    Answer answer = answer_of(pdu, exchange.reads);
    wipe(&pdu);
    return answer;
}

int Session::on_event(int operation, netsnmp_session *session, int,
                      netsnmp_pdu *pdu, void *magic) {
    Exchange &exchange = *static_cast<Exchange *>(magic);
    if (asks_once_more(operation, pdu))
        return 1; // the library does, with the time that it was told
    switch (operation) {
    case NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE:
        if (pdu != nullptr)
            exchange.answer = answer_to(exchange, *pdu);
        break;
    case NETSNMP_CALLBACK_OP_TIMED_OUT:
        exchange.answer = lost(SNMPERR_TIMEOUT);
        break;
    case NETSNMP_CALLBACK_OP_SEND_FAILED:
        exchange.answer = lost(SNMPERR_BAD_SENDTO);
        break;
    case NETSNMP_CALLBACK_OP_SEC_ERROR:
        exchange.answer = lost(session->s_snmp_errno);
        break;
    default:
        return 1;
    }
    wipe(exchange.sent);
    exchange.sent = nullptr;
    exchange.done = true;
    return 1;
}

// Until the exchange is done; false if a signal came first.
bool Session::wait(const Exchange &exchange, bool interruptible) {
    while (!exchange.done) {
        int count = 0;
        int nothing_sent = 1;
        timeval left = {0, tick_microseconds};
        fd_set sockets;
        FD_ZERO(&sockets);
        snmp_sess_select_info(handle_, &count, &sockets, &left, &nothing_sent);
        if (nothing_sent != 0)
            return true; // the library has given it up
        if (left.tv_sec > 0 || left.tv_usec > tick_microseconds)
            left = {0, tick_microseconds};
        const timespec time = {left.tv_sec, left.tv_usec * 1000};
        const int ready = pselect(count, &sockets, nullptr, nullptr, &time,
                                  interruptible ? &waiting_mask() : nullptr);
        if (interruptible && interrupting_signal() != 0)
            return false;
        if (ready > 0)
            snmp_sess_read(handle_, &sockets);
        else
            snmp_sess_timeout(handle_);
        while_waiting();
    }
    return true;
}

Answer Session::ask(int command, const std::vector<Binding> &bindings,
                    int retries, bool interruptible) {
    netsnmp_pdu *const pdu = make_pdu(command, bindings);
    if (pdu == nullptr)
        return lost(SNMPERR_MALLOC);
    Exchange &exchange = *exchanges_.emplace_back(std::make_unique<Exchange>());
    exchange.sent = pdu;
    exchange.reads = command != SNMP_MSG_SET;
    exchange.answer = lost(SNMPERR_TIMEOUT);
    settings().retries = retries;
    if (snmp_sess_async_send(handle_, pdu, on_event, &exchange) == 0) {
        wipe(pdu);
        snmp_free_pdu(pdu);
        exchanges_.pop_back();
        const int error = settings().s_snmp_errno;
        return lost(error != 0 ? error : SNMPERR_BAD_SENDTO);
    }
    if (!wait(exchange, interruptible)) {
        Answer answer;
        answer.kind = Answer::interrupted;
        return answer;
    }
    Answer answer = std::move(exchange.answer);
    if (exchange.done)
        exchanges_.pop_back();
    return answer;
}

Answer Session::ask_for(const std::vector<Oid> &names) {
    Answer answer = ask(SNMP_MSG_GET, without_values(names), retries_, true);
    if (answer.kind == Answer::values && !names_match(answer.found, names))
        return lost(SNMPERR_BAD_PARSE);
    return answer;
}

// SNMPv1 answers with an error as long as there is a name that it does not
// have.
Answer Session::get(const std::vector<Oid> &names) {
    std::vector<Oid> left = names;
    while (!left.empty()) {
        Answer answer = ask_for(left);
        const auto position = static_cast<size_t>(answer.position);
        const bool missing = answer.kind == Answer::refused &&
                             answer.error == SNMP_ERR_NOSUCHNAME &&
                             position >= 1 && position <= left.size();
        if (answer.kind == Answer::values)
            return in_order(std::move(answer), names);
        if (!missing)
            return answer;
        left.erase(left.begin() + static_cast<long>(position) - 1);
    }
    Answer nothing;
    nothing.kind = Answer::values;
    return in_order(std::move(nothing), names);
}

Answer Session::next(const Oid &name) {
    Answer answer =
        ask(SNMP_MSG_GETNEXT, without_values({name}), retries_, true);
    if (answer.kind == Answer::refused && answer.error == SNMP_ERR_NOSUCHNAME) {
        answer.kind = Answer::values;
        answer.found = {Value{name, SNMP_ENDOFMIBVIEW, 0, ""}};
    }
    if (answer.kind == Answer::values && answer.found.size() != 1)
        return lost(SNMPERR_BAD_PARSE);
    return answer;
}

Answer Session::set(const std::vector<Binding> &bindings) {
    return ask(SNMP_MSG_SET, bindings, 0, false);
}

std::string Session::clear_text_reason() const {
    const netsnmp_session &now = settings();
    if (now.version == SNMP_VERSION_1)
        return "SNMPv1 encrypts nothing";
    if (now.version == SNMP_VERSION_2c)
        return "SNMPv2c encrypts nothing";
    if (now.securityModel == SNMP_SEC_MODEL_USM &&
        now.securityLevel != SNMP_SEC_LEVEL_AUTHPRIV)
        return "the level of security is not authPriv";
    return "";
}

} // namespace xfcopy
