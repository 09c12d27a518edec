// What stands behind the shell: something that has a running configuration.
#ifndef HOST_QSH_BACKEND_H
#define HOST_QSH_BACKEND_H

#include <memory>
#include <string>
#include <string_view>

#include "host/base/settings.h"

namespace xfhost {

// What became of a text that was applied.
struct ApplyResult {
    size_t lines = 0;   // lines of configuration: no comments, no blank lines
    size_t refused = 0; // of them
    bool stopped = false;
    size_t first_refused = 0; // its number in the text
    std::string refusal;      // and why
};

// So many refused lines, and the rest is not looked at.
constexpr size_t most_refused = 100;

// The functions return false and say in `why` what a person is told.
class Backend {
  public:
    virtual ~Backend() = default;

    // The running configuration as text, whole.
    virtual bool show(std::string &text, std::string &why) = 0;

    // Merges the lines of `text` into it. `results` receives a line for each
    // one that was refused, with its number, and what else is worth knowing.
    // False: nothing was applied, or it is not known what.
    virtual bool apply(std::string_view text, ApplyResult &result,
                       std::string &results, std::string &why) = 0;

    // Takes a running configuration that show() calls damaged as it is.
    virtual bool accept(std::string &why) = 0;
};

// The one that the settings choose.
std::unique_ptr<Backend> make_backend(const Settings &settings);

// A line of the results file: number from 1, reason, and the text of the line.
std::string result_line(size_t number, std::string_view line,
                        std::string_view why);

} // namespace xfhost

#endif
