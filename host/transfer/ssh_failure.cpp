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

Failed of_host_key(std::string_view log) {
    Failed failed = failure_of(Outcome::host_key).at(Step::host_key);
    if (log.find("HOST IDENTIFICATION HAS CHANGED") == log.npos)
        return failed.because("the server's host key is not known");
    return failed.because("the server's host key is another than the known one")
        .advise("Find out why it has changed. Then, on the switch, enrol the "
                "server again with xfenrol.");
}

std::string_view last_line(std::string_view log) {
    log = log.substr(0, log.find_last_not_of("\r\n") + 1);
    return log.substr(log.find_last_of("\r\n") + 1);
}

} // namespace

Failed ssh_failure(bool let_in, std::string_view log) {
    const Step step = let_in ? Step::transfer : Step::connection;
    for (std::string_view rest = log; !rest.empty();) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        if (of_timeout(line))
            return failure_of(Outcome::timeout).at(step).quote(line);
        if (!let_in && line.starts_with("Host key verification failed."))
            return of_host_key(log);
        if (!let_in && of_login(line))
            return failure_of(Outcome::login).at(Step::login).quote(line);
    }
    return failure_of(Outcome::connection).at(step).quote(last_line(log));
}

} // namespace xfhost
