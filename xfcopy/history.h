// The agent's history of copies, where it has one: what became of each, and
// why.
#ifndef XFCOPY_HISTORY_H
#define XFCOPY_HISTORY_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "xfcopy/session.h"
#include "xfcopy/table.h"

namespace xfcopy {

// A copy as the history has it. `row` is what was asked for and how it stands,
// without the times; those of the history are text such as
// "2026-11-22T01:15:25Z", empty if there is none.
struct PastCopy {
    uint32_t number = 0;
    Row row;
    bool interrupted = false; // the agent ended before the copy did
    std::string asker;
    long port = 0;
    std::string asked;
    std::string started;
    std::string ended;
    std::string reason;
    std::string advice;
    uint64_t octets = 0;
    std::string sha256;
    long refused = 0;
    long refused_line = 0;
    std::string refused_reason;

    const char *state() const;
};

class History {
  public:
    // `root` is the OID of the history. The session stays the caller's.
    History(Session &session, Oid root);

    // The number of the newest copy, 0 if there is none. Nothing, with an
    // answer that says why, if the agent has no history or does not answer.
    std::optional<uint32_t> newest(Answer &why);

    // One copy. Nothing, with an answer that says why, if it is not there.
    std::optional<PastCopy> look(uint32_t number, Answer &why);

    // The copies with the numbers from `first` to `last`, in their order: calls
    // `take` with some of them, as they come. An answer that says why if the
    // agent did not tell all.
    using Take = std::function<void(const std::vector<PastCopy> &)>;
    std::optional<Answer> read(uint32_t first, uint32_t last, const Take &take);

    // The number of the newest copy that this row asked for, if it is among
    // the newest ones.
    std::optional<uint32_t> find(int32_t row);

    // How much of its file that copy has moved so far; 0 if it is not known.
    uint64_t octets(uint32_t number);

  private:
    Oid name(oid column, uint32_t number) const;
    std::vector<PastCopy> look_from(uint32_t first, uint32_t count,
                                    Answer &why);
    std::vector<PastCopy> look_ahead(uint32_t first, uint32_t last,
                                     uint32_t &at_once, Answer &why);

    Session &session_;
    Oid newest_;
    Oid entry_;
};

// A DateAndTime, octets, as text; empty if it is none.
std::string time_text(const std::string &octets);

} // namespace xfcopy

#endif
