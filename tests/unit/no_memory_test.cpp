/*
 * Every call of a request that needs memory fails once, the first, the second,
 * and so on, until one run meets no failure: the module's own allocations and
 * the calls of the platform and of Net-SNMP that allocate for it.
 */
#include "fault_rows.h"
#include "scripted_platform.h"
#include "set_driver.h"

#include <functional>

using namespace scripted;
using namespace std::string_literals;

namespace {

/* A module and a platform of its own for each run. */
class Run : public ModuleTest {
  public:
    void TestBody() override {}
    void end() {
        TearDown();
    }
    Platform &platform_of() {
        return p;
    }
};

constexpr int most_calls = 100;

/* Calls that fail, in their order, and what comes of it. */
using Outcomes = std::vector<std::pair<std::string, std::string>>;

struct Scenario {
    std::string name;
    std::function<void(Platform &)> prepare;    /* without failures */
    std::function<std::string(Platform &)> act; /* and what came of it */
    /* What comes of it without a failure. */
    std::string undisturbed;
    Outcomes outcomes;
    /* Calls after which a block stays allocated. */
    std::vector<std::string> leaking = {};
};

std::string error_name(int error) {
    switch (error) {
    case SNMP_ERR_NOERROR:
        return "noError";
    case SNMP_ERR_GENERR:
        return "genErr";
    default:
        return "error " + std::to_string(error);
    }
}

std::string counted(size_t count, const std::string &what) {
    return count == 0   ? "no " + what
           : count == 1 ? "one " + what
                        : std::to_string(count) + " " + what + "s";
}

/* How a row is; that it is in the table once, and the undo list empty. */
std::string row_now(int32_t index) {
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
    const auto row = stored(index);
    if (!row.has_value())
        return "no row";
    switch (row->xfCopyState) {
    case XF_STATE_WAITING:
        return row->xfCopyEntryRowStatus == XF_ROW_NOT_READY ? "row notReady"
                                                             : "row waiting";
    case XF_STATE_RUNNING:
        return "row inProgress";
    case XF_STATE_SUCCESSFUL:
        return "row successful";
    default:
        return "row failed, " +
               (row->xfCopyFailCause == XF_FAIL_UNKNOWN       ? "unknown"s
                : row->xfCopyFailCause == XF_FAIL_SAVE_FAILED ? "saveFailed"s
                : row->xfCopyFailCause == XF_FAIL_SAVE_REFUSED
                    ? "saveRefused"s
                    : std::to_string(row->xfCopyFailCause));
    }
}

/* The table is usable: a new row can be made and destroyed. */
void expect_usable() {
    const size_t rows = stored_indexes().size();
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({integer(14, 900, 5)}));
    EXPECT_EQ(rows + 1, stored_indexes().size());
    EXPECT_EQ(SNMP_ERR_NOERROR, set_request({integer(14, 900, 6)}));
    EXPECT_EQ(rows, stored_indexes().size());
    EXPECT_EQ(std::vector<int32_t>{}, undo_indexes());
}

void check(const Scenario &scenario) {
    Outcomes seen;
    std::vector<FaultRow> rows;

    for (int number = 1; number <= most_calls; number++) {
        SCOPED_TRACE(scenario.name + ", call " + std::to_string(number));
        Run run;
        Platform &p = run.platform_of();
        if (scenario.prepare)
            scenario.prepare(p);
        p.forget();
        p.fail_memory_at = number;
        const std::string outcome = scenario.act(p);
        const std::string call = p.failed_call;
        p.fail_memory_at = 0;
        for (const std::string &leaking : scenario.leaking)
            p.expected_leaks += leaking == call ? 1 : 0;
        expect_usable();
        run.end();
        if (call.empty()) {
            EXPECT_EQ(scenario.undisturbed, outcome);
            break;
        }
        ASSERT_NE(most_calls, number) << "there is no end to it";
        seen.emplace_back(call, outcome);
        rows.push_back({scenario.name + "; no memory in call " +
                            std::to_string(number) + ", " + call,
                        outcome});
    }
    EXPECT_EQ(scenario.outcomes, seen);
    if (rows.empty())
        rows = {{scenario.name, "no call needs memory"}};
    write_fault_rows("Memory", rows);
}

/* Rows without the alarm that deletes the old ones. */
std::string alarm_now() {
    return !stored_indexes().empty() && ageouttimer == 0
               ? ", row never ages out"
               : "";
}

/* Varbinds that were made, and those that reached the agent: behind one that
 * is missing they are a list of their own, which goes nowhere. */
std::string sent(const Platform &p) {
    if (p.notifications.empty())
        return "no notification";
    const size_t made = p.varbinds.size();
    const size_t sent = p.notifications[0].varbinds.size();
    return std::to_string(sent) + " of 7 varbinds sent" +
           (made == sent
                ? ""
                : ", " + std::to_string(made - sent) + " not released");
}

Outcomes each_varbind(const std::string &before) {
    Outcomes outcomes = {{"build_varbind", before + "6 of 7 varbinds sent"}};

    for (int sent = 1; sent <= 6; sent++)
        outcomes.emplace_back(
            "build_varbind",
            before + std::to_string(sent) + " of 7 varbinds sent" +
                (sent == 6
                     ? ""
                     : ", " + std::to_string(6 - sent) + " not released"));
    return outcomes;
}

Outcomes join(std::initializer_list<Outcomes> parts) {
    Outcomes whole;

    for (const Outcomes &part : parts)
        whole.insert(whole.end(), part.begin(), part.end());
    return whole;
}

std::vector<Binding> columns(int32_t index) {
    return {integer(3, index, XF_FILE_RUNNING),
            integer(4, index, XF_FILE_NETWORK),
            ip_address(5, index, "\xc0\x00\x02\x07"), octets(6, index, "x.cfg"),
            integer(9, index, XF_TRUE)};
}

std::vector<Binding> with_status(std::vector<Binding> bindings, int32_t index,
                                 long status) {
    bindings.insert(bindings.begin(), integer(14, index, status));
    return bindings;
}

std::string set_and_look(const std::vector<Binding> &bindings, int32_t index) {
    const int error = set_request(bindings);
    const std::string row = row_now(index);
    return error_name(error) + ", " + row + alarm_now();
}

void deliver(uint32_t opcode, const std::string &payload, size_t outcome,
             Platform &p, oid *name, size_t *name_len, int *notify) {
    *name_len = outcome;
    handle_notifications(p.message(opcode, payload), name, name_len, notify);
}

struct xfCopyEntry running(int32_t index, int32_t dest) {
    struct xfCopyEntry row = make_row(index, XF_ROW_ACTIVE);

    row.xfCopyState = XF_STATE_RUNNING;
    row.xfCopySourceFileType = XF_FILE_RUNNING;
    row.xfCopyDestFileType = dest;
    row.xfCopyNotificationOnCompletion = XF_TRUE;
    assign(row.xfCopyServerAddressRev1, "192.0.2.7");
    return row;
}

std::string child_now() {
    return module_state.copyChildRunning == 1 ? ", copy process awaited" : "";
}

} // namespace

TEST(NoMemory, createAndGo) {
    check({"createAndGo with columns",
           nullptr,
           [](Platform &) {
               std::string outcome =
                   set_and_look(with_status(columns(5), 5, 4), 5);
               outcome += child_now();
               module_state.copyChildRunning = 0;
               return outcome;
           },
           "noError, row inProgress, copy process awaited",
           {{"malloc", "genErr, no row"},
            {"ordset_create", "genErr, no row"},
            {"ordset_add", "genErr, no row"},
            {"snmp_alarm_register", "noError, row inProgress, row never "
                                    "ages out, copy process awaited"},
            {"fork", "noError, row inProgress, copy process awaited"}}});
}

TEST(NoMemory, createAndWait) {
    check({"createAndWait with columns",
           nullptr,
           [](Platform &) {
               return set_and_look(with_status(columns(5), 5, 5), 5);
           },
           "noError, row notReady",
           {{"malloc", "genErr, no row"},
            {"ordset_create", "genErr, no row"},
            {"ordset_add", "genErr, no row"},
            {"snmp_alarm_register",
             "noError, row notReady, row never ages out"}}});
}

TEST(NoMemory, secondRow) {
    check({"createAndWait of a second row",
           [](Platform &) { store(make_row(4)); },
           [](Platform &) {
               const std::string outcome =
                   set_and_look(with_status(columns(5), 5, 5), 5);
               EXPECT_EQ("row notReady", row_now(4));
               return outcome;
           },
           "noError, row notReady",
           {{"malloc", "genErr, no row"}, {"ordset_add", "genErr, no row"}}});
}

TEST(NoMemory, columnsAlone) {
    check({"columns of a row",
           [](Platform &) { store(make_row(5)); },
           [](Platform &) { return set_and_look(columns(5), 5); },
           "noError, row notReady",
           {}});
}

TEST(NoMemory, active) {
    check({"active",
           [](Platform &) {
               store(make_row(5));
               set_request(columns(5));
           },
           [](Platform &) {
               std::string outcome = set_and_look({integer(14, 5, 1)}, 5);
               outcome += child_now();
               module_state.copyChildRunning = 0;
               return outcome;
           },
           "noError, row inProgress, copy process awaited",
           {{"malloc", "genErr, row notReady"},
            {"ordset_add", "genErr, row notReady"},
            {"fork", "noError, row inProgress, copy process awaited"}}});
}

TEST(NoMemory, destroy) {
    check({"destroy",
           [](Platform &) { store(make_row(5)); },
           [](Platform &) { return set_and_look({integer(14, 5, 6)}, 5); },
           "noError, no row",
           {{"malloc", "genErr, row notReady"},
            {"ordset_add", "genErr, row notReady"}}});
}

TEST(NoMemory, save) {
    check({"save, refused, with notification", nullptr,
           [](Platform &p) {
               p.to_receive.push_back(
                   {0, 0, p.message(1381, "\x40\x49\x00\x01"s)});
               const int error = set_request(
                   {integer(14, 5, 4), integer(3, 5, XF_FILE_RUNNING),
                    integer(4, 5, XF_FILE_STARTUP), integer(9, 5, XF_TRUE)});
               EXPECT_EQ(nullptr, module_state.save_request);
               std::string outcome = error_name(error) + ", " + row_now(5);
               outcome += ", " + sent(p) + alarm_now();
               return outcome;
           },
           "noError, row failed, saveRefused, 7 of 7 varbinds sent",
           join({{{"malloc", "genErr, no row, no notification"},
                  {"ordset_create", "genErr, no row, no notification"},
                  {"ordset_add", "genErr, no row, no notification"},
                  {"snmp_alarm_register",
                   "noError, row failed, saveRefused, 7 of 7 varbinds sent, "
                   "row never ages out"},
                  {"ipcbus_send",
                   "noError, row failed, unknown, no notification"}},
                 each_varbind("noError, row failed, saveRefused, "),
                 {{"enqueue_notification",
                   "noError, row failed, saveRefused, no notification"}}})});
}

TEST(NoMemory, completion) {
    check({"end of a copy, with notification",
           [](Platform &) { store(running(5, XF_FILE_NETWORK)); },
           [](Platform &p) {
               oid name[MAX_OID_LEN] = {};
               size_t name_len = 0;
               int notify = 0;
               deliver(10277, "\0\0\0\0"s, 0, p, name, &name_len, &notify);
               return row_now(5) + ", " + sent(p);
           },
           "row successful, 7 of 7 varbinds sent",
           join({each_varbind("row successful, "),
                 {{"enqueue_notification",
                   "row successful, no notification"}}})});
}

TEST(NoMemory, failedSaveInTheFabric) {
    check({"failed save in the fabric, two switches",
           [](Platform &p) {
               store(running(5, XF_FILE_FABRIC_STARTUP));
               p.grove_records = {
                   {"AAAAAAAA", 0, {INET_ADDRESS_IPV4, {192, 0, 2, 7}}, "one"},
                   {"BBBBBBBB", 1, {INET_ADDRESS_IPV4, {0, 0, 0, 0}}, "two"}};
           },
           [](Platform &p) {
               oid name[MAX_OID_LEN] = {};
               size_t name_len = 0;
               int notify = 0;
               deliver(1361, "\x40\x1e\x00\x01"s, 1, p, name, &name_len,
                       &notify);
               std::string outcome =
                   row_now(5) + ", " +
                   counted(stored_error_rows().size(), "error row");
               for (const struct xfCopyErrorEntry &row : stored_error_rows())
                   if (row.deviceAddressText[0] == '\0')
                       outcome += ", one without its address";
               if (p.failed_call == "ordset_add")
                   outcome += ", one record lost";
               EXPECT_EQ(1, notify);
               return outcome;
           },
           "row failed, saveFailed, 2 error rows",
           join({{{"ordset_create", "row failed, saveFailed, no error row"},
                  {"rpcq_req_resp", "row failed, saveFailed, no error row"},
                  {"malloc", "row failed, saveFailed, one error row"},
                  {"ordset_add",
                   "row failed, saveFailed, one error row, one record lost"},
                  {"ipconf_get_if_inet_addrs",
                   "row failed, saveFailed, 2 error rows, one without its "
                   "address"},
                  {"malloc", "row failed, saveFailed, one error row"},
                  {"ordset_add",
                   "row failed, saveFailed, one error row, one record lost"}},
                 Outcomes(7, {"build_varbind",
                              "row failed, saveFailed, 2 error rows"})}),
           /* A record that the container refuses is not released. */
           {"ordset_add"}});
}

TEST(NoMemory, reads) {
    check({"reads of both tables",
           [](Platform &) { store(running(5, XF_FILE_FABRIC_STARTUP)); },
           [](Platform &) {
               int found = 0;
               for (int magic = 4; magic <= 28; magic++) {
                   if (magic > 19 && magic < 25)
                       continue;
                   const oid column =
                       static_cast<oid>(magic <= 19 ? magic - 2 : magic - 23);
                   const std::vector<oid> name =
                       magic <= 19 ? copy_column(column) : error_column(column);
                   found += get_next(magic, name).found ? 1 : 0;
               }
               return counted(static_cast<size_t>(found), "value") + ", " +
                      row_now(5);
           },
           "16 values, row inProgress",
           {}});
}

TEST(NoMemory, copyProcess) {
    check({"copy process, upload",
           nullptr,
           [](Platform &p) {
               struct xfCopyEntry row = running(5, XF_FILE_NETWORK);
               row.xfCopyProtocol = XF_PROTO_TFTP;
               assign(row.xfCopyFileName, "x.cfg");
               copy_function(&row);
               std::string reported = "no report";
               for (const Event &event : p.calls_of("ipcbus_send"))
                   if (event.text.find("10277") != std::string::npos &&
                       p.failed_call != "ipcbus_send")
                       reported =
                           "reported " + std::to_string(event.octets.back());
               return reported;
           },
           "reported 0",
           {{"ipcbus_bind", "reported 1"},
            {"fopen", "reported 1"},
            {"ipcbus_bind", "reported 0"}, /* it tries again */
            {"ipcbus_send", "no report"}}});
}

TEST(NoMemory, start) {
    check({"start of the module",
           [](Platform &) { deinit_config_copy_mib(); },
           [](Platform &p) {
               init_config_copy_mib();
               const size_t subscribed = p.subscriptions.size();
               const bool registered = p.count("unregister_mib") == 0;
               const std::string outcome =
                   (registered ? "registered, "s : "not registered, "s) +
                   counted(subscribed, "subscription");
               /* A second start is whole. */
               p.fail_memory_at = 0;
               deinit_config_copy_mib();
               init_config_copy_mib();
               EXPECT_EQ(3u, p.subscriptions.size());
               return outcome;
           },
           "registered, 3 subscriptions",
           {{"ordset_create", "not registered, no subscription"},
            {"ordset_create", "not registered, no subscription"},
            {"register_for_notification", "registered, 2 subscriptions"},
            {"register_for_notification", "registered, 2 subscriptions"},
            {"register_for_notification", "registered, 2 subscriptions"}}});
}
