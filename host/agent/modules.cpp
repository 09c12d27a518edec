#include "host/agent/modules.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <dlfcn.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/old_api.h>

#include <net-snmp/agent/agent_callbacks.h>

#include "host/agent/history.h"
#include "host/agent/name_guard.h"
#include "host/base/log.h"
#include "host/base/vrf.h"

namespace xfhost {
namespace {

constexpr int starttime_change = 9; // minor id of the library callback

struct Module {
    const void *base; // where the object is mapped: its name here
    void *object;     // for dlsym; never closed
};

std::vector<Module> modules;
bool debug = false;

bool in_module(const void *address, const void *base) {
    Dl_info info;
    return address != nullptr && dladdr(address, &info) != 0 &&
           info.dli_fbase == base;
}

bool known_module(const void *address) {
    return std::any_of(modules.begin(), modules.end(), [&](const Module &m) {
        return in_module(address, m.base);
    });
}

void *pin(const char *path) {
    void *object = dlopen(path, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    return object != nullptr ? object : dlopen(nullptr, RTLD_NOW);
}

const Module *find_or_add(const void *address) {
    Dl_info info;
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr)
        return nullptr;
    for (const Module &module : modules)
        if (module.base == info.dli_fbase)
            return &module;
    modules.push_back({info.dli_fbase, pin(info.dli_fname)});
    return &modules.back();
}

// Each load of the module registers the callback again.
void leave_one_callback(const Module &module) {
    auto callback = reinterpret_cast<SNMPCallback *>(
        dlsym(module.object, "xf_handle_starttime_change"));
    if (callback == nullptr)
        return;
    while (snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, starttime_change,
                                    callback, nullptr, 1) > 0)
        ;
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, starttime_change, callback,
                           nullptr);
}

void set_debug(const Module &module) {
    void *flag = dlsym(module.object, "is_snmp_debug_enabled");
    uint32_t value = debug ? 1 : 0;
    if (flag != nullptr)
        memcpy(flag, &value, sizeof value);
}

// The variable that a registration through the old API is for.
const struct variable *old_api_variable(const netsnmp_subtree *tree) {
    if (tree->reginfo == nullptr)
        return nullptr;
    for (netsnmp_mib_handler *each = tree->reginfo->handler; each != nullptr;
         each = each->next)
        if (each->access_method == netsnmp_old_api_helper &&
            each->myvoid != nullptr)
            return static_cast<const struct variable *>(each->myvoid);
    return nullptr;
}

const void *read_handler(const struct variable *variable) {
    return variable == nullptr
               ? nullptr
               : reinterpret_cast<const void *>(variable->findVar);
}

// A variable may have room for a part of a name only.
struct variable without_name(const struct variable &of) {
    struct variable copy = {};
    copy.magic = of.magic;
    copy.type = of.type;
    copy.acl = of.acl;
    copy.findVar = of.findVar;
    return copy;
}

struct Registration {
    std::vector<oid> name;
    int priority;
    struct variable variable; // without its name
    bool operator==(const Registration &other) const {
        return name == other.name && priority == other.priority;
    }
};

// The names under which an object is registered in a context. A registration
// shows up in several parts where others lie inside it.
std::vector<Registration> registrations_of(const void *base,
                                           const char *context) {
    std::vector<Registration> found;
    for (netsnmp_subtree *tree = netsnmp_subtree_find_first(context); tree;
         tree = tree->next)
        for (netsnmp_subtree *each = tree; each; each = each->children) {
            const struct variable *variable = old_api_variable(each);
            if (!in_module(read_handler(variable), base))
                continue;
            Registration one = {{each->name_a, each->name_a + each->namelen},
                                each->priority,
                                without_name(*variable)};
            if (std::find(found.begin(), found.end(), one) == found.end())
                found.push_back(std::move(one));
        }
    return found;
}

std::vector<std::string> contexts() {
    std::vector<std::string> names;
    for (subtree_context_cache *each = get_top_context_cache(); each != nullptr;
         each = each->next)
        names.emplace_back(each->context_name);
    return names;
}

// Columns of the first table.
constexpr oid file_name_column = 6;
constexpr oid row_status_column = 14;

bool is_column(const netsnmp_subtree &tree, oid number) {
    const oid column[] = {1, 1, 1, 1, number};
    constexpr size_t length = OID_LENGTH(column);
    return tree.namelen >= length &&
           std::equal(std::begin(column), std::end(column),
                      tree.name_a + tree.namelen - length);
}

void watch_column(const netsnmp_subtree &tree) {
    if (is_column(tree, file_name_column) && !guard_names(tree.reginfo))
        log_message(LOG_ERR, "file names go unguarded: no memory");
    if (is_column(tree, row_status_column) && !history_watch(tree.reginfo))
        log_message(LOG_ERR, "copies go unnoted: no memory");
}

void watch_columns_in(const char *context) {
    for (netsnmp_subtree *tree = netsnmp_subtree_find_first(context); tree;
         tree = tree->next)
        for (netsnmp_subtree *each = tree; each; each = each->children)
            if (known_module(read_handler(old_api_variable(each))))
                watch_column(*each);
}

void offer_in(const char *context) {
    for (const Module &module : modules) {
        if (!registrations_of(module.base, context).empty())
            continue;
        for (Registration &each : registrations_of(module.base, ""))
            register_mib_context("vrf", &each.variable, sizeof each.variable, 1,
                                 each.name.data(), each.name.size(),
                                 each.priority, 0, 0, nullptr, context, -1, 0);
    }
    watch_columns_in(context);
    history_offer(context);
}

// Before the agent asks whether there is such a context.
int admit_context(int, int, void *server_argument, void *) {
    const netsnmp_pdu *pdu =
        static_cast<struct view_parameters *>(server_argument)->pdu;
    if (pdu == nullptr || pdu->contextName == nullptr ||
        pdu->contextNameLen == 0)
        return SNMPERR_SUCCESS;
    try {
        std::string name(pdu->contextName, pdu->contextNameLen);
        if (vrf_id(name) != 0)
            offer_in(name.c_str());
    } catch (const std::bad_alloc &) {
        log_message(LOG_ERR, "a request in a context: no memory");
    }
    return SNMPERR_SUCCESS;
}

} // namespace

bool modules_watch_contexts() {
    return netsnmp_register_callback(
               SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_ACM_CHECK_INITIAL,
               admit_context, nullptr,
               NETSNMP_CALLBACK_HIGHEST_PRIORITY) == SNMPERR_SUCCESS;
}

const void *module_loaded(notification_handler *handler) {
    const Module *module = find_or_add(reinterpret_cast<const void *>(handler));
    if (module == nullptr)
        return nullptr;
    leave_one_callback(*module);
    watch_columns_in("");
    set_debug(*module);
    return module->base;
}

void module_unloaded(const void *base) {
    for (const std::string &context : contexts())
        for (Registration &each : registrations_of(base, context.c_str()))
            unregister_mib_context(each.name.data(), each.name.size(),
                                   each.priority, 0, 0, context.c_str());
}

std::optional<std::string> read_instance(const std::vector<oid> &column,
                                         oid index) {
    oid name[MAX_OID_LEN] = {};
    size_t length = column.size() + 1;
    std::copy(column.begin(), column.end(), name);
    name[column.size()] = index;
    netsnmp_subtree *tree = netsnmp_subtree_find(name, length, nullptr, "");
    const struct variable *found =
        tree == nullptr ? nullptr : old_api_variable(tree);
    if (found == nullptr || !known_module(read_handler(found)))
        return std::nullopt;
    // As the agent's own helper calls it: with the whole name of the column.
    struct variable one = without_name(*found);
    std::copy(column.begin(), column.end(), one.name);
    one.namelen = static_cast<u_char>(column.size());
    size_t octets = 0;
    WriteMethod *unused = nullptr;
    const u_char *value = one.findVar(&one, name, &length, 1, &octets, &unused);
    if (value == nullptr)
        return std::nullopt;
    return std::string(reinterpret_cast<const char *>(value), octets);
}

bool module_serves_set() {
    netsnmp_agent_session *session = netsnmp_get_current_agent_session();
    if (session == nullptr || session->pdu == nullptr ||
        session->pdu->command != SNMP_MSG_SET)
        return false;
    for (netsnmp_variable_list *each = session->pdu->variables; each;
         each = each->next_variable) {
        netsnmp_subtree *tree =
            netsnmp_subtree_find(each->name, each->name_length, nullptr, "");
        if (tree != nullptr &&
            known_module(read_handler(old_api_variable(tree))))
            return true;
    }
    return false;
}

void modules_set_debug(bool on) {
    debug = on;
    for (const Module &module : modules)
        set_debug(module);
}

} // namespace xfhost
