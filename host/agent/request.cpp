#include "host/agent/request.h"

#include <cerrno>
#include <new>
#include <string_view>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/library/snmpUDPDomain.h>
#include <net-snmp/library/snmpUDPIPv6Domain.h>
#include <net-snmp/library/snmp_transport.h>

#include "host/base/settings.h"
#include "platform/agent_ext.h"

using namespace xfhost;

namespace {

netsnmp_pdu *current_pdu() {
    netsnmp_agent_session *session = netsnmp_get_current_agent_session();
    return session == nullptr ? nullptr : session->pdu;
}

// The peer of "UDP: [192.0.2.1]:4711->[192.0.2.2]:161".
std::string peer_of(std::string_view transport) {
    size_t start = transport.find(": ");
    if (start != std::string_view::npos)
        transport.remove_prefix(start + 2);
    return std::string(transport.substr(0, transport.find("->")));
}

std::string peer_address() {
    netsnmp_agent_session *session = netsnmp_get_current_agent_session();
    netsnmp_pdu *pdu = current_pdu();
    if (pdu == nullptr || session->session == nullptr)
        return "";
    void *holder = snmp_sess_pointer(session->session);
    netsnmp_transport *transport =
        holder == nullptr ? nullptr : snmp_sess_transport(holder);
    if (transport == nullptr)
        return "";
    char *text = netsnmp_transport_peer_string(transport, pdu->transport_data,
                                               pdu->transport_data_length);
    std::string peer = peer_of(text == nullptr ? "" : text);
    free(text);
    return peer;
}

// A community is a password: it never stands for the user. The name that the
// agent's access control maps it to does.
std::string mapped_name(const netsnmp_pdu *pdu) {
    auto community = reinterpret_cast<const char *>(pdu->community);
    const char *name = nullptr;
    const char *context = nullptr;
    if (pdu->tDomain == netsnmpUDPDomain)
        netsnmp_udp_getSecName(pdu->transport_data, pdu->transport_data_length,
                               community, pdu->community_len, &name, &context);
    else if (pdu->tDomain == netsnmp_UDPIPv6Domain)
        netsnmp_udp6_getSecName(pdu->transport_data, pdu->transport_data_length,
                                community, static_cast<int>(pdu->community_len),
                                &name, &context);
    return name == nullptr ? "snmp" : name;
}

} // namespace

namespace xfhost {

std::string request_user(const netsnmp_pdu *pdu) {
    if (pdu == nullptr)
        return "";
    if (pdu->version != SNMP_VERSION_1 && pdu->version != SNMP_VERSION_2c)
        return {pdu->securityName == nullptr ? "" : pdu->securityName,
                pdu->securityName == nullptr ? 0 : pdu->securityNameLen};
    return mapped_name(pdu);
}

std::string request_vrf(const netsnmp_pdu *pdu) {
    const Settings *s = settings();
    if (pdu != nullptr && pdu->contextName != nullptr &&
        pdu->contextNameLen > 0)
        return {pdu->contextName, pdu->contextNameLen};
    return pdu == nullptr || s == nullptr ? "" : s->default_vrf;
}

} // namespace xfhost

const char *get_snmp_sessionid(int) {
    static std::string text;
    try {
        text = peer_address();
    } catch (const std::bad_alloc &) {
        text.clear();
    }
    return text.c_str();
}

const char *get_snmp_username(int) {
    static std::string text;
    try {
        text = request_user(current_pdu());
    } catch (const std::bad_alloc &) {
        text.clear();
    }
    return text.c_str();
}

const char *snmp_get_ctx_vrf_for_current_req(int32_t *error) {
    static std::string text;
    try {
        text = request_vrf(current_pdu());
    } catch (const std::bad_alloc &) {
        text.clear();
    }
    *error = text.empty() ? ENOENT : 0;
    return text.empty() ? nullptr : text.c_str();
}
