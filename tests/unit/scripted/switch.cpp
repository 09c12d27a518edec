#include <arpa/inet.h>

#include "scripted/note.h"

using namespace scripted;

extern "C" {

int ip_addr_to_str(const struct ip_addr *address, char *text, uint32_t size) {
    const int result = platform().addr_to_str_results.take();

    asked(__func__,
          print("%s(%s, %u)", __func__, shown(address).c_str(), size));
    if (result != 0)
        return result;
    const int family = address->type == INET_ADDRESS_IPV4   ? AF_INET
                       : address->type == INET_ADDRESS_IPV6 ? AF_INET6
                                                            : -1;
    if (family == -1)
        return EINVAL;
    struct ip_addr whole = *address;
    return inet_ntop(family, whole.octets, text, size) == nullptr ? errno : 0;
}

int ip_addr_from_str(const char *text, struct ip_addr *address) {
    const int result = platform().addr_from_str_results.take();
    struct ip_addr parsed = {};

    asked(__func__, print("%s(%s)", __func__, text_or_null(text).c_str()));
    if (result != 0)
        return result;
    if (inet_pton(AF_INET, text, parsed.octets) == 1)
        parsed.type = INET_ADDRESS_IPV4;
    else if (inet_pton(AF_INET6, text, parsed.octets) == 1)
        parsed.type = INET_ADDRESS_IPV6;
    else
        return EINVAL;
    *address = parsed;
    return 0;
}

int if_index_mgmt_sup_port_init(uint32_t *if_index, int module, int port) {
    const int result = platform().mgmt_port_results.take();

    asked(__func__, print("%s(%d, %d)", __func__, module, port));
    if (result == 0)
        *if_index = 0x05000000;
    return result;
}

int ipconf_get_if_inet_addrs(ipcbus_handle queue, uint32_t if_index,
                             struct if_inet_addrs **addresses) {
    Platform &p = platform();
    const int result = p.interface_results.take();

    asked(__func__, print("%s(%s, 0x%x)", __func__, name_of(queue), if_index));
    if (no_memory(__func__))
        return ENOMEM;
    if (!p.interface_addresses.has_value())
        return result;
    const auto &given = *p.interface_addresses;
    auto *const list = static_cast<struct if_inet_addrs *>(allocated_for_module(
        sizeof(struct if_inet_addrs) + given.size() * sizeof(struct ip_addr)));
    list->count = static_cast<uint32_t>(given.size());
    for (size_t i = 0; i < given.size(); i++)
        list->addrs[i] = given[i];
    *addresses = list;
    return result;
}

int grove_status_next_get(struct grove_status *status, char *text,
                          uint32_t limit, const uint8_t *local_wwn) {
    Platform &p = platform();

    Event &event = called(
        __func__,
        print("%s(%s, %u, %s)", __func__,
              quote({reinterpret_cast<const char *>(status->wwn), 8}).c_str(),
              limit,
              quote({reinterpret_cast<const char *>(local_wwn), 8}).c_str()));
    event.octets =
        std::string(reinterpret_cast<const char *>(status), sizeof(*status));
    event.strings = {std::string(text, limit)};
    hook(__func__);
    if (p.grove_records.empty())
        return p.grove_end;
    const GroveRecord record = p.grove_records.front();
    p.grove_records.pop_front();
    memcpy(status->wwn, record.wwn.data(), sizeof(status->wwn));
    status->is_local = record.is_local;
    status->address = record.address;
    const std::string cut = record.text.substr(0, limit);
    memcpy(text, cut.c_str(), cut.size() + 1);
    return 0;
}

void grove_status_clean(int result) {
    called(__func__, print("%s(%d)", __func__, result));
}

int hwinfo_get_chassis_type(int32_t *type) {
    asked(__func__, print("%s()", __func__));
    const int result = platform().chassis_results.take();
    if (result == 0)
        *type = platform().chassis_type;
    return result;
}

int pod_get_type(int partition) {
    asked(__func__, print("%s(%d)", __func__, partition));
    return platform().pod_type.take();
}

int32_t vrfmgr_get_context_id(const char *name) {
    asked(__func__, print("%s(%s)", __func__, text_or_null(name).c_str()))
        .strings = {copy_or_empty(name)};
    return platform().vrf_context.take();
}

} // extern "C"
