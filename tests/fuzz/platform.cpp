#include "tests/fuzz/platform.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include <arpa/inet.h>

#include "platform/accounting.h"
#include "platform/cycles.h"
#include "platform/errlog.h"
#include "platform/grove.h"
#include "platform/hwinfo.h"
#include "platform/messages.h"
#include "platform/procd.h"
#include "platform/program_runner.h"
#include "platform/qsh.h"
#include "platform/tftp.h"
#include "platform/vrfmgr.h"
#include "tests/fuzz/check.h"
#include "tests/fuzz/rows.h"

using namespace fuzz;

struct ipcbus_queue {
    int unused;
};

struct ipcbus_message {
    uint32_t opcode;
    uint32_t token; // of a request
    uint8_t *payload;
};

namespace fuzz {
namespace {

std::map<void *, size_t> blocks; // the module's, not yet freed: their sizes
std::set<ipcbus_message *> received, requests;
std::vector<netsnmp_variable_list *> chains; // of varbinds, their heads
uint32_t next_token;
uint64_t cycles;
ipcbus_queue response_queue;

Input &input() {
    return *platform().input;
}

void drop(ipcbus_message *message) {
    free(message->payload);
    delete message;
}

void drop_all(std::set<ipcbus_message *> &messages) {
    for (ipcbus_message *each : messages)
        drop(each);
    messages.clear();
}

ssize_t search_stream(void *, const char *text, size_t size) {
    search_for_password({text, size}, "standard output or error");
    return static_cast<ssize_t>(size);
}

FILE *searched_stream() {
    cookie_io_functions_t functions = {};
    functions.write = search_stream;
    return fopencookie(nullptr, "w", functions);
}

} // namespace

Platform &platform() {
    static Platform instance;
    return instance;
}

std::string without_password(std::string octets) {
    size_t at;
    while ((at = octets.find(password_mark)) != std::string::npos)
        octets[at] = '?';
    return octets;
}

void search_for_password(std::string_view octets, const char *where) {
    FUZZ_CHECK(octets.find(password_mark) == std::string_view::npos,
               "a password in %s", where);
}

void start_platform() {
    fflush(nullptr);
    stdout = searched_stream();
    stderr = searched_stream();
}

void release_notifications() {
    for (netsnmp_variable_list *head : chains)
        snmp_free_varbind(head);
    chains.clear();
}

size_t module_blocks() {
    return blocks.size();
}

size_t kept_requests() {
    return requests.size();
}

void begin_input(Input &input) {
    platform() = {};
    platform().input = &input;
    next_token = 1;
    cycles = 1;
}

void end_input() {
    fflush(stdout);
    fflush(stderr);
    FUZZ_CHECK(received.empty(), "%zu messages received and not dropped",
               received.size());
    drop_all(requests);
    release_notifications();
    platform().malloc_fails_in = 0;
    remove_everything();
    FUZZ_CHECK(blocks.size() <= platform().allowed_leaks,
               "the module lost %zu blocks of memory, one of %zu octets",
               blocks.size(), blocks.begin()->second);
    for (const auto &[block, size] : blocks)
        free(block);
    blocks.clear();
}

ipcbus_message *new_message(uint32_t opcode, const std::string *octets) {
    auto *message = new ipcbus_message{opcode, 0, nullptr};
    if (octets != nullptr) {
        size_t size = std::max<size_t>(octets->size(), 16);
        message->payload = static_cast<uint8_t *>(calloc(1, size));
        memcpy(message->payload, octets->data(), octets->size());
    }
    received.insert(message);
    return message;
}

} // namespace fuzz

// ---- What the module is compiled with in the place of the C library's ------

extern "C" {

pid_t fuzz_fork(void) {
    FUZZ_CHECK(module_state.copyChildRunning == 0,
               "a copy child while another one runs");
    platform().done.forks++;
    if (input().choice(8) == 7) {
        errno = EAGAIN;
        return -1;
    }
    return 4343;
}

void *fuzz_malloc(size_t size) {
    unsigned &fails_in = platform().malloc_fails_in;
    if (fails_in != 0 && --fails_in == 0) {
        errno = ENOMEM;
        return nullptr;
    }
    void *block = malloc(size);
    memset(block, 0xa5, size);
    blocks[block] = size;
    return block;
}

void fuzz_free(void *block) {
    if (block == nullptr)
        return;
    FUZZ_CHECK(blocks.erase(block) == 1,
               "a block was freed that is none of the module's");
    free(block);
}

} // extern "C"

// ---- Transport --------------------------------------------------------------

ipcbus_handle ipcbus_response_q = &response_queue;

int ipcbus_bind(int, int, ipcbus_handle *, const char *) {
    FUZZ_FAIL("only a copy child binds a handle");
}

int ipcbus_unbind(ipcbus_handle, uint32_t) {
    FUZZ_FAIL("only a copy child gives a handle back");
}

int ipcbus_send(ipcbus_handle, const struct ipcbus_address *, uint32_t opcode,
                const void *payload, uint32_t length, uint32_t, uint32_t,
                struct ipcbus_message **request) {
    search_for_password({static_cast<const char *>(payload), length},
                        "a message");
    if (opcode == IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION)
        platform().done.saves++;
    const bool fails = platform().sends_may_fail && input().choice(8) == 7;
    if (request != nullptr) {
        *request = nullptr;
        if (!fails) {
            *request = new ipcbus_message{opcode, next_token++, nullptr};
            requests.insert(*request);
        }
    }
    if (fails)
        errno = ECONNREFUSED;
    return fails ? -1 : 0;
}

namespace {

int receive(uint32_t opcode, const std::string *octets,
            struct ipcbus_message **message) {
    *message = new_message(opcode, octets);
    return 0;
}

int receive_nothing(int error) {
    errno = error;
    return -1;
}

std::string word_of(uint32_t value) {
    std::string octets(4, '\0');
    put_be32(octets.data(), value);
    return octets;
}

} // namespace

int ipcbus_recv(ipcbus_handle, struct ipcbus_message **message,
                const struct ipcbus_recv_options *) {
    constexpr uint32_t answer = IPCBUS_OPC_PROCD_CLI_SYSTEM_CFG_ACTION;
    std::string octets;
    switch (input().choice(9)) {
    case 0:
        octets = word_of(PROCD_CFG_ACTION_ACCEPTED);
        return receive(answer, &octets, message);
    case 1:
        octets = word_of(PROCD_CFG_ACTION_DONE);
        return receive(answer, &octets, message);
    case 2:
        octets = word_of(input().word());
        return receive(answer, &octets, message);
    case 3:
        octets = input().octets(input().octet());
        return receive(answer, &octets, message);
    case 4:
        return receive(answer, nullptr, message);
    case 5:
        octets = input().octets(input().octet());
        return receive(input().word(), &octets, message);
    case 6:
        return receive_nothing(EINTR);
    case 7:
        return receive_nothing(ETIME);
    default:
        return receive_nothing(EIO);
    }
}

void ipcbus_drop(ipcbus_handle, struct ipcbus_message *message) {
    if (message == nullptr)
        return;
    FUZZ_CHECK(received.erase(message) + requests.erase(message) == 1,
               "a message was dropped twice");
    drop(message);
}

uint32_t ipcbus_opc_get(const struct ipcbus_message *message) {
    return message->opcode;
}

const void *ipcbus_payload_get(const struct ipcbus_message *message) {
    return message->payload;
}

uint32_t ipcbus_rr_token_get(const struct ipcbus_message *request) {
    return request == nullptr ? 0 : request->token;
}

// ---- Agent ------------------------------------------------------------------

int32_t change_time_flag;

int register_for_notification(uint32_t, notification_handler *) {
    return 0;
}

int unregister_for_notification(uint32_t) {
    return 0;
}

netsnmp_variable_list *build_varbind(netsnmp_variable_list *previous,
                                     const void *value, int type, size_t length,
                                     const oid *name, size_t name_len) {
    search_for_password({static_cast<const char *>(value), length},
                        "a notification");
    if (input().choice(16) == 15)
        return nullptr;
    netsnmp_variable_list *list = previous;
    netsnmp_variable_list *added = snmp_varlist_add_variable(
        &list, name, name_len, static_cast<u_char>(type), value, length);
    FUZZ_CHECK(added != nullptr, "a varbind that cannot be made");
    // A varbind behind one that could not be made starts another chain, which
    // nobody is given.
    if (previous == nullptr)
        chains.push_back(added);
    return added;
}

int enqueue_notification(int trap_type, const oid *, size_t name_len,
                         netsnmp_variable_list *) {
    FUZZ_CHECK(trap_type == 6 && name_len == XF_NOTIFICATION_OID_LENGTH,
               "a notification of type %d, length %zu", trap_type, name_len);
    platform().done.notifications++;
    return input().choice(8) == 7 ? -1 : 0;
}

const char *get_snmp_sessionid(int) {
    return "[192.0.2.77]:4711";
}

const char *get_snmp_username(int) {
    return "operator-with-a-name-that-is-longer-than-31";
}

const char *snmp_get_ctx_vrf_for_current_req(int32_t *) {
    FUZZ_FAIL("only a copy child asks for a VRF");
}

void snmp_heartbeat_send(void) {}

void set_mgmt_conf_last_change_time_extended(int) {}

// ---- Trace, logs, clocks ----------------------------------------------------

const char *const trc_dbg_modname = "fuzz";

int trc_hist_event_subtype_check(uint32_t, uint32_t) {
    return 0;
}

void trc_hist_event(uint32_t, uint32_t size, const void *record) {
    const std::string_view octets(static_cast<const char *>(record), size);
    search_for_password(octets, "a trace");
    // A second row of one key is refused, and its memory is lost.
    if (octets.find("failed to add to index object") != std::string_view::npos)
        platform().allowed_leaks++;
}

int trc_chk_int(uint32_t, int, int, int) {
    return 0;
}

void dprint(int, const char *, int, const char *, ...) {}

void log_set_error(uint32_t, uint32_t) {}

const char *syserr2str(uint32_t) {
    return "an error";
}

const char *syserr_format(uint32_t) {
    return "an error";
}

int account_lib_interim_update(ipcbus_handle, const char *, const char *,
                               const char *text) {
    search_for_password(text, "accounting");
    return 0;
}

uint64_t timer_get_cycles(void) {
    cycles += 100'000; // a tenth of what a save is waited for
    return cycles;
}

uint64_t timer_diff_cycle_in_msec(uint64_t later, uint64_t earlier) {
    return later - earlier;
}

// ---- Addresses and the fabric -----------------------------------------------

int ip_addr_to_str(const struct ip_addr *address, char *text, uint32_t size) {
    const ip_addr copy = *address;
    if (copy.type != INET_ADDRESS_IPV4 && copy.type != INET_ADDRESS_IPV6)
        return 1;
    int family = copy.type == INET_ADDRESS_IPV4 ? AF_INET : AF_INET6;
    return inet_ntop(family, copy.octets, text, size) == nullptr ? 2 : 0;
}

int ip_addr_from_str(const char *text, struct ip_addr *address) {
    ip_addr parsed = {};
    if (inet_pton(AF_INET, text, parsed.octets) == 1)
        parsed.type = INET_ADDRESS_IPV4;
    else if (inet_pton(AF_INET6, text, parsed.octets) == 1)
        parsed.type = INET_ADDRESS_IPV6;
    else
        return 1;
    *address = parsed;
    return 0;
}

int if_index_mgmt_sup_port_init(uint32_t *if_index, int, int) {
    *if_index = 2;
    return 0;
}

namespace {

ip_addr address_of_input() {
    ip_addr address = {};
    address.type = static_cast<int32_t>(input().choice(4));
    std::string octets =
        without_password(input().octets(address.type == 2 ? 16 : 4));
    memcpy(address.octets, octets.data(), octets.size());
    return address;
}

} // namespace

int ipconf_get_if_inet_addrs(ipcbus_handle, uint32_t,
                             struct if_inet_addrs **addresses) {
    const unsigned kind = input().choice(4);
    if (kind == 3)
        return 1;
    if (kind == 2)
        return 0;
    *addresses = static_cast<if_inet_addrs *>(malloc(sizeof(if_inet_addrs)));
    blocks[*addresses] = sizeof(if_inet_addrs);
    (*addresses)->count = kind;
    (*addresses)->addrs[0] = address_of_input();
    return 0;
}

int rpcq_req_resp(uint32_t, uint32_t, uint32_t, const void *, uint32_t,
                  uint32_t, ipcbus_handle, uint32_t, void **response) {
    const unsigned kind = input().choice(4);
    if (kind == 3)
        return 1;
    if (kind == 2)
        return 0;
    *response = calloc(1, 8);
    blocks[*response] = 8;
    return static_cast<int>(
        kind); // with a response besides: it is freed all the same
}

int grove_status_next_get(struct grove_status *status, char *text,
                          uint32_t limit, const uint8_t *) {
    if (input().choice(4) == 0)
        return -1;
    std::string octets = without_password(input().octets(sizeof status->wwn));
    *status = {};
    memcpy(status->wwn, octets.data(), octets.size());
    status->is_local = static_cast<int32_t>(input().choice(3));
    if (status->is_local != 1)
        status->address = address_of_input();
    // Filled up to the limit when the length is beyond it.
    size_t length = std::min<size_t>(input().octet() * size_t{2}, limit);
    octets = without_password(input().octets(length));
    octets.resize(length, 'x');
    memcpy(text, octets.data(), length);
    text[length] = 0;
    return 0;
}

void grove_status_clean(int) {}

void procd_heartbeat(int) {}

uint32_t procd_heartbeat_timeout_get(void) {
    return 30'000;
}

// ---- What only a copy child calls -------------------------------------------

#define OF_THE_CHILD FUZZ_FAIL("%s: only a copy child calls it", __func__)

int execute_program_and_wait_redirect(int, int, int, const char *, ...) {
    OF_THE_CHILD;
}
int hwinfo_get_chassis_type(int32_t *) {
    OF_THE_CHILD;
}
int pod_get_type(int) {
    OF_THE_CHILD;
}
const char *procd_cli_dir_get(ipcbus_handle, int) {
    OF_THE_CHILD;
}
int procd_cli_write_ascii_cfg(ipcbus_handle, const char *) {
    OF_THE_CHILD;
}
int qsh_execute_cfg_file2(const struct qsh_cfg_file_request *) {
    OF_THE_CHILD;
}
int qsh_notify_cfg_update(ipcbus_handle, int, int, int) {
    OF_THE_CHILD;
}
int tftp_timeout_set(int) {
    OF_THE_CHILD;
}
int tftp_connect(const char *, int) {
    OF_THE_CHILD;
}
int tftp_put2(const char *, const char *, int) {
    OF_THE_CHILD;
}
int tftp_get2(const char *, const char *, int) {
    OF_THE_CHILD;
}
const char *tftp_strerror(int) {
    OF_THE_CHILD;
}
int32_t vrfmgr_get_context_id(const char *) {
    OF_THE_CHILD;
}
