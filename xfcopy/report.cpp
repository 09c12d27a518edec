#include "xfcopy/report.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/ioctl.h>
#include <unistd.h>

namespace xfcopy {

namespace {

// Hundredths of a second between plain lines about a copy that runs.
constexpr uint64_t line_interval = 1000;

bool terminal_moves() {
    const char *const kind = getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && kind != nullptr &&
           strcmp(kind, "dumb") != 0 && *kind != '\0';
}

size_t columns() {
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

void text_or_null(JsonObject &to, const char *key, const std::string &text) {
    text.empty() ? to.null(key) : to.text(key, text);
}

std::string state_of(const Row &row) {
    if (row.state == waiting && row.status == not_ready)
        return "not ready";
    return state_name(row.state);
}

std::string cause_of(const Row &row) {
    return row.state == failed ? cause_name(row.cause) : "";
}

std::string took_text(const Row &row) {
    const MaybeTime took = row.took();
    return took ? seconds_text(*took) : "";
}

std::string details(const Row &row, const Outcome &why) {
    TableLines lines = {{"row", std::to_string(row.index)},
                        {"state", state_of(row)},
                        {"from", shown(location_text(row.from()))},
                        {"to", shown(location_text(row.to()))}};
    if (!row.vrf.empty())
        lines.push_back({"VRF", shown(row.vrf)});
    lines.push_back({"notification", row.notify ? "yes" : "no"});
    if (row.took())
        lines.push_back({"took", took_text(row)});
    if (row.state == failed) {
        lines.push_back({"cause", cause_of(row) + ": " + why.text});
        lines.push_back({"advice", why.advice});
    }
    return aligned(lines);
}

std::string details(const PastCopy &copy) {
    const Row &row = copy.row;
    TableLines lines = {{"copy", std::to_string(copy.number)},
                        {"row", std::to_string(row.index)},
                        {"state", copy.state()},
                        {"from", shown(location_text(row.from()))},
                        {"to", shown(location_text(row.to()))}};
    const auto add = [&](const char *name, const std::string &text) {
        if (!text.empty())
            lines.push_back({name, shown(text)});
    };
    const auto add_number = [&](const char *name, uint64_t number) {
        add(name, number == 0 ? "" : std::to_string(number));
    };
    add("VRF", row.vrf);
    add_number("port", static_cast<uint64_t>(copy.port));
    add("asked by", copy.asker);
    add("asked", copy.asked);
    add("started", copy.started);
    add("ended", copy.ended);
    add("cause", row.state == failed ? cause_name(row.cause) : "");
    add("reason", copy.reason);
    add("advice", copy.advice);
    add_number("octets", copy.octets);
    add("SHA-256", copy.sha256);
    add_number("lines refused", static_cast<uint64_t>(copy.refused));
    if (copy.refused_line != 0)
        add("the first", "line " + std::to_string(copy.refused_line) + ": " +
                             copy.refused_reason);
    return aligned(lines);
}

} // namespace

Report::Report(bool json, bool quiet, std::string agent)
    : json_(json), quiet_(quiet), live_(!json && !quiet && terminal_moves()),
      agent_(std::move(agent)) {}

Report::~Report() {
    clear_line();
}

void Report::subject(const Location &source, const Location &destination) {
    source_ = location_text(source);
    destination_ = location_text(destination);
}

JsonObject Report::event(const char *name) const {
    JsonObject object;
    object.text("event", name).text("agent", agent_);
    return object;
}

void Report::clear_line() {
    if (!line_shown_)
        return;
    fputs("\r\x1b[K", stdout);
    fflush(stdout);
    line_shown_ = false;
}

void Report::print(const std::string &text) {
    clear_line();
    fputs(text.c_str(), stdout);
    fflush(stdout);
}

void Report::warning(const std::string &text) {
    if (json_)
        return print(event("warning").text("text", text).line());
    if (quiet_)
        return;
    clear_line();
    fprintf(stderr, "xfcopy: warning: %s\n", text.c_str());
}

void Report::started(int32_t index) {
    next_line_ = line_interval;
    last_state_ = "running";
    if (json_)
        return print(event("started")
                         .number("index", index)
                         .text("source", source_)
                         .text("destination", destination_)
                         .line());
    if (!quiet_)
        print("row " + std::to_string(index) + " of " + shown(agent_) + ": " +
              shown(source_) + " to " + shown(destination_) + "\n");
}

// On a terminal always, elsewhere now and then.
void Report::progress(const std::string &line, uint64_t elapsed) {
    if (json_ || quiet_)
        return;
    if (live_) {
        const std::string text = fitted(line, columns() - 1);
        printf("\r%s\x1b[K", text.c_str());
        fflush(stdout);
        line_shown_ = true;
    } else if (elapsed >= next_line_) {
        print(line + "\n");
        next_line_ = elapsed + line_interval;
    }
}

void Report::running(int32_t index, const char *state, uint64_t elapsed,
                     uint64_t octets) {
    if (json_ && last_state_ != state)
        print(event("state")
                  .number("index", index)
                  .text("state", state)
                  .seconds("elapsed", elapsed)
                  .line());
    last_state_ = state;
    const std::string moved =
        octets == 0 ? "" : "  " + std::to_string(octets) + " octets";
    progress(seconds_text(elapsed) + "  " + state + moved + "  " +
                 shown(source_) + " to " + shown(destination_),
             elapsed);
}

void Report::busy(MaybeIndex other, uint64_t elapsed) {
    if (json_ && last_state_ != "busy") {
        JsonObject object = event("busy");
        other ? object.number("index", *other) : object.null("index");
        print(object.line());
    }
    last_state_ = "busy";
    progress(seconds_text(elapsed) + "  busy  waiting for the end of " +
                 (other ? "row " + std::to_string(*other)
                        : std::string("another copy")),
             elapsed);
}

void Report::removed(int32_t index) {
    if (json_)
        return print(event("removed").number("index", index).line());
    if (!quiet_)
        print("row " + std::to_string(index) + " removed\n");
}

void Report::print_json_row(const Row &row, const Outcome &why) {
    JsonObject object = event("row");
    object.number("index", row.index)
        .text("state", state_of(row))
        .text("source", location_text(row.from()))
        .text("destination", location_text(row.to()))
        .text("vrf", row.vrf)
        .boolean("notify", row.notify);
    const MaybeTime took = row.took();
    took ? object.seconds("elapsed", *took) : object.null("elapsed");
    row.state == failed ? object.text("cause", cause_name(row.cause))
                        : object.null("cause");
    text_or_null(object, "reason", why.text);
    text_or_null(object, "advice", why.advice);
    print(object.line());
}

void Report::rows(const std::vector<Row> &rows) {
    if (json_) {
        for (const Row &each : rows)
            print_json_row(each, {});
        return;
    }
    if (rows.empty())
        return print(quiet_ ? "" : "there are no copies\n");
    TableLines lines = {{"ROW", "STATE", "TOOK", "CAUSE", "FROM", "TO"}};
    for (const Row &each : rows)
        lines.push_back({std::to_string(each.index), state_of(each),
                         took_text(each), cause_of(each),
                         shown(location_text(each.from())),
                         shown(location_text(each.to()))});
    print(aligned(lines));
}

void Report::row(const Row &row, const Outcome &why) {
    if (json_)
        print_json_row(row, why);
    else
        print(details(row, why));
}

void Report::print_json_past_copy(const PastCopy &copy) {
    const Row &row = copy.row;
    JsonObject object = event("copy");
    object.number("number", copy.number)
        .number("index", row.index)
        .text("state", copy.state())
        .text("source", location_text(row.from()))
        .text("destination", location_text(row.to()))
        .text("vrf", row.vrf)
        .number("port", copy.port)
        .text("asker", copy.asker);
    text_or_null(object, "asked", copy.asked);
    text_or_null(object, "started", copy.started);
    text_or_null(object, "ended", copy.ended);
    row.state == failed ? object.text("cause", cause_name(row.cause))
                        : object.null("cause");
    object.text("reason", copy.reason)
        .text("advice", copy.advice)
        .number("octets", static_cast<int64_t>(copy.octets));
    text_or_null(object, "sha256", copy.sha256);
    object.number("refused", copy.refused)
        .number("refused_line", copy.refused_line)
        .text("refused_reason", copy.refused_reason);
    print(object.line());
}

void Report::past_copies(const std::vector<PastCopy> &copies) {
    if (json_) {
        for (const PastCopy &each : copies)
            print_json_past_copy(each);
        return;
    }
    if (copies.empty())
        return print(quiet_ ? "" : "there were no copies\n");
    TableLines lines;
    if (past_widths_.empty())
        lines.push_back(
            {"COPY", "ROW", "ASKED", "STATE", "FROM", "TO", "REASON"});
    for (const PastCopy &each : copies)
        lines.push_back(
            {std::to_string(each.number), std::to_string(each.row.index),
             each.asked, each.state(), shown(location_text(each.row.from())),
             shown(location_text(each.row.to())), shown(each.reason)});
    print(aligned(lines, past_widths_));
}

void Report::past_copy(const PastCopy &copy) {
    if (json_)
        print_json_past_copy(copy);
    else
        print(details(copy));
}

void Report::switches(const std::vector<FailedSwitch> &switches) {
    TableLines lines = {{"SWITCH", "ADDRESS", "WWN", "WHAT IT SAID"}};
    for (const FailedSwitch &each : switches) {
        const std::string address = address_text(each.address);
        if (json_)
            print(event("switch")
                      .number("device", each.device)
                      .text("address", address)
                      .text("wwn", wwn_text(each.wwn))
                      .text("text", each.text)
                      .line());
        lines.push_back({std::to_string(each.device),
                         address.empty() ? "unknown" : address,
                         wwn_text(each.wwn), shown(each.text)});
    }
    if (!json_ && !switches.empty())
        print(aligned(lines));
}

void Report::end(const Outcome &outcome, MaybeIndex index, MaybeTime elapsed) {
    if (json_) {
        JsonObject object = event("end");
        object.text("outcome", status_name(outcome.status))
            .number("status", static_cast<int>(outcome.status));
        index ? object.number("index", *index) : object.null("index");
        elapsed ? object.seconds("elapsed", *elapsed) : object.null("elapsed");
        outcome.cause ? object.text("cause", cause_name(*outcome.cause))
                      : object.null("cause");
        object.text("text", outcome.text).text("advice", outcome.advice);
        return print(object.line());
    }
    clear_line();
    const std::string advice =
        outcome.advice.empty() ? "" : "; " + outcome.advice;
    if (outcome.status != Status::done)
        fprintf(stderr, "xfcopy: %s%s\n", outcome.text.c_str(), advice.c_str());
    else if (!quiet_ && !outcome.text.empty())
        print(outcome.text + advice +
              (elapsed ? " (" + seconds_text(*elapsed) + ")" : "") + "\n");
}

} // namespace xfcopy
