#include "xfcopy/table.h"

#include <algorithm>
#include <array>
#include <limits>

namespace xfcopy {

namespace {

// No table of an honest agent is as long.
constexpr size_t most_rows = 1'000'000;
constexpr size_t most_switches = 10'000;

enum ErrorColumn : oid {
    device_address_type = 2,
    device_address,
    device_wwn,
    device_text
};

constexpr std::array<oid, 14> row_columns = {
    status_column,      state_column,        protocol_column, source_column,
    destination_column, address_type_column, address_column,  file_name_column,
    user_column,        vrf_column,          notify_column,   started_column,
    completed_column,   cause_column};

bool starts_with(const Oid &name, const Oid &beginning) {
    return name.size() >= beginning.size() &&
           std::equal(beginning.begin(), beginning.end(), name.begin());
}

struct NumberColumn {
    oid column;
    long Row::*member;
};
constexpr NumberColumn number_columns[] = {
    {status_column, &Row::status},           {state_column, &Row::state},
    {protocol_column, &Row::protocol},       {source_column, &Row::source},
    {destination_column, &Row::destination}, {started_column, &Row::started},
    {completed_column, &Row::completed},     {cause_column, &Row::cause}};

struct TextColumn {
    oid column;
    std::string Row::*member;
};
constexpr TextColumn text_columns[] = {{file_name_column, &Row::file_name},
                                       {user_column, &Row::user},
                                       {vrf_column, &Row::vrf}};

void take_value(Row &row, oid column, const Value &value) {
    for (const NumberColumn &each : number_columns)
        if (each.column == column)
            row.*each.member = static_cast<long>(value.number);
    for (const TextColumn &each : text_columns)
        if (each.column == column)
            row.*each.member = value.octets;
    if (column == address_type_column)
        row.server.type = static_cast<int>(value.number);
    if (column == address_column)
        row.server.octets = value.octets;
    if (column == notify_column)
        row.notify = value.number == 1;
}

Look look_of(const Answer &answer) {
    if (answer.kind != Answer::values)
        return Look::unanswered;
    const Value &status = answer.found.front();
    if (status.is_number())
        return Look::found;
    return status.type == SNMP_NOSUCHOBJECT ? Look::no_table : Look::missing;
}

} // namespace

Answer answer_that_makes_no_sense() {
    Answer answer;
    answer.error = SNMPERR_BAD_PARSE;
    answer.text = "its answers make no sense";
    return answer;
}

std::optional<uint32_t> next_index(Session &session, const Oid &column,
                                   uint32_t after, uint32_t most, Answer &why) {
    Oid name = column;
    if (after != 0)
        name.push_back(after);
    Answer answer = session.next(name);
    if (answer.kind != Answer::values) {
        why = answer;
        return std::nullopt;
    }
    const Value &found = answer.found.front();
    if (!found.is_number() || !starts_with(found.name, column))
        return 0;
    const bool sensible = found.name.size() == column.size() + 1 &&
                          found.name.back() > after &&
                          found.name.back() <= most;
    if (!sensible) {
        why = answer_that_makes_no_sense();
        return std::nullopt;
    }
    return static_cast<uint32_t>(found.name.back());
}

const char *state_name(long state) {
    static const char *const names[] = {"waiting", "running", "successful",
                                        "failed"};
    return state >= waiting && state <= failed ? names[state - 1] : "unknown";
}

std::string wwn_text(const std::string &octets) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (const char c : octets) {
        const unsigned octet = static_cast<unsigned char>(c);
        if (!text.empty())
            text += ':';
        text += {digits[octet >> 4], digits[octet & 15]};
    }
    return text;
}

std::optional<uint64_t> Row::took() const {
    if (!ended() || started == 0 || completed == 0)
        return std::nullopt;
    // sysUpTime has 32 bits, and begins anew.
    return static_cast<uint32_t>(completed - started);
}

Location Row::side(long type) const {
    Location location;
    location.type = static_cast<FileType>(type);
    if (location.type != FileType::network)
        return location;
    location.protocol = static_cast<Protocol>(protocol);
    location.host = address_text(server);
    location.user = user;
    location.path = file_name;
    return location;
}

Location Row::from() const {
    return side(source);
}

Location Row::to() const {
    return side(destination);
}

CopyTable::CopyTable(Session &session, Oid root)
    : session_(session), entry_(root), error_entry_(std::move(root)) {
    entry_.insert(entry_.end(), {1, 1, 1, 1});
    error_entry_.insert(error_entry_.end(), {1, 1, 2, 1});
}

Oid CopyTable::name(oid column, int32_t index) const {
    Oid name = entry_;
    name.push_back(column);
    name.push_back(static_cast<oid>(index));
    return name;
}

Oid CopyTable::error_name(oid column, int32_t index) const {
    Oid name = error_entry_;
    name.push_back(column);
    name.push_back(static_cast<oid>(index));
    return name;
}

std::vector<Binding> CopyTable::bindings(int32_t index,
                                         const CopyRequest &request,
                                         std::string_view password) const {
    std::vector<Binding> list;
    const auto number = [&](oid column, long value) {
        list.push_back({name(column, index), ASN_INTEGER, value, {}});
    };
    const auto text = [&](oid column, std::string_view value) {
        if (!value.empty())
            list.push_back({name(column, index), ASN_OCTET_STR, 0, value});
    };
    number(source_column, static_cast<long>(request.source.type));
    number(destination_column, static_cast<long>(request.destination.type));
    if (request.with_server()) {
        const Location &file = request.file();
        number(protocol_column, static_cast<long>(file.protocol));
        number(address_type_column, request.server.type);
        text(address_column, request.server.octets);
        text(file_name_column, file.path);
        text(user_column, file.user);
        text(password_column, password);
    }
    text(vrf_column, request.vrf);
    if (request.notify)
        number(notify_column, 1);
    number(status_column, create_and_go);
    return list;
}

Answer CopyTable::create(int32_t index, const CopyRequest &request,
                         std::string_view password) {
    return session_.set(bindings(index, request, password));
}

oid CopyTable::column_of(const Answer &answer, const CopyRequest &request,
                         std::string_view password) const {
    const std::vector<Binding> list = bindings(1, request, password);
    const auto position = static_cast<size_t>(answer.position);
    if (position < 1 || position > list.size())
        return 0;
    return list[position - 1].name[entry_.size()];
}

Answer CopyTable::remove(int32_t index) {
    return session_.set(
        {{name(status_column, index), ASN_INTEGER, destroy, {}}});
}

Looked CopyTable::look(int32_t index) {
    std::vector<Oid> names;
    names.reserve(row_columns.size());
    for (const oid column : row_columns)
        names.push_back(name(column, index));
    Looked looked;
    looked.answer = session_.get(names);
    looked.look = look_of(looked.answer);
    if (looked.look != Look::found)
        return looked;
    looked.row.index = index;
    for (size_t i = 0; i < row_columns.size(); ++i)
        take_value(looked.row, row_columns[i], looked.answer.found[i]);
    return looked;
}

std::optional<int32_t> CopyTable::next(int32_t after, Answer &why) {
    Oid column = entry_;
    column.push_back(status_column);
    const auto index =
        next_index(session_, column, static_cast<uint32_t>(after),
                   std::numeric_limits<int32_t>::max(), why);
    if (!index)
        return std::nullopt;
    return static_cast<int32_t>(*index);
}

std::optional<Answer> CopyTable::rows(std::vector<Row> &to) {
    int32_t after = 0;
    while (to.size() < most_rows) {
        Answer why;
        const std::optional<int32_t> index = next(after, why);
        if (!index)
            return why;
        if (*index == 0)
            return std::nullopt;
        after = *index;
        Looked looked = look(after);
        if (looked.look == Look::unanswered)
            return looked.answer;
        if (looked.look == Look::found)
            to.push_back(std::move(looked.row));
    }
    return answer_that_makes_no_sense();
}

std::optional<int32_t> CopyTable::running_row() {
    int32_t after = 0;
    for (size_t count = 0; count < most_rows; ++count) {
        Answer why;
        const std::optional<int32_t> index = next(after, why);
        if (!index || *index == 0)
            return std::nullopt;
        after = *index;
        const Answer state = session_.get({name(state_column, after)});
        if (state.kind != Answer::values)
            return std::nullopt;
        if (state.found.front().number == running)
            return after;
    }
    return std::nullopt;
}

std::optional<Answer> CopyTable::read_switch(int32_t index, oid device,
                                             FailedSwitch &to) {
    std::vector<Oid> names;
    for (const oid column :
         {device_address_type, device_address, device_wwn, device_text}) {
        names.push_back(error_name(column, index));
        names.back().push_back(device);
    }
    Answer answer = session_.get(names);
    if (answer.kind != Answer::values)
        return answer;
    to.device = static_cast<long>(device);
    to.address = {static_cast<int>(answer.found[0].number),
                  answer.found[1].octets};
    to.wwn = answer.found[2].octets;
    to.text = answer.found[3].octets;
    return std::nullopt;
}

std::optional<Answer> CopyTable::switches(int32_t index,
                                          std::vector<FailedSwitch> &to) {
    const Oid rows = error_name(device_text, index);
    Oid last = rows;
    while (to.size() < most_switches) {
        Answer answer = session_.next(last);
        if (answer.kind != Answer::values)
            return answer;
        const Value &found = answer.found.front();
        if (!found.is_octets() || !starts_with(found.name, rows))
            return std::nullopt;
        if (found.name.size() != rows.size() + 1 || found.name <= last)
            return answer_that_makes_no_sense();
        last = found.name;
        FailedSwitch next;
        if (auto why = read_switch(index, last.back(), next))
            return why;
        to.push_back(std::move(next));
    }
    return answer_that_makes_no_sense();
}

} // namespace xfcopy
