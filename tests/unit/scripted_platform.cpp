#include "scripted_platform.h"

#include <arpa/inet.h>
#include <net-snmp/agent/util_funcs/header_generic.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace scripted {

/* ---- Journal ---------------------------------------------------------------
 */

static std::unique_ptr<Platform> current;

Platform &platform() {
    if (current == nullptr)
        current = std::make_unique<Platform>();
    return *current;
}

void agents_sigchld_handler(int) {}

Event &Platform::record(Kind kind, std::string_view function,
                        std::string text) {
    static Event discarded;
    Event event{kind,   std::string(function), std::move(text), {}, {}, 0, 0,
                sigchld};

    if (!recording)
        return discarded = std::move(event);
    journal.push_back(std::move(event));
    return journal.back();
}

Story Platform::events(unsigned kinds) const {
    Story lines;

    for (const Event &event : journal)
        if ((static_cast<unsigned>(event.kind) & kinds) != 0)
            lines.push_back(event.text);
    return lines;
}

std::vector<Event> Platform::calls_of(std::string_view function) const {
    std::vector<Event> found;

    for (const Event &event : journal)
        if (event.function == function)
            found.push_back(event);
    return found;
}

size_t Platform::count(std::string_view function) const {
    return calls_of(function).size();
}

void Platform::forget() {
    journal.clear();
    mallocs = 0;
    comparisons = 0;
}

struct ipcbus_message *Platform::message(uint32_t opcode,
                                         std::optional<std::string> payload) {
    const std::string name = "message" + std::to_string(messages.size() + 1);

    messages.push_back(std::make_unique<ipcbus_message>(
        ipcbus_message{name, opcode, std::move(payload), 0, 0}));
    return messages.back().get();
}

static std::vector<oid> oids(const oid *name, size_t length) {
    return {name, name + length};
}

std::vector<Varbind>
Platform::varbinds_of(const netsnmp_variable_list *list) const {
    std::vector<Varbind> found;

    for (; list != nullptr; list = list->next_variable)
        found.push_back(
            {oids(list->name, list->name_length), list->type,
             std::string(reinterpret_cast<const char *>(list->val.string),
                         list->val_len)});
    return found;
}

/* ---- Views -----------------------------------------------------------------
 */

static constexpr unsigned text_kinds =
    Kind::Trace | Kind::Live | Kind::Stdout | Kind::Stderr | Kind::Log;

Story story() {
    return platform().events(text_kinds | Kind::Call);
}

Story texts() {
    return platform().events(text_kinds);
}

Story calls() {
    return platform().events(static_cast<unsigned>(Kind::Call));
}

static std::string line(const char *channel, std::string_view text) {
    return channel + std::string(" ") + std::string(text);
}

std::string error(std::string_view text) {
    return line("100", text);
}
std::string info(std::string_view text) {
    return line("101", text);
}
std::string live(std::string_view text) {
    return line("live", text);
}
std::string out(std::string_view text) {
    return line("stdout", text);
}
std::string err(std::string_view text) {
    return line("stderr", text);
}
std::string log(std::string_view text) {
    return line("log", text);
}

std::string quote(std::string_view octets) {
    std::string text = "\"";
    char hex[8];

    for (const char c : octets) {
        const auto octet = static_cast<unsigned char>(c);
        if (octet == '"' || octet == '\\') {
            text += '\\';
            text += c;
        } else if (octet >= 0x20 && octet < 0x7f) {
            text += c;
        } else {
            snprintf(hex, sizeof(hex), "\\x%02x", octet);
            text += hex;
        }
    }
    return text + '"';
}

/* ---- Rendering -------------------------------------------------------------
 */

static std::string formatted(const char *format, va_list arguments) {
    va_list again;

    va_copy(again, arguments);
    const int length = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<size_t>(length) + 1, '\0');
    vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

__attribute__((format(printf, 1, 2))) static std::string
print(const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    std::string text = formatted(format, arguments);
    va_end(arguments);
    return text;
}

static std::string text_or_null(const char *text) {
    return text == nullptr ? "NULL" : quote(text);
}

static std::string copy_or_empty(const char *text) {
    return text == nullptr ? "" : text;
}

static const char *name_of(const struct ipcbus_queue *queue) {
    return queue == nullptr ? "NULL" : queue->name.c_str();
}

static const char *name_of(const struct ipcbus_message *message) {
    return message == nullptr ? "NULL" : message->name.c_str();
}

static std::string dotted(const oid *name, size_t length) {
    std::string text;

    for (size_t i = 0; i < length; i++)
        text += (i == 0 ? "" : ".") + std::to_string(name[i]);
    return text;
}

static std::string shown(const struct ip_addr *address) {
    return print("{%d, %s}", address->type,
                 quote({reinterpret_cast<const char *>(address->octets),
                        sizeof(address->octets)})
                     .c_str());
}

static std::string name_of(ordset_compare *compare) {
    if (compare == xfCopyEntry_comp_func)
        return "xfCopyEntry_comp_func";
    if (compare == xfCopyErrorEntry_comp_func)
        return "xfCopyErrorEntry_comp_func";
    return compare == nullptr ? "NULL" : "?";
}

static Event &called(const char *function, std::string text) {
    Event &event = platform().record(Kind::Call, function, std::move(text));

    return event;
}

static Event &asked(const char *function, std::string text) {
    return platform().record(Kind::Query, function, std::move(text));
}

/* Runs the test's hook of a function; after it was recorded. */
static void hook(const char *function) {
    const auto found = platform().hooks.find(function);

    if (found != platform().hooks.end())
        found->second();
}

/* The next one of a countdown that fails: 1 is now. */
static bool fails_now(int *countdown) {
    return *countdown > 0 && --*countdown == 0;
}

/* Whether this is the call that has no memory. */
static bool no_memory(const char *function) {
    Platform &p = platform();

    if (!p.recording || !fails_now(&p.fail_memory_at))
        return false;
    p.failed_call = function;
    errno = ENOMEM;
    return true;
}

/* ---- Texts on streams ------------------------------------------------------
 */

/* Debug logs that were opened, for the life of the process, and what was
 * written to them since the last flush. */
static std::map<FILE *, std::string> debug_logs;

/*
 * Checks what every record has, and leaves the message: the date in front, one
 * more newline behind, a source line behind the first function name.
 */
static std::string log_message(const std::string &record) {
    const time_t now = static_cast<time_t>(platform().now_seconds);
    const std::string date =
        "[" + std::string(ctime(&now)).substr(0, 24) + "] ";

    EXPECT_EQ(date, record.substr(0, date.size()));
    EXPECT_EQ('\n', record.back());
    if (record.size() <= date.size())
        return record;
    std::string message =
        record.substr(date.size(), record.size() - date.size() - 1);
    const size_t open = message.find('(');
    const size_t close = message.find(')', open);
    if (open == std::string::npos || close == std::string::npos)
        return message;
    const std::string number = message.substr(open + 1, close - open - 1);
    EXPECT_TRUE(!number.empty() &&
                std::all_of(number.begin(), number.end(),
                            [](unsigned char c) { return isdigit(c) != 0; }))
        << "no source line: " << message;
    return message.replace(open + 1, number.size(), "#");
}

static void put_text(FILE *stream, const std::string &text) {
    Platform &p = platform();

    if (stream == stdout || stream == stderr) {
        const bool is_out = stream == stdout;
        const std::string shown_text = is_out ? out(text) : err(text);

        p.record(is_out ? Kind::Stdout : Kind::Stderr,
                 is_out ? "stdout" : "stderr", shown_text)
            .octets = text;
        return;
    }
    const auto log_file = debug_logs.find(stream);
    if (log_file != debug_logs.end())
        log_file->second += text;
    fwrite(text.data(), 1, text.size(), stream);
}

/* ---- Child -----------------------------------------------------------------
 */

static jmp_buf after_child;
static bool child_runs;
static int child_status;

int run_as_child(const std::function<void()> &body) {
    child_runs = true;
    child_status = -1;
    if (setjmp(after_child) == 0) {
        body();
        ADD_FAILURE() << "the child returned instead of leaving with _exit";
    }
    child_runs = false;
    return child_status;
}

Quiet::Quiet()
    : before_(platform().recording), mallocs_(platform().mallocs),
      comparisons_(platform().comparisons) {
    platform().recording = false;
}

Quiet::~Quiet() {
    platform().recording = before_;
    platform().mallocs = mallocs_;
    platform().comparisons = comparisons_;
}

} // namespace scripted

using namespace scripted;

/* ---- Container -------------------------------------------------------------
 */

namespace {
struct Before {
    ordset_compare *compare;
    bool operator()(const void *a, const void *b) const {
        platform().comparisons++;
        return compare(a, b) > 0;
    }
};
} // namespace

struct ordset {
    std::multiset<const void *, Before> objects;
    bool unique;
};

static std::set<struct ordset *> live_sets;

/* Both records start with their (first) index. */
static std::string key_call(const char *function, const void *key) {
    int32_t index = 0;

    memcpy(&index, key, sizeof(index));
    return print("%s(%d)", function, index);
}

static void set_call(const char *function, std::string text) {
    platform().record(Kind::Set, function, std::move(text));
    hook(function);
}

extern "C" {

int ordset_create(struct ordset **set, int keyed, int unique,
                  ordset_compare *compare, int owned) {
    Platform &p = platform();

    set_call(__func__, print("%s(%d, %d, %s, %d)", __func__, keyed, unique,
                             name_of(compare).c_str(), owned));
    if (*set != nullptr) {
        live_sets.erase(*set);
        delete *set;
        *set = nullptr;
    }
    if (fails_now(&p.fail_ordset_create_at) || no_memory(__func__))
        return p.ordset_create_failure;
    *set = new ordset{std::multiset<const void *, Before>(Before{compare}),
                      unique == 1};
    live_sets.insert(*set);
    return ORDSET_CREATED;
}

void *ordset_add(struct ordset *set, const void *key, void *object) {
    set_call(__func__, key_call(__func__, key));
    EXPECT_EQ(key, object);
    if (fails_now(&platform().fail_ordset_add_at) || no_memory(__func__) ||
        set == nullptr)
        return nullptr;
    if (set->unique && set->objects.find(key) != set->objects.end())
        return nullptr;
    set->objects.insert(object);
    return object;
}

void *ordset_find(struct ordset *set, const void *key) {
    set_call(__func__, key_call(__func__, key));
    if (fails_now(&platform().fail_ordset_find_at) || set == nullptr)
        return nullptr;
    const auto found = set->objects.find(key);
    return found == set->objects.end() ? nullptr : const_cast<void *>(*found);
}

void *ordset_find_nextgreater(struct ordset *set, const void *key) {
    set_call(__func__, key_call(__func__, key));
    if (set == nullptr)
        return nullptr;
    const auto found = set->objects.upper_bound(key);
    return found == set->objects.end() ? nullptr : const_cast<void *>(*found);
}

void *ordset_find_nth_obj(struct ordset *set, uint32_t position) {
    set_call(__func__, print("%s(%u)", __func__, position));
    if (fails_now(&platform().fail_ordset_nth_at) || set == nullptr ||
        position == 0 || position > set->objects.size())
        return nullptr;
    return const_cast<void *>(
        *std::next(set->objects.begin(), static_cast<long>(position) - 1));
}

void *ordset_remove(struct ordset *set, const void *key) {
    set_call(__func__, key_call(__func__, key));
    if (fails_now(&platform().fail_ordset_remove_at) || set == nullptr)
        return nullptr;
    const auto found = set->objects.find(key);
    if (found == set->objects.end())
        return nullptr;
    void *const object = const_cast<void *>(*found);
    set->objects.erase(found);
    return object;
}

uint32_t ordset_size(const struct ordset *set) {
    return static_cast<uint32_t>(size_of(set));
}

void ordset_destroy(struct ordset **set) {
    set_call(__func__,
             print("%s(%s)", __func__, *set == nullptr ? "NULL" : "set"));
    live_sets.erase(*set);
    delete *set;
    *set = nullptr;
}

/* ---- Trace -----------------------------------------------------------------
 */

const char *const trc_dbg_modname = "scripted";

/* What a platform may do with errno inside a trace: nobody may rely on it. */
static void spoil_errno() {
    errno = EXDEV;
}

static bool level_is_known(uint32_t level) {
    return level == XF_TRACE_ERROR || level == XF_TRACE_INFO;
}

int trc_hist_event_subtype_check(uint32_t type, uint32_t level) {
    const int result = platform().hist_check.take();

    asked(__func__, print("%s(0x%x, %u)", __func__, type, level));
    EXPECT_EQ(0x730000u, type);
    EXPECT_TRUE(level_is_known(level)) << level;
    spoil_errno();
    return result;
}

void trc_hist_event(uint32_t type, uint32_t size, const void *record) {
    const auto *const octets = static_cast<const char *>(record);
    uint32_t level = 0;

    memcpy(&level, octets, sizeof(level));
    EXPECT_EQ(0x730000u, type);
    EXPECT_TRUE(level_is_known(level)) << level;
    EXPECT_LE(size, 516u);
    ASSERT_GE(size, 5u);
    EXPECT_EQ('\0', octets[size - 1]);
    const std::string text(octets + 4, strnlen(octets + 4, size - 4));
    EXPECT_EQ(text.size() + 5, size) << text;
    Event &event =
        platform().record(Kind::Trace, __func__,
                          level == XF_TRACE_ERROR ? error(text) : info(text));
    event.octets = text;
    event.level = level;
    event.size = size;
    spoil_errno();
}

int trc_chk_int(uint32_t level, int instance, int filter, int enabled) {
    const int result = platform().live_check.take();

    asked(__func__, print("%s(%u, %d, %d, %d)", __func__, level, instance,
                          filter, enabled));
    EXPECT_TRUE(level_is_known(level)) << level;
    EXPECT_EQ(0, instance);
    EXPECT_EQ(0, filter);
    EXPECT_EQ(1, enabled);
    spoil_errno();
    return result;
}

void dprint(int destination, const char *module, int flags, const char *format,
            ...) {
    va_list arguments;

    EXPECT_EQ(1, destination);
    EXPECT_EQ(trc_dbg_modname, module);
    EXPECT_EQ(0, flags);
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    Event &event = platform().record(Kind::Live, __func__, live(text));
    event.octets = text;
    event.strings = {format};
    spoil_errno();
}

/* ---- ipcbus ----------------------------------------------------------------
 */

ipcbus_handle ipcbus_response_q;

int ipcbus_bind(int kind, int sap, ipcbus_handle *handle, const char *name) {
    Platform &p = platform();

    called(__func__, print("%s(%d, %d, %s)", __func__, kind, sap,
                           text_or_null(name).c_str()))
        .strings = {copy_or_empty(name)};
    hook(__func__);
    if (no_memory(__func__))
        return -1;
    const int result = p.bind_results.take();
    if (result < 0)
        return result;
    const std::string queue = "handle" + std::to_string(p.queues.size() + 1);
    p.queues.push_back(
        std::make_unique<ipcbus_queue>(ipcbus_queue{queue, kind, sap, 0}));
    *handle = p.queues.back().get();
    return result;
}

int ipcbus_unbind(ipcbus_handle handle, uint32_t flags) {
    called(__func__, print("%s(%s, %u)", __func__, name_of(handle), flags));
    EXPECT_NE(nullptr, handle);
    EXPECT_NE(ipcbus_response_q, handle);
    if (handle != nullptr) {
        EXPECT_EQ(1, ++handle->unbound) << handle->name << " given back twice";
    }
    return platform().unbind_results.take();
}

int ipcbus_send(ipcbus_handle handle, const struct ipcbus_address *destination,
                uint32_t opcode, const void *payload, uint32_t length,
                uint32_t flags, uint32_t priority,
                struct ipcbus_message **request) {
    Platform &p = platform();
    const std::string octets =
        payload == nullptr
            ? std::string()
            : std::string(static_cast<const char *>(payload), length);

    called(__func__, print("%s(%s, {0x%08x, %u}, %u, %u octets, %u, %u, %s)",
                           __func__, name_of(handle), destination->node,
                           destination->sap, opcode, length, flags, priority,
                           request == nullptr ? "NULL" : "request"))
        .octets = octets;
    if (handle != nullptr) {
        EXPECT_EQ(0, handle->unbound) << handle->name << " was given back";
    }
    hook(__func__);
    if (request != nullptr)
        *request = nullptr;
    if (no_memory(__func__))
        return -1;
    const int result = p.send_results.take();
    if (request == nullptr)
        return result;
    if (result < 0)
        return result;
    *request = p.message(opcode, octets);
    (*request)->name = "request" + std::to_string(p.messages.size());
    (*request)->token = p.next_token++;
    return result;
}

int ipcbus_recv(ipcbus_handle handle, struct ipcbus_message **message,
                const struct ipcbus_recv_options *options) {
    Platform &p = platform();

    called(__func__, print("%s(%s, {%u, %u})", __func__, name_of(handle),
                           options->mode, options->timeout));
    hook(__func__);
    Received received = p.receive_otherwise;
    if (!p.to_receive.empty()) {
        received = p.to_receive.front();
        p.to_receive.pop_front();
    }
    if (received.result >= 0)
        *message = received.message;
    else
        errno = received.error;
    return received.result;
}

void ipcbus_drop(ipcbus_handle handle, struct ipcbus_message *message) {
    called(__func__,
           print("%s(%s, %s)", __func__, name_of(handle), name_of(message)));
    if (message != nullptr) {
        EXPECT_EQ(1, ++message->dropped) << message->name << " dropped twice";
    }
}

static void expect_alive(const struct ipcbus_message *message) {
    if (message != nullptr) {
        EXPECT_EQ(0, message->dropped) << message->name << " was dropped";
    }
}

uint32_t ipcbus_opc_get(const struct ipcbus_message *message) {
    asked(__func__, print("%s(%s)", __func__, name_of(message)));
    expect_alive(message);
    return message->opcode;
}

const void *ipcbus_payload_get(const struct ipcbus_message *message) {
    asked(__func__, print("%s(%s)", __func__, name_of(message)));
    expect_alive(message);
    if (!message->payload.has_value())
        return nullptr;
    /* At least 16 octets can be read, and no more than promised. */
    static std::unique_ptr<char[]> octets;
    const size_t size = std::max<size_t>(16, message->payload->size());
    octets = std::make_unique<char[]>(size);
    message->payload->copy(octets.get(), message->payload->size());
    return octets.get();
}

uint32_t ipcbus_rr_token_get(const struct ipcbus_message *request) {
    asked(__func__, print("%s(%s)", __func__, name_of(request)));
    expect_alive(request);
    return request == nullptr ? 0 : request->token;
}

/* ---- Agent extensions ------------------------------------------------------
 */

int32_t change_time_flag;

int register_for_notification(uint32_t opcode, notification_handler *handler) {
    called(
        __func__,
        print("%s(%u, %s)", __func__, opcode,
              handler == handle_notifications ? "handle_notifications" : "?"));
    if (no_memory(__func__))
        return -1;
    platform().subscriptions[opcode] = handler;
    return platform().subscribe_results.take();
}

int unregister_for_notification(uint32_t opcode) {
    called(__func__, print("%s(%u)", __func__, opcode));
    platform().subscriptions.erase(opcode);
    return 0;
}

netsnmp_variable_list *build_varbind(netsnmp_variable_list *previous,
                                     const void *value, int type, size_t length,
                                     const oid *name, size_t name_len) {
    Platform &p = platform();
    const char *after = "NULL";
    std::string previous_name;

    for (size_t i = 0; i < p.varbinds.size(); i++)
        if (p.varbinds[i] == previous) {
            previous_name = "varbind" + std::to_string(i + 1);
            after = previous_name.c_str();
        }
    called(__func__, print("%s(%s, %d, %zu, %s)", __func__, after, type, length,
                           dotted(name, name_len).c_str()))
        .octets = std::string(static_cast<const char *>(value), length);
    hook(__func__);
    if (fails_now(&p.fail_varbind_at) || no_memory(__func__))
        return nullptr;
    netsnmp_variable_list *head = nullptr;
    netsnmp_variable_list *const varbind = snmp_varlist_add_variable(
        &head, name, name_len, static_cast<u_char>(type), nullptr, 0);
    snmp_set_var_value(varbind, value, length);
    varbind->type = static_cast<u_char>(type);
    if (previous != nullptr)
        previous->next_variable = varbind;
    p.varbinds.push_back(varbind);
    return varbind;
}

int enqueue_notification(int trap_type, const oid *name, size_t name_len,
                         netsnmp_variable_list *list) {
    Platform &p = platform();

    p.notifications.push_back(
        {trap_type, oids(name, name_len), p.varbinds_of(list)});
    called(__func__,
           print("%s(%d, %s, %zu varbinds)", __func__, trap_type,
                 dotted(name, name_len).c_str(), p.varbinds_of(list).size()));
    if (no_memory(__func__)) {
        p.notifications.pop_back();
        return -1;
    }
    return p.enqueue_results.take();
}

/* Texts that last until the function's next call: overwritten by it. */
static const char *lasting(std::string &place, const std::string &text) {
    std::fill(place.begin(), place.end(), '#');
    place = text;
    return place.c_str();
}

const char *get_snmp_sessionid(int which) {
    static std::string place;

    asked(__func__, print("%s(%d)", __func__, which));
    return lasting(place, platform().session_id);
}

const char *get_snmp_username(int which) {
    static std::string place;

    asked(__func__, print("%s(%d)", __func__, which));
    return lasting(place, platform().user_name);
}

const char *snmp_get_ctx_vrf_for_current_req(int32_t *problem) {
    static std::string place;

    asked(__func__, print("%s()", __func__));
    *problem = platform().request_vrf_error;
    if (*problem != 0)
        return nullptr;
    return lasting(place, platform().request_vrf);
}

void snmp_heartbeat_send(void) {
    called(__func__, print("%s()", __func__));
}

void set_mgmt_conf_last_change_time_extended(int which) {
    called(__func__, print("%s(%d)", __func__, which));
}

int account_lib_interim_update(ipcbus_handle queue, const char *session,
                               const char *user, const char *text) {
    called(__func__,
           print("%s(%s, %s, %s, %s)", __func__, name_of(queue),
                 text_or_null(session).c_str(), text_or_null(user).c_str(),
                 text_or_null(text).c_str()))
        .strings = {session, user, text};
    spoil_errno();
    return 0;
}

/* ---- Error log, cycles, addresses ------------------------------------------
 */

void log_set_error(uint32_t code, uint32_t component) {
    called(__func__, print("%s(0x%08x, %u)", __func__, code, component));
}

const char *syserr2str(uint32_t code) {
    static std::string place;

    asked(__func__, print("%s(0x%x)", __func__, code));
    return lasting(place, print("syserr2str 0x%x", code));
}

const char *syserr_format(uint32_t code) {
    static std::string place;

    asked(__func__, print("%s(0x%x)", __func__, code));
    return lasting(place, print("syserr_format 0x%x", code));
}

uint64_t timer_get_cycles(void) {
    asked(__func__, print("%s()", __func__));
    hook(__func__);
    return platform().cycles.take();
}

uint64_t timer_diff_cycle_in_msec(uint64_t later, uint64_t earlier) {
    asked(__func__, print("%s(%llu, %llu)", __func__,
                          static_cast<unsigned long long>(later),
                          static_cast<unsigned long long>(earlier)));
    return later - earlier;
}

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
    asked(__func__, print("%s(%d, %d)", __func__, module, port));
    *if_index = 0x05000000;
    return 0;
}

/* Memory that the platform allocates for the module to free. */
static void *allocated_for_module(size_t size) {
    void *const block = calloc(1, size);

    platform().blocks[block] = size;
    return block;
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

/* ---- Grove, hardware, VRFs -------------------------------------------------
 */

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

/* ---- System manager and shell ----------------------------------------------
 */

const char *procd_cli_dir_get(ipcbus_handle handle, int which) {
    static std::string place;

    called(__func__, print("%s(%s, %d)", __func__, name_of(handle), which));
    return lasting(place, platform().configuration_directory);
}

int procd_cli_write_ascii_cfg(ipcbus_handle handle, const char *path) {
    called(__func__, print("%s(%s, %s)", __func__, name_of(handle),
                           text_or_null(path).c_str()))
        .strings = {copy_or_empty(path)};
    hook(__func__);
    return platform().write_cfg_results.take();
}

void procd_heartbeat(int state) {
    called(__func__, print("%s(%d)", __func__, state));
}

uint32_t procd_heartbeat_timeout_get(void) {
    asked(__func__, print("%s()", __func__));
    return platform().heartbeat_milliseconds;
}

int rpcq_req_resp(uint32_t code, uint32_t arg1, uint32_t arg2,
                  const void *request, uint32_t request_length,
                  uint32_t service, ipcbus_handle queue, uint32_t limit,
                  void **response) {
    Platform &p = platform();

    p.last_rpc = RpcRequest{code,    arg1,  arg2,    request_length,
                            service, limit, request, queue};
    called(__func__, print("%s(%u, %u, %u, %s, %u, %u, %s, %u)", __func__, code,
                           arg1, arg2, request == nullptr ? "NULL" : "request",
                           request_length, service, name_of(queue), limit));
    hook(__func__);
    *response = nullptr;
    if (no_memory(__func__))
        return -1;
    if (p.rpcq_response.has_value()) {
        const size_t size = std::max<size_t>(8, p.rpcq_response->size());
        *response = allocated_for_module(size);
        memcpy(*response, p.rpcq_response->data(), p.rpcq_response->size());
    }
    return p.rpcq_results.take();
}

int qsh_execute_cfg_file2(const struct qsh_cfg_file_request *request) {
    const std::string octets(reinterpret_cast<const char *>(request),
                             sizeof(*request));
    const bool rest_is_zero =
        std::all_of(std::begin(request->reserved), std::end(request->reserved),
                    [](uint32_t word) { return word == 0; });

    EXPECT_TRUE(rest_is_zero);
    Event &event = called(__func__, print("%s(%s, %s)", __func__,
                                          quote(request->cfg_file).c_str(),
                                          quote(request->out_file).c_str()));
    event.strings = {request->cfg_file, request->out_file};
    event.octets = octets;
    hook(__func__);
    return platform().apply_results.take();
}

int qsh_notify_cfg_update(ipcbus_handle handle, int what, int from, int to) {
    called(__func__, print("%s(%s, %d, %d, %d)", __func__, name_of(handle),
                           what, from, to));
    return 0;
}

/* ---- Transfers -------------------------------------------------------------
 */

int tftp_timeout_set(int seconds) {
    called(__func__, print("%s(%d)", __func__, seconds));
    return platform().tftp_timeout_results.take();
}

int tftp_connect(const char *server, int port) {
    called(__func__,
           print("%s(%s, %d)", __func__, text_or_null(server).c_str(), port))
        .strings = {copy_or_empty(server)};
    return platform().tftp_connect_results.take();
}

int tftp_put2(const char *local, const char *remote, int flags) {
    called(__func__,
           print("%s(%s, %s, %d)", __func__, text_or_null(local).c_str(),
                 text_or_null(remote).c_str(), flags))
        .strings = {copy_or_empty(local), copy_or_empty(remote)};
    hook(__func__);
    return platform().tftp_put_results.take();
}

int tftp_get2(const char *remote, const char *local, int flags) {
    called(__func__,
           print("%s(%s, %s, %d)", __func__, text_or_null(remote).c_str(),
                 text_or_null(local).c_str(), flags))
        .strings = {copy_or_empty(remote), copy_or_empty(local)};
    hook(__func__);
    return platform().tftp_get_results.take();
}

const char *tftp_strerror(int code) {
    static std::string place;

    asked(__func__, print("%s(%d)", __func__, code));
    return lasting(place, print("tftp_strerror %d", code));
}

int execute_program_and_wait_redirect(int in, int out_fd, int err_fd,
                                      const char *path, ...) {
    std::string text =
        print("%s(%d, %s, %d, %s", __func__, in, out_fd == -1 ? "-1" : "fd",
              err_fd, text_or_null(path).c_str());
    std::vector<std::string> strings = {path};
    va_list arguments;

    va_start(arguments, path);
    for (const char *argument = va_arg(arguments, const char *);
         argument != nullptr; argument = va_arg(arguments, const char *)) {
        text += ", " + quote(argument);
        strings.emplace_back(argument);
    }
    va_end(arguments);
    called(__func__, text + ")").strings = strings;
    hook(__func__);
    return platform().program_results.take();
}

/* ---- Intercepted: process and clocks ---------------------------------------
 */

pid_t intercept_fork(void) {
    called("fork", "fork()");
    hook("fork");
    if (no_memory("fork"))
        return -1;
    return platform().fork_results.take();
}

[[noreturn]] void intercept__exit(int status) {
    called("_exit", print("_exit(%d)", status));
    if (!child_runs) {
        fprintf(stderr, "the module called _exit(%d) outside of a child\n",
                status);
        abort();
    }
    child_status = status;
    longjmp(after_child, 1);
}

int intercept_system(const char *command) {
    called("system", print("system(%s)", text_or_null(command).c_str()))
        .strings = {copy_or_empty(command)};
    hook("system");
    return platform().system_results.take();
}

Handler intercept_signal(int number, Handler action) {
    Platform &p = platform();
    const Handler before = p.sigchld;

    called("signal",
           print("signal(%s, %s)", number == SIGCHLD ? "SIGCHLD" : "?",
                 action == SIG_DFL                  ? "SIG_DFL"
                 : action == SIG_IGN                ? "SIG_IGN"
                 : action == agents_sigchld_handler ? "agent's"
                                                    : "?"));
    EXPECT_EQ(SIGCHLD, number);
    p.sigchld = action;
    spoil_errno();
    return before;
}

time_t intercept_time(time_t *place) {
    asked("time", "time()");
    hook("time");
    const auto now = static_cast<time_t>(platform().now_seconds);
    if (place != nullptr)
        *place = now;
    return now;
}

int intercept_gettimeofday(struct timeval *now, void *) {
    asked("gettimeofday", "gettimeofday()");
    hook("gettimeofday");
    now->tv_sec = static_cast<time_t>(platform().now_seconds);
    now->tv_usec = static_cast<suseconds_t>(platform().now_microseconds);
    return 0;
}

unsigned intercept_sleep(unsigned seconds) {
    called("sleep", print("sleep(%u)", seconds));
    hook("sleep");
    platform().now_seconds += seconds;
    return 0;
}

pid_t intercept_getpid(void) {
    asked("getpid", "getpid()");
    return platform().pid.take();
}

/* ---- Intercepted: memory ---------------------------------------------------
 */

static void *counted_allocation(size_t size, const void *contents) {
    Platform &p = platform();

    p.record(Kind::Memory, "malloc", print("malloc(%zu)", size));
    if (fails_now(&p.fail_malloc_at) || no_memory("malloc")) {
        errno = ENOMEM;
        return nullptr;
    }
    p.mallocs++;
    void *const block = malloc(size);
    /* What a fresh block holds is nobody's business: make it show. */
    if (contents == nullptr)
        memset(block, 0xA5, size);
    else
        memset(block, 0, size);
    p.blocks[block] = size;
    return block;
}

void *intercept_malloc(size_t size) {
    return counted_allocation(size, nullptr);
}

/* The compiler makes one of a malloc and a memset: it counts as a malloc. */
void *intercept_calloc(size_t count, size_t size) {
    return counted_allocation(count * size, "");
}

void *intercept_realloc(void *, size_t) {
    ADD_FAILURE() << "the module is not known to call realloc";
    return nullptr;
}

void intercept_free(void *block) {
    Platform &p = platform();

    if (block == nullptr)
        return;
    p.record(Kind::Memory, "free", "free()");
    if (p.blocks.erase(block) == 0) {
        ADD_FAILURE() << "the module freed what it did not allocate";
        return;
    }
    for (const struct ordset *const set : live_sets)
        for (const void *const object : set->objects)
            EXPECT_NE(block, object) << "freed while a container holds it";
    free(block);
}

/* ---- Intercepted: files and streams ----------------------------------------
 */

static FILE *open_debug_log(const char *name, const char *mode) {
    Platform &p = platform();

    asked("fopen", print("fopen(%s, %s)", text_or_null(name).c_str(),
                         text_or_null(mode).c_str()))
        .strings = {name, mode};
    if (!p.debug_log_opens) {
        errno = EACCES;
        return nullptr;
    }
    FILE *const file = fopen(p.debug_log_on_disk ? name : "/dev/null", mode);
    debug_logs[file];
    return file;
}

FILE *intercept_fopen(const char *name, const char *mode) {
    Platform &p = platform();

    if (std::string_view(name).starts_with("/tmp/cfg_snmp_debug.log"))
        return open_debug_log(name, mode);
    called("fopen", print("fopen(%s, %s)", text_or_null(name).c_str(),
                          text_or_null(mode).c_str()))
        .strings = {name, mode};
    hook("fopen");
    if (no_memory("fopen") || !p.file_opens.take())
        return nullptr;
    return tmpfile();
}

int intercept_fclose(FILE *file) {
    called("fclose", "fclose()");
    if (debug_logs.contains(file)) {
        ADD_FAILURE() << "the debug log is never closed";
        return 0;
    }
    return fclose(file);
}

int intercept_fflush(FILE *file) {
    const auto log_file = debug_logs.find(file);

    if (log_file == debug_logs.end()) {
        called("fflush", "fflush()");
        return file == stdout || file == stderr ? 0 : fflush(file);
    }
    platform()
        .record(Kind::Log, "log", log(log_message(log_file->second)))
        .octets = log_file->second;
    log_file->second.clear();
    return fflush(file);
}

int intercept_fileno(FILE *file) {
    return fileno(file);
}

int intercept_rename(const char *from, const char *to) {
    called("rename", print("rename(%s, %s)", text_or_null(from).c_str(),
                           text_or_null(to).c_str()))
        .strings = {from, to};
    return platform().rename_results.take();
}

int intercept_unlink(const char *path) {
    called("unlink", print("unlink(%s)", text_or_null(path).c_str()))
        .strings = {path};
    hook("unlink");
    return platform().unlink_results.take();
}

char *intercept_getcwd(char *buffer, size_t size) {
    const std::string &directory = platform().working_directory;

    asked("getcwd", print("getcwd(%zu)", size));
    hook("getcwd");
    if (directory.empty() || directory.size() + 1 > size) {
        errno = directory.empty() ? ENOENT : ERANGE;
        return nullptr;
    }
    memcpy(buffer, directory.c_str(), directory.size() + 1);
    return buffer;
}

void intercept_perror(const char *prefix) {
    put_text(stderr, std::string(prefix) + ": " + strerror(errno) + "\n");
}

int intercept_vfprintf(FILE *stream, const char *format, va_list arguments) {
    const std::string text = formatted(format, arguments);

    put_text(stream, text);
    return static_cast<int>(text.size());
}

int intercept_fprintf(FILE *stream, const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    const int result = intercept_vfprintf(stream, format, arguments);
    va_end(arguments);
    return result;
}

int intercept_printf(const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    const int result = intercept_vfprintf(stdout, format, arguments);
    va_end(arguments);
    return result;
}

int intercept_puts(const char *text) {
    put_text(stdout, std::string(text) + "\n");
    return 0;
}

int intercept_fputs(const char *text, FILE *stream) {
    put_text(stream, text);
    return 0;
}

int intercept_fputc(int c, FILE *stream) {
    put_text(stream, std::string(1, static_cast<char>(c)));
    return c;
}

int intercept_putc(int c, FILE *stream) {
    return intercept_fputc(c, stream);
}

int intercept_putchar(int c) {
    return intercept_fputc(c, stdout);
}

size_t intercept_fwrite(const void *octets, size_t size, size_t count,
                        FILE *stream) {
    put_text(stream,
             std::string(static_cast<const char *>(octets), size * count));
    return count;
}

/* ---- Intercepted: Net-SNMP -------------------------------------------------
 */

int intercept_register_mib(const char *name, const struct variable *variables,
                           size_t variable_size, size_t count, const oid *root,
                           size_t root_length) {
    Platform &p = platform();

    p.registrations.push_back(
        {name, variables, variable_size, count, oids(root, root_length)});
    called("register_mib",
           print("register_mib(%s, %zu, %s)", text_or_null(name).c_str(), count,
                 dotted(root, root_length).c_str()));
    return p.register_results.take();
}

int intercept_unregister_mib(oid *root, size_t root_length) {
    called("unregister_mib",
           print("unregister_mib(%s)", dotted(root, root_length).c_str()));
    return 0;
}

int intercept_snmp_register_callback(int major, int minor,
                                     SNMPCallback *callback, void *argument) {
    called("snmp_register_callback",
           print("snmp_register_callback(%d, %d, %s, %s)", major, minor,
                 callback == xf_handle_starttime_change
                     ? "xf_handle_starttime_change"
                     : "?",
                 argument == nullptr ? "NULL" : "?"));
    return 0;
}

unsigned intercept_snmp_alarm_register(unsigned when, unsigned flags,
                                       SNMPAlarmCallback *callback,
                                       void *argument) {
    called(
        "snmp_alarm_register",
        print("snmp_alarm_register(%u, %s, %s, %s)", when,
              flags == SA_REPEAT ? "SA_REPEAT" : std::to_string(flags).c_str(),
              callback == cfgentry_age_timer_handler
                  ? "cfgentry_age_timer_handler"
                  : "?",
              argument == nullptr ? "NULL" : "?"));
    return no_memory("snmp_alarm_register") ? 0 : platform().alarm_ids.take();
}

void intercept_snmp_alarm_unregister(unsigned id) {
    called("snmp_alarm_unregister", print("snmp_alarm_unregister(%u)", id));
}

/* Unsigned, and wrapping for a moment before the agent's start, as the agent's
 * own. */
u_long intercept_netsnmp_timeval_uptime(struct timeval *moment) {
    const int64_t hundredths = (static_cast<int64_t>(moment->tv_sec) -
                                platform().agent_start_seconds) *
                                   100 +
                               static_cast<int64_t>(moment->tv_usec) / 10'000;

    asked("netsnmp_timeval_uptime", print("netsnmp_timeval_uptime({%ld, %ld})",
                                          static_cast<long>(moment->tv_sec),
                                          static_cast<long>(moment->tv_usec)));
    return static_cast<u_long>(hundredths);
}

void intercept_snmp_set_detail(const char *detail) {
    called("snmp_set_detail",
           print("snmp_set_detail(%s)", text_or_null(detail).c_str()));
}

int intercept_snmp_log(int priority, const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    called("snmp_log",
           print("snmp_log(%s, %s)",
                 priority == LOG_ERR ? "LOG_ERR"
                                     : std::to_string(priority).c_str(),
                 quote(text).c_str()))
        .octets = text;
    return 0;
}

int intercept_snmp_get_do_debugging(void) {
    asked("snmp_get_do_debugging", "snmp_get_do_debugging()");
    return platform().do_debugging.take();
}

static void debug_call(const char *function, const char *token,
                       const char *format, va_list arguments) {
    const std::string text = formatted(format, arguments);
    Event &event = called(function, print("%s(%s, %s)", function,
                                          text_or_null(token).c_str(),
                                          quote(text).c_str()));

    event.strings = {token, format};
    event.octets = text;
}

void intercept_debugmsgtoken(const char *token, const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    debug_call("debugmsgtoken", token, format, arguments);
    va_end(arguments);
}

void intercept_debugmsg(const char *token, const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    debug_call("debugmsg", token, format, arguments);
    va_end(arguments);
}

int intercept_header_generic(struct variable *, oid *, size_t *, int exact,
                             size_t *, WriteMethod **) {
    called("header_generic", print("header_generic(%d)", exact));
    return platform().header_generic_results.take();
}

} // extern "C"

/* ---- Rows ------------------------------------------------------------------
 */

namespace scripted {

size_t size_of(const struct ordset *set) {
    return set == nullptr ? 0 : set->objects.size();
}

struct xfCopyEntry make_row(int32_t index, int32_t row_status) {
    struct xfCopyEntry row = {};

    row.xfCopyIndex = index;
    row.xfCopyProtocol = 1;
    row.xfCopySourceFileType = 1;
    row.xfCopyDestFileType = 3;
    row.xfCopyNotificationOnCompletion = 2;
    row.xfCopyState = 1;
    row.entryCreateTime = static_cast<int32_t>(platform().now_seconds);
    row.xfCopyFailCause = 1;
    row.xfCopyEntryRowStatus = row_status;
    return row;
}

void store(const struct xfCopyEntry &row) {
    const Quiet quiet;
    struct xfCopyEntry *const entry = createXfCopyEntry();

    *entry = row;
    ASSERT_EQ(0, addXfCopyEntry(entry));
}

template <typename Row> static std::vector<Row> rows_of(const ordset *set) {
    std::vector<Row> rows;

    if (set == nullptr)
        return rows;
    for (const void *const object : set->objects)
        rows.push_back(*static_cast<const Row *>(object));
    return rows;
}

static std::optional<struct xfCopyEntry> row_of(const ordset *set,
                                                int32_t index) {
    for (const struct xfCopyEntry &row : rows_of<struct xfCopyEntry>(set))
        if (row.xfCopyIndex == index)
            return row;
    return std::nullopt;
}

static std::vector<int32_t> indexes_of(const ordset *set) {
    std::vector<int32_t> indexes;

    for (const struct xfCopyEntry &row : rows_of<struct xfCopyEntry>(set))
        indexes.push_back(row.xfCopyIndex);
    return indexes;
}

std::optional<struct xfCopyEntry> stored(int32_t index) {
    return row_of(module_state.copy_table, index);
}
std::vector<int32_t> stored_indexes() {
    return indexes_of(module_state.copy_table);
}
std::optional<struct xfCopyEntry> undo_record(int32_t index) {
    return row_of(module_state.undo_list, index);
}
std::vector<int32_t> undo_indexes() {
    return indexes_of(module_state.undo_list);
}
std::vector<struct xfCopyErrorEntry> stored_error_rows() {
    return rows_of<struct xfCopyErrorEntry>(module_state.error_table);
}

static void compare(std::string &differences, const char *field, int64_t a,
                    int64_t b) {
    if (a != b)
        differences +=
            print("%s: %lld, %lld; ", field, static_cast<long long>(a),
                  static_cast<long long>(b));
}

template <size_t Size>
static void compare(std::string &differences, const char *field,
                    const char (&a)[Size], const char (&b)[Size]) {
    const std::string text_a(a, strnlen(a, Size));
    const std::string text_b(b, strnlen(b, Size));

    if (text_a != text_b)
        differences += print("%s: %s, %s; ", field, quote(text_a).c_str(),
                             quote(text_b).c_str());
}

std::string difference(const struct xfCopyEntry &a,
                       const struct xfCopyEntry &b) {
    std::string found;

#define COMPARE(field) compare(found, #field, a.field, b.field)
    COMPARE(xfCopyIndex);
    COMPARE(xfCopyProtocol);
    COMPARE(xfCopySourceFileType);
    COMPARE(xfCopyDestFileType);
    COMPARE(xfCopyServerAddress);
    COMPARE(xfCopyFileName);
    COMPARE(xfCopySrcFileName);
    COMPARE(xfCopyUserName);
    COMPARE(xfCopyUserPassword);
    COMPARE(xfCopyNotificationOnCompletion);
    COMPARE(xfCopyState);
    COMPARE(entryCreateTime);
    COMPARE(xfCopyTimeStarted.seconds);
    COMPARE(xfCopyTimeStarted.microseconds);
    COMPARE(xfCopyTimeCompleted.seconds);
    COMPARE(xfCopyTimeCompleted.microseconds);
    COMPARE(xfCopyFailCause);
    COMPARE(rowCreatedByRequest);
    COMPARE(xfCopyEntryRowStatus);
    COMPARE(xfCopyServerAddressType);
    COMPARE(xfCopyServerAddressRev1);
    COMPARE(xfCopyVRFName);
#undef COMPARE
    return found;
}

/* ---- Fixture ---------------------------------------------------------------
 */

static void reset_module() {
    module_state = {};
    ageouttimer = 0;
    is_snmp_debug_enabled = 0;
    start_cpu_cycles = 0;
    change_time_flag = 1;
}

ModuleTest::ModuleTest()
    : p((current = std::make_unique<Platform>(), *current)) {
    setenv("TZ", "UTC", 1);
    reset_module();
    ipcbus_response_q = &p.response_queue;
    {
        const Quiet quiet;
        init_config_copy_mib();
    }
    p.forget();
}

ModuleTest::~ModuleTest() {
    for (const auto &[block, size] : p.blocks)
        free(block);
    for (struct ordset *const set : live_sets)
        delete set;
    live_sets.clear();
    for (netsnmp_variable_list *const varbind : p.varbinds) {
        varbind->next_variable = nullptr;
        snmp_free_varbind(varbind);
    }
    reset_module();
}

void ModuleTest::TearDown() {
    std::set<const void *> held;
    int leaks = 0;

    for (const struct ordset *const set : live_sets)
        held.insert(set->objects.begin(), set->objects.end());
    for (const auto &[block, size] : p.blocks)
        leaks += held.contains(block) ? 0 : 1;
    EXPECT_EQ(p.expected_leaks, leaks) << "blocks that nobody holds any more";
    for (const auto &[file, text] : debug_logs)
        EXPECT_EQ("", text) << "debug log record without a flush";
}

} // namespace scripted
