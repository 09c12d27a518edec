// What is printed: lines, a line that changes on a terminal, or JSON. Results
// and progress go to standard output, errors and warnings to standard error;
// as JSON everything goes to standard output.
#ifndef XFCOPY_REPORT_H
#define XFCOPY_REPORT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "xfcopy/history.h"
#include "xfcopy/table.h"
#include "xfcopy/text.h"
#include "xfcopy/words.h"

namespace xfcopy {

// The number of a row and hundredths of a second, where there are some.
using MaybeIndex = std::optional<int32_t>;
using MaybeTime = std::optional<uint64_t>;

class Report {
  public:
    Report(bool json, bool quiet, std::string agent);
    Report(const Report &) = delete;
    Report &operator=(const Report &) = delete;
    ~Report();

    // What is copied, for the lines that follow.
    void subject(const Location &source, const Location &destination);

    void warning(const std::string &text);
    void started(int32_t index);
    // Where the copy stands; called again and again.
    void running(int32_t index, const char *state, uint64_t elapsed,
                 uint64_t octets);
    // Whether that is shown as a line that changes.
    bool live() const {
        return live_;
    }
    // Another copy, perhaps of that row, keeps this one from starting.
    void busy(MaybeIndex other, uint64_t elapsed);
    void removed(int32_t index);
    void rows(const std::vector<Row> &rows);
    // `why` its copy failed, if it did.
    void row(const Row &row, const Outcome &why);
    // Some of the history; called again for those behind them. Nothing is that
    // there were none.
    void past_copies(const std::vector<PastCopy> &copies);
    void past_copy(const PastCopy &copy);
    void switches(const std::vector<FailedSwitch> &switches);
    void end(const Outcome &outcome, MaybeIndex index = std::nullopt,
             MaybeTime elapsed = std::nullopt);

    // Takes the line that changes away, before somebody else prints.
    void clear_line();

  private:
    void progress(const std::string &line, uint64_t elapsed);
    void print(const std::string &text);
    void print_json_row(const Row &row, const Outcome &why);
    void print_json_past_copy(const PastCopy &copy);
    JsonObject event(const char *name) const;

    bool json_;
    bool quiet_;
    bool live_;
    bool line_shown_ = false;
    uint64_t next_line_ = 0; // when a plain line is due
    std::string last_state_;
    std::vector<size_t> past_widths_; // of the columns of the history
    std::string agent_;
    std::string source_;
    std::string destination_;
};

} // namespace xfcopy

#endif
