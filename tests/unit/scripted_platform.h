/*
 * A platform for unit tests: every platform call, and every function of the C
 * library and of Net-SNMP that the module's behaviour depends on, with results
 * that a test scripts and a journal of what the module did.
 *
 * What it does stands in scripted/, a file for each service; scripted/note.h
 * has what those share.
 *
 * The module under test is linked with its references to those functions
 * renamed (see CMakeLists.txt): nothing here touches what GoogleTest calls.
 *
 * The journal is one list of events in order. Most tests compare story(): every
 * text that the module put out, on whichever channel, and every call with an
 * effect, nothing left out. Queries, memory and container operations are in the
 * journal too, but are looked at by those tests only that care.
 */
#ifndef SCRIPTED_PLATFORM_H
#define SCRIPTED_PLATFORM_H

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <deque>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "config_copy_mib_private.h"
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

/* ---- What the transport hands out -----------------------------------------
 */

struct ipcbus_queue {
    std::string name; /* rendered as this */
    int kind;
    int sap;
    int unbound; /* times that it was given back */
};

struct ipcbus_message {
    std::string name; /* rendered as this */
    uint32_t opcode;
    std::optional<std::string> payload;
    uint32_t token;
    int dropped; /* times */
};

namespace scripted {

/* ---- Journal ---------------------------------------------------------------
 */

enum class Kind : unsigned {
    Trace = 1,  /* history: "100 text", "101 text" */
    Live = 2,   /* live output of a trace: "live text" */
    Stdout = 4, /* "stdout text" */
    Stderr = 8, /* "stderr text" */
    Log = 16,   /* debug log record: "log text", see log() */
    Call = 32,  /* a call with an effect: "name(arguments)" */
    Query = 64, /* a call without one: clocks, addresses, who is asking */
    Memory = 128 /* malloc, free */,
    Set = 256 /* ordset */
};

constexpr unsigned operator|(Kind a, Kind b) {
    return static_cast<unsigned>(a) | static_cast<unsigned>(b);
}
constexpr unsigned operator|(unsigned a, Kind b) {
    return a | static_cast<unsigned>(b);
}

using Handler = void (*)(int);

/*
 * SIGCHLD's action that the module starts out with; compared, never called.
 */
void agents_sigchld_handler(int);

struct Event {
    Kind kind;
    std::string function;             /* "ipcbus_send"; the channel of a text */
    std::string text;                 /* as story() shows it */
    std::string octets;               /* payload, raw text, or whole record */
    std::vector<std::string> strings; /* string arguments, deep copies */
    uint32_t level;                   /* of a trace */
    uint32_t size;                    /* of a trace record, as handed over */
    Handler sigchld;                  /* SIGCHLD's action at that moment */
};

using Story = std::vector<std::string>;

/* ---- Scripted results ------------------------------------------------------
 */

/* Results of one function: those queued first, then always the same. */
template <typename Value> class Results {
  public:
    Results(Value always = Value{}) : always_{always, 0} {}

    /* The next call gives this, with errno set unless it is 0. */
    Results &then(Value value, int error = 0) {
        queue_.push_back({value, error});
        return *this;
    }
    /* Every call gives this once the queue is empty. */
    void always(Value value, int error = 0) {
        always_ = {value, error};
    }

    Value take() {
        Result result = always_;
        if (!queue_.empty()) {
            result = queue_.front();
            queue_.pop_front();
        }
        if (result.error != 0)
            errno = result.error;
        return result.value;
    }

  private:
    struct Result {
        Value value;
        int error;
    };
    std::deque<Result> queue_;
    Result always_;
};

/* One switch as grove reports it. */
struct GroveRecord {
    std::string wwn; /* 8 octets */
    int32_t is_local;
    struct ip_addr address;
    std::string text;
};

/* What ipcbus_recv gives: `message` if result is not negative. */
struct Received {
    int result;
    int error;
    struct ipcbus_message *message;
};

/* A varbind or a notification as the agent got it. */
struct Varbind {
    std::vector<oid> name;
    int type;
    std::string octets;
    bool operator==(const Varbind &) const = default;
};
struct Notification {
    int trap_type;
    std::vector<oid> name;
    std::vector<Varbind> varbinds;
};

/* A variable registered with the agent: what the table looked like then. */
struct Registration {
    std::string name;
    const void *variables;
    size_t variable_size;
    size_t count;
    std::vector<oid> root;
};

/* Arguments of the last system-manager request of rpcq_req_resp. */
struct RpcRequest {
    uint32_t code, arg1, arg2, request_length, service, limit;
    const void *request;
    ipcbus_handle queue;
};

class Platform {
  public:
    /* -- Journal -- */
    std::vector<Event> journal;
    Story events(unsigned kinds) const;
    /* Events of one function, in order. */
    std::vector<Event> calls_of(std::string_view function) const;
    size_t count(std::string_view function) const;
    void forget(); /* empties the journal */

    /* -- Clocks and the process -- */
    int64_t now_seconds = 1'700'000'000;
    int64_t now_microseconds = 250'000;
    Results<int> pid = 4242;
    Results<int> fork_results = 4343; /* 0: in the child, see run_as_child */
    Results<int> system_results = 0;
    Handler sigchld = agents_sigchld_handler;
    /* netsnmp_timeval_uptime: hundredths since the agent's start. */
    int64_t agent_start_seconds = 1'699'999'000;

    /* -- Files -- */
    /* The debug log: open? (its handle is kept for the process's life). */
    bool debug_log_opens = true;
    bool debug_log_on_disk = false;  /* opens the real one besides */
    Results<bool> file_opens = true; /* other files, with errno */
    Results<int> rename_results = 0;
    Results<int> unlink_results = 0;
    /* Working directory; "" and errno if getcwd is to fail. */
    std::string working_directory = "/stage";

    /* -- Memory -- */
    int fail_malloc_at = 0; /* 1: the next malloc fails, 0: none */
    int expected_leaks = 0; /* blocks that no container holds at the end */
    size_t mallocs = 0;     /* successful, of the module, since forget() */
    /* Calls that need memory, the module's own and those of the platform: the
     * one of this number fails as documented. 1: the next, 0: none. */
    int fail_memory_at = 0;
    std::string failed_call; /* the one that did */

    /* -- ordset -- */
    int fail_ordset_create_at = 0; /* counted from now; 0: none */
    int ordset_create_failure = 1; /* what a failing create returns */
    int fail_ordset_add_at = 0;
    int fail_ordset_find_at = 0;
    int fail_ordset_nth_at = 0;
    int fail_ordset_remove_at = 0;
    size_t comparisons = 0; /* since forget() */

    /* -- Trace -- */
    Results<int> hist_check = 0; /* 0: events are recorded */
    Results<int> live_check = 0; /* not 0: live output is on */

    /* -- ipcbus -- */
    Results<int> bind_results = 0;
    Results<int> unbind_results = 0;
    Results<int> send_results = 0;
    std::deque<Received> to_receive;
    Received receive_otherwise = {-1, 5, nullptr};
    uint32_t next_token = 0x11223344;

    /* A message for the module; without a payload if there is none. */
    struct ipcbus_message *message(uint32_t opcode,
                                   std::optional<std::string> payload);

    /* -- Agent -- */
    Results<int> register_results = 0;       /* register_mib */
    Results<int> do_debugging = 0;           /* snmp_get_do_debugging */
    Results<int> header_generic_results = 1; /* MATCH_FAILED */
    Results<int> subscribe_results = 0;      /* register_for_notification */
    Results<uint32_t> alarm_ids = 77;
    std::string session_id = "session-1";
    std::string user_name = "operator";
    std::string request_vrf = "ctx-vrf";
    int32_t request_vrf_error = 0;
    int fail_varbind_at = 0; /* 1: the next build_varbind fails */
    Results<int> enqueue_results = 0;
    std::vector<Notification> notifications;
    std::vector<Registration> registrations;
    std::map<uint32_t, notification_handler *> subscriptions;
    std::vector<Varbind> varbinds_of(const netsnmp_variable_list *) const;

    /* -- The rest -- */
    Results<int> addr_to_str_results = 0;   /* not 0: fails with it */
    Results<int> addr_from_str_results = 0; /* not 0: fails with it */
    Results<int> chassis_results = 0;
    int32_t chassis_type = 32;
    Results<int> pod_type = 0;
    Results<int> vrf_context = 7;
    Results<int> tftp_timeout_results = 0;
    Results<int> tftp_connect_results = 0;
    Results<int> tftp_put_results = 0;
    Results<int> tftp_get_results = 0;
    Results<int> program_results = 0;
    std::string configuration_directory = "/startup";
    Results<int> write_cfg_results = 0;
    Results<int> apply_results = 0;
    uint32_t heartbeat_milliseconds = 30'000;
    /* timer_get_cycles; a cycle is a millisecond here. */
    Results<uint64_t> cycles = uint64_t{1};
    Results<int> rpcq_results = 0;
    std::optional<std::string> rpcq_response = std::string("\x20\x21\x22\x23"
                                                           "\x24\x25\x26\x27");
    std::optional<RpcRequest> last_rpc;
    std::deque<GroveRecord> grove_records;
    int grove_end = 9; /* result when there is no further record */
    std::optional<std::vector<struct ip_addr>> interface_addresses =
        std::vector<struct ip_addr>{{1, {10, 0, 0, 9}}};
    Results<int> interface_results = 0;
    Results<int> mgmt_port_results = 0; /* not 0: there is no such port */

    /* Called inside the function of that name, before it returns. */
    std::map<std::string, std::function<void()>> hooks;

    /* -- Inside -- */
    Event &record(Kind kind, std::string_view function, std::string text);
    bool recording = true;
    std::map<void *, size_t> blocks; /* the module's live allocations */
    std::vector<std::unique_ptr<struct ipcbus_queue>> queues;
    std::vector<std::unique_ptr<struct ipcbus_message>> messages;
    std::vector<netsnmp_variable_list *> varbinds;
    std::optional<int> local_file; /* descriptor of the file that is open */
    struct ipcbus_queue response_queue = {"response_q", 0, 0, 0};
};

/* The platform of the running test; a new one for each. */
Platform &platform();

/* ---- The views that tests compare ------------------------------------------
 */

/* Texts of every channel and calls with an effect, in order. */
Story story();
/* Texts alone, and calls alone. */
Story texts();
Story calls();

/* Lines of those. */
std::string error(std::string_view text); /* trace, level 100 */
std::string info(std::string_view text);  /* trace, level 101 */
std::string live(std::string_view text);
std::string out(std::string_view text); /* standard output */
std::string err(std::string_view text); /* standard error */
/*
 * Debug log record. `text` is the message without what every record has: the
 * bracketed date before it and the newline behind it are checked when the
 * record is written, and the source line in "function(line):" shows as "#".
 */
std::string log(std::string_view text);

/* Printable, between double quotes, octets beyond ASCII as \xHH. */
std::string quote(std::string_view octets);

/* ---- Running the module ----------------------------------------------------
 */

/*
 * Runs `body` until it calls _exit and returns the status; a failure of the
 * test if it returns instead.
 */
int run_as_child(const std::function<void()> &body);

/* Nothing that happens while one of these lives is recorded or counted. */
class Quiet {
  public:
    Quiet();
    ~Quiet();
    Quiet(const Quiet &) = delete;
    Quiet &operator=(const Quiet &) = delete;

  private:
    bool before_;
    size_t mallocs_;
    size_t comparisons_;
};

/* ---- Rows ------------------------------------------------------------------
 */

/* A row with the defaults of a new one and this index and row status. */
struct xfCopyEntry make_row(int32_t index,
                            int32_t row_status = XF_ROW_NOT_READY);

/* Stores a copy of the row through the module, quietly. */
void store(const struct xfCopyEntry &row);

/* What the table holds, looked up without the module. */
std::optional<struct xfCopyEntry> stored(int32_t index);
std::vector<int32_t> stored_indexes();
std::optional<struct xfCopyEntry> undo_record(int32_t index);
std::vector<int32_t> undo_indexes();
std::vector<struct xfCopyErrorEntry> stored_error_rows();

/* Assigns a string field. */
template <size_t Size> void assign(char (&field)[Size], std::string_view text) {
    memset(field, 0, Size);
    memcpy(field, text.data(), text.size() < Size ? text.size() : Size - 1);
}

/* Every field that two rows do not have in common, "" if they are equal. */
std::string difference(const struct xfCopyEntry &a,
                       const struct xfCopyEntry &b);

/* Number of objects in a container, 0 for NULL; without recording. */
size_t size_of(const struct ordset *set);

/* ---- Fixture ---------------------------------------------------------------
 */

/*
 * A module as after init_config_copy_mib, without its traces in the journal: no
 * rows, an empty undo list, every global zero. At the end every block that the
 * module allocated must be in a container (see Platform::expected_leaks).
 */
class ModuleTest : public ::testing::Test {
  protected:
    ModuleTest();
    ~ModuleTest() override;
    void TearDown() override;

    Platform &p;
};

} // namespace scripted

#endif
