// One text that is merged into FRR's configuration: what is checked before,
// what is sent, and what is found afterwards.
#ifndef HOST_QSH_FRR_APPLY_H
#define HOST_QSH_FRR_APPLY_H

#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/qsh/backend.h"
#include "host/qsh/frr_reader.h"
#include "host/qsh/vtysh.h"

namespace xfhost {

// A configuration that FRR showed.
struct FrrShown {
    FrrShown() = default;
    explicit FrrShown(std::string_view text);

    FrrLines lines;
    std::set<std::string> paths;
    // By the block that they stand in, and by that and their last word.
    std::map<std::string, std::vector<size_t>> by_block, by_end;
};

class FrrApply {
  public:
    FrrApply(const Settings &settings, std::string_view text);

    // Has vtysh check the syntax of what is good; meanwhile the configuration
    // can be shown.
    void start_check();

    // Sends what is good. `before` is the running configuration that the text
    // is merged into. False, and why, if it is not known what became of the
    // lines.
    bool run(const std::string &before, std::string &why);

    // Looks for each line in the configuration as it is now.
    void verify(const std::string &after);

    // Whether something was sent that may be in the configuration now.
    bool sent() const {
        return sent_;
    }

    // Whether lines were refused after others had been sent.
    bool must_go_back() const;

    // Takes back what verify() found to be new. False, and why, if vtysh
    // fails.
    bool go_back(std::string &why);

    // Says how the configuration is after that; `shown` is empty if it cannot
    // be told, for the reason `why`.
    void note_restored(const std::string &shown, const std::string &why);

    // Whether all good lines are there, or the configuration of before is.
    bool whole() const {
        return !must_go_back() || went_back_;
    }

    // The outcome, and a text for the results file.
    void report(ApplyResult &result, std::string &results) const;

  private:
    bool finish_check(std::string &why);
    bool first_bgp(size_t which) const;
    void forgive_what_is_there();
    void stop_after_too_many();
    bool send(std::string &why);
    bool send_script(const FrrScript &script, std::string &why);
    bool take_complaints(const FrrScript &script, const VtyshEnd &end,
                         std::string &why);
    bool risky(size_t which) const;
    int seconds_left() const;
    void note(const std::string &text);
    void verify_line(size_t which);
    const FrrLine *similar(size_t which);
    const FrrLine *abbreviated(const std::vector<size_t> &among,
                               const std::string &text) const;
    size_t refused() const;

    const Settings &settings_;
    FrrScript checked_;
    std::unique_ptr<Vtysh> check_;
    std::string before_text_;
    FrrShown before_, after_;
    FrrLines lines_;
    std::set<size_t> unsent_;        // neither refused nor sent
    std::set<std::string> open_;     // headers that FRR has taken
    std::vector<std::string> notes_; // most_notes at most
    std::string restored_;           // what note_restored() has found
    size_t searches_ = 0;
    bool sent_ = false, stopped_ = false, went_back_ = false;
    std::chrono::steady_clock::time_point start_;
};

// A prefix as FRR keeps it, 10.23.1.5/24 as 10.23.1.0/24; anything else as it
// is.
std::string frr_masked(std::string_view word);

} // namespace xfhost

#endif
