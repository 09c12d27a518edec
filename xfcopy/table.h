// The agent's copy table and its error table.
#ifndef XFCOPY_TABLE_H
#define XFCOPY_TABLE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "xfcopy/location.h"
#include "xfcopy/session.h"

namespace xfcopy {

enum Column : oid {
    protocol_column = 2,
    source_column,
    destination_column,
    file_name_column = 6,
    user_column,
    password_column,
    notify_column,
    state_column,
    started_column,
    completed_column,
    cause_column,
    status_column,
    address_type_column,
    address_column,
    vrf_column
};

enum CopyState { waiting = 1, running, successful, failed };
enum RowStatus {
    active = 1,
    not_ready = 3,
    create_and_go,
    create_and_wait,
    destroy
};

const char *state_name(long state);

// What is asked for. The host of a file on a server is `server`.
struct CopyRequest {
    Location source;
    Location destination;
    Address server;
    std::string vrf;
    bool notify = false;

    bool with_server() const {
        return source.type == FileType::network ||
               destination.type == FileType::network;
    }
    const Location &file() const {
        return source.type == FileType::network ? source : destination;
    }
};

// A row as the agent shows it. The times are hundredths of a second of
// sysUpTime, 0 before the event.
struct Row {
    int32_t index = 0;
    long status = 0;
    long state = 0;
    long protocol = 0;
    long source = 0;
    long destination = 0;
    Address server;
    std::string file_name;
    std::string user;
    std::string vrf;
    bool notify = false;
    long started = 0;
    long completed = 0;
    long cause = 0;

    bool ended() const {
        return state == successful || state == failed;
    }
    // How long the copy took; nothing unless it has ended.
    std::optional<uint64_t> took() const;
    // Its two sides as locations.
    Location from() const;
    Location to() const;

  private:
    Location side(long type) const;
};

// A switch that a copy failed on. The address is empty if it is not known.
struct FailedSwitch {
    long device = 0;
    Address address;
    std::string wwn; // octets
    std::string text;
};

// What an agent told that no honest one does.
Answer answer_that_makes_no_sense();

// The index of the row behind `after`, 0 for the first one, in a table with one
// index that has this column; 0 if there is none. `most` is the largest index.
// Nothing, with an answer that says why, if the agent did not tell.
std::optional<uint32_t> next_index(Session &session, const Oid &column,
                                   uint32_t after, uint32_t most, Answer &why);

// World wide name as text: octets in hexadecimal, colons between them.
std::string wwn_text(const std::string &octets);

enum class Look { found, missing, no_table, unanswered };

// A row that was looked for; `answer` says why there is none.
struct Looked {
    Look look = Look::unanswered;
    Row row;
    Answer answer;
};

class CopyTable {
  public:
    // `root` is the OID of the module. The session stays the caller's.
    CopyTable(Session &session, Oid root);

    // Creates a row and starts its copy, by one SET. Its last varbind is the
    // row status: what the agent refuses before leaves no row.
    Answer create(int32_t index, const CopyRequest &request,
                  std::string_view password);
    // The column that the error of such an answer is about; 0 if none.
    oid column_of(const Answer &answer, const CopyRequest &request,
                  std::string_view password) const;

    Answer remove(int32_t index);

    Looked look(int32_t index);

    // The index of the row behind `after`; 0 if there is none. Nothing, with
    // an answer that says why, if the agent did not tell.
    std::optional<int32_t> next(int32_t after, Answer &why);

    // The rows of all copies, or of those that run; an answer that says why if
    // the agent did not tell all.
    std::optional<Answer> rows(std::vector<Row> &to);
    std::optional<int32_t> running_row();

    // The switches that a copy failed on; an answer as above.
    std::optional<Answer> switches(int32_t index,
                                   std::vector<FailedSwitch> &to);

  private:
    Oid name(oid column, int32_t index) const;
    Oid error_name(oid column, int32_t index) const;
    std::vector<Binding> bindings(int32_t index, const CopyRequest &request,
                                  std::string_view password) const;
    std::optional<Answer> read_switch(int32_t index, oid device,
                                      FailedSwitch &to);

    Session &session_;
    Oid entry_;
    Oid error_entry_;
};

} // namespace xfcopy

#endif
