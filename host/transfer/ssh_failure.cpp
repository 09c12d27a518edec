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
            return {Outcome::timeout, "the server did not answer in time"};
        if (!let_in && line.starts_with("Host key verification failed."))
            return {Outcome::host_key,
                    "the server's host key is not known, or another one"};
        if (!let_in && of_login(line))
            return {Outcome::login, "the server refused the login"};
    }
    return {Outcome::connection, "the connection failed or was lost"};
}

} // namespace xfhost
