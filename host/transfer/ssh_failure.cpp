#include "host/transfer/ssh_failure.h"

#include <algorithm>

namespace xfhost {
namespace {

bool matches(std::string_view line, std::string_view front,
             std::string_view in_it) {
    return line.starts_with(front) && line.find(in_it) != line.npos;
}

bool of_login(std::string_view line) {
    // "user@server: Permission denied (methods)."
    return line.find(": Permission denied (") != line.npos ||
           matches(line, "Received disconnect from ",
                   "Too many authentication failures");
}

bool of_timeout(std::string_view line) {
    return matches(line, "Timeout, server ", " not responding.") ||
           matches(line, "ssh: connect to host ", " timed out");
}

} // namespace

Failed ssh_failure(bool let_in, std::string_view log) {
    while (!log.empty()) {
        std::string_view line = log.substr(0, log.find('\n'));
        log.remove_prefix(std::min(log.size(), line.size() + 1));
        if (of_timeout(line))
            return failure_of(Outcome::timeout);
        if (!let_in && line.starts_with("Host key verification failed."))
            return failure_of(Outcome::host_key);
        if (!let_in && of_login(line))
            return failure_of(Outcome::login);
    }
    return failure_of(Outcome::connection);
}

} // namespace xfhost
