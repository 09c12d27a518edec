#include "tests/fuzz/agent.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <sys/select.h>

#include <net-snmp/library/snmp_transport.h>

#include "tests/fuzz/check.h"
#include "tests/fuzz/platform.h"
#include "tests/fuzz/rows.h"

namespace fuzz {
namespace {

// ---- Encoding ---------------------------------------------------------------

std::string tagged(uint8_t tag, const std::string &content) {
    std::string octets(1, static_cast<char>(tag));
    const size_t length = content.size();
    if (length < 128) {
        octets += static_cast<char>(length);
    } else {
        octets += '\x82';
        octets += static_cast<char>(length >> 8);
        octets += static_cast<char>(length & 0xff);
    }
    return octets + content;
}

void add_subid(std::string &octets, uint64_t value) {
    int shift = 63;
    while (shift > 0 && value >> shift == 0)
        shift -= 7;
    for (; shift > 0; shift -= 7)
        octets += static_cast<char>((value >> shift & 0x7f) | 0x80);
    octets += static_cast<char>(value & 0x7f);
}

std::string oid_octets(const Oid &name) {
    std::string octets;
    add_subid(octets, uint64_t{name[0]} * 40 + name[1]);
    for (size_t i = 2; i < name.size(); i++)
        add_subid(octets, name[i]);
    return octets;
}

std::string encode(const Request &request) {
    std::string list;
    for (const Varbind &each : request.varbinds)
        list += tagged(0x30, tagged(ASN_OBJECT_ID, oid_octets(each.name)) +
                                 tagged(each.type, each.value));
    const std::string pdu =
        tagged(ASN_INTEGER, integer_octets(7)) +
        tagged(ASN_INTEGER, integer_octets(request.non_repeaters)) +
        tagged(ASN_INTEGER, integer_octets(request.repetitions)) +
        tagged(0x30, list);
    return tagged(0x30, tagged(ASN_INTEGER, integer_octets(1)) +
                            tagged(ASN_OCTET_STR, "fuzz") +
                            tagged(request.command, pdu));
}

// ---- Decoding: the agent's own answers, so what is wrong is a failure -------

struct Reader {
    std::string_view left;

    uint8_t octet() {
        FUZZ_CHECK(!left.empty(), "an answer that is cut");
        auto first = static_cast<uint8_t>(left[0]);
        left.remove_prefix(1);
        return first;
    }
    std::string_view content(uint8_t &tag) {
        tag = octet();
        size_t length = octet();
        if (length > 128) {
            size_t octets = length - 128;
            for (length = 0; octets > 0; octets--)
                length = length << 8 | octet();
        }
        FUZZ_CHECK(length <= left.size(), "an answer that is cut");
        std::string_view found = left.substr(0, length);
        left.remove_prefix(length);
        return found;
    }
    std::string_view expect(uint8_t tag) {
        uint8_t found;
        std::string_view octets = content(found);
        FUZZ_CHECK(found == tag, "an answer with tag %u for %u", found, tag);
        return octets;
    }
};

int32_t decode_integer(std::string_view octets) {
    int64_t value =
        !octets.empty() && static_cast<int8_t>(octets[0]) < 0 ? -1 : 0;
    for (char each : octets)
        value = static_cast<int64_t>(static_cast<uint64_t>(value) << 8 |
                                     static_cast<uint8_t>(each));
    return static_cast<int32_t>(value);
}

Oid decode_oid(std::string_view octets) {
    Oid name;
    uint64_t value = 0;
    for (char each : octets) {
        value = value << 7 | (static_cast<uint8_t>(each) & 0x7fu);
        if ((static_cast<uint8_t>(each) & 0x80u) != 0)
            continue;
        if (name.empty()) {
            const uint64_t first = value < 80 ? value / 40 : 2;
            name.push_back(static_cast<uint32_t>(first));
            value -= first * 40;
        }
        name.push_back(static_cast<uint32_t>(value));
        value = 0;
    }
    return name;
}

Response decode(const std::string &octets) {
    Response response = {};
    response.octets = octets;
    Reader message{Reader{octets}.expect(0x30)};
    message.expect(ASN_INTEGER);
    message.expect(ASN_OCTET_STR);
    Reader pdu{message.expect(SNMP_MSG_RESPONSE)};
    FUZZ_CHECK(decode_integer(pdu.expect(ASN_INTEGER)) == 7,
               "an answer to another request");
    response.error_status = decode_integer(pdu.expect(ASN_INTEGER));
    response.error_index = decode_integer(pdu.expect(ASN_INTEGER));
    for (Reader list{pdu.expect(0x30)}; !list.left.empty();) {
        Reader pair{list.expect(0x30)};
        Varbind varbind;
        varbind.name = decode_oid(pair.expect(ASN_OBJECT_ID));
        varbind.value = pair.content(varbind.type);
        response.varbinds.push_back(varbind);
    }
    return response;
}

// ---- Transport --------------------------------------------------------------

constexpr size_t largest_message = 65000;
constexpr oid transport_domain[] = {1, 3, 6, 1, 4, 1, 32473, 9};

std::string to_agent;
std::vector<std::string> from_agent;

int transport_recv(netsnmp_transport *, void *buffer, int size, void **opaque,
                   int *opaque_length) {
    FUZZ_CHECK(to_agent.size() <= static_cast<size_t>(size),
               "a request of %zu octets", to_agent.size());
    memcpy(buffer, to_agent.data(), to_agent.size());
    *opaque = nullptr;
    *opaque_length = 0;
    return static_cast<int>(to_agent.size());
}

int transport_send(netsnmp_transport *, const void *buffer, int size, void **,
                   int *) {
    from_agent.emplace_back(static_cast<const char *>(buffer),
                            static_cast<size_t>(size));
    return size;
}

int transport_close(netsnmp_transport *) {
    return 0;
}

char *transport_name(netsnmp_transport *, const void *, int) {
    return strdup("fuzz");
}

int transport_socket;

void open_transport() {
    auto *transport =
        static_cast<netsnmp_transport *>(calloc(1, sizeof(netsnmp_transport)));
    transport_socket = open("/dev/null", O_RDWR | O_CLOEXEC);
    transport->domain = transport_domain;
    transport->domain_length = OID_LENGTH(transport_domain);
    transport->sock = transport_socket;
    transport->msgMaxSize = largest_message;
    transport->f_recv = transport_recv;
    transport->f_send = transport_send;
    transport->f_close = transport_close;
    transport->f_fmtaddr = transport_name;
    // As the agent adds its own, but for the look at the machine's tables of
    // peers that are let in.
    netsnmp_session session;
    snmp_sess_init(&session);
    session.version = SNMP_DEFAULT_VERSION;
    session.isAuthoritative = SNMP_SESS_AUTHORITATIVE;
    session.callback = handle_snmp_packet;
    FUZZ_CHECK(snmp_add(&session, transport, nullptr, nullptr) != nullptr,
               "the agent does not take the transport");
}

// ---- Phases -----------------------------------------------------------------

Phases seen;

bool is_row_status(const netsnmp_handler_registration *registration) {
    return registration->rootoid_len == XF_COLUMN_OID_LENGTH &&
           registration->rootoid[11] == 1 && registration->rootoid[13] == 14;
}

RowStatusWrite write_of(const netsnmp_variable_list *varbind) {
    const bool has_value =
        varbind->type == ASN_INTEGER && varbind->val.integer != nullptr;
    return {static_cast<int32_t>(varbind->name[varbind->name_length - 1]),
            varbind->name_length == XF_VARBIND_OID_LENGTH,
            has_value ? static_cast<int32_t>(*varbind->val.integer) : -1};
}

// UNDO of an activation whose row is gone answers genErr and loses the record.
void note_undo(const RowStatusWrite &write) {
    if (write.exact && write.value == XF_ROW_ACTIVE &&
        undo_indexes().count(write.index) != 0 && !row_exists(write.index))
        platform().allowed_leaks++;
}

int watch(netsnmp_mib_handler *handler,
          netsnmp_handler_registration *registration,
          netsnmp_agent_request_info *info, netsnmp_request_info *requests) {
    seen.commit |= info->mode == MODE_SET_COMMIT;
    seen.free |= info->mode == MODE_SET_FREE;
    seen.undo |= info->mode == MODE_SET_UNDO;
    if (!is_row_status(registration))
        return netsnmp_call_next_handler(handler, registration, info, requests);
    if (info->mode == MODE_SET_RESERVE1)
        for (auto *each = requests; each != nullptr; each = each->next)
            seen.row_status.push_back(write_of(each->requestvb));
    if (info->mode == MODE_SET_UNDO)
        for (auto *each = requests; each != nullptr; each = each->next)
            note_undo(write_of(each->requestvb));
    return netsnmp_call_next_handler(handler, registration, info, requests);
}

void watch_columns() {
    for (const variable7 &each : config_copy_mib_variables) {
        oid name[XF_COLUMN_OID_LENGTH];
        memcpy(name, config_copy_mib_variables_oid, 9 * sizeof(oid));
        memcpy(name + 9, each.name, 5 * sizeof(oid));
        netsnmp_subtree *subtree =
            netsnmp_subtree_find(name, XF_COLUMN_OID_LENGTH, nullptr, "");
        FUZZ_CHECK(subtree != nullptr && subtree->reginfo != nullptr,
                   "a column is not registered");
        netsnmp_inject_handler(subtree->reginfo,
                               netsnmp_create_handler("fuzz_watch", watch));
    }
}

} // namespace

std::string integer_octets(int64_t value) {
    std::string octets;
    int shift = 56;
    // Leading octets that only repeat the sign are left out.
    while (shift > 0 && value >> (shift - 1) == (value < 0 ? -1 : 0))
        shift -= 8;
    for (; shift >= 0; shift -= 8)
        octets += static_cast<char>(value >> shift & 0xff);
    return octets;
}

void start_agent() {
    setenv("MIBS", "", 1);
    setenv("SNMPCONFPATH", "/nonexistent", 1);
    setenv("SNMP_PERSISTENT_DIR", "/nonexistent", 1);
    snmp_disable_log();
    FUZZ_CHECK(init_agent("fuzz") == 0, "the agent does not start");
    // Access control is one of them: everybody may do everything.
    clear_callback();
    start_module();
    watch_columns();
    open_transport();
}

std::optional<Response> ask_anything(const Request &request) {
    fd_set sockets;
    FD_ZERO(&sockets);
    FD_SET(transport_socket, &sockets);
    seen = {};
    from_agent.clear();
    to_agent = encode(request);
    snmp_read(&sockets);
    FUZZ_CHECK(from_agent.size() <= 1, "%zu answers", from_agent.size());
    if (from_agent.empty())
        return std::nullopt;
    return decode(from_agent[0]);
}

Response ask(const Request &request) {
    std::optional<Response> response = ask_anything(request);
    FUZZ_CHECK(response.has_value(), "no answer");
    return *response;
}

const Phases &phases() {
    return seen;
}

Oid root() {
    return Oid(config_copy_mib_variables_oid,
               config_copy_mib_variables_oid + 9);
}

Oid below_root(const std::vector<uint32_t> &rest) {
    Oid name = root();
    name.insert(name.end(), rest.begin(), rest.end());
    return name;
}

} // namespace fuzz
