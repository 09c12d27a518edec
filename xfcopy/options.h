// The command line.
#ifndef XFCOPY_OPTIONS_H
#define XFCOPY_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "xfcopy/password.h"
#include "xfcopy/session.h"

namespace xfcopy {

// What can be done. `words` are the arguments behind its name, the agent's
// address first.
struct Command {
    const char *name;
    const char *arguments;
    size_t words;
    size_t most_words;
};

// The command that is meant if none is named.
constexpr const char *copy_command = "copy";
constexpr const char *history_command = "history";

struct Options {
    std::string command = copy_command;
    std::vector<std::string> words;
    std::vector<std::string> library; // Net-SNMP's own options
    Oid root;
    Oid history_root;
    std::string vrf;
    PasswordSource password;
    std::optional<int32_t> index;
    std::optional<int> timeout;   // seconds
    std::optional<int> wait_busy; // seconds
    std::optional<int> last;      // so many copies of the history
    bool notify = false;
    bool no_wait = false;
    bool keep = false;
    bool json = false;
    bool quiet = false;
    bool help = false;
    bool version = false;
};

// Takes the arguments of a program, `count` of them without its name. Returns
// what is wrong with them, empty if they were taken. Passphrases among them
// are overwritten.
std::string parse_options(int count, char **arguments, Options &options);

// The numbers of an OID; nothing if the text is none.
std::optional<Oid> parse_oid(std::string_view text);

// A whole number from `least` to `most`; nothing if the text is none.
std::optional<int64_t> parse_number(std::string_view text, int64_t least,
                                    int64_t most);

// What --help prints.
std::string help_text();

} // namespace xfcopy

#endif
