// The commands of the text configuration: which lines there are, in which mode,
// and what their arguments must be. One table; see README.md for the list.
#ifndef HOST_QSH_COMMANDS_H
#define HOST_QSH_COMMANDS_H

#include <string>
#include <string_view>
#include <vector>

namespace xfhost {

enum class Mode { top, interface, vlan, vrf };

enum class Kind {
    single, // at most one in its block; a new one takes its place
    list,   // any number; the same line twice is one
    mode,   // like list, and opens a block of its own
};

using Words = std::vector<std::string_view>;

struct Command {
    Mode where;
    std::string_view keyword; // one word or two, separated by a blank
    Kind kind;
    size_t least, most; // number of arguments
    // Error text of the arguments, NULL if they are good. May be NULL.
    const char *(*check)(const Words &arguments);
    Mode enters; // of Kind::mode
};

// A line as it is understood. `error` is NULL if it was.
struct Line {
    const Command *command = nullptr;
    bool negated = false;
    std::string text; // canonical: without "no", one blank between words
    std::string key;  // equal keys mean the same thing in a block
    const char *error = nullptr;
};

constexpr size_t longest_line = 512;

// Understands one line of a mode, given without its indentation.
Line parse_line(Mode mode, std::string_view text);

} // namespace xfhost

#endif
