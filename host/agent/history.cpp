#include "host/agent/history.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "host/agent/copy_row.h"
#include "host/agent/history_table.h"
#include "host/agent/request.h"
#include "host/base/clock.h"
#include "host/base/log.h"
#include "host/base/settings.h"
#include "host/errors.h"
#include "host/history/log.h"
#include "host/history/syncer.h"
#include "host/ipcbus/wire.h"
#include "platform/errlog.h"
#include "platform/messages.h"

namespace xfhost {
namespace {

enum RowStatus { active = 1, create_and_go = 4 };
enum { row_failed = 4 };
enum Protocol { tftp = 1, ftp = 2, scp = 4, sftp = 5 };
enum Cause { unknown = 1, save_refused = 8, save_failed = 9 };

constexpr int64_t refresh_ms = 200;
constexpr uint64_t saves_looked_at = 100;

// Never destroyed: a round of the syncer may outlast everything else.
HistoryLog &history = *new HistoryLog;
Syncer &syncer = *new Syncer;
bool on = false;
std::string report_directory; // not on the disk: it may be what is full

// A row status that may start a copy, while the module acts on it.
struct Activation {
    const netsnmp_handler_registration *column;
    const netsnmp_variable_list *status;
    const netsnmp_pdu *pdu;
};

std::optional<Activation> activation;
bool begun = false;      // its copy has its entry
uint64_t copying = 0;    // the entry whose copy process runs; 0: none
std::string lost;        // why that process did not report
std::string report_path; // of that process; empty: it has none
int64_t refreshed = 0;   // when its report was read last

// Runs what may want memory.
template <typename Work> void note(Work work) {
    if (!on)
        return;
    try {
        work();
    } catch (const std::bad_alloc &) {
        log_message(LOG_ERR, "the history misses something: no memory");
    }
}

std::string path_of_report(uint64_t number) {
    return report_directory + "/" + std::to_string(number) + ".report";
}

void log_error(int error) {
    if (error != 0)
        log_message(LOG_ERR, "history: %s", strerror(error));
}

void append(const HistoryEntry &entry) {
    if (!history.append(entry))
        log_error(errno);
}

void sync() {
    log_error(syncer.take_error());
    syncer.ask(history.directory());
}

void store(const HistoryEntry &entry) {
    append(entry);
    sync();
}

// Of a step that nobody was asked for: everybody else tells what failed.
const char *unexplained(const HistoryEntry &entry) {
    return entry.protocol == tftp
               ? "The copy process could not stage its file, reach the "
                 "switch's "
                 "services or run /brim/bin/ovan-tftp."
               : "The copy process could not stage its file, or reach the "
                 "switch's services.";
}

// Everything that failed has a reason and an advice.
void complete(HistoryEntry &entry) {
    if (entry.report.reason.empty())
        entry.report.reason = unexplained(entry);
    if (entry.report.advice.empty())
        entry.report.advice =
            entry.token != 0
                ? "Look into the logs of the system manager (procd) and of the "
                  "agent on the switch, and save again."
                : "Look into the log of the agent on the switch, and copy "
                  "again.";
}

void finish(HistoryEntry &entry, CopyState state, uint64_t cause) {
    entry.state = state;
    entry.cause = cause;
    entry.ended = tenths_now();
    if (state == CopyState::successful)
        entry.report.reason = entry.report.advice = "";
    else
        complete(entry);
    store(entry);
}

uint64_t port_of(uint64_t protocol) {
    const Settings *s = settings();
    switch (protocol) {
    case tftp:
        return static_cast<uint64_t>(s->tftp_port);
    case ftp:
        return static_cast<uint64_t>(s->ftp_port);
    case scp:
    case sftp:
        return static_cast<uint64_t>(s->ssh_port);
    default:
        return 0;
    }
}

// The entry of a row that is being acted on: `activation` is set.
HistoryEntry &begin(const CopyRow &row) {
    HistoryEntry entry = row.asked;
    if (entry.vrf.empty())
        entry.vrf = request_vrf(activation->pdu);
    entry.asker = request_user(activation->pdu);
    entry.asked = tenths_now();
    entry.port = port_of(entry.protocol);
    // One that could not be written has a number, too.
    entry.number = std::max(history.next_number(), history_table_newest() + 1);
    HistoryEntry &added = history_table_add(entry);
    begun = true;
    return added;
}

// The row that is being acted on: `activation` is set.
std::optional<CopyRow> activated_row() {
    return read_copy_row(*activation->column, *activation->status);
}

// The entry of a copy that the module is starting, which is when its row is
// read: a request that is refused costs nothing. NULL if it has one.
HistoryEntry *begin_activated() {
    if (!activation || begun)
        return nullptr;
    const auto row = activated_row();
    return row ? &begin(*row) : nullptr;
}

// -- What an agent before this one has left --

void forget_reports() {
    DIR *listing = opendir(report_directory.c_str());
    if (listing == nullptr)
        return;
    while (const struct dirent *each = readdir(listing))
        if (std::string_view(each->d_name).ends_with(".report"))
            unlinkat(dirfd(listing), each->d_name, 0);
    closedir(listing);
}

// The copy process may go on for a while: what it told so far is what there is.
void mark_interrupted(HistoryEntry &entry) {
    entry.report = read_report(path_of_report(entry.number));
    entry.state = CopyState::interrupted;
    entry.ended = tenths_now();
    const std::string told = entry.report.reason;
    entry.report.reason = "The agent ended before the copy did.";
    if (!told.empty())
        entry.report.reason = printable(entry.report.reason + " " + told);
    if (entry.report.advice.empty())
        entry.report.advice = "Look at what was copied, and copy again.";
    append(entry);
}

void take_over(std::vector<HistoryEntry> &entries) {
    for (HistoryEntry &each : entries) {
        if (each.state == CopyState::running)
            mark_interrupted(each);
        history_table_add(each);
    }
    forget_reports();
}

// -- Copies --

void refresh(HistoryEntry &entry) {
    const int64_t now = monotonic_ms();
    if (entry.number != copying || now < refreshed + refresh_ms)
        return;
    refreshed = now;
    entry.report.octets = read_report(report_path).octets;
}

void end_copy(uint32_t status) {
    HistoryEntry *entry = history_table_find(copying);
    if (entry == nullptr)
        return;
    entry->report = read_report(report_path);
    if (entry->report.reason.empty())
        entry->report.reason = lost;
    unlink(report_path.c_str());
    copying = 0;
    finish(*entry, status == 0 ? CopyState::successful : CopyState::failed,
           status <= INT32_MAX ? status : uint32_t{unknown});
}

void begin_copy() {
    end_copy(unknown); // if memory was short when it ended
    report_path.clear();
    HistoryEntry *entry = begin_activated();
    if (entry == nullptr)
        return;
    copying = entry->number;
    lost.clear();
    entry->started = tenths_now();
    append(*entry); // it is synced once the process is there
    std::string path = path_of_report(entry->number);
    if (begin_report(path))
        report_path = std::move(path);
    else
        log_message(LOG_ERR, "%s: %s", path.c_str(), strerror(errno));
}

// -- Saves --

// The newest entry that fits; NULL if there is none.
template <typename Fits> HistoryEntry *find_save(Fits fits) {
    const uint64_t newest = history_table_newest();
    for (uint64_t back = 0; back < std::min(saves_looked_at, newest); back++) {
        HistoryEntry *entry = history_table_find(newest - back);
        if (entry != nullptr && entry->token != 0 && fits(*entry))
            return entry;
    }
    return nullptr;
}

HistoryEntry *save_of(uint32_t token) {
    return find_save([token](const auto &each) { return each.token == token; });
}

HistoryEntry *save_of(const std::vector<uint8_t> &payload) {
    if (payload.size() >= SAVE_END_SIZE)
        return save_of(get_be32(payload.data() + SAVE_END_TOKEN));
    return find_save(
        [](const auto &each) { return each.state == CopyState::running; });
}

// What the system manager said in words, or else what its code means.
void fail_save(HistoryEntry &entry, Cause cause, uint32_t result) {
    if (result != err_save_busy) // its report is that of the other one
        entry.report = read_report(save_report_path());
    if (entry.report.reason.empty())
        entry.report.reason =
            std::string(cause == save_refused ? "The save was refused: "
                                              : "The save failed: ") +
            syserr2str(result) + ".";
    finish(entry, CopyState::failed, cause);
}

void succeed_with_save(HistoryEntry &entry) {
    entry.report = read_report(save_report_path());
    finish(entry, CopyState::successful, 0);
}

void answer_save(HistoryEntry &entry, uint32_t result) {
    switch (result) {
    case PROCD_CFG_ACTION_ACCEPTED:
        entry.started = tenths_now();
        store(entry);
        return;
    case PROCD_CFG_ACTION_DONE:
        succeed_with_save(entry);
        return;
    default:
        fail_save(entry, save_refused, result);
    }
}

// -- The row status --

bool may_start(const netsnmp_variable_list &status) {
    return status.type == ASN_INTEGER && (*status.val.integer == active ||
                                          *status.val.integer == create_and_go);
}

// A save that nobody could be asked for has failed by now; that is all that
// there is to see of it.
void look_for_failed_save() {
    if (begun)
        return;
    const auto row = activated_row();
    if (!row || !row->is_save() || row->state != row_failed)
        return;
    HistoryEntry &entry = begin(*row);
    entry.report.reason = "The system manager could not be asked for the save.";
    entry.report.advice = "Look whether the system manager runs on the switch.";
    finish(entry, CopyState::failed, static_cast<uint64_t>(row->cause));
}

int act(netsnmp_mib_handler *handler, netsnmp_handler_registration *column,
        netsnmp_agent_request_info *info, netsnmp_request_info *request) {
    begun = false;
    if (may_start(*request->requestvb))
        activation = {column, request->requestvb, info->asp->pdu};
    const int result =
        netsnmp_call_next_handler_one_request(handler, column, info, request);
    if (activation && request->status == SNMP_ERR_NOERROR)
        note(look_for_failed_save);
    activation.reset();
    return result;
}

int watch(netsnmp_mib_handler *handler, netsnmp_handler_registration *column,
          netsnmp_agent_request_info *info, netsnmp_request_info *requests) {
    if (!on || info->mode != MODE_SET_ACTION)
        return netsnmp_call_next_handler(handler, column, info, requests);
    int result = SNMP_ERR_NOERROR;
    for (netsnmp_request_info *each = requests; each; each = each->next) {
        int one = act(handler, column, info, each);
        result = result == SNMP_ERR_NOERROR ? one : result;
    }
    return result;
}

void start(uint32_t rows) {
    const std::string directory = settings()->state_directory + "/history";
    report_directory = settings()->run_directory + "/reports";
    std::vector<HistoryEntry> entries;
    // Nobody is shown an empty history in the place of one that is not read.
    if (!history.open(open_private_directory(directory), rows, entries)) {
        log_message(LOG_ERR, "there is no history: %s", strerror(errno));
        return;
    }
    if (!history_table_start(rows, refresh))
        return;
    take_over(entries);
    on = true;
    if (!sync_history(history.directory()))
        log_error(errno);
}

} // namespace

void history_start() {
    static bool started = false;
    const Settings *s = settings();
    if (started || s == nullptr || s->history_rows == 0)
        return;
    started = true;
    try {
        start(static_cast<uint32_t>(s->history_rows));
    } catch (const std::bad_alloc &) {
        log_message(LOG_ERR, "there is no history: no memory");
    }
}

void history_end() {
    if (!on)
        return;
    log_error(syncer.take_error());
    if (!sync_history(history.directory()))
        log_error(errno);
}

void history_offer(const char *context) {
    history_table_offer(context);
}

bool history_watch(netsnmp_handler_registration *row_status) {
    for (netsnmp_mib_handler *each = row_status->handler; each;
         each = each->next)
        if (each->access_method == watch)
            return true;
    netsnmp_mib_handler *handler = netsnmp_create_handler("xf_history", watch);
    return handler != nullptr &&
           netsnmp_inject_handler(row_status, handler) == SNMPERR_SUCCESS;
}

void history_forking() {
    note(begin_copy);
}

void history_forked() {
    note(sync);
}

void history_in_copy_process() {
    if (!on || report_path.empty())
        unsetenv(report_variable);
    else
        setenv(report_variable, report_path.c_str(), 1);
}

void history_copy_lost(const char *reason) {
    note([reason] { lost = reason; });
}

void history_copy_ended(uint32_t status) {
    note([status] { end_copy(status); });
}

void history_save_sent(uint32_t token) {
    note([token] {
        HistoryEntry *entry = begin_activated();
        if (entry == nullptr)
            return;
        entry->token = token;
        store(*entry);
    });
}

void history_save_answered(uint32_t token, uint32_t result) {
    note([=] {
        if (HistoryEntry *entry = save_of(token))
            answer_save(*entry, result);
    });
}

void history_save_stopped(uint32_t token) {
    note([token] {
        HistoryEntry *entry = save_of(token);
        if (entry == nullptr || entry->state != CopyState::running)
            return;
        entry->report.reason = "The row was destroyed: the save was told to "
                               "stop.";
        finish(*entry, CopyState::failed, save_failed);
    });
}

void history_save_ended(const std::vector<uint8_t> &payload) {
    note([&payload] {
        HistoryEntry *entry = save_of(payload);
        if (entry == nullptr || entry->state == CopyState::successful)
            return;
        const uint32_t result =
            payload.size() < SAVE_END_RESULT + 4
                ? err_startup_not_kept
                : get_be32(payload.data() + SAVE_END_RESULT);
        if (result == 0)
            succeed_with_save(*entry);
        else
            fail_save(*entry, save_failed, result);
    });
}

} // namespace xfhost
