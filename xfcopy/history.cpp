#include "xfcopy/history.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace xfcopy {

namespace {

// So many of the newest copies are looked at for one's own.
constexpr uint32_t most_looked_at = 16;
// So many are asked for with one request, unless they do not get through.
constexpr uint32_t copies_at_once = 10;
// No honest agent keeps as many, or takes so many of what it has just named
// away before it is asked for them.
constexpr size_t most_copies = 1'000'000;
constexpr int most_taken_away = 100;
constexpr long interrupted_state = 5;

enum Column : oid {
    row_column = 2,
    server_type_column = 8,
    server_column = 9,
    state_of_copy_column = 16,
    octets_column = 20,
    last_column = 24
};
constexpr size_t columns = last_column - row_column + 1;

struct NumberColumn {
    oid column;
    void (*take)(PastCopy &, int64_t);
};
template <auto Member> void take_row_number(PastCopy &copy, int64_t value) {
    copy.row.*Member = static_cast<long>(value);
}
template <auto Member> void take_number(PastCopy &copy, int64_t value) {
    copy.*Member = static_cast<long>(value);
}
constexpr NumberColumn number_columns[] = {
    {5, take_row_number<&Row::source>},
    {6, take_row_number<&Row::destination>},
    {7, take_row_number<&Row::protocol>},
    {10, take_number<&PastCopy::port>},
    {state_of_copy_column, take_row_number<&Row::state>},
    {17, take_row_number<&Row::cause>},
    {22, take_number<&PastCopy::refused>},
    {23, take_number<&PastCopy::refused_line>}};

struct TextColumn {
    oid column;
    std::string PastCopy::*member;
};
constexpr TextColumn text_columns[] = {{3, &PastCopy::asker},
                                       {18, &PastCopy::reason},
                                       {19, &PastCopy::advice},
                                       {21, &PastCopy::sha256},
                                       {24, &PastCopy::refused_reason}};
constexpr TextColumn time_columns[] = {
    {13, &PastCopy::asked}, {14, &PastCopy::started}, {15, &PastCopy::ended}};

struct RowTextColumn {
    oid column;
    std::string Row::*member;
};
constexpr RowTextColumn row_text_columns[] = {
    {4, &Row::vrf}, {11, &Row::file_name}, {12, &Row::user}};

void take_value(PastCopy &copy, oid column, const Value &value) {
    for (const NumberColumn &each : number_columns)
        if (each.column == column)
            each.take(copy, value.number);
    for (const TextColumn &each : text_columns)
        if (each.column == column)
            copy.*each.member = value.octets;
    for (const TextColumn &each : time_columns)
        if (each.column == column)
            copy.*each.member = time_text(value.octets);
    for (const RowTextColumn &each : row_text_columns)
        if (each.column == column)
            copy.row.*each.member = value.octets;
    if (column == row_column)
        copy.row.index = static_cast<int32_t>(value.number);
    if (column == server_type_column)
        copy.row.server.type = static_cast<int>(value.number);
    if (column == server_column)
        copy.row.server.octets = value.octets;
    if (column == octets_column)
        copy.octets = static_cast<uint64_t>(value.number);
}

// A smaller request may have an answer: one packet may get through where the
// pieces of a larger one do not.
bool may_be_too_large(const Answer &answer) {
    return (answer.kind == Answer::refused &&
            answer.error == SNMP_ERR_TOOBIG) ||
           (answer.kind == Answer::lost && answer.error == SNMPERR_TIMEOUT);
}

PastCopy copy_of(uint32_t number, const Value *values) {
    PastCopy copy;
    copy.number = number;
    for (oid column = row_column; column <= last_column; ++column)
        take_value(copy, column, values[column - row_column]);
    copy.interrupted = copy.row.state == interrupted_state;
    return copy;
}

} // namespace

std::string time_text(const std::string &octets) {
    if (octets.size() < 8)
        return "";
    const auto at = [&](size_t place) {
        return static_cast<unsigned>(static_cast<unsigned char>(octets[place]));
    };
    if (at(2) == 0)
        return "";
    char text[64];
    snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u",
             at(0) * 256 + at(1), at(2), at(3), at(4), at(5), at(6));
    std::string result = text;
    const bool zone = octets.size() == 11;
    if (zone && at(9) == 0 && at(10) == 0)
        return result + "Z";
    snprintf(text, sizeof text, "%c%02u:%02u", octets[8] == '-' ? '-' : '+',
             zone ? at(9) : 0, zone ? at(10) : 0);
    return zone ? result + text : result;
}

const char *PastCopy::state() const {
    return interrupted ? "interrupted" : state_name(row.state);
}

History::History(Session &session, Oid root)
    : session_(session), newest_(root), entry_(std::move(root)) {
    newest_.insert(newest_.end(), {1, 1, 0});
    entry_.insert(entry_.end(), {1, 2, 1});
}

Oid History::name(oid column, uint32_t number) const {
    Oid name = entry_;
    name.push_back(column);
    name.push_back(number);
    return name;
}

std::optional<uint32_t> History::newest(Answer &why) {
    why = session_.get({newest_});
    if (why.kind != Answer::values || !why.found.front().is_number())
        return std::nullopt;
    return static_cast<uint32_t>(why.found.front().number);
}

// Those of `count` numbers that are there.
std::vector<PastCopy> History::look_from(uint32_t first, uint32_t count,
                                         Answer &why) {
    std::vector<Oid> names;
    for (uint32_t at = 0; at < count; ++at)
        for (oid column = row_column; column <= last_column; ++column)
            names.push_back(name(column, first + at));
    why = session_.get(names);
    std::vector<PastCopy> copies;
    for (uint32_t at = 0; why.kind == Answer::values && at < count; ++at) {
        const Value *const values = &why.found[at * columns];
        if (values->is_number())
            copies.push_back(copy_of(first + at, values));
    }
    return copies;
}

std::optional<PastCopy> History::look(uint32_t number, Answer &why) {
    auto copies = look_from(number, 1, why);
    if (copies.empty())
        return std::nullopt;
    return std::move(copies.front());
}

// The same of `at_once` numbers, to `last` at most. If that is too many for one
// request, it is 1 from then on.
std::vector<PastCopy> History::look_ahead(uint32_t first, uint32_t last,
                                          uint32_t &at_once, Answer &why) {
    auto copies = look_from(first, std::min(at_once, last - first + 1), why);
    if (at_once == 1 || !may_be_too_large(why))
        return copies;
    at_once = 1;
    return look_from(first, 1, why);
}

std::optional<Answer> History::read(uint32_t first, uint32_t last,
                                    const Take &take) {
    Oid column = entry_;
    column.push_back(state_of_copy_column);
    uint32_t at_once = copies_at_once;
    size_t taken = 0;
    int taken_away = 0;
    for (uint32_t before = first - 1; before < last;) {
        Answer why;
        const auto next = next_index(session_, column, before,
                                     std::numeric_limits<uint32_t>::max(), why);
        if (!next)
            return why;
        if (*next == 0 || *next > last)
            return std::nullopt;
        const auto copies = look_ahead(*next, last, at_once, why);
        if (why.kind != Answer::values)
            return why;
        taken += copies.size();
        taken_away += copies.empty() ? 1 : 0;
        if (taken > most_copies || taken_away > most_taken_away)
            return answer_that_makes_no_sense();
        if (!copies.empty())
            take(copies);
        before = *next + std::min(at_once - 1, last - *next);
    }
    return std::nullopt;
}

std::optional<uint32_t> History::find(int32_t row) {
    Answer answer;
    const auto last = newest(answer);
    if (!last || *last == 0)
        return std::nullopt;
    std::vector<Oid> names;
    for (uint32_t back = 0; back < std::min(*last, most_looked_at); ++back)
        names.push_back(name(row_column, *last - back));
    answer = session_.get(names);
    if (answer.kind != Answer::values)
        return std::nullopt;
    for (uint32_t back = 0; back < names.size(); ++back)
        if (answer.found[back].is_number() && answer.found[back].number == row)
            return *last - back;
    return std::nullopt;
}

uint64_t History::octets(uint32_t number) {
    const Answer answer = session_.get({name(octets_column, number)});
    return answer.kind == Answer::values
               ? static_cast<uint64_t>(answer.found.front().number)
               : 0;
}

} // namespace xfcopy
