#include "xfcopy/commands.h"

#include <algorithm>
#include <limits>

#include "xfcopy/copy.h"
#include "xfcopy/text.h"

namespace xfcopy {

namespace {

Outcome list(CopyTable &table, Report &report) {
    const Looked any = table.look(std::numeric_limits<int32_t>::max());
    if (any.look == Look::no_table || any.look == Look::unanswered)
        return not_found_words(any, 0);
    std::vector<Row> rows;
    const auto why = table.rows(rows);
    report.rows(rows);
    return why ? answer_words(*why) : Outcome{};
}

Outcome show(CopyTable &, History &history, Report &report, const Row &row) {
    const bool has_failed = row.state == failed;
    report.row(row, has_failed
                        ? failure_words(history, row, row.from(), row.to())
                        : Outcome{});
    return {};
}

Outcome cancel(CopyTable &table, History &, Report &report, const Row &row) {
    if (const auto why = destroy_row(table, row.index))
        return answer_words(*why, status_column);
    report.removed(row.index);
    return {Status::done, row.ended() ? "" : after_destruction(row), ""};
}

Outcome errors(CopyTable &table, History &, Report &report, const Row &row) {
    std::vector<FailedSwitch> switches;
    const auto why = table.switches(row.index, switches);
    report.switches(switches);
    if (why)
        return answer_words(*why);
    return {Status::done, switches.empty() ? "no switch has an error" : "", ""};
}

// Those about one row.
struct RowCommand {
    const char *name;
    Outcome (*run)(CopyTable &, History &, Report &, const Row &);
};
constexpr RowCommand row_commands[] = {
    {"show", show}, {"cancel", cancel}, {"errors", errors}};

Outcome about_row(const RowCommand &command, CopyTable &table, History &history,
                  const std::string &number, Report &report,
                  MaybeIndex &index) {
    const auto parsed =
        parse_number(number, 1, std::numeric_limits<int32_t>::max());
    if (!parsed)
        return {Status::usage,
                shown(number) + ": it is no number from 1 to 2147483647", ""};
    index = static_cast<int32_t>(*parsed);
    const Looked looked = table.look(*index);
    if (looked.look != Look::found)
        return not_found_words(looked, *index);
    return command.run(table, history, report, looked.row);
}

Outcome no_history(const Answer &why) {
    if (why.kind != Answer::values)
        return answer_words(why);
    return {Status::refused, "the agent shows no history of copies",
            "look whether its platform keeps one (history_rows), at its root "
            "(--history-root), and whether this user may read it"};
}

Outcome past_copy(History &history, const std::string &word, Report &report) {
    const auto number =
        parse_number(word, 1, std::numeric_limits<uint32_t>::max());
    if (!number)
        return {Status::usage,
                shown(word) + ": it is no number from 1 to 4294967295", ""};
    Answer why;
    const auto copy = history.look(static_cast<uint32_t>(*number), why);
    if (copy) {
        report.past_copy(*copy);
        return {};
    }
    if (why.kind != Answer::values)
        return answer_words(why);
    return {Status::gone, "there is no copy " + word + " in the history",
            "xfcopy history shows those that are there"};
}

Outcome past_copies(History &history, const Options &options, Report &report) {
    Answer why;
    const auto newest = history.newest(why);
    if (!newest)
        return no_history(why);
    if (options.words.size() > 1)
        return past_copy(history, options.words[1], report);
    uint32_t count = *newest;
    if (options.last)
        count = std::min(count, static_cast<uint32_t>(*options.last));
    bool none = true;
    const auto problem = history.read(*newest - count + 1, *newest,
                                      [&](const std::vector<PastCopy> &copies) {
                                          none = false;
                                          report.past_copies(copies);
                                      });
    if (problem)
        return answer_words(*problem);
    if (none)
        report.past_copies({});
    return {};
}

} // namespace

Status run_command(CopyTable &table, History &history, const Options &options,
                   Report &report) {
    MaybeIndex index;
    Outcome outcome;
    if (options.command == "list")
        outcome = list(table, report);
    if (options.command == history_command)
        outcome = past_copies(history, options, report);
    for (const RowCommand &each : row_commands)
        if (options.command == each.name)
            outcome = about_row(each, table, history, options.words[1], report,
                                index);
    report.end(outcome, index);
    return outcome.status;
}

} // namespace xfcopy
