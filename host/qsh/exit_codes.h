// Exit codes of qsh, between the program and the call that runs it.
#ifndef HOST_QSH_EXIT_CODES_H
#define HOST_QSH_EXIT_CODES_H

namespace xfhost {

constexpr int exit_lines_refused = 1;
constexpr int exit_no_configuration = 2;
constexpr int exit_lines_skipped = 3;
constexpr int exit_usage = 64;
constexpr int exit_failed = 74; // a file could not be read or written

} // namespace xfhost

#endif
