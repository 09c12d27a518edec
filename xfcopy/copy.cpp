#include "xfcopy/copy.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <sys/random.h>
#include <unistd.h>

#include "xfcopy/signals.h"
#include "xfcopy/text.h"

namespace xfcopy {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// So often a request is sent whose answer is lost, and a new index is chosen.
constexpr int most_tries = 6;
// So many questions about the row stay unanswered before it is given up.
constexpr int most_silent = 3;
constexpr milliseconds first_interval(100);
constexpr milliseconds last_interval(1000);

uint64_t since(Clock::time_point start) {
    using hundredths = std::chrono::duration<uint64_t, std::centi>;
    return std::chrono::duration_cast<hundredths>(Clock::now() - start).count();
}

uint32_t random_bits() {
    uint32_t bits = 0;
    if (getrandom(&bits, sizeof(bits), 0) != sizeof(bits))
        abort(); // it does not fail for so few octets
    return bits;
}

int32_t random_index() {
    return static_cast<int32_t>(random_bits() % 0x7fffffffU) + 1;
}

std::string row_text(int32_t index) {
    return "row " + std::to_string(index);
}

Outcome interrupted_words(const std::string &text) {
    return {Status::cancelled, text, ""};
}

// A line from the terminal; false if it is no yes.
bool read_yes() {
    bool first = true;
    bool yes = false;
    for (;;) {
        char c = 0;
        if (wait_for(STDIN_FILENO, std::chrono::hours(1)) != Wait::ready)
            return false;
        const ssize_t got = read(STDIN_FILENO, &c, 1);
        if (got != 1)
            return false;
        if (c == '\n')
            return yes;
        if (first)
            yes = c == 'y' || c == 'Y';
        first = false;
    }
}

class Copy {
  public:
    Copy(Session &session, CopyTable &table, History &history,
         const Options &options, CopyRequest request, Report &report)
        : session_(session), table_(table), history_(history),
          options_(options), report_(report), request_(std::move(request)) {}

    Status run();

  private:
    using End = std::optional<Outcome>;

    End take_password();
    End choose_index();
    End start();
    End after_loss(const Answer &answer, bool &started);
    End after_refusal(const Answer &answer, bool &started);
    End wait_while_busy();
    End free_row(const MaybeIndex &other);
    Outcome follow();
    End step();
    End interruption();
    Outcome cancel();
    Outcome finish(const Row &row);
    void count_octets();
    Outcome started_only();
    bool is_mine(const Row &row) const;
    bool is_leftover(const Row &row) const;
    void remove();
    void show_progress();

    Session &session_;
    CopyTable &table_;
    History &history_;
    const Options &options_;
    Report &report_;
    CopyRequest request_;
    Secret password_;
    int32_t index_ = 0;
    bool created_ = false;
    int lost_ = 0;
    int silent_ = 0;
    MaybeIndex busy_with_;
    Clock::time_point started_at_;
    MaybeTime took_;
    std::optional<uint32_t> in_history_;
    bool looked_in_history_ = false;
    uint64_t octets_ = 0;
    const char *state_ = "running";
    Clock::time_point busy_since_;
    bool busy_ = false;
};

Copy::End Copy::take_password() {
    const Location &file = request_.file();
    const bool anonymous =
        file.protocol == Protocol::ftp && file.user == "anonymous";
    if (!request_.with_server() || file.user.empty() || anonymous)
        return std::nullopt;
    std::string note;
    const std::string problem = read_password(
        options_.password, shown(file.user + "@" + file.host), password_, note);
    if (interrupting_signal() != 0)
        return interrupted_words("interrupted: nothing was started");
    if (!problem.empty())
        return Outcome{Status::usage, problem, ""};
    if (!note.empty())
        report_.warning(note);
    const std::string reason = session_.clear_text_reason();
    if (!reason.empty())
        report_.warning("the password travels in clear to the agent: " +
                        reason + " (-v3 -l authPriv does)");
    if (file.protocol == Protocol::ftp)
        report_.warning("FTP sends the password and the file in clear to the "
                        "server (sftp and scp do not)");
    return std::nullopt;
}

Copy::End Copy::choose_index() {
    for (int tries = 0; tries < most_tries; ++tries) {
        index_ = options_.index.value_or(random_index());
        const Looked looked = table_.look(index_);
        if (looked.look == Look::missing)
            return std::nullopt;
        if (looked.look != Look::found)
            return not_found_words(looked, index_);
        if (options_.index)
            return Outcome{Status::refused,
                           "--index: " + row_text(index_) + " is there already",
                           "choose another one, or remove it with xfcopy "
                           "cancel"};
    }
    return Outcome{Status::refused, "the agent has every row that is tried",
                   "look at xfcopy list"};
}

bool Copy::is_mine(const Row &row) const {
    if (row.source != static_cast<long>(request_.source.type) ||
        row.destination != static_cast<long>(request_.destination.type))
        return false;
    if (!request_.with_server())
        return true;
    const Location &file = request_.file();
    return row.protocol == static_cast<long>(file.protocol) &&
           row.file_name == file.path && row.user == file.user &&
           address_text(row.server) == address_text(request_.server);
}

// A request that was refused half way may leave a row that takes nothing more.
bool Copy::is_leftover(const Row &row) const {
    return row.status == create_and_go || row.status == create_and_wait ||
           (is_mine(row) && row.status != active);
}

// Whether the agent did what it did not answer is seen at the row. Asking once
// more does no harm: a row that is there already is not created again.
Copy::End Copy::after_loss(const Answer &answer, bool &started) {
    const std::string advice =
        "look with xfcopy show AGENT " + std::to_string(index_);
    Outcome unknown = answer_words(answer);
    unknown.text += "; whether the copy was started is not known";
    unknown.advice = advice;
    const Looked looked = table_.look(index_);
    if (looked.look == Look::unanswered)
        return unknown;
    started = looked.look == Look::found && is_mine(looked.row);
    if (started)
        return std::nullopt;
    if (looked.look == Look::found)
        return choose_index();
    if (++lost_ < most_tries)
        return std::nullopt;
    Outcome lost = answer_words(answer);
    lost.text += "; the copy was not started";
    return lost;
}

Copy::End Copy::after_refusal(const Answer &answer, bool &started) {
    const oid column = table_.column_of(answer, request_, password_.text());
    const bool taken = column == status_column &&
                       (answer.error == SNMP_ERR_INCONSISTENTVALUE ||
                        answer.error == SNMP_ERR_BADVALUE);
    const Looked looked = table_.look(index_);
    if (looked.look == Look::found) {
        const Row &row = looked.row;
        // An answer that does not tell what was done; a row of that number
        // that somebody else makes now is only likely if we were told it.
        started = is_mine(row) && row.status == active &&
                  (lost_ > 0 || !options_.index || !taken);
        if (started)
            return std::nullopt;
        if (is_leftover(row))
            remove();
        else if (taken)
            return choose_index();
    }
    if (column == status_column && answer.error == SNMP_ERR_GENERR)
        return wait_while_busy();
    return answer_words(answer, column);
}

// Waits for a second, or until that row does not run any more.
Copy::End Copy::free_row(const MaybeIndex &other) {
    const milliseconds some(500 + random_bits() % 500);
    wait_for(-1, some);
    if (interrupting_signal() != 0)
        return interrupted_words("interrupted: nothing was started");
    if (!other)
        return std::nullopt;
    const Looked looked = table_.look(*other);
    const bool runs = looked.look == Look::found && looked.row.state == running;
    if (!runs)
        busy_with_.reset();
    return std::nullopt;
}

Copy::End Copy::wait_while_busy() {
    if (!busy_)
        busy_since_ = Clock::now();
    busy_ = true;
    busy_with_ = table_.running_row();
    const uint64_t limit =
        static_cast<uint64_t>(options_.wait_busy.value_or(0)) * 100;
    do {
        if (since(busy_since_) >= limit)
            return Outcome{
                Status::busy,
                busy_with_ ? "another copy is running, " + row_text(*busy_with_)
                           : "the agent takes no copy now: one whose row is "
                             "gone still runs, or its table is full",
                "try again later, or use --wait-busy SECONDS"};
        report_.busy(busy_with_, since(busy_since_));
        if (End end = free_row(busy_with_))
            return end;
    } while (busy_with_);
    return std::nullopt;
}

Copy::End Copy::start() {
    bool started = false;
    while (!started) {
        if (interrupting_signal() != 0)
            return interrupted_words("interrupted: nothing was started");
        const Answer answer = table_.create(index_, request_, password_.text());
        End end;
        if (answer.kind == Answer::values)
            started = true;
        else if (answer.kind == Answer::lost)
            end = after_loss(answer, started);
        else
            end = after_refusal(answer, started);
        if (end)
            return end;
    }
    password_.clear();
    created_ = true;
    started_at_ = Clock::now();
    report_.started(index_);
    return std::nullopt;
}

void Copy::remove() {
    if (const auto why = destroy_row(table_, index_)) {
        report_.warning(row_text(index_) + " could not be removed: " +
                        answer_words(*why).text + "; xfcopy cancel removes it");
        return;
    }
    if (created_)
        report_.removed(index_);
}

Outcome Copy::finish(const Row &row) {
    took_ = row.took();
    if (!took_)
        took_ = since(started_at_);
    Outcome outcome = {Status::done,
                       "copied " + shown(location_text(request_.source)) +
                           " to " + shown(location_text(request_.destination)),
                       ""};
    if (row.state == failed) {
        outcome =
            failure_words(history_, row, request_.source, request_.destination);
        std::vector<FailedSwitch> switches;
        table_.switches(index_, switches);
        report_.switches(switches);
    }
    if (!options_.keep)
        remove();
    return outcome;
}

Outcome Copy::started_only() {
    const std::string number = std::to_string(index_);
    std::string text =
        "started; " + row_text(index_) + " stays until it is old, some minutes";
    if (!request_.file().user.empty())
        text += ", and the password with it";
    return {Status::done, text,
            "xfcopy show AGENT " + number + " tells how it goes"};
}

Outcome Copy::cancel() {
    Looked looked = table_.look(index_);
    forget_signal();
    if (looked.look == Look::unanswered)
        looked = table_.look(index_); // another signal may have come
    if (looked.look == Look::found && looked.row.ended())
        return finish(looked.row);
    remove();
    Row row = looked.row;
    row.source = static_cast<long>(request_.source.type);
    row.destination = static_cast<long>(request_.destination.type);
    row.state = running;
    return interrupted_words(std::string("cancelled: ") +
                             after_destruction(row));
}

Copy::End Copy::interruption() {
    const int signal = interrupting_signal();
    forget_signal();
    report_.clear_line();
    const bool somebody = signal == SIGINT && isatty(STDIN_FILENO) != 0;
    if (!somebody)
        return cancel();
    fputs("\nLeave the copy running? [y/N] ", stderr);
    fflush(stderr);
    const bool leave = read_yes();
    forget_signal();
    if (!leave)
        return cancel();
    return interrupted_words("the copy goes on, in " + row_text(index_) +
                             "; xfcopy show AGENT " + std::to_string(index_) +
                             " tells how it goes");
}

void Copy::show_progress() {
    if (created_)
        report_.running(index_, state_, since(started_at_), octets_);
}

// Only for a line that changes: elsewhere nobody sees them.
void Copy::count_octets() {
    if (!report_.live() || !request_.with_server())
        return;
    if (!looked_in_history_)
        in_history_ = history_.find(index_);
    looked_in_history_ = true;
    if (in_history_)
        octets_ = history_.octets(*in_history_);
}

// One look at the row; the end if it has come.
Copy::End Copy::step() {
    const Looked looked = table_.look(index_);
    if (looked.answer.kind == Answer::interrupted)
        return std::nullopt;
    if (looked.look == Look::unanswered) {
        state_ = "no answer from the agent";
        Outcome outcome = answer_words(looked.answer);
        if (outcome.status == Status::no_answer && ++silent_ < most_silent)
            return std::nullopt;
        outcome.text += ", and the copy may go on in " + row_text(index_);
        outcome.advice =
            "look later with xfcopy show AGENT " + std::to_string(index_);
        return outcome;
    }
    silent_ = 0;
    if (looked.look != Look::found)
        return Outcome{Status::gone,
                       row_text(index_) +
                           " is gone: somebody destroyed it, or the agent was "
                           "started anew; how the copy ends is not known",
                       "look at the file, and at xfcopy list"};
    if (looked.row.ended())
        return finish(looked.row);
    state_ = state_name(looked.row.state);
    if (looked.row.status != active) {
        remove();
        return Outcome{Status::refused,
                       "the agent wants more than it was given to start the "
                       "copy",
                       "look at user name, password and file name"};
    }
    return std::nullopt;
}

Outcome Copy::follow() {
    milliseconds interval = first_interval;
    for (;;) {
        if (interrupting_signal() != 0)
            if (End end = interruption())
                return *end;
        if (End end = step())
            return *end;
        const uint64_t elapsed = since(started_at_);
        count_octets();
        show_progress();
        if (options_.timeout &&
            elapsed >= static_cast<uint64_t>(*options_.timeout) * 100)
            return {Status::timed_out,
                    "--timeout: the copy goes on, in " + row_text(index_),
                    "look with xfcopy show AGENT " + std::to_string(index_)};
        wait_for(-1, interval);
        interval = std::min(interval * 3 / 2, last_interval);
    }
}

Status Copy::run() {
    session_.while_waiting = [this] { show_progress(); };
    report_.subject(request_.source, request_.destination);
    End end = choose_index();
    if (!end)
        end = take_password();
    if (!end)
        end = start();
    if (!end)
        end = options_.no_wait ? started_only() : follow();
    session_.while_waiting = [] {};
    report_.end(*end, created_ ? MaybeIndex(index_) : std::nullopt, took_);
    return end->status;
}

} // namespace

std::optional<Outcome> take_request(const Options &options,
                                    CopyRequest &request) {
    const std::string &from = options.words[1];
    const std::string &to = options.words[2];
    std::string word = shown(from);
    std::string problem = parse_location(from, request.source);
    if (problem.empty()) {
        word = shown(to);
        problem = parse_location(to, request.destination);
    }
    if (problem.empty()) {
        word = shown(from + " to " + to);
        problem = pair_problem(request.source, request.destination);
    }
    if (problem.empty() && request.with_server()) {
        word = shown(request.file().host);
        problem = find_address(request.file().host, request.server);
    }
    request.vrf = options.vrf;
    request.notify = options.notify;
    if (problem.empty())
        return std::nullopt;
    return Outcome{Status::usage, word + ": " + problem, ""};
}

Status copy(Session &session, CopyTable &table, History &history,
            const Options &options, CopyRequest request, Report &report) {
    return Copy(session, table, history, options, std::move(request), report)
        .run();
}

Outcome answer_words(const Answer &answer, oid column) {
    switch (answer.kind) {
    case Answer::refused:
        return refused_words(answer.error, static_cast<long>(column));
    case Answer::interrupted:
        return interrupted_words("interrupted");
    default:
        return lost_words(static_cast<int>(answer.error), answer.text);
    }
}

Outcome failure_words(History &history, const Row &row, const Location &source,
                      const Location &destination) {
    Outcome outcome = failed_words(row.cause, source, destination);
    Answer unused;
    const auto number = history.find(row.index);
    const auto past = number ? history.look(*number, unused) : std::nullopt;
    if (past && past->row.state == failed && !past->reason.empty()) {
        outcome.text = sentence_part(past->reason);
        if (!past->advice.empty())
            outcome.advice = sentence_part(past->advice);
    }
    return outcome;
}

Outcome not_found_words(const Looked &looked, int32_t index) {
    switch (looked.look) {
    case Look::unanswered:
        return answer_words(looked.answer);
    case Look::no_table:
        return {Status::refused, "the agent shows no copy table",
                "look whether its module is loaded, at its root (--root), and "
                "whether this user may read it"};
    default:
        return {Status::gone, "there is no " + row_text(index),
                "xfcopy list shows those that are there"};
    }
}

std::optional<Answer> destroy_row(CopyTable &table, int32_t index) {
    Answer answer;
    for (int tries = 0; tries < most_tries; ++tries) {
        answer = table.remove(index);
        if (answer.kind == Answer::values)
            return std::nullopt;
        if (answer.kind != Answer::lost)
            return answer;
        const Looked looked = table.look(index);
        if (looked.look == Look::missing)
            return std::nullopt;
        if (looked.look == Look::unanswered)
            return answer;
    }
    return answer;
}

const char *after_destruction(const Row &row) {
    if (row.state != running)
        return "the copy did not run";
    if (row.from().type == FileType::running &&
        row.to().type != FileType::network)
        return "the switch was told to abort the save";
    return "the copy cannot be stopped: it goes on in the switch, and until it "
           "ends no other one can start";
}

} // namespace xfcopy
