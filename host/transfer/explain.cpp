// What a person is told of a transfer that failed: what the program was doing,
// what went wrong, and what to do about it.
#include <algorithm>

#include "host/transfer/transfer.h"

namespace xfhost {
namespace {

// Of a name or of a quotation in a report.
constexpr size_t longest_name = 60;
constexpr size_t longest_quote = 160;

std::string in_quotes(std::string_view text, size_t most) {
    return '"' + printable(text, most) + '"';
}

std::string server_of(const Attempt &attempt) {
    return attempt.copy.login.server + " port " + std::to_string(attempt.port) +
           " (" + attempt.protocol + ")";
}

std::string doing(Step step, const Attempt &attempt) {
    const Copy &copy = attempt.copy;
    switch (step) {
    case Step::vrf:
        return "Entering the VRF";
    case Step::source:
        return "Reading the file to send";
    case Step::connection:
        return "Connecting to " + server_of(attempt);
    case Step::host_key:
        return "Checking the host key of " + server_of(attempt);
    case Step::login:
        return "Logging in as " + in_quotes(copy.login.user, longest_name) +
               " at " + server_of(attempt);
    case Step::transfer:
        return (copy.upload ? "Sending " : "Fetching ") +
               in_quotes(copy.remote, longest_name) +
               (copy.upload ? " to " : " from ") + server_of(attempt);
    case Step::storing:
        return "Storing the fetched file";
    default:
        return "Checking the request";
    }
}

// The first that fits; a step that is missing fits all.
struct Advice {
    Outcome outcome;
    std::optional<Step> step;
    const char *text;
};
constexpr Advice advices[] = {
    {Outcome::timeout, Step::connection,
     "Look whether the server runs, and whether the switch reaches it; perhaps "
     "it is in another VRF."},
    {Outcome::timeout, Step::login,
     "Look at the server; the setting login_seconds is the limit."},
    {Outcome::timeout,
     {},
     "Look at the server and the way to it; the setting transfer_seconds is "
     "the limit."},
    {Outcome::bad_name, Step::request, "Choose another file name."},
    {Outcome::bad_name, Step::source,
     "Look at the state directory on the switch."},
    {Outcome::bad_name, Step::storing,
     "Look at the state directory on the switch."},
    {Outcome::bad_name,
     {},
     "Look at the file name, at its folder and at the permissions on the "
     "server."},
    {Outcome::no_space, Step::storing,
     "Make room on the switch; the setting download_octets is the limit for "
     "one file."},
    {Outcome::no_space, {}, "Make room on the server."},
    {Outcome::login, {}, "Look at the user name and the password."},
    {Outcome::connection, Step::connection,
     "Look whether the server runs, at its port, and at the way to it; perhaps "
     "it is in another VRF."},
    {Outcome::connection,
     {},
     "Copy again; if it stays so, look at the log of the server."},
    {Outcome::usage, {}, "Look at the settings of the switch, and at its log."},
    {Outcome::other, Step::vrf,
     "Look at the VRFs of the switch, and whether its agent may enter them."},
    {Outcome::other, Step::storing,
     "Look at the disk and the state directory of the switch."},
};

std::string enrol(const Attempt &attempt) {
    const Login &login = attempt.copy.login;
    std::string command = "xfenrol " + login.server;
    if (login.vrf.id != own_network_id)
        command += " -v " + printable(login.vrf.name);
    return "On the switch, as the user who runs the agent: " + command;
}

std::string advice_for(Outcome outcome, Step step, const Attempt &attempt) {
    if (outcome == Outcome::host_key)
        return enrol(attempt);
    for (const Advice &each : advices)
        if (each.outcome == outcome && each.step.value_or(step) == step)
            return each.text;
    return "Look at the log of the server.";
}

// Whether a server has repeated the password, which it knows.
bool gives_away(const std::string &quote, const std::string &password) {
    return !password.empty() &&
           (quote.find(password) != quote.npos ||
            printable(quote, quote.size() + 3)
                    .find(printable(password, password.size() + 3)) !=
                std::string::npos);
}

} // namespace

Report Failed::report(const Attempt &attempt) const {
    const bool begun = !attempt.copy.login.server.empty();
    const Details more = details_ ? *details_ : Details();
    const Step step =
        more.step.value_or(begun ? Step::transfer : Step::request);
    Report report;
    report.reason = doing(step, attempt) + ": " +
                    (more.because.empty() ? text_ : more.because);
    if (!more.quote.empty() &&
        !gives_away(more.quote, attempt.copy.login.password))
        report.reason += ": " + in_quotes(more.quote, longest_quote);
    report.advice =
        more.advice.empty() ? advice_for(outcome_, step, attempt) : more.advice;
    report.octets = more.octets;
    return report;
}

} // namespace xfhost
